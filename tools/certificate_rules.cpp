// SPDX-License-Identifier: Apache-2.0
#include "certificate_rules.hpp"

#include "documents.hpp"
#include "payloads.hpp"
#include "roots.hpp"

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <utility>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

using StorePtr = std::unique_ptr<X509_STORE_CTX, Releaser<X509_STORE_CTX_free>>;

void releaseStack(STACK_OF(X509) * stack)
{
    // The certificates in it belong to others.
    sk_X509_free(stack);
}
using StackPtr = std::unique_ptr<STACK_OF(X509), Releaser<releaseStack>>;

using Certificates = std::vector<Certificate>;

StackPtr stackOf(const std::vector<X509*>& certificates)
{
    StackPtr stack{sk_X509_new_null()};
    for (X509* certificate : certificates)
    {
        if (!stack || sk_X509_push(stack.get(), certificate) <= 0)
        {
            throw std::bad_alloc();
        }
    }
    return stack;
}

/** What OpenSSL makes of a chain. */
struct Outcome
{
    int error = X509_V_OK;
    std::string message;
    std::string subject; /**< of the certificate where it stopped */
    std::string period;  /**< its validity */
};

/** Judges @p target as the library does. */
Outcome verifyChain(X509* target, const std::vector<X509*>& between,
                    const std::vector<X509*>& roots)
{
    const StackPtr untrusted = stackOf(between);
    const StackPtr trusted = stackOf(roots);
    const StorePtr context{X509_STORE_CTX_new()};
    if (!context || X509_STORE_CTX_init(context.get(), nullptr, target, untrusted.get()) != 1)
    {
        throw std::bad_alloc();
    }
    X509_STORE_CTX_set0_trusted_stack(context.get(), trusted.get());
    X509_VERIFY_PARAM_set_time(X509_STORE_CTX_get0_param(context.get()), judgedInstant());
    ERR_set_mark();
    const bool verified = X509_verify_cert(context.get()) == 1;
    ERR_pop_to_mark();
    Outcome outcome;
    if (verified)
    {
        return outcome;
    }
    outcome.error = X509_STORE_CTX_get_error(context.get());
    if (outcome.error == X509_V_OK)
    {
        outcome.error = X509_V_ERR_UNSPECIFIED;
    }
    outcome.message = X509_verify_cert_error_string(outcome.error);
    const X509* stopped = X509_STORE_CTX_get_current_cert(context.get());
    if (stopped == nullptr)
    {
        stopped = target;
    }
    outcome.subject = subjectOf(*stopped);
    outcome.period =
        timeText(X509_get0_notBefore(stopped)) + " to " + timeText(X509_get0_notAfter(stopped));
    return outcome;
}

bool isAboutTime(int error)
{
    return error == X509_V_ERR_CERT_HAS_EXPIRED || error == X509_V_ERR_CERT_NOT_YET_VALID;
}

/** The bodies of the chain: the values of the first "x5c". The chain is looked up by
 *  the name as it is written, ParameterList::values by the name in any case. */
std::vector<std::string> bodiesOf(const CertificateKey& certificate)
{
    for (const HandshakePayload* list = certificate.parameters().get();
         list->name != nullptr && list->values != nullptr; ++list)
    {
        if (std::string_view{list->name} == "x5c")
        {
            return copiesOf(TextRange{list->values});
        }
    }
    return {};
}

Certificate readBody(const std::string& body)
{
    const Expected<Text> pem = certificatePem(body);
    return pem.and_then(readCertificate).value_or(nullptr);
}

Refusal nameRules(const CertificateKey& certificate, const std::optional<std::string>& name)
{
    const Expected<Text> pem = certificate.pem();
    if (!pem || isCertificate(*pem, name))
    {
        return std::nullopt;
    }
    const Expected<Certificate> read = readCertificate(*pem);
    if (!read)
    {
        return refused("first certificate", "Base64 text that is no certificate", "a certificate");
    }
    const std::string subject = "the first certificate, subject " + subjectOf(**read);
    if (!name || !isCertificate(*pem))
    {
        return refused("common name", subject, "no common name, or one that is not empty");
    }
    return refused("common name", subject, "the common name " + brief(*name) + ", in any case",
                   name->size() > 17 ? "a name longer than 17 bytes never matches" : "");
}

