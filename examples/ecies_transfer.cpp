// SPDX-License-Identifier: Apache-2.0
//
// Sends a text to a registered peer so that nobody else reads it:
//
//     ecies-transfer seal OWN_KEY PEER_CERTIFICATE < text > message
//     ecies-transfer open OWN_KEY PEER_CERTIFICATE < message > text
//
// Each side has a private key (a PEM file, P-256) and knows the other's certificate, which came with
// its registration. Both derive the same secret from them, so no key travels; and since the secret
// needs one of the two private keys, an envelope that opens is from the peer, or one's own that was
// sent back: put a name into the text if that matters.
//
// The message is a handshake response that carries a certificate for the peer's TLS service, which
// is what controllers use envelopes for.
#include <bmcoauth.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

namespace
{

using bmcoauth::CertificateKey;
using bmcoauth::ParameterList;
using bmcoauth::PrivateKey;

std::string contents(std::istream& stream)
{
    return {std::istreambuf_iterator<char>{stream}, {}};
}

/** What is put on the way, or nothing. */
int seal(const std::string& text, const CertificateKey& peer, const PrivateKey& key)
{
    // Under a fresh IV, which is never used again with these two keys.
    const bmcoauth::Expected<bmcoauth::Envelope> envelope = bmcoauth::seal(text, peer, key);
    ParameterList message;
    if (!envelope || !bmcoauth::attach(message, *envelope))
    {
        std::cerr << "it cannot be sealed for this peer\n";
        return EXIT_FAILURE;
    }
    const bmcoauth::Expected<bmcoauth::Text> written = message.write();
    if (!written)
    {
        return EXIT_FAILURE;
    }
    std::cout << written->view() << '\n';
    return EXIT_SUCCESS;
}

int open(const std::string& text, const CertificateKey& peer, const PrivateKey& key)
{
    const bmcoauth::Expected<ParameterList> message = ParameterList::parse(text);
    if (!message)
    {
        std::cerr << "this is no message\n";
        return EXIT_FAILURE;
    }
    const bmcoauth::Expected<std::string> ciphertext = message->value("encrypted_sslcert");
    const bmcoauth::Expected<std::string> mac = message->value("HMAC");
    const bmcoauth::Expected<std::string> iv = message->value("iv");
    if (!ciphertext || !mac || !iv)
    {
        std::cerr << "this message carries no envelope\n";
        return EXIT_FAILURE;
    }
    // Altered, from somebody else, for somebody else: the library does not tell which, and neither
    // should who answers a stranger.
    const bmcoauth::Expected<bmcoauth::Opened> opened =
        bmcoauth::open({*ciphertext, *mac, *iv}, peer, key);
    if (!opened)
    {
        std::cerr << "the envelope does not open\n";
        return EXIT_FAILURE;
    }
    // NOTE: the MAC does not cover the IV. An attacker who can alter the message can alter the first
    // 16 bytes of the text unseen; a PEM text begins with bytes that every reader checks.
    std::cout << opened->data();
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view verb = argc == 4 ? argv[1] : "";
    if (verb != "seal" && verb != "open")
    {
        std::cerr << "usage: ecies-transfer seal|open OWN_KEY PEER_CERTIFICATE\n";
        return EXIT_FAILURE;
    }
    // The key is wiped when the program ends its use.
    const bmcoauth::Expected<PrivateKey> key = PrivateKey::fromFile(argv[2]);
    std::ifstream file{argv[3]};
    // A controller checks the peer's certificate when the peer registers (CertificateKey::isValid),
    // with the factory's roots; here the file is trusted as it is.
    const bmcoauth::Expected<CertificateKey> peer = CertificateKey::fromPem(contents(file));
    if (!key || !peer)
    {
        std::cerr << "no private key in " << argv[2] << ", or no certificate in " << argv[3]
                  << '\n';
        return EXIT_FAILURE;
    }
    const std::string input = contents(std::cin);
    return verb == "seal" ? seal(input, *peer, *key) : open(input, *peer, *key);
}
