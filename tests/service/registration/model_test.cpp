// SPDX-License-Identifier: Apache-2.0
//
// Random sequences of calls against a plain model, while the service is killed between any two
// operations of its store, before or after one: the call ends there, and what it has done so far
// stays.
#include "service_support.hpp"
#include "stores.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <exception>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using std::chrono::sys_seconds;

namespace bmcoauth
{

namespace
{

/** The end of the process. */
struct Killed : std::exception
{
};

/** A store that outlives the process, which ends at the store's operation `left`. */
template <Store Kind>
class DeadlyStore
{
public:
    /** Kills at the `operation`th operation from now on: after it has been done, or before. */
    void killAt(int operation, bool after)
    {
        left = operation;
        isAfter = after;
    }

    [[nodiscard]] Expected<std::optional<ClientRecord>> find(std::string_view id)
    {
        return done([&] { return kept->find(id); });
    }
    Expected<void> add(ClientRecord client, const ClientLimits& limits, sys_seconds now)
    {
        return done([&] { return kept->add(std::move(client), limits, now); });
    }
    Expected<bool> replace(ClientRecord client)
    {
        return done([&] { return kept->replace(std::move(client)); });
    }
    Expected<void> remove(std::string_view id)
    {
        return done([&] { return kept->remove(id); });
    }
    Expected<bool> countAttempt(std::string_view counter, const FailureRate& rate, sys_seconds now)
    {
        return done([&] { return kept->countAttempt(counter, rate, now); });
    }
    Expected<void> forgive(std::string_view counter, const FailureRate& rate)
    {
        return done([&] { return kept->forgive(counter, rate); });
    }

    /** Begins anew. */
    void clear()
    {
        kept.clear();
    }

private:
    template <typename Operation>
    auto done(const Operation& operation) -> decltype(operation())
    {
        const bool now = left > 0 && --left == 0;
        if (now && !isAfter)
        {
            throw Killed{};
        }
        auto result = operation();
        if (now)
        {
            throw Killed{};
        }
        return result;
    }

    Kept<Kind> kept;
    int left = 0;
    bool isAfter = false;
};

using Rules = std::set<std::string>;

/** What a client knows of itself, and by that what a call of it must give. */
struct ModelClient
{
    enum State
    {
        pending, /**< Its challenge has not been answered. */
        wasted,  /**< It has, wrongly, or the answer was lost. */
        proven,
        over, /**< Revoked, or an old token came back. */
    };

    TestClient client;
    sys_seconds challengeEnd;
    sys_seconds end;
    State state = pending;
    /** All refresh tokens that it has had, the newest last. */
    std::vector<std::string> tokens = {};
    sys_seconds rotatedAt = {};
    sys_seconds idleEnd = {};
    /** How often the token before the newest has been shown since, at least and at most. */
    unsigned int shownLeast = 0;
    unsigned int shownMost = 0;

    [[nodiscard]] bool hasEnded(sys_seconds now) const
    {
        return now >= end || now >= idleEnd;
    }

    /** What the refresh token at `place` may give. */
    [[nodiscard]] Rules refreshing(std::size_t place, sys_seconds now) const
    {
        constexpr unsigned int times = 2;
        if (state == over)
        {
            return {"client.unknown"};
        }
        if (hasEnded(now))
        {
            return {"client.unknown",
                    now >= end ? "client.family-expired" : "client.refresh-expired"};
        }
        if (place + 1 == tokens.size())
        {
            return {"accepted"};
        }
        if (place + 2 < tokens.size() || now - rotatedAt >= 30s || shownLeast >= times)
        {
            return {"client.refresh-reused"};
        }
        return shownMost < times ? Rules{"accepted"} : Rules{"accepted", "client.refresh-reused"};
    }
    /** What a proof may give, apart from a lock. */
    [[nodiscard]] Rules proving(bool rightly, sys_seconds now) const
    {
        Rules rules;
        if (now >= challengeEnd || state == over)
        {
            // One that waits for nothing may have been removed.
            rules.insert("client.unknown");
        }
        if (state != pending)
        {
            rules.insert("client.challenge-used");
        }
        else if (now >= challengeEnd)
        {
            rules.insert("client.challenge-expired");
        }
        else
        {
            rules.insert(rightly ? "accepted" : "handshake.proof-wrong");
        }
        return rules;
    }
};

template <typename Kind>
struct Model : ::testing::Test
{
    static constexpr FailureRate bySender{.burst = 2, .interval = 300s};
    static constexpr FailureRate inAll{.burst = 3, .interval = 200s};
    static constexpr std::chrono::seconds life = 20000s;
    static constexpr std::chrono::seconds idle = 4000s;

