// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/openssl.hpp"

#include <json/value.h>

#include <string>

namespace bmcoauth::tool
{

/** An EC or RSA key, whatever form it was read from. */
struct AnyKey
{
    EvpKeyPtr key;
    bool isPrivate = false;
};

/** Reads the key file @p path: PEM or DER (PKCS #8, SEC 1 and PKCS #1 private keys,
 *  SubjectPublicKeyInfo and PKCS #1 public keys, the public key of a certificate), or a JSON Web
 *  Key. Stops the command when it holds none of them, or one whose parts do not fit together. */
[[nodiscard]] AnyKey readAnyKey(const std::string& path);

/** readAnyKey of an EC key that may be on any curve. The parts need not fit together. */
[[nodiscard]] AnyKey readKeyOfAnyCurve(const std::string& path);

/** The name of the EC key's curve: "P-256", or OpenSSL's name if no JSON Web Key has one. */
[[nodiscard]] std::string curveNameOf(const AnyKey& key);

/** Whether @p key has a form as JSON Web Key, and so a thumbprint. */
[[nodiscard]] bool hasJwk(const AnyKey& key);

/** The PEM text of @p key: PKCS #8, or SubjectPublicKeyInfo. */
[[nodiscard]] std::string pemOf(const AnyKey& key);

/** The DER bytes of @p key: ECPrivateKey (as the library's functions take it) or RSAPrivateKey, or
 *  SubjectPublicKeyInfo. */
[[nodiscard]] std::string derOf(const AnyKey& key);

/** The JSON Web Key (RFC 7518, section 6) of @p key. */
[[nodiscard]] Json::Value jwkOf(const AnyKey& key);

/** The thumbprint of @p key by SHA-256 (RFC 7638), Base64url. */
[[nodiscard]] std::string thumbprintOf(const AnyKey& key);

} // namespace bmcoauth::tool
