// SPDX-License-Identifier: Apache-2.0
#include "operations.hpp"

#include "floors.hpp"
#include "peers.hpp"

#include <bmcoauth/service.hpp>

#include <json/reader.h>

#include <algorithm>
#include <chrono>
#include <numeric>

namespace bench
{

namespace
{

using floors::Reading;
using support::HeapText;
using support::Releaser;

using HeaderPtr = std::unique_ptr<JWTHeader, Releaser<free_jwt_header>>;
using PayloadPtr = std::unique_ptr<JWTPayload, Releaser<free_jwt_payload>>;
using ResponsePtr = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;

unsigned int lengthOf(std::string_view text)
{
    return static_cast<unsigned int>(text.size());
}

/** The lists of the interface are read only, but are not declared so. */
HandshakePayload* record(const support::PayloadPtr& kept)
{
    return kept.get();
}

// ------------------------------------------------------------------------------ the library's calls

/** What generateJWT is handed, as a service holds it. */
struct Records
{
    explicit Records(std::size_t scopeCount) : scopes{scopeCount}
    {
    }

    Claims claims;
    Scopes scopes;
    std::string type = "JWT";
    std::string algorithm = "ES256";
    JWTHeader header{type.data(), algorithm.data(), nullptr};
    JWTPayload payload{.jti = claims.id.data(),
                       .sub = claims.subject.data(),
                       .iss = claims.issuer.data(),
                       .iat = claims.issuedAt.data(),
                       .exp = claims.expiry.data(),
                       .nbf = claims.notBefore.data(),
                       .aud = nullptr,
                       .xidp = nullptr,
                       .act = nullptr,
                       .ravok_roles = nullptr,
                       .scope = nullptr,
                       .scopes = scopes.data(),
                       .scopes_count = scopes.count()};
};

void issue(Records& records)
{
    const std::string& der = fixtures().ownDer;
    const HeapText token{
        generateJWT(&records.header, &records.payload, bytesOf(der), static_cast<int>(der.size()))};
    require(token != nullptr, "generateJWT");
}

void authorize(Records& records)
{
    const std::string& der = fixtures().ownDer;
    AuthorizeClaims claims{records.claims.subject.data(), records.claims.issuer.data(),
                           records.scopes.data(), records.scopes.count()};
    const ResponsePtr response{
        authorize_client("state", bytesOf(der), lengthOf(der), nullptr, &claims)};
    require(response != nullptr, "authorize_client");
}

void validate(const std::string& token)
{
    const std::string& der = fixtures().ownDer;
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int verdict =
        validateJWT(token.c_str(), bytesOf(der), static_cast<int>(der.size()), &header, &payload);
    const HeaderPtr ownedHeader{header};
    const PayloadPtr ownedPayload{payload};
    require(verdict == 1, "validateJWT");
}

void validateDelegated(const std::string& token, const char** keys)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    const int verdict = validateJWT_Delegated(token.c_str(), keys, 0, &header, &payload, 30,
                                              nullptr, nullptr, &verified);
    const HeaderPtr ownedHeader{header};
    const PayloadPtr ownedPayload{payload};
    require(verdict == 1 && verified == 1, "validateJWT_Delegated");
}

Work validatesWith(const Issuer& issuer, const std::string& key)
{
    return [&issuer, keys = std::array<const char*, 2>{key.c_str(), nullptr}]() mutable {
        validateDelegated(issuer.token, keys.data());
    };
}

/** `count` trusted keys, of which the last one has signed. */
struct TrustedKeys
{
    explicit TrustedKeys(std::size_t count)
    {
        const auto& others = fixtures().otherKeys;
        pems.assign(others.begin(), others.begin() + static_cast<std::ptrdiff_t>(count - 1));
        pems.push_back(fixtures().es256.pem);
        for (const std::string& pem : pems)
        {
            pointers.push_back(pem.c_str());
        }
        pointers.push_back(nullptr);
    }

