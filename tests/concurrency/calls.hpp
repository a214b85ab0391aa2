// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/certificates.hpp"
#include "support/lists.hpp"
#include "support/machine.hpp"
#include "support/records.hpp"

#include <bmcoauth.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/** What many threads do at once: one call of every exported function, or of a few that belong
 *  together, with arguments that all threads share or that each has for itself. */
namespace calls
{

using support::AuthorizeRequestPtr;
using support::AuthorizeResponsePtr;
using support::HeaderPtr;
using support::HeapBytes;
using support::HeapText;
using support::PayloadPtr;
using support::RegisterRequestPtr;
using support::RegisterResponsePtr;
using support::Releaser;
using support::StringArray;
using support::TextList;
using TokenPtr = support::TokenPayloadPtr;

/** The time at which the clock stands still. */
constexpr std::uint64_t now = 1'800'000'000;

/** The device of the calls, and another one below the same root: made once, never changed. */
struct World
{
    World();

    support::Identity root = support::Identity::root("root");
    support::Identity device = root.issue({});
    support::Identity peer = root.issue({.commonName = "peer"});
    std::string deviceKey = device.privateKeyDer();
    std::string peerKey = peer.privateKeyDer();
    std::string publicKey; /**< the device's, PEM */
    std::string iv = "000102030405060708090A0B0C0D0E0F";
    std::string sealed; /**< "secret", from the device to the peer */
    std::string sealedMac;
    std::string token; /**< signed by the device's key */
    support::TemporaryDirectory directory;
    std::string keyFile = directory / "key";
};

/** A private key of the world in the form of the functions. */
[[nodiscard]] inline const unsigned char* bytesOf(const std::string& der)
{
    return reinterpret_cast<const unsigned char*>(der.data());
}

[[nodiscard]] inline int lengthOf(const std::string& der)
{
    return static_cast<int>(der.size());
}

/** The arguments that no function changes: those of one object may serve all threads. */
struct Inputs
{
    explicit Inputs(const World& surroundings);

    const World& world;
    std::string document = R"({"flag":true,"list":["a","b"],"name":"value",)"
                           R"("number":7,"objects":[{"a":1}]})";
    std::string pem;
    std::string body;
    PayloadPtr certificate;
    PayloadPtr peerCertificate;
    HandshakePayload* device;
    HandshakePayload* peer;
    support::EcKeyPtr signer;
    TextList texts{"one", "two"};
    TextList types{"hotp-1.0", "software_id_cert-1.0"};
    support::ParameterList parameters{{"list", {"a", "b"}}, {"name", {"value"}}};
    support::ParameterList challenge{
        {"C", {"1"}}, {"M", {"7"}}, {"T", {"hotp-1.0", "software_id_cert-1.0"}}, {"V", {"nonce"}}};
    // The secret of RFC 4226, appendix D.
    std::string secrets = R"({"hotp-1.0":["12345678901234567890"]})";
    support::PairList<jwk> key{{"dfs", "c2VjcmV0"}, {"kty", "DFS"}};
    support::PairList<KestPolicyAuth> policy{{"max_age", "60"}};
    std::vector<jwk*> keys{key, nullptr};
    std::vector<HandshakePayload*> certificates;
    HeaderPtr header;
    TokenPtr payload;
    std::vector<const char*> trusted{world.publicKey.c_str(), nullptr};
    std::vector<const char*> providers{"fleet", nullptr};
    std::vector<userRole_s> roles{{"Operator", 6}, {nullptr, 0}};
    AuthorizeRequestPtr authorizeRequest;
    AuthorizeResponsePtr authorizeTemplate;
    RegisterRequestPtr registerRequest;
    RegisterResponsePtr registerTemplate;
};

struct Call
{
    std::vector<std::string> functions;
    std::string expected;
    std::string (*run)(Inputs& inputs);
};

[[nodiscard]] std::vector<Call> documentCalls();
[[nodiscard]] std::vector<Call> keyCalls();
[[nodiscard]] std::vector<Call> tokenCalls();
[[nodiscard]] std::vector<Call> registrationCalls();

/** All of them. */
[[nodiscard]] std::vector<Call> allCalls();

// The outcome of a call as one text.

[[nodiscard]] inline std::string show(const HeapText& text)
{
    return support::orNull(text.get());
}

[[nodiscard]] inline std::string show(const char* const* array)
{
    std::string shown;
    for (const std::string& text : support::texts(array))
    {
        shown += (shown.empty() ? "" : ",") + text;
    }
    return shown;
}

[[nodiscard]] inline std::string show(bool succeeded)
{
    return succeeded ? "yes" : "no";
}

[[nodiscard]] inline std::string taken(char* text)
{
    return show(HeapText{text});
}

[[nodiscard]] inline std::string taken(char** array)
{
    return show(StringArray{array}.get());
}

[[nodiscard]] inline std::string written(HandshakePayload* list)
{
    return taken(write_handshake_payload(list));
}

/** A text whose characters are drawn: its length. */
[[nodiscard]] inline std::string sizeOf(char* text)
{
    const HeapText owned{text};
    return std::to_string(support::orNull(text).size());
}

} // namespace calls
