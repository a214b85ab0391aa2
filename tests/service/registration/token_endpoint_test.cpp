// SPDX-License-Identifier: Apache-2.0
#include "service_support.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace bmcoauth
{

namespace
{

struct Endpoint : TestService
{
    /** A client that has its first tokens. */
    [[nodiscard]] std::pair<TestClient, Tokens> connected()
    {
        TestClient client = registered();
        Tokens tokens = proven(client);
        return {std::move(client), std::move(tokens)};
    }
    /** What a refresh token gives. */
    [[nodiscard]] Expected<Text, Refusal> refreshed(const TestClient& client,
                                                    std::string_view token)
    {
        return endpoint().answer(client.refreshing(token), "sender");
    }
    [[nodiscard]] std::string newTokenOf(const TestClient& client, std::string_view token)
    {
        return TestClient::tokensOf(refreshed(client, token).value()).refresh;
    }
    /** The same client with secrets that are not the service's: its proofs are wrong. */
    [[nodiscard]] static TestClient guessing(TestClient client)
    {
        client.secrets = R"({"otp1.0":["00000000000000000000"]})";
        return client;
    }
};

/** A store that fails, or in which another call takes place just before a client is replaced. */
class InterruptedStore
{
public:
    explicit InterruptedStore(MemoryStore& store) : inner{&store}
    {
    }

    /** Fails at the `operation`th operation from now on. */
    void failAt(int operation)
    {
        left = operation;
    }

    /** Makes this call at the next replacing. */
    void interruptWith(std::function<void()> call)
    {
        interruption = std::move(call);
    }

    [[nodiscard]] Expected<std::optional<ClientRecord>> find(std::string_view id)
    {
        return done([&] { return inner->find(id); });
    }
    Expected<void> add(ClientRecord client, const ClientLimits& limits,
                       std::chrono::sys_seconds now)
    {
        return done([&] { return inner->add(std::move(client), limits, now); });
    }
    Expected<bool> replace(ClientRecord client)
    {
        if (interruption)
        {
            std::exchange(interruption, nullptr)();
        }
        return done([&] { return inner->replace(std::move(client)); });
    }
    Expected<void> remove(std::string_view id)
    {
        return done([&] { return inner->remove(id); });
    }
    Expected<bool> countAttempt(std::string_view counter, const FailureRate& rate,
                                std::chrono::sys_seconds now)
    {
        return done([&] { return inner->countAttempt(counter, rate, now); });
    }
    Expected<void> forgive(std::string_view counter, const FailureRate& rate)
    {
        return done([&] { return inner->forgive(counter, rate); });
    }

private:
    template <typename Operation>
    auto done(const Operation& operation) -> decltype(operation())
    {
        if (left > 0 && --left == 0)
        {
            return Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED};
        }
        return operation();
    }

    int left = 0;
    std::function<void()> interruption;
    MemoryStore* inner;
};

/** An endpoint that is interrupted once. */
struct Interrupted : Endpoint
{
    InterruptedStore interrupted{store};
    TokenEndpoint<InterruptedStore> slow =
        TokenEndpoint<InterruptedStore>::of(interrupted, issuer, functions()).value();
};

TEST_F(Interrupted, GivesTokensForAProofOnce)
{
    const TestClient client = registered();
    const std::string proof = client.proof();
    interrupted.interruptWith([&] { EXPECT_TRUE(endpoint().answer(proof, "sender")); });
    EXPECT_REFUSED("client.challenge-used", slow.answer(proof, "sender"));
    // The second attempt was not a guess.
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_REFUSED("handshake.proof-wrong",
                       endpoint().answer(guessing(registered()).proof(), "sender"));
    }
}

TEST_F(Interrupted, LooksAtAWrongProofOnce)
{
    const TestClient client = guessing(registered());
    const std::string proof = client.proof();
    interrupted.interruptWith(
        [&] { EXPECT_REFUSED("handshake.proof-wrong", endpoint().answer(proof, "sender")); });
    EXPECT_REFUSED("client.challenge-used", slow.answer(proof, "sender"));
}

