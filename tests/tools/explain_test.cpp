// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "tools/certificate_rules.hpp"
#include "tools/clock.hpp"
#include "tools/envelope_rules.hpp"
#include "tools/handshake.hpp"
#include "tools/handshake_rules.hpp"
#include "tools/token_rules.hpp"

#include <bmcoauth.hpp>

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <cerrno>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

using bmcoauth::CertificateKey;
using bmcoauth::Credentials;
using bmcoauth::Judgement;
using bmcoauth::ParameterList;
using bmcoauth::PrivateKey;
using bmcoauth::Text;
using bmcoauth::tool::Exit;
using bmcoauth::tool::exitOf;
using bmcoauth::tool::Explanation;
using bmcoauth::tool::TrustedKey;
using support::base64Url;
using support::Identity;

namespace
{

// An explanation tells the library's rules a second time. Whatever is explained here is put before
// the library as well, and both have to come to one verdict; and of every rule one input is
// known that breaks it and no other.

constexpr std::time_t now = 1'700'000'000;

const unsigned char* bytesOf(const std::string& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.data());
}

int lengthOf(const std::string& bytes)
{
    return static_cast<int>(bytes.size());
}

PrivateKey privateKeyOf(const Identity& identity)
{
    const std::string der = identity.privateKeyDer();
    return *PrivateKey::fromDer({bytesOf(der), der.size()});
}

/** What stands in an input, what takes its place, and the rule that this breaks. */
struct Change
{
    std::string from;
    std::string to;
    std::string rule;
};

std::string changed(std::string text, const Change& change)
{
    const std::size_t position = text.find(change.from);
    EXPECT_NE(position, std::string::npos) << change.from;
    return text.replace(position, change.from.size(), change.to);
}

/** The text with each of its characters replaced by some others, one at a time. */
template <typename Body>
void withEachCharacterChanged(const std::string& text, const Body& body)
{
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        for (const char c : {'A', '.', '*', '\n'})
        {
            std::string other = text;
            other[i] = c;
            SCOPED_TRACE(std::to_string(i) + " " + c);
            body(other);
        }
    }
}

// -------------------------------------------------------------------------------- tokens of ours

struct ExplainOwnToken : testing::Test
{
    [[nodiscard]] std::string token(const std::string& head, const std::string& claims) const
    {
        const std::string input = base64Url(head) + "." + base64Url(claims);
        const support::HeapText signature{signToken(input, bytesOf(der), lengthOf(der))};
        return input + "." + signature.get();
    }

    // NOLINTNEXTLINE(modernize-use-nodiscard): that both verdicts agree is expected inside
    Explanation explain(const std::string& text) const
    {
        JWTHeader* head = nullptr;
        JWTPayload* body = nullptr;
        const int verdict = validateJWT(text.c_str(), bytesOf(der), lengthOf(der), &head, &body);
        free_jwt_header(head);
        free_jwt_payload(body);
        Explanation explanation = bmcoauth::tool::explainOwnToken(
            text, key, bmcoauth::tool::librarySeconds(std::time(nullptr)));
        EXPECT_EQ(explanation.verdict, exitOf(static_cast<Judgement>(verdict))) << text;
        EXPECT_EQ(explanation.rule.empty(), verdict == 1);
        EXPECT_EQ(explanation.saw.empty(), verdict == 1);
        EXPECT_EQ(explanation.wanted.empty(), verdict == 1);
        return explanation;
    }

    const std::string der = Identity::selfSigned({}).privateKeyDer();
    const bmcoauth::PrivateKey key =
        bmcoauth::PrivateKey::fromDer({bytesOf(der), der.size()}).value();
    const std::string header = R"({"alg":"ES256","typ":"JWT","kid":"k"})";
    const std::string payload =
        R"({"exp":"1700000010","iat":"1699999990","iss":"i","jti":"j","nbf":"1699999990",)"
        R"("scope":{"a":["b","c"],"d":[]},"sub":"s"})";
    support::FakeClock clock{now};
};

TEST_F(ExplainOwnToken, AcceptsWhatTheLibraryAccepts)
{
    EXPECT_EQ(explain(token(header, payload)).verdict, Exit::success);
    for (const Change& change : std::vector<Change>{{"\"k\"", "\"\"", ""},
                                                    {",\"kid\":\"k\"", "", ""},
                                                    {"ES256", "none", ""},
                                                    {"{", "/**/{", ""},
                                                    {"}", "} more", ""}})
    {
        EXPECT_EQ(explain(token(changed(header, change), payload)).rule, "") << change.to;
    }
    for (const Change& change : std::vector<Change>{
             {R"("scope":{"a":["b","c"],"d":[]},)", "", ""},
             {"1700000010", "1700000001", ""},
             {"1700000010", "0xffffffff", ""},
             {"1700000010", "-1", ""},
             {"1700000010", "99999999999999999999999", ""},
             {"\"nbf\":\"1699999990", "\"nbf\":\"1700000000", ""},
             {"\"nbf\":\"1699999990", "\"nbf\":\"", ""},
             {"\"nbf\":\"1699999990", "\"nbf\":\"soon", ""},
             {"\"iat\":\"1699999990", "\"iat\":\"x", ""},
         })
    {
        EXPECT_EQ(explain(token(header, changed(payload, change))).rule, "") << change.to;
    }
}

