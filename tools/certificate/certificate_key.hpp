// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <string>

namespace bmcoauth::tool
{

/** Reads the PEM chain or the certificate key @p path, or the first certificate key of a register
 *  request or response; stops the command if it holds no certificate. Of a PEM file, takes only
 *  the certificates, whatever is around them. */
[[nodiscard]] CertificateKey readCertificateKey(const std::string& path);

/** The number of the certificates of @p key. */
[[nodiscard]] std::size_t sizeOf(const CertificateKey& key);

/** Stops the command unless the first certificate of the chain in @p path, @p key, is its last one.
 *  Names and keys are those of the first certificate and the chain is verified from the last one, so
 *  anybody could put a certificate of their own before the chain of a genuine device. */
void requireSameEnds(const CertificateKey& key, const std::string& path);

/** The document of @p key. "x5c" is an array even of a single certificate (RFC 7517). */
[[nodiscard]] Json::Value documentOf(const CertificateKey& key);

} // namespace bmcoauth::tool
