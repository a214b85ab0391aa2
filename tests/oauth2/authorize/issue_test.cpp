// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/lists.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <climits>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <json/value.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <thread>

namespace
{

using namespace support;

using ResponsePtr = std::unique_ptr<AuthorizeResponse, Releaser<free_authorize_response>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using EcKeyPtr = std::unique_ptr<EC_KEY, Releaser<EC_KEY_free>>;
using DigestPtr = std::unique_ptr<EVP_MD_CTX, Releaser<EVP_MD_CTX_free>>;

constexpr std::time_t now = 1'700'000'000;
constexpr const char* request =
    R"({"client_id":"id","client_secret":"secret","state":"st\"ate","refresh_token":"old"})";

/** Decodes Base64url with OpenSSL alone. */
std::string decoded(std::string text)
{
    std::ranges::replace(text, '-', '+');
    std::ranges::replace(text, '_', '/');
    const std::size_t padding = (4 - text.size() % 4) % 4;
    text.append(padding, '=');
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    if (length < 0)
    {
        throw std::runtime_error("no Base64url: " + text);
    }
    bytes.resize(static_cast<std::size_t>(length) - padding);
    return bytes;
}

Json::Value tree(const std::string& text)
{
    Json::Value value;
    std::string errors;
    const std::unique_ptr<Json::CharReader> reader{Json::CharReaderBuilder{}.newCharReader()};
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors))
    {
        throw std::runtime_error(errors + text);
    }
    return value;
}

/** A compact token taken apart without the library. */
struct Token
{
    explicit Token(const std::string& text)
        : signingInput{text.substr(0, text.rfind('.'))},
          header{decoded(text.substr(0, text.find('.')))},
          claims{tree(decoded(signingInput.substr(signingInput.find('.') + 1)))},
          signature{decoded(text.substr(text.rfind('.') + 1))}
    {
        EXPECT_EQ(std::ranges::count(text, '.'), 2);
    }

    std::string signingInput;
    std::string header;
    Json::Value claims;
    std::string signature;
};

/** A P-256 key of OpenSSL's making, and the DER form that services keep. */
class SigningKey
{
public:
    SigningKey() : pair{EVP_EC_gen("P-256")}, legacy{EVP_PKEY_get1_EC_KEY(pair.get())}
    {
        unsigned char* out = nullptr;
        const int length = i2d_ECPrivateKey(legacy.get(), &out);
        encoded.assign(out, out + length);
        OPENSSL_free(out);
    }

    [[nodiscard]] bool verifies(const Token& token) const
    {
        const DigestPtr context{EVP_MD_CTX_new()};
        const bool good =
            EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, pair.get()) == 1 &&
            EVP_DigestVerify(context.get(),
                             reinterpret_cast<const unsigned char*>(token.signature.data()),
                             token.signature.size(),
                             reinterpret_cast<const unsigned char*>(token.signingInput.data()),
                             token.signingInput.size()) == 1;
        ERR_clear_error();
        return good;
    }

    [[nodiscard]] ResponsePtr issue(const char* state, AuthorizeResponse* settings = nullptr,
                                    AuthorizeClaims* claims = nullptr) const
    {
        return ResponsePtr{authorize_client(
            state, encoded.data(), static_cast<unsigned int>(encoded.size()), settings, claims)};
    }

    [[nodiscard]] const std::vector<unsigned char>& der() const
    {
        return encoded;
    }

private:
    PkeyPtr pair;
    EcKeyPtr legacy;
    std::vector<unsigned char> encoded;
};

const SigningKey& signingKey()
{
    static const SigningKey key;
    return key;
}

/** Claims with these scope entries, whose counts are those of their values. */
struct Claims
{
    Claims(std::initializer_list<Parameters::value_type> scopes)
    {
        for (const auto& [name, values] : scopes)
        {
            std::vector<char*> array;
            for (const std::string& value : values)
            {
                array.push_back(kept.emplace_back(value).data());
            }
            JWTscopes& entry = entries.emplace_back();
            entry.name = kept.emplace_back(name).data();
            entry.count = static_cast<int>(array.size());
            // With room for one even where there is none: a null array is another case.
            array.push_back(nullptr);
            entry.values = arrays.emplace_back(std::move(array)).data();
        }
        claims.scopes = entries.data();
        claims.scope_count = static_cast<int>(entries.size());
    }
    Claims(const Claims&) = delete;
    Claims& operator=(const Claims&) = delete;
    ~Claims() = default;

