// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"

#include "support/certificates.hpp"
#include "support/vectors.hpp"

#include <bmcoauth/jwk.h>

#include <algorithm>
#include <stdexcept>

namespace forge
{

namespace
{

void require(bool succeeded)
{
    if (!succeeded)
    {
        throw std::runtime_error("a forgery could not be made");
    }
}

} // namespace

Number::Number(unsigned long value) : number{BN_new(), BN_free}
{
    require(number != nullptr && BN_set_word(number.get(), value) == 1);
}

Number Number::fromBytes(std::string_view bytes)
{
    Number result{0};
    require(BN_bin2bn(reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<int>(bytes.size()), result.number.get()) != nullptr);
    return result;
}

Number Number::powerOfTwo(unsigned int exponent)
{
    Number result{0};
    require(BN_set_bit(result.number.get(), static_cast<int>(exponent)) == 1);
    return result;
}

std::string Number::bytes(std::size_t size) const
{
    std::string text(std::max(size, static_cast<std::size_t>(BN_num_bytes(number.get()))), '\0');
    require(BN_bn2binpad(number.get(), reinterpret_cast<unsigned char*>(text.data()),
                         static_cast<int>(text.size())) >= 0);
    return text;
}

bool Number::odd() const
{
    return BN_is_odd(number.get()) == 1;
}

unsigned int Number::bits() const
{
    return static_cast<unsigned int>(BN_num_bits(number.get()));
}

Number operator+(const Number& left, const Number& right)
{
    Number result{0};
    require(BN_add(result.number.get(), left.number.get(), right.number.get()) == 1);
    return result;
}

Number operator-(const Number& left, const Number& right)
{
    Number result{0};
    require(BN_sub(result.number.get(), left.number.get(), right.number.get()) == 1 &&
            BN_is_negative(result.number.get()) == 0);
    return result;
}

Number operator*(const Number& left, const Number& right)
{
    const std::unique_ptr<BN_CTX, support::Releaser<BN_CTX_free>> context{BN_CTX_new()};
    Number result{0};
    require(BN_mul(result.number.get(), left.number.get(), right.number.get(), context.get()) == 1);
    return result;
}

Number p256Prime()
{
    return Number::fromBytes(
        support::fromHex("ffffffff00000001000000000000000000000000ffffffffffffffffffffffff"));
}

Number p256Order()
{
    return Number::fromBytes(
        support::fromHex("ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551"));
}

std::string element(int tag, const std::string& contents)
{
    std::string head{static_cast<char>(tag)};
    if (contents.size() < 128)
    {
        return head + static_cast<char>(contents.size()) + contents;
    }
    const std::string length = Number{contents.size()}.bytes();
    return head + static_cast<char>(0x80U | length.size()) + length + contents;
}

std::string integer(const Number& number)
{
    const std::string bytes = number.bytes();
    const bool looksNegative = static_cast<unsigned char>(bytes[0]) >= 0x80;
    return element(0x02, (looksNegative ? std::string(1, '\0') : std::string{}) + bytes);
}

std::string negative(const Number& number)
{
    const std::size_t size = number.bytes().size();
    const std::string bytes =
        (Number::powerOfTwo(static_cast<unsigned int>(8 * size)) - number).bytes(size);
    const bool looksPositive = static_cast<unsigned char>(bytes[0]) < 0x80;
    return element(0x02, (looksPositive ? std::string{"\xff"} : std::string{}) + bytes);
}

std::string sequence(const std::string& contents)
{
    return element(0x30, contents);
}

std::string rsaPem(const Number& modulus, const Number& exponent)
{
    // rsaEncryption with its NULL.
    const std::string algorithm = sequence(support::fromHex("06092a864886f70d0101010500"));
    const std::string key = sequence(integer(modulus) + integer(exponent));
    return support::pemOf("PUBLIC KEY", sequence(algorithm + element(0x03, '\0' + key)));
}

std::string completed(const std::string& jwk)
{
    char* text = support::heapText(jwk).release();
    appendPublicKey(&text);
    const support::HeapText owned{text};
    return text;
}

std::string rsaJwk(const std::string& alg, const Number& modulus, const Number& exponent)
{
    return completed(R"({"kty":"RSA","alg":")" + alg + R"(","n":")" +
                     support::base64Url(modulus.bytes()) + R"(","e":")" +
                     support::base64Url(exponent.bytes()) + "\"}");
}

Point pointOf(const tokens::PrivateKey& key)
{
    const unsigned char* position = key.data();
    const support::PkeyPtr loaded{
        d2i_PrivateKey(EVP_PKEY_EC, nullptr, &position, static_cast<long>(key.der.size()))};
    require(loaded != nullptr);
    const std::string point = support::publicPoint(*loaded);
    require(point.size() == 65);
    return {point.substr(1, 32), point.substr(33)};
}

std::string p256Info(const std::string& encodedPoint)
{
    // id-ecPublicKey, prime256v1.
    const std::string algorithm =
        sequence(support::fromHex("06072a8648ce3d020106082a8648ce3d030107"));
    return sequence(algorithm + element(0x03, '\0' + encodedPoint));
}

std::string publicPem(const tokens::PrivateKey& key)
{
    const auto [x, y] = pointOf(key);
    return support::pemOf("PUBLIC KEY", p256Info('\x04' + x + y));
}

std::string ecJwk(const Point& point, const std::string& members)
{
    return completed("{" + members + R"("kty":"EC","crv":"P-256","x":")" +
                     support::base64Url(point.x) + R"(","y":")" + support::base64Url(point.y) +
                     "\"}");
}

} // namespace forge
