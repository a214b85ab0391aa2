// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/lists.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <limits>
#include <set>

namespace
{

using namespace support;

using ResponsePtr = std::unique_ptr<RegisterResponse, Releaser<free_register_response>>;

constexpr std::time_t now = 1'700'000'000;

ResponsePtr created(const char* secret, const char* id, const char* expiresIn)
{
    return ResponsePtr{create_register_response(secret, id, expiresIn, nullptr, nullptr, nullptr,
                                                nullptr, nullptr, nullptr, nullptr, nullptr)};
}

ResponsePtr configured(const char* expiresIn)
{
    return ResponsePtr{configure_reg_response(expiresIn, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr)};
}

ResponsePtr registered(RegisterResponse* settings)
{
    RegisterRequest request{};
    return ResponsePtr{register_client(&request, settings)};
}

/** Every setting that a response can have. */
class Settings
{
public:
    [[nodiscard]] ResponsePtr create()
    {
        return ResponsePtr{create_register_response("secret", "id", "60", grants, "ignored", types,
                                                    required, challenge, answer, "sealed",
                                                    software.data())};
    }

    [[nodiscard]] ResponsePtr configure()
    {
        return ResponsePtr{configure_reg_response("60", grants, "ignored", types, required,
                                                  challenge, answer, "sealed", software.data())};
    }

private:
    TextList grants{"refresh_token"};
    TextList types{"type-a", "type-b"};
    TextList required{"req"};
    ParameterList challenge{{"T", {"t"}}, {"V", {"v"}}};
    ParameterList answer{{"R", {"r"}}};
    ParameterList certificate{{"x5c", {"MIIB"}}};
    std::array<HandshakePayload*, 2> software = {certificate, nullptr};
};

void expectSettings(const RegisterResponse& response)
{
    EXPECT_EQ(orNull(response.client_secret_expires_in), "60");
    EXPECT_EQ(texts(response.grant_types), std::vector<std::string>{"refresh_token"});
    EXPECT_EQ(texts(response.kest_policy_auth_types),
              (std::vector<std::string>{"type-a", "type-b"}));
    EXPECT_EQ(texts(response.kest_policy_auth_req), std::vector<std::string>{"req"});
    EXPECT_EQ(parameters(response.handshake_challenge), (Parameters{{"T", {"t"}}, {"V", {"v"}}}));
    EXPECT_EQ(parameters(response.handshake_response), (Parameters{{"R", {"r"}}}));
    EXPECT_EQ(orNull(response.ssl_cert_cryptex), "sealed");
    ASSERT_NE(response.software_id_cert, nullptr);
    EXPECT_EQ(parameters(response.software_id_cert[0]), (Parameters{{"x5c", {"MIIB"}}}));
    EXPECT_EQ(response.software_id_cert[1], nullptr);
    EXPECT_EQ(response.reserved_text, nullptr);
    EXPECT_EQ(response.reserved_value, nullptr);
}

TEST(CreateRegisterResponse, TakesTheSecretFirst)
{
    const FakeClock clock{now};
    const ResponsePtr response = created("secret", "id", "0");
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->client_secret, "secret");
    EXPECT_STREQ(response->client_id, "id");
    EXPECT_STREQ(response->client_secret_expires_in, "0");
    EXPECT_STREQ(response->issued_at, "1700000000");
    EXPECT_EQ(response->reserved_text, nullptr);
    EXPECT_EQ(response->grant_types, nullptr);
    EXPECT_EQ(response->reserved_value, nullptr);
    EXPECT_EQ(response->kest_policy_auth_types, nullptr);
    EXPECT_EQ(response->kest_policy_auth_req, nullptr);
    EXPECT_EQ(response->ssl_cert_cryptex, nullptr);
    EXPECT_EQ(response->handshake_challenge, nullptr);
    EXPECT_EQ(response->handshake_response, nullptr);
    EXPECT_EQ(response->software_id_cert, nullptr);
}

TEST(CreateRegisterResponse, CopiesEverySetting)
{
    ResponsePtr response;
    {
        Settings settings;
        response = settings.create();
    }
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->client_secret, "secret");
    EXPECT_STREQ(response->client_id, "id");
    expectSettings(*response);
}

