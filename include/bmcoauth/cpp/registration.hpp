// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The messages of the registration endpoint, over <bmcoauth/register.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/key_records.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/jwk.h>
#include <bmcoauth/register.h>
#include <bmcoauth/support.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** The contents of a registration request. Optional ones may be null or empty. */
struct RegistrationRequestParts
{
    /** The member "redirect_uri". */
    Borrowed<std::string_view> redirectUri = {};
    /** The member "client_name". */
    std::string_view clientName = {};
    /** The member "software_id". */
    std::string_view softwareId = {};
    /** The member "handshake_types": which proofs the client knows. */
    Borrowed<std::string_view> handshakeTypes = {};
    /** The member "dfs" of "jwks": the client's keys. */
    const KeyList* keys = nullptr;
    /** The member "software_id_cert" of "jwks": the client's certificate keys. */
    const CertificateKeyList* certificates = nullptr;
    /** The member "handshake_challenge"; null for none. */
    const ParameterList* challenge = nullptr;
    /** Written, never read. */
    Borrowed<std::string_view> redirectUris = {};
    /** The member "scope". */
    std::optional<std::string_view> scope = {};
};

namespace detail
{

/** The record of `owner`, or null if there is none. */
template <typename Owner>
[[nodiscard]] auto* recordOf(const Owner* owner) noexcept
{
    return owner == nullptr ? nullptr : owner->get();
}

/** Whether a list that was given was not copied. */
[[nodiscard]] inline bool isLost(const void* given, const void* kept) noexcept
{
    return given != nullptr && kept == nullptr;
}

/** Refuses if `kept` should be a copy of `list` but is null. The library gives no reason,
 *  because its call has succeeded; copying the list again gives one. */
[[nodiscard]] inline Expected<void> requireKept(const ParameterList* list, const void* kept)
{
    if (!isLost(recordOf(list), kept))
    {
        return {};
    }
    const Expected<ParameterList> again = list->copy();
    return again ? Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED} : again.error();
}

} // namespace detail

namespace detail
{

/** A copy of one of the certificate keys of a request. */
[[nodiscard]] inline Expected<CertificateKey> copiedCertificate(HandshakePayload* record)
{
    return ownedOrRefused<ParameterList>(::set_handshake_payload(record))
        .and_then(CertificateKey::of);
}

/** A view of one of the keys of a request. */
[[nodiscard]] inline KeyView viewedKey(jwk* record) noexcept
{
    return KeyView{record};
}

} // namespace detail

/** The certificate keys of a request, each as a copy. */
using CertificateRange = detail::RecordRange<HandshakePayload, detail::copiedCertificate>;
/** The keys of a request. */
using KeyRange = detail::RecordRange<jwk, detail::viewedKey>;

/** RegistrationRequest owns what a client sends to register itself: RegisterRequest. */
class RegistrationRequest : public detail::Record<RegisterRequest, free_register_request>
{
public:
    using Record::Record;

    /** The request that the JSON text `text` holds: parse_register_request. */
    [[nodiscard]] static Expected<RegistrationRequest> parse(std::string_view text)
    {
        return detail::made<RegistrationRequest>(::parse_register_request, {{"text", text}});
    }

    /** A request of these parts: create_register_request, which fails here where a list
     *  cannot be copied. */
    [[nodiscard]] static Expected<RegistrationRequest> of(const RegistrationRequestParts& parts)
    {
        detail::Arguments in;
        char** const redirectUri = in.textsOrNull("redirectUri", parts.redirectUri);
        const char* const clientName = in.text("clientName", parts.clientName);
        const char* const softwareId = in.text("softwareId", parts.softwareId);
        char** const types = in.textsOrNull("handshakeTypes", parts.handshakeTypes);
        char** const redirectUris = in.textsOrNull("redirectUris", parts.redirectUris);
        const char* const scope = in.maybe("scope", parts.scope);
        if (in.failed())
        {
            return in.failure();
        }
        jwk** const keys = detail::recordOf(parts.keys);
        HandshakePayload** const certificates = detail::recordOf(parts.certificates);
        RegistrationRequest request{::create_register_request(redirectUri, clientName, softwareId,
                                                              keys, certificates, types,
                                                              detail::recordOf(parts.challenge))};
        if (!request)
        {
            return Error::last();
        }
        RegisterRequest& record = *request.get();
        record.redirect_uris = ::set_char_array(redirectUris);
        record.scope = scope == nullptr ? nullptr : ::strdup(scope);
        if (const Expected<void> kept =
                detail::requireKept(parts.challenge, record.handshake_challenge);
            !kept)
        {
            return kept.error();
        }
        if (detail::isLost(redirectUri, record.redirect_uri) ||
            detail::isLost(types, record.handshake_types) || detail::isLost(keys, record.dfs) ||
            detail::isLost(certificates, record.software_id_cert) ||
            detail::isLost(redirectUris, record.redirect_uris) ||
            detail::isLost(scope, record.scope))
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        return request;
    }

