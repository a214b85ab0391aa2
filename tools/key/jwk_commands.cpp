// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/refusal.hpp"
#include "key/jwks.hpp"

#include <utility>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path = "-";
    bool json = false;
};

void importKey(const Options& options)
{
    print(orStop(importedKey(readObject(options.path)),
                 nameOf(options.path) + " cannot be imported", Exit::invalid));
}

void listKeys(const Options& options)
{
    if (options.json)
    {
        Json::Value list{Json::arrayValue};
        for (const Json::Value& key : keysOf(readObject(options.path)))
        {
            Json::Value entry;
            for (const char* name : {"kty", "kid", "alg", "crv"})
            {
                if (key[name].isString())
                {
                    entry[name] = key[name].asString();
                }
            }
            entry["importable"] = importedKey(key).has_value();
            list.append(entry);
        }
        printJson(list);
        return;
    }
    std::vector<std::vector<std::string>> rows{{"kty", "kid", "alg", "crv", "can be imported"}};
    for (const Json::Value& key : keysOf(readObject(options.path)))
    {
        std::vector<std::string> row;
        for (const char* name : {"kty", "kid", "alg", "crv"})
        {
            row.push_back(key[name].isString() ? shown(key[name].asString()) : "-");
        }
        row.emplace_back(importedKey(key) ? "yes" : "no");
        rows.push_back(std::move(row));
    }
    printTable(rows);
}

} // namespace

void addJwkCommands(const Command& root)
{
    const Command group = root.group("jwk", "JSON Web Keys");

    const Command importVerb = group.verb(
        "import", "Add the public key in PEM form to a JSON Web Key and print it",
        "jwk import key.json",
        "Adds the member kest_decoded_key, by which tokens of another issuer are verified.");
    Options& importOptions = importVerb.runs(importKey);
    importVerb.option("FILE", importOptions.path, "JSON Web Key");

    const Command listVerb =
        group.verb("list", "List the JSON Web Keys of a document", "jwk list keys.json",
                   "A member that a key does not have is shown as \"-\".");
    Options& listOptions = listVerb.runs(listKeys);
    listVerb.option("FILE", listOptions.path, "JSON Web Key, or {\"keys\": [...]}");
    listVerb.json(listOptions.json);
}

} // namespace bmcoauth::tool
