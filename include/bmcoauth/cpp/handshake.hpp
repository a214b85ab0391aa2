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
    const char* const typeText = in.text("type", type);
    return !in.failed() && ::compareSoftwareCertTag(typeText);
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
        return Error::last();
    }
    return ParameterList{challenge};
}

} // namespace detail

/** The server's challenge for a client that knows these types: generateServerHandshakeChallenge. */
[[nodiscard]] inline Expected<ParameterList> serverChallenge(TextSpan types, Proofs proofs)
{
    detail::Arguments in;
    char** const list = in.texts("types", types);
    if (in.failed())
    {
        return in.failure();
    }
    return detail::madeServerChallenge(list, proofs);
}
/** The same, with the types of the client's request. */
[[nodiscard]] inline Expected<ParameterList> serverChallengeFor(const RegistrationRequest& request,
                                                                Proofs proofs)
{
    const RegisterRequest* const record = request.get();
    return detail::madeServerChallenge(record == nullptr ? nullptr : record->handshake_types,
                                       proofs);
}

/** The client's challenge: generateClientHandshakeChallenge. */
[[nodiscard]] inline Expected<ParameterList> clientChallenge(TextSpan types, unsigned int count)
{
    detail::Arguments in;
    char** const list = in.texts("types", types);
    if (in.failed())
    {
        return in.failure();
    }
    HandshakePayload* challenge = nullptr;
    if (::generateClientHandshakeChallenge(list, count, &challenge) != 1)
    {
        return Error::last();
    }
    return ParameterList{challenge};
}

/** A key document of random secrets: generateKeyTool. */
[[nodiscard]] inline Expected<Text> generateSecrets(std::string_view prefix, unsigned int keys,
                                                    unsigned int tokens, unsigned int tokenLength)
{
    detail::Arguments in;
    const char* const prefixText = in.text("prefix", prefix);
    const int length = in.length<int>("tokenLength", tokenLength);
    if (in.failed())
    {
        return in.failure();
    }
    char* text = nullptr;
    if (::generateKeyTool(prefixText, keys, tokens, length, &text) != 1)
    {
        return Error::last();
    }
    return Text{text};
}

/** The secrets of a client. Each is needed only if a proof asks for it. */
struct Credentials
{
    /** The key document that the server has too. */
    std::string_view secrets = {};
    /** The certificate of the certificate proof. */
    const CertificateKey* certificate = nullptr;
    /** The private key of that certificate. */
    const PrivateKey* key = nullptr;
};

/** The client's answer to a challenge: generateHandshakeResponse. */
[[nodiscard]] inline Expected<ParameterList> respond(const ParameterList& challenge,
                                                     const Credentials& credentials)
{
    detail::Arguments in;
    const char* const secrets = in.text("secrets", credentials.secrets);
    const auto length = in.length<unsigned int>("secrets", credentials.secrets.size());
    if (in.failed())
    {
        return in.failure();
    }
    const ByteSpan der = credentials.key == nullptr ? ByteSpan{} : credentials.key->der();
    HandshakePayload* certificate =
        credentials.certificate == nullptr ? nullptr : credentials.certificate->parameters().get();
    HandshakePayload* response = nullptr;
    if (!::generateHandshakeResponse(challenge.get(), secrets, length, &certificate, &response,
                                     der.data(), static_cast<unsigned int>(der.size())))
    {
        return Error::last();
    }
    return ParameterList{response};
}

namespace detail
{

/** Refuses unless there is one proof for each type, and the certificate's type is the last. */
[[nodiscard]] inline Expected<void> requirePairs(const ParameterList& challenge,
                                                 const ParameterList& response)
{
    const Expected<Texts> types = challenge.values("T");
    if (!types)
    {
        return types.error();
    }
    const Expected<Texts> proofs = response.values("R");
    if (!proofs)
    {
        return proofs.error();
    }
    const auto count = static_cast<int>(types->size());
    const auto given = static_cast<int>(proofs->size());
    if (given != count)
    {
        return given < count ? Error{BMCOAUTH_RULE_HANDSHAKE_PROOF_MISSING, "R", given}
                             : Error{BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG, "R", count};
    }
    int place = 0;
    for (const std::string_view type : *types)
    {
        if (isCertificateType(type) && place + 1 != count)
        {
            return Error{BMCOAUTH_RULE_HANDSHAKE_TYPES, "T", place};
        }
        ++place;
    }
    return {};
}

} // namespace detail

/** Whether `response` proves all that `challenge` asks for: validateHandshakeResponse, and that
 *  there is one proof for each type, and that no type follows the certificate's, whose proof would
 *  not count then. Nothing remembers a used "C", and the chain of the certificate, which is the
 *  client's, is not verified here. */
[[nodiscard]] inline Expected<void> isProven(const ParameterList& challenge,
                                             const ParameterList& response,
                                             std::string_view secrets,
                                             const CertificateKey* certificate)
{
    detail::Arguments in;
    const char* const secretsText = in.text("secrets", secrets);
    const auto length = in.length<unsigned int>("secrets", secrets.size());
    if (in.failed())
    {
        return in.failure();
    }
    if (const Expected<void> paired = detail::requirePairs(challenge, response); !paired)
    {
        return paired;
    }
    HandshakePayload* record = certificate == nullptr ? nullptr : certificate->parameters().get();
    return detail::doneOrRefused(
        ::validateHandshakeResponse(challenge.get(), secretsText, length, &record, response.get()));
}

} // namespace v1
} // namespace bmcoauth