    /** Its JSON text: write_register_request. */
    [[nodiscard]] Expected<Text> write() const
    {
        return detail::ownedOrRefused<Text>(::write_register_request(get()));
    }

    /** The member "client_name", if it is there. */
    [[nodiscard]] std::optional<std::string_view> clientName() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterRequest::client_name);
    }
    /** The member "software_id", if it is there. */
    [[nodiscard]] std::optional<std::string_view> softwareId() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterRequest::software_id);
    }
    /** The texts of the member "redirect_uri". */
    [[nodiscard]] TextRange redirectUri() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return TextRange{pointer(&RegisterRequest::redirect_uri)};
    }
    [[nodiscard]] TextRange redirectUri() const&& = delete;
    /** The texts of the member "handshake_types". */
    [[nodiscard]] TextRange handshakeTypes() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return TextRange{pointer(&RegisterRequest::handshake_types)};
    }
    [[nodiscard]] TextRange handshakeTypes() const&& = delete;
    /** The certificate keys of the member "software_id_cert" of "jwks". */
    [[nodiscard]] CertificateRange certificates() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return CertificateRange{pointer(&RegisterRequest::software_id_cert)};
    }
    [[nodiscard]] CertificateRange certificates() const&& = delete;
    /** The certificate key at `index`; refused if there are not so many. */
    [[nodiscard]] Expected<CertificateKey> certificate(std::size_t index) const
    {
        for (Expected<CertificateKey> key : certificates())
        {
            if (index == 0)
            {
                return key;
            }
            --index;
        }
        return Error{BMCOAUTH_RULE_CERTIFICATE_MISSING, "software_id_cert"};
    }
    /** The keys of the member "dfs" of "jwks", each as long as this object lives. */
    [[nodiscard]] KeyRange keys() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return KeyRange{pointer(&RegisterRequest::dfs)};
    }
    [[nodiscard]] KeyRange keys() const&& = delete;
    /** The texts of the member "redirect_uris": those of a request that was made here. `parse` does
     *  not read them. */
    [[nodiscard]] TextRange redirectUris() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return TextRange{pointer(&RegisterRequest::redirect_uris)};
    }
    [[nodiscard]] TextRange redirectUris() const&& = delete;
    /** The member "scope", of a request that was made here. `parse` does not read it. */
    [[nodiscard]] std::optional<std::string_view> scope() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterRequest::scope);
    }
    /** A copy of the client's challenge. */
    [[nodiscard]] Expected<ParameterList> challenge() const
    {
        return detail::ownedOrRefused<ParameterList>(
            ::set_handshake_payload(pointer(&RegisterRequest::handshake_challenge)));
    }
};

/** The contents of a registration response, or of a service's template for it. */
struct RegistrationResponseParts
{
    /** In seconds; 0 for no end. */
    std::uint32_t secretLifetimeSeconds = 0;
    /** The member "grant_types". */
    Borrowed<std::string_view> grantTypes = {};
    /** The member "kest_policy_auth_types". */
    Borrowed<std::string_view> policiesOffered = {};
    /** The member "kest_policy_auth_req". */
    Borrowed<std::string_view> policiesRequired = {};
    /** The member "handshake_challenge"; null for none. */
    const ParameterList* challenge = nullptr;
    /** The member "handshake_response"; null for none. */
    const ParameterList* response = nullptr;
    /** The member "ssl_cert_cryptex". */
    std::optional<std::string_view> sealedCertificate = {};
    /** The member "software_id_cert"; null for none. */
    const CertificateKeyList* certificates = nullptr;
};

/** RegistrationResponse owns what a registering client is answered: RegisterResponse. */
class RegistrationResponse : public detail::Record<RegisterResponse, free_register_response>
{
public:
    using Record::Record;