TEST_F(Interrupted, GivesTheSameRefreshTokenAsTheOtherCall)
{
    const auto connection = connected();
    std::string other;
    interrupted.interruptWith(
        [&] { other = newTokenOf(connection.first, connection.second.refresh); });
    const Text answer =
        slow.answer(connection.first.refreshing(connection.second.refresh), "sender").value();
    EXPECT_EQ(TestClient::tokensOf(answer).refresh, other);
    EXPECT_TRUE(refreshed(connection.first, other));
}

TEST_F(Interrupted, GivesNothingToAClientThatWasRemovedMeanwhile)
{
    const auto connection = connected();
    interrupted.interruptWith([&] { ASSERT_TRUE(store.remove(connection.first.id)); });
    EXPECT_REFUSED("client.unknown",
                   slow.answer(connection.first.refreshing(connection.second.refresh), "sender"));
    EXPECT_FALSE(endpoint().isActive(connection.first.id).value());
}

TEST_F(Interrupted, GivesNothingWhereItsStoreFails)
{
    // Find, twice count, replace, twice forgive, find, replace.
    for (int operation = 1; operation <= 8; ++operation)
    {
        const TestClient client = registered();
        interrupted.failAt(operation);
        const Expected<Text, Refusal> answer = slow.answer(client.proof(), "sender");
        // A proof that could not be forgiven was still good.
        const bool isForgiving = operation == 5 || operation == 6;
        EXPECT_EQ(answer.has_value(), isForgiving) << operation;
        if (!answer)
        {
            EXPECT_REFUSED("client.store-failed", answer);
            EXPECT_EQ(answer.error().code(), OAUTH_SERVER_ERROR);
            EXPECT_FALSE(endpoint().isActive(client.id).value()) << operation;
        }
    }
    // Find, replace.
    const auto connection = connected();
    for (int operation = 1; operation <= 2; ++operation)
    {
        interrupted.failAt(operation);
        EXPECT_REFUSED(
            "client.store-failed",
            slow.answer(connection.first.refreshing(connection.second.refresh), "sender"));
        interrupted.failAt(operation);
        EXPECT_REFUSED(
            "client.store-failed",
            slow.revoke(connection.first.id, connection.first.secret, connection.second.refresh));
    }
    interrupted.failAt(1);
    EXPECT_REFUSED("client.store-failed", slow.introspect(connection.second.access, "resource"));
    EXPECT_TRUE(refreshed(connection.first, connection.second.refresh));
}

// ------------------------------------------------------------------------------------------ proofs --

TEST_F(Endpoint, GivesTokensForAProof)
{
    const auto connection = connected();
    const TestClient& client = connection.first;
    const ValidToken access =
        issuer.validator(ignored).value().validate(connection.second.access).value();
    EXPECT_EQ(access.claims().subject(), client.id);
    EXPECT_EQ(access.privileges(), Privilege::login);
    const ClientRecord kept = store.find(client.id).value().value();
    EXPECT_EQ(kept.challenge, "");
    EXPECT_EQ(kept.expiresAt, time.now() + std::chrono::days{30});
    EXPECT_EQ(kept.refresh->current, SecretDigest::of(connection.second.refresh));
}

TEST_F(Endpoint, AnswersInTheFormOfTheProtocol)
{
    const TestClient client = registered();
    const Text answer = endpoint().answer(client.proof(), "sender").value();
    const TokenResponse response = TokenResponse::parse(answer).value();
    EXPECT_EQ(response.state(), "state");
    EXPECT_EQ(response.expiresIn(), "600");
    EXPECT_EQ(response.tokenType(), "bearer");
}

