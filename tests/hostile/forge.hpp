// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"
#include "support/tokens.hpp"

#include <openssl/bn.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

/** Keys and signatures put together by hand, byte for byte, as no decent program writes them. */
namespace forge
{

/** A number that is not negative, of any size. */
class Number
{
public:
    explicit Number(unsigned long value);

    /** From its bytes, the most significant one first. */
    [[nodiscard]] static Number fromBytes(std::string_view bytes);
    [[nodiscard]] static Number powerOfTwo(unsigned int exponent);

    /** The bytes, the most significant one first, filled up to @p size with zeros in front. */
    [[nodiscard]] std::string bytes(std::size_t size = 1) const;
    [[nodiscard]] bool odd() const;
    [[nodiscard]] unsigned int bits() const;

    friend Number operator+(const Number& left, const Number& right);
    /** @p left is the larger one. */
    friend Number operator-(const Number& left, const Number& right);
    friend Number operator*(const Number& left, const Number& right);

private:
    std::shared_ptr<BIGNUM> number;
};

/** The prime of the field of P-256, and the order of its group (FIPS 186-4, D.1.2.3). */
[[nodiscard]] Number p256Prime();
[[nodiscard]] Number p256Order();

/** One element of DER (X.690). */
[[nodiscard]] std::string element(int tag, const std::string& contents);

/** The element INTEGER of a number, and of the same with a minus sign. */
[[nodiscard]] std::string integer(const Number& number);
[[nodiscard]] std::string negative(const Number& number);

/** The element SEQUENCE. */
[[nodiscard]] std::string sequence(const std::string& contents);

/** An RSA public key of any numbers, as SubjectPublicKeyInfo in PEM. */
[[nodiscard]] std::string rsaPem(const Number& modulus, const Number& exponent);

/** A JSON Web Key, completed by the library; as it was where that refuses it. */
[[nodiscard]] std::string completed(const std::string& jwk);

/** An RSA public key as a completed JSON Web Key for signatures of the algorithm @p alg. */
[[nodiscard]] std::string rsaJwk(const std::string& alg, const Number& modulus,
                                 const Number& exponent);

/** The coordinates of the point that belongs to a private key on P-256, of 32 bytes each. */
struct Point
{
    std::string x;
    std::string y;
};
[[nodiscard]] Point pointOf(const tokens::PrivateKey& key);

/** SubjectPublicKeyInfo, DER, of an encoded point on P-256; and the PEM text of a private key's. */
[[nodiscard]] std::string p256Info(const std::string& encodedPoint);
[[nodiscard]] std::string publicPem(const tokens::PrivateKey& key);

/** A completed JSON Web Key of these coordinates, with @p members in front, such as `"kid":"k",`. */
[[nodiscard]] std::string ecJwk(const Point& point, const std::string& members = {});

} // namespace forge
