// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth.hpp>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>

#include <memory>
#include <string>

namespace bmcoauth::tool
{

/** Hands an object of OpenSSL to the function that releases it. EC_KEY and X509 have their owners
 *  in <bmcoauth.hpp>: EcKey and Certificate. */
template <auto Release>
struct ReleasedBy
{
    template <typename T>
    void operator()(T* object) const noexcept
    {
        Release(object);
    }
};

using BioPtr = std::unique_ptr<BIO, ReleasedBy<BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, ReleasedBy<BN_clear_free>>;
using EvpKeyPtr = std::unique_ptr<EVP_PKEY, ReleasedBy<EVP_PKEY_free>>;

/** A pass phrase for the PEM readers: there is none, and nobody is asked for it. */
int noPassPhrase(char* buffer, int size, int writing, void* user);

/** A BIO that reads @p text, which has to outlive it. */
[[nodiscard]] BioPtr readerOf(const std::string& text);

/** What was written into the memory BIO @p memory; empty for a null one. */
[[nodiscard]] std::string contents(const BioPtr& memory);

} // namespace bmcoauth::tool
