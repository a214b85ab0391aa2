// SPDX-License-Identifier: Apache-2.0
//
// This compiles as it is. With one of the macros it has a mistake that must not compile.
// mistakes.py reads here the names of the macros, and the compiler's message for each.
#include <bmcoauth.hpp>

#include <string_view>
#include <utility>

using namespace bmcoauth;

namespace
{

std::string_view admitted(const Claims& claims)
{
    return claims.subject().value_or("");
}

[[maybe_unused]] std::string_view shown(const UnverifiedClaims& claims)
{
    return claims.subject().value_or("");
}

} // namespace

int main()
{
    Expected<KeyPair> pair = KeyPair::generate();
    if (!pair)
    {
        return 1;
    }
    const Verdict verdict = validateToken("a.b.c", pair->privateKey);
    if (const VerifiedToken* token = verdict.verified())
    {
        return static_cast<int>(admitted(token->claims()).size());
    }
    if (const UnverifiedToken* token = verdict.refused())
    {
        static_cast<void>(token->unverifiedClaims());
#ifdef UNVERIFIED_CLAIMS_FOR_VERIFIED_ONES // 'const bmcoauth::Claims
        admitted(*token->unverifiedClaims());
#endif
    }
#ifdef CLAIMS_OF_A_VERDICT // no member named 'claims'
    admitted(verdict.claims());
#endif
#ifdef TOKEN_OF_A_VERDICT_THAT_IS_GONE // deleted
    static_cast<void>(validateToken("a.b.c", pair->privateKey).verified());
#endif
#ifdef CLAIMS_OF_A_TOKEN_THAT_IS_GONE // deleted
    static_cast<void>(validateToken("a.b.c", pair->privateKey).takeVerified()->claims());
#endif
#ifdef VIEW_OF_A_TEXT_THAT_IS_GONE // deleted
    const std::string_view token = *randomToken(16);
    static_cast<void>(token);
#endif
#ifdef VIEW_OF_A_COPY_THAT_IS_GONE // deleted
    static_cast<void>(Text::copy("text")->view());
#endif
#ifdef RULES_WITH_ROLES_THAT_ARE_GONE // Borrowed<
    const DelegationRules rules{.roles = {{Role{"admin", Privilege::login}}}};
    static_cast<void>(rules);
#endif
#ifdef REFUSAL_OF_A_VERDICT_THAT_IS_GONE // deleted
    static_cast<void>(validateToken("a.b.c", pair->privateKey).refusal());
#endif
#ifdef SUBJECT_OF_AN_ERROR_THAT_IS_GONE // deleted
    static_cast<void>(randomToken(16).error().subject());
#endif
#ifdef RULE_FOR_AN_ERROR // conversion from 'bmcoauth_rule'
    const Expected<Text> text = BMCOAUTH_RULE_TOKEN_EXPIRED;
#endif
#ifdef IGNORED_REASON // nodiscard
    keyFileIsSound("key.pem");
#endif
#ifdef IGNORED_RESULT // nodiscard
    validateToken("a.b.c", pair->privateKey);
#endif
    return 0;
}
