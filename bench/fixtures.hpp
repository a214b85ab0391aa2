// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/certificates.hpp"
#include "support/lists.hpp"

#include <string>
#include <string_view>
#include <vector>

/** What the operations work on: keys, certificates, tokens and documents such as a controller's
 *  services see, made once with OpenSSL alone. */
namespace bench
{

/** Another party that issues tokens. */
struct Issuer
{
    support::PkeyPtr key;
    std::string algorithm;  /**< of its tokens, such as "RS256" */
    std::string pem;        /**< its public key, SubjectPublicKeyInfo */
    std::string jwk;        /**< the same as a JSON Web Key */
    std::string decodedJwk; /**< the JWK once appendPublicKey has been through it */
    std::string token;
};

/** The claims of a typical access token, as texts in the C heap do not change. */
struct Claims
{
    std::string subject = "administrator";
    std::string issuer = "controller-0123456789";
    std::string id = "qL9fD3x0YwR2mT7uVb8nZw==";
    std::string issuedAt = "1700000000";
    std::string notBefore = "1700000000";
    std::string expiry = "4102444800"; // 2100-01-01

    /** The JSON text of a payload with these claims and @p scopes entries. */
    [[nodiscard]] std::string json(std::size_t scopes = 1) const;
};

/** Entries of the claim "scope", owned here. */
class Scopes
{
public:
    explicit Scopes(std::size_t count);

    [[nodiscard]] JWTscopes* data()
    {
        return entries.data();
    }
    [[nodiscard]] int count() const
    {
        return static_cast<int>(entries.size());
    }

    /** The text of one entry as it is in the claim. */
    [[nodiscard]] static std::string name(std::size_t index);
    static constexpr const char* value = "login";

private:
    std::vector<std::string> names;
    std::string text = value;
    char* values = text.data();
    std::vector<JWTscopes> entries;
};

struct Fixtures
{
    Fixtures();

    /** The controller's own key and the certificate that names its peer; the roles of both sides in
     *  an envelope and in a handshake are taken by these two. */
    support::Identity own = support::Identity::selfSigned({.commonName = "controller"});
    support::Identity peer = support::Identity::selfSigned({.commonName = "client-1"});
    std::string ownDer = own.privateKeyDer();
    std::string peerDer = peer.privateKeyDer();
    support::PayloadPtr ownRecord = support::certificateRecord({own.body()});
    support::PayloadPtr peerRecord = support::certificateRecord({peer.body()});

    Claims claims;
    std::string headerJson = R"({"alg":"ES256","typ":"JWT"})";
    /** A token that the controller has issued for itself: its signature is DER. */
    std::string ownToken = ownTokenWith(claims.json());

    Issuer es256;
    Issuer es384;
    Issuer rs256;
    Issuer ps256;
    /** Keys that have not signed the token of `es256`. */
    std::vector<std::string> otherKeys;

    /** For an envelope. */
    std::string iv = "000102030405060708090A0B0C0D0E0F";
    std::string plaintext = std::string(1024, 'p');

    /** For a handshake. */
    std::string secrets;
    support::ParameterList passwordChallenge{
        {"T", {"hotp1.0"}}, {"M", {"7"}}, {"C", {"123456789"}}};
    support::ParameterList certificateChallenge{{"T", {"software_id_cert-1.0"}},
                                                {"V", {"bM4pU0Yc9xq6n1Jb8wq1Sg=="}}};
    std::string claimedText = "bM4pU0Yc9xq6n1Jb8wq1Sg==:client-1";

    /** 1 KB, in Base64url. */
    std::string kilobyte;
    std::string kilobyteText;

    /** The coordinates of a key, in Base64url. */
    std::string x;
    std::string y;

    [[nodiscard]] std::string ownTokenWith(std::string_view payload) const;
};

/** Made at the first call. */
[[nodiscard]] const Fixtures& fixtures();

/** A signature as the algorithm's tokens carry it (RFC 7518): for ECDSA both integers side by side.
 */
[[nodiscard]] std::string signatureOf(std::string_view text, EVP_PKEY& key,
                                      std::string_view algorithm);

/** An ECDSA signature in DER, of the most frequent length, so that no run gets another amount of
 *  work than the next. */
[[nodiscard]] std::string derSignatureOf(std::string_view text, EVP_PKEY& key);

[[nodiscard]] inline const unsigned char* bytesOf(std::string_view text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

[[nodiscard]] inline unsigned char* bytesOf(std::string& text)
{
    return reinterpret_cast<unsigned char*>(text.data());
}

/** A benchmark of something that fails would measure nothing. */
void require(bool succeeded, const char* what);

} // namespace bench
