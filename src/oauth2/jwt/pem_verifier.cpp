// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/pem_verifier.hpp"

#include "common/text.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "crypto/pem.hpp"

#include <bmcoauth/support.h>

#include <climits>
#include <openssl/pem.h>

#include <array>
#include <optional>

namespace bmcoauth::internal::jwt
{

namespace
{

/** What the last three characters of an algorithm's name stand for. */
struct Strength
{
    const EVP_MD* digest;
    /** Bytes of an ECDSA signature in the form of RFC 7518, section 3.4. */
    std::size_t rawSignatureLength;
};

Strength strengthOf(std::string_view algorithm) noexcept
{
    if (algorithm.ends_with("384"))
    {
        return {EVP_sha384(), 96};
    }
    if (algorithm.ends_with("512"))
    {
        return {EVP_sha512(), 132};
    }
    return {EVP_sha256(), 64};
}

struct Digest
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
    unsigned int length = 0;
};

bool digestOf(std::string_view text, const EVP_MD& kind, Digest& digest) noexcept
{
    return EVP_Digest(text.data(), text.size(), digest.bytes.data(), &digest.length, &kind,
                      nullptr) == 1 ||
           refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
}

/** A block that the process does not survive the lack of; `line` is the number of its tag, see
 *  common/fail_fast.cpp. */
HeapBlock<unsigned char> essentialBlock(std::size_t size, unsigned int line)
{
    return HeapBlock<unsigned char>{
        static_cast<unsigned char*>(o2_ff_malloc(size, "da_verifySignature_sk", line))};
}

crypto::RsaPtr readRsaKey(std::string_view pem) noexcept
{
    if (const crypto::DerBytes info = crypto::readPem(pem, PEM_STRING_PUBLIC))
    {
        const unsigned char* position = info.data.get();
        crypto::RsaPtr key{d2i_RSA_PUBKEY(nullptr, &position, info.length)};
        if (key)
        {
            return key;
        }
    }
    const crypto::DerBytes numbers = crypto::readPem(pem, PEM_STRING_RSA_PUBLIC);
    const unsigned char* position = numbers.data.get();
    crypto::RsaPtr key{numbers ? d2i_RSAPublicKey(nullptr, &position, numbers.length) : nullptr};
    if (!key)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED).wanted("an RSA key");
    }
    return key;
}

/** Whether the exponent of @p key is one of RFC 8017, section 3.1, as far as a look at it tells:
 *  under the exponent 1 every padded digest is its own signature, and libcrypto takes it. */
bool hasSoundExponent(const RSA& key) noexcept
{
    const BIGNUM* const exponent = RSA_get0_e(&key);
    return (exponent != nullptr && BN_is_odd(exponent) && !BN_is_one(exponent)) ||
           refuse(BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED).wanted("an odd exponent above 1");
}

/** What PEM_read_bio_EC_PUBKEY reads; the usual keys without its making their curve anew. */
crypto::EcKeyPtr readEcKey(std::string_view pem) noexcept
{
    const crypto::DerBytes info = crypto::readPem(pem, PEM_STRING_PUBLIC);
    if (!info)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED).wanted("an EC key");
    }
    if (const std::optional<crypto::UsualPoint> point = crypto::usualPoint(info.bytes()))
    {
        return crypto::publicKeyAt(*point);
    }
    const unsigned char* position = info.data.get();
    crypto::EcKeyPtr key{d2i_EC_PUBKEY(nullptr, &position, info.length)};
    if (!key)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED).wanted("an EC key");
    }
    return key;
}

/** Whether libcrypto, which gave @p result, verified a signature. A negative result is a malformed
 *  one, or memory. */
bool isVerified(int result) noexcept
{
    if (result < 0)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_SIGNATURE);
    }
    return result == 1 || refuse(BMCOAUTH_RULE_TOKEN_SIGNATURE);
}

/** RSASSA-PSS (RFC 8017, section 8.1.2) with a salt of any length. */
bool verifyPss(const Digest& digest, const EVP_MD& kind, std::string_view signature, RSA& key)
{
    const int size = RSA_size(&key);
    if (size <= 0)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED);
    }
    const HeapBlock<unsigned char> message = essentialBlock(static_cast<std::size_t>(size), 1590);
    // The check below reads a block of the key's size, so that nothing less may come out here.
    return (RSA_public_decrypt(static_cast<int>(signature.size()), bytesOf(signature).data(),
                               message.get(), &key, RSA_NO_PADDING) == size &&
            RSA_verify_PKCS1_PSS(&key, digest.bytes.data(), &kind, message.get(),
                                 RSA_PSS_SALTLEN_AUTO) == 1) ||
           refuse(BMCOAUTH_RULE_TOKEN_SIGNATURE);
}

