// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The contents of tokens, valid or not, over <bmcoauth/token.h>. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/token.h>

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** TokenHeader owns the record of a token's header. */
class TokenHeader : public detail::Record<JWTHeader, free_jwt_header>
{
public:
    using Record::Record;

    /** The member "typ", if it is there. */
    [[nodiscard]] std::optional<std::string_view> type() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&JWTHeader::typ);
    }
    /** The member "alg", if it is there. */
    [[nodiscard]] std::optional<std::string_view> algorithm() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&JWTHeader::alg);
    }
    /** The member "kid", if it is there. */
    [[nodiscard]] std::optional<std::string_view> keyId() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&JWTHeader::kid);
    }
};

namespace detail
{

/** Owns the record of a token's payload. */
using PayloadRecord = Owned<JWTPayload, free_jwt_payload>;

/** The claims of a token that has been moved from. */
inline constexpr JWTPayload noClaims{};

/** ClaimsView looks at the payload of a token: what its claims are, not whether they are true. */
class ClaimsView
{
public:
    /** The claim "sub"; this one and the others are absent where the token has none, or one of
     *  another type. */
    [[nodiscard]] std::optional<std::string_view> subject() const noexcept
    {
        return textOrNone(payload->sub);
    }
    /** The claim "iss". */
    [[nodiscard]] std::optional<std::string_view> issuer() const noexcept
    {
        return textOrNone(payload->iss);
    }
    /** The claim "jti". */
    [[nodiscard]] std::optional<std::string_view> id() const noexcept
    {
        return textOrNone(payload->jti);
    }
    /** The claim "iat"; the times are texts, as in the token. */
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept
    {
        return textOrNone(payload->iat);
    }
    /** The claim "exp". */
    [[nodiscard]] std::optional<std::string_view> expiresAt() const noexcept
    {
        return textOrNone(payload->exp);
    }
    /** The claim "nbf". */
    [[nodiscard]] std::optional<std::string_view> notBefore() const noexcept
    {
        return textOrNone(payload->nbf);
    }
    /** The claim "act". */
    [[nodiscard]] std::optional<std::string_view> actor() const noexcept
    {
        return textOrNone(payload->act);
    }
    /** The claim "aud". */
    [[nodiscard]] TextRange audiences() const noexcept
    {
        return TextRange{payload->aud};
    }
    /** The claim "ravok_roles". */
    [[nodiscard]] TextRange roles() const noexcept
    {
        return TextRange{payload->ravok_roles};
    }
    /** The claim "scope" if it is a text. */
    [[nodiscard]] TextRange scopeNames() const noexcept
    {
        return TextRange{payload->scope};
    }
    /** The claim "scope" if it is an object, or its replacement in a delegated token. */
    [[nodiscard]] std::span<const JWTscopes> scopeEntries() const noexcept
    {
        return payload->scopes == nullptr || payload->scopes_count < 1
                   ? std::span<const JWTscopes>{}
                   : std::span<const JWTscopes>{payload->scopes,
                                                static_cast<std::size_t>(payload->scopes_count)};
    }
    /** The first value of the scope entry `name`. */
    [[nodiscard]] std::optional<std::string_view> scopeValue(std::string_view name) const noexcept
    {
        for (const JWTscopes& entry : scopeEntries())
        {
            if (entry.name != nullptr && name == entry.name)
            {
                return entry.values == nullptr || entry.count < 1 ? std::nullopt
                                                                  : textOrNone(*entry.values);
            }
        }
        return std::nullopt;
    }
    /** The JSON text of the claim "xidp". */
    [[nodiscard]] std::optional<std::string_view> identityProviders() const noexcept
    {
        return textOrNone(payload->xidp);
    }

protected:
    /** Looks at `record`, which has no claims if it is null. */
    explicit ClaimsView(const JWTPayload* record) noexcept
        : payload{record == nullptr ? &noClaims : record}
    {
    }

private:
    const JWTPayload* payload;
};

} // namespace detail

/** Claims are what a token says that has been found valid. They live as long as that token. */
class Claims : public detail::ClaimsView
{
private:
    friend class VerifiedToken;
    using ClaimsView::ClaimsView;
};

/** UnverifiedClaims are what somebody says: another type, so that they pass for Claims nowhere. */
class UnverifiedClaims : public detail::ClaimsView
{
private:
    friend class UnverifiedToken;
    using ClaimsView::ClaimsView;
};

/** A token that has been found valid. Only a Verdict gives one. */
class VerifiedToken
{
public:
    /** The claims. */
    [[nodiscard]] Claims claims() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return Claims{payload.get()};
    }
    [[nodiscard]] Claims claims() const&& = delete;

    /** Its header. */
    [[nodiscard]] const TokenHeader& header() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return head;
    }
    [[nodiscard]] const TokenHeader& header() const&& = delete;

    /** The payload, for the functions of <bmcoauth/privileges.h>. It stays here. */
    [[nodiscard]] JWTPayload* payloadRecord() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return payload.get();
    }

private:
    friend class Verdict;

    VerifiedToken(TokenHeader headerRecord, detail::PayloadRecord payloadRecord) noexcept
        : head{std::move(headerRecord)}, payload{std::move(payloadRecord)}
    {
    }

    TokenHeader head;
    detail::PayloadRecord payload;
};

/** A token that nobody has verified, or that was refused: what it says is for logs and for finding
 *  out which key to ask, never for deciding what somebody may do. */
class UnverifiedToken
{
public:
    /** Absent where the payload could not be read, or was not looked at. */
    [[nodiscard]] std::optional<UnverifiedClaims>
    unverifiedClaims() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return payload ? std::optional{UnverifiedClaims{payload.get()}} : std::nullopt;
    }
    [[nodiscard]] std::optional<UnverifiedClaims> unverifiedClaims() const&& = delete;

    /** Its texts are absent where the header could not be read. */
    [[nodiscard]] const TokenHeader& unverifiedHeader() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return head;
    }
    [[nodiscard]] const TokenHeader& unverifiedHeader() const&& = delete;

private:
    friend class Verdict;
    friend Expected<UnverifiedToken> readUnverified(std::string_view token);

    UnverifiedToken(TokenHeader headerRecord, detail::PayloadRecord payloadRecord) noexcept
        : head{std::move(headerRecord)}, payload{std::move(payloadRecord)}
    {
    }

    TokenHeader head;
    detail::PayloadRecord payload;
};

} // namespace v1
} // namespace bmcoauth
