// SPDX-License-Identifier: Apache-2.0
#include "trust.hpp"

#include "command.hpp"
#include "jwks.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

TrustedKey trusted(std::string name, const Json::Value& key, bool import)
{
    if (key["kid"].isString())
    {
        name += " (kid " + shown(key["kid"].asString()) + ")";
    }
    if (!import)
    {
        return {std::move(name), textOf(key), true};
    }
    const std::optional<std::string> imported = importedKey(key);
    return {std::move(name), imported ? *imported : textOf(key), imported.has_value()};
}

} // namespace

std::vector<TrustedKey> keysIn(const std::string& path, bool import)
{
    const std::string text = readText(path);
    const std::optional<Json::Value> document = parsedObject(text);
    if (!document)
    {
        if (text.find("PUBLIC KEY-----") == std::string::npos)
        {
            throw Stop{Exit::invalid, nameOf(path) + " holds neither a public key in PEM form nor "
                                                     "JSON Web Keys"};
        }
        return {{nameOf(path), text, true}};
    }
    std::vector<TrustedKey> keys;
    const bool set = (*document)["keys"].isArray();
    for (const Json::Value& key : keysOf(*document))
    {
        const std::string number = set ? ", key " + std::to_string(keys.size() + 1) : "";
        keys.push_back(trusted(nameOf(path) + number, key, import));
    }
    return keys;
}

std::vector<TrustedKey> usableKeys(const std::vector<std::string>& paths)
{
    std::vector<TrustedKey> usable;
    for (const std::string& path : paths)
    {
        std::vector<TrustedKey> keys = keysIn(path, true);
        std::erase_if(keys, [](const TrustedKey& key) { return !key.usable; });
        if (keys.empty())
        {
            throw Stop{Exit::invalid, nameOf(path) + " holds no JSON Web Key that can be imported"};
        }
        std::ranges::move(keys, std::back_inserter(usable));
    }
    return usable;
}

Verdict judge(const std::string& token, std::string_view key, const DelegationRules& rules)
{
    return validateDelegatedToken(token, orStop(TrustedKeys::of({&key, 1}), "memory is exhausted"),
                                  rules);
}

Verdict judgeByAll(const std::string& token, const std::vector<TrustedKey>& keys,
                   const DelegationRules& rules)
{
    auto key = keys.begin();
    Verdict verdict = judge(token, key->text, rules);
    while (!verdict.hasTrustedSignature() && ++key != keys.end())
    {
        verdict = judge(token, key->text, rules);
    }
    return verdict;
}

} // namespace bmcoauth::tool
