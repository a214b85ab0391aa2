// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"
#include "common/device.hpp"
#include "common/files.hpp"
#include "common/machine.hpp"
#include "common/string_array.hpp"
#include "crypto/openssl.hpp"
#include "keys/certificate.hpp"

#include <openssl/pem.h>

namespace bmcoauth::internal::keys
{

namespace
{

/** Certificates are judged on the first day of this year: devices must be able to prove
 *  themselves before their clock is set. */
constexpr int judgedYear = 2035;

void releaseStack(STACK_OF(X509) * stack) noexcept
{
    sk_X509_pop_free(stack, X509_free);
}

using CertificateStack = std::unique_ptr<STACK_OF(X509), Releaser<releaseStack>>;
using VerificationPtr = std::unique_ptr<X509_STORE_CTX, Releaser<X509_STORE_CTX_free>>;

crypto::X509Ptr readRoot(const char* path) noexcept
{
    const FilePtr file = openForReading(path);
    if (!file)
    {
        return refuse(BMCOAUTH_RULE_CHAIN_ROOT_MISSING).about(path).sawErrno();
    }
    crypto::X509Ptr root{PEM_read_X509(file.get(), nullptr, crypto::refusePassPhrase, nullptr)};
    if (!root)
    {
        return refuse(BMCOAUTH_RULE_CHAIN_ROOT_MISSING).about(path).wanted("a certificate in PEM");
    }
    return root;
}

/** Moves @p certificate onto @p stack; false when there is no certificate or no room. */
bool push(STACK_OF(X509) * stack, crypto::X509Ptr certificate) noexcept
{
    if (!certificate)
    {
        return false;
    }
    if (sk_X509_push(stack, certificate.get()) <= 0)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: one allocation must fail
    }
    // The stack owns it now.
    static_cast<void>(certificate.release());
    return true;
}

crypto::X509Ptr readBody(const char* body)
{
    return readX509(certificatePem(body).get());
}

/** The certificates of a chain: the values of "x5c" but the first, unless it is the only one. */
struct Chain
{
    CertificateStack intermediates; /**< in their order, from the second value on */
    crypto::X509Ptr target;         /**< the last value */
    std::size_t last;               /**< its place */
};

/** Refuses what @p context does not trust; the place is that of the certificate where it ended. */
bmcoauth_chain_result refuseChain(X509_STORE_CTX& context, const Chain& chain) noexcept
{
    const int error = X509_STORE_CTX_get_error(&context);
    // Unspecified is the error of a certificate whose key cannot be read.
    Refused reason = refuse(error == X509_V_ERR_OUT_OF_MEM    ? BMCOAUTH_RULE_MEMORY_EXHAUSTED
                            : error == X509_V_ERR_UNSPECIFIED ? BMCOAUTH_RULE_CERTIFICATE_ENCODING
                                                              : BMCOAUTH_RULE_CHAIN_UNTRUSTED);
    reason.saw(X509_verify_cert_error_string(error));
    X509* const ended = X509_STORE_CTX_get_current_cert(&context);
    const int place = sk_X509_find(chain.intermediates.get(), ended);
    if (ended == chain.target.get())
    {
        reason.at(chain.last);
    }
    else if (place >= 0)
    {
        reason.at(static_cast<std::size_t>(place) + 1);
    }
    return reason;
}

bmcoauth_chain_result verify(const Chain& chain, STACK_OF(X509) & trusted) noexcept
{
    const VerificationPtr context{X509_STORE_CTX_new()};
    if (!context || X509_STORE_CTX_init(context.get(), nullptr, chain.target.get(),
                                        chain.intermediates.get()) != 1)
    {
        refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: one allocation must fail
        return BMCOAUTH_CHAIN_FAILED;           // GCOVR_EXCL_LINE: one allocation must fail
    }
    X509_STORE_CTX_set0_trusted_stack(context.get(), &trusted);
    // On the context's own parameters: a fresh set allows chains of no depth at all.
    X509_VERIFY_PARAM_set_time(X509_STORE_CTX_get0_param(context.get()), localNewYear(judgedYear));
    const int result = X509_verify_cert(context.get());
    if (result == 1)
    {
        return BMCOAUTH_CHAIN_VERIFIED;
    }
    const bmcoauth_chain_result refusal = refuseChain(*context, chain);
    return result < 0 ? BMCOAUTH_CHAIN_FAILED : refusal;
}

/** The roots that this device trusts; null, with @p result saying why, when there are none. */
CertificateStack readRoots(bmcoauth_chain_result& result) noexcept
{
    // Both must be there, on devices that trust only one of them too: a half-installed set of roots
    // is not to be trusted.
    crypto::X509Ptr production = readRoot(machine::productionRoot());
    crypto::X509Ptr development = production ? readRoot(machine::developmentRoot()) : nullptr;
    if (!development)
    {
        result = BMCOAUTH_CHAIN_REFUSED;
        return nullptr;
    }
    CertificateStack trusted{sk_X509_new_null()};
    if (!trusted)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: one allocation must fail
    }
    return push(trusted.get(), std::move(production)) &&
                   (!isMarkedDevice() || push(trusted.get(), std::move(development)))
               ? std::move(trusted)
               : nullptr;
}

std::optional<Chain> readChain(const HandshakePayload* certificate)
{
    Chain chain{CertificateStack{sk_X509_new_null()}, nullptr, 0};
    if (!chain.intermediates)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED); // GCOVR_EXCL_LINE: one allocation must fail
    }
    char** values = chainValues(certificate);
    if (values == nullptr)
    {
        return std::nullopt;
    }
    chain.last = countStrings(values) - 1;
    for (std::size_t i = 1; i < chain.last; ++i)
    {
        if (!push(chain.intermediates.get(), readBody(values[i])))
        {
            return refused().at(i);
        }
    }
    chain.target = readBody(values[chain.last]);
    if (!chain.target)
    {
        return refused().at(chain.last);
    }
    return chain;
}

} // namespace

bmcoauth_chain_result verifyChain(const HandshakePayload* certificate)
{
    bmcoauth_chain_result result = BMCOAUTH_CHAIN_FAILED;
    const CertificateStack trusted = readRoots(result);
    const std::optional<Chain> chain = trusted ? readChain(certificate) : std::nullopt;
    return chain ? verify(*chain, *trusted) : result;
}

} // namespace bmcoauth::internal::keys
