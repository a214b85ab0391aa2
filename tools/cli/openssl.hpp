// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>

#include <memory>
#include <string>
#include <string_view>

namespace bmcoauth::tool
{

// Owners of OpenSSL's objects; EC_KEY and X509 have theirs in <bmcoauth.hpp>: EcKey and Certificate.
using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, Releaser<BN_clear_free>>;
using EvpKeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;

/** A pass phrase for the PEM readers: there is none, and nobody is asked for it. */
int noPassPhrase(char* buffer, int size, int writing, void* user);

/** A BIO that reads @p text, which has to outlive it. */
[[nodiscard]] BioPtr readerOf(std::string_view text);

/** What was written into the memory BIO @p memory; empty for a null one. */
[[nodiscard]] std::string contents(const BioPtr& memory);

} // namespace bmcoauth::tool
