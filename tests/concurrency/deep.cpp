// SPDX-License-Identifier: Apache-2.0
#include "deep.hpp"

#include "support/hostile.hpp"

#include <json/value.h>

#include <algorithm>
#include <iterator>

namespace calls
{

namespace
{

std::string tokenOf(const std::string& payload)
{
    return support::base64Url(R"({"alg":"ES256","typ":"JWT"})") + "." +
           support::base64Url(payload) + ".AAAA";
}

/** Reads @p text, gives the tree to @p use, and destroys it. */
template <typename Use>
void withTree(const std::string& text, const Use& use)
{
    Json::Value tree;
    if (loadJsonDoc(text.c_str(), tree))
    {
        use(tree);
    }
}

/** Has @p change alter a heap copy of @p text. */
template <typename Change>
void change(const std::string& text, const Change& change)
{
    char* document = support::heapText(text).release();
    change(&document);
    const HeapText owned{document};
}

std::vector<TextReader> documentReaders()
{
    return {
        {"loadJsonDoc",
         [](const std::string& text) {
             withTree(text, [](Json::Value&) {});
         }},
        {"json_fastWriter",
         [](const std::string& text) {
             withTree(text, [](const Json::Value& tree) { json_fastWriter(tree); });
         }},
        {"update",
         [](const std::string& text) {
             withTree(text, [&](Json::Value& tree) {
                 withTree(text, [&](Json::Value& other) { update(tree, other); });
             });
         }},
        {"json_to_obj",
         [](const std::string& text) {
             withTree(text, [](Json::Value& tree) {
                 char* found = nullptr;
                 json_to_obj(tree, "xidp", &found);
                 const HeapText owned{found};
             });
         }},
        {"get_value_objarray",
         [](const std::string& text) {
             char** found = nullptr;
             get_value_objarray((R"({"list":[)" + text + "]}").c_str(), "list", &found);
             const StringArray owned{found};
         }},
        {"set_value_char",
         [](const std::string& text) {
             change(text, [](char** document) { set_value_char(document, "a", "b"); });
         }},
        {"merge_doc",
         [](const std::string& text) {
             change(text, [&](char** document) { merge_doc(document, text.c_str()); });
         }},
        {"getKeyNames",
         [](const std::string& text) {
             char** names = nullptr;
             getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names);
             const StringArray owned{names};
         }},
        {"parse_handshake_payload",
         [](const std::string& text) {
             const PayloadPtr read{parse_handshake_payload(text.c_str())};
         }},
        {"parse_register_request",
         [](const std::string& text) {
             const RegisterRequestPtr read{parse_register_request(text.c_str())};
         }},
        {"client_authorize",
         [](const std::string& text) {
             const HeapText answer{client_authorize(text.c_str())};
         }},
        {"oauth2_parse_jwk",
         [](const std::string& text) {
             jwk* key = oauth2_parse_jwk(text.c_str());
             free_jwk(&key);
         }},
        {"appendPublicKey",
         [](const std::string& text) {
             // With a key beside what is nested, since nothing else is written again.
             const std::string key =
                 R"({"crv":"P-256","kty":"EC","x":"MKBCTNIcKUSDii11ySs3526iDZ8AiTo7Tu6KPAqv7D4",)"
                 R"("y":"4Etl6SRW2YiLUrN5vfvVHuhp7x8PxltmWWlbbM4IFyM",)";
             change(key + text.substr(1), [](char** document) { appendPublicKey(document); });
         }},
    };
}

std::vector<TextReader> tokenReaders(Inputs& inputs)
{
    return {
        {"get_jwt_payload",
         [](const std::string& text) {
             JWTPayload* payload = nullptr;
             get_jwt_payload(tokenOf(text).c_str(), &payload);
             const TokenPtr owned{payload};
         }},
        {"validateJWT",
         [&](const std::string& text) {
             JWTHeader* header = nullptr;
             JWTPayload* payload = nullptr;
             validateJWT(tokenOf(text).c_str(), bytesOf(inputs.world.deviceKey),
                         lengthOf(inputs.world.deviceKey), &header, &payload);
             const HeaderPtr headerOwner{header};
             const TokenPtr payloadOwner{payload};
         }},
        {"validateJWT_Delegated",
         [&](const std::string& text) {
             JWTHeader* header = nullptr;
             JWTPayload* payload = nullptr;
             int verified = 0;
             std::vector<const char*> trusted{text.c_str(), inputs.world.publicKey.c_str(),
                                              nullptr};
             validateJWT_Delegated(tokenOf(text).c_str(), trusted.data(), 0, &header, &payload, 0,
                                   nullptr, nullptr, &verified);
             const HeaderPtr headerOwner{header};
             const TokenPtr payloadOwner{payload};
         }},
        {"get_xidp_privileges",
         [](const std::string& text) {
             std::string claim = text;
             JWTPayload payload{};
             payload.xidp = claim.data();
             get_xidp_privileges(&payload, nullptr);
         }},
        {"generateHandshakeResponse",
         [&](const std::string& text) {
             HandshakePayload* response = nullptr;
             HandshakePayload* certificate = inputs.device;
             generateHandshakeResponse(inputs.challenge, text.c_str(),
                                       static_cast<unsigned int>(text.size()), &certificate,
                                       &response, bytesOf(inputs.world.deviceKey),
                                       static_cast<unsigned int>(inputs.world.deviceKey.size()));
             const PayloadPtr owned{response};
         }},
    };
}

} // namespace

std::vector<TextReader> readers(Inputs& inputs)
{
    std::vector<TextReader> all = documentReaders();
    std::ranges::move(tokenReaders(inputs), std::back_inserter(all));
    return all;
}

std::string nestedObjects(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
    {
        text += R"({"xidp":)";
    }
    return text + "[1.5]" + std::string(static_cast<std::size_t>(depth), '}');
}

std::string nestedArrays(int depth)
{
    std::string text = support::nestedMember("scope", depth);
    return text.insert(text.find(']'), "/*c*/ 1.5");
}

std::vector<std::string> longChain(const support::Identity& root, int count)
{
    std::vector<std::string> bodies{""};
    support::CertificatePlan plan{.commonName = "0", .group = "secp521r1", .authority = true};
    support::Identity issuer = root.issue(plan);
    bodies.push_back(issuer.body());
    for (int i = 1; i < count; ++i)
    {
        plan.commonName = std::to_string(i);
        plan.group = i % 2 == 0 ? "secp521r1" : "RSA";
        issuer = issuer.issue(plan);
        bodies.push_back(issuer.body());
    }
    bodies.push_back(issuer.issue({}).body());
    return bodies;
}

std::string largestRsaToken(const std::string& algorithm)
{
    return support::base64Url(R"({"alg":")" + algorithm + R"("})") + ".e30." +
           support::base64Url(std::string(2048, '\x7f'));
}

HeapText largestRsaKey()
{
    return HeapText{
        createRsaPublicKey(support::base64Url(std::string(2048, '\xff')).c_str(), "AQAB")};
}

} // namespace calls