TEST_F(Endpoint, WantsBothProofsOfADevice)
{
    Factory factory;
    const support::Identity device = factory.intermediate.issue({.commonName = "device"});
    TestClient client{.identity = &device, .chain = factory.chainOf(device)};
    const auto register_ = [&] {
        client.keep(registrar({.redirectUris = {"https://client.example/"}})
                        .answer(client.registration(), "sender")
                        .value());
    };
    register_();
    EXPECT_TRUE(endpoint().answer(client.proof(), "sender"));
    // The password alone is enough for the library.
    register_();
    const PrivateKey key = keyOf(device);
    const ParameterList whole =
        respond(client.challenge,
                {.secrets = client.secrets, .certificate = &*client.chain, .key = &key})
            .value();
    const std::string password = whole.value("R").value();
    const std::array<std::string_view, 1> proofs{password};
    const std::array parameters{Parameter{"R", proofs}};
    const ParameterList half = ParameterList::of(parameters).value();
    EXPECT_REFUSED("handshake.proof-missing",
                   endpoint().answer(client.request({.handshake = &half}), "sender"));
    // Another key than that of the certificate; another password.
    register_();
    const support::Identity other = support::Identity::selfSigned({.commonName = "device"});
    const TestClient stranger{.identity = &other,
                              .chain = factory.chainOf(device),
                              .id = client.id,
                              .secret = client.secret,
                              .challenge = client.challenge.copy().value()};
    EXPECT_REFUSED("handshake.proof-wrong", endpoint().answer(stranger.proof(), "sender"));
    register_();
    client.secrets = R"({"otp1.0":["00000000000000000000"]})";
    EXPECT_REFUSED("handshake.proof-wrong", endpoint().answer(client.proof(), "sender"));
}

TEST_F(Endpoint, TakesADevicesRootsAwayBetweenRegistrationAndProof)
{
    std::optional<Factory> factory{std::in_place};
    const support::Identity device = factory->intermediate.issue({.commonName = "device"});
    TestClient client{.identity = &device, .chain = factory->chainOf(device)};
    client.keep(registrar({.redirectUris = {"https://client.example/"}})
                    .answer(client.registration(), "sender")
                    .value());
    factory.reset();
    const Expected<Text, Refusal> answer = endpoint().answer(client.proof(), "sender");
    EXPECT_REFUSED("chain.root-missing", answer);
    EXPECT_EQ(answer.error().code(), OAUTH_SERVER_ERROR);
    // Nothing was used up by that.
    EXPECT_NE(store.find(client.id).value()->challenge, "");
}

TEST_F(Endpoint, TakesAnAnswerOnce)
{
    const TestClient client = registered();
    static_cast<void>(proven(client));
    EXPECT_REFUSED("client.challenge-used", endpoint().answer(client.proof(), "sender"));
}

TEST_F(Endpoint, TakesAWrongAnswerOnce)
{
    const TestClient client = registered();
    TestClient wrong{.secrets = R"({"otp1.0":["00000000000000000000"]})",
                     .id = client.id,
                     .secret = client.secret,
                     .challenge = client.challenge.copy().value()};
    EXPECT_REFUSED("handshake.proof-wrong", endpoint().answer(wrong.proof(), "sender"));
    EXPECT_REFUSED("client.challenge-used", endpoint().answer(client.proof(), "sender"));
}

TEST_F(Endpoint, TakesAnAnswerInTime)
{
    const TestClient in = registered();
    const TestClient late = registered();
    time.advance(299s);
    EXPECT_TRUE(endpoint().answer(in.proof(), "sender"));
    time.advance(1s);
    EXPECT_REFUSED("client.challenge-expired", endpoint().answer(late.proof(), "sender"));
}

TEST_F(Endpoint, LooksAtNoChallengeOfTheClients)
{
    // The proof is right for the challenge that another client was given.
    TestClient client = registered();
    const TestClient other = registered();
    client.challenge = other.challenge.copy().value();
    EXPECT_REFUSED("handshake.proof-wrong", endpoint().answer(client.proof(), "sender"));
}

