// SPDX-License-Identifier: Apache-2.0
#pragma once

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

/** Base64url without padding, and back; the latter throws for what is no Base64url. */
[[nodiscard]] std::string base64Url(std::string_view bytes);
[[nodiscard]] std::string fromBase64Url(std::string_view text);

/** An ECDSA signature with SHA-256, DER. */
[[nodiscard]] std::string sign(std::string_view text, const PrivateKey& key);
[[nodiscard]] bool verifies(std::string_view text, std::string_view signature,
                            const PrivateKey& key);

/** The members of a JSON object, by name, each as its JSON text; and the object's text. */
using Members = std::map<std::string, std::string>;
[[nodiscard]] std::string json(const Members& members);

/** The compact token of two JSON texts, signed with @p key. */
[[nodiscard]] std::string handmade(std::string_view header, std::string_view payload,
                                   const PrivateKey& key = serviceKey());

/** The rule that refuses a part of a token which encodes @p text. */
[[nodiscard]] std::string hostilePartRule(const support::HostileText& text);

/** The parts of @p token between its dots. */
[[nodiscard]] std::vector<std::string> partsOf(std::string_view token);

} // namespace tokens
