// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/new_file.hpp"
#include "key/forms.hpp"

#include <openssl/crypto.h>

#include <unistd.h>

namespace bmcoauth::tool
{

namespace
{

struct ConvertOptions
{
    std::string path;
    std::string form;
    std::string out;
    std::string kid;
    bool publicOnly = false;
    bool force = false;
    bool json = false;
};

/** The key as it goes out. */
std::string converted(const AnyKey& key, const ConvertOptions& options)
{
    if (options.form == "pem")
    {
        return pemOf(key);
    }
    if (options.form == "der")
    {
        return derOf(key);
    }
    Json::Value jwk = jwkOf(key);
    if (!options.kid.empty())
    {
        jwk["kid"] = options.kid;
    }
    return textOf(jwk) + "\n";
}

void put(const std::string& bytes, const AnyKey& key, const ConvertOptions& options)
{
    if (!options.out.empty())
    {
        writeFile(options.out, bytes, key.isPrivate ? Readers::owner : Readers::everybody,
                  {.replaced = options.force});
        if (options.json)
        {
            Json::Value document;
            document["file"] = options.out;
            document["private"] = key.isPrivate;
            printJson(document);
        }
        return;
    }
    if (options.json && options.form != "jwk")
    {
        Json::Value document;
        document[options.form] = options.form == "der" ? encodedBase64(bytes) : bytes;
        document["private"] = key.isPrivate;
        printJson(document);
        return;
    }
    if (options.form == "der" && isatty(STDOUT_FILENO) == 1)
    {
        throw Stop{Exit::usage, "DER bytes are not for a terminal: give --out FILE"};
    }
    printBytes(bytes);
}

void convert(const ConvertOptions& options)
{
    if (!options.kid.empty() && options.form != "jwk")
    {
        throw Stop{Exit::usage, "--kid needs --to jwk: other forms have no key id"};
    }
    requireFileName(options.out);
    AnyKey key = readAnyKey(options.path);
    key.isPrivate = key.isPrivate && !options.publicOnly;
    std::string bytes = converted(key, options);
    put(bytes, key, options);
    OPENSSL_cleanse(bytes.data(), bytes.size());
}

struct ThumbprintOptions
{
    std::string path;
    bool json = false;
};

void thumbprint(const ThumbprintOptions& options)
{
    const std::string text = thumbprintOf(readAnyKey(options.path));
    if (!options.json)
    {
        print(text);
        return;
    }
    Json::Value document;
    document["thumbprint"] = text;
    printJson(document);
}

} // namespace

void addKeyFormCommands(const Command& keys)
{
    const Command convertVerb = keys.verb(
        "convert", "Turn a key into PEM, DER or JWK form",
        "key convert --to jwk --public --kid bmc-1 signing.pem",
        "Reads private and public keys on P-256, P-384, P-521 and RSA keys, in any of these "
        "forms, and the public key of a certificate.\n\n"
        "Writes PEM as PKCS #8 or SubjectPublicKeyInfo. Writes private keys in DER as "
        "ECPrivateKey, which the library's functions take, or as RSAPrivateKey.");
    ConvertOptions& options = convertVerb.runs(convert);
    convertVerb.required("FILE", options.path, "Key file");
    convertVerb.choice("--to", options.form, "Form to write", {"pem", "der", "jwk"});
    convertVerb.flag("--public", options.publicOnly, "Write the public key only");
    convertVerb.option("--kid ID", options.kid, "Key id of a JSON Web Key");
    convertVerb.option("--out FILE", options.out,
                       "File to write (mode 0600 for a private key); default: standard output");
    convertVerb.flag("--force", options.force, "Replace an existing file");
    convertVerb.json(options.json);

    const Command thumbprintVerb =
        keys.verb("thumbprint", "Print the thumbprint of a key (RFC 7638, SHA-256)",
                  "key thumbprint signing.pem",
                  "It is the same for the private and the public key and in every form.");
    ThumbprintOptions& thumbprintOptions = thumbprintVerb.runs(thumbprint);
    thumbprintVerb.required("FILE", thumbprintOptions.path, "Key file, as for key convert");
    thumbprintVerb.json(thumbprintOptions.json);
}

} // namespace bmcoauth::tool