TEST_F(ExplainOwnToken, NamesTheRuleThatAHeaderBreaks)
{
    for (const Change& change : std::vector<Change>{{"\"alg\":\"ES256\",", "", "alg"},
                                                    {"\"ES256\"", "7", "alg"},
                                                    {"\"JWT\"", "null", "typ"},
                                                    {"\"typ\":\"JWT\",", "", "typ"},
                                                    {"\"k\"", "[]", "kid"},
                                                    {"\"k\"", "null", "kid"},
                                                    {"{", "[{", "header"},
                                                    {header, std::string(5000, '['), "header"},
                                                    {header, "7", "header"},
                                                    {header, "", "header"}})
    {
        EXPECT_EQ(explain(token(changed(header, change), payload)).rule, change.rule) << change.to;
    }
}

TEST_F(ExplainOwnToken, NamesTheRuleThatAPayloadBreaks)
{
    for (const Change& change : std::vector<Change>{
             {payload, "", "payload"},
             {payload, "null", "payload"},
             {payload, std::string(5000, '{'), "payload"},
             {"\"s\"", "5", "sub"},
             {",\"sub\":\"s\"", "", "sub"},
             {"\"iss\":\"i\",", "", "iss"},
             {"\"i\"", "null", "iss"},
             {"\"j\"", "{}", "jti"},
             {"\"1700000010\"", "1700000010", "exp"},
             {"\"nbf\":\"1699999990\"", "\"nbf\":1699999990", "nbf"},
             {"\"iat\":\"1699999990\"", "\"iat\":null", "iat"},
             {"\"nbf\":\"1699999990", "\"nbf\":\"1700000001", "nbf"},
             {"\"nbf\":\"1699999990", "\"nbf\":\"0x7fffffff", "nbf"},
             {"1700000010", "1700000000", "exp"},
             {"1700000010", "0", "exp"},
             {"1700000010", "", "exp"},
             {"1700000010", "01700000010", "exp"},
             {R"({"a":["b","c"],"d":[]})", "{}", "scope"},
             {R"({"a":["b","c"],"d":[]})", "null", "scope"},
             {R"({"a":["b","c"],"d":[]})", "\"read write\"", "scope"},
             {R"(["b","c"])", "\"b\"", "scope"},
             {R"(["b","c"])", "[7]", "scope"},
             {R"(["b","c"])", "{\"x\":\"y\"}", "scope"},
         })
    {
        EXPECT_EQ(explain(token(header, changed(payload, change))).rule, change.rule) << change.to;
    }
}

TEST_F(ExplainOwnToken, SaysHowFarATimeIsAway)
{
    const Explanation late =
        explain(token(header, changed(payload, {"1700000010", "1699999959", ""})));
    EXPECT_EQ(late.verdict, Exit::expired);
    EXPECT_TRUE(late.saw.starts_with("expired 41 s ago by this clock")) << late.saw;
    const Explanation early = explain(
        token(header, changed(payload, {"\"nbf\":\"1699999990", "\"nbf\":\"1700007200", ""})));
    EXPECT_EQ(early.verdict, Exit::invalid);
    EXPECT_TRUE(early.saw.starts_with("valid in 7200 s (2 hours)")) << early.saw;
    const Explanation octal = explain(token(header, changed(payload, {"1700000010", "0170", ""})));
    EXPECT_TRUE(octal.hint.starts_with("exp is read as 120: octal")) << octal.hint;
}

TEST_F(ExplainOwnToken, AgreesAtEverySecond)
{
    const std::string text = token(header, payload);
    for (std::time_t seconds = now - 12; seconds < now + 12; ++seconds)
    {
        clock.set(seconds);
        const Exit expected = seconds < now - 10   ? Exit::invalid
                              : seconds < now + 10 ? Exit::success
                                                   : Exit::expired;
        EXPECT_EQ(explain(text).verdict, expected) << seconds;
    }
}

TEST_F(ExplainOwnToken, NamesAClockThatCannotBeRead)
{
    const std::string text = token(header, payload);
    EXPECT_EQ(explain(text).rule, "");
    clock.failBreakingDown();
    const Explanation explanation = explain(text);
    EXPECT_EQ(explanation.rule, "clock");
    EXPECT_EQ(explanation.verdict, Exit::failure);
}

TEST_F(ExplainOwnToken, NamesTheSignature)
{
    const std::string good = token(header, payload);
    const std::string input = good.substr(0, good.rfind('.') + 1);
    for (const std::string& signature :
         {std::string{}, std::string{"*"}, std::string{"AAAA"}, base64Url(std::string(64, 'x')),
          good.substr(input.size()) + ".", std::string(100000, 'A')})
    {
        EXPECT_EQ(explain(input + signature).rule, "signature") << signature.size();
    }
    const Explanation raw = explain(input + base64Url(std::string(64, 'x')));
    EXPECT_NE(raw.hint.find("token convert"), std::string::npos) << raw.hint;
}

TEST_F(ExplainOwnToken, NamesMissingDots)
{
    for (const char* text : {"x", "a.b", "{}"})
    {
        EXPECT_EQ(explain(text).rule, "dots");
    }
    for (const char* text : {"..", "a.b.c", "...."})
    {
        EXPECT_EQ(explain(text).rule, "header");
    }
}

TEST_F(ExplainOwnToken, AgreesWhateverCharacterChanges)
{
    withEachCharacterChanged(token(header, payload),
                             [&](const std::string& text) { explain(text); });
}

// ------------------------------------------------------------------------ tokens of other issuers

std::string publicPem(EVP_PKEY& key)
{
    const std::unique_ptr<BIO, support::Releaser<BIO_free_all>> memory{BIO_new(BIO_s_mem())};
    PEM_write_bio_PUBKEY(memory.get(), &key);
    char* data = nullptr;
    const long length = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(length)};
}

