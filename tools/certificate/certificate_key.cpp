// SPDX-License-Identifier: Apache-2.0
#include "certificate/certificate_key.hpp"

#include "cli/command.hpp"
#include "cli/refusal.hpp"
#include "document/parameters.hpp"

#include <utility>

namespace bmcoauth::tool
{

namespace
{

constexpr const char* x5c = "x5c";

/** The certificates in the PEM text @p text, without the text around them: a comment before a
 *  certificate or a carriage return would become a part of it. Stops the command where one has no
 *  end: without it, the one before would pass for the last, which is the one that is verified. */
std::vector<std::string> certificatesIn(std::string text, const std::string& path)
{
    const std::string begin = "-----BEGIN CERTIFICATE-----";
    const std::string end = "-----END CERTIFICATE-----";
    std::erase(text, '\r');
    std::vector<std::string> certificates;
    for (std::size_t first = text.find(begin); first != std::string::npos;
         first = text.find(begin, first))
    {
        const std::size_t last = text.find(end, first);
        if (last == std::string::npos)
        {
            throw Stop{Exit::invalid, nameOf(path) + " is cut off in certificate " +
                                          std::to_string(certificates.size() + 1)};
        }
        certificates.push_back(text.substr(first, last + end.size() - first));
        first = last;
    }
    return certificates;
}

/** The chain of the certificates in the PEM text @p text; a stop where the library would refuse
 *  one of them, which it does without a word. */
std::string chainIn(const std::string& text, const std::string& path)
{
    const std::vector<std::string> certificates = certificatesIn(text, path);
    std::string chain;
    for (std::size_t i = 0; i < certificates.size(); ++i)
    {
        if (const Expected<void> read = isCertificate(certificates[i]); !read)
        {
            refuse("certificate " + std::to_string(i + 1) + " of " +
                       std::to_string(certificates.size()) + " in " + nameOf(path) + " is refused",
                   reasonOf(read.error()));
        }
        chain.append(certificates[i]).append("\n");
    }
    return chain;
}

/** The certificate key that @p document is, or the first one that it holds: a register request has
 *  them in "jwks", a register response beside its other members. */
Json::Value firstKey(const Json::Value& document)
{
    const Json::Value& place = document["jwks"].isObject() ? document["jwks"] : document;
    const Json::Value& keys = place["software_id_cert"];
    return keys.isArray() && !keys.empty() ? keys[0] : document;
}

Expected<CertificateKey> certificateKeyOf(const std::string& text, const std::string& path)
{
    if (const Expected<Json::Value> document = parseJson(text))
    {
        return CertificateKey::parse(textOf(firstKey(*document)));
    }
    return CertificateKey::fromPem(chainIn(text, path));
}

} // namespace

CertificateKey readCertificateKey(const std::string& path)
{
    const std::string none = nameOf(path) + " holds neither certificates in PEM form nor a "
                                            "certificate key (JSON) with \"x5c\"";
    CertificateKey key = orStop(certificateKeyOf(readText(path), path), none, Exit::invalid);
    if (sizeOf(key) == 0)
    {
        throw Stop{Exit::invalid, none};
    }
    return key;
}

std::size_t sizeOf(const CertificateKey& key)
{
    return valuesOf(key.parameters(), x5c).size();
}

void requireSameEnds(const CertificateKey& key, const std::string& path)
{
    if (const Expected<void> same = key.firstIsLast(); !same)
    {
        refuse("the chain in " + nameOf(path) + " is refused", reasonOf(same.error()));
    }
}

Json::Value documentOf(const CertificateKey& key)
{
    const Text text = orStop(key.parameters().write(), "the key could not be written");
    Json::Value tree = orStop(parseJson(text), "the key could not be written");
    if (tree[x5c].isString())
    {
        Json::Value certificates{Json::arrayValue};
        certificates.append(tree[x5c]);
        tree[x5c] = certificates;
    }
    return tree;
}

} // namespace bmcoauth::tool
