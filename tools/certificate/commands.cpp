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

/** How messages call the certificate at @p place, "first" or "last", of the chain @p key in @p path. */
std::string named(const std::string& place, const CertificateKey& key, const std::string& path)
{
    const std::size_t size = sizeOf(key);
    return "the " +
           (size == 1 ? "certificate" : place + " of " + std::to_string(size) + " certificates") +
           " in " + nameOf(path);
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
    requireSameEnds(key, options.path);
    const Text pem = orStop(key.pem(), nameOf(options.path) + " is refused", Exit::invalid);
    const std::string which = named("first", key, options.path);
    if (const Expected<void> right = isCertificate(pem, options.name); !right)
    {
        refuse(which + " is refused", reasonOf(right.error()));
    }
    const Expected<Text> name = commonName(pem);
    if (options.json)
    {
        Json::Value document;
        document["verdict"] = "valid";
        document["certificates"] = static_cast<Json::UInt64>(sizeOf(key));
        if (name)
        {
            document["common_name"] = name->c_str();
        }
        printJson(document);
        return;
    }
    printGood("valid", ": " + which + ", " +
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
    requireSameEnds(key, options.path);
    const std::string chain = named("last", key, options.path);
    if (const Expected<void> verified = key.verifyChain(); !verified)
    {
        refuse(chain + " is refused", reasonOf(verified.error()));
    }
    if (!options.json)
    {
        printGood("verified", ": " + chain);
        return;
    }
    Json::Value document;
    document["verdict"] = "valid";
    document["certificates"] = static_cast<Json::UInt64>(sizeOf(key));
    document["chain_verified"] = true;
    printJson(document);
}

} // namespace

void addCertCommands(const Command& root)
{
    const Command group = root.group("cert", "Certificates");

    const Command encodeVerb =
        group.verb("encode", "Print the certificate key (JSON) of a PEM chain",
                   "cert encode device-chain.pem");
    EncodeOptions& encodeOptions = encodeVerb.runs(encode);
    encodeVerb.required("FILE", encodeOptions.path, "PEM chain");

    const Command checkVerb = group.verb(
        "check", "Check that a certificate can be read, and check its common name",
        "cert check --name dev-device device.pem",
        "Checks the first certificate. Also refuses a chain whose last certificate is another one: "
        "it would be another device's chain. A name longer than 17 bytes never matches.");
    CheckOptions& checkOptions = checkVerb.runs(check);
    checkVerb.required("FILE", checkOptions.path, "PEM file or certificate key");
    checkVerb.option("--name NAME", checkOptions.name,
                     "Common name that it must have; upper and lower case count as the same");
    checkVerb.json(checkOptions.json);

    const Command chainVerb = group.verb(
        "chain", "Verify a chain against the factory roots of this device",
        "cert chain device-chain.pem",
        "Verifies the last certificate; the ones between the first and the last are its "
        "intermediates. Of two certificates, the second is verified by the roots alone. Validity "
        "is "
        "judged as of 1 January 2035. Also refuses a chain whose first certificate, whose name and "
        "key count, is not the last one.\n\n"
        "The roots are FactorycertProdRoot.pem and FactorycertDevRoot.pem in /etc/default/certs.");
    ChainOptions& chainOptions = chainVerb.runs(checkChain);
    chainVerb.required("FILE", chainOptions.path, "PEM chain or certificate key");
    chainVerb.json(chainOptions.json);
}

} // namespace bmcoauth::tool
