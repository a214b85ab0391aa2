// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"
#include "support/issuer.hpp"
#include "support/tokens.hpp"

#include <array>

namespace faults
{

namespace
{

const tokens::PrivateKey& key()
{
    return tokens::serviceKey();
}

constexpr const char* header = R"({"alg":"ES256","typ":"JWT"})";
constexpr const char* headerWithKey = R"({"alg":"ES256","kid":"key","typ":"JWT"})";

std::string claims(const std::string& expiry, const std::string& scope = "")
{
    return R"({"exp":")" + expiry + R"(","iat":"1600000000","iss":"EC","jti":"id",)" +
           R"("nbf":"1600000000",)" + scope + R"("sub":"subject"})";
}

constexpr const char* scopes = R"("scope":{"role":["admin","user"],"single":["x"]},)";

/** @p token with one character of its signature altered. */
std::string forged(std::string token)
{
    char& altered = token[token.size() - 20];
    altered = altered == 'A' ? 'B' : 'A';
    return token;
}

/** A token of ours; what exists of the records is handed out whatever the result. Where memory runs
 *  out the result is 0, and 3 where it does for a record. */
template <typename Validate>
Outcome validates(Attempt& attempt, int wanted, const Validate& validate)
{
    JWTHeader* headerOut = nullptr;
    JWTPayload* payloadOut = nullptr;
    const int result = attempt.call([&] { return validate(&headerOut, &payloadOut); });
    const HeaderPtr headerOwner{headerOut};
    const TokenPtr payloadOwner{payloadOut};
    if (result == wanted && (result != 0 || payloadOut != nullptr))
    {
        return got(std::to_string(result) + "\n" + show(headerOut) + show(payloadOut));
    }
    return result == 0 || result == 3 ? failed() : wrong("answered " + std::to_string(result));
}

Outcome validatesOwn(Attempt& attempt, int wanted, const std::string& token)
{
    return validates(attempt, wanted, [&](JWTHeader** headerOut, JWTPayload** payloadOut) {
        return validateJWT(token.c_str(), key().data(), key().length(), headerOut, payloadOut);
    });
}

Outcome generates(Attempt& attempt, const char* keyId, const tokens::PrivateKey* signer)
{
    std::string name = "role";
    std::string value = "admin";
    std::array<char*, 1> values{value.data()};
    JWTscopes scope{name.data(), values.data(), 1};
    const HeaderPtr made{create_jwt_header("JWT", "ES256", keyId)};
    const TokenPtr payload{
        create_jwt_payload("subject", "id", "issuer", nullptr, nullptr, "1800000000", nullptr, 0)};
    payload->scopes = &scope;
    payload->scopes_count = 1;
    const HeapText token{attempt.call([&] {
        return generateJWT(made.get(), payload.get(), signer == nullptr ? nullptr : signer->data(),
                           signer == nullptr ? 0 : signer->length());
    })};
    payload->scopes = nullptr;
    payload->scopes_count = 0;
    if (!token)
    {
        return failed();
    }
    const std::vector<std::string> parts = tokens::partsOf(token.get());
    const std::string signedPart = parts.at(0) + "." + parts.at(1);
    if (signer != nullptr &&
        !tokens::verifies(signedPart, tokens::fromBase64Url(parts.at(2)), *signer))
    {
        return wrong("not signed");
    }
    return got(signedPart);
}

/** What another party issues. */
std::string delegated(const std::string& algorithm, const std::string& payload,
                      const issuer::Key& signer, const char* digest, std::size_t half,
                      issuer::Padding padding = {})
{
    const std::string input =
        issuer::signingInput(R"({"alg":")" + algorithm + R"(","kid":"1","typ":"JWT"})", payload);
    const std::string signature = signer.sign(input, digest, padding);
    return issuer::token(input, half == 0 ? signature : issuer::sideBySide(signature, half));
}

constexpr const char* delegatedClaims =
    R"({"aud":["controller"],"exp":1800000000,"iss":"issuer","nbf":1600000000,)"
    R"("ravok_roles":["operator"],"scope":"ravok_login","sub":"subject","xidp":{"idp":["CD"]}})";
constexpr const char* structuredClaims =
    R"({"exp":"1800000000","scope":{"AUTHNZ_USER":["root"],"USER_PRIV":["511"]},"sub":"subject"})";
constexpr const char* oldClaims = R"({"exp":1650000000,"sub":"subject"})";

/** A published key, completed. */
std::string jwkOf(const std::string& members, const std::string& pem)
{
    char* text = support::heapText("{" + members + R"(,"kid":"1"})").release();
    set_value_char(&text, "kest_decoded_key", pem.c_str());
    const HeapText owner{text};
    return text;
}

Outcome validatesDelegated(Attempt& attempt, int wanted, const std::string& token,
                           const std::vector<std::string>& trusted)
{
    std::vector<const char*> keys;
    keys.reserve(trusted.size() + 1);
    for (const std::string& one : trusted)
    {
        keys.push_back(one.c_str());
    }
    keys.push_back(nullptr);
    std::array<userRole_s, 2> roles{{{"operator", 0x40}, {nullptr, 0}}};
    std::array<const char*, 2> providers{"idp", nullptr};
    JWTHeader* headerOut = nullptr;
    JWTPayload* payloadOut = nullptr;
    int verified = 0;
    const int result = attempt.call([&] {
        return validateJWT_Delegated(token.c_str(), keys.data(), 0, &headerOut, &payloadOut, 0,
                                     roles.data(), providers.data(), &verified);
    });
    const HeaderPtr headerOwner{headerOut};
    const TokenPtr payloadOwner{payloadOut};
    if (result == wanted && (result != 0 || payloadOut != nullptr))
    {
        return got(std::to_string(result) + " verified: " + std::to_string(verified) + "\n" +
                   show(headerOut) + show(payloadOut));
    }
    return result != 0     ? wrong("answered " + std::to_string(result))
           : verified == 0 ? failed()
                           : wrong("failed after it had verified");
}

std::string es256(const char* payload)
{
    return delegated("ES256", payload, issuer::p256Key(), "SHA256", 32);
}

constexpr const char* ecMembers = R"("kty":"EC","crv":"P-256")";
constexpr const char* rsaMembers = R"("kty":"RSA")";

const Table rows{
    {"generateJWT", "scopes and a key id", getsBy,
     [](Attempt& attempt) {
         return generates(attempt, "key", &key());
     }},
    {"generateJWT", "no key", getsBy,
     [](Attempt& attempt) {
         return generates(attempt, nullptr, nullptr);
     }},
    {"validateJWT", "a valid token", getsBy,
     [](Attempt& attempt) {
         static const std::string token = tokens::handmade(header, claims("1800000000"));
         return validatesOwn(attempt, 1, token);
     }},
    {"validateJWT", "scopes and a key id", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token =
             tokens::handmade(headerWithKey, claims("1800000000", scopes));
         return validatesOwn(attempt, 1, token);
     }},
    {"validateJWT", "an expired token", getsBy | isRefused,
     [](Attempt& attempt) {
         static const std::string token = tokens::handmade(header, claims("1650000000"));
         return validatesOwn(attempt, 2, token);
     }},
    {"validateJWT", "a forged token", getsBy | isRefused,
     [](Attempt& attempt) {
         static const std::string token = forged(tokens::handmade(header, claims("1800000000")));
         return validatesOwn(attempt, 0, token);
     }},
    {"parseJWT", "a valid token", getsBy,
     [](Attempt& attempt) {
         static const std::string token = tokens::handmade(header, claims("1800000000"));
         return validates(attempt, 1, [](JWTHeader** headerOut, JWTPayload** payloadOut) {
             return parseJWT(token, key().data(), key().length(), headerOut, payloadOut);
         });
     }},
    {"validateJWT_Delegated", "ES256 and a PEM key", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token = es256(delegatedClaims);
         return validatesDelegated(attempt, 1, token, {issuer::p256Key().pem()});
     }},
    {"validateJWT_Delegated", "ES256 in DER and an EC JWK", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token =
             delegated("ES256", delegatedClaims, issuer::p256Key(), "SHA256", 0);
         return validatesDelegated(attempt, 1, token, {jwkOf(ecMembers, issuer::p256Key().pem())});
     }},
    {"validateJWT_Delegated", "ES384 and a PEM key", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token =
             delegated("ES384", structuredClaims, issuer::p384Key(), "SHA384", 48);
         return validatesDelegated(attempt, 1, token, {issuer::p384Key().pem()});
     }},
    {"validateJWT_Delegated", "RS256 and an RSA JWK", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token =
             delegated("RS256", structuredClaims, issuer::rsaKey(), "SHA256", 0);
         return validatesDelegated(attempt, 1, token, {jwkOf(rsaMembers, issuer::rsaKey().pem())});
     }},
    {"validateJWT_Delegated", "PS256 and an RSA PUBLIC KEY", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token =
             delegated("PS256", structuredClaims, issuer::rsaKey(), "SHA256", 0, {.pss = true});
         return validatesDelegated(attempt, 1, token, {issuer::rsaKey().pkcs1Pem()});
     }},
    {"validateJWT_Delegated", "three keys of which the last matches", getsBy | ends,
     [](Attempt& attempt) {
         static const std::string token = es256(structuredClaims);
         return validatesDelegated(attempt, 1, token,
                                   {jwkOf(ecMembers, issuer::otherP256Key().pem()),
                                    issuer::otherP256Key().pem(), issuer::p256Key().pem()});
     }},
    {"validateJWT_Delegated", "an expired token", getsBy | isRefused | ends,
     [](Attempt& attempt) {
         static const std::string token = es256(oldClaims);
         return validatesDelegated(attempt, 2, token, {issuer::p256Key().pem()});
     }},
    {"validateJWT_Delegated", "another party's key", getsBy | isRefused | ends,
     [](Attempt& attempt) {
         static const std::string token = es256(structuredClaims);
         return validatesDelegated(attempt, 0, token, {issuer::otherP256Key().pem()});
     }},
    {"validateJWT_Delegated", "another party's RSA key", getsBy | isRefused | ends,
     [](Attempt& attempt) {
         static const std::string token =
             delegated("PS256", structuredClaims, issuer::rsaKey(), "SHA256", 0, {.pss = true});
         return validatesDelegated(attempt, 0, token, {issuer::otherRsaKey().pem()});
     }},
};

} // namespace

} // namespace faults
