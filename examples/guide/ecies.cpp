// SPDX-License-Identifier: Apache-2.0
//
// guide-ecies KEY CERTIFICATE PEER_KEY PEER_CERTIFICATE: seals a text for a peer, and opens it as
// the peer does.
#include <bmcoauth.hpp>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

using bmcoauth::CertificateKey;
using bmcoauth::Envelope;
using bmcoauth::EnvelopeView;
using bmcoauth::Expected;
using bmcoauth::Opened;
using bmcoauth::PrivateKey;

namespace
{

// [seal]
/** `data` for the holder of the peer's certificate, under an IV that is used for this alone. */
Expected<Envelope> sealed(std::string_view data, const PrivateKey& key, const CertificateKey& peer)
{
    return bmcoauth::seal(data, peer, key);
}
// [seal]

// [open]
/** The data of an envelope; none if it is refused. */
std::string opened(const EnvelopeView& envelope, const PrivateKey& key, const CertificateKey& peer)
{
    const Expected<Opened> plaintext = bmcoauth::open(envelope, peer, key);
    return plaintext ? std::string{plaintext->data()} : std::string{};
}
// [open]

Expected<CertificateKey> certificateKey(const char* path)
{
    std::ifstream file{path, std::ios::binary};
    const std::string pem{std::istreambuf_iterator<char>{file}, {}};
    return CertificateKey::fromPem(pem);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5)
    {
        return EXIT_FAILURE;
    }
    const Expected<PrivateKey> ourKey = PrivateKey::fromFile(argv[1]);
    const Expected<CertificateKey> ourCertificate = certificateKey(argv[2]);
    const Expected<PrivateKey> theirKey = PrivateKey::fromFile(argv[3]);
    const Expected<CertificateKey> theirCertificate = certificateKey(argv[4]);
    if (!ourKey || !ourCertificate || !theirKey || !theirCertificate)
    {
        return EXIT_FAILURE;
    }
    const Expected<Envelope> envelope = sealed("for your eyes only", *ourKey, *theirCertificate);
    if (!envelope)
    {
        return EXIT_FAILURE;
    }
    std::cout << "ciphertext: " << envelope->ciphertext.view() << '\n'
              << "opened: " << opened(*envelope, *theirKey, *ourCertificate) << '\n';
    return EXIT_SUCCESS;
}