    // NOLINTNEXTLINE(cert-msc51-cpp): each run is seeded with its number, to be run again.
    std::mt19937 random{1};
    SetClock time;
    DeadlyStore<Kind> store;
    ServiceSigner signer;
    TokenIssuer issuer = issuerOf(signer, time);
    std::vector<ModelClient> clients;
    /** When wrong proofs were answered, by sender; "" for all. */
    std::map<std::string, std::vector<sys_seconds>> guesses;
    /** When an attempt may have been counted, whether it was answered or not. */
    std::map<std::string, std::vector<sys_seconds>> attempts;
    /** How often each thing has happened. */
    std::map<std::string, int> seen;

    [[nodiscard]] std::size_t below(std::size_t limit)
    {
        return random() % limit;
    }

    /** What a service answers that is started for this call; nothing if it was killed. */
    template <typename Call>
    auto answered(const Call& call, bool mayDie) -> std::optional<decltype(call())>
    {
        constexpr std::size_t mostOperations = 8;
        const bool dies = mayDie && below(2) == 0;
        store.killAt(dies ? static_cast<int>(1 + below(mostOperations)) : 0, below(2) == 0);
        std::optional<decltype(call())> result;
        try
        {
            result.emplace(call());
        }
        catch (const Killed&)
        {
            ++seen["killed"];
        }
        store.killAt(0, false);
        return result;
    }

    [[nodiscard]] TokenEndpoint<DeadlyStore<Kind>> endpoint()
    {
        return TokenEndpoint<DeadlyStore<Kind>>::of(
                   store, issuer,
                   {.secrets = [](const ClientRecord&) { return Text::copy(TestClient{}.secrets); },
                    .privileges = [](const ClientRecord&) { return Privileges{}; },
                    .mayIntrospect =
                        [](std::string_view) {
                            return true;
                        }},
                   {.failuresOfSender = bySender,
                    .failuresInAll = inAll,
                    .refreshLifetime = idle,
                    .replays = {.length = 30s, .times = 2}})
            .value();
    }

    void registerOne()
    {
        ModelClient one{.client = {}, .challengeEnd = time.now() + 300s, .end = time.now() + life};
        const auto call = [&] {
            return Registrar<DeadlyStore<Kind>>::of(store,
                                                    {.proofs = Proofs::oneTimePassword,
                                                     .redirectUris = {"https://client.example/"},
                                                     .clientLifetime = life,
                                                     .limits = {.pending = 1000, .proven = 1000}},
                                                    time.clock())
                .value()
                .answer(one.client.registration(), "sender");
        };
        if (const auto answer = answered(call, true))
        {
            one.client.keep(answer->value());
            clients.push_back(std::move(one));
        }
    }

    /** Expects that no more wrong proofs of this sender were looked at than the rate allows. */
    void expectRate(const std::string& sender, const FailureRate& rate)
    {
        const std::vector<sys_seconds>& times = guesses[sender];
        for (auto first = times.begin(); first != times.end(); ++first)
        {
            EXPECT_LE(times.end() - first, rate.burst + (times.back() - *first) / rate.interval)
                << "of '" << sender << "'";
        }
    }
    /** Whether so many attempts may have been counted that this sender is locked. */
    [[nodiscard]] bool mayBeLocked(const std::string& sender, const FailureRate& rate)
    {
        const auto recent = std::ranges::count_if(attempts[sender], [&](sys_seconds at) {
            return time.now() - at < rate.interval * rate.burst;
        });
        return std::cmp_greater_equal(recent, rate.burst);
    }

    void prove(ModelClient& one, bool rightly)
    {
        const std::string sender = "sender" + std::to_string(below(3));
        one.client.secrets =
            rightly ? TestClient{}.secrets : R"({"otp1.0":["00000000000000000000"]})";
        const std::string proof = one.client.proof();
        const auto call = [&] {
            return endpoint().answer(proof, sender);
        };
        Rules rules = one.proving(rightly, time.now());
        const bool isLocked = mayBeLocked(sender, bySender) || mayBeLocked("", inAll);
        auto answer = answered(call, true);
        const bool wasKilled = !answer;
        if (wasKilled)
        {
            // It may have been counted and used up.
            attempts[sender].push_back(time.now());
            attempts[""].push_back(time.now());
            if (one.state == ModelClient::pending)
            {
                rules.insert("client.challenge-used");
            }
            answer = answered(call, false);
        }
        if (isLocked || (wasKilled && (mayBeLocked(sender, bySender) || mayBeLocked("", inAll))))
        {
            rules.insert("client.locked");
        }
        const std::string rule = support::ruleBehind(*answer);
        EXPECT_TRUE(rules.contains(rule)) << rule << " for a " << (rightly ? "right" : "wrong")
                                          << " proof in state " << one.state;
        ++seen[rule];
        if (rule == "accepted")
        {
            one.state = ModelClient::proven;
            keep(one, **answer);
        }
        else if (rule == "handshake.proof-wrong")
        {
            for (const std::string& counter : {sender, std::string{}})
            {
                guesses[counter].push_back(time.now());
                attempts[counter].push_back(time.now());
            }
            expectRate(sender, bySender);
            expectRate("", inAll);
        }
        if (rule == "handshake.proof-wrong" || (wasKilled && rule == "client.challenge-used"))
        {
            one.state = ModelClient::wasted;
        }
    }

