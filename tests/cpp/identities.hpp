// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/certificates.hpp"

#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/keys.hpp>

namespace bmcoauth
{

/** The private key of `identity`. */
[[nodiscard]] inline PrivateKey keyOf(const support::Identity& identity)
{
    return PrivateKey::fromDer(bytesOf(identity.privateKeyDer())).value();
}

/** The certificate of `identity` alone. */
[[nodiscard]] inline CertificateKey certificateOf(const support::Identity& identity)
{
    return CertificateKey::fromPem(identity.pem()).value();
}

} // namespace bmcoauth
