// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Judging tokens, over <bmcoauth/jwt.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/jwt.h>
#include <bmcoauth/privileges.h>
#include <bmcoauth/support.h>
#include <bmcoauth/token.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <variant>

namespace bmcoauth
{
inline namespace v1
{

/** The result of a validation. */
enum class Judgement
{
    invalid = 0, /**< forged, malformed, not valid yet, or with a zero byte in a text */
    valid = 1,
    expired = 2,
    failed = 3, /**< there was no memory, or the clock could not be read: nothing is known */
};

namespace detail
{

/** Whether a string or a name in the JSON text `text` holds a zero byte, raw or escaped. */
[[nodiscard]] inline bool holdsZeroByte(std::string_view text) noexcept
{
    bool found = text.find('\0') != std::string_view::npos;
    std::size_t escape = text.find('\\');
    while (!found && escape != std::string_view::npos)
    {
        found = text.substr(escape + 1, 5) == "u0000";
        // Passes over what is escaped: it may be a backslash, after which "u0000" is plain text.
        escape = text.find('\\', escape + 2);
    }
    return found;
}

/** Refuses the part `name` of a token, which the library has read into a record, if `part` holds a
 *  text with a zero byte: the record has cut it there. */
[[nodiscard]] inline Expected<void> requireUncut(const char* name, std::string_view part)
{
    const Expected<Bytes> json = decodeBase64Url(part);
    if (!json)
    {
        // The library has decoded it before.
        return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
    }
    if (holdsZeroByte(json->view()))
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, name};
    }
    return {};
}

/** The same for the parts of `token` from which there is a record. */
[[nodiscard]] inline Expected<void> requireUncut(std::string_view token, const JWTHeader* header,
                                                 const JWTPayload* payload)
{
    const std::size_t first = token.find('.');
    const std::size_t second = token.find('.', first + 1);
    Expected<void> uncut =
        header == nullptr ? Expected<void>{} : requireUncut("header", token.substr(0, first));
    if (uncut && payload != nullptr)
    {
        uncut = requireUncut("payload", token.substr(first + 1, second - first - 1));
    }
    return uncut;
}

} // namespace detail

/** The trusted keys of other issuers, which verify their tokens. */
class TrustedKeys
{
public:
    /** Copies of these keys, each a public key in PEM form or a JSON Web Key that
     *  Document::addPublicKey has completed; there is one at least. NOTE: the order counts where a
     *  list mixes both, see validateJWT_Delegated. */
    [[nodiscard]] static Expected<TrustedKeys> of(TextSpan keys)
    {
        detail::Arguments in;
        char** const texts = in.texts("keys", keys);
        if (in.failed())
        {
            return in.failure();
        }
        if (keys.empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "keys"};
        }
        return detail::ownedOrRefused<Texts>(::set_char_array(texts)).transform([](Texts owned) {
            return TrustedKeys{std::move(owned)};
        });
    }

    /** The keys, as long as this object lives. */
    [[nodiscard]] TextRange range() const& noexcept BMCOAUTH_LIFETIMEBOUND
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
    /** The privileges of each name in "ravok_roles". */
    Borrowed<Role> roles = {};
    /** The identity providers whose codes in "xidp" count, besides "*". */
    Borrowed<std::string_view> providers = {};
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
    Verdict(const Verdict&) = delete;
    /** Leaves `other` as a failed one without a token. */
    Verdict(Verdict&& other) noexcept : Verdict{movedFrom()}
    {
        *this = std::move(other);
    }
    Verdict& operator=(const Verdict&) = delete;
    /** Leaves `other` as a failed one without a token. */
    Verdict& operator=(Verdict&& other) noexcept
    {
        found = std::exchange(other.found, Judgement::failed);
        trusted = std::exchange(other.trusted, false);
        token = std::exchange(other.token,
                              tokenOf(other.found, TokenHeader{}, detail::PayloadRecord{}));
        reason = std::exchange(other.reason, movedFrom());
        return *this;
    }
    ~Verdict() = default;

    /** The result. */
    [[nodiscard]] Judgement judgement() const noexcept
    {
        return found;
    }

    /** Whether a trusted key signed the token, even if it has expired: tells an expired token
     *  from a forged one. Known for delegated tokens; for others only if they are valid. */
    [[nodiscard]] bool hasTrustedSignature() const noexcept
    {
        return trusted;
    }

    /** Null unless the token is valid. */
    [[nodiscard]] const VerifiedToken* verified() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return std::get_if<VerifiedToken>(&token);
    }
    [[nodiscard]] const VerifiedToken* verified() const&& = delete;

    /** Moves the valid token out; the `refusal` if the token is not valid. The verdict is left as
     *  one that has been moved from. */
    [[nodiscard]] Expected<VerifiedToken> takeVerified() && noexcept
    {
        Verdict moved{std::move(*this)};
        VerifiedToken* const valid = std::get_if<VerifiedToken>(&moved.token);
        if (valid == nullptr)
        {
            return *moved.reason;
        }
        return std::move(*valid);
    }

    /** Null if the token is valid. */
    [[nodiscard]] const UnverifiedToken* refused() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return std::get_if<UnverifiedToken>(&token);
    }
    [[nodiscard]] const UnverifiedToken* refused() const&& = delete;

    /** Why the token is not valid; null if it is. For logs, never for the peer. */
    [[nodiscard]] const Error* refusal() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return reason ? &*reason : nullptr;
    }
    [[nodiscard]] const Error* refusal() const&& = delete;

