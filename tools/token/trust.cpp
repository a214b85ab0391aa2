// SPDX-License-Identifier: Apache-2.0
#include "token/trust.hpp"

#include "cli/command.hpp"
#include "cli/refusal.hpp"
#include "key/jwks.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

/** The keys in the file @p path that can be used. */
std::vector<std::string> keysIn(const std::string& path)
{
    std::string text = readText(path);
    const std::optional<Json::Value> document = parsedObject(text);
    if (!document)
    {
        if (text.find("PUBLIC KEY-----") == std::string::npos)
        {
            throw Stop{Exit::invalid, nameOf(path) + " holds neither a public key in PEM form nor "
                                                     "JSON Web Keys"};
        }
        return {std::move(text)};
    }
    const std::vector<Json::Value> given = keysOf(*document);
    std::vector<std::string> usable;
    std::optional<Error> refusal;
    for (const Json::Value& key : given)
    {
        Expected<std::string> imported = importedKey(key);
        if (imported)
        {
            usable.push_back(std::move(*imported));
        }
        else
        {
            refusal = imported.error();
        }
    }
    const std::string none = nameOf(path) + " holds no JSON Web Key that can be imported";
    if (given.empty())
    {
        throw Stop{Exit::invalid, none};
    }
    if (usable.empty() && refusal)
    {
        refuse(none, reasonOf(*refusal));
    }
    return usable;
}

Verdict judge(const std::string& token, TextSpan keys, const DelegationRules& rules)
{
    return validateDelegatedToken(token, orStop(TrustedKeys::of(keys), "the keys are refused"),
                                  rules);
}

} // namespace

std::vector<std::string> trustedKeys(const std::vector<std::string>& paths)
{
    std::vector<std::string> keys;
    for (const std::string& path : paths)
    {
        std::ranges::move(keysIn(path), std::back_inserter(keys));
    }
    return keys;
}

Verdict judgeByAll(const std::string& token, const std::vector<std::string>& keys,
                   const DelegationRules& rules)
{
    const std::vector<std::string_view> all = viewsOf(keys);
    for (const std::string_view& key : all)
    {
        Verdict verdict = judge(token, {&key, 1}, rules);
        if (verdict.hasTrustedSignature())
        {
            return verdict;
        }
    }
    // No key verifies: the refusal for all of them together says more.
    return judge(token, all, rules);
}

} // namespace bmcoauth::tool
