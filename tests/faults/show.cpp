// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

#include <openssl/ec.h>
#include <openssl/x509.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <utility>

namespace faults
{

namespace
{

constexpr const char* null = "(null)";

using Field = std::pair<const char*, std::string>;

std::string record(std::initializer_list<Field> fields)
{
    std::string text;
    for (const auto& [name, value] : fields)
    {
        text.append(name).append("=").append(value).append("\n");
    }
    return text;
}

std::string shown(const support::Pairs& pairs)
{
    std::string text;
    for (const auto& [name, value] : pairs)
    {
        text.append(name).append(":").append(value).append(";");
    }
    return text;
}

template <typename Element>
std::string listOf(const Element* const* list)
{
    if (list == nullptr)
    {
        return null;
    }
    std::string text = "[";
    for (; *list != nullptr; ++list)
    {
        text.append(show(*list)).append("|");
    }
    return text + "]";
}

std::string shownScopes(const JWTscopes* scopes, int count)
{
    if (scopes == nullptr)
    {
        return null;
    }
    std::string text;
    for (int i = 0; i < count; ++i)
    {
        text.append(show(scopes[i].name)).append(":");
        for (int j = 0; j < scopes[i].count; ++j)
        {
            text.append(show(scopes[i].values[j])).append(",");
        }
        text.append(";");
    }
    return text;
}

/** A token up to its signature. */
std::string unsignedPart(const char* token)
{
    const std::string text = show(token);
    return text.substr(0, text.rfind('.'));
}

} // namespace

std::string show(const char* text)
{
    return text == nullptr ? null : text;
}

std::string show(const char* const* array)
{
    if (array == nullptr)
    {
        return null;
    }
    std::string text;
    for (const std::string& one : support::texts(array))
    {
        text.append(one).append(",");
    }
    return text;
}

std::string show(const HandshakePayload* list)
{
    if (list == nullptr)
    {
        return null;
    }
    std::string text;
    for (const auto& [name, values] : support::parameters(list))
    {
        text.append(name).append(":");
        for (const std::string& value : values)
        {
            text.append(value).append(",");
        }
        text.append(";");
    }
    return text;
}

std::string show(const HandshakePayload* const* list)
{
    return listOf(list);
}

std::string show(const jwk* record)
{
    return record == nullptr ? null : shown(support::pairs(record));
}

std::string show(const jwk* const* list)
{
    return listOf(list);
}

std::string show(const KestPolicyAuth* policy)
{
    return policy == nullptr ? null : shown(support::pairs(policy));
}

std::string show(const JWTHeader* header)
{
    return header == nullptr ? null
                             : record({{"typ", show(header->typ)},
                                       {"alg", show(header->alg)},
                                       {"kid", show(header->kid)}});
}

std::string show(const JWTPayload* payload)
{
    return payload == nullptr
               ? null
               : record({{"jti", show(payload->jti)},
                         {"sub", show(payload->sub)},
                         {"iss", show(payload->iss)},
                         {"iat", show(payload->iat)},
                         {"exp", show(payload->exp)},
                         {"nbf", show(payload->nbf)},
                         {"aud", show(payload->aud)},
                         {"xidp", show(payload->xidp)},
                         {"act", show(payload->act)},
                         {"ravok_roles", show(payload->ravok_roles)},
                         {"scope", show(payload->scope)},
                         {"scopes", shownScopes(payload->scopes, payload->scopes_count)}});
}

std::string show(const AuthorizeRequest* request)
{
    return request == nullptr ? null
                              : record({{"client_id", show(request->client_id)},
                                        {"client_secret", show(request->client_secret)},
                                        {"state", show(request->state)},
                                        {"reserved", show(request->reserved)},
                                        {"refresh_token", show(request->refresh_token)},
                                        {"policy", show(request->policy)},
                                        {"handshake", show(request->handshake)}});
}

std::string show(const AuthorizeResponse* response)
{
    return response == nullptr ? null
                               : record({{"access_token", unsignedPart(response->access_token)},
                                         {"state", show(response->state)},
                                         {"refresh_token", show(response->refresh_token)},
                                         {"expires_in", show(response->expires_in)},
                                         {"token_type", show(response->token_type)},
                                         {"issued_at", show(response->issued_at)}});
}

std::string show(const RegisterRequest* request)
{
    return request == nullptr ? null
                              : record({{"redirect_uri", show(request->redirect_uri)},
                                        {"client_name", show(request->client_name)},
                                        {"software_id", show(request->software_id)},
                                        {"handshake_types", show(request->handshake_types)},
                                        {"dfs", show(request->dfs)},
                                        {"software_id_cert", show(request->software_id_cert)},
                                        {"handshake_challenge", show(request->handshake_challenge)},
                                        {"redirect_uris", show(request->redirect_uris)},
                                        {"scope", show(request->scope)}});
}

std::string show(const RegisterResponse* response)
{
    return response == nullptr
               ? null
               : record({{"client_secret", show(response->client_secret)},
                         {"client_id", show(response->client_id)},
                         {"reserved_text", show(response->reserved_text)},
                         {"client_secret_expires_in", show(response->client_secret_expires_in)},
                         {"issued_at", show(response->issued_at)},
                         {"grant_types", show(response->grant_types)},
                         {"reserved_value", show(response->reserved_value)},
                         {"kest_policy_auth_types", show(response->kest_policy_auth_types)},
                         {"kest_policy_auth_req", show(response->kest_policy_auth_req)},
                         {"ssl_cert_cryptex", show(response->ssl_cert_cryptex)},
                         {"handshake_challenge", show(response->handshake_challenge)},
                         {"handshake_response", show(response->handshake_response)},
                         {"software_id_cert", show(response->software_id_cert)}});
}

std::string show(const OidcRegisterResponse* response)
{
    return response == nullptr
               ? null
               : record({{"client_id", show(response->client_id)},
                         {"client_secret", show(response->client_secret)},
                         {"registration_access_token", show(response->registration_access_token)},
                         {"registration_client_uri", show(response->registration_client_uri)},
                         {"client_id_issued_at", show(response->client_id_issued_at)},
                         {"client_secret_expires_at", show(response->client_secret_expires_at)}});
}

std::string show(EC_KEY* key)
{
    const std::unique_ptr<BIGNUM, Releaser<BN_free>> point{
        EC_POINT_point2bn(EC_KEY_get0_group(key), EC_KEY_get0_public_key(key),
                          POINT_CONVERSION_UNCOMPRESSED, nullptr, nullptr)};
    const BIGNUM* const scalar = EC_KEY_get0_private_key(key);
    std::string text;
    for (const BIGNUM* number : {static_cast<const BIGNUM*>(point.get()), scalar})
    {
        char* const digits = number == nullptr ? nullptr : BN_bn2hex(number);
        text.append(show(digits)).append(";");
        OPENSSL_free(digits);
    }
    return text;
}

std::string show(X509* certificate)
{
    unsigned char* der = nullptr;
    const int length = i2d_X509(certificate, &der);
    std::string text = hexOf(der, static_cast<std::size_t>(length));
    OPENSSL_free(der);
    return text;
}

std::string hexOf(const void* bytes, std::size_t length)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
    {
        const unsigned int byte = static_cast<const unsigned char*>(bytes)[i];
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

} // namespace faults