    AuthorizeClaims claims{};
    std::vector<JWTscopes> entries;
    std::list<std::string> kept;
    std::list<std::vector<char*>> arrays;
};

/** What a token that is issued with this lifetime says: its expiry less its time of issue. */
std::uint64_t lifetimeFor(const char* expiresIn)
{
    const FakeClock clock{now};
    const ResponsePtr settings{configure_auth_response(expiresIn, nullptr)};
    const ResponsePtr response = signingKey().issue("state", settings.get());
    EXPECT_STREQ(response->expires_in, expiresIn);
    const Token token{response->access_token};
    EXPECT_EQ(token.claims["iat"], "1700000000");
    return std::stoull(token.claims["exp"].asString()) - 1'700'000'000U;
}

TEST(ClientAuthorize, IssuesTokensForARefreshToken)
{
    const FakeClock clock{now};
    const FakeRandom random{"0123456789abcdefABCDEFGHIJKLMNOP"};
    const HeapText text{client_authorize(request)};
    ASSERT_NE(text, nullptr);
    Json::Value document = tree(text.get());
    EXPECT_EQ(document.size(), 5U);
    EXPECT_EQ(document["state"], "st\"ate");
    EXPECT_EQ(document["expires_in"], "3600");
    EXPECT_EQ(document["token_type"], "bearer");
    // Base64 of the second 16 random bytes; the first ones are the token's identifier.
    EXPECT_EQ(document["refresh_token"], "QUJDREVGR0hJSktMTU5PUA==");

    const Token token{document["access_token"].asString()};
    EXPECT_EQ(token.header, R"({"alg":"ES256","typ":"JWT"})");
    EXPECT_EQ(token.claims, tree(R"({"exp":"1700003600","iat":"1700000000","iss":"EC",)"
                                 R"("jti":"MDEyMzQ1Njc4OWFiY2RlZg==","nbf":"1700000000",)"
                                 R"("sub":"EC OAuth Token"})"));
    EXPECT_FALSE(signingKey().verifies(token));
}

TEST(ClientAuthorize, IssuesTokensForAHandshakeAndLooksAtNothingElse)
{
    const HeapText text{client_authorize(
        R"({"client_id":"","client_secret":"wrong","state":"","handshake_response":{"R":"no proof"},)"
        R"("kest_policy_auth":{"a":"b"}})")};
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(tree(text.get())["token_type"], "bearer");
}

TEST(ClientAuthorize, IssuesFreshTokensEachTime)
{
    std::set<std::string> accessTokens;
    std::set<std::string> refreshTokens{"old"};
    for (int i = 0; i < 4; ++i)
    {
        const HeapText text{client_authorize(request)};
        ASSERT_NE(text, nullptr);
        const Json::Value document = tree(text.get());
        accessTokens.insert(document["access_token"].asString());
        const std::string refreshToken = document["refresh_token"].asString();
        refreshTokens.insert(refreshToken);
        // 16 bytes in Base64.
        EXPECT_EQ(refreshToken.size(), 24U);
        EXPECT_TRUE(refreshToken.ends_with("=="));
    }
    EXPECT_EQ(accessTokens.size(), 4U);
    EXPECT_EQ(refreshTokens.size(), 5U);
}

TEST(ClientAuthorize, RefusesWhatTheReaderRefuses)
{
    EXPECT_REFUSED("argument.null", client_authorize(nullptr));
    EXPECT_REFUSED("authorize.grant",
                   client_authorize(R"({"client_id":"id","client_secret":"secret","state":"st"})"));
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED(hostileRule(name), HeapText{client_authorize(text.c_str())});
    }
    for (const auto& [name, text] : oddObjects())
    {
        SCOPED_TRACE(name);
        EXPECT_REFUSED("authorize.grant", HeapText{client_authorize(text.c_str())});
    }
}

TEST(ClientAuthorize, GivesAWholeResponseOrNoneWithoutMemory)
{
    EXPECT_NE(HeapText{client_authorize(request)}, nullptr);
    unsigned int refused = 0;
    withEachAllocationFailing([&](auto& failure) {
        const HeapText text{client_authorize(request)};
        const bool failed = failure.reached();
        if (text == nullptr)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        const Json::Value document = tree(text.get());
        EXPECT_EQ(document.size(), 5U);
        EXPECT_EQ(Token{document["access_token"].asString()}.claims["sub"], "EC OAuth Token");
    });
    EXPECT_GT(refused, 30U);
}