bool verifyRsa(std::string_view signingInput, std::string_view signature, std::string_view pem,
               const EVP_MD& kind, bool pss)
{
    const crypto::RsaPtr key = readRsaKey(pem);
    Digest digest;
    if (!key || !hasSoundExponent(*key) || !digestOf(signingInput, kind, digest))
    {
        return false;
    }
    if (pss)
    {
        return verifyPss(digest, kind, signature, *key);
    }
    return RSA_verify(EVP_MD_get_type(&kind), digest.bytes.data(), digest.length,
                      bytesOf(signature).data(), static_cast<unsigned int>(signature.size()),
                      key.get()) == 1 ||
           refuse(BMCOAUTH_RULE_TOKEN_SIGNATURE);
}

/** An ECDSA signature as DER. */
struct DerSignature
{
    HeapBlock<unsigned char> bytes;
    int length = 0;
};

/** Turns the integers r and s side by side, of the same length each, into DER; no bytes when that
 *  fails. */
DerSignature derOf(std::string_view rawSignature)
{
    const int half = static_cast<int>(rawSignature.size() / 2);
    crypto::BignumPtr r{BN_bin2bn(bytesOf(rawSignature).data(), half, nullptr)};
    crypto::BignumPtr s{BN_bin2bn(bytesOf(rawSignature).data() + half, half, nullptr)};
    const crypto::EcdsaSignaturePtr signature{ECDSA_SIG_new()};
    if (!r || !s || !signature || ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: a child's counters are lost
        return {};                              // GCOVR_EXCL_LINE: a child's counters are lost
    }
    // The signature owns its integers now.
    static_cast<void>(r.release());
    static_cast<void>(s.release());
    const int length = i2d_ECDSA_SIG(signature.get(), nullptr);
    if (length <= 0)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: a child's counters are lost
        return {};                              // GCOVR_EXCL_LINE: a child's counters are lost
    }
    HeapBlock<unsigned char> der = essentialBlock(static_cast<std::size_t>(length), 1544);
    unsigned char* position = der.get();
    if (i2d_ECDSA_SIG(signature.get(), &position) != length)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: a child's counters are lost
        return {};                              // GCOVR_EXCL_LINE: a child's counters are lost
    }
    return {std::move(der), length};
}

bool verifyEc(std::string_view signingInput, std::string_view signature, std::string_view pem,
              const Strength& strength)
{
    const crypto::EcKeyPtr key = readEcKey(pem);
    Digest digest;
    if (!key || !digestOf(signingInput, *strength.digest, digest))
    {
        return false;
    }
    const auto verify = [&](const unsigned char* der, int length) {
        return isVerified(ECDSA_verify(0, digest.bytes.data(), static_cast<int>(digest.length), der,
                                       length, key.get()));
    };
    if (signature.size() != strength.rawSignatureLength)
    {
        return verify(bytesOf(signature).data(), static_cast<int>(signature.size()));
    }
    const DerSignature der = derOf(signature);
    return der.bytes && verify(der.bytes.get(), der.length);
}

} // namespace

bool isForPublicKeys(std::string_view algorithm) noexcept
{
    return (algorithm.size() > 1 &&
            std::string_view{"RrPpEe"}.find(algorithm.front()) != std::string_view::npos) ||
           refuse(BMCOAUTH_RULE_TOKEN_ALGORITHM).about("alg").saw(algorithm);
}

bool verifyWithPem(std::string_view signingInput, std::string_view signature, std::string_view pem,
                   std::string_view algorithm)
{
    // A search through many keys fails many times, and OpenSSL's error queue is short: what a
    // caller has in it must not be pushed out.
    const crypto::ErrorMark mark;
    if (!isForPublicKeys(algorithm))
    {
        return false;
    }
    if (signature.size() > INT_MAX)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_SIGNATURE);
    }
    const Strength strength = strengthOf(algorithm);
    // EVP would copy the key from the form in which it was read into another one, at a third of the
    // cost of an ECDSA verification, and then call what is called here.
    switch (algorithm.front())
    {
        case 'P':
            return verifyRsa(signingInput, signature, pem, *strength.digest, true);
        case 'p':
        case 'R':
        case 'r':
            return verifyRsa(signingInput, signature, pem, *strength.digest, false);
        default:
            return verifyEc(signingInput, signature, pem, strength);
    }
}

} // namespace bmcoauth::internal::jwt
