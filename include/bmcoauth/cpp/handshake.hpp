// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The handshake of challenges and responses, over <bmcoauth/handshake.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/registration.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/handshake.h>
#include <bmcoauth/handshake_payload.h>

#include <cstddef>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** Which proofs a server asks for. */
enum class Proofs : unsigned int
{
    certificate = 1,
    oneTimePassword = 2,
    both = 3,
};

/** Whether `type` is the type of the certificate proof: compareSoftwareCertTag. */
[[nodiscard]] inline bool isCertificateType(std::string_view type)
{
    detail::Arguments in;
    const char* const typeText = in.text(type);
    return !in.failure() && ::compareSoftwareCertTag(typeText);
}

namespace detail
{

/** The challenge for a client of these types, which are only read. */
[[nodiscard]] inline Expected<ParameterList> madeServerChallenge(char** types, Proofs proofs)
{
    HandshakePayload* challenge = nullptr;
    if (::generateServerHandshakeChallenge(types, static_cast<unsigned int>(proofs), &challenge) !=
        1)
    {
        return Error::refused;
    }
    return ParameterList{challenge};
}

} // namespace detail

/** What a server asks a client for, by the types that the client knows:
 *  generateServerHandshakeChallenge. */
[[nodiscard]] inline Expected<ParameterList> serverChallenge(TextSpan types, Proofs proofs)
{
    detail::Arguments in;
    char** const list = in.texts(types);
    if (in.failure())
    {
        return *in.failure();
    }
    return detail::madeServerChallenge(list, proofs);
}
/** The same by the types of the client's request. */
[[nodiscard]] inline Expected<ParameterList> serverChallengeFor(const RegistrationRequest& request,
                                                                Proofs proofs)
{
    const RegisterRequest* const record = request.get();
    return detail::madeServerChallenge(record == nullptr ? nullptr : record->handshake_types,
                                       proofs);
}

/** What a client asks a server for: generateClientHandshakeChallenge. */
[[nodiscard]] inline Expected<ParameterList> clientChallenge(TextSpan types, unsigned int count)
{
    detail::Arguments in;
    char** const list = in.texts(types);
    if (in.failure())
    {
        return *in.failure();
    }
    HandshakePayload* challenge = nullptr;
    if (::generateClientHandshakeChallenge(list, count, &challenge) != 1)
    {
        return Error::refused;
    }
    return ParameterList{challenge};
}

/** A key document of random secrets: generateKeyTool. */
[[nodiscard]] inline Expected<Text> generateSecrets(std::string_view prefix, unsigned int keys,
                                                    unsigned int tokens, unsigned int tokenLength)
{
    detail::Arguments in;
    const char* const prefixText = in.text(prefix);
    const int length = in.length<int>(tokenLength);
    if (in.failure())
    {
        return *in.failure();
    }
    char* text = nullptr;
    if (::generateKeyTool(prefixText, keys, tokens, length, &text) != 1)
    {
        return Error::refused;
    }
    return Text{text};
}

/** What the client proves itself with, each of it just where a proof asks for it. */
struct Credentials
{
    /** The key document that the server has too. */
    std::string_view secrets = {};
    /** What the certificate proof sends. */
    const CertificateKey* certificate = nullptr;
    /** The private key of that certificate. */
    const PrivateKey* key = nullptr;
};

/** The client's answer to a challenge: generateHandshakeResponse. */
[[nodiscard]] inline Expected<ParameterList> respond(const ParameterList& challenge,
                                                     const Credentials& credentials)
{
    detail::Arguments in;
    const char* const secrets = in.text(credentials.secrets);
    const auto length = in.length<unsigned int>(credentials.secrets.size());
    if (in.failure())
    {
        return *in.failure();
    }
    const ByteSpan der = credentials.key == nullptr ? ByteSpan{} : credentials.key->der();
    HandshakePayload* certificate =
        credentials.certificate == nullptr ? nullptr : credentials.certificate->parameters().get();
    HandshakePayload* response = nullptr;
    if (!::generateHandshakeResponse(challenge.get(), secrets, length, &certificate, &response,
                                     der.data(), static_cast<unsigned int>(der.size())))
    {
        return Error::refused;
    }
    return ParameterList{response};
}

/** Whether `response` proves all that `challenge` asks for: validateHandshakeResponse, and that
 *  there is one proof for each type, and that no type follows the certificate's, whose proof would
 *  not count then. Nothing remembers a used "C", and the chain of the certificate, which is the
 *  client's, is not verified here. */
[[nodiscard]] inline bool isProven(const ParameterList& challenge, const ParameterList& response,
                                   std::string_view secrets, const CertificateKey* certificate)
{
    detail::Arguments in;
    const char* const secretsText = in.text(secrets);
    const auto length = in.length<unsigned int>(secrets.size());
    const Expected<Texts> types = challenge.values("T");
    const Expected<Texts> proofs = response.values("R");
    if (in.failure() || !types || !proofs || types->size() != proofs->size())
    {
        return false;
    }
    std::size_t place = 0;
    for (const std::string_view type : *types)
    {
        ++place;
        if (isCertificateType(type) && place != types->size())
        {
            return false;
        }
    }
    HandshakePayload* record = certificate == nullptr ? nullptr : certificate->parameters().get();
    return ::validateHandshakeResponse(challenge.get(), secretsText, length, &record,
                                       response.get());
}

} // namespace v1
} // namespace bmcoauth