TEST(AuthorizeClient, SignsWithTheServiceKey)
{
    const FakeClock clock{now};
    const ResponsePtr response = signingKey().issue("state");
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->state, "state");
    EXPECT_STREQ(response->expires_in, "3600");
    EXPECT_STREQ(response->token_type, "bearer");
    EXPECT_STREQ(response->issued_at, "1700000000");
    Token token{response->access_token};
    EXPECT_TRUE(signingKey().verifies(token));
    token.signingInput[token.signingInput.size() / 2] ^= 1;
    EXPECT_FALSE(signingKey().verifies(token));
}

TEST(AuthorizeClient, SignsWithAThrowawayKeyWhereNoneIsGiven)
{
    const ResponsePtr response{authorize_client("state", nullptr, 0, nullptr, nullptr)};
    ASSERT_NE(response, nullptr);
    EXPECT_FALSE(signingKey().verifies(Token{response->access_token}));
    // The length of no key is not looked at.
    EXPECT_NE(ResponsePtr{authorize_client("state", nullptr, UINT_MAX, nullptr, nullptr)}, nullptr);
}

TEST(AuthorizeClient, RefusesAKeyThatDoesNotSign)
{
    std::vector<unsigned char> der = signingKey().der();
    const auto size = static_cast<unsigned int>(der.size());
    EXPECT_NE(ResponsePtr{authorize_client("state", der.data(), size, nullptr, nullptr)}, nullptr);
    EXPECT_REFUSED("key.encoding",
                   authorize_client("state", der.data(), size - 1, nullptr, nullptr));
    EXPECT_REFUSED("argument.length", authorize_client("state", der.data(), 0, nullptr, nullptr));
    EXPECT_REFUSED("argument.length",
                   authorize_client("state", der.data(), UINT_MAX, nullptr, nullptr));
    EXPECT_REFUSED("argument.length",
                   authorize_client("state", der.data(), INT_MAX + 1U, nullptr, nullptr));
    der[0] ^= 1;
    EXPECT_REFUSED("key.encoding", authorize_client("state", der.data(), size, nullptr, nullptr));
}

TEST(AuthorizeClient, RefusesAMissingState)
{
    EXPECT_REFUSED("argument.null", signingKey().issue(nullptr));
    EXPECT_NE(signingKey().issue(""), nullptr);
}

TEST(AuthorizeClient, TakesLifetimeAndTypeFromTheTemplate)
{
    const FakeClock clock{now};
    const ResponsePtr settings{configure_auth_response("600", nullptr)};
    const ResponsePtr response = signingKey().issue("state", settings.get());
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->expires_in, "600");
    EXPECT_STREQ(response->token_type, "bearer");
    EXPECT_EQ(Token{response->access_token}.claims["exp"], "1700000600");
    // The template is left as it is.
    EXPECT_STREQ(settings->expires_in, "600");
    EXPECT_STREQ(settings->state, "");

    const ResponsePtr other{configure_auth_response("60", "mac")};
    EXPECT_STREQ(signingKey().issue("state", other.get())->token_type, "mac");
}