    std::vector<std::string> pems;
    std::vector<const char*> pointers;
};

/** The controller's own key as a service signs with it. */
struct OwnSigner
{
    [[nodiscard]] static bmcoauth::Expected<bmcoauth::Bytes>
    sign(const bmcoauth::Sha256Digest& digest)
    {
        const std::unique_ptr<EVP_PKEY_CTX, Releaser<EVP_PKEY_CTX_free>> context{
            EVP_PKEY_CTX_new(&fixtures().own.key(), nullptr)};
        std::array<unsigned char, 80> der{};
        std::size_t length = der.size();
        require(EVP_PKEY_sign_init(context.get()) == 1 &&
                    EVP_PKEY_sign(context.get(), der.data(), &length, digest.data(),
                                  digest.size()) == 1,
                "EVP_PKEY_sign");
        return bmcoauth::Bytes::copy({der.data(), length});
    }
    [[nodiscard]] static bmcoauth::Expected<bmcoauth::Bytes> publicPoint()
    {
        return bmcoauth::Bytes::copy(bmcoauth::bytesOf(support::publicPoint(fixtures().own.key())));
    }
};

/** Judges the same token again and again, by a validator that remembers `cacheSize` of them. */
Work judgesAgain(std::size_t cacheSize)
{
    const bmcoauth::SigningKeys keys = bmcoauth::SigningKeys::of(OwnSigner{}).value();
    const bmcoauth::TokenIssuer issuer =
        bmcoauth::TokenIssuer::of(keys, {.issuer = "controller", .audience = "console"},
                                  bmcoauth::systemClock())
            .value();
    const auto token = std::make_shared<const bmcoauth::IssuedToken>(
        issuer.issue("admin", bmcoauth::Privileges::all(), std::chrono::hours{1}).value());
    const auto validator = std::make_shared<const bmcoauth::TokenValidator>(
        bmcoauth::TokenValidator::of(keys.verificationKeys(),
                                     {.issuer = "controller",
                                      .audience = "console",
                                      .longestLifetime = std::chrono::hours{1},
                                      .revoked = [](const bmcoauth::Claims&) { return false; },
                                      .cacheSize = cacheSize},
                                     bmcoauth::systemClock())
            .value());
    return [token, validator] {
        require(validator->validate(token->token).has_value(), "TokenValidator");
    };
}

struct SealedText
{
    HeapText body;
    HeapText mac;
};

SealedText seal()
{
    const Fixtures& made = fixtures();
    HandshakePayload* peer = record(made.peerRecord);
    char* mac = nullptr;
    HeapText body{ecies_encrypt(made.plaintext.c_str(), lengthOf(made.plaintext), &peer, &mac,
                                bytesOf(made.ownDer), static_cast<int>(made.ownDer.size()),
                                made.iv.c_str())};
    require(body != nullptr, "ecies_encrypt");
    return {std::move(body), HeapText{mac}};
}

void open(const floors::Envelope& envelope)
{
    const Fixtures& made = fixtures();
    HandshakePayload* peer = record(made.ownRecord);
    unsigned int length = 0;
    const HeapText plain{ecies_decrypt(envelope.body.c_str(), &length, bytesOf(made.peerDer),
                                       static_cast<int>(made.peerDer.size()), envelope.mac.c_str(),
                                       &peer, made.iv.c_str())};
    require(plain != nullptr && length > made.plaintext.size(), "ecies_decrypt");
}

support::PayloadPtr respond(HandshakePayload* challenge)
{
    const Fixtures& made = fixtures();
    HandshakePayload* certificate = record(made.peerRecord);
    HandshakePayload* response = nullptr;
    require(generateHandshakeResponse(challenge, made.secrets.c_str(), lengthOf(made.secrets),
                                      &certificate, &response, bytesOf(made.peerDer),
                                      lengthOf(made.peerDer)),
            "generateHandshakeResponse");
    return support::PayloadPtr{response};
}

void checkResponse(HandshakePayload* challenge, HandshakePayload* response)
{
    HandshakePayload* certificate = record(fixtures().peerRecord);
    require(validateHandshakeResponse(challenge, nullptr, 0, &certificate, response),
            "validateHandshakeResponse");
}

void base64Decode(const std::string& text)
{
    char* bytes = nullptr;
    int length = 0;
    require(base64URIdecode(text.c_str(), &bytes, &length) == 1, "base64URIdecode");
    const HeapText owned{bytes};
}

void base64Encode(const std::string& bytes)
{
    char* text = nullptr;
    require(base64encode(bytes.data(), &text, static_cast<int>(bytes.size())) == 1, "base64encode");
    const HeapText owned{text};
}

Json::Value treeOf(const std::string& text)
{
    Json::Value tree;
    require(loadJsonDoc(text.c_str(), tree), "loadJsonDoc");
    return tree;
}

// ----------------------------------------------------------------------------------------- the list

/** Lists that functions take as `HandshakePayload*` although they only read them. */
template <typename List>
HandshakePayload* payloadOf(const List& list)
{
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    return const_cast<List&>(list);
}

Operation delegated(const std::string& name, const Issuer& issuer, const std::string& key,
                    double must, double reach)
{
    const auto floorOf = [&issuer](Reading reading) -> Work {
        if (issuer.algorithm == "RS256")
        {
            return [&issuer, reading] {
                floors::validateRsa(issuer.token, issuer.pem, reading);
            };
        }
        if (issuer.algorithm == "PS256")
        {
            return [&issuer, reading] {
                floors::validatePss(issuer.token, issuer.pem, reading);
            };
        }
        const EVP_MD* digest = issuer.algorithm == "ES384" ? EVP_sha384() : EVP_sha256();
        return [&issuer, digest, reading] {
            floors::validateEc(issuer.token, issuer.pem, digest, reading);
        };
    };
    return {.name = name,
            .must = must,
            .reach = reach,
            .contenders = {{library, validatesWith(issuer, key)},
                           {floorName, floorOf(Reading::claims)},
                           {bareFloor, floorOf(Reading::none)}}};
}

std::vector<Operation> tokenOperations()
{
    const Fixtures& made = fixtures();
    const auto records = std::make_shared<Records>(1);
    const auto keys = std::make_shared<TrustedKeys>(made.otherKeys.size() + 1);
    return {
        {.name = "issue",
         .must = 1.00,
         .reach = 0.90,
         .contenders = {{library,
                         [records] {
                             issue(*records);
                         }},
                        {floorName,
                         [&made, payload = made.claims.json()] {
                             static_cast<void>(
                                 floors::issue(made.headerJson, payload, made.ownDer));
                         }}}},
        {.name = "authorize",
         .must = 1.02,
         .reach = 0.93,
         .contenders = {{library,
                         [records] {
                             authorize(*records);
                         }},
                        {floorName,
                         [&made] {
                             floors::authorize(made.headerJson, made.claims, made.ownDer);
                         }}}},
        {.name = "validate",
         .must = 1.03,
         .reach = 0.92,
         .contenders = {{library,
                         [&made] {
                             validate(made.ownToken);
                         }},
                        {floorName,
                         [&made] {
                             floors::validate(made.ownToken, made.ownDer, Reading::claims);
                         }},
                        {bareFloor,
                         [&made] {
                             floors::validate(made.ownToken, made.ownDer, Reading::none);
                         }}}},
        // A token seen before costs no signature check; the others do.
        {.name = "validate-seen",
         .must = 0.03,
         .reach = 0.01,
         .contenders = {{library, judgesAgain(1)}, {floorName, judgesAgain(0)}}},
        delegated("delegated-es256-pem", made.es256, made.es256.pem, 1.08, 0.95),
        delegated("delegated-es256-jwk", made.es256, made.es256.decodedJwk, 1.08, 0.95),
        delegated("delegated-rs256", made.rs256, made.rs256.pem, 1.30, 1.10),
        delegated("delegated-ps256", made.ps256, made.ps256.pem, 1.30, 1.10),
        delegated("delegated-es384", made.es384, made.es384.pem, 1.02, 1.01),
        {.name = "delegated-100-keys",
         .must = 1.05,
         .reach = 0.65,
         .contenders = {{library,
                         [&made, keys] {
                             validateDelegated(made.es256.token, keys->pointers.data());
                         }},
                        {floorName,
                         [&made, keys] {
                             floors::validateEcWithOneOf(made.es256.token, keys->pems);
                         }}}},
    };
}

std::vector<Operation> handshakeOperations()
{
    const Fixtures& made = fixtures();
    HandshakePayload* const certificateChallenge = payloadOf(made.certificateChallenge);
    HandshakePayload* const passwordChallenge = payloadOf(made.passwordChallenge);
    const auto envelope = std::make_shared<floors::Envelope>(
        floors::seal(made.plaintext, made.peer.body(), made.ownDer, made.iv));
    const auto proof = std::make_shared<support::PayloadPtr>(respond(certificateChallenge));
    const auto ownCertificate = std::make_shared<std::string>(made.own.body());
    const auto peerCertificate = std::make_shared<std::string>(made.peer.body());
    return {
        {.name = "seal",
         .must = 1.05,
         .reach = 0.90,
         .contenders = {{library,
                         [] {
                             static_cast<void>(seal());
                         }},
                        {floorName,
                         [&made, peerCertificate] {
                             static_cast<void>(floors::seal(made.plaintext, *peerCertificate,
                                                            made.ownDer, made.iv));
                         }}}},
        {.name = "open",
         .must = 1.05,
         .reach = 0.90,
         .contenders = {{library,
                         [envelope] {
                             open(*envelope);
                         }},
                        {floorName,
                         [&made, envelope, ownCertificate] {
                             static_cast<void>(
                                 floors::open(*envelope, *ownCertificate, made.peerDer, made.iv));
                         }}}},
        {.name = "proof",
         .must = 1.05,
         .reach = 1.00,
         .contenders = {{library,
                         [certificateChallenge] {
                             static_cast<void>(respond(certificateChallenge));
                         }},
                        {floorName,
                         [&made, peerCertificate] {
                             static_cast<void>(
                                 floors::proof(made.claimedText, *peerCertificate, made.peerDer));
                         }}}},
        {.name = "proof-check",
         .must = 1.05,
         .reach = 1.00,
         .contenders = {{library,
                         [certificateChallenge, proof] {
                             checkResponse(certificateChallenge, proof->get());
                         }},
                        {floorName,
                         [&made, proof, peerCertificate] {
                             floors::checkProof(made.claimedText, (*proof)->values[0],
                                                *peerCertificate);
                         }}}},
        {.name = "hotp",
         .contenders = {{library,
                         [passwordChallenge] {
                             static_cast<void>(respond(passwordChallenge));
                         }},
                        {floorName,
                         [&made] {
                             static_cast<void>(
                                 floors::oneTimePassword(made.secrets, "hotp1.0", 7, 123456789));
                         }}}},
    };
}

std::vector<Operation> encodingOperations()
{
    const Fixtures& made = fixtures();
    const auto tree = std::make_shared<Json::Value>(treeOf(made.claims.json()));
    const Json::Value rsa = treeOf(made.rs256.jwk);
    return {
        {.name = "ec-key-import",
         .must = 1.2,
         .reach = 1.1,
         .contenders = {{library,
                         [&made] {
                             const HeapText pem{
                                 createEcPublicKey(made.x.c_str(), made.y.c_str(), "P-256")};
                             require(pem != nullptr, "createEcPublicKey");
                         }},
                        {floorName,
                         [&made] {
                             static_cast<void>(floors::ecPublicKey(made.x, made.y));
                         }}}},
        {.name = "rsa-key-import",
         .must = 3,
         .reach = 2,
         .contenders = {{library,
                         [n = rsa["n"].asString(), e = rsa["e"].asString()] {
                             const HeapText pem{createRsaPublicKey(n.c_str(), e.c_str())};
                             require(pem != nullptr, "createRsaPublicKey");
                         }},
                        {floorName,
                         [n = rsa["n"].asString(), e = rsa["e"].asString()] {
                             static_cast<void>(floors::rsaPublicKey(n, e));
                         }}}},
        {.name = "base64-decode",
         .must = 1.2,
         .reach = 1.1,
         .contenders = {{library,
                         [&made] {
                             base64Decode(made.kilobyteText);
                         }},
                        {floorName,
                         [&made] {
                             floors::base64Decode(made.kilobyteText);
                         }}}},
        {.name = "base64-encode",
         .must = 1.2,
         .reach = 1.1,
         .contenders = {{library,
                         [&made] {
                             base64Encode(made.kilobyte);
                         }},
                        {floorName,
                         [&made] {
                             floors::base64Encode(made.kilobyte);
                         }}}},
        {.name = "json-write",
         .must = 1.2,
         .reach = 1.1,
         .contenders = {{library,
                         [tree] {
                             require(!json_fastWriter(*tree).empty(), "json_fastWriter");
                         }},
                        {floorName,
                         [tree] {
                             static_cast<void>(floors::json(*tree));
                         }}}},
    };
}

Work validatesWithKeys(std::size_t count)
{
    return [keys = std::make_shared<TrustedKeys>(count)] {
        validateDelegated(fixtures().es256.token, keys->pointers.data());
    };
}

/** A token whose payload is `times` as long as the usual one: claims that nobody asks for. */
Work validatesPayload(std::size_t times)
{
    std::string payload = fixtures().claims.json();
    const std::size_t wanted = payload.size() * times;
    for (std::size_t i = 0; payload.size() < wanted; ++i)
    {
        payload.pop_back();
        payload.append(",\"claim").append(std::to_string(i)).append(R"(":"of another party"})");
    }
    return [token = fixtures().ownTokenWith(payload)] {
        validate(token);
    };
}