TEST(CreateRegisterResponse, RefusesEachMissingText)
{
    EXPECT_NE(created("", "", "0"), nullptr);
    EXPECT_REFUSED("argument.null", created(nullptr, "id", "0"));
    EXPECT_STREQ(lastRefusal().subject, "client_secret");
    EXPECT_REFUSED("argument.null", created("secret", nullptr, "0"));
    EXPECT_STREQ(lastRefusal().subject, "client_id");
    EXPECT_REFUSED("argument.null", created("secret", "id", nullptr));
    EXPECT_STREQ(lastRefusal().subject, "client_secret_expires_in");
}

TEST(CreateRegisterResponse, WantsALifetimeThatBeginsWithANumber)
{
    for (const char* lifetime :
         {"0", "60", "00060", "60abc", "60 s", "1.5", "0x10", " \t\n60", "+60", "-0", "2147483647"})
    {
        SCOPED_TRACE(lifetime);
        const ResponsePtr response = created("secret", "id", lifetime);
        ASSERT_NE(response, nullptr);
        EXPECT_STREQ(response->client_secret_expires_in, lifetime);
    }
    for (const char* lifetime : {"", " ", "abc", "x60", "-", "+", "+-60", "- 60", ".5", "-1", "-60",
                                 "-60abc", "99999999999999999999", "-99999999999999999999"})
    {
        SCOPED_TRACE(lifetime);
        EXPECT_REFUSED("registration.lifetime", created("secret", "id", lifetime));
        EXPECT_STREQ(lastRefusal().subject, "client_secret_expires_in");
        EXPECT_STREQ(lastRefusal().saw, lifetime);
    }
}

TEST(CreateRegisterResponse, WantsALifetimeThatALongHolds)
{
    // As wide as the platform's type: 32 bits on a controller.
    const std::string largest = std::to_string(std::numeric_limits<long>::max());
    const std::string beyond =
        std::to_string(static_cast<unsigned long>(std::numeric_limits<long>::max()) + 1U);
    EXPECT_NE(created("secret", "id", largest.c_str()), nullptr);
    EXPECT_REFUSED("registration.lifetime", created("secret", "id", beyond.c_str()));
    EXPECT_REFUSED("registration.lifetime", created("secret", "id", (largest + "0").c_str()));
}

TEST(CreateRegisterResponse, LeavesOutListsThatHaveNoCopy)
{
    TextList none{};
    ParameterList empty{};
    ParameterList valueless{{"T", {}}};
    std::array<HandshakePayload*, 2> software = {valueless, nullptr};
    plantRefusal();
    const ResponsePtr response{create_register_response("secret", "id", "0", none, nullptr, none,
                                                        none, valueless, empty, nullptr,
                                                        software.data())};
    ASSERT_NE(response, nullptr);
    EXPECT_TRUE(isPlantedRefusal());
    EXPECT_EQ(response->grant_types, nullptr);
    EXPECT_EQ(response->kest_policy_auth_types, nullptr);
    EXPECT_EQ(response->kest_policy_auth_req, nullptr);
    EXPECT_EQ(response->handshake_challenge, nullptr);
    EXPECT_EQ(response->handshake_response, nullptr);
    EXPECT_EQ(response->software_id_cert, nullptr);
}

TEST(CreateRegisterResponse, GivesNullWhereTheClockCannotBeBrokenDown)
{
    FakeClock clock{now};
    EXPECT_NE(created("secret", "id", "0"), nullptr);
    clock.failBreakingDown();
    EXPECT_REFUSED("clock.unreadable", created("secret", "id", "0"));
    EXPECT_REFUSED("clock.unreadable", configured("0"));
    EXPECT_REFUSED("clock.unreadable", registered(nullptr));
}

