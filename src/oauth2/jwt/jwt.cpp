// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/jwt.hpp"

#include "common/clock.hpp"
#include "common/journal.hpp"
#include "common/json.hpp"
#include "crypto/base64.hpp"
#include "crypto/openssl.hpp"
#include "oauth2/jwt/signing.hpp"
#include "oauth2/jwt/token_records.hpp"

#include <bmcoauth/jwt.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth::internal::jwt
{

namespace
{

/** The messages that are logged if a part of a token cannot be made. */
struct PartMessages
{
    const char* serialization;
    const char* base64;
};

constexpr PartMessages headerMessages{"JWT header serialization failed",
                                      "Base64 encoding the header failed"};
constexpr PartMessages payloadMessages{"JWT payload serialization failed",
                                       "Base64 encoding the payload failed"};

/** The text form of @p tree. Logs a failure, and throws it on. */
SecretString serialized(const Json::Value& tree, const PartMessages& messages)
{
    try
    {
        return jsonText(tree);
    }
    catch (...)
    {
        logError(messages.serialization);
        throw;
    }
}

/** The Base64url form of @p text; null if it cannot be made, which is logged. */
HeapText encoded(std::string_view text, const PartMessages& messages)
{
    HeapText result = crypto::encodeBase64Url(text);
    if (!result)
    {
        logError(messages.base64);
    }
    return result;
}

using Field = std::pair<const char*, const char*>;

/** An object of the texts of @p fields, without copying them; nothing when one is null. */
template <std::size_t count>
std::optional<Json::Value> objectOfTexts(const std::array<Field, count>& fields)
{
    std::optional<Json::Value> object{Json::objectValue};
    for (const auto& [name, text] : fields)
    {
        if (text == nullptr)
        {
            return refuse(BMCOAUTH_RULE_TOKEN_INCOMPLETE).about(name);
        }
        (*object)[Json::StaticString{name}] = Json::StaticString{text};
    }
    return object;
}

/** The "scope" claim of @p payload; nothing when an entry lacks a text that it counts. */
std::optional<Json::Value> scopeClaim(const JWTPayload& payload)
{
    std::optional<Json::Value> claim{Json::objectValue};
    for (int i = 0; i < payload.scopes_count; ++i)
    {
        if (payload.scopes == nullptr || payload.scopes[i].name == nullptr)
        {
            return refuse(BMCOAUTH_RULE_TOKEN_INCOMPLETE).about("scope");
        }
        const JWTscopes& entry = payload.scopes[i];
        Json::Value values{Json::arrayValue};
        for (int j = 0; j < entry.count; ++j)
        {
            if (entry.values == nullptr || entry.values[j] == nullptr)
            {
                return refuse(BMCOAUTH_RULE_TOKEN_INCOMPLETE).about("scope").saw(entry.name);
            }
            values.append(Json::StaticString{entry.values[j]});
        }
        (*claim)[Json::StaticString{entry.name}] = std::move(values);
    }
    return claim;
}

std::optional<Json::Value> headerObject(const JWTHeader& header)
{
    std::optional<Json::Value> object =
        objectOfTexts(std::array<Field, 2>{{{"typ", header.typ}, {"alg", header.alg}}});
    if (object && header.kid != nullptr)
    {
        (*object)["kid"] = Json::StaticString{header.kid};
    }
    return object;
}

/** The times go out as strings: the validating reader takes no numbers. */
std::optional<Json::Value> payloadObject(const JWTPayload& payload)
{
    std::optional<Json::Value> object = objectOfTexts(std::array<Field, 6>{{{"sub", payload.sub},
                                                                            {"iss", payload.iss},
                                                                            {"jti", payload.jti},
                                                                            {"iat", payload.iat},
                                                                            {"nbf", payload.nbf},
                                                                            {"exp", payload.exp}}});
    if (object && payload.scopes_count >= 1)
    {
        std::optional<Json::Value> scope = scopeClaim(payload);
        if (!scope)
        {
            return std::nullopt;
        }
        (*object)["scope"] = std::move(*scope);
    }
    return object;
}

/** One entry of the "scope" claim: every element of its array is a string and counts. */
bool readScope(const Json::Value& array, JWTscopes& entry)
{
    if (!array.isArray())
    {
        return refuse(BMCOAUTH_RULE_TOKEN_SCOPE).about("scope");
    }
    if (array.empty())
    {
        return true;
    }
    entry.values = zeroedBlock<char*>(array.size()).release();
    if (entry.values == nullptr)
    {
        return false;
    }
    for (const Json::Value& element : array)
    {
        if (!element.isString())
        {
            return refuse(BMCOAUTH_RULE_TOKEN_SCOPE).about("scope");
        }
        entry.values[entry.count] = requireHeapText(element.asCString()).release();
        ++entry.count;
    }
    return true;
}

/** The entries of a "scope" claim; null when it is not an object of arrays of strings, or has no
 *  member. */
ScopesPtr readScopes(const Json::Value& claim)
{
    const std::vector<NamedMember> members = namedMembers(claim);
    if (members.empty())
    {
        return refuse(BMCOAUTH_RULE_TOKEN_SCOPE).about("scope");
    }
    ScopesPtr scopes{zeroedBlock<JWTscopes>(members.size()).release(),
                     {static_cast<int>(members.size())}};
    if (!scopes)
    {
        return nullptr;
    }
    JWTscopes* entry = scopes.get();
    for (const auto& [name, values] : members)
    {
        entry->name = requireHeapText(name).release();
        if (!readScope(values, *entry))
        {
            return nullptr;
        }
        ++entry;
    }
    return scopes;
}

/** Builds the header record and stores it at @p out. */
bmcoauth_token_result takeHeader(std::string_view part, JWTHeader** out)
{
    Claims claims;
    if (!claims.read(part))
    {
        return refused().within("header");
    }
    const char* typ = claims.text("typ");
    const char* alg = claims.text("alg");
    const char* kid = claims.text("kid");
    if (typ == nullptr || alg == nullptr || (kid == nullptr && claims.value("kid") != nullptr))
    {
        return refuse(BMCOAUTH_RULE_TOKEN_MEMBER)
            .about(typ == nullptr   ? "typ"
                   : alg == nullptr ? "alg"
                                    : "kid");
    }
    HeaderPtr header = makeHeader(typ, alg, kid);
    if (!header)
    {
        return BMCOAUTH_TOKEN_FAILED;
    }
    *out = header.release();
    return BMCOAUTH_TOKEN_VALID;
}

/** Checks the period of validity, builds the payload record and stores it at @p out. */
bmcoauth_token_result takePayload(std::string_view part, std::uint64_t now, JWTPayload** out)
{
    Claims claims;
    if (!claims.read(part))
    {
        return refused().within("payload");
    }
    std::array<const char*, 6> found{"sub", "jti", "iss", "iat", "nbf", "exp"};
    for (const char*& name : found)
    {
        const char* const text = claims.text(name);
        if (text == nullptr)
        {
            return refuse(BMCOAUTH_RULE_TOKEN_MEMBER).about(name);
        }
        name = text;
    }
    const auto [sub, jti, iss, iat, nbf, exp] = found;
    const PayloadTexts texts{sub, jti, iss, iat, nbf, exp};
    // Not yet valid comes before expired: a token that is both is invalid.
    if (now < secondsOf(texts.nbf))
    {
        return refuseNotYetValid(texts.nbf, now);
    }
    if (now >= secondsOf(texts.exp))
    {
        return refuseExpired(texts.exp, now);
    }
    const Json::Value* scope = claims.value("scope");
    ScopesPtr scopes = scope != nullptr ? readScopes(*scope) : nullptr;
    if (scope != nullptr && !scopes)
    {
        return BMCOAUTH_TOKEN_INVALID;
    }
    PayloadPtr payload = makePayload(texts, now);
    if (!payload)
    {
        return BMCOAUTH_TOKEN_FAILED;
    }
    giveScopes(*payload, std::move(scopes));
    *out = payload.release();
    return BMCOAUTH_TOKEN_VALID;
}

/** Unlike elsewhere, each record is handed over as soon as it is built: a caller may read who a
 *  refused token names. */
bmcoauth_token_result checkToken(std::string_view token, const unsigned char* der, int derLength,
                                 JWTHeader** header, JWTPayload** payload)
{
    const std::optional<std::uint64_t> now = currentSeconds();
    if (!now)
    {
        return BMCOAUTH_TOKEN_FAILED;
    }
    const std::optional<TokenParts> parts = splitToken(token);
    if (!parts)
    {
        return BMCOAUTH_TOKEN_INVALID;
    }
    if (const bmcoauth_token_result taken = takeHeader(parts->header, header);
        taken != BMCOAUTH_TOKEN_VALID)
    {
        return taken;
    }
    if (const bmcoauth_token_result taken = takePayload(parts->payload, *now, payload);
        taken != BMCOAUTH_TOKEN_VALID)
    {
        return taken;
    }
    const std::optional<crypto::DecodedBytes> signature = crypto::decodeBase64Url(parts->signature);
    if (!signature)
    {
        return refused().within("signature");
    }
    return verifySignature(parts->signingInput, signature->text(), der, derLength)
               ? BMCOAUTH_TOKEN_VALID
               : BMCOAUTH_TOKEN_INVALID;
}

int guardedCheck(std::string_view token, const unsigned char* der, int derLength,
                 JWTHeader** header, JWTPayload** payload)
{
    if (refusesNull("header payload", header, payload))
    {
        return refused();
    }
    bmcoauth_token_result result = BMCOAUTH_TOKEN_INVALID;
    crypto::guardedCrypto([&] {
        result = checkToken(token, der, derLength, header, payload);
        return result == BMCOAUTH_TOKEN_VALID;
    });
    return result;
}

} // namespace

HeapText makeToken(const JWTHeader& header, const JWTPayload& payload, const unsigned char* der,
                   int derLength)
{
    const std::optional<Json::Value> headerTree = headerObject(header);
    const std::optional<Json::Value> payloadTree = payloadObject(payload);
    if (!headerTree || !payloadTree)
    {
        return nullptr;
    }
    const SecretString headerText = serialized(*headerTree, headerMessages);
    const SecretString payloadText = serialized(*payloadTree, payloadMessages);
    const HeapText headerPart = encoded(headerText, headerMessages);
    const HeapText payloadPart = headerPart ? encoded(payloadText, payloadMessages) : nullptr;
    if (!payloadPart)
    {
        return nullptr;
    }
    std::string token = headerPart.get();
    token.append(".").append(payloadPart.get());
    const HeapText signature = signToken(token, der, derLength);
    if (!signature)
    {
        return nullptr;
    }
    token.append(".").append(signature.get());
    return heapText(token);
}

} // namespace bmcoauth::internal::jwt

using namespace bmcoauth::internal;

extern "C" char* generateJWT(JWTHeader* header, JWTPayload* payload, const unsigned char* der,
                             int derLength)
{
    if (refusesNull("header payload", header, payload))
    {
        return refused();
    }
    return crypto::guardedCrypto(
        [=] { return jwt::makeToken(*header, *payload, der, derLength).release(); });
}

extern "C" int validateJWT(const char* token, const unsigned char* der, int derLength,
                           JWTHeader** header, JWTPayload** payload)
{
    if (refusesNull("token", token))
    {
        return refused();
    }
    return jwt::guardedCheck(token, der, derLength, header, payload);
}

int parseJWT(const std::string& token, const unsigned char* der, int derLength, JWTHeader** header,
             JWTPayload** payload)
{
    return jwt::guardedCheck(token, der, derLength, header, payload);
}
