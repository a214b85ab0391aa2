// SPDX-License-Identifier: Apache-2.0
#include "token/tokens.hpp"

#include "cli/command.hpp"
#include "cli/documents.hpp"

namespace bmcoauth::tool
{

std::string readToken(const std::string& path)
{
    std::string text = readWord(path);
    if (const Expected<Document> document = Document::parse(text))
    {
        if (const Expected<Text> token = document->string("access_token"))
        {
            return std::string{token->view()};
        }
    }
    if (text.empty())
    {
        throw Stop{Exit::invalid, nameOf(path) + " holds no token"};
    }
    return text;
}

std::optional<TokenParts> partsOf(const std::string& token)
{
    const std::size_t first = token.find('.');
    const std::size_t second = first == std::string::npos ? first : token.find('.', first + 1);
    if (second == std::string::npos)
    {
        return std::nullopt;
    }
    return TokenParts{token.substr(0, first), token.substr(first + 1, second - first - 1),
                      token.substr(second + 1)};
}

Json::Value decodePart(const std::string& part, const std::string& name)
{
    const Bytes bytes = orStop(decodeBase64Url(part),
                               "the " + name + " of the token is not Base64url", Exit::invalid);
    std::optional<Json::Value> tree = parsedObject(bytes.view());
    if (!tree)
    {
        throw Stop{Exit::invalid, "the " + name + " of the token is not a JSON object"};
    }
    return std::move(*tree);
}

Json::Value claimsOf(const std::string& token)
{
    return decodePart(partsOf(token)->payload, "payload");
}

} // namespace bmcoauth::tool
