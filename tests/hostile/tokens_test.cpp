// SPDX-License-Identifier: Apache-2.0
#include "hostile/forge.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/issuer.hpp"
#include "support/judgement.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>
#include <openssl/hmac.h>

#include <cstddef>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using support::FakeClock;
using tokens::base64Url;
using tokens::handmade;
using tokens::plainClaims;
using tokens::plainHeader;
using tokens::with;

namespace
{

constexpr std::time_t now = 1700000000;

const std::string& publicPem()
{
    static const std::string pem = forge::publicPem(tokens::serviceKey());
    return pem;
}

/** The rules by which a token is refused as the service's own, and as that of another party;
 *  "accepted" for none. */
struct Outcomes
{
    std::string own;
    std::string delegated;

    bool operator==(const Outcomes&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcomes& outcomes)
{
    return out << "own " << outcomes.own << ", delegated " << outcomes.delegated;
}

Outcomes refusedBy(const std::string& rule)
{
    return {rule, rule};
}

const Outcomes accepted{"accepted", "accepted"};
const Outcomes expired = refusedBy("token.expired");

/** The rules of which one refuses each of hundreds of mutations. */
struct AllowedRules
{
    std::set<std::string> own;
    std::set<std::string> delegated;

    [[nodiscard]] bool contain(const Outcomes& outcomes) const
    {
        return own.contains(outcomes.own) && delegated.contains(outcomes.delegated);
    }
};

std::set<std::string> merged(std::set<std::string> rules, const std::set<std::string>& more)
{
    rules.insert(more.begin(), more.end());
    return rules;
}

/** The rule behind a result; @p refusal is that of 0. */
const char* ruleBehind(int result, const char* refusal)
{
    return result == 1 ? "accepted" : result == 2 ? "token.expired" : refusal;
}

std::string ownOutcome(const std::string& token)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verdict = -1;
    std::string rule = support::ruleOf([&] {
        return verdict = validateJWT(token.c_str(), tokens::serviceKey().data(),
                                     tokens::serviceKey().length(), &header, &payload);
    });
    const tokens::Header headerOwner{header};
    const tokens::Payload payloadOwner{payload};
    EXPECT_EQ(verdict, rule == "accepted" ? 1 : rule == "token.expired" ? 2 : 0);
    return rule;
}

Outcomes outcomes(const std::string& token, const std::vector<std::string>& keys = {publicPem()})
{
    const Judgement judgement = judge(token, {.keys = keys});
    EXPECT_TRUE(judgement.verdict == 0 || judgement.verified == 1);
    return {ownOutcome(token), judgement.rule};
}

/** The names of "no algorithm", as texts of JSON, and values that are not a name. */
const std::vector<std::string>& namesOfNone()
{
    static const std::vector<std::string> names = {R"("none")",
                                                   R"("None")",
                                                   R"("NONE")",
                                                   R"("nOnE")",
                                                   R"("\u006eone")",
                                                   R"("none ")",
                                                   R"(" none")",
                                                   R"("none\u0000")",
                                                   R"("")",
                                                   "null",
                                                   "0",
                                                   "false",
                                                   "{}",
                                                   R"(["none"])",
                                                   R"(["ES256"])"};
    return names;
}

bool isText(const std::string& json)
{
    return json.starts_with('"');
}

std::string headerWith(const std::string& alg)
{
    return R"({"alg":)" + alg + R"(,"kid":"k","typ":"JWT"})";
}

/** A trusted key that a header's name of the algorithm, or its key id, selects. */
std::string selectedJwk(const std::string& alg)
{
    return forge::ecJwk(forge::pointOf(tokens::serviceKey()),
                        R"("kid":"k",)" + (alg.empty() ? "" : R"("alg":)" + alg + ","));
}

TEST(NoAlgorithm, IsNoLeaveToGoUnsigned)
{
    const FakeClock clock{now};
    const std::string payload = base64Url(tokens::json(plainClaims()));
    const std::string good = handmade(plainHeader, tokens::json(plainClaims()));
    EXPECT_EQ(outcomes(good), accepted);
    const Outcomes noText = refusedBy("token.member");
    const Outcomes noDigits = refusedBy("base64.malformed");
    const Outcomes aText{"token.signature", "token.algorithm"};
    std::vector<std::pair<std::string, Outcomes>> headers = {
        {R"({"kid":"k","typ":"JWT"})", noText}, {R"({"typ":"JWT"})", noText}, {"{}", noText}};
    for (const std::string& name : namesOfNone())
    {
        headers.emplace_back(headerWith(name), isText(name) ? aText : noText);
    }
    for (const auto& [header, ofHeader] : headers)
    {
        const std::string input = base64Url(header) + "." + payload;
        // The header is read before the signature.
        const Outcomes ofNoSignature = ofHeader == noText ? noText : noDigits;
        const std::vector<std::pair<std::string, Outcomes>> endings = {
            {"", refusedBy("token.parts")},
            {".", ofNoSignature},
            {good.substr(good.rfind('.')), ofHeader},
            {".AA", ofHeader},
            {".AAAA", ofHeader},
            {"." + base64Url("none"), ofHeader},
            {"..", ofNoSignature}};
        for (const auto& [ending, expected] : endings)
        {
            SCOPED_TRACE(header + " " + ending);
            EXPECT_EQ(outcomes(input + ending), expected);
            EXPECT_EQ(outcomes(input + ending, {selectedJwk("\"none\""), publicPem()}), expected);
        }
    }
    // The good header without the signature.
    EXPECT_EQ(outcomes(good.substr(0, good.rfind('.') + 1)), refusedBy("base64.malformed"));
    EXPECT_EQ(outcomes(good.substr(0, good.rfind('.'))), refusedBy("token.parts"));
}

// The trusted key has signed these tokens. The service's own tokens have one algorithm, whatever
// their header says: there is nothing to choose. In a token of another party, the name says which
// sort of key may verify it, and "none" is not a sort of key.
TEST(NoAlgorithm, IsNoneThatAKeyVerifies)
{
    const FakeClock clock{now};
    for (const std::string& name : namesOfNone())
    {
        SCOPED_TRACE(name);
        const std::string token = handmade(headerWith(name), tokens::json(plainClaims()));
        const Outcomes expected =
            isText(name) ? Outcomes{"accepted", "token.algorithm"} : refusedBy("token.member");
        EXPECT_EQ(outcomes(token, {publicPem()}), expected);
        EXPECT_EQ(outcomes(token, {selectedJwk("\"none\"")}), expected);
    }
    EXPECT_EQ(
        outcomes(handmade(headerWith("\"ES256\""), tokens::json(plainClaims())), {selectedJwk("")}),
        accepted);
}

std::string macOf(const std::string& text, const std::string& secret, const EVP_MD* digest)
{
    std::string mac(EVP_MAX_MD_SIZE, '\0');
    unsigned int length = 0;
    HMAC(digest, secret.data(), static_cast<int>(secret.size()),
         reinterpret_cast<const unsigned char*>(text.data()), text.size(),
         reinterpret_cast<unsigned char*>(mac.data()), &length);
    mac.resize(length);
    return mac;
}

/** @p pem between its markers, decoded. */
std::string derOf(const std::string& pem)
{
    std::string body = pem.substr(pem.find('\n') + 1);
    body.resize(body.find("-----"));
    std::erase(body, '\n');
    while (body.ends_with('='))
    {
        body.pop_back();
    }
    for (char& c : body)
    {
        c = c == '+' ? '-' : c == '/' ? '_' : c;
    }
    return tokens::fromBase64Url(body);
}

std::string without(std::string text, char last)
{
    while (text.ends_with(last))
    {
        text.pop_back();
    }
    return text;
}

// What everybody knows, in every form in which a verifier might hold it, as the secret of a MAC.
TEST(MacWithAPublicKey, IsNoSignature)
{
    const FakeClock clock{now};
    struct Name
    {
        const char* name;
        const EVP_MD* digest;
    };
    const Name names[] = {{"HS256", EVP_sha256()},  {"HS384", EVP_sha384()},
                          {"HS512", EVP_sha512()},  {"hs256", EVP_sha256()},
                          {"Hs512", EVP_sha512()},  {"HMAC", EVP_sha256()},
                          {"HS256 ", EVP_sha256()}, {"hS", EVP_sha256()}};
    const auto [x, y] = forge::pointOf(tokens::serviceKey());
    const std::string& ecPem = publicPem();
    const std::string rsaPem = issuer::rsaKey().pem();
    const std::string rsaDer = derOf(rsaPem);
    const std::string ecJwk = forge::ecJwk({x, y}, R"("kid":"k",)");
    const std::vector<std::string> secrets = {
        ecPem,
        without(ecPem, '\n'),
        derOf(ecPem),
        ecJwk,
        R"({"kty":"EC","crv":"P-256","x":")" + base64Url(x) + R"(","y":")" + base64Url(y) + "\"}",
        x,
        y,
        x + y,
        '\x04' + x + y,
        base64Url(x),
        rsaPem,
        without(rsaPem, '\n'),
        issuer::rsaKey().pkcs1Pem(),
        rsaDer,
        // The modulus: behind the 33 bytes in front of it, before the five of the exponent.
        rsaDer.substr(33, 256),
        base64Url(rsaDer.substr(33, 256)),
        "k",
        std::string(1, '\0'),
    };
    for (const auto& [name, digest] : names)
    {
        const std::string input = issuer::signingInput(headerWith("\"" + std::string{name} + "\""),
                                                       tokens::json(plainClaims()));
        for (const std::string& secret : secrets)
        {
            SCOPED_TRACE(std::string{name} + " " + secret.substr(0, 40));
            const std::string token = issuer::token(input, macOf(input, secret, digest));
            const std::string oct = R"({"kty":"oct","kid":"k","alg":")" + std::string{name} +
                                    R"(","k":")" + base64Url(secret) + "\"}";
            EXPECT_EQ(outcomes(token, {ecPem, rsaPem, ecJwk, oct}),
                      (Outcomes{"token.signature", "token.algorithm"}));
        }
    }
    EXPECT_EQ(outcomes(handmade(headerWith("\"ES256\""), tokens::json(plainClaims())), {ecJwk}),
              accepted);
}

