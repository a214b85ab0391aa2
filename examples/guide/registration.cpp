// SPDX-License-Identifier: Apache-2.0
//
// A client registers and proves with a one-time password who it is; both sides in one program.
#include "owners.hpp"

#include <json/value.h>

#include <iostream>
#include <utility>

namespace
{

// [request]
/** The client: it asks to be registered. */
Text registerRequest()
{
    char uri[] = "https://client.example/callback";
    char* uris[] = {uri, nullptr};
    char otp[] = "otp1.0";
    char* types[] = {otp, nullptr};
    const std::unique_ptr<RegisterRequest, Releaser<free_register_request>> request{
        create_register_request(uris, "demo client", "demo-1", nullptr, nullptr, types, nullptr)};
    return Text{request ? write_register_request(request.get()) : nullptr};
}
// [request]

// [answer]
/** The controller: fresh credentials and a challenge. The challenge is kept for the check. */
Text registerResponse(const char* text, Payload& kept)
{
    const std::unique_ptr<RegisterRequest, Releaser<free_register_request>> request{
        parse_register_request(text)};
    HandshakePayload* challenge = nullptr;
    if (!request || generateServerHandshakeChallenge(request->handshake_types, 2, &challenge) != 1)
    {
        return nullptr;
    }
    kept.reset(challenge);
    using Response = std::unique_ptr<RegisterResponse, Releaser<free_register_response>>;
    const Response settings{configure_reg_response("86400", nullptr, nullptr, nullptr, nullptr,
                                                   challenge, nullptr, nullptr, nullptr)};
    const Response response{register_client(request.get(), settings.get())};
    return Text{response ? write_register_response(response.get()) : nullptr};
}
// [answer]

// [prove]
/** The client: the proofs that the response asks for. */
Text proofs(const char* response, const std::string& secrets)
{
    // parse_register_response reads nothing for anybody: take the member that is needed.
    Json::Value document;
    char* text = nullptr;
    if (!loadJsonDoc(response, document) ||
        json_to_obj(document, "handshake_challenge", &text) != 1)
    {
        return nullptr;
    }
    const Text owned{text};
    const Payload challenge{parse_handshake_payload(text)};
    HandshakePayload* certificate = nullptr;
    HandshakePayload* made = nullptr;
    if (!generateHandshakeResponse(challenge.get(), secrets.c_str(),
                                   static_cast<unsigned int>(secrets.size()), &certificate, &made,
                                   nullptr, 0))
    {
        return nullptr;
    }
    const Payload answer{made};
    return Text{write_handshake_payload(made)};
}
// [prove]

// [check]
/** The number of values of a parameter. */
std::size_t count(HandshakePayload* payload, const char* name)
{
    char** values = nullptr;
    getChallengeValueArray(payload, name, &values);
    const StringArray owned{values};
    std::size_t number = 0;
    while (values != nullptr && values[number] != nullptr)
    {
        ++number;
    }
    return number;
}

/** The controller: whether the client has proved all that was asked for. Once only: the service
 *  forgets the challenge, whatever the answer. */
bool proved(const char* text, Payload challenge, const std::string& secrets)
{
    const Payload answer{parse_handshake_payload(text)};
    HandshakePayload* certificate = nullptr;
    return count(challenge.get(), "T") == count(answer.get(), "R") &&
           validateHandshakeResponse(challenge.get(), secrets.c_str(),
                                     static_cast<unsigned int>(secrets.size()), &certificate,
                                     answer.get());
}
// [check]

} // namespace

int main()
{
    // Both sides have got the secrets beforehand.
    char* made = nullptr;
    if (generateKeyTool("otp", 1, 3, 16, &made) != 1)
    {
        return EXIT_FAILURE;
    }
    const Text document{made};
    const std::string secrets{made};

    const Text request = registerRequest();
    if (!request)
    {
        return EXIT_FAILURE;
    }
    std::cout << "request: " << request.get() << '\n';
    Payload challenge;
    const Text response = registerResponse(request.get(), challenge);
    if (!response)
    {
        return EXIT_FAILURE;
    }
    std::cout << "response: " << response.get() << '\n';
    const Text answer = proofs(response.get(), secrets);
    if (!answer)
    {
        return EXIT_FAILURE;
    }
    std::cout << "proofs: " << answer.get() << '\n';
    const bool accepted = proved(answer.get(), std::move(challenge), secrets);
    std::cout << (accepted ? "accepted" : "refused") << '\n';
    return accepted ? EXIT_SUCCESS : EXIT_FAILURE;
}
