// SPDX-License-Identifier: Apache-2.0
#include "common/clock.hpp"
#include "common/guard.hpp"
#include "common/text.hpp"
#include "oauth2/oauth-register/key_lists.hpp"
#include "oauth2/oauth-register/records.hpp"

#include <cerrno>

namespace bmcoauth::internal::registration
{

namespace
{

/** The lists of a response: the first parameter without a value ends each of them. */
constexpr ListForm challengeForm{.alwaysArray = "T", .noValue = NoValue::stop};
constexpr ListForm proofsForm{.alwaysArray = "R", .noValue = NoValue::stop};
constexpr ListForm certificateForm{.alwaysArray = "x5c", .noValue = NoValue::stop};

/** Whether @p text begins with a number that a `long` holds and that is not negative. The width of
 *  `long` is the platform's: 32 bits on a controller. */
bool isLifetime(const char* text) noexcept
{
    char* end = nullptr;
    errno = 0;
    const long seconds = std::strtol(text, &end, 10);
    return end != text && errno != ERANGE && seconds >= 0;
}

} // namespace

Response makeResponse(SecretText secret, HeapText id, const ResponseSettings& settings)
{
    if (!secret || !id)
    {
        return nullptr;
    }
    const char* const lifetime = settings.secretExpiresIn;
    if (lifetime == nullptr || !isLifetime(lifetime))
    {
        return refuse(BMCOAUTH_RULE_REGISTRATION_LIFETIME)
            .about("client_secret_expires_in")
            .saw(lifetime);
    }
    const std::optional<std::uint64_t> now = currentSeconds();
    Response response{now ? zeroedBlock<RegisterResponse>(1).release() : nullptr};
    if (!response)
    {
        return nullptr;
    }
    response->client_secret = secret.release();
    response->client_id = id.release();
    response->client_secret_expires_in = copyText(lifetime).release();
    response->issued_at = heapText(decimal(*now)).release();
    response->ssl_cert_cryptex = copyText(settings.sslCertCryptex).release();
    if (response->client_secret_expires_in == nullptr || response->issued_at == nullptr ||
        (settings.sslCertCryptex != nullptr && response->ssl_cert_cryptex == nullptr))
    {
        return nullptr;
    }
    // A list that cannot be copied is absent, as one that was not given.
    response->handshake_challenge = copyParameters(settings.challenge).release();
    response->handshake_response = copyParameters(settings.handshakeResponse).release();
    response->grant_types = copyFilledArray(settings.grantTypes).release();
    response->kest_policy_auth_types = copyFilledArray(settings.policyTypes).release();
    response->kest_policy_auth_req = copyFilledArray(settings.policyRequired).release();
    response->software_id_cert = keys::copyCertificateKeys(settings.certificates).release();
    return response;
}

HeapText writtenResponse(const RegisterResponse& response)
{
    Json::Value document{Json::objectValue};
    setText(document, "client_secret", mandatory(response.client_secret));
    setText(document, "client_id", mandatory(response.client_id));
    setText(document, "client_secret_expires_in", mandatory(response.client_secret_expires_in));
    setText(document, "ssl_cert_cryptex", response.ssl_cert_cryptex);
    if (response.grant_types != nullptr)
    {
        document["grant_types"] = jsonArrayOf(response.grant_types);
    }
    if (response.kest_policy_auth_types != nullptr)
    {
        document["kest_policy_auth_types"] = jsonArrayOf(response.kest_policy_auth_types);
    }
    // Clients look for what is required of them even when that is nothing.
    document["kest_policy_auth_req"] = jsonArrayOf(response.kest_policy_auth_req);

    std::size_t challengeParameters = 0;
    document["handshake_challenge"] =
        objectOf(response.handshake_challenge, challengeForm, &challengeParameters);
    // The types alone challenge nobody.
    if (challengeParameters < 2)
    {
        return refuse(BMCOAUTH_RULE_REGISTRATION_CHALLENGE).about("handshake_challenge");
    }
    if (response.handshake_response != nullptr)
    {
        if (response.handshake_response->name == nullptr)
        {
            return refuse(BMCOAUTH_RULE_DOCUMENT_EMPTY).about("handshake_response");
        }
        document["handshake_response"] = objectOf(response.handshake_response, proofsForm);
    }
    if (response.software_id_cert != nullptr)
    {
        document["software_id_cert"] =
            arrayOfCertificates(response.software_id_cert, certificateForm);
    }
    return heapJsonText(document);
}

namespace
{

/** The strings of the array @p name; null if it is not an array. */
StringArray optionalStrings(const Json::Value& document, const char* name)
{
    const Json::Value* found = member(document, name);
    return found != nullptr && found->isArray() ? stringsOf(*found) : nullptr;
}

ParameterList optionalParameters(const Json::Value& document, const char* name)
{
    const Json::Value* found = member(document, name);
    return found != nullptr && found->isObject() ? parameterListOf(*found, {}) : nullptr;
}

Response readResponse(const char* text)
{
    SecretTree tree;
    if (!parseSecretObject(text, tree))
    {
        return nullptr;
    }
    const Json::Value& document = tree.root;
    const StringArray grantTypes = optionalStrings(document, "grant_types");
    const StringArray policyTypes = optionalStrings(document, "kest_policy_auth_types");
    const StringArray policyRequired = optionalStrings(document, "kest_policy_auth_req");
    const ParameterList challenge = optionalParameters(document, "handshake_challenge");
    const ParameterList handshakeResponse = optionalParameters(document, "handshake_response");
    keys::CertificateKeyList certificates;
    if (!readCertificates(document, "software_id_cert", certificates))
    {
        return nullptr;
    }
    const auto texts =
        stringMembers<3>(document, {"client_secret", "client_id", "client_secret_expires_in"});
    return texts ? makeResponse(secretText(copyText((*texts)[0])), copyText((*texts)[1]),
                                {.secretExpiresIn = (*texts)[2],
                                 .grantTypes = grantTypes.get(),
                                 .policyTypes = policyTypes.get(),
                                 .policyRequired = policyRequired.get(),
                                 .challenge = challenge.get(),
                                 .handshakeResponse = handshakeResponse.get(),
                                 .sslCertCryptex = nullptr,
                                 .certificates = certificates.get()})
                 : nullptr;
}

} // namespace

} // namespace bmcoauth::internal::registration

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::registration;

