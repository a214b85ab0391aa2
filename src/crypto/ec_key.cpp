// SPDX-License-Identifier: Apache-2.0
#include "crypto/ec_key.hpp"

#include <openssl/obj_mac.h>

#include <algorithm>
#include <array>
#include <atomic>

namespace bmcoauth::crypto
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

/** How an ECPrivateKey structure that names P-256 and carries its uncompressed point begins; the 32
 *  bytes of the scalar follow, then what announces the curve and the point. */
constexpr std::array<unsigned char, 7> privatePrefix{0x30, 0x77, 0x02, 0x01, 0x01, 0x04, 0x20};
constexpr std::size_t scalarBytes = 32;
constexpr std::array<unsigned char, 17> curveAndPoint{0xa0, 0x0a, 0x06, 0x08, 0x2a, 0x86,
                                                      0x48, 0xce, 0x3d, 0x03, 0x01, 0x07,
                                                      0xa1, 0x44, 0x03, 0x42, 0x00};
constexpr std::size_t pointBytes = pointSize(curves[0]);
constexpr std::size_t usualBytes =
    privatePrefix.size() + scalarBytes + curveAndPoint.size() + pointBytes;

/** The key of a structure in that one usual encoding, without making its curve anew; null for any
 *  other, and where OpenSSL's decoder has the last word. */
EcKeyPtr usualPrivateKey(std::span<const unsigned char> der) noexcept
{
    if (der.size() < usualBytes ||
        !std::ranges::equal(der.first(privatePrefix.size()), privatePrefix))
    {
        return nullptr;
    }
    const auto scalar = der.subspan(privatePrefix.size(), scalarBytes);
    const auto rest = der.first(usualBytes).subspan(privatePrefix.size() + scalarBytes);
    const UsualPoint point{Curve::p256, rest.last(pointBytes)};
    if (!std::ranges::equal(rest.first(curveAndPoint.size()), curveAndPoint) ||
        point.bytes.front() != uncompressedPoint)
    {
        return nullptr;
    }
    EcKeyPtr key = publicKeyAt(point);
    return key && EC_KEY_oct2priv(key.get(), scalar.data(), scalar.size()) == 1 ? std::move(key)
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
            return nullptr;
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
    return key && EC_KEY_generate_key(key.get()) == 1 ? std::move(key) : nullptr;
}

EcKeyPtr decodePrivateKey(const unsigned char* der, int derLength) noexcept
{
    if (der == nullptr || derLength <= 0)
    {
        return nullptr;
    }
    EcKeyPtr key = usualPrivateKey({der, static_cast<std::size_t>(derLength)});
    if (!key)
    {
        key = decodeAnyPrivateKey(der, derLength);
    }
    return key && isP256(*key) && hasUsableScalar(*key) ? std::move(key) : nullptr;
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
    const EC_GROUP* const group = groupOf(point.curve);
    EcKeyPtr key{group != nullptr ? EC_KEY_new() : nullptr};
    // Refuses a point that is off the curve.
    return key && EC_KEY_set_group(key.get(), group) == 1 &&
                   EC_KEY_oct2key(key.get(), point.bytes.data(), point.bytes.size(), nullptr) == 1
               ? std::move(key)
               : nullptr;
}

bool isP256(const EC_KEY& key) noexcept
{
    const EC_GROUP* group = EC_KEY_get0_group(&key);
    return group != nullptr && EC_GROUP_get_curve_name(group) == NID_X9_62_prime256v1;
}

} // namespace bmcoauth::crypto
