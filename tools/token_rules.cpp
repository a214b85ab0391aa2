// SPDX-License-Identifier: Apache-2.0
#include "token_rules.hpp"

#include "clock.hpp"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

/** What a member of a document is, for a message. */
std::string kindOf(const Json::Value& object, const char* name)
{
    if (!object.isMember(name))
    {
        return "no member " + std::string{name};
    }
    const Json::Value& value = object[name];
    return std::string{name} + " " +
           brief(value.isString() ? value.asString() : json_fastWriter(value));
}

std::string bytesIn(const std::string& text)
{
    return std::to_string(text.size()) + " characters";
}

/** The object in one part of a token; the refusal where there is none. */
std::optional<Json::Value> readPart(const std::string& part, const std::string& name,
                                    Refusal& refusal)
{
    const std::optional<std::string> bytes = decodedBase64Url(part);
    if (!bytes)
    {
        refusal = refused(name, part.empty() ? "nothing" : bytesIn(part) + " that do not decode",
                          "Base64url text of at most 98304 characters");
        return std::nullopt;
    }
    std::optional<Json::Value> object = parsedObject(*bytes);
    if (!object)
    {
        refusal = refused(name, brief(*bytes), "a JSON object");
    }
    return object;
}

Refusal refuseUnlessText(const Json::Value& object, const char* name, const std::string& hint = "")
{
    if (object.isMember(name) && object[name].isString())
    {
        return std::nullopt;
    }
    return refused(name, kindOf(object, name), "a string " + std::string{name}, hint);
}

std::string tooEarly(std::uint64_t now, std::uint64_t begin)
{
    return "valid in " + durationOf(begin - now) + " by this clock (nbf " + std::to_string(begin) +
           ", " + dateOf(begin) + "; now " + clockText(now) + ")";
}

std::string tooLate(std::uint64_t now, std::uint64_t end)
{
    return "expired " + durationOf(now - end) + " ago by this clock (exp " + std::to_string(end) +
           ", " + dateOf(end) + "; now " + clockText(now) + ")";
}

/** What is suspicious about the clocks where a time is wrong. */
std::string clockHint(const Json::Value& claims)
{
    for (const char* name : {"nbf", "exp"})
    {
        if (claims[name].isString())
        {
            const std::string text = claims[name].asString();
            if (!std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c) != 0; }) ||
                text.empty() || (text.size() > 1 && text.front() == '0'))
            {
                return std::string{name} + " is read as " +
                       std::to_string(claimSeconds(text.c_str())) +
                       ": octal behind a 0, hexadecimal behind 0x, 0 where there is no number";
            }
        }
    }
    return "bmcoauth doctor compares this clock with the library's";
}

// -------------------------------------------------------------------------------- tokens of ours

Refusal ownHeaderRules(const Json::Value& header)
{
    for (const char* name : {"typ", "alg"})
    {
        if (Refusal refusal = refuseUnlessText(header, name))
        {
            return refusal;
        }
    }
    return header.isMember("kid") ? refuseUnlessText(header, "kid") : std::nullopt;
}

Refusal scopeRules(const Json::Value& scope)
{
    const std::string wanted = "no scope, or an object of arrays of strings with a member at least";
    if (!scope.isObject() || scope.empty())
    {
        return refused("scope", "scope " + brief(json_fastWriter(scope)), wanted,
                       scope.isString() ? "a text is what other issuers write: such a token is "
                                          "judged by token delegated"
                                        : "");
    }
    for (const std::string& name : scope.getMemberNames())
    {
        const Json::Value& values = scope[name];
        if (!values.isArray() ||
            !std::all_of(values.begin(), values.end(), [](const auto& v) { return v.isString(); }))
        {
            return refused("scope",
                           "scope entry " + brief(name) + " " + brief(json_fastWriter(values)),
                           wanted);
        }
    }
    return std::nullopt;
}