TEST_F(Endpoint, GivesOneOfManyThreadsTheTokensForAProof)
{
    const TestClient client = registered();
    const std::string proof = client.proof();
    std::atomic<int> given = 0;
    constexpr int count = 8;
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back([&] { given += endpoint().answer(proof, "sender") ? 1 : 0; });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(given, 1);
    // The calls that came second were not guesses.
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_TRUE(endpoint().answer(registered().proof(), "sender")) << i;
    }
}

// -------------------------------------------------------------------------------- alike to the peer --

TEST_F(Endpoint, TellsUnknownLockedAndWrongApartForTheLogAlone)
{
    const TestClient client = registered();
    TestClient unknown = registered();
    unknown.id = "nobody";
    EXPECT_REFUSED("client.unknown", endpoint().answer(unknown.proof(), "sender"));
    TestClient wrong = registered();
    wrong.secret = "wrong";
    EXPECT_REFUSED("client.secret", endpoint().answer(wrong.proof(), "sender"));
    const TestClient used = registered();
    static_cast<void>(proven(used));
    std::vector<std::string> documents;
    for (const std::string& request :
         {unknown.proof(), wrong.proof(), used.proof(), client.refreshing("f.s"),
          used.refreshing("f.s"), guessing(registered()).proof()})
    {
        const Expected<Text, Refusal> answer = endpoint().answer(request, "sender");
        ASSERT_FALSE(answer);
        const Text document = answer.error().document().value();
        EXPECT_EQ(document.view(), R"({"error":"invalid_client"})") << request;
    }
}

TEST_F(Endpoint, BlamesItselfWhereItsSignerFails)
{
    const auto connection = connected();
    *signer.before = [] {
        return Error{BMCOAUTH_RULE_KEY_KIND, "signer"};
    };
    const Expected<Text, Refusal> answer = refreshed(connection.first, connection.second.refresh);
    EXPECT_REFUSED("key.kind", answer);
    EXPECT_EQ(answer.error().code(), OAUTH_SERVER_ERROR);
    // However often: nothing has changed.
    for (int i = 0; i < 20; ++i)
    {
        EXPECT_FALSE(refreshed(connection.first, connection.second.refresh));
    }
    time.advance(1h);
    *signer.before = [] {
        return Expected<void>{};
    };
    EXPECT_TRUE(refreshed(connection.first, connection.second.refresh));
}

TEST_F(Endpoint, NamesNoTimeBeforeNow)
{
    const TestClient client = registered();
    // The clock is set while the signer works.
    *signer.before = [this] {
        time.advance(1h);
        return Expected<void>{};
    };
    const Text answer = endpoint().answer(client.proof(), "sender").value();
    const TokenResponse response = TokenResponse::parse(answer).value();
    EXPECT_EQ(response.expiresIn(), "0");
}

TEST_F(Endpoint, ReadsNothingThatIsTooLong)
{
    EXPECT_REFUSED("json.nesting", endpoint().answer(std::string(16384, '['), ""));
    const Expected<Text, Refusal> answer = endpoint().answer(std::string(16385, '['), "");
    EXPECT_REFUSED("argument.length", answer);
    EXPECT_EQ(answer.error().code(), OAUTH_INVALID_REQUEST);
    EXPECT_REFUSED("authorize.grant",
                   endpoint().answer(R"({"client_id":"a","client_secret":"b","state":"c"})", ""));
}

// ---------------------------------------------------------------------------------------- failures --

