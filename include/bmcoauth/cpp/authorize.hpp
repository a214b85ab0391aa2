// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The messages of the token endpoint, over <bmcoauth/authorize.h>. */

#include <bmcoauth/authorize.h>
#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/handshake_payload.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** One entry of a policy list. */
struct Policy
{
    /** The policy's name. */
    std::string_view name = {};
    /** The value. */
    std::string_view value = {};
};

/** The contents of a token request. It has a refresh token or a handshake response. */
struct TokenRequestParts
{
    /** The member "client_id". */
    std::string_view clientId = {};
    /** The member "client_secret". */
    std::string_view clientSecret = {};
    /** The member "state". */
    std::string_view state = {};
    /** The member "refresh_token". */
    std::optional<std::string_view> refreshToken = {};
    /** The member "kest_policy_auth". */
    Borrowed<Policy> policy = {};
    /** The handshake response; null for none. */
    const ParameterList* handshake = nullptr;
};

/** TokenRequest owns what a client sends to the token endpoint: AuthorizeRequest. */
class TokenRequest : public detail::Record<AuthorizeRequest, free_authorize_request>
{
public:
    using Record::Record;

    /** The request that the JSON text `text` holds: parse_authorize_request. */
    [[nodiscard]] static Expected<TokenRequest> parse(std::string_view text)
    {
        return detail::made<TokenRequest>(::parse_authorize_request, {{"text", text}});
    }

    /** A request of these parts: create_authorize_request, which fails here where a part of
     *  the request cannot be copied. */
    [[nodiscard]] static Expected<TokenRequest> of(const TokenRequestParts& parts)
    {
        detail::Arguments in;
        const char* const secret = in.text("clientSecret", parts.clientSecret);
        const char* const id = in.text("clientId", parts.clientId);
        const char* const state = in.text("state", parts.state);
        const char* const refresh = in.maybe("refreshToken", parts.refreshToken);
        auto* const policy = in.array<KestPolicyAuth>("policy", parts.policy.size());
        for (std::size_t i = 0; policy != nullptr && i < parts.policy.size(); ++i)
        {
            policy[i] = {in.text("policy", parts.policy[i].name, static_cast<int>(i)),
                         in.text("policy", parts.policy[i].value, static_cast<int>(i))};
        }
        if (in.failed())
        {
            return in.failure();
        }
        TokenRequest request{::create_authorize_request(
            secret, id, state, nullptr, parts.policy.empty() ? nullptr : policy,
            parts.handshake == nullptr ? nullptr : parts.handshake->get(), refresh)};
        if (!request)
        {
            return Error::last();
        }
        if ((refresh != nullptr && !request.refreshToken()) ||
            (!parts.policy.empty() && request.get()->policy == nullptr))
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        return request;
    }

    /** Its JSON text: write_authorize_request; refused where that would throw. */
    [[nodiscard]] Expected<Text> write() const
    {
        if (const Expected<void> whole = detail::requireAll(
                {{"client_id", clientId()}, {"client_secret", clientSecret()}, {"state", state()}});
            !whole)
        {
            return whole.error();
        }
        if (hasEmptyParameter())
        {
            return Error{BMCOAUTH_RULE_DOCUMENT_EMPTY, "handshake"};
        }
        return detail::ownedOrRefused<Text>(::write_authorize_request(get()));
    }

    /** The member "client_id", if it is there. */
    [[nodiscard]] std::optional<std::string_view> clientId() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeRequest::client_id);
    }
    /** The member "client_secret", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    clientSecret() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeRequest::client_secret);
    }
    /** The member "state", if it is there. */
    [[nodiscard]] std::optional<std::string_view> state() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeRequest::state);
    }
    /** The member "refresh_token", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    refreshToken() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeRequest::refresh_token);
    }
    /** A copy of the handshake response. */
    [[nodiscard]] Expected<ParameterList> handshake() const
    {
        return detail::ownedOrRefused<ParameterList>(
            ::set_handshake_payload(pointer(&AuthorizeRequest::handshake)));
    }

private:
    [[nodiscard]] bool hasEmptyParameter() const noexcept
    {
        const HandshakePayload* parameter = pointer(&AuthorizeRequest::handshake);
        while (parameter != nullptr && parameter->name != nullptr && parameter->values != nullptr)
        {
            if (*parameter->values == nullptr)
            {
                return true;
            }
            ++parameter;
        }
        return false;
    }
};

/** The contents of a token response. */
struct TokenResponseParts
{
    /** The member "access_token". */
    std::string_view accessToken = {};
    /** The member "state". */
    std::string_view state = {};
    /** The member "refresh_token". */
    std::string_view refreshToken = {};
    /** The member "expires_in", in seconds. */
    std::string_view expiresIn = {};
    /** The member "token_type". */
    std::string_view tokenType = "bearer";
};