/** An ECDSA or RSA PKCS#1 signature, as OpenSSL makes it. */
std::string signatureOf(EVP_PKEY& key, const EVP_MD* digest, const std::string& text)
{
    const std::unique_ptr<EVP_MD_CTX, support::Releaser<EVP_MD_CTX_free>> context{EVP_MD_CTX_new()};
    std::size_t length = 0;
    EVP_DigestSignInit(context.get(), nullptr, digest, nullptr, &key);
    EVP_DigestSign(context.get(), nullptr, &length, bytesOf(text), text.size());
    std::string signature(length, '\0');
    EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                   bytesOf(text), text.size());
    signature.resize(length);
    return signature;
}

std::string escaped(const std::string& pem)
{
    std::string text;
    for (const char c : pem)
    {
        text += c == '\n' ? "\\n" : std::string{c};
    }
    return text;
}

struct ExplainDelegatedToken : testing::Test
{
    /** A token signed by @p signer. */
    [[nodiscard]] static std::string token(EVP_PKEY& signer, const EVP_MD* digest,
                                           const std::string& head, const std::string& claims)
    {
        const std::string input = base64Url(head) + "." + base64Url(claims);
        return input + "." + base64Url(signatureOf(signer, digest, input));
    }

    [[nodiscard]] std::string token(const std::string& head, const std::string& claims) const
    {
        return token(*issuer, EVP_sha256(), head, claims);
    }

    /** A JSON Web Key with these members and the decoded key of @p key. */
    [[nodiscard]] static std::string jwk(const std::string& members, EVP_PKEY& key)
    {
        return "{" + members + (members.empty() ? "" : ",") + R"("kest_decoded_key":")" +
               escaped(publicPem(key)) + "\"}";
    }

    static Explanation explain(const std::string& text, const std::vector<std::string>& keys,
                               std::uint32_t skew = 0)
    {
        std::vector<TrustedKey> trusted;
        trusted.reserve(keys.size());
        for (const std::string& key : keys)
        {
            trusted.push_back({"key " + std::to_string(trusted.size() + 1), key, true});
        }
        const Judgement judgement =
            bmcoauth::tool::judgeByAll(text, trusted, {.skewSeconds = skew}).judgement();
        Explanation explanation = bmcoauth::tool::explainDelegatedToken(
            text, trusted, skew, bmcoauth::tool::librarySeconds(std::time(nullptr)));
        EXPECT_EQ(explanation.verdict, exitOf(judgement)) << text;
        EXPECT_EQ(explanation.rule.empty(), judgement == Judgement::valid);
        return explanation;
    }

    const support::PkeyPtr issuer = support::makeKey("prime256v1");
    const support::PkeyPtr other = support::makeKey("prime256v1");
    const support::PkeyPtr large = support::makeKey("secp384r1");
    const support::PkeyPtr rsa = support::makeKey("RSA");
    const std::string header = R"({"alg":"ES256","typ":"JWT","kid":"k"})";
    const std::string payload = R"({"exp":1700000010,"nbf":1699999990,"scope":"a b","sub":"s"})";
    support::FakeClock clock{now};
};

TEST_F(ExplainDelegatedToken, AgreesOnEveryKeyForEveryAlgorithm)
{
    std::vector<std::string> keys;
    for (EVP_PKEY* key : {issuer.get(), other.get(), large.get(), rsa.get()})
    {
        keys.push_back(publicPem(*key));
        for (const char* members :
             {"", R"("kty":"EC")", R"("kty":"EC","crv":"P-256")", R"("kty":"EC","crv":"P-384")",
              R"("kty":"EC","crv":"P-521")", R"("kty":"EC","crv":"secp256k1")", R"("kty":"RSA")",
              R"("kty":"oct","kid":"k")", R"("kty":"ec","alg":"ES256")",
              R"("kty":7,"alg":"RS256","x5c":["a"])"})
        {
            keys.push_back(jwk(members, *key));
        }
    }
    keys.insert(keys.end(), {"", "nonsense", "{}", "[]", R"({"kid":"k"})", R"({"alg":"ES256"})",
                             R"({"kid":"k","kest_decoded_key":7})",
                             R"({"kid":"k","kest_decoded_key":"nonsense"})"});
    int accepted = 0;
    for (const char* algorithm : {"ES256", "es256", "ES384", "ES512", "Ex", "E", "RS256", "rs256",
                                  "RSA", "PS256", "ps256", "R", "HS256", "hS256", "H", "none", ""})
    {
        const std::string head = changed(header, {"ES256", algorithm, ""});
        const EVP_MD* digest = head.find("384") != std::string::npos   ? EVP_sha384()
                               : head.find("512") != std::string::npos ? EVP_sha512()
                                                                       : EVP_sha256();
        for (EVP_PKEY* signer : {issuer.get(), large.get(), rsa.get()})
        {
            const std::string text = token(*signer, digest, head, payload);
            for (const std::string& key : keys)
            {
                SCOPED_TRACE(algorithm + (" " + key));
                accepted += explain(text, {key}).verdict == Exit::success ? 1 : 0;
            }
        }
    }
    EXPECT_GT(accepted, 30);
}

TEST_F(ExplainDelegatedToken, NamesWhyAKeyIsNoneForTheToken)
{
    const std::string text = token(header, payload);
    const std::string good = jwk(R"("kty":"EC")", *issuer);
    EXPECT_EQ(explain(text, {good}).rule, "");
    EXPECT_EQ(explain(text, {jwk(R"("kty":"EC","crv":"P-384")", *issuer)}).rule, "key selection");
    EXPECT_EQ(explain(text, {jwk(R"("kty":"EC")", *rsa)}).rule, "key type");
    EXPECT_EQ(explain(text, {jwk(R"("kty":"EC")", *other)}).rule, "signature");
    const Explanation notImported = explain(text, {R"({"kty":"oct","kid":"k"})"});
    EXPECT_EQ(notImported.rule, "key import");
    EXPECT_EQ(notImported.saw, "key 1: kid matches, but this JWK has no decoded key");
    EXPECT_EQ(notImported.hint, "import it first: bmcoauth jwk import");
}