/** The rule by which a token of another party with one claim given by its JSON text is refused. */
std::string delegatedOutcome(const std::string& claim, const std::string& value,
                             unsigned int skew = 0)
{
    const std::string token = handmade(plainHeader, with(claim, value));
    return judge(token, {.keys = {publicPem()}, .skew = skew}).rule;
}

// JSON numbers, as others write them. A number that does not fit 32 bits is read as absent: a
// token that never ends, or ends after 2106, is refused; one that begins then has begun.
TEST(TokenTimes, OfOthersAreNumbersOf32Bits)
{
    const FakeClock clock{now};
    struct Time
    {
        const char* json;
        int asExpiry;
        int asNotBefore;
    };
    constexpr Time times[] = {
        {"1700000001", 1, 0},
        {"1700000000", 2, 1},
        {"1699999999", 2, 1},
        {" 1700000001 ", 1, 0},
        {"2147483647", 1, 0},
        {"2147483648", 1, 0}, // no time_t of 32 bits holds it
        {"4294967295", 1, 0},
        {"4294967296", 0, 1},
        {"9223372036854775808", 0, 1},
        {"18446744073709551615", 0, 1},
        {"18446744073709551616", 0, 1},
        {"99999999999999999999999999999999", 0, 1},
        {"0", 2, 1},
        {"-0", 2, 1},
        {"-1", 0, 1},
        {"+1700000001", 0, 1},
        {"-1700000001", 0, 1},
        {"-9223372036854775808", 0, 1},
        {"1700000001.0", 0, 1},
        {"1700000001.5", 0, 1},
        {"1.700000001e9", 0, 1},
        {"17e8", 0, 1},
        {"1e300", 0, 1},
        {"null", 0, 1},
        {"true", 0, 1},
        {"false", 0, 1},
        {"[]", 0, 1},
        {"[1700000001]", 0, 1},
        {"{}", 0, 1},
        {R"({"exp":1700000001})", 0, 1},
    };
    for (const auto& [json, asExpiry, asNotBefore] : times)
    {
        SCOPED_TRACE(json);
        EXPECT_EQ(delegatedOutcome("exp", json), ruleBehind(asExpiry, "token.member"));
        EXPECT_EQ(delegatedOutcome("nbf", json), ruleBehind(asNotBefore, "token.not-yet-valid"));
        EXPECT_EQ(delegatedOutcome("iat", json), "accepted");
    }
    // No numbers of JSON at all.
    for (const char* json : {"0x6553F101", "1700000001s", "1_700_000_001", "NaN", "Infinity",
                             "-Infinity", "--1", "1700000001 2", ".5", "'1700000001'"})
    {
        SCOPED_TRACE(json);
        EXPECT_EQ(delegatedOutcome("exp", json), "json.syntax");
        EXPECT_EQ(delegatedOutcome("nbf", json), "json.syntax");
        EXPECT_EQ(delegatedOutcome("iat", json), "json.syntax");
    }
}

