// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"
#include "common/files.hpp"
#include "common/string_array.hpp"
#include "crypto/openssl.hpp"
#include "keys/certificate.hpp"

#include <bmcoauth/support.h>
#include <bmcoauth/x509.h>

#include <openssl/pem.h>

using namespace bmcoauth;

namespace
{

constexpr const char* productionRoot = "/etc/default/certs/FactorycertProdRoot.pem";
constexpr const char* developmentRoot = "/etc/default/certs/FactorycertDevRoot.pem";

/** Certificates are judged as of the first day of this year: devices must be able to prove
 *  themselves before their clock is set. */
constexpr int judgedYear = 2035;

constexpr int verified = 1;
constexpr int refused = 0;
constexpr int internalFailure = -1;

void releaseStack(STACK_OF(X509) * stack) noexcept
{
    sk_X509_pop_free(stack, X509_free);
}

using CertificateStack = std::unique_ptr<STACK_OF(X509), Releaser<releaseStack>>;
using VerificationPtr = std::unique_ptr<X509_STORE_CTX, Releaser<X509_STORE_CTX_free>>;

crypto::X509Ptr readRoot(const char* path) noexcept
{
    const FilePtr file = openForReading(path);
    return crypto::X509Ptr{
        file ? PEM_read_X509(file.get(), nullptr, crypto::refusePassPhrase, nullptr) : nullptr};
}

/** Moves @p certificate onto @p stack; false when there is no certificate or no room. */
bool push(STACK_OF(X509) * stack, crypto::X509Ptr certificate) noexcept
{
    if (!certificate || sk_X509_push(stack, certificate.get()) <= 0)
    {
        return false;
    }
    // The stack owns it now.
    static_cast<void>(certificate.release());
    return true;
}

crypto::X509Ptr readBody(const char* body)
{
    return keys::readX509(keys::certificatePem(body));
}

int verify(X509& target, STACK_OF(X509) & untrusted, STACK_OF(X509) & trusted) noexcept
{
    const VerificationPtr context{X509_STORE_CTX_new()};
    if (!context || X509_STORE_CTX_init(context.get(), nullptr, &target, &untrusted) != 1)
    {
        return internalFailure;
    }
    X509_STORE_CTX_set0_trusted_stack(context.get(), &trusted);
    // On the context's own parameters: a fresh set allows chains of no depth at all.
    X509_VERIFY_PARAM_set_time(X509_STORE_CTX_get0_param(context.get()), localNewYear(judgedYear));
    const int result = X509_verify_cert(context.get());
    if (result < 0)
    {
        return internalFailure;
    }
    return result == 1 ? verified : refused;
}

int verifyChain(const HandshakePayload* certificate)
{
    crypto::X509Ptr production = readRoot(productionRoot);
    crypto::X509Ptr development = readRoot(developmentRoot);
    // Both must be there, on devices that trust only one of them too: a half-installed set of roots
    // is not to be trusted.
    if (!production || !development)
    {
        return refused;
    }
    const CertificateStack trusted{sk_X509_new_null()};
    const CertificateStack untrusted{sk_X509_new_null()};
    if (!trusted || !untrusted || !push(trusted.get(), std::move(production)) ||
        (isDeviceVorn() == 1 && !push(trusted.get(), std::move(development))))
    {
        return internalFailure;
    }
    char** values = keys::chainValues(certificate);
    const std::size_t count = countStrings(values);
    if (count == 0)
    {
        return internalFailure;
    }
    for (std::size_t i = 1; i + 1 < count; ++i)
    {
        if (!push(untrusted.get(), readBody(values[i])))
        {
            return internalFailure;
        }
    }
    const crypto::X509Ptr target = readBody(values[count - 1]);
    return target ? verify(*target, *untrusted, *trusted) : internalFailure;
}

} // namespace

int chainVerify(HandshakePayload* certificate)
{
    return crypto::guardedCrypto(internalFailure, [&] { return verifyChain(certificate); });
}

extern "C" int validateKestRootCert(HandshakePayload* /*certificate*/)
{
    return 0;
}
