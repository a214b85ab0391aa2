// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/files.hpp"
#include "cli/new_file.hpp"
#include "cli/refusal.hpp"
#include "key/forms.hpp"
#include "key/keys.hpp"

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path;
    bool force = false;
    bool json = false;
};

void generate(const Options& options)
{
    if (options.path == "-")
    {
        throw Stop{Exit::usage, "a private key is written to a file, not to standard output"};
    }
    writeNewKey(options.path, {.replaced = options.force});
    if (options.json)
    {
        Json::Value document;
        document["file"] = options.path;
        printJson(document);
    }
}

void check(const Options& options)
{
    requireKeyFile(options.path);
    if (const Expected<void> sound = keyFileIsSound(options.path); !sound)
    {
        refuse(options.path + " does not hold a valid elliptic-curve private key",
               reasonOf(sound.error()));
    }
    const AnyKey key = readKeyOfAnyCurve(options.path);
    Json::Value document;
    document["verdict"] = "valid";
    document["curve"] = curveNameOf(key);
    document["mode"] = modeOf(options.path);
    document["owner"] = ownerOf(options.path);
    if (hasJwk(key))
    {
        document["thumbprint"] = thumbprintOf(key);
    }
    if (options.json)
    {
        printJson(document);
        return;
    }
    const std::string risk = openTo(options.path, 0077);
    printGood("valid", ": " + document["curve"].asString());
    print("  mode        " + document["mode"].asString() + (risk.empty() ? "" : ", " + risk));
    print("  owner       " + harmless(document["owner"].asString()));
    print("  thumbprint  " + document.get("thumbprint", "-").asString());
}

} // namespace

void addKeyCommands(const Command& root)
{
    const Command group = root.group("key", "Private and public keys");

    const Command generateVerb = group.verb(
        "generate", "Make a P-256 private key file (PEM, mode 0600)", "key generate signing.pem",
        "With --force, the old file is replaced when the new one is complete. A symbolic link is "
        "replaced, not followed.");
    Options& generateOptions = generateVerb.runs(generate);
    generateVerb.required("FILE", generateOptions.path, "Where to write the key");
    generateVerb.flag("--force", generateOptions.force, "Replace an existing file");
    generateVerb.json(generateOptions.json);

    const Command checkVerb =
        group.verb("check", "Check a private key file and describe it", "key check signing.pem");
    Options& checkOptions = checkVerb.runs(check);
    checkVerb.required("FILE", checkOptions.path, "Private key file (PEM)");
    checkVerb.json(checkOptions.json);

    addKeyFormCommands(group);
}

} // namespace bmcoauth::tool
