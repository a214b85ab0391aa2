// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"
#include "common/hex.hpp"
#include "common/text.hpp"
#include "crypto/base64.hpp"
#include "crypto/openssl.hpp"
#include "keys/jwk.hpp"
#include "oauth2/jwt/pem_verifier.hpp"
#include "oauth2/jwt/privileges.hpp"
#include "oauth2/jwt/token_records.hpp"

#include <bmcoauth/jwt.h>
#include <bmcoauth/privileges.h>
#include <bmcoauth/support.h>

#include <strutil.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth::internal::jwt
{

namespace
{

/** @p text as a JSON string. Escapes only what JSON demands, and no byte of another alphabet: an
 *  ordinary subject is the same text in the privilege document and in the token. */
std::string quoted(std::string_view text)
{
    std::string result{'"'};
    for (const char c : text)
    {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20)
        {
            result.append("\\u00").append(
                {lowerCaseDigits[code >> 4U], lowerCaseDigits[code & 0x0FU]});
            continue;
        }
        if (c == '"' || c == '\\')
        {
            result += '\\';
        }
        result += c;
    }
    return result += '"';
}

/** The document that tells the user and the rights of a token. The subject is the issuer's to
 *  choose: unless it is escaped, it could close its string and write rights of its own behind it.
 */
std::string privilegeDocument(const char* subject, unsigned int mask)
{
    std::string document{R"({"AUTHNZ_USER": [)"};
    return document.append(quoted(subject == nullptr ? "" : subject))
        .append(R"(],"USER_PRIV": [")")
        .append(decimal(mask))
        .append(R"("],"singleUse": ["false"]})");
}

/** Writes the rights that the claims of @p payload grant into it as scope entries, unless it
 *  carries such entries already. */
void spellOutRights(JWTPayload& payload, userRole_s* roles, const char** providers)
{
    if (payload.scopes != nullptr)
    {
        return;
    }
    const unsigned int mask = xidpPrivileges(payload, providers).value_or(0) |
                              scopePrivileges(payload) | rolesPrivileges(payload, roles);
    const HeapText document{o2_ff_strdup(privilegeDocument(payload.sub, mask).c_str(),
                                         "da_updateJwtPayloadWithVLTScopes", 1878)};
    cleanPrint(document.get());
    ScopesPtr scopes = structuredScopes(document.get());
    if (scopes)
    {
        giveScopes(payload, std::move(scopes));
    }
}

/** Whether both texts are there and equal: what a key or a token leaves out selects nothing. */
bool same(const char* left, const char* right)
{
    return left != nullptr && right != nullptr && std::string_view{left} == right;
}

/** Whether a key on @p curve, which may be null, is one for @p algorithm. A curve that is not known
 *  here is left to the verifier. */
bool curveFits(const char* curve, std::string_view algorithm)
{
    using Pairing = std::pair<std::string_view, std::string_view>;
    constexpr std::array<Pairing, 3> pairings{
        {{"P-256", "ES256"}, {"P-384", "ES384"}, {"P-521", "ES512"}}};
    for (const auto& [name, paired] : pairings)
    {
        if (curve != nullptr && name == curve)
        {
            return algorithm == paired;
        }
    }
    return true;
}

/** Whether @p key is meant for the signature that @p header describes. */
bool selects(const jwk& key, const JWTHeader& header)
{
    const auto value = [&key](std::string_view name) {
        return keys::findValue(&key, name);
    };
    if (same(value("alg"), header.alg) || same(value("kid"), header.kid))
    {
        return true;
    }
    const std::string_view algorithm{header.alg};
    const char* const type = value("kty");
    if (same(type, "RSA"))
    {
        return algorithm.front() == 'P' || (algorithm.size() > 2 && algorithm.starts_with("RS"));
    }
    return same(type, "EC") && algorithm.front() == 'E' && curveFits(value("crv"), algorithm);
}

/** What became of the keys of a search in vain. */
class KeySearch
{
public:
    void notSelected() noexcept
    {
        ++selectedNot;
    }

    /** The key at @p position was selected, and what refused it has been noted. */
    void refused(std::size_t position) noexcept
    {
        const int rule = notedRule();
        const int rank = rankOf(rule);
        importedNot += rank == 1 ? 1U : 0U;
        verifiedNot += rank == 2 ? 1U : 0U;
        if (rank > furthestRank)
        {
            furthestRank = rank;
            furthest = static_cast<bmcoauth_rule>(rule);
            index = position;
        }
    }

    /** Refuses by what the key that came furthest broke, and says what became of all. */
    [[nodiscard]] bool refuse() const noexcept
    {
        std::array<char, 96> told{};
        static_cast<void>(std::snprintf(told.data(), told.size(),
                                        "%u not selected, %u not imported, %u not verified",
                                        selectedNot, importedNot, verifiedNot));
        Refused reason = bmcoauth::internal::refuse(furthest).saw(told.data());
        return index ? reason.at(*index) : reason;
    }

private:
    static int rankOf(int rule) noexcept
    {
        return rule == BMCOAUTH_RULE_MEMORY_EXHAUSTED  ? 3
               : rule == BMCOAUTH_RULE_TOKEN_SIGNATURE ? 2
                                                       : 1;
    }