TEST_F(ExplainDelegatedToken, SpeaksOfTheKeyThatCameFarthest)
{
    const std::string text = token(header, payload);
    const std::string wrong = publicPem(*other);
    const std::string unselected = jwk(R"("kty":"RSA")", *rsa);
    const std::string bare = R"({"kty":"EC"})";
    EXPECT_EQ(explain(text, {wrong, wrong, wrong}).saw,
              "a signature that does not verify with any of the 3 keys");
    EXPECT_EQ(explain(text, {unselected, wrong, wrong, bare}).saw,
              "a signature that does not verify with any of the 2 keys that fit (of 4)");
    EXPECT_EQ(explain(text, {unselected, bare}).rule, "key import");
    EXPECT_EQ(explain(text, {unselected, unselected}).rule, "key selection");
    EXPECT_EQ(explain(text, {unselected, wrong, bare, publicPem(*issuer), wrong}).rule, "");
}

TEST_F(ExplainDelegatedToken, NamesTheRuleThatATokenBreaks)
{
    const std::vector<std::string> keys{publicPem(*issuer)};
    for (const Change& change : std::vector<Change>{{"\"ES256\"", "7", "alg"},
                                                    {"\"alg\":\"ES256\",", "", "alg"},
                                                    {"ES256", "HS256", "alg"},
                                                    {"ES256", "X", "alg"},
                                                    {"{", "", "header"},
                                                    {"\"JWT\"", "7", ""},
                                                    {"\"k\"", "7", ""}})
    {
        EXPECT_EQ(explain(token(changed(header, change), payload), keys).rule, change.rule)
            << change.to;
    }
    for (const Change& change : std::vector<Change>{
             {payload, "[]", "payload"},
             {"1700000010", "1700000000", "exp"},
             {"1700000010", "\"1700000010\"", ""},
             {"1700000010", "4294967296", "exp"},
             {"1700000010", "-5", "exp"},
             {"1700000010", "\"x\"", "exp"},
             {"1700000010", "null", "exp"},
             {"\"exp\":1700000010,", "", "exp"},
             {"1699999990", "1700000001", "nbf"},
             {"1699999990", "null", ""},
             {"\"a b\"", "{}", ""},
             {"\"a b\"", R"({"a":["b"]})", ""},
             {"\"a b\"", R"({"a":[{}]})", "scope"},
             {"\"a b\"", R"({"a":[["x"]]})", "scope"},
             {"\"a b\"", R"({"a":[7]})", ""},
         })
    {
        EXPECT_EQ(explain(token(header, changed(payload, change)), keys).rule, change.rule)
            << change.to;
    }
    EXPECT_EQ(explain("a.b", keys).rule, "dots");
    const std::string good = token(header, payload);
    EXPECT_EQ(explain(good + ".", keys).rule, "signature");
}

TEST_F(ExplainDelegatedToken, AgreesAtEverySecondAndSkew)
{
    const std::string text = token(header, payload);
    const std::vector<std::string> keys{publicPem(*other), publicPem(*issuer)};
    for (const std::uint32_t skew : {0U, 3U, 300U, 4294967295U})
    {
        for (std::time_t seconds = now - 16; seconds < now + 16; ++seconds)
        {
            clock.set(seconds);
            explain(text, keys, skew);
        }
    }
    clock.set(now + 309);
    EXPECT_EQ(explain(text, keys, 300).verdict, Exit::success);
    clock.set(now + 310);
    EXPECT_EQ(explain(text, keys, 300).verdict, Exit::expired);
    clock.failBreakingDown();
    EXPECT_EQ(explain(text, keys, 300).verdict, Exit::expired);
}

TEST_F(ExplainDelegatedToken, AgreesWhateverCharacterChanges)
{
    const std::vector<std::string> keys{jwk(R"("kty":"EC")", *issuer)};
    withEachCharacterChanged(token(header, payload),
                             [&](const std::string& text) { explain(text, keys); });
    withEachCharacterChanged(keys.front(), [&, text = token(header, payload)](
                                               const std::string& key) { explain(text, {key}); });
}

// ---------------------------------------------------------------------------------- handshakes

/** A certificate key with these bodies. */
CertificateKey certificateKey(std::initializer_list<std::string> bodies)
{
    const bmcoauth::ParameterList record{support::certificateRecord(bodies).release()};
    const Text text = record.write().value();
    return CertificateKey::parse(text).value();
}

struct ExplainResponse : testing::Test
{
    static ParameterList list(const std::string& text)
    {
        return *ParameterList::parse(text);
    }

    static Explanation explain(const std::string& challengeText, const std::string& responseText,
                               const std::string& secrets, const CertificateKey* who)
    {
        const ParameterList challenge = list(challengeText);
        const ParameterList response = list(responseText);
        const bool accepted = bmcoauth::tool::isAccepted(challenge, response, secrets, who);
        Explanation explanation =
            bmcoauth::tool::explainResponse(challenge, response, secrets, who);
        EXPECT_EQ(explanation.verdict, accepted ? Exit::success : Exit::invalid)
            << challengeText << responseText << secrets << explanation.rule;
        return explanation;
    }

    static Explanation explainAnswer(const std::string& challengeText,
                                     const bmcoauth::Credentials& given)
    {
        const ParameterList challenge = list(challengeText);
        Explanation explanation = bmcoauth::tool::explainAnswer(challenge, given);
        EXPECT_EQ(explanation.verdict,
                  bmcoauth::respond(challenge, given) ? Exit::success : Exit::invalid)
            << challengeText << given.secrets << explanation.rule;
        return explanation;
    }

