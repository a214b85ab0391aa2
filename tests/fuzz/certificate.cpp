// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <openssl/ec.h>
#include <openssl/x509.h>

#include <array>

/** A chain of certificates in PEM, and the certificate key that it becomes. */
namespace
{

using Certificate = std::unique_ptr<X509, support::Releaser<X509_free>>;
using Key = std::unique_ptr<EC_KEY, support::Releaser<EC_KEY_free>>;

constexpr auto readingRules = std::to_array<std::string_view>({"certificate.encoding"});
constexpr auto nameRules = std::to_array<std::string_view>(
    {"certificate.encoding", "certificate.name", "certificate.name-empty"});
constexpr auto keyRules = std::to_array<std::string_view>(
    {"certificate.encoding", "key.encoding", "key.kind", "key.point"});
constexpr auto encodingRules =
    std::to_array<std::string_view>({"argument.length", "certificate.encoding"});
constexpr auto chainRules = std::to_array<std::string_view>(
    {"certificate.missing", "certificate.encoding", "chain.root-missing"});

void readName(const std::string& pem)
{
    constexpr std::size_t comparedBytes = 17;
    const support::HeapText name{fuzz::judged(nameRules, [&] { return get_x509_CN(pem.c_str()); })};
    if (!name || *name == '\0')
    {
        return;
    }
    const Certificate certificate{getX509Cert(pem.c_str())};
    fuzz::require(certificate != nullptr, "what has a name is a certificate");
    const std::string other = std::string{name.get()} + "x";
    fuzz::require(other.size() > comparedBytes || validateX509(pem.c_str(), other.c_str()) == 0,
                  "another name does not match");
}

/** What becomes the first certificate of a chain: the text up to the first end marker, and the
 *  character behind it, which ends its line. */
std::string firstBlock(const std::string& chain)
{
    constexpr std::string_view endMarker = "-----END CERTIFICATE-----";
    return chain.substr(0, chain.find(endMarker) + endMarker.size() + 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string pem = fuzz::wholeText(data, size);
    readName(pem);
    const Certificate certificate{
        fuzz::judged(readingRules, [&] { return getX509Cert(pem.c_str()); })};
    const Key publicKey{fuzz::judged(keyRules, [&] { return get_EC_pubKey(pem.c_str()); })};
    fuzz::require(publicKey == nullptr || certificate != nullptr,
                  "what has a public key is a certificate");
    const int valid = fuzz::judged(nameRules, [&] { return validateX509(pem.c_str(), nullptr); });
    fuzz::require(certificate != nullptr || valid == 0,
                  "bytes that are not a certificate are refused");

    const support::PayloadPtr key{fuzz::judged(encodingRules, [&] {
        return encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size()));
    })};
    if (!key)
    {
        return 0;
    }
    fuzz::require(encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size() + 1)) ==
                      nullptr,
                  "the length is the text's");

    // Nobody in the factory signed what is in here.
    const int trusted =
        fuzz::judged(chainRules, [&] { return validate_x509_jwk(key.get(), nullptr); });
    fuzz::require(trusted == 0, "no root, no trust");
    fuzz::require(fuzz::judged(chainRules, [&] { return chainVerify(key.get()); }) != 1,
                  "no root, no chain");

    unsigned int length = 0;
    const support::HeapText first{decode_x509_jwk(key.get(), &length)};
    std::string body;
    if (!get_handshake_payload_paramValue(key.get(), "x5c", body))
    {
        fuzz::require(first == nullptr && length == 0, "without certificate there is no text");
        return 0;
    }
    fuzz::require(first != nullptr && std::string_view{first.get()}.size() == length,
                  "the first certificate has a text");
    const Certificate leading{getX509Cert(firstBlock(pem).c_str())};
    fuzz::require(leading != nullptr, "a chain begins with a certificate");
    const support::HeapText recreated{recreate_x509_cert(body.c_str())};
    fuzz::require(fuzz::same(first.get(), recreated.get()), "it is that of its body");

    const support::HeapText written{write_handshake_payload(key.get())};
    const support::PayloadPtr copy{set_handshake_payload(key.get())};
    fuzz::require(copy != nullptr, "a certificate key can be copied");
    const support::HeapText copied{write_handshake_payload(copy.get())};
    fuzz::require(fuzz::same(written.get(), copied.get()), "a copy is the same");
    return 0;
}