namespace
{

RegisterResponse* created(const char* secret, const char* id, const ResponseSettings& settings)
{
    if (refusesNull("client_secret client_id client_secret_expires_in", secret, id,
                    settings.secretExpiresIn))
    {
        return refused();
    }
    return guarded([&] {
        return makeResponse(secretText(copyText(secret)), copyText(id), settings).release();
    });
}

} // namespace

extern "C" RegisterResponse*
create_register_response(const char* client_secret, const char* client_id,
                         const char* client_secret_expires_in, char** grant_types,
                         const char* /*unused*/, char** kest_policy_auth_types,
                         char** kest_policy_auth_req, HandshakePayload* handshake_challenge,
                         HandshakePayload* handshake_response, const char* ssl_cert_cryptex,
                         HandshakePayload** software_id_cert)
{
    return created(client_secret, client_id,
                   {.secretExpiresIn = client_secret_expires_in,
                    .grantTypes = grant_types,
                    .policyTypes = kest_policy_auth_types,
                    .policyRequired = kest_policy_auth_req,
                    .challenge = handshake_challenge,
                    .handshakeResponse = handshake_response,
                    .sslCertCryptex = ssl_cert_cryptex,
                    .certificates = software_id_cert});
}

extern "C" RegisterResponse*
configure_reg_response(const char* client_secret_expires_in, char** grant_types,
                       const char* /*unused*/, char** kest_policy_auth_types,
                       char** kest_policy_auth_req, HandshakePayload* handshake_challenge,
                       HandshakePayload* handshake_response, const char* ssl_cert_cryptex,
                       HandshakePayload** software_id_cert)
{
    return created("", "",
                   {.secretExpiresIn = client_secret_expires_in,
                    .grantTypes = grant_types,
                    .policyTypes = kest_policy_auth_types,
                    .policyRequired = kest_policy_auth_req,
                    .challenge = handshake_challenge,
                    .handshakeResponse = handshake_response,
                    .sslCertCryptex = ssl_cert_cryptex,
                    .certificates = software_id_cert});
}

extern "C" void free_register_response(RegisterResponse* response)
{
    if (response == nullptr)
    {
        return;
    }
    std::free(response->client_id);
    std::free(response->reserved_text);
    releaseSecret(response->client_secret);
    std::free(response->ssl_cert_cryptex);
    std::free(response->client_secret_expires_in);
    std::free(response->issued_at);
    releaseStringArray(response->grant_types);
    releaseStringArray(response->kest_policy_auth_req);
    releaseStringArray(response->kest_policy_auth_types);
    free_handshake_payload(response->handshake_challenge);
    free_handshake_payload(response->handshake_response);
    free_jwk_certs(response->software_id_cert);
    std::free(response);
}

extern "C" char* write_register_response(RegisterResponse* response)
{
    if (refusesNull("response", response))
    {
        return refused();
    }
    return guarded([=] { return writtenResponse(*response).release(); });
}

extern "C" RegisterResponse* parse_register_response(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=]() -> RegisterResponse* {
        // The record is made and released: callers count on null for every text.
        if (readResponse(text))
        {
            return refuse(BMCOAUTH_RULE_REGISTRATION_UNSUPPORTED);
        }
        return nullptr;
    });
}
