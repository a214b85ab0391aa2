// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"

#include <openssl/ec.h>

#include <algorithm>
#include <cstring>

namespace calls
{

namespace
{

std::string namesIn(char* document)
{
    const HeapText owned{document};
    char** names = nullptr;
    getKeyNames(document, static_cast<unsigned int>(std::strlen(document)), &names);
    return taken(names);
}

unsigned int sizeOf(const std::string& text)
{
    return static_cast<unsigned int>(text.size());
}

/** The names of the parameters in a list that the library made. */
std::string namesOf(HandshakePayload* list)
{
    const PayloadPtr owned{list};
    std::string names;
    for (const auto& [name, values] : support::parameters(list))
    {
        names += name;
    }
    return names;
}

/** The device's answer to the challenge of the inputs. */
PayloadPtr answer(Inputs& in)
{
    HandshakePayload* response = nullptr;
    generateHandshakeResponse(in.challenge, in.secrets.c_str(), sizeOf(in.secrets), &in.device,
                              &response, bytesOf(in.world.deviceKey), sizeOf(in.world.deviceKey));
    return PayloadPtr{response};
}

std::string firstProof(HandshakePayload* response)
{
    char** raw = nullptr;
    const bool found = getChallengeValueArray(response, "R", &raw);
    const support::StringArray proofs{raw};
    return found ? proofs.get()[0] : "none";
}

} // namespace

std::vector<Call> registrationCalls()
{
    return {
        {{"create_register_request", "free_register_request", "write_register_request"},
         "client_name,handshake_challenge,handshake_types,jwks,redirect_uri,software_id",
         [](Inputs& in) {
             return namesIn(write_register_request(in.registerRequest.get()));
         }},
        {{"parse_register_request"},
         "console",
         [](Inputs&) {
             const RegisterRequestPtr request{parse_register_request(
                 R"({"client_name":"console","redirect_uri":["u"],"software_id":"i"})")};
             return support::orNull(request->client_name);
         }},
        {{"client_register"},
         "(null)",
         [](Inputs& in) {
             const HeapText request{write_register_request(in.registerRequest.get())};
             return taken(client_register(request.get()));
         }},
        {{"create_register_response", "free_register_response", "write_register_response"},
         R"({"client_id":"id","client_secret":"secret","client_secret_expires_in":"0",)"
         R"("handshake_challenge":{"C":"1","M":"7","T":["hotp-1.0","software_id_cert-1.0"],)"
         R"("V":"nonce"},"kest_policy_auth_req":[],"kest_policy_auth_types":["one","two"]})",
         [](Inputs& in) {
             const RegisterResponsePtr response{
                 create_register_response("secret", "id", "0", nullptr, nullptr, in.texts, nullptr,
                                          in.challenge, nullptr, nullptr, nullptr)};
             return taken(write_register_response(response.get()));
         }},
        {{"parse_register_response"},
         "null",
         [](Inputs&) -> std::string {
             return parse_register_response("{}") == nullptr ? "null" : "a record";
         }},
        {{"configure_reg_response"},
         "0 one,two",
         [](Inputs& in) {
             const RegisterResponsePtr made{configure_reg_response(
                 "0", in.texts, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)};
             return made->client_secret_expires_in + std::string{" "} + show(made->grant_types);
         }},
        {{"register_client"},
         "24 one,two",
         [](Inputs& in) {
             const RegisterResponsePtr response{
                 register_client(in.registerRequest.get(), in.registerTemplate.get())};
             return std::to_string(std::strlen(response->client_id)) + " " +
                    show(response->grant_types);
         }},
        {{"parse_oidc_register_response", "free_oidc_register_response"},
         "id 0",
         [](Inputs&) {
             const std::unique_ptr<OidcRegisterResponse, Releaser<free_oidc_register_response>>
                 answered{parse_oidc_register_response(R"({"client_id":"id"})")};
             return answered->client_id + std::string{" "} + answered->client_secret_expires_at;
         }},

        {{"compareSoftwareCertTag"},
         "yes",
         [](Inputs&) {
             return show(compareSoftwareCertTag("software_id_cert-1.0"));
         }},
        // Zero is drawn less often than once in four thousand million times.
        {{"genRandHexValue"},
         "yes",
         [](Inputs&) {
             return show(genRandHexValue() != 0);
         }},
        {{"_do_random"},
         "yes",
         [](Inputs&) {
             return show(_do_random() != 0);
         }},
        {{"generateServerHandshakeChallenge"},
         "TMCV",
         [](Inputs& in) {
             HandshakePayload* challenge = nullptr;
             generateServerHandshakeChallenge(in.types, 3, &challenge);
             return namesOf(challenge);
         }},
        {{"generateClientHandshakeChallenge"},
         R"({"T":["hotp-1.0","hotp-1.0"]})",
         [](Inputs& in) {
             HandshakePayload* challenge = nullptr;
             generateClientHandshakeChallenge(in.types, 2, &challenge);
             return written(PayloadPtr{challenge}.get());
         }},
        {{"generateKeyTool"},
         "hotp-1.0,hotp-2.0",
         [](Inputs&) {
             char* document = nullptr;
             generateKeyTool("hotp-", 2, 3, 20, &document);
             return namesIn(document);
         }},
        // The one-time password is that of RFC 4226, appendix D, for count 1, with 8 digits.
        {{"generateHandshakeResponse"},
         "94287082",
         [](Inputs& in) {
             return firstProof(answer(in).get());
         }},
        {{"validateHandshakeResponse"},
         "yes",
         [](Inputs& in) {
             return show(validateHandshakeResponse(in.challenge, in.secrets.c_str(),
                                                   sizeOf(in.secrets), &in.device,
                                                   answer(in).get()));
         }},
        {{"generateHandshakeResponseForChallenge"},
         "94287082",
         [](Inputs& in) {
             HandshakePayload* response = nullptr;
             generateHandshakeResponseForChallenge(
                 in.challenge, in.secrets.c_str(), sizeOf(in.secrets), &in.device, &response,
                 bytesOf(in.world.deviceKey), sizeOf(in.world.deviceKey), 0);
             return firstProof(PayloadPtr{response}.get());
         }},
        {{"appendSSLCertToResponse"},
         R"({"HMAC":"mac","encrypted_sslcert":"sealed","iv":"000102030405060708090A0B0C0D0E0F"})",
         [](Inputs& in) {
             HandshakePayload* response = nullptr;
             appendSSLCertToResponse(&response, "sealed", "mac", in.world.iv.c_str());
             return written(PayloadPtr{response}.get());
         }},
        {{"get_x509_CN"},
         "device",
         [](Inputs& in) {
             return taken(get_x509_CN(in.pem.c_str()));
         }},
        {{"generateSignedResponseValue(std::string const&, ec_key_st*)",
          "verifyHRSignature(std::string const&, char*, unsigned int, ec_key_st*)"},
         "1",
         [](Inputs& in) {
             const HeapText signature{generateSignedResponseValue("text", in.signer.get())};
             return std::to_string(verifyHRSignature(
                 "text", signature.get(), static_cast<unsigned int>(std::strlen(signature.get())),
                 in.signer.get()));
         }},
    };
}

} // namespace calls
