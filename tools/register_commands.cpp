// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"
#include "handshake.hpp"

#include <deque>

namespace bmcoauth::tool
{

namespace
{

using JwkPtr = std::unique_ptr<jwk, decltype([](jwk* record) { free_jwk(&record); })>;
using RegisterRequestPtr = std::unique_ptr<RegisterRequest, Releaser<free_register_request>>;
using RegisterResponsePtr = std::unique_ptr<RegisterResponse, Releaser<free_register_response>>;
using OidcResponsePtr =
    std::unique_ptr<OidcRegisterResponse, Releaser<free_oidc_register_response>>;

/** Certificate keys in a list for the library. */
class CertificateKeys
{
public:
    explicit CertificateKeys(const std::vector<std::string>& paths)
    {
        for (const std::string& path : paths)
        {
            array.add(keys.emplace_back(path).get());
        }
    }

    [[nodiscard]] HandshakePayload** data()
    {
        return array.data();
    }

private:
    std::deque<CertificateKey> keys;
    NullEnded<HandshakePayload*> array;
};

// -------------------------------------------------------------------------------------- request

struct RequestOptions
{
    std::vector<std::string> redirectUris;
    std::string clientName;
    std::string softwareId;
    std::vector<std::string> handshakeTypes;
    std::vector<std::string> certificates;
    std::vector<std::string> secrets;
    std::string challenge;
};

void writeRequest(const RequestOptions& options)
{
    std::vector<JwkPtr> secretOwners;
    NullEnded<jwk*> secrets;
    for (const std::string& path : options.secrets)
    {
        const std::string bytes = readBytes(path);
        JwkPtr& key = secretOwners.emplace_back(encode_dfs_jwk(
            reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size())));
        if (!key || bytes.empty())
        {
            throw Stop{Exit::invalid, nameOf(path) + " holds no secret"};
        }
        secrets.add(key.get());
    }
    TextList redirectUris{options.redirectUris};
    TextList types{options.handshakeTypes};
    CertificateKeys certificates{options.certificates};
    const PayloadPtr challenge =
        options.challenge.empty() ? nullptr : readPayload(options.challenge, challengeMember);
    const RegisterRequestPtr request{create_register_request(
        redirectUris.data(), options.clientName.c_str(), options.softwareId.c_str(), secrets.data(),
        certificates.data(), types.data(), challenge.get())};
    print(orStop(write_register_request(request.get()), "the request could not be written").get());
}

// ------------------------------------------------------------------------------------- response

struct ResponseOptions
{
    std::string path = "-";
    std::uint32_t mode = 3;
    std::uint32_t lifetimeSeconds = 0;
    std::vector<std::string> grantTypes;
    std::vector<std::string> policyTypes;
    std::vector<std::string> requiredPolicies;
    std::vector<std::string> certificates;
    std::string handshakeResponse;
    std::string sealed;
};

RegisterRequestPtr readRequest(const std::string& path)
{
    RegisterRequestPtr request{parse_register_request(readText(path).c_str())};
    if (!request)
    {
        throw Stop{Exit::invalid,
                   nameOf(path) + " is not a register request: it needs an array redirect_uri and "
                                  "the strings client_name and software_id"};
    }
    return request;
}

void answerRequest(const ResponseOptions& options)
{
    const RegisterRequestPtr request = readRequest(options.path);
    std::vector<std::string> types;
    for (char** type = request->handshake_types; type != nullptr && *type != nullptr; ++type)
    {
        types.emplace_back(*type);
    }
    const PayloadPtr challenge = serverChallenge(types, options.mode);
    const PayloadPtr answer = options.handshakeResponse.empty()
                                  ? nullptr
                                  : readPayload(options.handshakeResponse, "handshake_response");
    const std::string cryptex =
        options.sealed.empty() ? "" : SealedDocument{options.sealed}.ciphertext;
    TextList grantTypes{options.grantTypes};
    TextList policyTypes{options.policyTypes};
    TextList requiredPolicies{options.requiredPolicies};
    CertificateKeys certificates{options.certificates};
    const RegisterResponsePtr settings{configure_reg_response(
        std::to_string(options.lifetimeSeconds).c_str(), grantTypes.data(), nullptr,
        policyTypes.data(), requiredPolicies.data(), challenge.get(), answer.get(),
        options.sealed.empty() ? nullptr : cryptex.c_str(), certificates.data())};
    const RegisterResponsePtr response{settings ? register_client(request.get(), settings.get())
                                                : nullptr};
    print(orStop(write_register_response(response.get()), "the response could not be made").get());
}

// --------------------------------------------------------------------------------------- answer

struct AnswerOptions
{
    std::string path = "-";
};

void readAnswer(const AnswerOptions& options)
{
    const OidcResponsePtr answer{parse_oidc_register_response(readText(options.path).c_str())};
    if (!answer)
    {
        throw Stop{Exit::invalid, nameOf(options.path) +
                                      " is not the answer of a registration endpoint: it needs "
                                      "the string client_id and, beside a client_secret, the "
                                      "number client_secret_expires_at"};
    }
    Json::Value fields{Json::objectValue};
    const auto add = [&](const char* name, const char* text) {
        if (text != nullptr)
        {
            fields[name] = text;
        }
    };
    add("client_id", answer->client_id);
    add("client_secret", answer->client_secret);
    add("registration_access_token", answer->registration_access_token);
    add("registration_client_uri", answer->registration_client_uri);
    add("client_id_issued_at", answer->client_id_issued_at);
    add("client_secret_expires_at", answer->client_secret_expires_at);
    printJson(fields);
}

} // namespace