    [[nodiscard]] std::string signature(const std::string& text) const
    {
        const Text proof = bmcoauth::signProof(text, *bmcoauth::ecKeyOf(key)).value();
        return std::string{proof.view()};
    }

    const Identity client = Identity::selfSigned({.commonName = "client"});
    const CertificateKey certificate = certificateKey({client.body()});
    const PrivateKey key = privateKeyOf(client);
    const std::string keys =
        R"({"otp":["other","12345678901234567890"],"none":[],"odd":[7,8],"text":"no","empty":["",""]})";
};

// RFC 4226, appendix D: the last 8 digits of the truncated number for the moving factor 1.
constexpr const char* rfcPassword = "94287082";

TEST_F(ExplainResponse, NamesTheRuleThatIsBroken)
{
    const std::string both = R"({"C":"1","M":"1","T":["otp","software_id_cert-1.0"],"V":"token"})";
    const std::string proof = signature("token:client");
    const std::string good = R"({"R":["94287082",")" + proof + "\"]}";
    EXPECT_EQ(explain(both, good, keys, &certificate).rule, "");
    for (const Change& change : std::vector<Change>{
             {"\"T\":[\"otp\",\"software_id_cert-1.0\"],", "", "T"},
             {"\"C\":\"1\",", "", "M and C"},
             {"\"M\":\"1\",", "", "M and C"},
             {"\"M\":\"1\"", "\"M\":\"0\"", "M"},
             {"\"M\":\"1\"", "\"M\":\"+1\"", "M"},
             {"\"C\":\"1\"", "\"C\":\"1x\"", "C"},
             {"\"C\":\"1\"", "\"C\":\"18446744073709551615\"", "C"},
             {"\"C\":\"1\"", "\"C\":\"18446744073709551614\"", "one-time password of otp"},
             {"\"C\":\"1\",\"M\":\"1\",", "", "one-time password of otp"},
             {"\"M\":\"1\"", "\"M\":\"2\"", "one-time password of otp"},
             {"\"M\":\"1\"", "\"M\":\"3\"", ""},
             {"\"C\":\"1\"", "\"C\":\"2\"", "one-time password of otp"},
             {"\"otp\"", "\"pot\"", "one-time password of pot"},
             {"\"otp\"", "\"none\"", "one-time password of none"},
             {"\"otp\"", "\"odd\"", "one-time password of odd"},
             {",\"V\":\"token\"", "", "V"},
             {"token", "nekot", "certificate proof"},
         })
    {
        EXPECT_EQ(explain(changed(both, change), good, keys, &certificate).rule, change.rule)
            << change.from << " " << change.to;
    }
    EXPECT_EQ(explain(both, good, keys, nullptr).rule, "certificate");
    const CertificateKey none = certificateKey({"AAAA"});
    EXPECT_EQ(explain(both, good, keys, &none).rule, "certificate");
    EXPECT_EQ(explain(both, good, "", &certificate).rule, "keys");
    EXPECT_EQ(explain(both, good, "[]", &certificate).rule, "keys");
    EXPECT_EQ(explain(both, good, "{}", &certificate).rule, "one-time password of otp");
    EXPECT_EQ(explain(both, R"({"r":"94287082"})", keys, &certificate).rule, "");
    EXPECT_EQ(explain(both, R"({"S":"94287082"})", keys, &certificate).rule, "R");
    EXPECT_EQ(explain(both, R"({"R":"087082"})", keys, &certificate).hint,
              "a one-time password has 8 digits");
    const Identity stranger = Identity::selfSigned({.commonName = "client"});
    const CertificateKey other = certificateKey({stranger.body()});
    EXPECT_EQ(explain(both, good, keys, &other).rule, "certificate proof");
    const Identity rsa = Identity::selfSigned({.commonName = "client", .group = "RSA"});
    const CertificateKey rsaKey = certificateKey({rsa.body()});
    EXPECT_EQ(explain(both, good, keys, &rsaKey).rule, "certificate proof");
}

TEST_F(ExplainResponse, SaysWhatAWrongPasswordWouldHaveBeenRightFor)
{
    const std::string response = std::string{R"({"R":")"} + rfcPassword + "\"}";
    const auto hint = [&](const std::string& challenge) {
        return explain(challenge, response, keys, nullptr).hint;
    };
    EXPECT_EQ(hint(R"({"C":"1","M":"1","T":"otp"})"), "");
    EXPECT_EQ(hint(R"({"C":"2","M":"1","T":"otp"})"), "it is right for C - 1: there is no window");
    EXPECT_TRUE(hint(R"({"C":"1","M":"2","T":"otp"})").starts_with("it is right for secret 2:"));
    EXPECT_EQ(hint(R"({"C":"77","M":"1","T":"otp"})"),
              "the two sides have other secrets, or other M and C");
}