TEST_F(Endpoint, LocksASenderHoweverOftenItRegisters)
{
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_REFUSED("handshake.proof-wrong",
                       endpoint().answer(guessing(registered()).proof(), "sender"));
    }
    // Right or wrong, and its challenge is still good.
    const TestClient client = registered();
    EXPECT_REFUSED("client.locked", endpoint().answer(guessing(registered()).proof(), "sender"));
    EXPECT_REFUSED("client.locked", endpoint().answer(client.proof(), "sender"));
    EXPECT_TRUE(endpoint().answer(client.proof(), "another sender"));
    // One more after ten minutes.
    time.advance(600s);
    EXPECT_TRUE(endpoint().answer(registered().proof(), "sender"));
    EXPECT_REFUSED("handshake.proof-wrong",
                   endpoint().answer(guessing(registered()).proof(), "sender"));
    EXPECT_REFUSED("client.locked", endpoint().answer(guessing(registered()).proof(), "sender"));
}

TEST_F(Endpoint, CountsFailuresOfAllSendersTogether)
{
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_REFUSED("handshake.proof-wrong",
                       endpoint().answer(guessing(registered()).proof(), std::to_string(i)));
    }
    EXPECT_REFUSED("client.locked", endpoint().answer(guessing(registered()).proof(), "new"));
    time.advance(300s);
    EXPECT_REFUSED("handshake.proof-wrong",
                   endpoint().answer(guessing(registered()).proof(), "new"));
    EXPECT_REFUSED("client.locked", endpoint().answer(guessing(registered()).proof(), "new"));
}

TEST_F(Endpoint, LetsClientsGoOnWhileProofsAreLocked)
{
    const auto connection = connected();
    for (int i = 0; i < 60; ++i)
    {
        static_cast<void>(endpoint().answer(guessing(registered()).proof(), std::to_string(i)));
    }
    EXPECT_REFUSED("client.locked", endpoint().answer(registered().proof(), "new"));
    EXPECT_TRUE(refreshed(connection.first, connection.second.refresh));
}

TEST_F(Endpoint, CountsNoGoodProofs)
{
    for (int i = 0; i < 60; ++i)
    {
        EXPECT_TRUE(endpoint().answer(registered().proof(), "sender")) << i;
    }
}

TEST_F(Endpoint, CountsNothingThatIsNoGuess)
{
    // Neither a wrong secret nor a challenge that was used: nobody locks another one out by them.
    TestClient wrong = registered();
    wrong.secret = "wrong";
    const TestClient used = registered();
    static_cast<void>(proven(used));
    for (int i = 0; i < 60; ++i)
    {
        EXPECT_REFUSED("client.secret", endpoint().answer(wrong.proof(), "sender"));
        EXPECT_REFUSED("client.challenge-used", endpoint().answer(used.proof(), "sender"));
    }
    EXPECT_TRUE(endpoint().answer(registered().proof(), "sender"));
}

// ----------------------------------------------------------------------------------------- refresh --

TEST_F(Endpoint, RotatesRefreshTokens)
{
    const auto connection = connected();
    const std::string second = newTokenOf(connection.first, connection.second.refresh);
    EXPECT_NE(second, connection.second.refresh);
    const std::string third = newTokenOf(connection.first, second);
    EXPECT_NE(third, second);
    EXPECT_TRUE(refreshed(connection.first, third));
}

TEST_F(Endpoint, GivesTheSameTokenOnceMoreWithinTheWindow)
{
    const auto connection = connected();
    const std::string second = newTokenOf(connection.first, connection.second.refresh);
    time.advance(29s);
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_EQ(newTokenOf(connection.first, connection.second.refresh), second);
    }
    EXPECT_TRUE(refreshed(connection.first, second));
}

TEST_F(Endpoint, EndsAClientWhoseOldTokenComesBack)
{
    for (const bool tooOften : {false, true})
    {
        const auto connection = connected();
        const std::string second = newTokenOf(connection.first, connection.second.refresh);
        for (int i = 0; tooOften && i < 4; ++i)
        {
            EXPECT_TRUE(refreshed(connection.first, connection.second.refresh));
        }
        time.advance(tooOften ? 0s : 30s);
        EXPECT_REFUSED("client.refresh-reused",
                       refreshed(connection.first, connection.second.refresh));
        EXPECT_REFUSED("client.unknown", refreshed(connection.first, second));
        EXPECT_FALSE(endpoint().isActive(connection.first.id).value());
    }
}

