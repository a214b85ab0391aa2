// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/certificates.hpp"
#include "support/hostile.hpp"
#include "support/owners.hpp"

#include <bmcoauth.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/** Tokens made and checked by OpenSSL alone, past the library. */
namespace tokens
{

using Header = std::unique_ptr<JWTHeader, support::Releaser<free_jwt_header>>;
using Payload = std::unique_ptr<JWTPayload, support::Releaser<free_jwt_payload>>;

/** A private key as the token service holds it: ECPrivateKey, DER. */
struct PrivateKey
{
    std::vector<unsigned char> der;

    [[nodiscard]] const unsigned char* data() const
    {
        return der.data();
    }
    [[nodiscard]] int length() const
    {
        return static_cast<int>(der.size());
    }
};

/** Two P-256 keys. */
[[nodiscard]] const PrivateKey& serviceKey();
[[nodiscard]] const PrivateKey& otherKey();

using support::base64Url;
/** The bytes of unpadded Base64url; throws for any other text. */
[[nodiscard]] std::string fromBase64Url(std::string_view text);

/** An ECDSA signature with SHA-256, DER. */
[[nodiscard]] std::string sign(std::string_view text, const PrivateKey& key);
[[nodiscard]] bool verifies(std::string_view text, std::string_view signature,
                            const PrivateKey& key);

/** The members of a JSON object, by name, each as its JSON text; and the object's text. */
using Members = std::map<std::string, std::string>;
[[nodiscard]] std::string json(const Members& members);

/** A header and the claims of an own token that is valid from 1699999999 until 1700003600; and those
 *  claims with one of them replaced or added, as JSON. */
constexpr std::string_view plainHeader = R"({"alg":"ES256","typ":"JWT"})";
[[nodiscard]] Members plainClaims();
[[nodiscard]] std::string with(const std::string& name, const std::string& value);

/** The compact token of two JSON texts, signed with @p key. */
[[nodiscard]] std::string handmade(std::string_view header, std::string_view payload,
                                   const PrivateKey& key = serviceKey());

/** The rule that refuses a part of a token which encodes @p text. */
[[nodiscard]] std::string hostilePartRule(const support::HostileText& text);

/** The parts of @p token between its dots. */
[[nodiscard]] std::vector<std::string> partsOf(std::string_view token);

} // namespace tokens