// Texts are read as C reads them, in both sorts of tokens.
TEST(TokenTimes, AreTextsThatCReads)
{
    const FakeClock clock{now};
    struct Time
    {
        const char* text;
        int asExpiry;
        int asNotBefore;
    };
    constexpr Time times[] = {
        {"1700000001", 1, 0},
        {"1700000000", 2, 1},
        {"2147483648", 1, 0},
        {"4294967296", 1, 0},
        {"9223372036854775808", 1, 0},
        {"18446744073709551616", 1, 0},
        {"+1700000001", 1, 0},
        {" 1700000001", 1, 0},
        {R"(\t\n\u000b\f\r1700000001)", 1, 0},
        {"1700000001 ", 1, 0},
        {"1700000001.9", 1, 0},
        {"1700000001e0", 1, 0},
        {"1.7e9", 2, 1},
        {"0x6553F101", 1, 0},
        {"014524770401", 1, 0},
        {"0001700000001", 2, 1},
        {"0b1", 2, 1},
        {"-1", 1, 0},
        {"-0", 2, 1},
        {"--1", 2, 1},
        {"", 2, 1},
        {" ", 2, 1},
        {"x", 2, 1},
        {R"(\u00001700000001)", 2, 1},
        {R"(1700000001\u0000)", 1, 0},
        {"\xd9\xa1\xd9\xa7", 2, 1}, // 1 and 7 in Arabic-Indic digits
    };
    for (const auto& [text, asExpiry, asNotBefore] : times)
    {
        SCOPED_TRACE(text);
        const std::string json = "\"" + std::string{text} + "\"";
        EXPECT_EQ(outcomes(handmade(plainHeader, with("exp", json))),
                  refusedBy(ruleBehind(asExpiry, "token.member")));
        EXPECT_EQ(outcomes(handmade(plainHeader, with("nbf", json))),
                  refusedBy(ruleBehind(asNotBefore, "token.not-yet-valid")));
        EXPECT_EQ(outcomes(handmade(plainHeader, with("iat", json))), accepted);
    }
}

