// SPDX-License-Identifier: Apache-2.0
#include "payloads.hpp"

#include "command.hpp"
#include "roots.hpp"

#include <utility>

namespace bmcoauth::tool
{

namespace
{

constexpr const char* x5c = "x5c";

/** The certificates in the PEM text @p text, without what stands around them: a comment before a
 *  certificate or a carriage return would become a part of it. */
std::string certificatesOnly(const std::string& text)
{
    const std::string begin = "-----BEGIN CERTIFICATE-----";
    const std::string end = "-----END CERTIFICATE-----";
    std::string certificates;
    for (std::size_t position = 0;;)
    {
        const std::size_t first = text.find(begin, position);
        const std::size_t last = text.find(end, first);
        if (first == std::string::npos || last == std::string::npos)
        {
            break;
        }
        position = last + end.size();
        certificates += text.substr(first, position - first) + "\n";
    }
    std::erase(certificates, '\r');
    return certificates;
}

/** The certificate key that @p document is, or the first one that it holds: a register request has
 *  them in "jwks", a register response beside its other members. */
Json::Value firstKey(const Json::Value& document)
{
    const Json::Value& place = document["jwks"].isObject() ? document["jwks"] : document;
    const Json::Value& keys = place["software_id_cert"];
    return keys.isArray() && !keys.empty() ? keys[0] : document;
}

PayloadPtr certificateKeyOf(const std::string& text)
{
    Json::Value document;
    if (loadJsonDoc(text.c_str(), document))
    {
        return PayloadPtr{
            parse_handshake_payload(json_fastWriter(firstKey(std::as_const(document))).c_str())};
    }
    const std::string pem = certificatesOnly(text);
    return PayloadPtr{encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size()))};
}

} // namespace

CertificateKey::CertificateKey(const std::string& path)
    : owned{certificateKeyOf(readText(path))},
      pointer{owned.get()},
      count{countValues(owned.get(), x5c)}
{
    if (count == 0)
    {
        throw Stop{Exit::invalid, nameOf(path) + " holds neither certificates in PEM form nor a "
                                                 "certificate key (JSON) with \"x5c\""};
    }
}

Json::Value CertificateKey::document() const
{
    Json::Value tree;
    loadJsonDoc(orStop(write_handshake_payload(pointer), "the key could not be written").get(),
                tree);
    if (tree[x5c].isString())
    {
        Json::Value certificates{Json::arrayValue};
        certificates.append(tree[x5c]);
        tree[x5c] = certificates;
    }
    return tree;
}

void requireFactoryRoots()
{
    requireReadable(productionRootPath);
    requireReadable(developmentRootPath);
}

PayloadPtr readPayload(const std::string& path, const std::string& member)
{
    const Json::Value document = readObject(path);
    const Json::Value& list = document[member].isObject() ? document[member] : document;
    PayloadPtr payload{parse_handshake_payload(json_fastWriter(list).c_str())};
    if (!payload)
    {
        throw Stop{Exit::invalid, nameOf(path) +
                                      " holds no list of parameters, each a string or an array of "
                                      "strings, nor a \"" +
                                      member + "\" that is one"};
    }
    return payload;
}

SealedDocument::SealedDocument(const std::string& path)
{
    const Json::Value document = readObject(path);
    const bool attached = document.isMember("encrypted_sslcert");
    const auto text = [&](const char* name) {
        if (!document[name].isString())
        {
            throw Stop{Exit::invalid, nameOf(path) +
                                          " is no envelope: it needs the strings ciphertext, mac "
                                          "and iv, or encrypted_sslcert, HMAC and iv"};
        }
        return document[name].asString();
    };
    ciphertext = text(attached ? "encrypted_sslcert" : "ciphertext");
    mac = text(attached ? "HMAC" : "mac");
    iv = text("iv");
}

void printPayload(HandshakePayload* payload)
{
    print(orStop(write_handshake_payload(payload), "the document could not be written").get());
}

std::size_t countValues(HandshakePayload* payload, const char* name)
{
    char** raw = nullptr;
    getChallengeValueArray(payload, name, &raw);
    const StringArray values{raw};
    std::size_t count = 0;
    while (raw != nullptr && raw[count] != nullptr)
    {
        ++count;
    }
    return count;
}

} // namespace bmcoauth::tool
