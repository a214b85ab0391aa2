// SPDX-License-Identifier: Apache-2.0
//
// guide-ecies KEY CERTIFICATE PEER_KEY PEER_CERTIFICATE: seals a text for a peer, and opens it as
// the peer does.
#include "owners.hpp"

#include <iostream>
#include <utility>

namespace
{

/** An envelope: three texts that travel together. */
struct Envelope
{
    Text ciphertext;
    Text mac;
    Text iv;
};

Payload certificateKey(const char* path)
{
    const std::string pem = contentsOf(path);
    return Payload{encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size()))};
}

// [seal]
/** `data` for the holder of the peer's certificate; without a ciphertext if that fails. */
Envelope seal(const std::string& data, const KeyBytes& key, HandshakePayload* peer)
{
    char* iv = nullptr;
    if (generateRandomIV(&iv) != 1) // a fresh one for each envelope
    {
        return {};
    }
    Text ownedIv{iv};
    char* mac = nullptr;
    Text ciphertext{ecies_encrypt(data.data(), static_cast<unsigned int>(data.size()), &peer, &mac,
                                  key.data(), key.size(), iv)};
    return {std::move(ciphertext), Text{mac}, std::move(ownedIv)};
}
// [seal]

// [open]
/** The data of an envelope; none if it is refused. */
std::string opened(const Envelope& envelope, const KeyBytes& key, HandshakePayload* peer)
{
    // On a marked device a missing MAC or IV would pass: never leave it to the sender.
    if (!envelope.mac || !envelope.iv)
    {
        return {};
    }
    unsigned int length = 0;
    const Text plaintext{ecies_decrypt(envelope.ciphertext.get(), &length, key.data(), key.size(),
                                       envelope.mac.get(), &peer, envelope.iv.get())};
    // Behind the data stand a line feed and 16 random characters.
    constexpr unsigned int randomCharacters = 16;
    if (!plaintext || length < randomCharacters)
    {
        return {};
    }
    return {plaintext.get(), length - randomCharacters};
}
// [open]

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
    {
        return EXIT_FAILURE;
    }
    const KeyBytes ourKey{argv[1]};
    const KeyBytes theirKey{argv[3]};
    const Payload ourCertificate = certificateKey(argv[2]);
    const Payload theirCertificate = certificateKey(argv[4]);
    const Envelope envelope = seal("for your eyes only\n", ourKey, theirCertificate.get());
    if (!envelope.ciphertext)
    {
        return EXIT_FAILURE;
    }
    std::cout << "ciphertext: " << envelope.ciphertext.get() << '\n'
              << "opened: " << opened(envelope, theirKey, ourCertificate.get());
    return EXIT_SUCCESS;
}