Refusal ownPayloadRules(const Json::Value& claims, std::uint64_t now)
{
    for (const char* name : {"sub", "iss", "jti", "iat", "nbf", "exp"})
    {
        const bool number = claims.isMember(name) && claims[name].isNumeric();
        if (Refusal refusal = refuseUnlessText(
                claims, name,
                number ? "times are strings in tokens of ours; one of another issuer is judged "
                         "by token delegated"
                       : ""))
        {
            return refusal;
        }
    }
    const std::uint64_t begin = claimSeconds(claims["nbf"].asCString());
    if (now < begin)
    {
        return refused("nbf", tooEarly(now, begin), "nbf not later than now", clockHint(claims));
    }
    const std::uint64_t end = claimSeconds(claims["exp"].asCString());
    if (now >= end)
    {
        return outOfTime(tooLate(now, end), "exp later than now", clockHint(claims));
    }
    return claims.isMember("scope") ? scopeRules(claims["scope"]) : std::nullopt;
}

/** Whether a signature looks like two integers side by side, as other software writes it. */
bool looksRaw(const std::string& signature)
{
    return (signature.size() == 64 || signature.size() == 96 || signature.size() == 132) &&
           (signature.front() != 0x30 ||
            static_cast<unsigned char>(signature[1]) + 2U != signature.size());
}

Refusal ownSignatureRules(const TokenParts& parts, const unsigned char* der, int derLength)
{
    const std::optional<std::string> signature = decodedBase64Url(parts.signature);
    if (!signature)
    {
        return refused("signature", bytesIn(parts.signature) + " that do not decode",
                       "Base64url text",
                       parts.signature.find('.') != std::string::npos
                           ? "there are more than two dots: the others count as the signature's"
                           : "");
    }
    if (verifySignature(parts.signingInput(),
                        reinterpret_cast<const unsigned char*>(signature->data()),
                        static_cast<int>(signature->size()), der, derLength) == 1)
    {
        return std::nullopt;
    }
    return refused("signature",
                   "a signature of " + std::to_string(signature->size()) +
                       " bytes that does not verify with this key",
                   "a DER signature of the first two parts, SHA-256, by this P-256 key",
                   looksRaw(*signature) ? "its length is that of the raw form of other software: "
                                          "see token convert --to der"
                                        : "");
}

// ------------------------------------------------------------------------ tokens of other issuers

using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using EvpKeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;

int noPassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return -1;
}

/** "EC on P-256", "RSA" or what else is in the PEM text @p pem. */
std::string typeOfPem(const std::string& pem)
{
    ERR_set_mark();
    const BioPtr text{BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()))};
    const EvpKeyPtr key{text ? PEM_read_bio_PUBKEY(text.get(), nullptr, noPassPhrase, nullptr)
                             : nullptr};
    ERR_pop_to_mark();
    if (!key)
    {
        return pem.find("BEGIN RSA PUBLIC KEY") != std::string::npos ? "RSA" : "unreadable";
    }
    if (EVP_PKEY_get_base_id(key.get()) != EVP_PKEY_EC)
    {
        return EVP_PKEY_get_base_id(key.get()) == EVP_PKEY_RSA ? "RSA" : "neither EC nor RSA";
    }
    std::array<char, 64> group{};
    std::size_t length = 0;
    if (EVP_PKEY_get_group_name(key.get(), group.data(), group.size(), &length) != 1)
    {
        return "EC";
    }
    const char* curve = EC_curve_nid2nist(OBJ_sn2nid(group.data()));
    return std::string{"EC on "} + (curve != nullptr ? curve : group.data());
}

/** How far a key came; the one that came farthest is spoken of. */
enum class Reached : int
{
    selection,
    importing,
    signature,
};

/** What is wrong with one key for a token. */
struct KeyRefusal
{
    Reached reached = Reached::selection;
    Explanation explanation;
};

