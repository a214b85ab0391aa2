// SPDX-License-Identifier: Apache-2.0
//
// As tests/cpp/mistakes.cpp: right as it is, and with any of the macros a mistake that must not
// compile.
#include <bmcoauth/service.hpp>

#include <string>
#include <utility>

using namespace bmcoauth;

namespace
{

std::string subjectOf(const Claims& claims)
{
    return std::string{claims.subject().value_or("")};
}

} // namespace

int main()
{
    const Expected<VerificationKeys> keys = VerificationKeys::of("{}");
    if (!keys)
    {
        return 1;
    }
    TokenRules rules{.issuer = "controller",
                     .audience = ignored,
                     .longestLifetime = std::chrono::minutes{10},
                     .revoked = ignored};
    const Expected<TokenValidator> validator =
        TokenValidator::of(*keys, std::move(rules), systemClock());
    const TrustedIssuer issuer{.name = "corp",
                               .jwks = "{}",
                               .algorithms = {"ES256"},
                               .audience = "controller",
                               .longestLifetime = ignored,
                               .type = ignored};
    static_cast<void>(issuer);
    const Expected<ValidToken> token = validator->validate("a.b.c");
    static_cast<void>(subjectOf(token->claims()));
#ifdef AUDIENCE_NEITHER_EXPECTED_NOR_IGNORED // Expectation<
    static_cast<void>(
        TokenRules{.issuer = ignored, .longestLifetime = ignored, .revoked = ignored});
#endif
#ifdef ISSUER_NEITHER_EXPECTED_NOR_IGNORED // Expectation<
    static_cast<void>(
        TokenRules{.audience = ignored, .longestLifetime = ignored, .revoked = ignored});
#endif
#ifdef LIFETIME_NEITHER_EXPECTED_NOR_IGNORED // Expectation<
    static_cast<void>(TokenRules{.issuer = ignored, .audience = ignored, .revoked = ignored});
#endif
#ifdef REVOCATION_NEITHER_CHECKED_NOR_IGNORED // Expectation<
    static_cast<void>(
        TokenRules{.issuer = ignored, .audience = ignored, .longestLifetime = ignored});
#endif
#ifdef AUDIENCE_OF_ANOTHER_ISSUER_SKIPPED // Expectation<
    static_cast<void>(TrustedIssuer{.name = "corp",
                                    .jwks = "{}",
                                    .algorithms = {"ES256"},
                                    .longestLifetime = ignored,
                                    .type = ignored});
#endif
#ifdef EMPTY_EXPECTATION // Expectation<
    const Expectation<std::string> audience = {};
#endif
#ifdef AUDIENCE_OF_AN_ISSUER_LEFT_OUT // Expectation<
    static_cast<void>(TokenIssuerRules{.issuer = "controller"});
#endif
#ifdef CLAIMS_OF_A_TOKEN_THAT_IS_GONE // deleted
    static_cast<void>(validator->validate("a.b.c").value().claims());
#endif
#ifdef TOKEN_THAT_NOBODY_VALIDATED // ValidToken
    const ValidToken forged;
#endif
#ifdef IGNORED_VALIDATION // nodiscard
    validator->validate("a.b.c");
#endif
#ifdef KEY_FOR_A_SIGNER // Signer
    static_cast<void>(SigningKeys::of(KeyPair::generate().value().privateKey));
#endif
    return 0;
}
