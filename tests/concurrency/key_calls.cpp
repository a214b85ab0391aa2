// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"

#include <openssl/ec.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace calls
{

namespace
{

using support::CertificateList;
using support::EcKeyPtr;
using support::KeyList;

void releaseKey(jwk* key) noexcept
{
    free_jwk(&key);
}
using KeyPtr = std::unique_ptr<jwk, Releaser<releaseKey>>;

/** A key of RFC 7515, appendix A.3. */
constexpr const char* x = "f83OJ3D2xF1Bg8vub9tLe1gHMzV76e8Tus9uPHvRVEU";
constexpr const char* y = "x_FEzRu9m36HLN_tue659LNpXW6pCyStikYjKIWI5a0";

/** The first line of a PEM text. */
std::string label(char* pem)
{
    const HeapText owned{pem};
    const std::string text = support::orNull(pem);
    return text.substr(0, text.find('\n'));
}

std::string pairsOf(jwk* key)
{
    std::string shown;
    for (const auto& [name, value] : support::pairs(key))
    {
        shown += name + "=" + value + ";";
    }
    return shown;
}

std::string degree(EC_KEY* key)
{
    const EcKeyPtr owned{key};
    return owned ? std::to_string(EC_GROUP_get_degree(EC_KEY_get0_group(key))) : "none";
}

std::string hexOf(const void* bytes, std::size_t length)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string shown;
    const auto* byte = static_cast<const unsigned char*>(bytes);
    for (std::size_t i = 0; i < length; ++i)
    {
        shown += digits[byte[i] >> 4U];
        shown += digits[byte[i] & 0xfU];
    }
    return shown;
}

/** What the peer opens of an envelope that the device has sealed. */
std::string opened(Inputs& in, const std::string& text, const std::string& mac)
{
    unsigned int length = 0;
    const HeapText plain{ecies_decrypt(text.c_str(), &length, bytesOf(in.world.peerKey),
                                       lengthOf(in.world.peerKey), mac.c_str(), &in.device,
                                       in.world.iv.c_str())};
    return plain ? std::string{plain.get()}.substr(0, 7) : "closed";
}

} // namespace

