// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/parameter_list.hpp"
#include "common/string_array.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "crypto/pem.hpp"
#include "keys/certificate.hpp"

#include <bmcoauth/x509.h>

#include <openssl/pem.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

using namespace bmcoauth::internal;

namespace
{

constexpr std::string_view beginMarker = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view endMarker = "-----END CERTIFICATE-----";

std::size_t countEndMarkers(std::string_view pem) noexcept
{
    std::size_t count = 0;
    for (std::size_t at = pem.find(endMarker); at != std::string_view::npos;
         at = pem.find(endMarker, at + endMarker.size()))
    {
        ++count;
    }
    return count;
}

/** Removes every occurrence of @p unwanted from @p text, those included that a removal joins. */
void removeAll(std::string& text, std::string_view unwanted)
{
    const std::size_t first = unwanted.empty() ? std::string::npos : text.find(unwanted);
    if (first == std::string::npos)
    {
        return;
    }
    // Moves the text down over itself and takes back an occurrence whenever one is complete, which
    // finds them in the order of a search from the start after each removal, in one pass.
    std::size_t kept = first;
    for (std::size_t next = first; next < text.size(); ++next)
    {
        text[kept++] = text[next];
        if (std::string_view{text.data(), kept}.ends_with(unwanted))
        {
            kept -= unwanted.size();
        }
    }
    text.resize(kept);
}

/** What is left of one block of a PEM chain as an "x5c" value. */
std::string bareBody(std::string_view block)
{
    std::string body{block};
    std::erase(body, '\n');
    removeAll(body, endMarker);
    removeAll(body, beginMarker);
    return body;
}

/** The "x5c" values of the chain @p pem; null when one of its certificates is refused. */
StringArray chainBodies(std::string_view pem)
{
    StringArray bodies = required(emptyStringArray(countEndMarkers(pem)));
    char** slot = bodies.get();
    std::size_t start = 0;
    for (std::size_t at = pem.find(endMarker); at != std::string_view::npos;
         at = pem.find(endMarker, start))
    {
        // One character more than the marker: the line feed that ends its line.
        const std::size_t end = std::min(at + endMarker.size() + 1, pem.size());
        const std::string_view block = pem.substr(start, end - start);
        if (!keys::isNamed(block, nullptr))
        {
            return refused().at(static_cast<std::size_t>(slot - bodies.get()));
        }
        *slot++ = requireHeapText(bareBody(block)).release();
        start = end;
    }
    return bodies;
}

ParameterList certificateKey(std::string_view pem)
{
    StringArray bodies = chainBodies(pem);
    if (!bodies)
    {
        return nullptr;
    }
    ParameterListWriter key{3};
    key.put("kty", "EC");
    // Not the name of RFC 7518: the devices in the field send and expect the hyphen.
    key.put("alg", "ES-256");
    key.put("x5c", std::move(bodies));
    return key.take();
}

} // namespace

std::size_t removeSubStr(std::string& text, const char* substring)
{
    removeAll(text, substring == nullptr ? "" : substring);
    return std::string::npos;
}

extern "C" char* recreate_x509_cert(const char* body)
{
    if (refusesNull("body", body))
    {
        return refused();
    }
    return guarded([=] { return crypto::pemText(PEM_STRING_X509, body).release(); });
}

extern "C" char* decode_x509_jwk(HandshakePayload* certificate, unsigned int* length)
{
    if (refusesNull("length", length))
    {
        return refused();
    }
    *length = 0;
    if (refusesNull("certificate", certificate))
    {
        return refused();
    }
    return guarded([=]() -> char* {
        HeapText pem = keys::firstCertificatePem(certificate);
        if (!pem)
        {
            return nullptr;
        }
        const std::size_t size = std::strlen(pem.get());
        if (!std::in_range<unsigned int>(size))
        {
            return refuse(BMCOAUTH_RULE_ARGUMENT_LENGTH).about("x5c"); // GCOVR_EXCL_LINE: 4 GiB
        }
        *length = static_cast<unsigned int>(size);
        return pem.release();
    });
}

extern "C" X509* getX509Cert(const char* pem)
{
    if (refusesNull("pem", pem))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return keys::readX509(pem).release(); });
}

int validateX509(const char* pem, const char* commonName)
{
    if (refusesNull("pem", pem))
    {
        return refused();
    }
    return crypto::guardedCrypto([=] { return int{keys::isNamed(pem, commonName)}; });
}

extern "C" HandshakePayload* encode_x509_jwk(const char* pem, unsigned int length)
{
    if (refusesNull("pem", pem))
    {
        return refused();
    }
    // Never looks beyond the text, whatever length it is given.
    if (*pem == '\0' || std::strlen(pem) != length)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "length");
    }
    return crypto::guardedCrypto([=] { return certificateKey({pem, length}).release(); });
}

extern "C" int validate_x509_jwk(HandshakePayload* certificate, const char* commonName)
{
    if (refusesNull("certificate", certificate))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> int {
        const HeapText pem = keys::firstCertificatePem(certificate);
        if (pem && !keys::isNamed(pem.get(), commonName))
        {
            return refused().at(0);
        }
        return int{keys::verifyChain(certificate) == BMCOAUTH_CHAIN_VERIFIED};
    });
}

int chainVerify(HandshakePayload* certificate)
{
    bmcoauth_chain_result result = BMCOAUTH_CHAIN_FAILED;
    crypto::guardedCrypto([&] {
        result = keys::verifyChain(certificate);
        return result == BMCOAUTH_CHAIN_VERIFIED;
    });
    return result;
}

extern "C" int validateKestRootCert(HandshakePayload* /*certificate*/)
{
    return refuseCall(BMCOAUTH_RULE_CHAIN_UNSUPPORTED, "certificate");
}

extern "C" EC_KEY* get_EC_pubKey(const char* pem)
{
    if (refusesNull("pem", pem))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> EC_KEY* {
        const std::optional<keys::Certificate> certificate = keys::Certificate::read(pem);
        return certificate ? certificate->ecKey().release() : nullptr;
    });
}

extern "C" EC_KEY* get_EC_privKey(const unsigned char* der, int length)
{
    return crypto::guardedCrypto([=] { return crypto::decodePrivateKey(der, length).release(); });
}
