// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/guard.hpp"
#include "common/owners.hpp"
#include "common/refusal.hpp"

#include <climits>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <memory>
#include <string_view>

namespace bmcoauth::internal::crypto
{

using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, Releaser<BN_free>>;
using CipherContextPtr = std::unique_ptr<EVP_CIPHER_CTX, Releaser<EVP_CIPHER_CTX_free>>;
using DigestContextPtr = std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>>;
using EcGroupPtr = std::unique_ptr<EC_GROUP, Releaser<EC_GROUP_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, Releaser<EC_KEY_free>>;
using EcPointPtr = std::unique_ptr<EC_POINT, Releaser<EC_POINT_free>>;
using EcdsaSignaturePtr = std::unique_ptr<ECDSA_SIG, Releaser<ECDSA_SIG_free>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using RsaPtr = std::unique_ptr<RSA, Releaser<RSA_free>>;
using X509Ptr = std::unique_ptr<X509, Releaser<X509_free>>;

inline void releaseBytes(void* bytes) noexcept
{
    OPENSSL_free(bytes);
}

/** Owns bytes that OpenSSL allocated. */
using BytesPtr = std::unique_ptr<unsigned char, Releaser<releaseBytes>>;

/** Removes the errors that a call leaves in OpenSSL's error queue: the next TLS call of a service
 *  must not report an error of ours. */
class ErrorMark
{
public:
    ErrorMark() noexcept
    {
        ERR_set_mark();
    }
    ErrorMark(const ErrorMark&) = delete;
    ErrorMark& operator=(const ErrorMark&) = delete;
    ErrorMark(ErrorMark&&) = delete;
    ErrorMark& operator=(ErrorMark&&) = delete;
    ~ErrorMark()
    {
        ERR_pop_to_mark();
    }
};

/** runGuarded that leaves OpenSSL's error queue as it was. */
[[nodiscard]] Carried runCrypto(Step step, const void* captured);

/** guarded, for an entry that reaches OpenSSL. */
template <typename Body>
auto guardedCrypto(Body body)
{
    return guardedBy<runCrypto>(body);
}

/** Refuses to give a pass phrase. Use it to read every PEM text and file: without it, OpenSSL
 *  would prompt on the terminal for an encrypted body from a stranger, and wait. */
inline int refusePassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/,
                            void* /*user*/) noexcept
{
    return -1;
}

/** A read-only BIO over @p text, which must outlive it; null when it is too long or memory runs
 *  out. */
[[nodiscard]] inline BioPtr readingBio(std::string_view text) noexcept
{
    if (text.size() > INT_MAX)
    {
        return nullptr; // GCOVR_EXCL_LINE: no test takes 2 GiB
    }
    return BioPtr{BIO_new_mem_buf(text.data(), static_cast<int>(text.size()))};
}

} // namespace bmcoauth::internal::crypto
