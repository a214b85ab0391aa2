// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fixtures.hpp"

#include <json/value.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>

/** The floor of each operation: the work that cannot be left out, done with libcrypto, liboath and
 *  jsoncpp alone and as cheaply as their interfaces allow. Each makes its keys anew in every call,
 *  since it is handed bytes, as the library is; and each throws when it fails.
 *
 *  What a floor leaves out is what the library must do besides: check everything that a stranger
 *  may have sent, build the records it hands out, and keep the caller's error queue. */
namespace bench::floors
{

struct Envelope
{
    std::string body;
    std::string mac;
};

/** Load the key, SHA-256, sign, verify what was signed, and Base64 of header, payload and
 *  signature; the two JSON texts are at hand. */
[[nodiscard]] std::string issue(std::string_view header, std::string_view payload,
                                std::string_view der);

/** The same, with the clock read once, two random tokens, a payload made of them and the texts of
 *  the response. */
void authorize(std::string_view header, const Claims& claims, std::string_view der);

/** How much of a token is read. */
enum class Reading
{
    none,  /**< the signature alone */
    claims /**< header and payload are decoded and parsed by a reader made once */
};

/** Load the private key, which carries the public one, SHA-256 and verify. */
void validate(std::string_view token, std::string_view der, Reading reading);

/** Load the public key from PEM, digest and verify; ECDSA signatures are two integers. */
void validateEc(std::string_view token, std::string_view pem, const EVP_MD* digest,
                Reading reading);
void validateRsa(std::string_view token, std::string_view pem, Reading reading);
void validatePss(std::string_view token, std::string_view pem, Reading reading);

/** The same for many keys, each tried in turn until one verifies; the token is read and digested
 *  once. */
void validateEcWithOneOf(std::string_view token, std::span<const std::string> pems);

/** Both keys, ECDH, SHA-256, AES-128-CBC, HMAC, Base64, and the random token that is sealed in. The
 *  peer's certificate is Base64 of DER. Every field of it is decoded except the key, whose point is
 *  taken from the bytes: libcrypto would decode it three times. */
[[nodiscard]] Envelope seal(std::string_view text, std::string_view certificate,
                            std::string_view der, std::string_view iv);
[[nodiscard]] std::string open(const Envelope& envelope, std::string_view certificate,
                               std::string_view der, std::string_view iv);

/** The certificate, which tells the name, and a signature, verified once, over a text. */
[[nodiscard]] std::string proof(std::string_view text, std::string_view certificate,
                                std::string_view der);
void checkProof(std::string_view text, std::string_view proof, std::string_view certificate);

/** Decode two coordinates, see that the point is on P-256, and write it as PEM. */
[[nodiscard]] std::string ecPublicKey(std::string_view x, std::string_view y);

/** The PEM text of the public key of 2048 bits with these numbers, Base64url texts. */
[[nodiscard]] std::string rsaPublicKey(std::string_view n, std::string_view e);

/** The secrets read by a reader made once, and liboath's password. */
[[nodiscard]] std::string oneTimePassword(std::string_view secrets, const char* type,
                                          std::uint64_t selector, std::uint64_t movingFactor);

/** A block of the C heap and libcrypto's own loop. */
void base64Decode(std::string_view text);
void base64Encode(std::string_view bytes);

/** One walk over the tree, which appends to one string. */
[[nodiscard]] std::string json(const Json::Value& tree);

} // namespace bench::floors