std::vector<X509*> pointersTo(const Certificates& certificates, std::size_t first,
                              std::size_t behind)
{
    std::vector<X509*> pointers;
    for (std::size_t i = first; i < behind; ++i)
    {
        if (certificates[i])
        {
            pointers.push_back(certificates[i].get());
        }
    }
    return pointers;
}

/** What would let the chain verify. */
std::string chainHint(const Certificates& chain, const FactoryRoot& production,
                      const FactoryRoot& development, const Outcome& outcome)
{
    const std::vector<X509*> all = pointersTo(chain, 0, chain.size());
    const std::vector<X509*> between =
        chain.size() > 2 ? pointersTo(chain, 1, chain.size() - 1) : std::vector<X509*>{};
    X509* target = chain.back().get();
    const auto verifies = [&](X509* which, const std::vector<X509*>& others, X509* root) {
        return verifyChain(which, others, {root}).error == X509_V_OK;
    };
    if (!deviceIsMarked() && verifies(target, between, development.certificate.get()))
    {
        return std::string{"it leads to the development root, which counts only on a device with "
                           "the marker file "} +
               markerPath;
    }
    for (const FactoryRoot* root : {&production, &development})
    {
        X509* anchor = root->certificate.get();
        if (chain.front() && verifies(chain.front().get(), all, anchor))
        {
            return "the first certificate leads to " + root->path +
                   ": the last one is verified, by way of those between the first and the last, so "
                   "that the order is device, intermediates, device";
        }
    }
    if (isAboutTime(outcome.error))
    {
        return "chains are judged as of the begin of 2035, whatever the clock says";
    }
    return chain.size() == 2 ? "of two certificates the second is verified by the roots alone" : "";
}

Refusal chainRules(const CertificateKey& certificate)
{
    const FactoryRoot production = readRoot(productionRootPath);
    const FactoryRoot development = readRoot(developmentRootPath);
    for (const FactoryRoot* root : {&production, &development})
    {
        if (!root->certificate)
        {
            return refused("factory roots", root->path + ": " + root->problem,
                           "both root files, with a certificate each",
                           root == &development ? "also where the development root does not count"
                                                : "");
        }
    }
    const std::vector<std::string> bodies = bodiesOf(certificate);
    if (bodies.empty())
    {
        return refused("x5c", "no certificate", "a certificate in x5c at least");
    }
    Certificates chain;
    for (std::size_t i = 0; i < bodies.size(); ++i)
    {
        chain.push_back(readBody(bodies[i]));
        // The first one takes no part in the chain, unless it is the last, too.
        if (!chain.back() && (i != 0 || bodies.size() == 1))
        {
            return refused("x5c",
                           "certificate " + std::to_string(i + 1) + " of " +
                               std::to_string(bodies.size()) + ", which cannot be read",
                           "a certificate");
        }
    }
    std::vector<X509*> roots{production.certificate.get()};
    if (deviceIsMarked())
    {
        roots.push_back(development.certificate.get());
    }
    const Outcome outcome = verifyChain(
        chain.back().get(),
        chain.size() > 2 ? pointersTo(chain, 1, chain.size() - 1) : std::vector<X509*>{}, roots);
    if (outcome.error == X509_V_OK)
    {
        return std::nullopt;
    }
    return refused("chain",
                   outcome.message + ", at " + outcome.subject +
                       (isAboutTime(outcome.error) ? ", valid from " + outcome.period : ""),
                   "a chain from the last of " + std::to_string(chain.size()) +
                       " certificates to " + subjectOf(*production.certificate) +
                       (roots.size() > 1 ? " or " + subjectOf(*development.certificate) : "") +
                       ", valid at the begin of 2035",
                   chainHint(chain, production, development, outcome));
}

} // namespace

Explanation explainCertificate(const CertificateKey& certificate,
                               const std::optional<std::string>& name)
{
    Refusal refusal = nameRules(certificate, name);
    if (!refusal)
    {
        refusal = chainRules(certificate);
    }
    return refusal.value_or(Explanation{});
}

} // namespace bmcoauth::tool