    bmcoauth_rule furthest = BMCOAUTH_RULE_TOKEN_KEY_NOT_SELECTED;
    int furthestRank = 0;
    std::optional<std::size_t> index;
    unsigned int selectedNot = 0;
    unsigned int importedNot = 0;
    unsigned int verifiedNot = 0;
};

/** The record of @p text if that is a JWK; null if it is to be taken for a PEM text. */
keys::KeyRecord jwkOf(const char* text)
{
    keys::KeyRecord key = keys::parseKey(text);
    if (!key)
    {
        throwExhaustedMemory();
    }
    return key;
}

/** Whether one of @p trustedKeys verifies the signature.
 *
 *  The order of the list counts where it mixes both sorts of keys: a PEM key's outcome, good or
 *  bad, is valid until the next key is tried, and ends the search only at a JWK that is not. */
bool signedByOneOf(const char* const* trustedKeys, std::string_view signingInput,
                   std::string_view signature, const JWTHeader& header)
{
    bool verified = false;
    KeySearch search;
    for (std::size_t i = 0; trustedKeys[i] != nullptr; ++i)
    {
        const keys::KeyRecord key = jwkOf(trustedKeys[i]);
        const char* const pem =
            key ? keys::findValue(key.get(), "kest_decoded_key") : trustedKeys[i];
        if (key && !selects(*key, header))
        {
            search.notSelected();
        }
        else if (pem == nullptr)
        {
            refuse(BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED);
            search.refused(i);
        }
        else
        {
            verified = verifyWithPem(signingInput, signature, pem, header.alg);
            if (!verified)
            {
                search.refused(i);
            }
        }
        if (key && verified)
        {
            return true;
        }
    }
    return verified || search.refuse();
}

/** Whether the token of @p payload is within its period, give or take @p skew seconds. The sums
 *  may wrap: real tokens have no time near the end of the range. */
bmcoauth_token_result periodVerdict(const JWTPayload& payload, std::uint64_t skew)
{
    if (payload.exp == nullptr)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_MEMBER).about("exp");
    }
    const std::optional<std::uint64_t> now = currentSeconds();
    if (!now)
    {
        return BMCOAUTH_TOKEN_EXPIRED;
    }
    if (*now >= secondsOf(payload.exp) + skew)
    {
        return refuseExpired(payload.exp, *now);
    }
    if (payload.nbf != nullptr && *now + skew < secondsOf(payload.nbf))
    {
        return refuseNotYetValid(payload.nbf, *now);
    }
    return BMCOAUTH_TOKEN_VALID;
}

/** What the caller of the check trusts and grants. */
struct Policy
{
    const char* const* trustedKeys;
    std::uint64_t skew;
    userRole_s* roles;
    const char** providers;
};

bmcoauth_token_result check(std::string_view token, const Policy& policy, JWTHeader*& headerOut,
                            JWTPayload*& payloadOut, int& verified)
{
    const std::optional<TokenParts> parts = splitToken(token);
    if (!parts)
    {
        return BMCOAUTH_TOKEN_INVALID;
    }
    PayloadPtr ownedPayload = readPayload(parts->payload);
    if (!ownedPayload)
    {
        return BMCOAUTH_TOKEN_INVALID;
    }
    spellOutRights(*ownedPayload, policy.roles, policy.providers);
    HeaderPtr ownedHeader = readHeader(parts->header);
    if (!ownedHeader)
    {
        return BMCOAUTH_TOKEN_INVALID;
    }
    const JWTHeader& header = *ownedHeader;
    const JWTPayload& payload = *ownedPayload;
    headerOut = ownedHeader.release();
    payloadOut = ownedPayload.release();

    const std::optional<crypto::DecodedBytes> signature = crypto::decodeBase64Url(parts->signature);
    if (!signature)
    {
        return refused().within("signature");
    }
    // A MAC made with a public key as its secret is the oldest of forgeries.
    if (!isForPublicKeys(header.alg) ||
        !signedByOneOf(policy.trustedKeys, parts->signingInput, signature->text(), header))
    {
        return BMCOAUTH_TOKEN_INVALID;
    }
    // Before the time is looked at: a caller can tell an authentic token that has expired from a
    // forged one.
    verified = 1;
    return periodVerdict(payload, policy.skew);
}

} // namespace

} // namespace bmcoauth::internal::jwt

using namespace bmcoauth::internal;

extern "C" int validateJWT_Delegated(const char* token, const char** keys, unsigned int /*unused*/,
                                     JWTHeader** header, JWTPayload** payload, unsigned int skew,
                                     userRole_s* roles, const char** providers, int* verified)
{
    if (refusesNull("token keys header payload verified", token, keys == nullptr ? nullptr : *keys,
                    header, payload, verified))
    {
        return refused();
    }
    bmcoauth_token_result verdict = BMCOAUTH_TOKEN_INVALID;
    crypto::guardedCrypto([&] {
        verdict = jwt::check(token, {keys, skew, roles, providers}, *header, *payload, *verified);
        return verdict == BMCOAUTH_TOKEN_VALID;
    });
    return verdict;
}
