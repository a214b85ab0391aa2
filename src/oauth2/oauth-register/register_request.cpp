// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/text.hpp"
#include "oauth2/oauth-register/key_lists.hpp"
#include "oauth2/oauth-register/records.hpp"

#include <bmcoauth/support.h>

using namespace bmcoauth;
using namespace bmcoauth::registration;

namespace
{

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

/** Reads @p value, which may be null, as a client's challenge: the types that it asks for and
 *  nothing else. */
bool readChallenge(const Json::Value* value, ParameterList& challenge)
{
    if (value == nullptr)
    {
        return true;
    }
    if (!value->isObject() || value->size() != 1)
    {
        return false;
    }
    const auto types = value->begin();
    if (!equalIgnoringCase(types.name(), "T") || !types->isArray() || types->empty())
    {
        return false;
    }
    challenge = parameterListOf(*value, {});
    return challenge != nullptr;
}

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
        countStrings(redirectUri.get()) == 0 ||
        !readChallenge(presentMember(document, "handshake_challenge"), challenge) ||
        !readStrings(presentMember(document, "handshake_types"), handshakeTypes))
    {
        return nullptr;
    }
    const Json::Value* jwks = member(document, "jwks");
    if (jwks != nullptr && jwks->isObject() &&
        (!readKeys(*jwks, "dfs", dfs) ||
         !readCertificates(*jwks, "software_id_cert", certificates)))
    {
        return nullptr;
    }
    return Request{create_register_request(redirectUri.get(), stringMember(document, "client_name"),
                                           stringMember(document, "software_id"), dfs.get(),
                                           certificates.get(), handshakeTypes.get(),
                                           challenge.get())};
}

void setText(Json::Value& document, const char* name, const char* text)
{
    if (text != nullptr)
    {
        document[name] = borrowed(text);
    }
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
            arrayOfCertificates(request.software_id_cert, requestCertificate);
    }
    if (request.handshake_challenge != nullptr)
    {
        document["handshake_challenge"] = objectOf(request.handshake_challenge, requestChallenge);
    }
    return heapJsonText(document);
}

} // namespace

extern "C" RegisterRequest* create_register_request(char** redirect_uri, const char* client_name,
                                                    const char* software_id, jwk** dfs,
                                                    HandshakePayload** software_id_cert,
                                                    char** handshake_types,
                                                    HandshakePayload* handshake_challenge)
{
    const ErrnoKeeper keeper;
    Request request{zeroedBlock<RegisterRequest>(1).release()};
    if (!request)
    {
        return nullptr;
    }
    request->client_name = copyText(client_name).release();
    request->software_id = copyText(software_id).release();
    if (request->client_name == nullptr || request->software_id == nullptr)
    {
        return nullptr;
    }
    // A list that cannot be copied is absent, as one that was not given.
    request->redirect_uri = set_char_array(redirect_uri);
    request->handshake_types = set_char_array(handshake_types);
    request->dfs = set_jwk_list(dfs);
    request->software_id_cert = set_jwk_certs(software_id_cert);
    request->handshake_challenge = set_handshake_payload(handshake_challenge);
    return request.release();
}

extern "C" void free_register_request(RegisterRequest* request)
{
    if (request == nullptr)
    {
        return;
    }
    free_char_array(request->redirect_uri);
    std::free(request->client_name);
    std::free(request->software_id);
    free_char_array(request->handshake_types);
    free_jwk_list(request->dfs);
    free_jwk_certs(request->software_id_cert);
    free_handshake_payload(request->handshake_challenge);
    free_char_array(request->redirect_uris);
    std::free(request->scope);
    std::free(request);
}

extern "C" RegisterRequest* parse_register_request(const char* text)
{
    if (text == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&] { return readRequest(text).release(); });
}

extern "C" char* write_register_request(RegisterRequest* request)
{
    if (request == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&] { return writtenRequest(*request).release(); });
}
