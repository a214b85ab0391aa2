// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <bmcoauth/service.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

/** Tokens before the validators of the service layer, signed by the key that they trust, by another
 *  one, and not at all; and key sets that others have written. */
namespace
{

using namespace bmcoauth;

constexpr auto tokenRules = std::to_array<std::string_view>(
    {"argument.length", "argument.zero-byte", "base64.malformed", "json.syntax",
     "json.nesting",    "json.root",          "policy.algorithm", "policy.audience",
     "policy.critical", "policy.encoding",    "policy.issuer",    "policy.key-unknown",
     "policy.lifetime", "policy.revoked",     "policy.scopes",    "policy.type",
     "token.algorithm", "token.expired",      "token.member",     "token.not-yet-valid",
     "token.parts",     "token.scope",        "token.signature"});
constexpr auto keyRules = std::to_array<std::string_view>(
    {"argument.zero-byte", "base64.length", "base64.malformed", "json.member-missing",
     "json.member-type", "json.nesting", "json.root", "json.syntax", "jwk.number", "jwk.point",
     "policy.key-id", "policy.key-unusable", "policy.key-weak"});

/** Whether there is a value. A refusal is printable, and by one of @p rules. */
template <typename T>
bool judged(fuzz::Rules rules, const Expected<T>& result)
{
    if (!result)
    {
        const Description reason = result.error().describe();
        fuzz::require(
            std::ranges::all_of(reason.view(), [](char c) { return c >= ' ' && c <= '~'; }),
            "a reason is printable");
        const bool isKnown = std::ranges::find(rules, result.error().name()) != rules.end();
        fuzz::require(isKnown, reason.c_str());
    }
    return result.has_value();
}

std::chrono::sys_seconds now()
{
    return std::chrono::sys_seconds{std::chrono::seconds{fuzz::now}};
}

/** The device's public key. */
std::string deviceKeys()
{
    const std::vector<unsigned char>& der = fuzz::device().key.der;
    const std::string point{der.end() - 64, der.end()};
    return R"({"keys":[{"kty":"EC","crv":"P-256","kid":"2026-11","x":")" +
           support::base64Url(point.substr(0, 32)) + R"(","y":")" +
           support::base64Url(point.substr(32)) + R"("}]})";
}

TokenValidator validatorBy(const VerificationKeys& keys)
{
    return TokenValidator::of(keys,
                              {.issuer = "EC",
                               .audience = ignored,
                               .longestLifetime = std::chrono::hours{2},
                               .revoked =
                                   [](const Claims& claims) {
                                       return claims.id() == "51";
                                   }},
                              now)
        .value();
}

Expected<DelegatedValidator> delegatedBy(std::string jwks)
{
    return DelegatedValidator::of({{.name = "https://issuer.example",
                                    .jwks = std::move(jwks),
                                    .algorithms = {"ES256", "ES384", "ES512", "RS256", "PS512"},
                                    .audience = "bmc-1",
                                    .longestLifetime = ignored,
                                    .type = ignored,
                                    .roles = {{"Administrator", Privileges::all()}}}},
                                  {.revoked = ignored}, now);
}

/** @p token may be valid, and is judged alike each time; @p foreign, which others have written, is
 *  never valid. */
template <typename Validator>
void requireOwnOnly(const Validator& validator, const std::string& token,
                    const std::string& foreign)
{
    const bool isValid = judged(tokenRules, validator.validate(token));
    fuzz::require(!judged(tokenRules, validator.validate(foreign)), "another's token is not valid");
    fuzz::require(judged(tokenRules, validator.validate(token)) == isValid,
                  "a token that comes again is judged alike");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TokenValidator own = validatorBy(VerificationKeys::of(deviceKeys()).value());
    static const DelegatedValidator delegated = delegatedBy(deviceKeys()).value();
    FuzzedDataProvider input{data, size};
    const std::string header = fuzz::nextText(input);
    const std::string payload = fuzz::nextText(input);
    const std::string jwks = fuzz::nextText(input);
    const std::string good = tokens::handmade(header, payload, fuzz::device().key);
    const std::string forged = tokens::handmade(header, payload, fuzz::peer().key);

    requireOwnOnly(own, good, forged);
    requireOwnOnly(delegated, good, forged);
    requireOwnOnly(own, forged, payload);
    requireOwnOnly(delegated, forged, payload);

    // No seed and no dictionary holds the peer's key.
    const Expected<VerificationKeys> keys = VerificationKeys::of(jwks);
    fuzz::require(!judged(keyRules, keys) ||
                      !judged(tokenRules, validatorBy(*keys).validate(forged)),
                  "a key made up never verifies");
    const Expected<DelegatedValidator> made = delegatedBy(jwks);
    fuzz::require(!judged(keyRules, made) || !judged(tokenRules, made->validate(forged)),
                  "a key made up never verifies");
    return 0;
}