TEST(TokenTimes, AreComparedToTheSecond)
{
    FakeClock clock{now};
    const std::string token = handmade(plainHeader, tokens::json(plainClaims()));
    const Outcomes early = refusedBy("token.not-yet-valid");
    struct Moment
    {
        std::time_t time = 0;
        Outcomes expected;
        int withSkew = 0;
    };
    // Valid from 1699999999 on, until 1700003600; a skew of 300 seconds at either end.
    for (const auto& [time, expected, withSkew] : {
             Moment{1699999698, early, 0},
             Moment{1699999699, early, 1},
             Moment{1699999998, early, 1},
             Moment{1699999999, accepted, 1},
             Moment{1700000000, accepted, 1},
             Moment{1700003599, accepted, 1},
             Moment{1700003600, expired, 1},
             Moment{1700003601, expired, 1},
             Moment{1700003899, expired, 1},
             Moment{1700003900, expired, 2},
             Moment{2147483647, expired, 2},
         })
    {
        SCOPED_TRACE(time);
        clock.set(time);
        EXPECT_EQ(outcomes(token), expected);
        EXPECT_EQ(judge(token, {.keys = {publicPem()}, .skew = 300}).verdict, withSkew);
    }
}

// The sum of a time near the end of the range and an allowance begins again at zero. It may make a
// token expire that would not in ages, and none valid that is not.
TEST(TokenTimes, NeverBecomeValidByASumThatWraps)
{
    const FakeClock clock{now};
    const std::string last = "\"18446744073709551615\"";
    EXPECT_EQ(delegatedOutcome("exp", last, 0), "accepted");
    EXPECT_EQ(delegatedOutcome("exp", last, 1), "token.expired");
    EXPECT_EQ(delegatedOutcome("exp", last, 1700000001), "token.expired");
    EXPECT_EQ(delegatedOutcome("exp", last, 1700000002), "accepted");
    EXPECT_EQ(delegatedOutcome("exp", "\"-1\"", 300), "token.expired");
    EXPECT_EQ(delegatedOutcome("exp", "4294967295", ~0U), "accepted");
    EXPECT_EQ(delegatedOutcome("nbf", last, ~0U), "token.not-yet-valid");
    EXPECT_EQ(delegatedOutcome("nbf", "\"-1\"", ~0U), "token.not-yet-valid");
    EXPECT_EQ(delegatedOutcome("nbf", "4294967295", 2594967294), "token.not-yet-valid");
    EXPECT_EQ(delegatedOutcome("nbf", "4294967295", 2594967295), "accepted");
}

