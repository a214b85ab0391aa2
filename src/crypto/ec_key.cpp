// SPDX-License-Identifier: Apache-2.0
#include "crypto/ec_key.hpp"

#include <openssl/obj_mac.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <initializer_list>

namespace bmcoauth::internal::crypto
{

namespace
{

/** Whether the private scalar of @p key is one that a key may have: from 1 to the order less 1. */
bool hasUsableScalar(const EC_KEY& key) noexcept
{
    const BIGNUM* scalar = EC_KEY_get0_private_key(&key);
    const BIGNUM* order = EC_GROUP_get0_order(EC_KEY_get0_group(&key));
    return scalar != nullptr && order != nullptr && !BN_is_zero(scalar) &&
           !BN_is_negative(scalar) && BN_cmp(scalar, order) < 0;
}

constexpr std::array<unsigned char, 26> p256Prefix{
    0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02, 0x01,
    0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00};
constexpr std::array<unsigned char, 23> p384Prefix{0x30, 0x76, 0x30, 0x10, 0x06, 0x07, 0x2a, 0x86,
                                                   0x48, 0xce, 0x3d, 0x02, 0x01, 0x06, 0x05, 0x2b,
                                                   0x81, 0x04, 0x00, 0x22, 0x03, 0x62, 0x00};
constexpr std::array<unsigned char, 25> p521Prefix{
    0x30, 0x81, 0x9b, 0x30, 0x10, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x02,
    0x01, 0x06, 0x05, 0x2b, 0x81, 0x04, 0x00, 0x23, 0x03, 0x81, 0x86, 0x00};

/** In the order of Curve. */
constexpr std::array<CurveFacts, 3> curves{{
    {NID_X9_62_prime256v1, 32, p256Prefix},
    {NID_secp384r1, 48, p384Prefix},
    {NID_secp521r1, 66, p521Prefix},
}};

/** The length of an uncompressed point. */
constexpr std::size_t pointSize(const CurveFacts& curve)
{
    return 1 + 2 * curve.coordinateSize;
}

/** The beginning of an ECPrivateKey structure behind its length: the version, and what announces a
 *  scalar of 32 bytes. */
constexpr std::array<unsigned char, 5> scalarMark{0x02, 0x01, 0x01, 0x04, 0x20};
constexpr std::size_t scalarBytes = 32;
/** The two optional parts behind the scalar: the name of P-256, and what announces the
 *  uncompressed point. */
constexpr std::array<unsigned char, 12> curveName{0xa0, 0x0a, 0x06, 0x08, 0x2a, 0x86,
                                                  0x48, 0xce, 0x3d, 0x03, 0x01, 0x07};
constexpr std::array<unsigned char, 5> pointMark{0xa1, 0x44, 0x03, 0x42, 0x00};
constexpr std::size_t pointBytes = pointSize(curves[0]);

constexpr unsigned char sequence = 0x30;

/** The beginning of a PKCS #8 structure (RFC 5958) of a key on P-256. The ECPrivateKey structure
 *  follows; it does not name the curve. */
constexpr std::array<unsigned char, 29> pkcs8Prefix{
    sequence, 0x81, 0x87, 0x02, 0x01, 0x00, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48, 0xce, 0x3d,
    0x02,     0x01, 0x06, 0x08, 0x2a, 0x86, 0x48, 0xce, 0x3d, 0x03, 0x01, 0x07, 0x04, 0x6d};

/** Passes over @p expected; false when something else is next. */
bool take(std::span<const unsigned char>& bytes, std::span<const unsigned char> expected) noexcept
{
    if (bytes.size() < expected.size() ||
        !std::ranges::equal(bytes.first(expected.size()), expected))
    {
        return false;
    }
    bytes = bytes.subspan(expected.size());
    return true;
}

EcKeyPtr emptyKey(Curve curve) noexcept
{
    const EC_GROUP* const group = groupOf(curve);
    EcKeyPtr key{group != nullptr ? EC_KEY_new() : nullptr};
    return key && EC_KEY_set_group(key.get(), group) == 1 ? std::move(key) : nullptr;
}

/** Gives @p key the point that belongs to its scalar, as OpenSSL's decoder does. */
bool computePoint(EC_KEY& key) noexcept
{
    const EC_GROUP* const group = EC_KEY_get0_group(&key);
    const EcPointPtr point{EC_POINT_new(group)};
    EC_KEY_set_enc_flags(&key, EC_PKEY_NO_PUBKEY);
    return point &&
           EC_POINT_mul(group, point.get(), EC_KEY_get0_private_key(&key), nullptr, nullptr,
                        nullptr) == 1 &&
           EC_KEY_set_public_key(&key, point.get()) == 1;
}

/** Fast path: the key of a structure in the usual encoding; null for any other encoding, and if
 *  OpenSSL's decoder must decide. Unlike that decoder, it does not make the curve again and
 *  leaves no copies of the scalar. It takes less than a fifth of the time of d2i_ECPrivateKey
 *  (3.4 and 18.8 us on x86-64), and every token that is issued or checked loads a key. */
EcKeyPtr usualPrivateKey(std::span<const unsigned char> der) noexcept
{
    constexpr std::size_t head = 2;
    constexpr unsigned char longest = 0x7f;
    if (der.size() < head || der[0] != sequence || der[1] > longest || der.size() - head < der[1])
    {
        return nullptr;
    }
    std::span<const unsigned char> rest = der.subspan(head, der[1]);
    if (!take(rest, scalarMark) || rest.size() < scalarBytes)
    {
        return nullptr;
    }
    const auto scalar = rest.first(scalarBytes);
    rest = rest.subspan(scalarBytes);
    static_cast<void>(take(rest, curveName));
    const bool hasPoint = take(rest, pointMark);
    if (hasPoint ? rest.size() != pointBytes || rest.front() != uncompressedPoint : !rest.empty())
    {
        return nullptr;
    }
    EcKeyPtr key = hasPoint ? publicKeyAt({Curve::p256, rest}) : emptyKey(Curve::p256);
    return key && EC_KEY_oct2priv(key.get(), scalar.data(), scalar.size()) == 1 &&
                   (hasPoint || computePoint(*key))
               ? std::move(key)
               : nullptr;
}

/** The key of any structure that OpenSSL decodes. */
EcKeyPtr decodeAnyPrivateKey(const unsigned char* der, int derLength) noexcept
{
    const unsigned char* position = der;
    EcKeyPtr key{d2i_ECPrivateKey(nullptr, &position, derLength)};
    if (!key)
    {
        // A structure that names no curve is a P-256 key. The curve is given only now, since
        // making one is most of the work, and a structure that names its own has it made anew.
        key.reset(EC_KEY_new_by_curve_name(NID_X9_62_prime256v1));
        EC_KEY* target = key.get();
        position = der;
        // Fills the key that it is given, and leaves it to its owner when it fails.
        if (!key || d2i_ECPrivateKey(&target, &position, derLength) == nullptr)
        {
            return refuse(BMCOAUTH_RULE_KEY_ENCODING);
        }
    }
    return key;
}

} // namespace

const CurveFacts& factsOf(Curve curve) noexcept
{
    return curves[static_cast<std::size_t>(curve)];
}

const EC_GROUP* groupOf(Curve curve) noexcept
{
    // Not static objects' constructors: one that failed would never be tried again, and a destructor
    // would take the group from threads that outlive main.
    static std::array<std::atomic<const EC_GROUP*>, curves.size()> shared{};
    std::atomic<const EC_GROUP*>& kept = shared[static_cast<std::size_t>(curve)];
    const EC_GROUP* group = kept.load(std::memory_order_acquire);
    if (group == nullptr)
    {
        EcGroupPtr made{EC_GROUP_new_by_curve_name(factsOf(curve).number)};
        if (made && kept.compare_exchange_strong(group, made.get(), std::memory_order_acq_rel))
        {
            group = made.release();
        }
    }
    return group;
}

EcKeyPtr generateKey() noexcept
{
    EcKeyPtr key{EC_KEY_new_by_curve_name(NID_X9_62_prime256v1)};
    if (!key || EC_KEY_generate_key(key.get()) != 1)
    {
        return refuse(BMCOAUTH_RULE_RANDOM_DEVICE);
    }
    return key;
}

EcKeyPtr decodePrivateKey(const unsigned char* der, int derLength) noexcept
{
    if (der == nullptr)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_NULL).about("der");
    }
    if (derLength <= 0)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_LENGTH).about("derLength");
    }
    EcKeyPtr key = usualPrivateKey({der, static_cast<std::size_t>(derLength)});
    if (!key)
    {
        key = decodeAnyPrivateKey(der, derLength);
    }
    if (!key)
    {
        return nullptr;
    }
    if (!isP256(*key))
    {
        return refuse(BMCOAUTH_RULE_KEY_CURVE).wanted("P-256");
    }
    if (!hasUsableScalar(*key))
    {
        return refuse(BMCOAUTH_RULE_KEY_RANGE);
    }
    return key;
}