Work readsCertificates(std::size_t count)
{
    std::string pem;
    for (std::size_t i = 0; i < count; ++i)
    {
        pem += fixtures().peer.pem();
    }
    return [pem] {
        const support::PayloadPtr key{encode_x509_jwk(pem.c_str(), lengthOf(pem))};
        require(key != nullptr, "encode_x509_jwk");
    };
}

} // namespace

std::vector<Operation> operations()
{
    std::vector<Operation> all = tokenOperations();
    for (auto&& more : {handshakeOperations(), encodingOperations()})
    {
        all.insert(all.end(), more.begin(), more.end());
    }
    for (const Peer& peer : peers())
    {
        for (Operation& operation : all)
        {
            const auto work = peer.works.find(operation.name);
            if (work != peer.works.end())
            {
                operation.contenders.push_back({peer.name, work->second});
            }
        }
    }
    return all;
}

Operation operationOf(const std::string& name)
{
    const std::vector<Operation> all = operations();
    const auto found = std::ranges::find(all, name, &Operation::name);
    require(found != all.end(), name.c_str());
    return *found;
}

std::vector<Growth> growths()
{
    return {
        {"payload", {1, 3, 10, 30, 100}, validatesPayload},
        {"keys", {1, 3, 10, 30, 100}, validatesWithKeys},
        {"scopes-issued",
         {1, 10, 100, 1000},
         [](std::size_t count) -> Work {
             return [records = std::make_shared<Records>(count)] {
                 issue(*records);
             };
         }},
        {"scopes-validated",
         {1, 10, 100, 1000},
         [](std::size_t count) -> Work {
             return [token = fixtures().ownTokenWith(fixtures().claims.json(count))] {
                 validate(token);
             };
         }},
        {"certificates", {1, 3, 10, 30, 100}, readsCertificates},
    };
}

} // namespace bench