TEST(ZeroBytes, DoNotMakeOneNameOfTwo)
{
    const FakeClock clock{now};
    const std::string claims = tokens::json(plainClaims());
    const auto behind = [&](const std::string& member) {
        return claims.substr(0, claims.size() - 1) + "," + member + "}";
    };
    // Names that begin like others replace nothing.
    for (const char* member : {R"("exp\u0000":"1600000000")", R"("nbf\u0000x":"1800000000")",
                               R"("\u0000exp":"0")", R"("sub\u0000":5)", R"("scope\u0000":"x")"})
    {
        SCOPED_TRACE(member);
        EXPECT_EQ(outcomes(handmade(plainHeader, behind(member))), accepted);
    }
    // And they do not stand in for them.
    for (const char* name : {"exp", "sub", "iss", "jti", "iat", "nbf"})
    {
        SCOPED_TRACE(name);
        tokens::Members members = plainClaims();
        const std::string value = members.at(name);
        members.erase(name);
        members[std::string{name} + R"(\u0000)"] = value;
        EXPECT_EQ(ownOutcome(handmade(plainHeader, tokens::json(members))), "token.member");
    }
    EXPECT_EQ(outcomes(handmade(R"({"alg\u0000":"ES256","typ":"JWT"})", claims)),
              refusedBy("token.member"));
    EXPECT_EQ(outcomes(handmade(R"({"alg":"ES256","alg\u0000":"none","typ":"JWT"})", claims)),
              accepted);
}

// The records hold C texts: every reader sees a value end at its first zero byte. Only the
// issuer can do that, because its signature covers the value. The caller sees the shorter text,
// never a longer one.
TEST(ZeroBytes, EndTheTextsOfARecord)
{
    const FakeClock clock{now};
    const std::string token = handmade(
        R"({"alg":"ES256","kid":"k\u0000x","typ":"JWT"})",
        R"({"sub":"user\u0000root","iss":"corp\u0000evil","jti":"\u0000id","exp":1700003600,)"
        R"("aud":["one\u0000two"],"ravok_roles":["\u0000admin","use\u0000r"],)"
        R"("scope":"ravok_login\u0000 ravok_configure","xidp":{"corp\u0000evil":["CU"],"*":["L"]}})");
    userRole_s roles[] = {{"admin", 0x100}, {"user", 0x080}, {nullptr, 0}};
    const char* providers[] = {"corp", nullptr};
    const Judgement judgement =
        judge(token, {.keys = {publicPem()}, .roles = roles, .providers = providers});
    EXPECT_EQ(judgement.verdict, 1);
    ASSERT_TRUE(judgement.hasRecords());
    EXPECT_STREQ(judgement.header->kid, "k");
    EXPECT_STREQ(judgement.payload->sub, "user");
    EXPECT_STREQ(judgement.payload->iss, "corp");
    EXPECT_STREQ(judgement.payload->jti, "");
    EXPECT_EQ(support::texts(judgement.payload->aud), (std::vector<std::string>{"one"}));
    EXPECT_EQ(support::texts(judgement.payload->ravok_roles),
              (std::vector<std::string>{"", "use"}));
    // Of "L" and "ravok_login" alone: neither another provider's name nor a role got longer.
    ASSERT_EQ(judgement.payload->scopes_count, 3);
    EXPECT_STREQ(judgement.payload->scopes[0].values[0], "user");
    EXPECT_STREQ(judgement.payload->scopes[1].values[0], "1");
}

