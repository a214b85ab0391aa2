// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"
#include "common/guard.hpp"
#include "common/text.hpp"
#include "crypto/openssl.hpp"
#include "crypto/random.hpp"
#include "oauth2/authorize/records.hpp"
#include "oauth2/jwt/jwt.hpp"
#include "oauth2/jwt/token_records.hpp"

#include <climits>

#include <optional>

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::authorize;

namespace
{

constexpr unsigned int tokenBytes = 16;
constexpr std::uint64_t defaultLifetimeSeconds = 3600;
constexpr const char* defaultExpiresIn = "3600";
constexpr const char* defaultTokenType = "bearer";
constexpr const char* defaultSubject = "EC OAuth Token";
constexpr const char* defaultIssuer = "EC";

const char* orDefault(const char* text, const char* otherwise) noexcept
{
    return text == nullptr ? otherwise : text;
}

/** What the token lives, where @p expiresIn is a usable number in any of C's notations; else the
 *  default. The response repeats the text in either case. */
std::uint64_t lifetimeSeconds(const char* expiresIn) noexcept
{
    const std::uint64_t wanted = expiresIn == nullptr ? 0 : secondsOf(expiresIn);
    return wanted == 0 ? defaultLifetimeSeconds : wanted;
}

/** Fills the zeroed entry @p copy; false, with the reason noted, when @p entry is incomplete or memory
 *  runs out. Even then @p copy owns its texts. */
bool copyScope(const JWTscopes& entry, JWTscopes& copy) noexcept
{
    if (entry.name == nullptr)
    {
        return refuse(BMCOAUTH_RULE_AUTHORIZE_SCOPE).about("name");
    }
    if (entry.values == nullptr || entry.count <= 0)
    {
        return refuse(BMCOAUTH_RULE_AUTHORIZE_SCOPE).about("values");
    }
    const auto count = static_cast<std::size_t>(entry.count);
    copy.name = heapText(entry.name).release();
    copy.values = zeroedBlock<char*>(count).release();
    if (copy.name == nullptr || copy.values == nullptr)
    {
        return false;
    }
    copy.count = entry.count;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (entry.values[i] == nullptr)
        {
            return refuse(BMCOAUTH_RULE_AUTHORIZE_SCOPE).about("values");
        }
        copy.values[i] = heapText(entry.values[i]).release();
        if (copy.values[i] == nullptr)
        {
            return false;
        }
    }
    return true;
}

/** The scopes that @p claims asks for, a null owner for none; nothing when they cannot be copied.
 */
std::optional<jwt::ScopesPtr> copyScopes(const AuthorizeClaims* claims) noexcept
{
    if (claims == nullptr || claims->scopes == nullptr || claims->scope_count <= 0)
    {
        return jwt::ScopesPtr{};
    }
    const auto count = static_cast<std::size_t>(claims->scope_count);
    jwt::ScopesPtr copy{zeroedBlock<JWTscopes>(count).release(),
                        jwt::ScopesReleaser{claims->scope_count}};
    if (!copy)
    {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < count; ++i)
    {
        if (!copyScope(claims->scopes[i], copy.get()[i]))
        {
            refused().at(i);
            return std::nullopt;
        }
    }
    return copy;
}

/** The response that carries the two tokens; null, with the reason noted, where a text of it is
 *  missing or memory runs out. */
Response respond(const char* state, SecretText token, SecretText refreshToken,
                 const AuthorizeResponse* settings, std::uint64_t now)
{
    const char* const expiresIn = settings == nullptr ? defaultExpiresIn : settings->expires_in;
    const char* const tokenType = settings == nullptr ? defaultTokenType : settings->token_type;
    if (state == nullptr)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_NULL).about("state");
    }
    if (expiresIn == nullptr || tokenType == nullptr)
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_INCOMPLETE)
            .about(expiresIn == nullptr ? "expires_in" : "token_type");
    }
    return makeResponse(state, std::move(token), std::move(refreshToken), expiresIn, tokenType,
                        now);
}

Response issue(const char* state, const unsigned char* der, int derLength,
               const AuthorizeResponse* settings, const AuthorizeClaims* claims)
{
    const std::optional<std::uint64_t> now = currentSeconds();
    if (!now)
    {
        return nullptr;
    }
    const SecretText tokenId = crypto::randomToken(tokenBytes);
    SecretText refreshToken = crypto::randomToken(tokenBytes);
    const jwt::HeaderPtr header = jwt::makeHeader("JWT", "ES256", nullptr);
    std::optional<jwt::ScopesPtr> scopes = copyScopes(claims);
    if (!tokenId || !refreshToken || !header || !scopes)
    {
        return nullptr;
    }
    const std::string expiry =
        decimal(*now + lifetimeSeconds(settings == nullptr ? nullptr : settings->expires_in));
    const jwt::PayloadPtr payload = jwt::makePayload(
        {.sub = orDefault(claims == nullptr ? nullptr : claims->subject, defaultSubject),
         .jti = tokenId.get(),
         .iss = orDefault(claims == nullptr ? nullptr : claims->issuer, defaultIssuer),
         .iat = nullptr,
         .nbf = nullptr,
         .exp = expiry.c_str()},
        *now);
    if (!payload)
    {
        return nullptr;
    }
    jwt::giveScopes(*payload, std::move(*scopes));
    SecretText token = secretText(jwt::makeToken(*header, *payload, der, derLength));
    if (!token)
    {
        return nullptr;
    }
    return respond(state, std::move(token), std::move(refreshToken), settings, *now);
}

} // namespace

extern "C" char* client_authorize(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> char* {
        // Nothing but its shape is checked: who the client is, the caller knows.
        const Request request = readRequest(text);
        if (!request)
        {
            return nullptr;
        }
        const Response response = issue(request->state, nullptr, 0, nullptr, nullptr);
        return response ? writtenResponse(*response).release() : nullptr;
    });
}

extern "C" AuthorizeResponse* authorize_client(const char* state, const unsigned char* der,
                                               unsigned int derLength,
                                               AuthorizeResponse* response_template,
                                               AuthorizeClaims* claims)
{
    // Where there is no key, its length says nothing.
    if (der != nullptr && derLength > INT_MAX)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "derLength");
    }
    return crypto::guardedCrypto([=] {
        return issue(state, der, static_cast<int>(derLength), response_template, claims).release();
    });
}

extern "C" AuthorizeResponse* configure_auth_response(const char* expires_in,
                                                      const char* token_type)
{
    return guarded([=] {
        return createResponse("", "", "", orDefault(expires_in, defaultExpiresIn),
                              orDefault(token_type, defaultTokenType))
            .release();
    });
}