/** The member @p name of the key, and whether the library sees one. */
const char* memberOf(jwk* record, const char* name)
{
    return jwk_key_value(record, name);
}

bool equal(const char* left, const char* right)
{
    return left != nullptr && right != nullptr && std::string_view{left} == right;
}

struct JwkOwner
{
    void operator()(jwk* record) const noexcept
    {
        free_jwk(&record);
    }
};
using JwkPtr = std::unique_ptr<jwk, JwkOwner>;

/** Why a JSON Web Key is the one for a token, or nothing where it is not. */
std::optional<std::string> selectedBy(jwk* record, const JWTHeader& header)
{
    if (equal(memberOf(record, "alg"), header.alg))
    {
        return "alg matches";
    }
    if (equal(memberOf(record, "kid"), header.kid))
    {
        return "kid matches";
    }
    const std::string_view algorithm{header.alg};
    if (algorithm.size() < 2)
    {
        return std::nullopt;
    }
    if (equal(memberOf(record, "kty"), "RSA"))
    {
        return algorithm.front() == 'P' || (algorithm.size() > 2 && algorithm.starts_with("RS"))
                   ? std::optional<std::string>{"kty matches"}
                   : std::nullopt;
    }
    if (!equal(memberOf(record, "kty"), "EC") || algorithm.front() != 'E')
    {
        return std::nullopt;
    }
    using Pairing = std::pair<const char*, std::string_view>;
    for (const auto& [curve, paired] :
         {Pairing{"P-256", "ES256"}, Pairing{"P-384", "ES384"}, Pairing{"P-521", "ES512"}})
    {
        if (equal(memberOf(record, "crv"), curve))
        {
            return algorithm == paired ? std::optional<std::string>{"kty and crv match"}
                                       : std::nullopt;
        }
    }
    return "kty matches";
}

std::string orNone(const char* text)
{
    return text != nullptr ? brief(text) : "none";
}

std::string describeJwk(jwk* record)
{
    return "kty " + orNone(memberOf(record, "kty")) + ", crv " + orNone(memberOf(record, "crv")) +
           ", alg " + orNone(memberOf(record, "alg")) + ", kid " + orNone(memberOf(record, "kid"));
}

KeyRefusal wrongSignature(const TrustedKey& key, const std::string& pem, const JWTHeader& header)
{
    const std::string type = typeOfPem(pem);
    const char family = static_cast<char>(std::toupper(static_cast<unsigned char>(*header.alg)));
    const bool wantsRsa = family == 'R' || family == 'P';
    const bool fits = type == (wantsRsa ? "RSA" : "") || (!wantsRsa && type.starts_with("EC"));
    if (!fits)
    {
        return {Reached::importing, refused("key type", key.name + " is " + type,
                                            std::string{wantsRsa ? "an RSA key" : "an EC key"} +
                                                ", for alg " + brief(header.alg))};
    }
    return {Reached::signature,
            refused("signature", "a signature that does not verify with " + key.name + ", " + type,
                    "a signature by alg " + brief(header.alg) + " and this key",
                    std::string{header.alg} == "ES256" && type != "EC on P-256"
                        ? "ES256 is meant for P-256"
                        : "")};
}

/** What is wrong with @p key for @p token, whose parts and header are sound; nothing where it
 *  verifies the signature. */