TEST(TokenDots, AreTwo)
{
    const FakeClock clock{now};
    const std::string token = handmade(plainHeader, tokens::json(plainClaims()));
    const std::vector<std::string> parts = tokens::partsOf(token);
    EXPECT_EQ(outcomes(token), accepted);
    const std::string& h = parts.at(0);
    const std::string& p = parts.at(1);
    const std::string& s = parts.at(2);
    const Outcomes tooFew = refusedBy("token.parts");
    const Outcomes noDigits = refusedBy("base64.malformed");
    const std::string dots(10000, '.');
    const std::vector<std::pair<std::string, Outcomes>> others = {
        {h, tooFew},
        {h + p + s, tooFew},
        {h + "." + p, tooFew},
        {h + "." + p + s, tooFew},
        {h + p + "." + s, tooFew},
        {".", tooFew},
        {"", tooFew},
        {token + ".", noDigits},
        {"." + token, noDigits},
        {token + "." + s, noDigits},
        {h + ".." + p + "." + s, noDigits},
        {h + "." + p + ".." + s, noDigits},
        {token + ".." + s, noDigits},
        // An own token's claims are read before the third part is: a header holds none.
        {h + "." + h + "." + p + "." + s, {"token.member", "base64.malformed"}},
        {h + "." + p + "." + s + "." + s + "." + s, noDigits},
        {"." + p + "." + s, noDigits},
        {h + ".." + s, noDigits},
        {h + "." + p + ".", noDigits},
        {"..", noDigits},
        {".." + s, noDigits},
        {"." + p + ".", noDigits},
        {h + "..", noDigits},
        {token + dots, noDigits},
        {dots, noDigits},
        {dots + token, noDigits},
        {h + dots + p + "." + s, noDigits},
        {std::string(1000000, '.'), noDigits},
        {token + "." + std::string(1000000, 'A'), refusedBy("base64.length")}};
    for (const auto& [other, expected] : others)
    {
        SCOPED_TRACE(other.substr(0, 300));
        EXPECT_EQ(outcomes(other), expected);
    }
    // Two dots of three make parts that are half of one, or begin in its middle.
    const std::set<std::string> ofHalves = {"base64.malformed", "json.syntax", "json.root"};
    for (std::size_t position = 0; position <= token.size(); ++position)
    {
        std::string more = token;
        more.insert(position, 1, '.');
        const Outcomes result = outcomes(more);
        EXPECT_TRUE((AllowedRules{ofHalves, ofHalves}.contain(result)))
            << position << ": " << result;
    }
}

TEST(TokenParts, HaveUpTo98304Characters)
{
    const FakeClock clock{now};
    // 73728 bytes are 98304 characters, and one byte more makes two characters more.
    const auto filled = [](std::string text, std::size_t size) {
        text.append(size - text.size(), ' ');
        return text;
    };
    const std::string header{plainHeader};
    const std::string claims = tokens::json(plainClaims());
    ASSERT_EQ(base64Url(filled(claims, 73728)).size(), 98304U);
    EXPECT_EQ(outcomes(handmade(filled(header, 73728), claims)), accepted);
    EXPECT_EQ(outcomes(handmade(filled(header, 73729), claims)), refusedBy("base64.length"));
    EXPECT_EQ(outcomes(handmade(header, filled(claims, 73728))), accepted);
    EXPECT_EQ(outcomes(handmade(header, filled(claims, 73729))), refusedBy("base64.length"));
    EXPECT_EQ(outcomes(handmade(filled(header, 73728), filled(claims, 73728))), accepted);
    // A line feed is a character of the part, and of what is signed, but none of its bytes.
    const auto signedParts = [](const std::string& input) {
        return input + "." + base64Url(tokens::sign(input, tokens::serviceKey()));
    };
    const std::string whole = base64Url(filled(claims, 73725)) + "\n\n\n\n";
    ASSERT_EQ(whole.size(), 98304U);
    EXPECT_EQ(ownOutcome(signedParts(base64Url(header) + "." + whole + "\n")), "base64.length");
    for (const std::size_t size : {98304U, 98305U, 1000000U})
    {
        const std::string input = base64Url(header) + "." + base64Url(claims);
        const bool fits = size == 98304;
        const std::string part(size, 'A');
        EXPECT_EQ(outcomes(input + "." + part),
                  refusedBy(fits ? "token.signature" : "base64.length"));
        const Outcomes ofPart = refusedBy(fits ? "json.syntax" : "base64.length");
        EXPECT_EQ(outcomes(part + "." + base64Url(claims) + ".AAAA"), ofPart);
        EXPECT_EQ(outcomes(base64Url(header) + "." + part + ".AAAA"), ofPart);
    }
}

