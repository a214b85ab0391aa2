// SPDX-License-Identifier: Apache-2.0
#include "trust.hpp"

#include "command.hpp"
#include "jwks.hpp"

#include <algorithm>
#include <array>
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
        return {std::move(name), json_fastWriter(key), true};
    }
    const std::optional<std::string> imported = importedKey(key);
    return {std::move(name), imported ? *imported : json_fastWriter(key), imported.has_value()};
}

} // namespace

std::vector<TrustedKey> keysIn(const std::string& path, bool import)
{
    const std::string text = readText(path);
    Json::Value document;
    if (!loadJsonDoc(text.c_str(), document))
    {
        if (text.find("PUBLIC KEY-----") == std::string::npos)
        {
            throw Stop{Exit::invalid, nameOf(path) + " holds neither a public key in PEM form nor "
                                                     "JSON Web Keys"};
        }
        return {{nameOf(path), text, true}};
    }
    std::vector<TrustedKey> keys;
    const bool set = std::as_const(document)["keys"].isArray();
    for (const Json::Value& key : keysOf(document))
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

Judgement judge(const std::string& token, const std::string& key, std::uint32_t skewSeconds,
                userRole_s* roles, const char** providers)
{
    std::array<const char*, 2> keys{key.c_str(), nullptr};
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    Judgement judgement;
    judgement.verdict = validateJWT_Delegated(token.c_str(), keys.data(), 0, &header, &payload,
                                              skewSeconds, roles, providers, &verified);
    judgement.header.reset(header);
    judgement.payload.reset(payload);
    judgement.verified = verified == 1;
    return judgement;
}

Judgement judgeByAll(const std::string& token, const std::vector<TrustedKey>& keys,
                     std::uint32_t skewSeconds, userRole_s* roles, const char** providers)
{
    Judgement best;
    for (const TrustedKey& key : keys)
    {
        Judgement judgement = judge(token, key.text, skewSeconds, roles, providers);
        if (judgement.verified)
        {
            return judgement;
        }
        best = std::move(judgement);
    }
    return best;
}

} // namespace bmcoauth::tool
