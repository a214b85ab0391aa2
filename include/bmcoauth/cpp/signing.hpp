// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Signatures, over <bmcoauth/signing.h> and, those of certificate proofs,
 * <bmcoauth/handshake.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/handshake.h>
#include <bmcoauth/signing.h>

#include <climits>

#include <cstddef>
#include <string>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** The signature of `text`, DER in Base64url: signToken. */
[[nodiscard]] inline Expected<Text> sign(const std::string& text, const PrivateKey& key)
{
    if (key.der().empty())
    {
        // A null key stands for one that nobody keeps.
        return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "key"};
    }
    return detail::ownedOrRefused<Text>(
        ::signToken(text, key.der().data(), static_cast<int>(key.der().size())));
}

/** Whether the DER `signature` signs `text` by this key: verifySignature. */
[[nodiscard]] inline Expected<void> isSignature(const std::string& text, ByteSpan signature,
                                                const PrivateKey& key)
{
    if (signature.size() > static_cast<std::size_t>(INT_MAX))
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "signature"};
    }
    return detail::doneOrRefused(
        ::verifySignature(text, signature.data(), static_cast<int>(signature.size()),
                          key.der().data(), static_cast<int>(key.der().size())));
}

/** The signature of a certificate proof: generateSignedResponseValue. */
[[nodiscard]] inline Expected<Text> signProof(const std::string& text, const EcKey& key)
{
    return detail::ownedOrRefused<Text>(::generateSignedResponseValue(text, key.get()));
}

/** Whether `signature`, in either Base64, signs `text` by the public key: verifyHRSignature. */
[[nodiscard]] inline Expected<void> isProof(const std::string& text, std::string_view signature,
                                            const EcKey& key)
{
    detail::Arguments in;
    char* const signatureText = in.text("signature", signature);
    const auto length = in.length<unsigned int>("signature", signature.size());
    if (in.failed())
    {
        return in.failure();
    }
    return detail::doneOrRefused(::verifyHRSignature(text, signatureText, length, key.get()));
}

} // namespace v1
} // namespace bmcoauth
