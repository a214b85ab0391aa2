// SPDX-License-Identifier: Apache-2.0
#include "key/jwks.hpp"

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

Expected<std::string> importedKey(const Json::Value& key)
{
    Expected<Document> document = Document::parse(textOf(key));
    if (!document)
    {
        return document.error();
    }
    if (const Expected<void> added = document->addPublicKey(); !added)
    {
        return added.error();
    }
    return std::string{document->view()};
}

} // namespace bmcoauth::tool
