// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"

#include <openssl/evp.h>

#include <string>
#include <string_view>

/** Tokens as another party issues them, of every algorithm, made by OpenSSL alone. */
namespace issuer
{

/** The two integers of a DER signature side by side, of `half` bytes each (RFC 7518, section 3.4).
 */
[[nodiscard]] std::string sideBySide(std::string_view der, std::size_t half);

/** What an RSA signature is made with; a salt as long as the digest, unless told otherwise. */
struct Padding
{
    bool pss = false;
    int saltLength = -1;
    /** The digest of the mask of PSS; null for that of the signature. */
    const char* maskDigest = nullptr;
};

/** A key pair. */
class Key
{
public:
    [[nodiscard]] static Key rsa(unsigned int bits);
    /** A pair of 2048 bits that is written down: under an emulator, making one takes seconds. */
    [[nodiscard]] static Key writtenDown();
    /** `curve` is a name of OpenSSL's or of NIST's. */
    [[nodiscard]] static Key ec(const std::string& curve);

    /** The public key as SubjectPublicKeyInfo ("PUBLIC KEY"). */
    [[nodiscard]] std::string pem() const;
    /** The public key of an EC pair with its curve spelt out instead of named. */
    [[nodiscard]] std::string explicitPem() const;
    /** The public key of an RSA pair as PKCS #1 has it ("RSA PUBLIC KEY"). */
    [[nodiscard]] std::string pkcs1Pem() const;
    /** The private key as PKCS #8 has it ("PRIVATE KEY"). */
    [[nodiscard]] std::string privatePem() const;

    /** Signs with the digest of this name; an ECDSA signature is DER. */
    [[nodiscard]] std::string sign(std::string_view text, const char* digest,
                                   Padding padding = {}) const;

private:
    using Pkey = std::unique_ptr<EVP_PKEY, support::Releaser<EVP_PKEY_free>>;

    explicit Key(EVP_PKEY* made);

    Pkey pair;
};

/** Key pairs that several tests share; making an RSA pair takes a while. */
[[nodiscard]] const Key& rsaKey();
[[nodiscard]] const Key& otherRsaKey();
[[nodiscard]] const Key& p256Key();
[[nodiscard]] const Key& otherP256Key();
[[nodiscard]] const Key& p384Key();
[[nodiscard]] const Key& p521Key();

/** The first two parts of a token, which its signature covers. */
[[nodiscard]] std::string signingInput(std::string_view header, std::string_view payload);

/** A whole token. */
[[nodiscard]] std::string token(std::string_view signingInput, std::string_view signature);

} // namespace issuer