TEST(AuthorizeClient, ReadsTheLifetimeAsCDoes)
{
    EXPECT_EQ(lifetimeFor("600"), 600U);
    EXPECT_EQ(lifetimeFor("0x258"), 600U);
    EXPECT_EQ(lifetimeFor("0X258"), 600U);
    EXPECT_EQ(lifetimeFor("0170"), 120U);
    EXPECT_EQ(lifetimeFor(" \t600"), 600U);
    EXPECT_EQ(lifetimeFor("+600"), 600U);
    EXPECT_EQ(lifetimeFor("600 seconds"), 600U);
    EXPECT_EQ(lifetimeFor("4294967296"), 4'294'967'296U);
    EXPECT_EQ(lifetimeFor("18446744073709551615"), 18'446'744'073'709'551'615U);
    // A negative number wraps, as do those that carry the expiry beyond 64 bits; a number that is
    // itself too large is the largest.
    EXPECT_EQ(lifetimeFor("-1"), 18'446'744'073'709'551'615U);
    EXPECT_EQ(lifetimeFor("18446744073709551616"), 18'446'744'073'709'551'615U);
    EXPECT_EQ(lifetimeFor("-600"), 18'446'744'073'709'551'016U);
}

TEST(AuthorizeClient, LetsTokensLiveAnHourWhereTheTemplateGivesNoNumber)
{
    for (const char* text : {"soon", "", "0", "0x0", "00", "-0", "-", " ", "x600", "0x"})
    {
        SCOPED_TRACE(text);
        EXPECT_EQ(lifetimeFor(text), 3600U);
    }
}

TEST(AuthorizeClient, RefusesATemplateWithoutLifetimeOrType)
{
    for (char* AuthorizeResponse::*field :
         {&AuthorizeResponse::expires_in, &AuthorizeResponse::token_type})
    {
        const ResponsePtr settings{configure_auth_response("600", "bearer")};
        EXPECT_NE(signingKey().issue("state", settings.get()), nullptr);
        const HeapText kept{std::exchange(settings.get()->*field, nullptr)};
        EXPECT_REFUSED("document.incomplete", signingKey().issue("state", settings.get()));
    }
}

TEST(AuthorizeClient, ReadsOnlyLifetimeAndTypeOfTheTemplate)
{
    AuthorizeResponse settings{};
    TextList texts{"60", "bearer"};
    settings.expires_in = static_cast<char**>(texts)[0];
    settings.token_type = static_cast<char**>(texts)[1];
    EXPECT_NE(signingKey().issue("state", &settings), nullptr);
}

TEST(AuthorizeClient, TakesSubjectIssuerAndScopesFromTheClaims)
{
    const FakeClock clock{now};
    Claims wanted{{"web", {"read", "write"}}, {"ipmi", {"admin"}}};
    TextList texts{"alice", "issuer\"1"};
    wanted.claims.subject = static_cast<char**>(texts)[0];
    wanted.claims.issuer = static_cast<char**>(texts)[1];
    const ResponsePtr response = signingKey().issue("state", nullptr, &wanted.claims);
    ASSERT_NE(response, nullptr);
    Token token{response->access_token};
    EXPECT_TRUE(signingKey().verifies(token));
    EXPECT_EQ(token.claims["jti"].asString().size(), 24U);
    token.claims.removeMember("jti");
    EXPECT_EQ(token.claims,
              tree(R"({"exp":"1700003600","iat":"1700000000","iss":"issuer\"1","nbf":"1700000000",)"
                   R"("scope":{"ipmi":["admin"],"web":["read","write"]},"sub":"alice"})"));
    // The claims are the caller's still.
    EXPECT_STREQ(wanted.entries[0].values[1], "write");
}

TEST(AuthorizeClient, FillsInWhatTheClaimsLeaveOut)
{
    TextList texts{"alice"};
    AuthorizeClaims claims{};
    claims.subject = static_cast<char**>(texts)[0];
    Token token{signingKey().issue("state", nullptr, &claims)->access_token};
    EXPECT_EQ(token.claims["sub"], "alice");
    EXPECT_EQ(token.claims["iss"], "EC");
    EXPECT_FALSE(token.claims.isMember("scope"));
    std::swap(claims.subject, claims.issuer);
    token = Token{signingKey().issue("state", nullptr, &claims)->access_token};
    EXPECT_EQ(token.claims["sub"], "EC OAuth Token");
    EXPECT_EQ(token.claims["iss"], "alice");
}

TEST(AuthorizeClient, IssuesWithoutScopesWhereThereAreNone)
{
    for (const int count : {0, -1, INT_MIN})
    {
        SCOPED_TRACE(count);
        Claims claims{{"web", {"read"}}};
        claims.claims.scope_count = count;
        const ResponsePtr response = signingKey().issue("state", nullptr, &claims.claims);
        ASSERT_NE(response, nullptr);
        EXPECT_FALSE(Token{response->access_token}.claims.isMember("scope"));
    }
    AuthorizeClaims claims{};
    claims.scope_count = 3;
    const ResponsePtr response = signingKey().issue("state", nullptr, &claims);
    ASSERT_NE(response, nullptr);
    EXPECT_FALSE(Token{response->access_token}.claims.isMember("scope"));
}