TEST_F(Endpoint, EndsAClientWhoseOldestTokenComesBack)
{
    const auto connection = connected();
    const std::string second = newTokenOf(connection.first, connection.second.refresh);
    static_cast<void>(newTokenOf(connection.first, second));
    EXPECT_REFUSED("client.refresh-reused", refreshed(connection.first, connection.second.refresh));
}

TEST_F(Endpoint, EndsNobodyForATokenThatWasNeverHis)
{
    const auto one = connected();
    const auto other = connected();
    EXPECT_REFUSED("client.refresh-unknown", refreshed(one.first, other.second.refresh));
    EXPECT_REFUSED("client.refresh-unknown", refreshed(one.first, "unknown"));
    EXPECT_REFUSED("client.refresh-unknown", refreshed(one.first, ""));
    EXPECT_REFUSED("client.refresh-unknown", refreshed(registered(), one.second.refresh));
    EXPECT_TRUE(refreshed(one.first, one.second.refresh));
    EXPECT_TRUE(refreshed(other.first, other.second.refresh));
}

TEST_F(Endpoint, WantsTheSecretBesideTheRefreshToken)
{
    auto connection = connected();
    connection.first.secret = "wrong";
    EXPECT_REFUSED("client.secret", refreshed(connection.first, connection.second.refresh));
}

TEST_F(Endpoint, EndsAClientThatIsNotUsed)
{
    const auto connection = connected();
    time.advance(std::chrono::days{30} - 1s);
    const std::string second = newTokenOf(connection.first, connection.second.refresh);
    time.advance(std::chrono::days{30});
    EXPECT_REFUSED("client.refresh-expired", refreshed(connection.first, second));
    // The next one who comes takes its place.
    static_cast<void>(registered());
    EXPECT_REFUSED("client.unknown", refreshed(connection.first, second));
}

TEST_F(Endpoint, EndsAClientInTheEnd)
{
    const auto connection = connected();
    std::string token = connection.second.refresh;
    for (int i = 0; i < 8; ++i)
    {
        time.advance(std::chrono::days{10});
        token = newTokenOf(connection.first, token);
    }
    EXPECT_TRUE(endpoint().isActive(connection.first.id).value());
    time.advance(std::chrono::days{10});
    EXPECT_REFUSED("client.family-expired", refreshed(connection.first, token));
    EXPECT_FALSE(endpoint().isActive(connection.first.id).value());
}

