// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <openssl/ec.h>
#include <openssl/x509.h>

#include <fcntl.h>

#include <array>
#include <cstdio>

/** A certificate key as a peer sends it, judged on a device whose factory has issued to the peer. */
namespace
{

using Key = std::unique_ptr<EC_KEY, support::Releaser<EC_KEY_free>>;

constexpr auto recordRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "document.parameter", "document.empty"});
constexpr auto bodyRules = std::to_array<std::string_view>({"certificate.missing"});
constexpr auto rootRules = std::to_array<std::string_view>({"chain.unsupported"});
constexpr auto chainRules = std::to_array<std::string_view>(
    {"certificate.missing", "certificate.encoding", "chain.untrusted"});
constexpr auto trustRules = std::to_array<std::string_view>(
    {"certificate.missing", "certificate.encoding", "chain.untrusted", "certificate.name",
     "certificate.name-empty"});
constexpr auto sealingRules =
    std::to_array<std::string_view>({"certificate.missing", "certificate.encoding", "key.encoding",
                                     "key.kind", "key.point", "key.curve"});

/** The public key of a bare certificate body; null where it has none. */
Key keyOf(const std::string& body)
{
    const support::HeapText pem{recreate_x509_cert(body.c_str())};
    return Key{get_EC_pubKey(pem.get())};
}

bool isKeyOf(const EC_KEY& key, const fuzz::Party& party)
{
    const Key known{get_EC_pubKey(party.certificate.c_str())};
    return EC_GROUP_cmp(EC_KEY_get0_group(&key), EC_KEY_get0_group(known.get()), nullptr) == 0 &&
           EC_POINT_cmp(EC_KEY_get0_group(&key), EC_KEY_get0_public_key(&key),
                        EC_KEY_get0_public_key(known.get()), nullptr) == 0;
}

std::vector<std::string> bodiesOf(const HandshakePayload* record)
{
    for (; record->name != nullptr && record->values != nullptr; ++record)
    {
        if (std::string_view{record->name} == "x5c")
        {
            return support::texts(record->values);
        }
    }
    return {};
}

} // namespace

/** The factory's roots are the certificate of the device; only they are ever opened. */
extern "C" std::FILE* fopen(const char* path, const char* mode)
{
    if (std::string_view{path}.starts_with("/etc/default/certs/"))
    {
        // Only read.
        const std::string& root = fuzz::device().certificate;
        std::FILE* file = fmemopen(nullptr, root.size(), "w+");
        if (file != nullptr)
        {
            std::fwrite(root.data(), 1, root.size(), file);
            std::rewind(file);
        }
        return file;
    }
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    return descriptor < 0 ? nullptr : fdopen(descriptor, mode);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = fuzz::wholeText(data, size);
    const support::PayloadPtr record{
        fuzz::judged(recordRules, [&] { return parse_handshake_payload(text.c_str()); })};
    if (!record)
    {
        return 0;
    }
    const std::vector<std::string> bodies = bodiesOf(record.get());
    unsigned int length = 12345;
    const support::HeapText first{
        fuzz::judged(bodyRules, [&] { return decode_x509_jwk(record.get(), &length); })};
    fuzz::require(first ? std::string_view{first.get()}.size() == length : length == 0,
                  "the first certificate's text is as long as told");
    fuzz::require((first != nullptr) == !bodies.empty(), "a body has a text");
    const int root = fuzz::judged(rootRules, [&] { return validateKestRootCert(record.get()); });
    fuzz::require(root == 0, "nothing is accepted here");

    const int chain = fuzz::judged(chainRules, [&] { return chainVerify(record.get()); });
    fuzz::require(chain >= -1 && chain <= 1, "a chain verifies, or not, or cannot be judged");
    if (chain == 1)
    {
        // Only these two have certificates of this factory; no mutation makes a third signature.
        const Key verified = keyOf(bodies.back());
        fuzz::require(verified != nullptr &&
                          (isKeyOf(*verified, fuzz::device()) || isKeyOf(*verified, fuzz::peer())),
                      "what verifies is what the factory issued");
    }
    const int anybody =
        fuzz::judged(trustRules, [&] { return validate_x509_jwk(record.get(), nullptr); });
    fuzz::require(anybody == 0 || chain == 1, "who is valid has a chain");
    const int named =
        fuzz::judged(trustRules, [&] { return validate_x509_jwk(record.get(), "device-b"); });
    fuzz::require(named == 0 || anybody == 1, "a certain name is a name");

    HandshakePayload* peer = record.get();
    char* mac = nullptr;
    const fuzz::PrivateKey& own = fuzz::device().key;
    const support::HeapText sealed{fuzz::judged(sealingRules, [&] {
        return ecies_encrypt("x", 1, &peer, &mac, own.data(), own.length(),
                             "00112233445566778899AABBCCDDEEFF");
    })};
    const support::HeapText macOwner{mac};
    fuzz::require(sealed == nullptr || keyOf(bodies.front()) != nullptr,
                  "an envelope goes to somebody who has a key");
    return 0;
}
