// SPDX-License-Identifier: Apache-2.0
#include "certificate/certificate_key.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/refusal.hpp"

namespace bmcoauth::tool
{

namespace
{

struct EncodeOptions
{
    std::string path;
};

void encode(const EncodeOptions& options)
{
    printJson(documentOf(readCertificateKey(options.path)));
}

struct CheckOptions
{
    std::string path;
    std::optional<std::string> name;
    bool json = false;
};

void check(const CheckOptions& options)
{
    const CertificateKey key = readCertificateKey(options.path);
    requireSameEnds(key, options.path, "valid");
    const Text pem = orStop(key.pem(), nameOf(options.path) + " is refused", Exit::invalid);
    const std::string which =
        "the first of " + std::to_string(sizeOf(key)) + " certificates in " + nameOf(options.path);
    if (const Expected<void> named = isCertificate(pem, options.name); !named)
    {
        refuse(which + " is refused", reasonOf(named.error()));
    }
    const Expected<Text> name = commonName(pem);
    if (options.json)
    {
        Json::Value document;
        document["valid"] = true;
        document["certificates"] = static_cast<Json::UInt64>(sizeOf(key));
        if (name)
        {
            document["common_name"] = name->c_str();
        }
        printJson(document);
        return;
    }
    print("valid: " + which + ", " +
          (name ? "common name " + harmless(*name) : "without a common name"));
}

struct ChainOptions
{
    std::string path;
    bool json = false;
};

void checkChain(const ChainOptions& options)
{
    const CertificateKey key = readCertificateKey(options.path);
    requireSameEnds(key, options.path, "verified");
    const std::string chain =
        "the last of " + std::to_string(sizeOf(key)) + " certificates in " + nameOf(options.path);
    if (const Expected<void> verified = key.verifyChain(); !verified)
    {
        refuse(chain + " is refused", reasonOf(verified.error()), "verified");
    }
    if (!options.json)
    {
        print("verified: " + chain);
        return;
    }
    Json::Value document;
    document["verified"] = true;
    document["certificates"] = static_cast<Json::UInt64>(sizeOf(key));
    printJson(document);
}

} // namespace

void addCertCommands(const Command& root)
{
    const Command group = root.group("cert", "Encode and check certificates");

    const Command encodeVerb =
        group.verb("encode", "Print the certificate key (JSON) of a PEM chain",
                   "cert encode device-chain.pem");
    EncodeOptions& encodeOptions = encodeVerb.runs(encode);
    encodeVerb.required("FILE", encodeOptions.path, "PEM chain");

    const Command checkVerb = group.verb(
        "check", "Check that a certificate can be read, and its common name",
        "cert check --name dev-device device.pem",
        "The first certificate is checked. A name longer than 17 bytes never matches. Exit status "
        "3 when it is\nrefused, also because the last certificate is another one: the chain would "
        "then be another device's.");
    CheckOptions& checkOptions = checkVerb.runs(check);
    checkVerb.required("FILE", checkOptions.path, "PEM file or certificate key");
    checkVerb.option("--name", checkOptions.name,
                     "Common name that it must have, regardless of case");
    checkVerb.json(checkOptions.json);

    const Command chainVerb = group.verb(
        "chain", "Verify a chain against the factory roots of this device",
        "cert chain device-chain.pem",
        "The last certificate is verified, by way of those between the first and the last. Where "
        "there are\ntwo, the second is verified by the roots alone. Validity is judged as of 1 "
        "January 2035.\nThe roots are FactorycertProdRoot.pem and FactorycertDevRoot.pem in "
        "/etc/default/certs.\nExit status 3 when the chain is refused, also because its first "
        "certificate, whose name and key count,\nis not the last one.");
    ChainOptions& chainOptions = chainVerb.runs(checkChain);
    chainVerb.required("FILE", chainOptions.path, "PEM chain or certificate key");
    chainVerb.json(chainOptions.json);
}

} // namespace bmcoauth::tool