TEST(AuthorizeClient, RefusesAnIncompleteScopeEntry)
{
    const auto issued = [](const auto& bend) {
        Claims claims{{"web", {"read", "write"}}, {"ipmi", {"admin", "user"}}};
        bend(claims.entries[1]);
        return signingKey().issue("state", nullptr, &claims.claims) != nullptr;
    };
    EXPECT_TRUE(issued([](JWTscopes&) {}));
    EXPECT_REFUSED("authorize.scope", issued([](JWTscopes& entry) { entry.count = 0; }));
    EXPECT_REFUSED("authorize.scope", issued([](JWTscopes& entry) { entry.count = -1; }));
    EXPECT_REFUSED("authorize.scope", issued([](JWTscopes& entry) { entry.count = INT_MIN; }));
    EXPECT_REFUSED("authorize.scope", issued([](JWTscopes& entry) { entry.values = nullptr; }));
    EXPECT_REFUSED("authorize.scope", issued([](JWTscopes& entry) { entry.values[1] = nullptr; }));
    EXPECT_STREQ(lastRefusal().subject, "values");
    EXPECT_EQ(lastRefusal().index, 1);
    EXPECT_REFUSED("authorize.scope", issued([](JWTscopes& entry) { entry.name = nullptr; }));
    EXPECT_STREQ(lastRefusal().subject, "name");
}

TEST(AuthorizeClient, GivesNullWithoutRandomBytes)
{
    for (const unsigned int whichToken : {0U, 1U})
    {
        SCOPED_TRACE(whichToken);
        {
            FakeRandom random;
            EXPECT_NE(signingKey().issue("state"), nullptr);
            EXPECT_EQ(random.bytesAskedFor(), 32U);
        }
        {
            FakeRandom random;
            random.failReading(EIO, {whichToken, 1});
            EXPECT_REFUSED("random.device", signingKey().issue("state"));
        }
        {
            FakeRandom random;
            random.shortenReading(1, {whichToken, 1});
            EXPECT_REFUSED("random.device", signingKey().issue("state"));
        }
        {
            FakeRandom random;
            random.failOpening(EMFILE, {whichToken, 1});
            EXPECT_REFUSED("random.device", signingKey().issue("state"));
        }
    }
}

TEST(AuthorizeClient, GivesNullWhereTheClockCannotBeBrokenDown)
{
    FakeClock clock{now};
    EXPECT_NE(signingKey().issue("state"), nullptr);
    clock.failBreakingDown();
    EXPECT_REFUSED("clock.unreadable", signingKey().issue("state"));
    EXPECT_REFUSED("clock.unreadable", HeapText{client_authorize(request)});
}

TEST(AuthorizeClient, LogsNothing)
{
    const JournalEntries journal;
    FakeRandom random;
    random.failReading(EIO);
    EXPECT_REFUSED("random.device", signingKey().issue("state"));
    EXPECT_REFUSED("authorize.grant", HeapText{client_authorize("{}")});
    EXPECT_TRUE(journal.all().empty());
}

TEST(AuthorizeClient, LeavesErrnoAndTheErrorQueueAlone)
{
    const std::array<unsigned char, 3> noKey = {1, 2, 3};
    ERR_clear_error();
    errno = EXDEV;
    EXPECT_REFUSED("key.encoding", authorize_client("state", noKey.data(), 3, nullptr, nullptr));
    EXPECT_NE(signingKey().issue("state"), nullptr);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(AuthorizeClient, GivesAWholeResponseOrNoneWithoutMemory)
{
    Claims claims{{"web", {"read", "write"}}, {"ipmi", {"admin"}}};
    const ResponsePtr settings{configure_auth_response("600", "bearer")};
    EXPECT_NE(signingKey().issue("state", settings.get(), &claims.claims), nullptr);
    unsigned int refused = 0;
    withEachAllocationFailing([&](auto& failure) {
        const ResponsePtr response = signingKey().issue("state", settings.get(), &claims.claims);
        const bool failed = failure.reached();
        if (!response)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        const Token token{response->access_token};
        EXPECT_TRUE(signingKey().verifies(token));
        EXPECT_EQ(token.claims["scope"]["web"].size(), 2U);
        EXPECT_EQ(orNull(response->expires_in), "600");
    });
    EXPECT_GT(refused, 30U);
}

TEST(AuthorizeClient, RunsOnSeveralThreadsAtOnce)
{
    std::array<std::set<std::string>, 4> issued;
    std::vector<std::thread> threads;
    threads.reserve(issued.size());
    for (std::set<std::string>& mine : issued)
    {
        threads.emplace_back([&mine] {
            for (int i = 0; i < 10; ++i)
            {
                mine.insert(signingKey().issue("state")->refresh_token);
            }
        });
    }
    std::set<std::string> all;
    for (std::size_t i = 0; i < threads.size(); ++i)
    {
        threads[i].join();
        all.insert(issued.at(i).begin(), issued.at(i).end());
    }
    EXPECT_EQ(all.size(), 40U);
}

} // namespace
