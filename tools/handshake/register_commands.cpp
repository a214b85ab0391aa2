// SPDX-License-Identifier: Apache-2.0
#include "certificate/certificate_key.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "document/parameters.hpp"
#include "envelope/sealed_document.hpp"
#include "handshake/challenge.hpp"

#include <optional>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

/** The certificate keys in the files @p paths. */
std::optional<CertificateKeyList> readCertificateKeys(const std::vector<std::string>& paths)
{
    if (paths.empty())
    {
        return std::nullopt;
    }
    std::vector<CertificateKey> keys;
    keys.reserve(paths.size());
    for (const std::string& path : paths)
    {
        keys.push_back(readCertificateKey(path));
    }
    return orStop(CertificateKeyList::of(keys), "the certificate keys are refused", Exit::invalid);
}

/** The shared secrets in the files @p paths. */
std::optional<KeyList> readSharedSecrets(const std::vector<std::string>& paths)
{
    if (paths.empty())
    {
        return std::nullopt;
    }
    std::vector<KeyRecord> keys;
    keys.reserve(paths.size());
    for (const std::string& path : paths)
    {
        const std::string bytes = readBytes(path);
        const std::string none = nameOf(path) + " holds no secret";
        if (bytes.empty())
        {
            throw Stop{Exit::invalid, none};
        }
        keys.push_back(orStop(KeyRecord::sharedSecret(bytesOf(bytes)), none, Exit::invalid));
    }
    return orStop(KeyList::of(keys), "the secrets could not be copied");
}

/** The list of parameters @p member in the file @p path, where one is given. It can be copied: a
 *  parameter without a value, such as a number, no document of ours carries. */
std::optional<ParameterList> readIfGiven(const std::string& path, const char* member)
{
    if (path.empty())
    {
        return std::nullopt;
    }
    return orStop(readParameters(path, member).copy(),
                  "the parameters in " + nameOf(path) + " are refused", Exit::invalid);
}

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
    const std::vector<std::string_view> redirectUris = viewsOf(options.redirectUris);
    const std::vector<std::string_view> types = viewsOf(options.handshakeTypes);
    const auto secrets = readSharedSecrets(options.secrets);
    const auto certificates = readCertificateKeys(options.certificates);
    const auto challenge = readIfGiven(options.challenge, challengeMember);
    const char* const failed = "the request could not be written";
    const RegistrationRequest request =
        orStop(RegistrationRequest::of({.redirectUri = redirectUris,
                                        .clientName = options.clientName,
                                        .softwareId = options.softwareId,
                                        .handshakeTypes = types,
                                        .keys = pointerTo(secrets),
                                        .certificates = pointerTo(certificates),
                                        .challenge = pointerTo(challenge)}),
               failed);
    print(orStop(request.write(), failed));
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

RegistrationRequest readRequest(const std::string& path)
{
    return orStop(RegistrationRequest::parse(readText(path)),
                  nameOf(path) + " is not a register request", Exit::invalid);
}

void answerRequest(const ResponseOptions& options)
{
    const RegistrationRequest request = readRequest(options.path);
    const std::vector<std::string> types = copiesOf(request.handshakeTypes());
    const ParameterList challenge = challengeFor(viewsOf(types), options.mode);
    const auto answer = readIfGiven(options.handshakeResponse, responseMember);
    const std::string cryptex =
        options.sealed.empty() ? "" : SealedDocument{options.sealed}.ciphertext;
    const std::vector<std::string_view> grantTypes = viewsOf(options.grantTypes);
    const std::vector<std::string_view> offered = viewsOf(options.policyTypes);
    const std::vector<std::string_view> required = viewsOf(options.requiredPolicies);
    const auto certificates = readCertificateKeys(options.certificates);
    const char* const failed = "the response could not be made";
    RegistrationResponseParts parts{.secretLifetimeSeconds = options.lifetimeSeconds,
                                    .grantTypes = grantTypes,
                                    .policiesOffered = offered,
                                    .policiesRequired = required,
                                    .challenge = &challenge,
                                    .response = pointerTo(answer),
                                    .certificates = pointerTo(certificates)};
    if (!options.sealed.empty())
    {
        parts.sealedCertificate = cryptex;
    }
    const RegistrationResponse response =
        orStop(RegistrationResponse::answer(request, parts), failed);
    print(orStop(response.write(), failed));
}

