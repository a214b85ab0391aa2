// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Judging tokens, over <bmcoauth/jwt.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/jwt.h>
#include <bmcoauth/privileges.h>
#include <bmcoauth/support.h>
#include <bmcoauth/token.h>

#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

namespace bmcoauth
{
inline namespace v1
{

/** What a validation has found. */
enum class Judgement
{
    invalid = 0, /**< forged, malformed, not valid yet */
    valid = 1,
    expired = 2,
    failed = 3, /**< there was no memory, or the clock could not be read: nothing is known */
};

/** Who vouches for tokens that others issue: the keys by which those are verified. */
class TrustedKeys
{
public:
    /** Copies of these keys, each a public key in PEM form or a JSON Web Key that
     *  Document::addPublicKey has completed; there is one at least. NOTE: the order counts where a
     *  list mixes both, see validateJWT_Delegated. */
    [[nodiscard]] static Expected<TrustedKeys> of(TextSpan keys)
    {
        detail::Arguments in;
        char** const texts = in.texts(keys);
        if (in.failure())
        {
            return *in.failure();
        }
        Texts copies{::set_char_array(texts)};
        if (!copies)
        {
            return keys.empty() ? Error::missing : Error::noMemory;
        }
        return TrustedKeys{std::move(copies)};
    }

    /** The keys, as long as this object lives. */
    [[nodiscard]] TextRange range() const& noexcept
    {
        return copies.range();
    }
    [[nodiscard]] TextRange range() const&& = delete;

private:
    explicit TrustedKeys(Texts keys) noexcept : copies{std::move(keys)}
    {
    }

    Texts copies;
};

/** How delegated tokens are judged. */
struct DelegationRules
{
    /** How far clocks may differ, for both ends of the period of validity. */
    unsigned int skewSeconds = 0;
    /** What the names in "ravok_roles" grant. */
    std::span<const Role> roles = {};
    /** The identity providers whose codes in "xidp" count, besides "*". */
    TextSpan providers = {};
};

/** Verdict is what a validation has found, and keeps the token apart by it: `verified` gives a
 *  valid one, whose claims may be acted upon, and `refused` any other, whose claims can be read by
 *  functions only that say in their names what they are.
 *
 *      const bmcoauth::Verdict verdict = bmcoauth::validateToken(token, key);
 *      if (const bmcoauth::VerifiedToken* good = verdict.verified())
 *      {
 *          admit(good->claims().subject());
 *      }
 */
class [[nodiscard]] Verdict
{
public:
    /** What has been found. */
    [[nodiscard]] Judgement judgement() const noexcept
    {
        return found;
    }

    /** Whether a trusted key signed the token: it tells an expired one from a forged one. Known of
     *  delegated tokens; of others just when they are valid. */
    [[nodiscard]] bool isAuthentic() const noexcept
    {
        return authentic;
    }

    /** Null unless the token is valid. */
    [[nodiscard]] const VerifiedToken* verified() const& noexcept
    {
        return std::get_if<VerifiedToken>(&token);
    }
    [[nodiscard]] const VerifiedToken* verified() const&& = delete;

    /** The valid token itself, which outlives the verdict; absent if it is not valid. */
    [[nodiscard]] std::optional<VerifiedToken> takeVerified() && noexcept
    {
        VerifiedToken* const valid = std::get_if<VerifiedToken>(&token);
        return valid == nullptr ? std::nullopt : std::optional{std::move(*valid)};
    }

    /** Null if the token is valid. */
    [[nodiscard]] const UnverifiedToken* refused() const& noexcept
    {
        return std::get_if<UnverifiedToken>(&token);
    }
    [[nodiscard]] const UnverifiedToken* refused() const&& = delete;

private:
    friend Verdict validateToken(std::string_view token, const PrivateKey& key);
    friend Verdict validateDelegatedToken(std::string_view token, const TrustedKeys& keys,
                                          const DelegationRules& rules);

    using Token = std::variant<UnverifiedToken, VerifiedToken>;

    /** The library's result, and its records, which are taken over. */
    Verdict(int result, bool isAuthenticToken, JWTHeader* header, JWTPayload* payload) noexcept
        : found{judgementOf(result, header, payload)},
          authentic{isAuthenticToken},
          token{tokenOf(found, TokenHeader{header}, detail::PayloadRecord{payload})}
    {
    }

    /** What a failure of the arguments says about the token. */
    explicit Verdict(Error error) noexcept
        : Verdict{error == Error::noMemory ? static_cast<int>(Judgement::failed) : 0, false,
                  nullptr, nullptr}
    {
    }

    [[nodiscard]] static Judgement judgementOf(int result, const JWTHeader* header,
                                               const JWTPayload* payload) noexcept
    {
        switch (result)
        {
            case 1:
                return header != nullptr && payload != nullptr ? Judgement::valid
                                                               : Judgement::failed;
            case 2:
                return Judgement::expired;
            case 3:
                return Judgement::failed;
            default:
                return Judgement::invalid;
        }
    }

    [[nodiscard]] static Token tokenOf(Judgement judgement, TokenHeader header,
                                       detail::PayloadRecord payload) noexcept
    {
        if (judgement == Judgement::valid)
        {
            return VerifiedToken{std::move(header), std::move(payload)};
        }
        return UnverifiedToken{std::move(header), std::move(payload)};
    }

    Judgement found;
    bool authentic;
    Token token;
};

/** Judges a token that was issued with this key: validateJWT. A token that holds a zero byte is
 *  invalid. */
[[nodiscard]] inline Verdict validateToken(std::string_view token, const PrivateKey& key)
{
    detail::Arguments in;
    const char* const tokenText = in.text(token);
    if (in.failure())
    {
        return Verdict{*in.failure()};
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int result = ::validateJWT(tokenText, key.der().data(),
                                     static_cast<int>(key.der().size()), &header, &payload);
    return {result, result == 1, header, payload};
}

/** Judges a token that another party issued: validateJWT_Delegated. A token that holds a zero byte
 *  is invalid. */
[[nodiscard]] inline Verdict validateDelegatedToken(std::string_view token, const TrustedKeys& keys,
                                                    const DelegationRules& rules = {})
{
    detail::Arguments in;
    const char* const tokenText = in.text(token);
    userRole_s* const roles = detail::roleTable(in, rules.roles);
    const char** const providers = in.texts<const char*>(rules.providers);
    const auto** const trusted = in.array<const char*>(keys.range().size());
    if (in.failure())
    {
        return Verdict{*in.failure()};
    }
    const char** next = trusted;
    for (const std::string_view key : keys.range())
    {
        *next++ = key.data();
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    const int result = ::validateJWT_Delegated(tokenText, trusted, 0, &header, &payload,
                                               rules.skewSeconds, roles, providers, &verified);
    return {result, verified == 1, header, payload};
}

/** Reads a token that nobody verifies: get_jwt_header and get_jwt_payload. */
[[nodiscard]] inline Expected<UnverifiedToken> readUnverified(std::string_view token)
{
    detail::Arguments in;
    const char* const tokenText = in.text(token);
    if (in.failure())
    {
        return *in.failure();
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    static_cast<void>(::get_jwt_header(tokenText, &header));
    TokenHeader ownedHeader{header};
    static_cast<void>(::get_jwt_payload(tokenText, &payload));
    detail::PayloadRecord ownedPayload{payload};
    if (!ownedHeader || !ownedPayload)
    {
        return Error::refused;
    }
    return UnverifiedToken{std::move(ownedHeader), std::move(ownedPayload)};
}

} // namespace v1
} // namespace bmcoauth
