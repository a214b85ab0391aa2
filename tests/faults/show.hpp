// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "faults.hpp"
#include "support/certificates.hpp"
#include "support/lists.hpp"
#include "support/records.hpp"

#include <bmcoauth.h>

#include <string>

/** What the library hands out as one text, whole, so that two results can be compared; and the
 *  shorthands of the rows that end in such a text. */
namespace faults
{

using support::AuthorizeRequestPtr;
using support::AuthorizeResponsePtr;
using support::CertificateList;
using support::HeaderPtr;
using support::HeapBytes;
using support::HeapText;
using support::KeyList;
using support::OidcResponsePtr;
using support::PayloadPtr;
using support::PolicyPtr;
using support::RegisterRequestPtr;
using support::RegisterResponsePtr;
using support::Releaser;
using support::StringArray;
using TokenPtr = support::TokenPayloadPtr;

inline void releaseJwk(jwk* record) noexcept
{
    free_jwk(&record);
}

inline void releaseScopes(JWTscopes* scopes) noexcept
{
    free_jwt_scopes(scopes, 1);
    std::free(scopes);
}

using KeyPtr = std::unique_ptr<jwk, Releaser<releaseJwk>>;

[[nodiscard]] std::string show(const char* text);
[[nodiscard]] std::string show(const char* const* array);
[[nodiscard]] std::string show(const HandshakePayload* list);
[[nodiscard]] std::string show(const HandshakePayload* const* list);
[[nodiscard]] std::string show(const jwk* record);
[[nodiscard]] std::string show(const jwk* const* list);
[[nodiscard]] std::string show(const KestPolicyAuth* policy);
[[nodiscard]] std::string show(const JWTHeader* header);
[[nodiscard]] std::string show(const JWTPayload* payload);
[[nodiscard]] std::string show(const AuthorizeRequest* request);
/** The access token, which carries another signature each time, without its last part. */
[[nodiscard]] std::string show(const AuthorizeResponse* response);
[[nodiscard]] std::string show(const RegisterRequest* request);
[[nodiscard]] std::string show(const RegisterResponse* response);
[[nodiscard]] std::string show(const OidcRegisterResponse* response);
[[nodiscard]] std::string show(EC_KEY* key);
[[nodiscard]] std::string show(X509* certificate);

/** The bytes as hexadecimal text. */
[[nodiscard]] std::string hexOf(const void* bytes, std::size_t length);

/** What an out parameter holds before the call; no function makes it. */
template <typename T>
[[nodiscard]] T* untouched()
{
    static T object{};
    return &object;
}

/** The outcome of a function that gives a new object, or null. */
template <typename Owner>
[[nodiscard]] Outcome made(typename Owner::pointer object)
{
    const Owner owner{object};
    return owner ? got(show(owner.get())) : failed();
}

/** The outcome of a function that stores a new object in an out parameter, which was untouched<>()
 *  before. */
template <typename Owner>
[[nodiscard]] Outcome stored(bool succeeded, typename Owner::pointer object)
{
    using T = typename Owner::element_type;
    if (!succeeded)
    {
        return failedLeaving(object == untouched<T>());
    }
    return object == untouched<T>() ? wrong("succeeded, and stored nothing") : made<Owner>(object);
}

/** The outcome of a function that says yes where it succeeds, and stores nothing. */
[[nodiscard]] inline Outcome said(int answer, int yes = 1, int no = 0)
{
    return answer == yes  ? got("yes")
           : answer == no ? failed()
                          : wrong("answered " + std::to_string(answer));
}

/** The outcome of a function that cannot fail. */
template <typename Value>
[[nodiscard]] Outcome gave(const Value& value)
{
    if constexpr (std::is_convertible_v<Value, std::string>)
    {
        return got(value);
    }
    else
    {
        return got(std::to_string(value));
    }
}

} // namespace faults
