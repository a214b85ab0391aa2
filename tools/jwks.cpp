// SPDX-License-Identifier: Apache-2.0
#include "jwks.hpp"

#include <cstring>
#include <new>

namespace bmcoauth::tool
{

std::vector<Json::Value> keysOf(const Json::Value& document)
{
    if (!document["keys"].isArray())
    {
        return {document};
    }
    std::vector<Json::Value> keys;
    for (const Json::Value& key : document["keys"])
    {
        if (key.isObject())
        {
            keys.push_back(key);
        }
    }
    return keys;
}

std::optional<std::string> importedKey(const Json::Value& key)
{
    char* raw = strdup(json_fastWriter(key).c_str());
    if (raw == nullptr)
    {
        throw std::bad_alloc();
    }
    const bool imported = appendPublicKey(&raw) == 1;
    const RawText text{raw};
    return imported ? std::optional<std::string>{text.get()} : std::nullopt;
}

} // namespace bmcoauth::tool
