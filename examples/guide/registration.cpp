// SPDX-License-Identifier: Apache-2.0
//
// A client registers and proves with a one-time password who it is; both sides in one program.
#include <bmcoauth.hpp>

#include <json/value.h>

#include <cstdlib>
#include <iostream>
#include <string_view>
#include <utility>

using bmcoauth::Expected;
using bmcoauth::ParameterList;
using bmcoauth::Proofs;
using bmcoauth::RegistrationRequest;
using bmcoauth::RegistrationResponse;
using bmcoauth::Text;

namespace
{

// [request]
/** The client: it asks to be registered. */
Expected<Text> registerRequest()
{
    const std::string_view uris[] = {"https://client.example/callback"};
    const std::string_view types[] = {"otp1.0"};
    return RegistrationRequest::of({.redirectUri = uris,
                                    .clientName = "demo client",
                                    .softwareId = "demo-1",
                                    .handshakeTypes = types})
        .and_then([](const RegistrationRequest& request) { return request.write(); });
}
// [request]

// [answer]
/** The controller: fresh credentials and a challenge. The challenge is kept for the check. */
Expected<Text> registerResponse(std::string_view text, ParameterList& kept)
{
    const Expected<RegistrationRequest> request = RegistrationRequest::parse(text);
    if (!request)
    {
        return request.error();
    }
    Expected<ParameterList> challenge =
        bmcoauth::serverChallengeFor(*request, Proofs::oneTimePassword);
    if (!challenge)
    {
        return challenge.error();
    }
    kept = *std::move(challenge);
    return RegistrationResponse::answer(*request,
                                        {.secretLifetimeSeconds = 86400, .challenge = &kept})
        .and_then([](const RegistrationResponse& response) { return response.write(); });
}
// [answer]

// [prove]
/** The client: the proofs that the response asks for. */
Expected<Text> proofs(std::string_view response, std::string_view secrets)
{
    // There is no function that reads the whole response: take the member that is needed.
    Expected<Json::Value> document = bmcoauth::parseJson(response);
    if (!document)
    {
        return document.error();
    }
    return bmcoauth::readObject(*document, "handshake_challenge")
        .and_then([](const Text& text) { return ParameterList::parse(text); })
        .and_then([&](const ParameterList& challenge) {
            return bmcoauth::respond(challenge, {.secrets = secrets});
        })
        .and_then([](const ParameterList& answer) { return answer.write(); });
}
// [prove]

// [check]
/** The controller: whether the client has proved all that was asked for. Once only: the service
 *  forgets the challenge, whatever the answer. */
bool proved(std::string_view text, ParameterList challenge, std::string_view secrets)
{
    const Expected<ParameterList> answer = ParameterList::parse(text);
    return answer && bmcoauth::isProven(challenge, *answer, secrets, nullptr);
}
// [check]

} // namespace

int main()
{
    // Both sides have got the secrets beforehand.
    const Expected<Text> secrets = bmcoauth::generateSecrets("otp", 1, 3, 16);
    if (!secrets)
    {
        return EXIT_FAILURE;
    }
    const Expected<Text> request = registerRequest();
    if (!request)
    {
        return EXIT_FAILURE;
    }
    std::cout << "request: " << request->view() << '\n';
    ParameterList challenge;
    const Expected<Text> response = registerResponse(*request, challenge);
    if (!response)
    {
        return EXIT_FAILURE;
    }
    std::cout << "response: " << response->view() << '\n';
    const Expected<Text> answer = proofs(*response, *secrets);
    if (!answer)
    {
        return EXIT_FAILURE;
    }
    std::cout << "proofs: " << answer->view() << '\n';
    const bool accepted = proved(*answer, std::move(challenge), *secrets);
    std::cout << (accepted ? "accepted" : "refused") << '\n';
    return accepted ? EXIT_SUCCESS : EXIT_FAILURE;
}