    void keep(ModelClient& one, const Text& answer) const
    {
        one.tokens.push_back(TestClient::tokensOf(answer).refresh);
        one.rotatedAt = time.now();
        one.idleEnd = time.now() + idle;
        one.shownLeast = 0;
        one.shownMost = 0;
    }

    /** Shows the newest token, or one that is older by `age`. */
    void refresh(ModelClient& one, std::size_t age)
    {
        const std::size_t place = one.tokens.size() - 1 - std::min(age, one.tokens.size() - 1);
        const bool isNewest = place + 1 == one.tokens.size();
        const std::string request = one.client.refreshing(one.tokens[place]);
        const auto call = [&] {
            return endpoint().answer(request, "sender");
        };
        Rules rules = one.refreshing(place, time.now());
        auto answer = answered(call, true);
        const bool wasKilled = !answer;
        if (wasKilled)
        {
            if (rules.contains("client.refresh-reused"))
            {
                rules.insert("client.unknown");
            }
            if (!isNewest)
            {
                ++one.shownMost;
                rules.merge(one.refreshing(place, time.now()));
            }
            answer = answered(call, false);
        }
        const std::string rule = support::ruleBehind(*answer);
        EXPECT_TRUE(rules.contains(rule)) << rule << " for a token of age " << age;
        ++seen[isNewest || rule != "accepted" ? rule : "replayed"];
        if (rule == "client.unknown" || rule == "client.refresh-reused")
        {
            one.state = ModelClient::over;
        }
        if (rule != "accepted")
        {
            return;
        }
        const std::string given = TestClient::tokensOf(**answer).refresh;
        if (isNewest)
        {
            EXPECT_EQ(std::ranges::count(one.tokens, given), 0);
            keep(one, **answer);
            one.shownMost = wasKilled ? 1 : 0;
        }
        else
        {
            EXPECT_EQ(given, one.tokens.back());
            ++one.shownLeast;
            ++one.shownMost;
        }
    }

    void revoke(ModelClient& one)
    {
        const auto call = [&] {
            return endpoint().revoke(one.client.id, one.client.secret, one.tokens.front());
        };
        Rules rules{"accepted"};
        auto answer = answered(call, true);
        if (!answer)
        {
            rules.insert("client.unknown");
            answer = answered(call, false);
        }
        if (one.state == ModelClient::over || one.hasEnded(time.now()))
        {
            rules.insert("client.unknown");
        }
        EXPECT_TRUE(rules.contains(support::ruleBehind(*answer)));
        ++seen["revoked"];
        one.state = ModelClient::over;
    }

    void step()
    {
        static constexpr std::array<std::chrono::seconds, 10> pauses{0s,  0s,  0s,   0s,   1s,
                                                                     10s, 30s, 100s, 400s, 3000s};
        time.advance(pauses[below(pauses.size())]);
        if (clients.empty() || below(4) == 0)
        {
            registerOne();
            return;
        }
        // The last ones have most to lose.
        ModelClient& one =
            clients[clients.size() - 1 - below(std::min<std::size_t>(clients.size(), 5))];
        const std::size_t choice = below(10);
        if (one.tokens.empty() || choice == 0)
        {
            prove(one, below(3) != 0);
        }
        else if (choice == 1)
        {
            revoke(one);
        }
        else
        {
            refresh(one, choice < 7 ? 0 : choice - 6);
        }
        if (one.state != ModelClient::wasted)
        {
            EXPECT_EQ(endpoint().isActive(one.client.id).value(),
                      one.state == ModelClient::proven && !one.hasEnded(time.now()))
                << "in state " << one.state;
        }
    }
};

TYPED_TEST_SUITE(Model, AllStores);

TYPED_TEST(Model, IsWhatTheServiceDoesHoweverOftenItIsKilled)
{
    constexpr int runs = 40;
    constexpr int steps = 250;
    for (int seed = 1; seed <= runs && !this->HasFailure(); ++seed)
    {
        SCOPED_TRACE("seed " + std::to_string(seed));
        this->random.seed(static_cast<std::mt19937::result_type>(seed));
        this->clients.clear();
        this->guesses.clear();
        this->attempts.clear();
        this->store.clear();
        for (int i = 0; i < steps && !this->HasFailure(); ++i)
        {
            this->step();
        }
    }
    // A model that sees nothing happen proves nothing.
    for (const char* event : {"killed", "accepted", "replayed", "revoked", "handshake.proof-wrong",
                              "client.locked", "client.challenge-used", "client.challenge-expired",
                              "client.refresh-reused", "client.refresh-expired", "client.unknown"})
    {
        EXPECT_GT(this->seen[event], 5) << event;
    }
}

} // namespace

} // namespace bmcoauth
