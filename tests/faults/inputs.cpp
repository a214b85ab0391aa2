// SPDX-License-Identifier: Apache-2.0
#include "inputs.hpp"

#include "support/owners.hpp"

#include <openssl/ec.h>
#include <openssl/evp.h>

#include <stdexcept>

using support::CertificatePlan;
using support::EcKeyPtr;
using support::Identity;

namespace faults
{

namespace
{

/** The private key of device() as OpenSSL writes it with these of its flags. */
Der encodedKey(unsigned int flags)
{
    const EcKeyPtr key{EVP_PKEY_get1_EC_KEY(&device().key())};
    EC_KEY_set_enc_flags(key.get(), flags);
    unsigned char* bytes = nullptr;
    const int length = i2d_ECPrivateKey(key.get(), &bytes);
    if (length <= 0)
    {
        throw std::runtime_error("OpenSSL failed");
    }
    Der der{{reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)}};
    OPENSSL_free(bytes);
    return der;
}

std::string pkcs8Pem(const Identity& identity)
{
    unsigned char* bytes = nullptr;
    const std::unique_ptr<PKCS8_PRIV_KEY_INFO, support::Releaser<PKCS8_PRIV_KEY_INFO_free>> info{
        EVP_PKEY2PKCS8(&identity.key())};
    const int length = i2d_PKCS8_PRIV_KEY_INFO(info.get(), &bytes);
    if (length <= 0)
    {
        throw std::runtime_error("OpenSSL failed");
    }
    const std::string der{reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length)};
    OPENSSL_free(bytes);
    return support::pemOf("PRIVATE KEY", der);
}

} // namespace

const Identity& productionRoot()
{
    static const Identity root = Identity::root("production root");
    return root;
}

const Identity& developmentRoot()
{
    static const Identity root = Identity::root("development root");
    return root;
}

const Identity& intermediate()
{
    static const Identity authority = productionRoot().issueAuthority("intermediate");
    return authority;
}

const Identity& device()
{
    static const Identity identity = productionRoot().issue({});
    return identity;
}

const Identity& stranger()
{
    static const Identity identity = Identity::selfSigned({});
    return identity;
}

const Identity& largerCurve()
{
    static const Identity identity = [] {
        CertificatePlan plan;
        plan.group = "secp384r1";
        return Identity::selfSigned(plan);
    }();
    return identity;
}

const Der& deviceKey()
{
    static const Der key{device().privateKeyDer()};
    return key;
}

const Der& keyWithoutPoint()
{
    static const Der key = encodedKey(EC_PKEY_NO_PUBKEY);
    return key;
}

const Der& keyWithoutCurve()
{
    static const Der key = encodedKey(EC_PKEY_NO_PARAMETERS | EC_PKEY_NO_PUBKEY);
    return key;
}

DeviceFiles::DeviceFiles()
{
    static const std::string key = pkcs8Pem(device());
    files.put("/etc/default/certs/FactorycertProdRoot.pem", productionRoot().pem());
    files.put("/etc/default/certs/FactorycertDevRoot.pem", developmentRoot().pem());
    files.put(keyPath, key);
}

} // namespace faults