std::optional<KeyRefusal> keyRules(const std::string& token, const JWTHeader& header,
                                   const TrustedKey& key)
{
    const JwkPtr record{oauth2_parse_jwk(key.text.c_str())};
    if (!record)
    {
        return judge(token, key.text, 0).verified
                   ? std::nullopt
                   : std::optional{wrongSignature(key, key.text, header)};
    }
    const std::optional<std::string> selected = selectedBy(record.get(), header);
    if (!selected)
    {
        return KeyRefusal{Reached::selection,
                          refused("key selection", key.name + ": " + describeJwk(record.get()),
                                  "the token's alg " + brief(header.alg) + " or kid " +
                                      orNone(header.kid) + ", or a kty and crv that fit this alg")};
    }
    const char* pem = memberOf(record.get(), "kest_decoded_key");
    if (pem == nullptr)
    {
        return KeyRefusal{Reached::importing,
                          refused("key import",
                                  key.name + ": " + *selected + ", but this JWK has no decoded key",
                                  "a JWK with kest_decoded_key",
                                  key.usable ? "import it first: bmcoauth jwk import"
                                             : "it cannot be imported: its members make no "
                                               "public key")};
    }
    // The decoded key alone, as a PEM key: no rule of selection stands before its verdict. What
    // stands before a PEM text is passed over, and keeps it from being taken for a JSON Web Key.
    return judge(token, "PEM\n" + std::string{pem}, 0).verified
               ? std::nullopt
               : std::optional{wrongSignature(key, pem, header)};
}

/** What there is to say of all keys where none of them verifies. */
Explanation ofAll(const std::vector<KeyRefusal>& refusals)
{
    const auto farthest =
        std::ranges::max_element(refusals, {}, [](const KeyRefusal& r) { return r.reached; });
    Explanation explanation = farthest->explanation;
    const auto tried = std::ranges::count_if(
        refusals, [](const KeyRefusal& r) { return r.reached == Reached::signature; });
    const std::string all = std::to_string(refusals.size());
    if (refusals.size() > 1 && tried > 1)
    {
        explanation.saw = "a signature that does not verify with any of the " +
                          (static_cast<std::size_t>(tried) == refusals.size()
                               ? all + " keys"
                               : std::to_string(tried) + " keys that fit (of " + all + ")");
        explanation.wanted = "a signature by one of the trusted keys";
    }
    else if (refusals.size() > 1)
    {
        explanation.saw += " (the closest of " + all + " keys)";
    }
    return explanation;
}

Refusal delegatedHeaderRules(const std::string& token, const TokenParts& parts,
                             JwtHeaderPtr& header)
{
    Refusal refusal;
    const std::optional<Json::Value> object = readPart(parts.header, "header", refusal);
    if (!object)
    {
        return refusal;
    }
    JWTHeader* raw = nullptr;
    const bool read = get_jwt_header(token.c_str(), &raw) == 1;
    header.reset(raw);
    if (!read)
    {
        return refused("alg", kindOf(*object, "alg"), "a string alg");
    }
    return std::nullopt;
}

Refusal delegatedPayloadRules(const std::string& token, const TokenParts& parts,
                              JwtPayloadPtr& payload)
{
    Refusal refusal;
    const std::optional<Json::Value> object = readPart(parts.payload, "payload", refusal);
    if (!object)
    {
        return refusal;
    }
    JWTPayload* raw = nullptr;
    const bool read = get_jwt_payload(token.c_str(), &raw) == 1;
    payload.reset(raw);
    if (!read)
    {
        return refused("scope", kindOf(*object, "scope"),
                       "no scope, a text, or an object of arrays of strings");
    }
    return std::nullopt;
}

Refusal algorithmRules(const std::string& algorithm)
{
    if (algorithm.size() >= 2 && (algorithm.front() == 'H' || algorithm.front() == 'h'))
    {
        return refused("alg", "alg " + brief(algorithm), "no HMAC",
                       "whoever has the public key could write such a token");
    }
    const auto family = static_cast<char>(
        algorithm.empty() ? 0 : std::toupper(static_cast<unsigned char>(algorithm.front())));
    if (algorithm.size() < 2 || (family != 'R' && family != 'P' && family != 'E'))
    {
        return refused("alg", "alg " + brief(algorithm),
                       "a name of two characters at least that begins with R, P or E");
    }
    return std::nullopt;
}