TEST_F(ExplainResponse, AgreesOnEveryCombination)
{
    const std::string proof = signature("token:client");
    int accepted = 0;
    for (const char* types :
         {R"("otp")", R"("software_id_cert-1.0")", R"(["otp","software_id_cert-1.0"])",
          R"(["software_id_cert-1.0","otp"])", R"(["software_id_cert-1.0","software_id_cert-1.0"])",
          R"(["otp","otp"])"})
    {
        for (const char* numbers :
             {"", R"("M":"1","C":"1",)", R"("M":"1",)", R"("C":"0","M":"1",)"})
        {
            for (const char* token : {"", R"("V":"token",)", R"("V":"other",)"})
            {
                const std::string challenge =
                    std::string{"{"} + numbers + token + "\"T\":" + types + "}";
                for (const std::string& proofs :
                     {"\"" + proof + "\"", std::string{R"("94287082")"},
                      R"(["94287082",")" + proof + "\"]", "[\"" + proof + R"(","94287082"])",
                      std::string{R"(["94287082","x"])"}, std::string{R"(["x","94287082"])"},
                      "[\"x\",\"" + proof + "\"]", std::string{R"(["94287082","94287082"])"}})
                {
                    for (const char* sent : {"", R"("M":"1","C":"1",)", R"("M":"1",)"})
                    {
                        const std::string response =
                            std::string{"{"} + sent + "\"R\":" + proofs + "}";
                        for (const CertificateKey* given :
                             std::vector<const CertificateKey*>{&certificate, nullptr})
                        {
                            accepted += explain(challenge, response, keys, given).rule.empty();
                        }
                        accepted += explain(challenge, response, "", &certificate).rule.empty();
                    }
                }
            }
        }
    }
    EXPECT_GT(accepted, 50);
}

TEST_F(ExplainResponse, NamesTheRuleThatKeepsAChallengeFromAnAnswer)
{
    const std::string both = R"({"C":"1","M":"1","T":["otp","software_id_cert-1.0"],"V":"token"})";
    const Credentials all{keys, &certificate, &key};
    EXPECT_EQ(explainAnswer(both, all).rule, "");
    for (const Change& change : std::vector<Change>{
             {"\"T\":[\"otp\",\"software_id_cert-1.0\"],", "", "T"},
             {"\"C\":\"1\",", "", "M and C"},
             {"\"M\":\"1\",", "", "M and C"},
             {"\"M\":\"1\"", "\"M\":\"0\"", "M"},
             {"\"M\":\"1\"", "\"M\":\"+1\"", "M"},
             {"\"M\":\"1\"", "\"M\":\"\"", "M"},
             {"\"C\":\"1\"", "\"C\":\"1x\"", "C"},
             {"\"C\":\"1\"", "\"C\":\"18446744073709551615\"", "C"},
             {"\"C\":\"1\"", "\"C\":\"18446744073709551614\"", ""},
             {"\"C\":\"1\",\"M\":\"1\",", "", "one-time password of otp"},
             {"\"M\":\"1\"", "\"M\":\"2\"", ""},
             {"\"otp\"", "\"pot\"", "one-time password of pot"},
             {"\"otp\"", "\"none\"", "one-time password of none"},
             {"\"otp\"", "\"odd\"", "one-time password of odd"},
             {"\"otp\"", "\"text\"", "one-time password of text"},
             {"\"otp\"", "\"empty\"", ""},
             {",\"V\":\"token\"", "", "V"},
             {"\"token\"", "\"\"", ""},
         })
    {
        EXPECT_EQ(explainAnswer(changed(both, change), all).rule, change.rule)
            << change.from << " " << change.to;
    }
    EXPECT_EQ(explainAnswer(both, {keys, nullptr, &key}).rule, "certificate");
    const CertificateKey none = certificateKey({"AAAA"});
    EXPECT_EQ(explainAnswer(both, {keys, &none, &key}).rule, "certificate");
    const CertificateKey nameless =
        certificateKey({Identity::selfSigned({.commonName = std::nullopt}).body()});
    EXPECT_EQ(explainAnswer(both, {keys, &nameless, &key}).rule, "certificate");
    const CertificateKey rsa =
        certificateKey({Identity::selfSigned({.commonName = "client", .group = "RSA"}).body()});
    EXPECT_EQ(explainAnswer(both, {keys, &rsa, &key}).rule, "");
    EXPECT_EQ(explainAnswer(both, {"", &certificate, &key}).rule, "keys");
    EXPECT_EQ(explainAnswer(both, {"[]", &certificate, &key}).rule, "keys");
    EXPECT_EQ(explainAnswer(both, {"{}", &certificate, &key}).rule, "one-time password of otp");
    EXPECT_EQ(explainAnswer(both, {keys, &certificate, nullptr}).rule, "key");
}

TEST_F(ExplainResponse, NeedsForAnAnswerOnlyWhatTheChallengeAsksFor)
{
    const std::string certificateOnly = R"({"T":"software_id_cert-1.0","V":"token"})";
    EXPECT_EQ(explainAnswer(certificateOnly, {"", &certificate, &key}).rule, "");
    EXPECT_EQ(explainAnswer(certificateOnly, {"", &certificate, nullptr}).hint, "give --key");
    EXPECT_EQ(explainAnswer(R"({"T":"software_id_cert-1.0"})", {"", &certificate, &key}).rule, "V");
    EXPECT_EQ(explainAnswer(R"({"C":"x","M":"1","T":"otp"})", {keys}).saw, "C x");
    EXPECT_EQ(explainAnswer(R"({"C":"1","M":"1","T":"otp"})", {keys}).rule, "");
    // A token wants the certificate, whatever the type.
    EXPECT_EQ(explainAnswer(R"({"C":"1","M":"1","T":"otp","V":"t"})", {keys}).rule, "certificate");
    EXPECT_EQ(explainAnswer(R"({"T":"otp","V":"t"})", {keys, &certificate, nullptr}).wanted,
              "both");
}

TEST_F(ExplainResponse, KnowsThatTheClientDrawsTheNumbers)
{
    EXPECT_EQ(explainAnswer(R"({"T":"otp"})", {keys}).rule, "");
    EXPECT_EQ(explainAnswer(R"({"T":["otp","otp"]})", {keys}).rule, "");
    EXPECT_EQ(explainAnswer(R"({"T":"odd"})", {keys}).saw, "no secret that is a string");
    EXPECT_EQ(explainAnswer(R"({"T":"none"})", {keys}).rule, "one-time password of none");
    EXPECT_EQ(explainAnswer(R"({"T":"otp"})", {""}).rule, "keys");
    const ParameterList challenge = list(R"({"T":"otp"})");
    EXPECT_THROW(static_cast<void>(bmcoauth::tool::explainAnswer(
                     challenge, {R"({"otp":["one",2]})", nullptr, nullptr})),
                 bmcoauth::tool::Stop);
}

