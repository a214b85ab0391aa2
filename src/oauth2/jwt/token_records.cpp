// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/token_records.hpp"

#include "common/clock.hpp"
#include "common/guard.hpp"

#include <bmcoauth/support.h>

#include <strutil.h>

#include <optional>
#include <string>

namespace bmcoauth::jwt
{

namespace
{

/** Stores a copy of @p text in @p field; false when there is no text or no memory. */
bool copyInto(char*& field, const char* text) noexcept
{
    field = text == nullptr ? nullptr : heapText(text).release();
    return field != nullptr;
}

} // namespace

PayloadPtr makePayload(const PayloadTexts& texts, std::uint64_t now)
{
    PayloadPtr payload{zeroedBlock<JWTPayload>(1).release()};
    if (!payload || !copyInto(payload->sub, texts.sub) || !copyInto(payload->jti, texts.jti) ||
        !copyInto(payload->iss, texts.iss) || !copyInto(payload->exp, texts.exp))
    {
        return nullptr;
    }
    // Only a token that is issued now is looked at, and only for this very second: an earlier
    // expiry is the caller's wish.
    if (texts.iat == nullptr && secondsOf(texts.exp) == now)
    {
        return nullptr;
    }
    const std::string nowText = decimal(now);
    if (!copyInto(payload->iat, texts.iat != nullptr ? texts.iat : nowText.c_str()) ||
        !copyInto(payload->nbf, texts.nbf != nullptr ? texts.nbf : nowText.c_str()))
    {
        return nullptr;
    }
    return payload;
}

void giveScopes(JWTPayload& payload, ScopesPtr scopes) noexcept
{
    payload.scopes_count = scopes.get_deleter().count;
    payload.scopes = scopes.release();
}

} // namespace bmcoauth::jwt

using namespace bmcoauth;

extern "C" JWTHeader* create_jwt_header(const char* typ, const char* alg, const char* kid)
{
    const ErrnoKeeper keeper;
    jwt::HeaderPtr header{zeroedBlock<JWTHeader>(1).release()};
    if (!header || !jwt::copyInto(header->typ, typ) || !jwt::copyInto(header->alg, alg))
    {
        return nullptr;
    }
    header->kid = o2_ff_strdup(kid, "create_jwt_header", 266);
    return header.release();
}

extern "C" void free_jwt_header(JWTHeader* header)
{
    if (header == nullptr)
    {
        return;
    }
    std::free(header->typ);
    std::free(header->alg);
    std::free(header->kid);
    std::free(header);
}

extern "C" JWTPayload* create_jwt_payload(const char* sub, const char* jti, const char* iss,
                                          const char* iat, const char* nbf, const char* exp,
                                          JWTscopes* scopes, int count)
{
    return guarded(nullptr,
                   [&]() -> JWTPayload*
                   {
                       const std::optional<std::uint64_t> now = currentSeconds();
                       jwt::PayloadPtr payload =
                           now ? jwt::makePayload({sub, jti, iss, iat, nbf, exp}, *now) : nullptr;
                       if (payload && scopes != nullptr && count != 0)
                       {
                           payload->scopes = scopes;
                           payload->scopes_count = count;
                       }
                       return payload.release();
                   });
}

extern "C" void free_jwt_scopes(JWTscopes* scopes, int count)
{
    for (int i = 0; scopes != nullptr && i < count; ++i)
    {
        JWTscopes& entry = scopes[i];
        std::free(entry.name);
        entry.name = nullptr;
        for (int j = 0; entry.values != nullptr && j < entry.count; ++j)
        {
            std::free(entry.values[j]);
        }
        std::free(entry.values);
        entry.values = nullptr;
    }
}

extern "C" void free_jwt_payload(JWTPayload* payload)
{
    if (payload == nullptr)
    {
        return;
    }
    for (char* text : {payload->sub, payload->jti, payload->iss, payload->iat, payload->exp,
                       payload->nbf, payload->xidp, payload->act})
    {
        std::free(text);
    }
    freeStrArray(&payload->aud);
    freeStrArray(&payload->ravok_roles);
    freeStrArray(&payload->scope);
    const jwt::ScopesPtr scopes{payload->scopes, {payload->scopes_count}};
    std::free(payload);
}

void print_jwt_scopes(JWTscopes* /*scopes*/, int /*count*/)
{
}