Refusal delegatedPeriodRules(const JWTPayload& payload, const Json::Value& claims,
                             std::uint64_t skew, std::optional<std::uint64_t> now)
{
    const std::string allowed = skew == 0 ? "" : ", give or take " + durationOf(skew);
    if (payload.exp == nullptr)
    {
        return refused("exp", kindOf(claims, "exp"), "exp, a number below 2^32 or a string");
    }
    if (!now)
    {
        return outOfTime("no date on this clock", "a clock that can be read");
    }
    // Both sums may wrap, as the library's.
    const std::uint64_t end = claimSeconds(payload.exp) + skew;
    if (*now >= end)
    {
        const std::uint64_t written = claimSeconds(payload.exp);
        return outOfTime(*now >= written
                             ? tooLate(*now, written)
                             : "an exp beyond the range of numbers, " + brief(payload.exp),
                         "exp later than now" + allowed, clockHint(claims));
    }
    if (payload.nbf != nullptr && *now + skew < claimSeconds(payload.nbf))
    {
        return refused("nbf", tooEarly(*now, claimSeconds(payload.nbf)),
                       "nbf not later than now" + allowed, clockHint(claims));
    }
    return std::nullopt;
}

} // namespace

Explanation explainOwnToken(const std::string& token, const unsigned char* der, int derLength,
                            std::optional<std::uint64_t> now)
{
    if (!now)
    {
        return {Exit::failure, "clock", "no date on this clock", "a clock that can be read", ""};
    }
    const std::optional<TokenParts> parts = partsOf(token);
    if (!parts)
    {
        return refused("dots", brief(token), "three parts with dots between them");
    }
    Refusal refusal;
    const std::optional<Json::Value> header = readPart(parts->header, "header", refusal);
    if (header)
    {
        refusal = ownHeaderRules(*header);
    }
    if (refusal)
    {
        return *refusal;
    }
    const std::optional<Json::Value> claims = readPart(parts->payload, "payload", refusal);
    if (claims)
    {
        refusal = ownPayloadRules(*claims, *now);
    }
    if (!refusal)
    {
        refusal = ownSignatureRules(*parts, der, derLength);
    }
    return refusal.value_or(Explanation{});
}

Explanation explainDelegatedToken(const std::string& token, const std::vector<TrustedKey>& keys,
                                  std::uint32_t skewSeconds, std::optional<std::uint64_t> now)
{
    const std::optional<TokenParts> parts = partsOf(token);
    if (!parts)
    {
        return refused("dots", brief(token), "three parts with dots between them");
    }
    JwtHeaderPtr header;
    JwtPayloadPtr payload;
    Refusal refusal = delegatedHeaderRules(token, *parts, header);
    if (!refusal)
    {
        refusal = delegatedPayloadRules(token, *parts, payload);
    }
    if (!refusal && !decodedBase64Url(parts->signature))
    {
        refusal = refused("signature", bytesIn(parts->signature) + " that do not decode",
                          "Base64url text");
    }
    if (!refusal)
    {
        refusal = algorithmRules(header->alg);
    }
    if (refusal)
    {
        return *refusal;
    }
    std::vector<KeyRefusal> refusals;
    for (const TrustedKey& key : keys)
    {
        std::optional<KeyRefusal> ofKey = keyRules(token, *header, key);
        if (!ofKey)
        {
            const Json::Value claims = *parsedObject(*decodedBase64Url(parts->payload));
            return delegatedPeriodRules(*payload, claims, skewSeconds, now).value_or(Explanation{});
        }
        refusals.push_back(std::move(*ofKey));
    }
    return refusals.empty() ? refused("keys", "no key", "a key to verify with") : ofAll(refusals);
}

Exit exitOf(int verdict)
{
    switch (verdict)
    {
        case Verdict::valid:
            return Exit::success;
        case Verdict::invalid:
            return Exit::invalid;
        case Verdict::expired:
            return Exit::expired;
        default:
            return Exit::failure;
    }
}

} // namespace bmcoauth::tool