TEST_F(ExplainResponse, AgreesOnEveryCombinationOfCredentials)
{
    int answered = 0;
    for (const char* types :
         {R"("otp")", R"("software_id_cert-1.0")", R"(["otp","software_id_cert-1.0"])",
          R"(["software_id_cert-1.0","otp"])", R"(["software_id_cert-1.0","software_id_cert-1.0"])",
          R"(["otp","pot"])", R"([])"})
    {
        for (const char* numbers : {"", R"("M":"1","C":"1",)", R"("M":"1",)", R"("C":"1",)",
                                    R"("C":"0","M":"1",)", R"("C":"1","M":7,)"})
        {
            for (const char* token : {"", R"("V":"token",)", R"("V":[],)"})
            {
                const std::string challenge =
                    std::string{"{"}.append(numbers).append(token).append("\"T\":").append(types) +
                    "}";
                for (const std::string& secrets : {keys, std::string{}, std::string{"{}"}})
                {
                    for (const CertificateKey* who :
                         std::vector<const CertificateKey*>{&certificate, nullptr})
                    {
                        for (const PrivateKey* own : std::vector<const PrivateKey*>{&key, nullptr})
                        {
                            answered += explainAnswer(challenge, {secrets, who, own}).rule.empty();
                        }
                    }
                }
            }
        }
    }
    EXPECT_GT(answered, 20);
}

// -------------------------------------------------------------------------------- certificates

struct ExplainCertificate : testing::Test
{
    ExplainCertificate()
    {
        files.put("/etc/default/certs/FactorycertProdRoot.pem", production.pem());
        files.put("/etc/default/certs/FactorycertDevRoot.pem", development.pem());
    }

    static Explanation explain(std::initializer_list<std::string> bodies,
                               const std::optional<std::string>& name = std::nullopt)
    {
        const CertificateKey chain = certificateKey(bodies);
        Explanation explanation = bmcoauth::tool::explainCertificate(chain, name);
        EXPECT_EQ(explanation.verdict, chain.isValidRaw(name) ? Exit::success : Exit::invalid)
            << explanation.rule << explanation.saw;
        return explanation;
    }

    const Identity production = Identity::root("production root");
    const Identity development = Identity::root("development root");
    const Identity intermediate = production.issueAuthority("intermediate");
    const Identity device = intermediate.issue({});
    support::FakeFiles files;
};

TEST_F(ExplainCertificate, AcceptsWhatTheLibraryAccepts)
{
    EXPECT_EQ(explain({device.body(), intermediate.body(), device.body()}, "Device").rule, "");
    EXPECT_EQ(explain({production.body()}).rule, "");
    EXPECT_EQ(explain({device.body(), intermediate.body()}).rule, "");
    const support::MarkerFile marker;
    EXPECT_EQ(explain({development.issue({}).body()}).rule, "");
}

TEST_F(ExplainCertificate, NamesTheName)
{
    const std::string body = production.issue({}).body();
    EXPECT_EQ(explain({body}, "device").rule, "");
    EXPECT_EQ(explain({body}, "devic").rule, "common name");
    EXPECT_EQ(explain({body}, "").rule, "common name");
    EXPECT_EQ(explain({body}, std::string(18, 'x')).hint,
              "a name longer than 17 bytes never matches");
    EXPECT_EQ(explain({production.issue({.commonName = ""}).body()}).rule, "common name");
    EXPECT_EQ(explain({production.issue({.commonName = std::nullopt}).body()}).rule, "");
    EXPECT_EQ(explain({"AAAA"}).rule, "first certificate");
    EXPECT_EQ(explain({"AAAA", intermediate.body(), device.body()}).rule, "first certificate");
}

TEST_F(ExplainCertificate, NamesTheChain)
{
    const std::string body = device.body();
    EXPECT_EQ(explain({body, "AAAA", body}).rule, "x5c");
    EXPECT_EQ(explain({body, "AAAA"}).rule, "x5c");
    EXPECT_EQ(explain({body}).rule, "chain");
    EXPECT_EQ(explain({body, body}).hint,
              "of two certificates the second is verified by the roots alone");
    const Explanation order =
        explain({body, intermediate.body(), production.issueAuthority("b").body(),
                 Identity::selfSigned({}).body()});
    EXPECT_NE(order.hint.find("device, intermediates, device"), std::string::npos) << order.hint;
    const Explanation stranger = explain({Identity::selfSigned({}).body()});
    EXPECT_EQ(stranger.rule, "chain");
    EXPECT_NE(stranger.saw.find("self-signed certificate"), std::string::npos) << stranger.saw;
    const Explanation unmarked = explain({development.issue({}).body()});
    EXPECT_NE(unmarked.hint.find("/etc/vorn_fw"), std::string::npos) << unmarked.hint;
}

TEST_F(ExplainCertificate, NamesTheInstantOfTheJudgement)
{
    const Explanation old = explain({production.issue({.notAfter = "20341231120000Z"}).body()});
    EXPECT_NE(old.saw.find("certificate has expired"), std::string::npos) << old.saw;
    EXPECT_NE(old.hint.find("2035"), std::string::npos) << old.hint;
    const Explanation early = explain({production.issue({.notBefore = "20360101000000Z"}).body()});
    EXPECT_NE(early.saw.find("not yet valid"), std::string::npos) << early.saw;
}