void addRegisterCommands(const Command& root)
{
    const Command group = root.group("register", "Register clients");

    const Command requestVerb = group.verb(
        "request", "Write a client's register request",
        "register request --redirect-uri https://client/cb --client-name tool --software-id t-1 "
        "--handshake-type otp1.0");
    RequestOptions& request = requestVerb.runs(writeRequest);
    requestVerb.required("--redirect-uri", request.redirectUris,
                         "Redirection URI; may be given again");
    requestVerb.required("--client-name", request.clientName, "Name of the client");
    requestVerb.required("--software-id", request.softwareId, "Identifier of its software");
    requestVerb.option("--handshake-type", request.handshakeTypes,
                       "Handshake type that it supports; may be given again");
    requestVerb.option("--certificate", request.certificates,
                       "Its certificate: PEM chain or certificate key; may be given again");
    requestVerb.option("--dfs", request.secrets,
                       "File with the bytes of a shared secret; may be given again");
    requestVerb.option("--challenge", request.challenge,
                       "The client's own challenge (handshake challenge --client)");

    const Command responseVerb = group.verb(
        "response", "Answer a register request with a challenge and fresh credentials",
        "register response --mode 3 --expires-in 86400 request.json",
        "The challenge asks for a proof by the handshake_types of the request: mode 1 for the "
        "certificate,\n2 for a one-time password, 3 for both.");
    ResponseOptions& response = responseVerb.runs(answerRequest);
    responseVerb.option("FILE", response.path, "Register request");
    responseVerb.number("--mode", response.mode, "1, 2 or 3 (default 3)", 1, 3);
    responseVerb.number("--expires-in", response.lifetimeSeconds,
                        "Lifetime of the secret in seconds; 0, the default, for no end");
    responseVerb.option("--grant-type", response.grantTypes, "Grant type; may be given again");
    responseVerb.option("--policy-type", response.policyTypes,
                        "Policy authorization offered; may be given again");
    responseVerb.option("--policy-req", response.requiredPolicies,
                        "Policy authorization required; may be given again");
    responseVerb.option("--certificate", response.certificates,
                        "The server's certificate: PEM chain or certificate key");
    responseVerb.option("--handshake-response", response.handshakeResponse,
                        "The server's answer to the client's challenge");
    responseVerb.option("--sealed", response.sealed,
                        "What ecies seal printed: its ciphertext becomes ssl_cert_cryptex");

    const Command answerVerb = group.verb(
        "answer", "Read the answer of an OpenID Connect registration endpoint, print its fields",
        "register answer answer.json");
    AnswerOptions& answer = answerVerb.runs(readAnswer);
    answerVerb.option("FILE", answer.path, "Answer document");
}

} // namespace bmcoauth::tool
