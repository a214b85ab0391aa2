// SPDX-License-Identifier: Apache-2.0
#include <bmcoauth.h>

#include <json/json.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/* The library's side of the conversation, built from the public headers alone:
 *   interop-peer check TOKEN KEY...    what validateJWT_Delegated makes of a token, as JSON
 *   interop-peer issue ALG SUBJECT     a token, its public key and whether validateJWT takes it */

namespace
{

template <auto Release>
struct Releaser
{
    template <typename T>
    void operator()(T* object) const noexcept
    {
        Release(object);
    }
};

void releaseHeap(void* block) noexcept
{
    std::free(block);
}

using HeapText = std::unique_ptr<char, Releaser<releaseHeap>>;
using HeapBytes = std::unique_ptr<unsigned char, Releaser<releaseHeap>>;
using Header = std::unique_ptr<JWTHeader, Releaser<free_jwt_header>>;
using Payload = std::unique_ptr<JWTPayload, Releaser<free_jwt_payload>>;

int print(const Json::Value& answer)
{
    std::cout << json_fastWriter(answer) << '\n';
    return 0;
}

/** A key as the service stores it: a JWK is completed once, a PEM text stays as it is. */
std::string stored(const char* key)
{
    if (*key != '{')
    {
        return key;
    }
    char* text = strdup(key);
    static_cast<void>(appendPublicKey(&text));
    const HeapText owned{text};
    return owned.get();
}

int check(const char* token, const std::vector<const char*>& given)
{
    std::vector<std::string> keys;
    std::vector<const char*> list;
    keys.reserve(given.size());
    list.reserve(given.size() + 1);
    for (const char* key : given)
    {
        list.push_back(keys.emplace_back(stored(key)).c_str());
    }
    list.push_back(nullptr);
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    Json::Value answer{Json::objectValue};
    answer["verdict"] = validateJWT_Delegated(token, list.data(), 0, &header, &payload, 0, nullptr,
                                              nullptr, &verified);
    answer["verified"] = verified;
    const Header ownedHeader{header};
    const Payload ownedPayload{payload};
    for (int i = 0; payload != nullptr && i < payload->scopes_count; ++i)
    {
        answer[payload->scopes[i].name] = payload->scopes[i].values[0];
    }
    return print(answer);
}

int issue(const char* algorithm, const char* subject)
{
    unsigned char* point = nullptr;
    unsigned char* der = nullptr;
    int pointLength = 0;
    int derLength = 0;
    if (generateECKey(&point, &der, &pointLength, &derLength) == 0)
    {
        return 1;
    }
    const HeapBytes ownedPoint{point};
    const HeapBytes ownedDer{der};
    const Header header{create_jwt_header("JWT", algorithm, "service")};
    const Payload payload{
        create_jwt_payload(subject, "id", "issuer", nullptr, nullptr, "4102444800", nullptr, 0)};
    const HeapText token{generateJWT(header.get(), payload.get(), der, derLength)};
    char* encodedPoint = nullptr;
    if (!token || base64encode(point, &encodedPoint, pointLength) == 0)
    {
        return 1;
    }
    const HeapText ownedEncoding{encodedPoint};
    JWTHeader* readHeader = nullptr;
    JWTPayload* readPayload = nullptr;
    Json::Value answer{Json::objectValue};
    answer["token"] = token.get();
    answer["point"] = encodedPoint;
    answer["verdict"] = validateJWT(token.get(), der, derLength, &readHeader, &readPayload);
    const Header ownedHeader{readHeader};
    const Payload ownedPayload{readPayload};
    return print(answer);
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<const char*> arguments{argv + 1, argv + argc};
    if (arguments.size() >= 3 && std::strcmp(arguments[0], "check") == 0)
    {
        return check(arguments[1], {arguments.begin() + 2, arguments.end()});
    }
    if (arguments.size() == 3 && std::strcmp(arguments[0], "issue") == 0)
    {
        return issue(arguments[1], arguments[2]);
    }
    std::cerr << "usage: interop-peer check TOKEN KEY... | issue ALG SUBJECT\n";
    return 2;
}