EcKeyPtr decodePkcs8(std::span<const unsigned char> der) noexcept
{
    EcKeyPtr key = take(der, pkcs8Prefix) ? usualPrivateKey(der) : nullptr;
    return key && hasUsableScalar(*key) ? std::move(key) : nullptr;
}

namespace
{

using Parts = std::initializer_list<std::span<const unsigned char>>;

unsigned char* write(Parts parts, unsigned char* out) noexcept
{
    for (const std::span<const unsigned char> part : parts)
    {
        out = std::ranges::copy(part, out).out;
    }
    return out;
}

/** Writes @p before, the scalar of @p key, @p between and its point to @p out; false on failure. */
bool encode(const EC_KEY& key, Parts before, Parts between, unsigned char* out) noexcept
{
    out = write(before, out);
    if (EC_KEY_priv2oct(&key, out, scalarBytes) != scalarBytes)
    {
        return false;
    }
    out = write(between, out + scalarBytes);
    return EC_POINT_point2oct(EC_KEY_get0_group(&key), EC_KEY_get0_public_key(&key),
                              POINT_CONVERSION_UNCOMPRESSED, out, pointBytes,
                              nullptr) == pointBytes;
}

} // namespace

bool encodePrivateKey(const EC_KEY& key, std::span<unsigned char, privateKeyBytes> out) noexcept
{
    constexpr std::array<unsigned char, 2> head{sequence, 0x77};
    return encode(key, {head, scalarMark}, {curveName, pointMark}, out.data());
}