// --------------------------------------------------------------------------------------- answer

struct AnswerOptions
{
    std::string path = "-";
};

void readAnswer(const AnswerOptions& options)
{
    const OidcRegistration answer = orStop(
        OidcRegistration::parse(readText(options.path)),
        nameOf(options.path) + " is not the answer of a registration endpoint", Exit::invalid);
    Json::Value fields{Json::objectValue};
    const auto add = [&](const char* name, std::optional<std::string_view> text) {
        if (text)
        {
            fields[name] = std::string{*text};
        }
    };
    add("client_id", answer.clientId());
    add("client_secret", answer.clientSecret());
    add("registration_access_token", answer.accessToken());
    add("registration_client_uri", answer.clientUri());
    add("client_id_issued_at", answer.issuedAt());
    add("client_secret_expires_at", answer.secretExpiresAt());
    printJson(fields);
}

} // namespace

void addRegisterCommands(const Command& root)
{
    const Command group = root.group("register", "Registration of clients");

    const Command requestVerb = group.verb(
        "request", "Write a client's register request",
        "register request --redirect-uri https://client/cb --client-name tool --software-id t-1 "
        "--handshake-type otp1.0");
    RequestOptions& request = requestVerb.runs(writeRequest);
    requestVerb.required("--redirect-uri URI", request.redirectUris, "Redirection URI");
    requestVerb.required("--client-name NAME", request.clientName, "Name of the client");
    requestVerb.required("--software-id ID", request.softwareId, "Identifier of its software");
    requestVerb.option("--handshake-type TYPE", request.handshakeTypes,
                       "Handshake type that it supports");
    requestVerb.option("--certificate FILE", request.certificates,
                       "Its certificate: PEM chain or certificate key");
    requestVerb.option("--dfs FILE", request.secrets, "File with the bytes of a shared secret");
    requestVerb.option("--challenge FILE", request.challenge,
                       "The client's own challenge (handshake challenge --client)");

    const Command responseVerb = group.verb(
        "response", "Answer a register request with a challenge and fresh credentials",
        "register response --mode 3 --expires-in 86400 request.json",
        "The challenge asks for a proof by the handshake_types of the request: mode 1 for the "
        "certificate, 2 for a one-time password, 3 for both.");
    ResponseOptions& response = responseVerb.runs(answerRequest);
    responseVerb.option("FILE", response.path, "Register request");
    responseVerb.number("--mode 1|2|3", response.mode, "Proofs to ask for (default 3)", 1, 3);
    responseVerb.number("--expires-in SECONDS", response.lifetimeSeconds,
                        "Lifetime of the secret (default 0: no end)");
    responseVerb.option("--grant-type TYPE", response.grantTypes, "Grant type");
    responseVerb.option("--policy-type TYPE", response.policyTypes, "Policy authorization offered");
    responseVerb.option("--policy-req TYPE", response.requiredPolicies,
                        "Policy authorization required");
    responseVerb.option("--certificate FILE", response.certificates,
                        "The server's certificate: PEM chain or certificate key");
    responseVerb.option("--handshake-response FILE", response.handshakeResponse,
                        "The server's answer to the client's challenge");
    responseVerb.option("--sealed FILE", response.sealed,
                        "Output of ecies seal: its ciphertext becomes ssl_cert_cryptex");

    const Command answerVerb =
        group.verb("answer", "Print the fields of an OpenID Connect registration endpoint's answer",
                   "register answer answer.json");
    AnswerOptions& answer = answerVerb.runs(readAnswer);
    answerVerb.option("FILE", answer.path, "Answer document");
}

} // namespace bmcoauth::tool
