// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Envelopes that only one peer can open, over <bmcoauth/ecies.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/certificates.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/ecies.h>
#include <bmcoauth/handshake.h>
#include <bmcoauth/handshake_payload.h>

#include <cstddef>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** A sealed envelope: Base64 of the ciphertext and of its MAC, and the IV in hexadecimal. */
struct Envelope
{
    /** The ciphertext, in Base64. */
    Text ciphertext;
    /** The MAC over it, in Base64. */
    Text mac;
    /** The IV, 32 hexadecimal digits. */
    Text iv;
};

/** The same, borrowed. */
struct EnvelopeView
{
    /** The ciphertext, in Base64. */
    std::string_view ciphertext;
    /** The MAC over it, in Base64. */
    std::string_view mac;
    /** The IV, 32 hexadecimal digits. */
    std::string_view iv;

    /** Looks at these three. */
    EnvelopeView(std::string_view ciphertextText, std::string_view macText,
                 std::string_view ivText) noexcept
        : ciphertext{ciphertextText}, mac{macText}, iv{ivText}
    {
    }
    /** Looks at `envelope`. */
    EnvelopeView(const Envelope& envelope BMCOAUTH_LIFETIMEBOUND) noexcept
        : ciphertext{envelope.ciphertext}, mac{envelope.mac}, iv{envelope.iv}
    {
    }
};

/** 16 random bytes as 32 hexadecimal digits: generateRandomIV. */
[[nodiscard]] inline Expected<Text> randomIv()
{
    char* iv = nullptr;
    if (::generateRandomIV(&iv) != 1)
    {
        return Error::last();
    }
    return Text{iv};
}

/** The largest text that an envelope holds, in bytes; a longer one makes an envelope that nobody can
 *  open. */
inline constexpr std::size_t mostSealedBytes = 73710;

/** Seals a text for a peer under a fresh IV, so that `open` gives back exactly this text:
 *  ecies_encrypt.
 *
 *  The text is one byte long at least, holds no zero byte and at most mostSealedBytes bytes, one
 *  less if it ends with a line feed: sealBytes takes any bytes. */
[[nodiscard]] inline Expected<Envelope> seal(std::string_view data, const CertificateKey& peer,
                                             const PrivateKey& key)
{
    // Sealed data always ends with a line feed, which the receiver takes off. The library adds
    // one, but not to data that has one: there it is added here.
    const bool line = data.ends_with('\n');
    const std::size_t size = data.size() + (line ? 1 : 0);
    if (size > mostSealedBytes)
    {
        return Error{BMCOAUTH_RULE_ENVELOPE_LENGTH, "data"};
    }
    detail::Arguments in;
    char* const text = in.text("data", data);
    Expected<Text> iv = randomIv();
    if (in.failed() || !iv)
    {
        return in.failed() ? in.failure() : iv.error();
    }
    if (line)
    {
        // Over the zero byte, which nobody asks for: the length is given.
        text[data.size()] = '\n';
    }
    HandshakePayload* peerRecord = peer.parameters().get();
    char* mac = nullptr;
    Text ciphertext{::ecies_encrypt(text, static_cast<unsigned int>(size), &peerRecord, &mac,
                                    key.der().data(), static_cast<int>(key.der().size()),
                                    iv->c_str())};
    if (ciphertext.view().empty())
    {
        return Error::last();
    }
    return Envelope{std::move(ciphertext), Text{mac}, std::move(*iv)};
}

/** Seals any bytes, from 1 to 55,281, as the text of their Base64, for openBytes. */
[[nodiscard]] inline Expected<Envelope> sealBytes(ByteSpan data, const CertificateKey& peer,
                                                  const PrivateKey& key)
{
    const Expected<Text> text = base64(data);
    return text ? seal(*text, peer, key) : Expected<Envelope>{text.error()};
}

/** Opened is what an envelope held. */
class Opened
{
public:
    /** Takes over what an envelope held. */
    explicit Opened(Bytes opened) noexcept : plaintext{std::move(opened)}
    {
    }

    /** What `seal` was given. NOTE: the C function adds no line feed to data that ends with one, and
     *  the receiver cannot tell: of such data this is all but the line feed at its end. */
    [[nodiscard]] std::string_view data() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        const std::string_view sealed = whole();
        return sealed.substr(0, sealed.size() < tail ? 0 : sealed.size() - tail);
    }
    [[nodiscard]] std::string_view data() const&& = delete;

    /** All of it: the data, a line feed and 16 random characters. */
    [[nodiscard]] std::string_view whole() const& noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return plaintext.view();
    }
    [[nodiscard]] std::string_view whole() const&& = delete;

private:
    static constexpr std::size_t tail = 1 + 16;

    Bytes plaintext;
};

/** Opens a peer's envelope that holds a text, whose MAC and IV must be there: ecies_decrypt. */
[[nodiscard]] inline Expected<Opened> open(const EnvelopeView& envelope, const CertificateKey& peer,
                                           const PrivateKey& key)
{
    detail::Arguments in;
    const char* const ciphertext = in.text("ciphertext", envelope.ciphertext);
    const char* const mac = in.text("mac", envelope.mac);
    const char* const iv = in.text("iv", envelope.iv);
    if (in.failed())
    {
        return in.failure();
    }
    HandshakePayload* peerRecord = peer.parameters().get();
    unsigned int length = 0;
    char* const plaintext =
        ::ecies_decrypt(ciphertext, &length, key.der().data(), static_cast<int>(key.der().size()),
                        mac, &peerRecord, iv);
    if (plaintext == nullptr)
    {
        return Error::last();
    }
    return Opened{Bytes{plaintext, length}};
}

/** Opens an envelope of sealBytes; refused also if it does not hold Base64. */
[[nodiscard]] inline Expected<Bytes> openBytes(const EnvelopeView& envelope,
                                               const CertificateKey& peer, const PrivateKey& key)
{
    const Expected<Opened> opened = open(envelope, peer, key);
    return opened ? decodeBase64Url(opened->data()) : Expected<Bytes>{opened.error()};
}

/** Adds a sealed certificate to a handshake response, which may be empty: appendSSLCertToResponse.
 *  NOTE: where just the IV is refused, the response keeps the other two. */
inline Expected<void> attach(ParameterList& response, const EnvelopeView& envelope)
{
    detail::Arguments in;
    const char* const ciphertext = in.text("ciphertext", envelope.ciphertext);
    const char* const mac = in.text("mac", envelope.mac);
    const char* const iv = in.text("iv", envelope.iv);
    if (in.failed())
    {
        return in.failure();
    }
    HandshakePayload* list = response.release();
    const int result = ::appendSSLCertToResponse(&list, ciphertext, mac, iv);
    response = ParameterList{list};
    return detail::doneOrRefused(result);
}

} // namespace v1
} // namespace bmcoauth