// Header and payload are signed as they are written: every other way to write them is another text.
TEST(TokenParts, AreSignedAsTheyAreWritten)
{
    const FakeClock clock{now};
    const std::string header = base64Url(plainHeader);
    const std::string payload = base64Url(tokens::json(plainClaims()));
    const std::string input = header + "." + payload;
    const std::string signature = base64Url(tokens::sign(input, tokens::serviceKey()));
    EXPECT_EQ(outcomes(input + "." + signature), accepted);
    struct Extra
    {
        const char* text = nullptr;
        /** Base64 passes over line feeds alone; four digits are three bytes more. */
        const char* rule = "base64.malformed";
    };
    constexpr Extra extras[] = {
        {" "}, {"\n", "token.signature"}, {"\r\n"}, {"\t"}, {"="},   {"=="},           {"===="},
        {"A"}, {"AAAA", "json.syntax"},   {"-"},    {"+"},  {"%3D"}, {"\xef\xbb\xbf"}, {"\xc2\xa0"},
        {","}};
    for (const auto& [extra, rule] : extras)
    {
        SCOPED_TRACE(extra);
        for (const std::string& parts :
             {extra + header + "." + payload, header + extra + "." + payload,
              header + "." + extra + payload, header + "." + payload + extra,
              header.substr(0, 8) + extra + header.substr(8) + "." + payload})
        {
            EXPECT_EQ(outcomes(parts + "." + signature), refusedBy(rule)) << parts;
        }
    }
}

/** A token whose signature has this many bytes. */
std::string tokenWithSignatureOf(std::size_t size)
{
    std::string token;
    do
    {
        token = handmade(plainHeader, tokens::json(plainClaims()));
    } while (tokens::fromBase64Url(tokens::partsOf(token).at(2)).size() != size);
    return token;
}

// Only the bytes of the signature count, not its text: it may be written in the other alphabet,
// with padding and in lines. So a token has many texts, and none of them identifies it.
TEST(TokenParts, HaveASignatureThatIsReadAsBase64Is)
{
    const FakeClock clock{now};
    std::string token;
    do
    {
        token = tokenWithSignatureOf(71);
    } while (token.find_first_of("-_", token.rfind('.')) == std::string::npos);
    const std::string input = token.substr(0, token.rfind('.') + 1);
    const std::string signature = token.substr(input.size());
    EXPECT_EQ(outcomes(input + signature), accepted);
    std::string otherAlphabet = signature;
    for (char& c : otherAlphabet)
    {
        c = c == '-' ? '+' : c == '_' ? '/' : c;
    }
    EXPECT_NE(otherAlphabet, signature);
    EXPECT_EQ(outcomes(input + otherAlphabet), accepted);
    EXPECT_EQ(outcomes(input + signature + "="), accepted);
    EXPECT_EQ(outcomes(input + signature + "\n"), accepted);
    // Padding that completes nothing, blanks, and characters of no alphabet.
    for (const std::string& other :
         {signature + "==", signature + "===", "=" + signature, " " + signature, signature + " ",
          signature + ",", signature + "\t=", signature + "%3D",
          signature.substr(0, 8) + " " + signature.substr(8),
          signature.substr(0, 8) + "=" + signature.substr(8)})
    {
        EXPECT_EQ(outcomes(input + other), refusedBy("base64.malformed")) << other;
    }
    // One digit more fills the last group: a signature of 72 bytes.
    EXPECT_EQ(outcomes(input + signature + "A"), refusedBy("token.signature"));
}