TEST(CreateRegisterResponse, LosesAtMostItsListsWithoutMemory)
{
    Settings settings;
    EXPECT_NE(settings.create(), nullptr);
    unsigned int refused = 0;
    unsigned int incomplete = 0;
    withEachAllocationFailing([&](auto& failure) {
        const ResponsePtr response = settings.create();
        const bool failed = failure.reached();
        if (!response)
        {
            EXPECT_TRUE(failed);
            ++refused;
            return;
        }
        EXPECT_EQ(orNull(response->client_secret), "secret");
        EXPECT_EQ(orNull(response->client_id), "id");
        EXPECT_EQ(orNull(response->client_secret_expires_in), "60");
        EXPECT_NE(response->issued_at, nullptr);
        EXPECT_EQ(orNull(response->ssl_cert_cryptex), "sealed");
        if (failed)
        {
            ++incomplete;
            return;
        }
        expectSettings(*response);
    });
    // The record and its five texts. Two for an array of one text, three for the array of two;
    // seven for the challenge, four for the response, five for the certificates.
    EXPECT_EQ(refused, 6U);
    EXPECT_EQ(incomplete, 2U + 3U + 2U + 7U + 4U + 5U);
}

TEST(FreeRegisterResponse, ReleasesAReservedTextButNotTheReservedValue)
{
    free_register_response(nullptr);
    free_register_response(static_cast<RegisterResponse*>(calloc(1, sizeof(RegisterResponse))));
    ResponsePtr response = created("secret", "id", "0");
    ASSERT_NE(response, nullptr);
    // A leak check sees whether the text is released; the value is not a block of the heap.
    response->reserved_text = strdup("reserved");
    response->reserved_value = "value";
    EXPECT_NE(response->reserved_text, nullptr);
}

TEST(RegisterClient, IssuesIdentifierAndSecret)
{
    const FakeClock clock{now};
    const FakeRandom random{"0123456789abcdefABCDEFGHIJKLMNOP"};
    const ResponsePtr response = registered(nullptr);
    ASSERT_NE(response, nullptr);
    // Base64 of the first and of the second 16 random bytes.
    EXPECT_STREQ(response->client_id, "MDEyMzQ1Njc4OWFiY2RlZg==");
    EXPECT_STREQ(response->client_secret, "QUJDREVGR0hJSktMTU5PUA==");
    EXPECT_STREQ(response->client_secret_expires_in, "0");
    EXPECT_STREQ(response->issued_at, "1700000000");
    EXPECT_EQ(response->handshake_challenge, nullptr);
    EXPECT_EQ(response->grant_types, nullptr);
    EXPECT_EQ(response->reserved_value, nullptr);
    EXPECT_EQ(random.bytesAskedFor(), 32U);
    // Without a challenge there is no document.
    EXPECT_REFUSED("registration.challenge", write_register_response(response.get()));
}

TEST(RegisterClient, IssuesFreshOnesEachTime)
{
    std::set<std::string> issued;
    for (int i = 0; i < 8; ++i)
    {
        const ResponsePtr response = registered(nullptr);
        ASSERT_NE(response, nullptr);
        for (const char* token : {response->client_id, response->client_secret})
        {
            EXPECT_EQ(std::string_view{token}.size(), 24U);
            EXPECT_TRUE(std::string_view{token}.ends_with("=="));
            issued.insert(token);
        }
    }
    EXPECT_EQ(issued.size(), 16U);
}

TEST(RegisterClient, TakesEverySettingOfTheTemplate)
{
    Settings settings;
    const ResponsePtr configuration = settings.configure();
    ASSERT_NE(configuration, nullptr);
    EXPECT_STREQ(configuration->client_secret, "");
    EXPECT_STREQ(configuration->client_id, "");
    expectSettings(*configuration);
    configuration->reserved_value = "ignored";

    const FakeRandom random{"0123456789abcdefABCDEFGHIJKLMNOP"};
    const ResponsePtr response = registered(configuration.get());
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->client_id, "MDEyMzQ1Njc4OWFiY2RlZg==");
    expectSettings(*response);
    // The template is left as it is, and nothing is shared with it.
    EXPECT_STREQ(configuration->client_secret, "");
    EXPECT_STREQ(configuration->reserved_value, "ignored");
    EXPECT_NE(response->grant_types, configuration->grant_types);
    EXPECT_NE(response->handshake_challenge, configuration->handshake_challenge);
    EXPECT_EQ(orNull(HeapText{write_register_response(response.get())}.get()),
              R"({"client_id":"MDEyMzQ1Njc4OWFiY2RlZg==",)"
              R"("client_secret":"QUJDREVGR0hJSktMTU5PUA==","client_secret_expires_in":"60",)"
              R"("grant_types":["refresh_token"],"handshake_challenge":{"T":["t"],"V":"v"},)"
              R"("handshake_response":{"R":["r"]},"kest_policy_auth_req":["req"],)"
              R"("kest_policy_auth_types":["type-a","type-b"],)"
              R"("software_id_cert":[{"x5c":["MIIB"]}],"ssl_cert_cryptex":"sealed"})");
}