private:
    friend Verdict validateToken(std::string_view token, const PrivateKey& key);
    friend Verdict validateDelegatedToken(std::string_view token, const TrustedKeys& keys,
                                          const DelegationRules& rules);

    using Token = std::variant<UnverifiedToken, VerifiedToken>;

    /** The library's result, and its records, which are taken over. */
    Verdict(int result, bool hasTrustedKey, JWTHeader* header, JWTPayload* payload) noexcept
        : found{judgementOf(result, header, payload)},
          trusted{hasTrustedKey},
          token{tokenOf(found, TokenHeader{header}, detail::PayloadRecord{payload})},
          reason{reasonOf(result, found)}
    {
    }

    /** The verdict on a token whose arguments could not be prepared. */
    explicit Verdict(const Error& error) noexcept
        : found{error.rule() == BMCOAUTH_RULE_MEMORY_EXHAUSTED ? Judgement::failed
                                                               : Judgement::invalid},
          trusted{false},
          token{tokenOf(found, TokenHeader{}, detail::PayloadRecord{})},
          reason{error}
    {
    }

    [[nodiscard]] static Error movedFrom() noexcept
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "verdict"};
    }

    /** The verdict on `text`, of which the library has made the rest. */
    [[nodiscard]] static Verdict on(std::string_view text, int result, bool hasTrustedKey,
                                    JWTHeader* header, JWTPayload* payload)
    {
        Verdict verdict{result, hasTrustedKey, header, payload};
        if (const Expected<void> uncut = detail::requireUncut(text, header, payload); !uncut)
        {
            return Verdict{uncut.error()};
        }
        return verdict;
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

    /** Called directly after the library's call. */
    [[nodiscard]] static std::optional<Error> reasonOf(int result, Judgement found) noexcept
    {
        if (found == Judgement::valid)
        {
            return std::nullopt;
        }
        // Without its records, a valid token is of no use.
        return result == 1 ? Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED} : Error::last();
    }

    Judgement found;
    bool trusted;
    Token token;
    std::optional<Error> reason;
};

/** Judges a token that was issued with this key: validateJWT. Unlike there, a token is invalid if it
 *  holds a zero byte, or if its header or payload holds one in a string or a name, at any depth. */
[[nodiscard]] inline Verdict validateToken(std::string_view token, const PrivateKey& key)
{
    detail::Arguments in;
    const char* const tokenText = in.text("token", token);
    if (in.failed())
    {
        return Verdict{in.failure()};
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int result = ::validateJWT(tokenText, key.der().data(),
                                     static_cast<int>(key.der().size()), &header, &payload);
    return Verdict::on(token, result, result == 1, header, payload);
}

/** Judges a token that another party issued: validateJWT_Delegated. Unlike there, zero bytes make a
 *  token invalid, as in validateToken. */
[[nodiscard]] inline Verdict validateDelegatedToken(std::string_view token, const TrustedKeys& keys,
                                                    const DelegationRules& rules = {})
{
    detail::Arguments in;
    const char* const tokenText = in.text("token", token);
    userRole_s* const roles = detail::roleTable(in, rules.roles);
    const char** const providers = in.texts<const char*>("providers", rules.providers);
    const auto** const trusted = in.array<const char*>("keys", keys.range().size());
    if (in.failed())
    {
        return Verdict{in.failure()};
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
    return Verdict::on(token, result, verified == 1, header, payload);
}

/** Reads a token that nobody verifies: get_jwt_header and get_jwt_payload. Zero bytes are refused as
 *  in validateToken. */
[[nodiscard]] inline Expected<UnverifiedToken> readUnverified(std::string_view token)
{
    detail::Arguments in;
    const char* const tokenText = in.text("token", token);
    if (in.failed())
    {
        return in.failure();
    }
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    static_cast<void>(::get_jwt_header(tokenText, &header));
    TokenHeader ownedHeader{header};
    if (!ownedHeader)
    {
        return Error::last();
    }
    static_cast<void>(::get_jwt_payload(tokenText, &payload));
    detail::PayloadRecord ownedPayload{payload};
    if (!ownedPayload)
    {
        return Error::last();
    }
    if (const Expected<void> uncut = detail::requireUncut(token, header, payload); !uncut)
    {
        return uncut.error();
    }
    return UnverifiedToken{std::move(ownedHeader), std::move(ownedPayload)};
}

} // namespace v1
} // namespace bmcoauth