std::vector<Call> keyCalls()
{
    return {
        {{"issueRandomBytesInHex"},
         "0x and 32 digits",
         [](Inputs&) -> std::string {
             std::array<char, 35> number{};
             return issueRandomBytesInHex(number.data(), 16) == 1 &&
                            std::strlen(number.data()) == 34 && number[1] == 'x'
                        ? "0x and 32 digits"
                        : number.data();
         }},
        {{"issueRandomToken"},
         "24",
         [](Inputs&) {
             char* token = nullptr;
             issueRandomToken(&token, 16);
             return sizeOf(token);
         }},
        {{"base64encode"},
         "Zm9vYmE=",
         [](Inputs&) {
             char* encoded = nullptr;
             base64encode("fooba", &encoded, 5);
             return taken(encoded);
         }},
        {{"base64URIencode"},
         "-_8",
         [](Inputs&) {
             const HeapText text = support::heapText("+/8=");
             base64URIencode(text.get());
             return show(text);
         }},
        {{"base64URIdecode"},
         "foobar",
         [](Inputs&) {
             char* decoded = nullptr;
             int length = 0;
             base64URIdecode("Zm9vYmFy", &decoded, &length);
             return taken(decoded);
         }},
        {{"convertHextoBinary(char const*, unsigned char*)"},
         "000102030405060708090a0b0c0d0e0f",
         [](Inputs& in) {
             std::array<unsigned char, 16> bytes{};
             convertHextoBinary(in.world.iv.c_str(), bytes.data());
             return hexOf(bytes.data(), bytes.size());
         }},

        {{"generateRandomIV"},
         "32",
         [](Inputs&) {
             char* iv = nullptr;
             generateRandomIV(&iv);
             return sizeOf(iv);
         }},
        // The digest of "abc": FIPS 180-4's example.
        {{"ecies_key_derivation(void const*, size_t, void*, size_t*)"},
         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
         [](Inputs&) {
             std::array<unsigned char, 32> output{};
             std::size_t length = output.size();
             ecies_key_derivation("abc", 3, output.data(), &length);
             return hexOf(output.data(), length);
         }},
        {{"secure_alloc(uint64_t, uint64_t, uint64_t, uint64_t)", "secure_mac_length(void const*)",
          "secure_body_length(void const*)", "secure_mac_data(void*)", "secure_body_data(void*)"},
         "4, 16 and 4 bytes apart",
         [](Inputs&) {
             const std::unique_ptr<void, Releaser<support::releaseHeap>> buffer{
                 secure_alloc(2, 4, 8, 16)};
             return std::to_string(secure_mac_length(buffer.get())) + ", " +
                    std::to_string(secure_body_length(buffer.get())) + " and " +
                    std::to_string(secure_body_data(buffer.get()) - secure_mac_data(buffer.get())) +
                    " bytes apart";
         }},
        {{"ecies_encrypt"},
         "secret\n",
         [](Inputs& in) {
             char* mac = nullptr;
             const HeapText text{ecies_encrypt("secret", 6, &in.peer, &mac,
                                               bytesOf(in.world.deviceKey),
                                               lengthOf(in.world.deviceKey), in.world.iv.c_str())};
             return opened(in, show(text), taken(mac));
         }},
        {{"ecies_decrypt"},
         "secret\n",
         [](Inputs& in) {
             return opened(in, in.world.sealed, in.world.sealedMac);
         }},

        {{"encode_cert_jwk", "free_jwk"},
         "kty=T;member=Zm9v;kid=id;",
         [](Inputs&) {
             return pairsOf(
                 KeyPtr{encode_cert_jwk("T", "id", "member",
                                        reinterpret_cast<const unsigned char*>("foo"), 3)}
                     .get());
         }},
        {{"encode_dfs_jwk"},
         "kty=DFS;dfs=Zm9v;",
         [](Inputs&) {
             return pairsOf(
                 KeyPtr{encode_dfs_jwk(reinterpret_cast<const unsigned char*>("foo"), 3)}.get());
         }},
        {{"decode_dfs_jwk"},
         "secret",
         [](Inputs& in) {
             int length = 0;
             const HeapBytes bytes{decode_dfs_jwk(in.key, &length)};
             return std::string{reinterpret_cast<const char*>(bytes.get()),
                                static_cast<std::size_t>(length)};
         }},
        {{"jwk_key_value"},
         "DFS",
         [](Inputs& in) {
             return support::orNull(jwk_key_value(in.key, "kty"));
         }},
        {{"set_jwk_list", "free_jwk_list"},
         "dfs=c2VjcmV0;kty=DFS;",
         [](Inputs& in) {
             return pairsOf(KeyList{set_jwk_list(in.keys.data())}.get()[0]);
         }},
        {{"set_jwk_certs", "free_jwk_certs"},
         "the same",
         [](Inputs& in) -> std::string {
             const CertificateList copy{set_jwk_certs(in.certificates.data())};
             return written(copy.get()[0]) == written(in.device) ? "the same" : "another";
         }},
        {{"oauth2_parse_jwk"},
         "crv=P-256;kty=EC;",
         [](Inputs&) {
             return pairsOf(KeyPtr{oauth2_parse_jwk(R"({"kty":"EC","crv":"P-256"})")}.get());
         }},
        {{"createEcPublicKey"},
         "-----BEGIN PUBLIC KEY-----",
         [](Inputs&) {
             return label(createEcPublicKey(x, y, "P-256"));
         }},
        {{"createRsaPublicKey"},
         "-----BEGIN PUBLIC KEY-----",
         [](Inputs&) {
             return label(createRsaPublicKey(x, "AQAB"));
         }},
        {{"appendPublicKey"},
         "crv,kest_decoded_key,kty,x,y",
         [](Inputs&) {
             char* key = support::heapText(std::string{R"({"kty":"EC","crv":"P-256","x":")"} + x +
                                           R"(","y":")" + y + R"("})")
                             .release();
             appendPublicKey(&key);
             const HeapText owned{key};
             char** names = nullptr;
             getKeyNames(key, static_cast<unsigned int>(std::strlen(key)), &names);
             return taken(names);
         }},

        {{"recreate_x509_cert", "getX509Cert"},
         "read",
         [](Inputs& in) -> std::string {
             const HeapText pem{recreate_x509_cert(in.body.c_str())};
             const support::X509Ptr certificate{getX509Cert(pem.get())};
             return certificate ? "read" : "not read";
         }},
        {{"decode_x509_jwk"},
         "-----BEGIN CERTIFICATE-----",
         [](Inputs& in) {
             unsigned int length = 0;
             return label(decode_x509_jwk(in.device, &length));
         }},
        {{"encode_x509_jwk"},
         "the same",
         [](Inputs& in) -> std::string {
             const PayloadPtr key{
                 encode_x509_jwk(in.pem.c_str(), static_cast<unsigned int>(in.pem.size()))};
             return written(key.get()) == written(in.device) ? "the same" : "another";
         }},
        {{"validate_x509_jwk"},
         "1",
         [](Inputs& in) {
             return std::to_string(validate_x509_jwk(in.device, "device"));
         }},
        {{"validateX509(char const*, char const*)"},
         "1",
         [](Inputs& in) {
             return std::to_string(validateX509(in.pem.c_str(), "device"));
         }},
        {{"chainVerify(HandshakePayload*)"},
         "1",
         [](Inputs& in) {
             return std::to_string(chainVerify(in.device));
         }},
        {{"validateKestRootCert"},
         "0",
         [](Inputs& in) {
             return std::to_string(validateKestRootCert(in.device));
         }},
        {{"get_EC_pubKey"},
         "256",
         [](Inputs& in) {
             return degree(get_EC_pubKey(in.pem.c_str()));
         }},
        {{"get_EC_privKey"},
         "256",
         [](Inputs& in) {
             return degree(
                 get_EC_privKey(bytesOf(in.world.deviceKey), lengthOf(in.world.deviceKey)));
         }},
        {{"removeSubStr(std::string&, char const*)"},
         "text",
         [](Inputs&) {
             std::string text = "te--xt";
             removeSubStr(text, "-");
             return text;
         }},
    };
}

} // namespace calls
