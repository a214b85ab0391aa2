// SPDX-License-Identifier: Apache-2.0
#include "token_rules.hpp"

#include "clock.hpp"
#include "openssl.hpp"
#include "tokens.hpp"

#include <openssl/ec.h>
#include <openssl/err.h>
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
    return std::string{name} + " " + brief(value.isString() ? value.asString() : textOf(value));
}

std::string bytesIn(const std::string& text)
{
    return std::to_string(text.size()) + " characters";
}

/** The object in one part of a token; the refusal where there is none. */
std::optional<Json::Value> readPart(const std::string& part, const std::string& name,
                                    Refusal& refusal)
{
    const Expected<Bytes> bytes = decodeBase64Url(part);
    if (!bytes)
    {
        refusal = refused(name, part.empty() ? "nothing" : bytesIn(part) + " that do not decode",
                          "Base64url text of at most 98304 characters");
        return std::nullopt;
    }
    std::optional<Json::Value> object = parsedObject(bytes->view());
    if (!object)
    {
        refusal = refused(name, brief(bytes->view()), "a JSON object");
    }
    else if (detail::holdsZeroByte(bytes->view()))
    {
        object.reset();
        refusal = refused(name, "a zero byte", "texts without zero bytes");
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
                return std::string{name} + " is read as " + std::to_string(claimSeconds(text)) +
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
        return refused("scope", "scope " + brief(textOf(scope)), wanted,
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
            return refused("scope", "scope entry " + brief(name) + " " + brief(textOf(values)),
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
bool looksRaw(std::string_view signature)
{
    return (signature.size() == 64 || signature.size() == 96 || signature.size() == 132) &&
           (signature.front() != 0x30 ||
            static_cast<unsigned char>(signature[1]) + 2U != signature.size());
}

Refusal ownSignatureRules(const TokenParts& parts, const PrivateKey& key)
{
    const Expected<Bytes> bytes = decodeBase64Url(parts.signature);
    if (!bytes)
    {
        return refused("signature", bytesIn(parts.signature) + " that do not decode",
                       "Base64url text",
                       parts.signature.find('.') != std::string::npos
                           ? "there are more than two dots: the others count as the signature's"
                           : "");
    }
    if (isSignature(parts.signingInput(), *bytes, key))
    {
        return std::nullopt;
    }
    const std::string_view signature = bytes->view();
    return refused("signature",
                   "a signature of " + std::to_string(signature.size()) +
                       " bytes that does not verify with this key",
                   "a DER signature of the first two parts, SHA-256, by this P-256 key",
                   looksRaw(signature) ? "its length is that of the raw form of other software: "
                                         "see token convert --to der"
                                       : "");
}

// ------------------------------------------------------------------------ tokens of other issuers

/** "EC on P-256", "RSA" or what else is in the PEM text @p pem. */
std::string typeOfPem(std::string_view pem)
{
    ERR_set_mark();
    const EvpKeyPtr key{PEM_read_bio_PUBKEY(readerOf(pem).get(), nullptr, noPassPhrase, nullptr)};
    ERR_pop_to_mark();
    if (!key)
    {
        return pem.find("BEGIN RSA PUBLIC KEY") != std::string_view::npos ? "RSA" : "unreadable";
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

/** The texts are there, and the same. */
bool equal(std::optional<std::string_view> left, std::optional<std::string_view> right)
{
    return left && left == right;
}

/** Why a JSON Web Key is the one for a token, or nothing where it is not. */
std::optional<std::string> selectedBy(const KeyRecord& key, const TokenHeader& header)
{
    if (equal(key.member("alg"), header.algorithm()))
    {
        return "alg matches";
    }
    if (equal(key.member("kid"), header.keyId()))
    {
        return "kid matches";
    }
    const std::string_view algorithm = header.algorithm().value();
    if (algorithm.size() < 2)
    {
        return std::nullopt;
    }
    if (equal(key.member("kty"), "RSA"))
    {
        return algorithm.front() == 'P' || (algorithm.size() > 2 && algorithm.starts_with("RS"))
                   ? std::optional<std::string>{"kty matches"}
                   : std::nullopt;
    }
    if (!equal(key.member("kty"), "EC") || algorithm.front() != 'E')
    {
        return std::nullopt;
    }
    using Pairing = std::pair<std::string_view, std::string_view>;
    for (const auto& [curve, paired] :
         {Pairing{"P-256", "ES256"}, Pairing{"P-384", "ES384"}, Pairing{"P-521", "ES512"}})
    {
        if (equal(key.member("crv"), curve))
        {
            return algorithm == paired ? std::optional<std::string>{"kty and crv match"}
                                       : std::nullopt;
        }
    }
    return "kty matches";
}

std::string orNone(std::optional<std::string_view> text)
{
    return text ? brief(*text) : "none";
}

std::string describeJwk(const KeyRecord& key)
{
    return "kty " + orNone(key.member("kty")) + ", crv " + orNone(key.member("crv")) + ", alg " +
           orNone(key.member("alg")) + ", kid " + orNone(key.member("kid"));
}

KeyRefusal wrongSignature(const TrustedKey& key, std::string_view pem, std::string_view algorithm)
{
    const std::string type = typeOfPem(pem);
    const char family =
        static_cast<char>(std::toupper(static_cast<unsigned char>(algorithm.front())));
    const bool wantsRsa = family == 'R' || family == 'P';
    const bool fits = type == (wantsRsa ? "RSA" : "") || (!wantsRsa && type.starts_with("EC"));
    if (!fits)
    {
        return {Reached::importing, refused("key type", key.name + " is " + type,
                                            std::string{wantsRsa ? "an RSA key" : "an EC key"} +
                                                ", for alg " + brief(algorithm))};
    }
    return {
        Reached::signature,
        refused("signature", "a signature that does not verify with " + key.name + ", " + type,
                "a signature by alg " + brief(algorithm) + " and this key",
                algorithm == "ES256" && type != "EC on P-256" ? "ES256 is meant for P-256" : "")};
}

/** What is wrong with @p key for @p token, whose parts and header are sound; nothing where it
 *  verifies the signature. */
std::optional<KeyRefusal> keyRules(const std::string& token, const TokenHeader& header,
                                   const TrustedKey& key)
{
    const std::string_view algorithm = header.algorithm().value();
    const Expected<KeyRecord> record = KeyRecord::parse(key.text);
    if (!record)
    {
        return judge(token, key.text).hasTrustedSignature()
                   ? std::nullopt
                   : std::optional{wrongSignature(key, key.text, algorithm)};
    }
    const std::optional<std::string> selected = selectedBy(*record, header);
    if (!selected)
    {
        return KeyRefusal{Reached::selection,
                          refused("key selection", key.name + ": " + describeJwk(*record),
                                  "the token's alg " + brief(algorithm) + " or kid " +
                                      orNone(header.keyId()) +
                                      ", or a kty and crv that fit this alg")};
    }
    const std::optional<std::string_view> pem = record->member("kest_decoded_key");
    if (!pem)
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
    return judge(token, std::string{"PEM\n"}.append(*pem)).hasTrustedSignature()
               ? std::nullopt
               : std::optional{wrongSignature(key, *pem, algorithm)};
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

Refusal delegatedHeaderRules(const TokenParts& parts)
{
    Refusal refusal;
    const std::optional<Json::Value> header = readPart(parts.header, "header", refusal);
    return header ? refuseUnlessText(*header, "alg") : refusal;
}

Refusal algorithmRules(std::string_view algorithm)
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

Refusal delegatedPeriodRules(const UnverifiedClaims& read, const Json::Value& claims,
                             std::uint64_t skew, std::optional<std::uint64_t> now)
{
    const std::string allowed = skew == 0 ? "" : ", give or take " + durationOf(skew);
    if (!read.expiresAt())
    {
        return refused("exp", kindOf(claims, "exp"), "exp, a number below 2^32 or a string");
    }
    if (!now)
    {
        return outOfTime("no date on this clock", "a clock that can be read");
    }
    // Both sums may wrap, as the library's.
    const std::uint64_t end = claimSeconds(*read.expiresAt());
    if (*now >= end + skew)
    {
        return outOfTime(*now >= end
                             ? tooLate(*now, end)
                             : "an exp beyond the range of numbers, " + brief(*read.expiresAt()),
                         "exp later than now" + allowed, clockHint(claims));
    }
    const std::uint64_t begin = read.notBefore() ? claimSeconds(*read.notBefore()) : 0;
    if (*now + skew < begin)
    {
        return refused("nbf", tooEarly(*now, begin), "nbf not later than now" + allowed,
                       clockHint(claims));
    }
    return std::nullopt;
}

} // namespace

Explanation explainOwnToken(const std::string& token, const PrivateKey& key,
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
        refusal = ownSignatureRules(*parts, key);
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
    Refusal refusal = delegatedHeaderRules(*parts);
    std::optional<Json::Value> claims;
    if (!refusal)
    {
        claims = readPart(parts->payload, "payload", refusal);
    }
    if (refusal)
    {
        return *refusal;
    }
    const Expected<UnverifiedToken> read = readUnverified(token);
    if (!read)
    {
        return refused("scope", kindOf(*claims, "scope"),
                       "no scope, a text, or an object of arrays of strings");
    }
    if (!decodeBase64Url(parts->signature))
    {
        return refused("signature", bytesIn(parts->signature) + " that do not decode",
                       "Base64url text");
    }
    const TokenHeader& header = read->unverifiedHeader();
    if (refusal = algorithmRules(header.algorithm().value()); refusal)
    {
        return *refusal;
    }
    std::vector<KeyRefusal> refusals;
    for (const TrustedKey& key : keys)
    {
        std::optional<KeyRefusal> ofKey = keyRules(token, header, key);
        if (!ofKey)
        {
            return delegatedPeriodRules(*read->unverifiedClaims(), *claims, skewSeconds, now)
                .value_or(Explanation{});
        }
        refusals.push_back(std::move(*ofKey));
    }
    return refusals.empty() ? refused("keys", "no key", "a key to verify with") : ofAll(refusals);
}

Exit exitOf(Judgement judgement)
{
    switch (judgement)
    {
        case Judgement::valid:
            return Exit::success;
        case Judgement::invalid:
            return Exit::invalid;
        case Judgement::expired:
            return Exit::expired;
        default:
            return Exit::failure;
    }
}

} // namespace bmcoauth::tool