    /** A response of these parts: create_register_response, which fails here where a list
     *  cannot be copied. */
    [[nodiscard]] static Expected<RegistrationResponse> of(std::string_view clientSecret,
                                                           std::string_view clientId,
                                                           const RegistrationResponseParts& parts)
    {
        detail::Arguments in;
        const char* const secret = in.text("clientSecret", clientSecret);
        const char* const id = in.text("clientId", clientId);
        const char* const lifetime = in.decimal(parts.secretLifetimeSeconds);
        char** const grants = in.textsOrNull("grantTypes", parts.grantTypes);
        char** const offered = in.textsOrNull("policiesOffered", parts.policiesOffered);
        char** const required = in.textsOrNull("policiesRequired", parts.policiesRequired);
        const char* const sealed = in.maybe("sealedCertificate", parts.sealedCertificate);
        if (in.failed())
        {
            return in.failure();
        }
        HandshakePayload** const certificates = detail::recordOf(parts.certificates);
        RegistrationResponse response{
            ::create_register_response(secret, id, lifetime, grants, nullptr, offered, required,
                                       detail::recordOf(parts.challenge),
                                       detail::recordOf(parts.response), sealed, certificates)};
        if (!response)
        {
            return Error::last();
        }
        const RegisterResponse& record = *response.get();
        for (const Expected<void>& kept :
             {detail::requireKept(parts.challenge, record.handshake_challenge),
              detail::requireKept(parts.response, record.handshake_response)})
        {
            if (!kept)
            {
                return kept.error();
            }
        }
        if (detail::isLost(grants, record.grant_types) ||
            detail::isLost(offered, record.kest_policy_auth_types) ||
            detail::isLost(required, record.kest_policy_auth_req) ||
            detail::isLost(sealed, record.ssl_cert_cryptex) ||
            detail::isLost(certificates, record.software_id_cert))
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        return response;
    }

    /** Answers `request` with a fresh identifier and secret: register_client. */
    [[nodiscard]] static Expected<RegistrationResponse>
    answer(const RegistrationRequest& request, const RegistrationResponseParts& parts)
    {
        return of("", "", parts).and_then([&](RegistrationResponse settings) {
            return detail::ownedOrRefused<RegistrationResponse>(
                ::register_client(request.get(), settings.get()));
        });
    }

    /** Its JSON text: write_register_response, which wants a challenge of two parameters at least;
     *  refused where it would throw. */
    [[nodiscard]] Expected<Text> write() const
    {
        if (const Expected<void> whole =
                detail::requireAll({{"client_secret", clientSecret()},
                                    {"client_id", clientId()},
                                    {"client_secret_expires_in", secretLifetimeSeconds()}});
            !whole)
        {
            return whole.error();
        }
        return detail::ownedOrRefused<Text>(::write_register_response(get()));
    }

    /** The member "client_id", if it is there. */
    [[nodiscard]] std::optional<std::string_view> clientId() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterResponse::client_id);
    }
    /** The member "client_secret", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    clientSecret() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterResponse::client_secret);
    }
    /** The member "client_secret_expires_in", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    secretLifetimeSeconds() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterResponse::client_secret_expires_in);
    }
    /** The record's issued_at, which is not written, if it is there. */
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&RegisterResponse::issued_at);
    }
};

/** OidcRegistration owns the answer of an OpenID Connect registration endpoint. */
class OidcRegistration : public detail::Record<OidcRegisterResponse, free_oidc_register_response>
{
public:
    using Record::Record;

    /** The response that the JSON text `text` holds: parse_oidc_register_response. */
    [[nodiscard]] static Expected<OidcRegistration> parse(std::string_view text)
    {
        return detail::made<OidcRegistration>(::parse_oidc_register_response, {{"text", text}});
    }

    /** The member "client_id", if it is there. */
    [[nodiscard]] std::optional<std::string_view> clientId() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&OidcRegisterResponse::client_id);
    }
    /** The member "client_secret", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    clientSecret() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&OidcRegisterResponse::client_secret);
    }
    /** The member "registration_access_token", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    accessToken() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&OidcRegisterResponse::registration_access_token);
    }
    /** The member "registration_client_uri", if it is there. */
    [[nodiscard]] std::optional<std::string_view> clientUri() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&OidcRegisterResponse::registration_client_uri);
    }
    /** The member "client_id_issued_at", if it is there. */
    [[nodiscard]] std::optional<std::string_view> issuedAt() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&OidcRegisterResponse::client_id_issued_at);
    }
    /** The member "client_secret_expires_at", if it is there. */
    [[nodiscard]] std::optional<std::string_view>
    secretExpiresAt() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return field(&OidcRegisterResponse::client_secret_expires_at);
    }
};

} // namespace v1
} // namespace bmcoauth