TEST(FlippedBits, OfATokenAreAllNoticed)
{
    const FakeClock clock{now};
    // 72 bytes fill their 96 characters: none of the bits stands for nothing.
    const std::string token = tokenWithSignatureOf(72);
    EXPECT_EQ(outcomes(token), accepted);
    // An own token's claims are judged before its signature, another party's after it.
    const std::set<std::string> ofText = {"base64.malformed", "json.syntax", "token.signature"};
    const AllowedRules ofDot = {{"token.parts"}, {"token.parts"}};
    const AllowedRules ofHeader = {merged(ofText, {"token.member"}),
                                   merged(ofText, {"token.member", "token.algorithm"})};
    const AllowedRules ofPayload = {
        merged(ofText, {"token.member", "token.not-yet-valid", "token.expired"}), ofText};
    const AllowedRules ofSignature = {{"base64.malformed", "token.signature"},
                                      {"base64.malformed", "token.signature"}};
    const std::size_t firstDot = token.find('.');
    const std::size_t secondDot = token.rfind('.');
    for (std::size_t bit = 0; bit < token.size() * 8; ++bit)
    {
        const std::size_t place = bit / 8;
        std::string flipped = token;
        flipped[place] =
            static_cast<char>(static_cast<unsigned char>(flipped[place]) ^ (1U << bit % 8));
        const AllowedRules& allowed = token[place] == '.' ? ofDot
                                      : place < firstDot  ? ofHeader
                                      : place < secondDot ? ofPayload
                                                          : ofSignature;
        const Outcomes result = outcomes(flipped);
        EXPECT_TRUE(allowed.contain(result))
            << "bit " << bit % 8 << " of character " << place << ": " << result;
    }
}

// 71 bytes take 95 characters, and two bits of the last one stand for nothing; 70 bytes take 94,
// and leave four.
TEST(FlippedBits, CountUnlessTheyStandForNothing)
{
    const FakeClock clock{now};
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    for (const auto& [size, alike] : {std::pair{71U, 4U}, std::pair{70U, 16U}})
    {
        SCOPED_TRACE(size);
        const std::string token = tokenWithSignatureOf(size);
        const std::size_t last = digits.find(token.back());
        for (std::size_t digit = 0; digit < digits.size(); ++digit)
        {
            const std::string other = token.substr(0, token.size() - 1) + digits[digit];
            EXPECT_EQ(outcomes(other),
                      digit / alike == last / alike ? accepted : refusedBy("token.signature"));
        }
    }
}

// The last of two members with one name counts, everywhere: nobody reads another token than the one
// that is judged.
TEST(RepeatedMembers, CountOnceAndTheLastOne)
{
    const FakeClock clock{now};
    const std::string claims = tokens::json(plainClaims());
    const auto before = [&](const std::string& member) {
        return "{" + member + "," + claims.substr(1);
    };
    const auto behind = [&](const std::string& member) {
        return claims.substr(0, claims.size() - 1) + "," + member + "}";
    };
    EXPECT_EQ(outcomes(handmade(plainHeader, before(R"("exp":"1600000000")"))), accepted);
    EXPECT_EQ(outcomes(handmade(plainHeader, behind(R"("exp":"1600000000")"))), expired);
    EXPECT_EQ(outcomes(handmade(plainHeader, before(R"("nbf":"1800000000")"))), accepted);
    EXPECT_EQ(outcomes(handmade(plainHeader, behind(R"("nbf":"1800000000")"))),
              refusedBy("token.not-yet-valid"));
    EXPECT_EQ(outcomes(handmade(plainHeader, behind(R"("exp":null)"))), refusedBy("token.member"));
    EXPECT_EQ(outcomes(handmade(plainHeader, behind(R"("e\u0078p":"1600000000")"))), expired);
    EXPECT_EQ(outcomes(handmade(R"({"alg":"none","alg":"ES256","typ":"JWT"})", claims)), accepted);
    EXPECT_EQ(outcomes(handmade(R"({"alg":"ES256","alg":"none","typ":"JWT"})", claims)),
              (Outcomes{"accepted", "token.algorithm"}));
    EXPECT_EQ(outcomes(handmade(R"({"alg":"ES256","alg":null,"typ":"JWT"})", claims)),
              refusedBy("token.member"));

    const std::string token = handmade(plainHeader, before(R"("sub":"root","scope":{"a":["b"]})"));
    const Judgement judgement = judge(token, {.keys = {publicPem()}});
    ASSERT_TRUE(judgement.hasRecords());
    EXPECT_STREQ(judgement.payload->sub, "user");
    JWTPayload* payload = nullptr;
    ASSERT_EQ(get_jwt_payload(token.c_str(), &payload), 1);
    const tokens::Payload owned{payload};
    EXPECT_STREQ(payload->sub, "user");
}

} // namespace