bool encodePkcs8(const EC_KEY& key, std::span<unsigned char, pkcs8Bytes> out) noexcept
{
    constexpr std::array<unsigned char, 2> head{sequence, 0x6b};
    return encode(key, {pkcs8Prefix, head, scalarMark}, {pointMark}, out.data());
}

std::optional<UsualPoint> usualPoint(std::span<const unsigned char> info) noexcept
{
    for (const Curve curve : {Curve::p256, Curve::p384, Curve::p521})
    {
        const CurveFacts& facts = factsOf(curve);
        const std::size_t head = facts.prefix.size();
        if (info.size() == head + pointSize(facts) &&
            std::ranges::equal(info.first(head), facts.prefix) && info[head] == uncompressedPoint)
        {
            return UsualPoint{curve, info.subspan(head)};
        }
    }
    return std::nullopt;
}

EcKeyPtr publicKeyAt(const UsualPoint& point) noexcept
{
    EcKeyPtr key = emptyKey(point.curve);
    // Refuses a point that is off the curve.
    if (!key || EC_KEY_oct2key(key.get(), point.bytes.data(), point.bytes.size(), nullptr) != 1)
    {
        return refuse(BMCOAUTH_RULE_KEY_POINT);
    }
    return key;
}

bool isP256(const EC_KEY& key) noexcept
{
    const EC_GROUP* group = EC_KEY_get0_group(&key);
    return group != nullptr && EC_GROUP_get_curve_name(group) == NID_X9_62_prime256v1;
}

} // namespace bmcoauth::internal::crypto
