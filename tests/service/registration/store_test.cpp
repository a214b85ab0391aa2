// SPDX-License-Identifier: Apache-2.0
#include "stores.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/service/store.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using std::chrono::sys_seconds;

namespace bmcoauth
{

namespace
{

constexpr sys_seconds now{1000s};

ClientRecord clientOf(std::string_view id, std::string_view sender = "sender",
                      sys_seconds expiresAt = sys_seconds{2000s})
{
    ClientRecord client;
    client.id = id;
    client.sender = sender;
    client.softwareId = "software of " + std::string{sender};
    client.expiresAt = expiresAt;
    return client;
}

ClientRecord provenClientOf(std::string_view id, std::string_view sender = "sender",
                            sys_seconds expiresAt = sys_seconds{2000s})
{
    ClientRecord client = clientOf(id, sender, expiresAt);
    client.refresh = RefreshFamily{};
    return client;
}

template <Store S>
bool holds(S& store, std::string_view id)
{
    return store.find(id).value().has_value();
}

template <typename T>
struct StoreOf : ::testing::Test
{
    static_assert(Store<T>);

    Kept<T> kept;
};
TYPED_TEST_SUITE(StoreOf, AllStores);

TYPED_TEST(StoreOf, GivesAClientAsItWasAdded)
{
    TypeParam& store = *this->kept;
    ClientRecord client = clientOf("id");
    client.challenge = "challenge";
    ASSERT_TRUE(store.add(client, {}, now));
    const ClientRecord found = store.find("id").value().value();
    EXPECT_EQ(found.challenge, "challenge");
    EXPECT_EQ(found.sender, "sender");
    EXPECT_FALSE(holds(store, "ID"));
    EXPECT_FALSE(holds(store, ""));
    EXPECT_REFUSED("client.store-failed", store.add(client, {}, now));
    ASSERT_TRUE(store.remove("id"));
    EXPECT_FALSE(holds(store, "id"));
    EXPECT_TRUE(store.remove("id"));
}

TYPED_TEST(StoreOf, ReplacesOnlyWhatWasSeen)
{
    TypeParam& store = *this->kept;
    ASSERT_TRUE(store.add(clientOf("id"), {}, now));
    const ClientRecord seen = store.find("id").value().value();
    ClientRecord first = seen;
    first.challenge = "first";
    EXPECT_TRUE(store.replace(first).value());
    ClientRecord second = seen;
    second.challenge = "second";
    EXPECT_FALSE(store.replace(second).value());
    EXPECT_EQ(store.find("id").value()->challenge, "first");
    // One that was removed and came back is another one.
    const ClientRecord old = store.find("id").value().value();
    ASSERT_TRUE(store.remove("id"));
    EXPECT_FALSE(store.replace(old).value());
    ASSERT_TRUE(store.add(clientOf("id"), {}, now));
    EXPECT_FALSE(store.replace(old).value());
}

TYPED_TEST(StoreOf, LetsOneOfManyThreadsReplace)
{
    TypeParam& store = *this->kept;
    ASSERT_TRUE(store.add(clientOf("id"), {}, now));
    const ClientRecord seen = store.find("id").value().value();
    std::atomic<int> winners = 0;
    constexpr int count = 8;
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (int i = 0; i < count; ++i)
    {
        threads.emplace_back([&] { winners += store.replace(seen).value() ? 1 : 0; });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(winners, 1);
}

TYPED_TEST(StoreOf, RemovesWhatHasEndedWhenAClientComes)
{
    TypeParam& store = *this->kept;
    ASSERT_TRUE(store.add(clientOf("pending", "a", sys_seconds{1010s}), {}, now));
    ASSERT_TRUE(store.add(provenClientOf("proven", "a", sys_seconds{1010s}), {}, now));
    ASSERT_TRUE(store.add(clientOf("later", "a", sys_seconds{1011s}), {}, sys_seconds{1009s}));
    EXPECT_TRUE(holds(store, "pending"));
    EXPECT_TRUE(holds(store, "proven"));
    ASSERT_TRUE(store.add(clientOf("last", "a"), {}, sys_seconds{1010s}));
    EXPECT_FALSE(holds(store, "pending"));
    EXPECT_FALSE(holds(store, "proven"));
    EXPECT_TRUE(holds(store, "later"));
}

TYPED_TEST(StoreOf, TakesTheOldestOfTheSenderThatHasMost)
{
    TypeParam& store = *this->kept;
    constexpr ClientLimits limits{.pending = 4, .proven = 4};
    ASSERT_TRUE(store.add(clientOf("honest", "quiet", sys_seconds{1100s}), limits, now));
    // Somebody registers without end.
    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE(store.add(
            clientOf("x" + std::to_string(i), "loud", sys_seconds{1200s + i * 1s}), limits, now));
    }
    EXPECT_TRUE(holds(store, "honest"));
    EXPECT_FALSE(holds(store, "x46"));
    EXPECT_TRUE(holds(store, "x47"));
    EXPECT_TRUE(holds(store, "x49"));
}

TYPED_TEST(StoreOf, KeepsTheOneThatHasJustCome)
{
    // All of them end at the same second, and the last name comes first.
    TypeParam& store = *this->kept;
    constexpr ClientLimits limits{.pending = 3, .proven = 3};
    for (const char* id : {"d", "c", "b", "a"})
    {
        ASSERT_TRUE(store.add(clientOf(id, id), limits, now));
    }
    EXPECT_FALSE(holds(store, "d"));
    for (const char* id : {"c", "b", "a"})
    {
        EXPECT_TRUE(holds(store, id)) << id;
    }
}

TYPED_TEST(StoreOf, KeepsTheOneThatHasJustComeWhereTheClockWasAhead)
{
    TypeParam& store = *this->kept;
    constexpr ClientLimits limits{.pending = 3, .proven = 3};
    for (const char* id : {"a", "b", "c"})
    {
        ASSERT_TRUE(store.add(clientOf(id, id, sys_seconds{9000s}), limits, sys_seconds{8700s}));
    }
    ASSERT_TRUE(store.add(clientOf("d", "d", sys_seconds{1300s}), limits, now));
    EXPECT_FALSE(holds(store, "a"));
    for (const char* id : {"b", "c", "d"})
    {
        EXPECT_TRUE(holds(store, id)) << id;
    }
}

TYPED_TEST(StoreOf, CountsProvenClientsBySoftware)
{
    TypeParam& store = *this->kept;
    constexpr ClientLimits limits{.pending = 4, .proven = 2};
    ASSERT_TRUE(store.add(provenClientOf("honest", "quiet", sys_seconds{1100s}), limits, now));
    ASSERT_TRUE(store.add(provenClientOf("x1", "loud"), limits, now));
    ASSERT_TRUE(store.add(provenClientOf("x2", "loud"), limits, now));
    // Pending ones are counted apart.
    ASSERT_TRUE(store.add(clientOf("pending", "loud"), limits, now));
    EXPECT_TRUE(holds(store, "honest"));
    EXPECT_FALSE(holds(store, "x1"));
    EXPECT_TRUE(holds(store, "x2"));
    EXPECT_TRUE(holds(store, "pending"));
}

TYPED_TEST(StoreOf, CountsAttemptsAndForgivesThem)
{
    TypeParam& store = *this->kept;
    constexpr FailureRate rate{.burst = 2, .interval = 10s};
    EXPECT_TRUE(store.countAttempt("a", rate, now).value());
    EXPECT_TRUE(store.countAttempt("a", rate, now).value());
    EXPECT_FALSE(store.countAttempt("a", rate, now).value());
    EXPECT_TRUE(store.countAttempt("b", rate, now).value());
    ASSERT_TRUE(store.forgive("a", rate));
    EXPECT_TRUE(store.countAttempt("a", rate, now).value());
    EXPECT_FALSE(store.countAttempt("a", rate, now).value());
    EXPECT_FALSE(store.countAttempt("a", rate, now + 9s).value());
    EXPECT_TRUE(store.countAttempt("a", rate, now + 10s).value());
    EXPECT_TRUE(store.forgive("nobody", rate));
    // Forgiven more often than counted, it is as if never counted.
    ASSERT_TRUE(store.forgive("b", rate));
    ASSERT_TRUE(store.forgive("b", rate));
    EXPECT_TRUE(store.countAttempt("b", rate, now).value());
    EXPECT_TRUE(store.countAttempt("b", rate, now).value());
    EXPECT_FALSE(store.countAttempt("b", rate, now).value());
}

} // namespace

} // namespace bmcoauth
