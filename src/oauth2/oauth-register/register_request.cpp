// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/text.hpp"
#include "oauth2/oauth-register/key_lists.hpp"
#include "oauth2/oauth-register/records.hpp"

namespace bmcoauth::internal::registration
{

namespace
{

/** Readers expect the values of one parameter as an array. */
constexpr ListForm challengeForm{.alwaysArray = "T"};
constexpr ListForm certificateForm{.alwaysArray = "x5c"};

/** The member @p name of @p document, or null where it is missing or JSON's null. */
const Json::Value* presentMember(const Json::Value& document, const char* name)
{
    const Json::Value* found = member(document, name);
    return found == nullptr || found->isNull() ? nullptr : found;
}

/** Reads @p value, which may be null, as an array of strings; false when it is something else. */
bool readStrings(const Json::Value* value, StringArray& strings)
{
    if (value == nullptr)
    {
        return true;
    }
    if (!isArrayOfStrings(*value))
    {
        return false;
    }
    strings = stringsOf(*value);
    return true;
}

/** Whether @p value is a client's challenge: the types that it asks for and nothing else. */
bool isChallenge(const Json::Value& value)
{
    if (!value.isObject() || value.size() != 1)
    {
        return false;
    }
    const auto types = value.begin();
    return equalIgnoringCase(types.name(), "T") && types->isArray() && !types->empty();
}

/** Reads @p value, which may be null, as a client's challenge. */
bool readChallenge(const Json::Value* value, ParameterList& challenge)
{
    if (value == nullptr)
    {
        return true;
    }
    if (isChallenge(*value))
    {
        challenge = parameterListOf(*value, {});
    }
    return challenge || refuse(BMCOAUTH_RULE_REGISTRATION_CHALLENGE).about("handshake_challenge");
}

/** create_register_request behind its guard. */
Request makeRequest(const char* const* redirectUri, const char* name, const char* software,
                    const jwk* const* dfs, const HandshakePayload* const* certificates,
                    const char* const* handshakeTypes, const HandshakePayload* challenge)
{
    Request request{zeroedBlock<RegisterRequest>(1).release()};
    if (!request)
    {
        return nullptr;
    }
    request->client_name = copyText(name).release();
    request->software_id = copyText(software).release();
    if (request->client_name == nullptr || request->software_id == nullptr)
    {
        return nullptr;
    }
    // A list that cannot be copied is absent, as one that was not given.
    request->redirect_uri = copyFilledArray(redirectUri).release();
    request->handshake_types = copyFilledArray(handshakeTypes).release();
    request->dfs = keys::copyKeys(dfs).release();
    request->software_id_cert = keys::copyCertificateKeys(certificates).release();
    request->handshake_challenge = copyParameters(challenge).release();
    return request;
}

void setStrings(Json::Value& document, const char* name, const char* const* strings)
{
    if (countStrings(strings) != 0)
    {
        document[name] = jsonArrayOf(strings);
    }
}

HeapText writtenRequest(const RegisterRequest& request)
{
    Json::Value document{Json::objectValue};
    setText(document, "software_id", request.software_id);
    setText(document, "client_name", request.client_name);
    setStrings(document, "redirect_uri", request.redirect_uri);
    setStrings(document, "redirect_uris", request.redirect_uris);
    setText(document, "scope", request.scope);
    setStrings(document, "handshake_types", request.handshake_types);
    if (request.dfs != nullptr)
    {
        document["jwks"]["dfs"] = arrayOfKeys(request.dfs);
    }
    if (request.software_id_cert != nullptr)
    {
        document["jwks"]["software_id_cert"] =
            arrayOfCertificates(request.software_id_cert, certificateForm);
    }
    if (request.handshake_challenge != nullptr)
    {
        document["handshake_challenge"] = objectOf(request.handshake_challenge, challengeForm);
    }
    return heapJsonText(document);
}

} // namespace

Request readRequest(const char* text)
{
    SecretTree tree;
    if (!parseSecretObject(text, tree))
    {
        return nullptr;
    }
    const Json::Value& document = tree.root;
    StringArray redirectUri;
    ParameterList challenge;
    StringArray handshakeTypes;
    keys::KeyList dfs;
    keys::CertificateKeyList certificates;
    if (!readStrings(member(document, "redirect_uri"), redirectUri) ||
        countStrings(redirectUri.get()) == 0)
    {
        return refuse(BMCOAUTH_RULE_REGISTRATION_REDIRECT_URI).about("redirect_uri");
    }
    if (!readChallenge(presentMember(document, "handshake_challenge"), challenge))
    {
        return nullptr;
    }
    if (!readStrings(presentMember(document, "handshake_types"), handshakeTypes))
    {
        return refuse(BMCOAUTH_RULE_REGISTRATION_HANDSHAKE_TYPES).about("handshake_types");
    }
    const Json::Value* jwks = member(document, "jwks");
    if (jwks != nullptr && jwks->isObject() &&
        (!readKeys(*jwks, "dfs", dfs) ||
         !readCertificates(*jwks, "software_id_cert", certificates)))
    {
        return nullptr;
    }
    const auto texts = stringMembers<2>(document, {"client_name", "software_id"});
    return texts ? makeRequest(redirectUri.get(), (*texts)[0], (*texts)[1], dfs.get(),
                               certificates.get(), handshakeTypes.get(), challenge.get())
                 : nullptr;
}

} // namespace bmcoauth::internal::registration

using namespace bmcoauth::internal;
using namespace bmcoauth::internal::registration;

extern "C" RegisterRequest* create_register_request(char** redirect_uri, const char* client_name,
                                                    const char* software_id, jwk** dfs,
                                                    HandshakePayload** software_id_cert,
                                                    char** handshake_types,
                                                    HandshakePayload* handshake_challenge)
{
    if (refusesNull("client_name software_id", client_name, software_id))
    {
        return refused();
    }
    return guarded([=] {
        return makeRequest(redirect_uri, client_name, software_id, dfs, software_id_cert,
                           handshake_types, handshake_challenge)
            .release();
    });
}

extern "C" void free_register_request(RegisterRequest* request)
{
    if (request == nullptr)
    {
        return;
    }
    releaseStringArray(request->redirect_uri);
    std::free(request->client_name);
    std::free(request->software_id);
    releaseStringArray(request->handshake_types);
    free_jwk_list(request->dfs);
    free_jwk_certs(request->software_id_cert);
    free_handshake_payload(request->handshake_challenge);
    releaseStringArray(request->redirect_uris);
    std::free(request->scope);
    std::free(request);
}

extern "C" RegisterRequest* parse_register_request(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=] { return readRequest(text).release(); });
}

extern "C" char* write_register_request(RegisterRequest* request)
{
    if (refusesNull("request", request))
    {
        return refused();
    }
    return guarded([=] { return writtenRequest(*request).release(); });
}
