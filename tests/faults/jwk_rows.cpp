// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"
#include "support/certificates.hpp"
#include "support/lists.hpp"

#include <array>

using support::PairList;
using support::ParameterList;

namespace faults
{

namespace
{

/** The coordinates of a public key of OpenSSL's, as Base64url. */
struct Coordinates
{
    std::string x;
    std::string y;
};

Coordinates coordinatesOn(const std::string& curve)
{
    const std::string point = support::publicPoint(*support::makeKey(curve));
    const std::size_t size = (point.size() - 1) / 2;
    return {support::base64Url(point.substr(1, size)), support::base64Url(point.substr(1 + size))};
}

const Coordinates& p256()
{
    static const Coordinates coordinates = coordinatesOn("prime256v1");
    return coordinates;
}

std::string ecJwk()
{
    return R"({"crv":"P-256","kid":"1","kty":"EC","x":")" + p256().x + R"(","y":")" + p256().y +
           R"("})";
}

/** Of 2048 bits; no function judges it. */
std::string modulus()
{
    return support::base64Url(std::string(256, '\xab'));
}

/** Completes a key; where there is no memory for its text the process ends. */
Outcome completes(Attempt& attempt, const std::string& key)
{
    char* text = support::heapText(key).release();
    const int appended = attempt.call([&] { return appendPublicKey(&text); });
    const HeapText after{text};
    return appended == 1 ? got(text) : failedLeaving(key == text);
}

Outcome importsEc(Attempt& attempt, const Coordinates& key, const char* curve)
{
    return made<HeapText>(
        attempt.call([&] { return createEcPublicKey(key.x.c_str(), key.y.c_str(), curve); }));
}

KeyPtr dfsKey()
{
    return KeyPtr{encode_dfs_jwk(reinterpret_cast<const unsigned char*>("a secret"), 8)};
}

const Table rows{
    {"free_jwk", "a key", failsOnly,
     [](Attempt& attempt) {
         jwk* record = dfsKey().release();
         attempt.call([&] { free_jwk(&record); });
         return record == nullptr ? got("released") : wrong("not null");
     }},
    {"set_jwk_list", "two keys", failsOnly,
     [](Attempt& attempt) {
         PairList<jwk> first{{"kty", "EC"}, {"x", "1"}};
         PairList<jwk> second{{"kty", "RSA"}};
         std::array<jwk*, 3> list{first, second, nullptr};
         return made<KeyList>(attempt.call([&] { return set_jwk_list(list.data()); }));
     }},
    {"free_jwk_list", "a key", failsOnly,
     [](Attempt& attempt) {
         PairList<jwk> key{{"kty", "EC"}, {"x", "1"}};
         std::array<jwk*, 2> list{key, nullptr};
         jwk** const copy = set_jwk_list(list.data());
         attempt.call([&] { free_jwk_list(copy); });
         return got("released");
     }},
    {"set_jwk_certs", "two keys", failsOnly,
     [](Attempt& attempt) {
         ParameterList first{{"kty", {"EC"}}, {"x5c", {"MIIB", "MIIC"}}};
         ParameterList second{{"x5c", {"MIID"}}};
         std::array<HandshakePayload*, 3> list{first, second, nullptr};
         return made<CertificateList>(attempt.call([&] { return set_jwk_certs(list.data()); }));
     }},
    {"free_jwk_certs", "a key", failsOnly,
     [](Attempt& attempt) {
         ParameterList key{{"x5c", {"MIIB"}}};
         std::array<HandshakePayload*, 2> list{key, nullptr};
         HandshakePayload** const copy = set_jwk_certs(list.data());
         attempt.call([&] { free_jwk_certs(copy); });
         return got("released");
     }},
    {"encode_cert_jwk", "a key id", ends,
     [](Attempt& attempt) {
         return made<KeyPtr>(attempt.call([] {
             return encode_cert_jwk("EC", "id", "x5c",
                                    reinterpret_cast<const unsigned char*>("bytes"), 5);
         }));
     }},
    {"encode_cert_jwk", "no key id", ends,
     [](Attempt& attempt) {
         return made<KeyPtr>(attempt.call([] {
             return encode_cert_jwk("EC", nullptr, "x5c",
                                    reinterpret_cast<const unsigned char*>("bytes"), 5);
         }));
     }},
    {"encode_dfs_jwk", "a secret", ends,
     [](Attempt& attempt) {
         return made<KeyPtr>(attempt.call(
             [] { return encode_dfs_jwk(reinterpret_cast<const unsigned char*>("secret"), 6); }));
     }},
    {"jwk_key_value", "the second pair", failsOnly,
     [](Attempt& attempt) {
         PairList<jwk> key{{"kty", "EC"}, {"x", "1"}};
         return got(show(attempt.call([&] { return jwk_key_value(key, "x"); })));
     }},
    {"decode_dfs_jwk", "a secret", failsOnly,
     [](Attempt& attempt) {
         const KeyPtr key = dfsKey();
         int length = 0;
         const HeapBytes bytes{attempt.call([&] { return decode_dfs_jwk(key.get(), &length); })};
         return bytes ? got(hexOf(bytes.get(), static_cast<std::size_t>(length) + 1))
                      : failedLeaving(length == 0);
     }},
    {"createEcPublicKey", "P-256", getsBy,
     [](Attempt& attempt) {
         return importsEc(attempt, p256(), "P-256");
     }},
    {"createEcPublicKey", "P-384", getsBy,
     [](Attempt& attempt) {
         static const Coordinates key = coordinatesOn("secp384r1");
         return importsEc(attempt, key, "P-384");
     }},
    {"createEcPublicKey", "P-521", getsBy,
     [](Attempt& attempt) {
         static const Coordinates key = coordinatesOn("secp521r1");
         return importsEc(attempt, key, "P-521");
     }},
    {"createEcPublicKey", "a point that is off the curve", getsBy | isRefused,
     [](Attempt& attempt) {
         const Coordinates& key = p256();
         const HeapText pem{attempt.call(
             [&] { return createEcPublicKey(key.y.c_str(), key.x.c_str(), "P-256"); })};
         return pem == nullptr ? got("refused") : wrong("accepted");
     }},
    {"createRsaPublicKey", "2048 bits", getsBy,
     [](Attempt& attempt) {
         const std::string n = modulus();
         return made<HeapText>(attempt.call([&] { return createRsaPublicKey(n.c_str(), "AQAB"); }));
     }},
    {"appendPublicKey", "an EC key", ends | getsBy,
     [](Attempt& attempt) {
         return completes(attempt, ecJwk());
     }},
    {"appendPublicKey", "an RSA key", ends | getsBy,
     [](Attempt& attempt) {
         return completes(attempt,
                          std::string{R"({"e":"AQAB","kty":"RSA","n":")"} + modulus() + R"("})");
     }},
    {"oauth2_parse_jwk", "an EC key", ends,
     [](Attempt& attempt) {
         const std::string text = ecJwk();
         return made<KeyPtr>(attempt.call([&] { return oauth2_parse_jwk(text.c_str()); }));
     }},
    {"oauth2_parse_jwk", "members of other types", ends,
     [](Attempt& attempt) {
         return made<KeyPtr>(attempt.call([] {
             return oauth2_parse_jwk(R"({"kty":"EC","n":1,"o":{},"x5c":["a"],"z":"last"})");
         }));
     }},
};

} // namespace

} // namespace faults