TEST(RegisterClient, RefusesATemplateWithoutAUsableLifetime)
{
    const ResponsePtr settings = configured("60");
    ASSERT_NE(settings, nullptr);
    EXPECT_NE(registered(settings.get()), nullptr);
    const HeapText kept{settings->client_secret_expires_in};
    for (const char* lifetime : {"-60", "soon", "", "99999999999999999999"})
    {
        SCOPED_TRACE(lifetime);
        HeapText text = heapText(lifetime);
        settings->client_secret_expires_in = text.get();
        EXPECT_REFUSED("registration.lifetime", registered(settings.get()));
    }
    HeapText letters = heapText("60abc");
    settings->client_secret_expires_in = letters.get();
    const ResponsePtr response = registered(settings.get());
    ASSERT_NE(response, nullptr);
    EXPECT_STREQ(response->client_secret_expires_in, "60abc");
    settings->client_secret_expires_in = nullptr;
    EXPECT_REFUSED("registration.lifetime", registered(settings.get()));
}

TEST(RegisterClient, WantsARequestButLooksAtNothingInIt)
{
    EXPECT_REFUSED("argument.null", register_client(nullptr, nullptr));
    EXPECT_STREQ(lastRefusal().subject, "request");
    const ResponsePtr settings = configured("60");
    EXPECT_REFUSED("argument.null", register_client(nullptr, settings.get()));
    EXPECT_NE(registered(settings.get()), nullptr);
}

TEST(RegisterClient, GivesNullWithoutRandomBytes)
{
    for (const unsigned int whichToken : {0U, 1U})
    {
        SCOPED_TRACE(whichToken);
        FakeRandom random;
        EXPECT_NE(registered(nullptr), nullptr);
        random.failReading(EIO, {whichToken, 1});
        EXPECT_REFUSED("random.device", registered(nullptr));
    }
    FakeRandom random;
    random.shortenReading(1, {1, 1});
    EXPECT_REFUSED("random.device", registered(nullptr));
    random.failOpening(EACCES, {1, 1});
    EXPECT_REFUSED("random.device", registered(nullptr));
    EXPECT_NE(registered(nullptr), nullptr);
}

TEST(RegisterClient, GivesWholeTextsOrNothingWithoutMemory)
{
    Settings settings;
    const ResponsePtr configuration = settings.configure();
    EXPECT_NE(registered(configuration.get()), nullptr);
    withEachAllocationFailing([&](auto& failure) {
        const ResponsePtr response = registered(configuration.get());
        const bool failed = failure.reached();
        if (!response)
        {
            EXPECT_TRUE(failed);
            return;
        }
        EXPECT_EQ(orNull(response->client_id).size(), 24U);
        EXPECT_EQ(orNull(response->client_secret).size(), 24U);
        EXPECT_EQ(orNull(response->client_secret_expires_in), "60");
        if (!failed)
        {
            expectSettings(*response);
        }
    });
}

TEST(RegisterClient, LeavesErrnoAlone)
{
    errno = EXDEV;
    EXPECT_NE(registered(nullptr), nullptr);
    EXPECT_REFUSED("registration.lifetime", created("secret", "id", "99999999999999999999"));
    EXPECT_EQ(errno, EXDEV);
    errno = 0;
    EXPECT_NE(created("secret", "id", "0"), nullptr);
    EXPECT_EQ(errno, 0);
    // Nor is what it was a reason to refuse a lifetime.
    errno = ERANGE;
    EXPECT_NE(created("secret", "id", "0"), nullptr);
    EXPECT_EQ(errno, ERANGE);
}

TEST(ConfigureRegResponse, WantsALifetime)
{
    EXPECT_NE(configured("0"), nullptr);
    EXPECT_REFUSED("argument.null", configured(nullptr));
    EXPECT_REFUSED("registration.lifetime", configured("-1"));
    EXPECT_REFUSED("registration.lifetime", configured("never"));
}

} // namespace