TEST_F(Endpoint, GivesManyThreadsOneToken)
{
    const auto connection = connected();
    std::array<std::string, 5> tokens;
    std::vector<std::thread> threads;
    threads.reserve(tokens.size());
    for (std::string& token : tokens)
    {
        threads.emplace_back(
            [&] { token = newTokenOf(connection.first, connection.second.refresh); });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    for (const std::string& token : tokens)
    {
        EXPECT_EQ(token, tokens.front());
    }
    EXPECT_TRUE(refreshed(connection.first, tokens.front()));
}

TEST_F(Endpoint, KeepsNoTokenThatOpensAnything)
{
    const auto connection = connected();
    const std::string second = newTokenOf(connection.first, connection.second.refresh);
    const ClientRecord kept = store.find(connection.first.id).value().value();
    for (const std::string& text : {kept.id, kept.softwareId, kept.sender, kept.certificate,
                                    kept.challenge, kept.refresh->salt})
    {
        EXPECT_NE(text, connection.first.secret);
        EXPECT_EQ(second.find(text.empty() ? "!" : text), std::string::npos);
    }
}

// -------------------------------------------------------------------- revocation and introspection --

TEST_F(Endpoint, RevokesByEitherToken)
{
    for (const bool byAccess : {false, true})
    {
        const auto connection = connected();
        EXPECT_TRUE(
            endpoint().revoke(connection.first.id, connection.first.secret,
                              byAccess ? connection.second.access : connection.second.refresh));
        EXPECT_REFUSED("client.unknown", refreshed(connection.first, connection.second.refresh));
        EXPECT_FALSE(endpoint().isActive(connection.first.id).value());
    }
}

TEST_F(Endpoint, RevokesByAnOldRefreshToken)
{
    const auto connection = connected();
    const std::string second = newTokenOf(connection.first, connection.second.refresh);
    EXPECT_TRUE(
        endpoint().revoke(connection.first.id, connection.first.secret, connection.second.refresh));
    EXPECT_REFUSED("client.unknown", refreshed(connection.first, second));
}

TEST_F(Endpoint, RevokesOnlyForTheOwner)
{
    const auto one = connected();
    const auto other = connected();
    EXPECT_REFUSED("client.secret", endpoint().revoke(one.first.id, "wrong", one.second.refresh));
    EXPECT_REFUSED("client.unknown", endpoint().revoke("nobody", "", one.second.refresh));
    // RFC 7009, section 2.2: a token that is not the client's is not an error.
    for (const std::string& token :
         {other.second.refresh, other.second.access, std::string{"unknown"}, std::string{},
          std::string(16385, 'a')})
    {
        EXPECT_TRUE(endpoint().revoke(one.first.id, one.first.secret, token));
    }
    EXPECT_TRUE(refreshed(one.first, one.second.refresh));
    EXPECT_TRUE(refreshed(other.first, other.second.refresh));
}

TEST_F(Endpoint, ReadsNoCredentialsThatAreTooLong)
{
    const auto connection = connected();
    const Expected<void, Refusal> answer =
        endpoint().revoke(connection.first.id, std::string(16385, 'a'), connection.second.refresh);
    EXPECT_REFUSED("argument.length", answer);
    EXPECT_EQ(answer.error().code(), OAUTH_INVALID_REQUEST);
    EXPECT_REFUSED("argument.length", endpoint().revoke(std::string(16385, 'a'), "", ""));
}

/** What `call` answers if the first allocation fails that it can refuse by: before that, the standard
 *  library throws. */
template <typename Call>
auto shortOfMemory(const Call& call) -> decltype(call())
{
    for (unsigned int nth = 1;; ++nth)
    {
        const support::FailAllocation failure{nth};
        try
        {
            return call();
        }
        catch (const std::bad_alloc&)
        {
            continue;
        }
    }
}

TEST_F(Endpoint, SaysSoWhenItCouldNotLook)
{
    const auto connection = connected();
    const std::string_view token = connection.second.access;
    TokenEndpoint<MemoryStore> service = endpoint();
    const Expected<Text, Refusal> described =
        shortOfMemory([&] { return service.introspect(token, "resource"); });
    EXPECT_REFUSED("memory.exhausted", described);
    EXPECT_EQ(described.error().code(), OAUTH_SERVER_ERROR);
    const Expected<void, Refusal> revoked = shortOfMemory(
        [&] { return service.revoke(connection.first.id, connection.first.secret, token); });
    EXPECT_REFUSED("memory.exhausted", revoked);
    EXPECT_EQ(revoked.error().code(), OAUTH_SERVER_ERROR);
}

TEST_F(Endpoint, DescribesTokensToThoseWhoMayAsk)
{
    const auto connection = connected();
    const Text text = endpoint().introspect(connection.second.access, "resource").value();
    const Json::Value document = parseJson(text).value();
    EXPECT_EQ(document["active"], true);
    EXPECT_EQ(document["client_id"], connection.first.id);
    EXPECT_EQ(document["sub"], connection.first.id);
    const UnverifiedToken read = readUnverified(connection.second.access).value();
    EXPECT_EQ(document["jti"], std::string{read.unverifiedClaims()->id().value()});
    EXPECT_EQ(document["exp"].asInt64(), 1800000600);
    EXPECT_EQ(document["scope"], "ravok_login");
    EXPECT_EQ(document["token_type"], "bearer");
    EXPECT_EQ(document.size(), 7U);

    const Expected<Text, Refusal> stranger =
        endpoint().introspect(connection.second.access, "stranger");
    EXPECT_REFUSED("client.not-authorized", stranger);
    EXPECT_EQ(stranger.error().code(), OAUTH_ACCESS_DENIED);
}

TEST_F(Endpoint, SaysNothingOfTokensThatDoNotCount)
{
    const auto connection = connected();
    const auto inactive = [&](std::string_view token) {
        const Text text = endpoint().introspect(token, "resource").value();
        return text.view() == R"({"active":false})";
    };
    EXPECT_FALSE(inactive(connection.second.access));
    EXPECT_TRUE(inactive("unknown"));
    EXPECT_TRUE(inactive(""));
    EXPECT_TRUE(inactive(connection.second.refresh));
    EXPECT_TRUE(inactive(std::string(16385, 'a')));
    const auto expired = connected();
    time.advance(600s);
    EXPECT_TRUE(inactive(expired.second.access));
    const auto revoked = connected();
    EXPECT_FALSE(inactive(revoked.second.access));
    ASSERT_TRUE(endpoint().revoke(revoked.first.id, revoked.first.secret, revoked.second.refresh));
    EXPECT_TRUE(inactive(revoked.second.access));
}

TEST_F(Endpoint, KnowsNoSubjectWithoutAProof)
{
    EXPECT_FALSE(endpoint().isActive(registered().id).value());
    EXPECT_FALSE(endpoint().isActive("nobody").value());
}

TEST_F(Endpoint, TellsAValidatorWhoseTokensAreRevoked)
{
    const auto connection = connected();
    const PrivateKey key = keyOf(support::Identity::selfSigned({.commonName = "service"}));
    const auto isRevoked = [&](std::string_view subject) {
        const Text token =
            issueToken({.subject = subject, .id = "1", .issuer = "i", .expiresAt = 4102444800}, key)
                .value();
        const Verdict verdict = validateToken(token, key);
        return endpoint().isRevoked(verdict.verified()->claims()).value();
    };
    EXPECT_FALSE(isRevoked(connection.first.id));
    EXPECT_TRUE(isRevoked("nobody"));
    EXPECT_TRUE(isRevoked(registered().id));
    ASSERT_TRUE(store.remove(connection.first.id));
    EXPECT_TRUE(isRevoked(connection.first.id));
}

TEST_F(Endpoint, IsNotMadeOfPartsWithoutAMeaning)
{
    using Made = TokenEndpoint<MemoryStore>;
    EXPECT_REFUSED("argument.empty", Made::of(store, issuer, {}));
    TokenFunctions incomplete = functions();
    incomplete.mayIntrospect = nullptr;
    EXPECT_REFUSED("argument.empty", Made::of(store, issuer, incomplete));
    EXPECT_REFUSED("argument.range",
                   Made::of(store, issuer, functions(), {.failuresOfSender = {.burst = 0}}));
    EXPECT_REFUSED("argument.range", Made::of(store, issuer, functions(),
                                              {.failuresInAll = {.burst = 1, .interval = 0s}}));
    EXPECT_REFUSED("argument.range", Made::of(store, issuer, functions(), {.refreshLifetime = 0s}));
    // Times whose sums would overflow.
    EXPECT_REFUSED("argument.range", Made::of(store, issuer, functions(),
                                              {.refreshLifetime = std::chrono::seconds::max()}));
    EXPECT_REFUSED("argument.range",
                   Made::of(store, issuer, functions(),
                            {.failuresOfSender = {.burst = 2, .interval = 0x80000000s}}));
    EXPECT_TRUE(Made::of(store, issuer, functions()));
}

} // namespace

} // namespace bmcoauth