/** TokenResponse owns what the token endpoint answers: AuthorizeResponse. */
class TokenResponse : public detail::Record<AuthorizeResponse, free_authorize_response>
{
public:
    using Record::Record;

    /** The response that the JSON text `text` holds: parse_authorize_response. */
    [[nodiscard]] static Expected<TokenResponse> parse(std::string_view text)
    {
        return detail::made<TokenResponse>(::parse_authorize_response, {{"text", text}});
    }
    /** A response of these parts: create_authorize_response. */
    [[nodiscard]] static Expected<TokenResponse> of(const TokenResponseParts& parts)
    {
        return detail::made<TokenResponse>(::create_authorize_response,
                                           {{"state", parts.state},
                                            {"accessToken", parts.accessToken},
                                            {"refreshToken", parts.refreshToken},
                                            {"expiresIn", parts.expiresIn},
                                            {"tokenType", parts.tokenType}});
    }

    /** Its JSON text: write_authorize_response; refused where that would throw. */
    [[nodiscard]] Expected<Text> write() const
    {
        if (const Expected<void> whole = detail::requireAll({{"access_token", accessToken()},
                                                             {"state", state()},
                                                             {"refresh_token", refreshToken()},
                                                             {"expires_in", expiresIn()},
                                                             {"token_type", tokenType()}});
            !whole)
        {
            return whole.error();
        }
        return detail::ownedOrRefused<Text>(::write_authorize_response(get()));
    }

    /** The member "access_token", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    accessToken() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeResponse::access_token);
    }
    /** The member "state", if it is there. */
    [[nodiscard]] std::optional<std::string_view> state() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeResponse::state);
    }
    /** The member "refresh_token", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    refreshToken() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeResponse::refresh_token);
    }
    /** The member "expires_in", if it is there. */
    [[nodiscard]] std::optional<std::string_view> expiresIn() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeResponse::expires_in);
    }
    /** The member "token_type", if it is there. */
    [[nodiscard]] std::optional<std::string_view> tokenType() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeResponse::token_type);
    }
    /** The record's issued_at, which is not written, if it is there. */
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&AuthorizeResponse::issued_at);
    }
};

/** The contents of the tokens that a service issues. */
struct TokenGrant
{
    /** Echoed in the response. */
    std::string_view state = {};
    /** The claim "sub". Absent: "EC OAuth Token". */
    std::optional<std::string_view> subject = {};
    /** The claim "iss". Absent: "EC". */
    std::optional<std::string_view> issuer = {};
    /** Must not be 0: the library would use one hour. */
    std::uint32_t lifetimeSeconds = 3600;
    /** The member "token_type" of the response. */
    std::string_view tokenType = "bearer";
    /** The claim "scope". */
    Borrowed<ScopeEntry> scopes = {};
    /** The privileges of the subject: the scope entry "USER_PRIV", which userPrivileges reads.
     *  `scopes` must then not have such an entry. */
    std::optional<Privileges> privileges = {};
};

/** Issues an access token and a refresh token: authorize_client. Does not check who asks for
 *  them. */
[[nodiscard]] inline Expected<TokenResponse> issueTokens(const TokenGrant& grant,
                                                         const PrivateKey& key)
{
    if (key.der().empty())
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "key"};
    }
    if (grant.lifetimeSeconds == 0)
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "lifetimeSeconds"};
    }
    detail::Arguments in;
    const char* const state = in.text("state", grant.state);
    char* const subject = in.maybe("subject", grant.subject);
    char* const issuer = in.maybe("issuer", grant.issuer);
    const char* const lifetime = in.decimal(grant.lifetimeSeconds);
    const char* const tokenType = in.text("tokenType", grant.tokenType);
    const detail::ScopeEntries scopes{in, grant.scopes, grant.privileges};
    AuthorizeClaims claims{.subject = subject,
                           .issuer = issuer,
                           .scopes = scopes.entries,
                           .scope_count = scopes.count};
    if (in.failed())
    {
        return in.failure();
    }
    const TokenResponse settings{::configure_auth_response(lifetime, tokenType)};
    if (!settings)
    {
        return Error::last();
    }
    return detail::ownedOrRefused<TokenResponse>(
        ::authorize_client(state, key.der().data(), static_cast<unsigned int>(key.der().size()),
                           settings.get(), &claims));
}

/** The response to a request as text, with an access token that nobody can ever verify, since it is
 *  signed with a key that is thrown away: client_authorize. */
[[nodiscard]] inline Expected<Text> issueUnverifiableTokens(std::string_view request)
{
    return detail::made<Text>(::client_authorize, {{"request", request}});
}

} // namespace v1
} // namespace bmcoauth