TEST_F(ExplainCertificate, NamesARootThatIsMissingOrNone)
{
    const std::string body = production.issue({}).body();
    EXPECT_EQ(explain({body}).rule, "");
    for (const char* name : {"Prod", "Dev"})
    {
        const std::string path = std::string{"/etc/default/certs/Factorycert"} + name + "Root.pem";
        support::FakeFiles others;
        others.put("/etc/default/certs/FactorycertProdRoot.pem", production.pem());
        others.put("/etc/default/certs/FactorycertDevRoot.pem", development.pem());
        others.put(path, "nonsense");
        const Explanation nonsense = explain({body});
        EXPECT_EQ(nonsense.rule, "factory roots");
        EXPECT_EQ(nonsense.saw, path + ": holds no certificate in PEM form");
        others.fail(path, EACCES);
        EXPECT_EQ(explain({body}).saw, path + ": Permission denied");
    }
}

TEST_F(ExplainCertificate, AgreesWhateverCharacterChanges)
{
    const std::string body = production.issue({}).body();
    withEachCharacterChanged(body, [](const std::string& text) { explain({text}); });
}

// ----------------------------------------------------------------------------------- envelopes

struct ExplainEnvelope : testing::Test
{
    ExplainEnvelope()
    {
        HandshakePayload* peer = receiverKey.parameters().get();
        const std::string der = sender.privateKeyDer();
        char* rawMac = nullptr;
        const std::string data = "some text";
        sealed.iv = "000102030405060708090a0b0c0d0e0f";
        const Text ciphertext{ecies_encrypt(data.c_str(), static_cast<unsigned int>(data.size()),
                                            &peer, &rawMac, bytesOf(der), lengthOf(der),
                                            sealed.iv.c_str())};
        const Text mac{rawMac};
        sealed.ciphertext = ciphertext.view();
        sealed.mac = mac.view();
    }

    static Explanation explain(const bmcoauth::tool::SealedDocument& document, const Identity& own,
                               const CertificateKey& peer)
    {
        const PrivateKey key = privateKeyOf(own);
        Explanation explanation = bmcoauth::tool::explainEnvelope(document.view(), peer, key);
        EXPECT_EQ(explanation.verdict,
                  bmcoauth::open(document.view(), peer, key) ? Exit::success : Exit::invalid)
            << explanation.rule << explanation.saw;
        return explanation;
    }

    // NOLINTNEXTLINE(modernize-use-nodiscard): as above
    Explanation explain(const std::string& ciphertext, const std::string& mac,
                        const std::string& iv) const
    {
        bmcoauth::tool::SealedDocument document = sealed;
        document.ciphertext = ciphertext;
        document.mac = mac;
        document.iv = iv;
        return explain(document, receiver, senderKey);
    }

    const Identity sender = Identity::selfSigned({});
    const Identity receiver = Identity::selfSigned({});
    const CertificateKey senderKey = certificateKey({sender.body()});
    const CertificateKey receiverKey = certificateKey({receiver.body()});
    bmcoauth::tool::SealedDocument sealed{};
};

TEST_F(ExplainEnvelope, NamesTheRuleThatIsBroken)
{
    const auto& [ciphertext, mac, iv] = sealed;
    EXPECT_EQ(explain(ciphertext, mac, iv).rule, "");
    EXPECT_EQ(explain(ciphertext, mac, iv.substr(1)).rule, "iv");
    EXPECT_EQ(explain(ciphertext, mac, iv + "0").rule, "iv");
    EXPECT_EQ(explain("*", mac, iv).rule, "ciphertext");
    EXPECT_EQ(explain("", mac, iv).rule, "ciphertext");
    EXPECT_EQ(explain(ciphertext, "*", iv).rule, "mac");
    EXPECT_EQ(explain(ciphertext, mac.substr(0, 40), iv).saw, "30 bytes");
    EXPECT_EQ(explain(ciphertext.substr(0, 40), mac, iv).rule, "mac");
    EXPECT_EQ(explain(sealed, Identity::selfSigned({}), senderKey).rule, "mac");
    EXPECT_EQ(explain(sealed, receiver, certificateKey({"AAAA"})).rule, "peer");
    const Identity large = Identity::selfSigned({.group = "secp384r1"});
    EXPECT_EQ(explain(sealed, receiver, certificateKey({large.body()})).saw, "a key on P-384");
    const Explanation own = explain(sealed, receiver, receiverKey);
    EXPECT_NE(own.hint.find("the certificate of the own key"), std::string::npos) << own.hint;
}

TEST_F(ExplainEnvelope, AgreesOnAnIvThatBringsAZeroByte)
{
    // The first byte of the text is s: with this bit pattern in the IV it becomes zero.
    const Explanation explanation =
        explain(sealed.ciphertext, sealed.mac, "73" + sealed.iv.substr(2));
    EXPECT_EQ(explanation.rule, "text");
    EXPECT_EQ(explanation.saw, "a zero byte at position 0");
    EXPECT_EQ(explain(sealed.ciphertext, sealed.mac, "zz" + sealed.iv.substr(2)).rule, "");
}

TEST_F(ExplainEnvelope, AgreesWhateverCharacterChanges)
{
    withEachCharacterChanged(
        sealed.ciphertext, [&](const std::string& text) { explain(text, sealed.mac, sealed.iv); });
    withEachCharacterChanged(
        sealed.mac, [&](const std::string& text) { explain(sealed.ciphertext, text, sealed.iv); });
    withEachCharacterChanged(
        sealed.iv, [&](const std::string& text) { explain(sealed.ciphertext, sealed.mac, text); });
}

} // namespace
