// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/parameter_list.hpp"
#include "common/string_array.hpp"
#include "crypto/ec_key.hpp"
#include "crypto/openssl.hpp"
#include "keys/certificate.hpp"

#include <bmcoauth/x509.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

using namespace bmcoauth;

namespace
{

constexpr const char* beginMarker = "-----BEGIN CERTIFICATE-----";
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

/** What is left of one block of a PEM chain as an "x5c" value. */
std::string bareBody(std::string_view block)
{
    std::string body{block};
    std::erase(body, '\n');
    removeSubStr(body, endMarker.data());
    removeSubStr(body, beginMarker);
    return body;
}

/** The "x5c" values of the chain @p pem; null when one of its certificates is refused. */
StringArray chainBodies(std::string_view pem)
{
    StringArray bodies = emptyStringArray(countEndMarkers(pem));
    if (!bodies)
    {
        throw std::bad_alloc();
    }
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
            return nullptr;
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
    const std::string_view unwanted = substring == nullptr ? "" : substring;
    const std::size_t first = unwanted.empty() ? std::string::npos : text.find(unwanted);
    if (first == std::string::npos)
    {
        return std::string::npos;
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
    return std::string::npos;
}

extern "C" char* recreate_x509_cert(const char* body)
{
    if (body == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&] { return heapText(keys::certificatePem(body)).release(); });
}

extern "C" char* decode_x509_jwk(HandshakePayload* certificate, unsigned int* length)
{
    if (length == nullptr)
    {
        return nullptr;
    }
    *length = 0;
    return guarded(nullptr, [&]() -> char* {
        const std::optional<std::string> pem = keys::firstCertificatePem(certificate);
        if (!pem || !std::in_range<unsigned int>(pem->size()))
        {
            return nullptr;
        }
        char* text = requireHeapText(*pem).release();
        *length = static_cast<unsigned int>(pem->size());
        return text;
    });
}

extern "C" X509* getX509Cert(const char* pem)
{
    if (pem == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&] { return keys::readX509(pem).release(); });
}

int validateX509(const char* pem, const char* commonName)
{
    if (pem == nullptr)
    {
        return 0;
    }
    return crypto::guardedCrypto(0, [&] { return keys::isNamed(pem, commonName) ? 1 : 0; });
}

extern "C" HandshakePayload* encode_x509_jwk(const char* pem, unsigned int length)
{
    // Never looks beyond the text, whatever length it is given.
    if (pem == nullptr || *pem == '\0' || std::strlen(pem) != length)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&] { return certificateKey({pem, length}).release(); });
}

extern "C" int validate_x509_jwk(HandshakePayload* certificate, const char* commonName)
{
    if (certificate == nullptr)
    {
        return 0;
    }
    return crypto::guardedCrypto(0, [&] {
        const std::optional<std::string> pem = keys::firstCertificatePem(certificate);
        if (pem && !keys::isNamed(*pem, commonName))
        {
            return 0;
        }
        return chainVerify(certificate) > 0 ? 1 : 0;
    });
}

extern "C" EC_KEY* get_EC_pubKey(const char* pem)
{
    if (pem == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&]() -> EC_KEY* {
        const std::optional<keys::Certificate> certificate = keys::Certificate::read(pem);
        return certificate ? certificate->ecKey().release() : nullptr;
    });
}

extern "C" EC_KEY* get_EC_privKey(const unsigned char* der, int length)
{
    return crypto::guardedCrypto(nullptr,
                                 [&] { return crypto::decodePrivateKey(der, length).release(); });
}
