// SPDX-License-Identifier: Apache-2.0
//
// What the store on SQLite promises beyond what all stores do: the file, and the end of the process.
#include "stores.hpp"
#include "support/refusals.hpp"

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

using namespace std::chrono_literals;
using std::chrono::sys_seconds;

namespace bmcoauth
{

namespace
{

constexpr sys_seconds now{1000s};
constexpr FailureRate rate{.burst = 10, .interval = 10s};

SecretDigest digestOf(std::string_view text)
{
    return SecretDigest::of(text);
}

ClientRecord wholeClient()
{
    using namespace std::string_literals;
    return {.id = "id",
            .version = 7,
            .secret = digestOf("secret"),
            .softwareId = "soft\0ware"s,
            .sender = "user:1000",
            .certificate = "certificate",
            .deviceName = "device",
            .challenge = "{'); DROP TABLE clients; --",
            .endsAt = sys_seconds{9000000000s},
            .expiresAt = sys_seconds{8000000000s},
            .refresh = RefreshFamily{.family = digestOf("family"),
                                     .current = digestOf("current"),
                                     .previous = digestOf("previous"),
                                     .salt = "salt",
                                     .rotatedAt = sys_seconds{7000000000s},
                                     .replays = 4000000000}};
}

void expectSame(const ClientRecord& found, const ClientRecord& wanted)
{
    EXPECT_EQ(found.id, wanted.id);
    EXPECT_EQ(found.secret, wanted.secret);
    EXPECT_EQ(found.softwareId, wanted.softwareId);
    EXPECT_EQ(found.sender, wanted.sender);
    EXPECT_EQ(found.certificate, wanted.certificate);
    EXPECT_EQ(found.deviceName, wanted.deviceName);
    EXPECT_EQ(found.challenge, wanted.challenge);
    EXPECT_EQ(found.endsAt, wanted.endsAt);
    EXPECT_EQ(found.expiresAt, wanted.expiresAt);
    ASSERT_EQ(found.refresh.has_value(), wanted.refresh.has_value());
    if (found.refresh)
    {
        EXPECT_EQ(found.refresh->family, wanted.refresh->family);
        EXPECT_EQ(found.refresh->current, wanted.refresh->current);
        EXPECT_EQ(found.refresh->previous, wanted.refresh->previous);
        EXPECT_EQ(found.refresh->salt, wanted.refresh->salt);
        EXPECT_EQ(found.refresh->rotatedAt, wanted.refresh->rotatedAt);
        EXPECT_EQ(found.refresh->replays, wanted.refresh->replays);
    }
}

TEST(SqliteStore, GivesEveryMemberBackWhenItIsOpenedAgain)
{
    const TemporaryFolder folder;
    ClientRecord pending = wholeClient();
    pending.id = "pending";
    pending.refresh.reset();
    pending.softwareId.clear();
    {
        const auto store = SqliteStore::open(folder.file()).value();
        ASSERT_TRUE(store->add(wholeClient(), {}, now));
        ASSERT_TRUE(store->add(pending, {}, now));
    }
    const auto store = SqliteStore::open(folder.file()).value();
    expectSame(store->find("id").value().value(), wholeClient());
    expectSame(store->find("pending").value().value(), pending);
}

TEST(SqliteStore, TakesPartsOfTextsForOtherTexts)
{
    const TemporaryFolder folder;
    const auto store = SqliteStore::open(folder.file()).value();
    constexpr FailureRate once{.burst = 1, .interval = 10s};
    EXPECT_TRUE(store->countAttempt({"a\0b", 3}, once, now).value());
    EXPECT_TRUE(store->countAttempt({"a\0c", 3}, once, now).value());
    EXPECT_TRUE(store->countAttempt("a", once, now).value());
    EXPECT_TRUE(store->countAttempt("", once, now).value());
    EXPECT_FALSE(store->countAttempt("", once, now).value());
}

/** Runs `sql` on the file, as another program would. */
void alter(const std::string& file, const char* sql)
{
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &raw), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(raw, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(raw);
    sqlite3_close(raw);
}

TEST(SqliteStore, LeavesTheFileOfAnotherVersionAlone)
{
    const TemporaryFolder folder;
    ASSERT_TRUE(SqliteStore::open(folder.file()));
    alter(folder.file(), "PRAGMA user_version = 3");
    const auto refused = SqliteStore::open(folder.file());
    EXPECT_REFUSED("client.store-failed", refused);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().subject(), "of another version");
    alter(folder.file(), "PRAGMA user_version = 2");
    EXPECT_TRUE(SqliteStore::open(folder.file()));
}

TEST(SqliteStore, SaysWhatIsWrongWithAFile)
{
    const auto refused = SqliteStore::open("/nowhere/clients.db");
    EXPECT_REFUSED("client.store-failed", refused);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().subject(), "unable to open database file");
    const TemporaryFolder folder;
    // Of another program: it has a table of the name.
    alter(folder.file(), "CREATE TABLE clients (name)");
    EXPECT_REFUSED("client.store-failed", SqliteStore::open(folder.file()));
}

TEST(SqliteStore, DoesAllOfAnOperationOrNothing)
{
    const TemporaryFolder folder;
    const auto store = SqliteStore::open(folder.file()).value();
    ClientRecord old = wholeClient();
    old.id = "old";
    old.expiresAt = now + 1s;
    ASSERT_TRUE(store->add(old, {}, now));
    ASSERT_TRUE(store->add(wholeClient(), {}, now));
    // The call would remove clients that have ended, but fails: the new one exists already.
    EXPECT_REFUSED("client.store-failed", store->add(wholeClient(), {}, now + 2s));
    EXPECT_TRUE(store->find("old").value().has_value());
    // Whatever fails, the next operation works.
    alter(folder.file(), "DROP TABLE counters");
    EXPECT_REFUSED("client.store-failed", store->countAttempt("a", rate, now));
    EXPECT_REFUSED("client.store-failed", store->forgive("a", rate));
    EXPECT_TRUE(store->remove("old"));
    alter(folder.file(), "DROP TABLE clients");
    EXPECT_REFUSED("client.store-failed", store->find("id"));
    EXPECT_REFUSED("client.store-failed", store->replace(wholeClient()));
    EXPECT_REFUSED("client.store-failed", store->remove("id"));
}

TEST(SqliteStore, SharesTheFileWithOtherProcesses)
{
    const TemporaryFolder folder;
    const auto one = SqliteStore::open(folder.file()).value();
    const auto other = SqliteStore::open(folder.file()).value();
    ASSERT_TRUE(one->add(wholeClient(), {}, now));
    const ClientRecord seen = other->find("id").value().value();
    EXPECT_TRUE(one->replace(seen).value());
    EXPECT_FALSE(other->replace(seen).value());
}

TEST(SqliteStore, FindsAClientWhileAnotherProcessWrites)
{
    const TemporaryFolder folder;
    const auto store = SqliteStore::open(folder.file()).value();
    ASSERT_TRUE(store->add(wholeClient(), {}, now));
    sqlite3* raw = nullptr;
    ASSERT_EQ(sqlite3_open(folder.file().c_str(), &raw), SQLITE_OK);
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> other{raw, sqlite3_close};
    ASSERT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE; DELETE FROM clients", nullptr, nullptr, nullptr),
              SQLITE_OK);
    const auto found = store->find("id");
    ASSERT_TRUE(found);
    EXPECT_TRUE(found->has_value());
}

TEST(SqliteStore, ReadsNoMoreOfADigestThanThereIsRoomFor)
{
    const TemporaryFolder folder;
    const auto store = SqliteStore::open(folder.file()).value();
    ASSERT_TRUE(store->add(wholeClient(), {}, now));
    for (const char* sql :
         {"UPDATE clients SET secret = x''", "UPDATE clients SET secret = zeroblob(100000)"})
    {
        alter(folder.file(), sql);
        EXPECT_NE(store->find("id").value().value().secret, wholeClient().secret) << sql;
    }
}

// -------------------------------------------------------------------------------- the end of a process

/** One more operation of a sequence that every process plays alike. */
template <Store S>
bool play(S& store, int step)
{
    constexpr ClientLimits limits{.pending = 4, .proven = 4};
    ClientRecord client = wholeClient();
    if (step % 4 == 0)
    {
        client.refresh.reset();
    }
    switch (step % 6)
    {
        case 0:
            client.id = std::to_string(step);
            return store.add(client, limits, now).has_value();
        case 1:
            return store.remove(std::to_string(step - 13)).has_value();
        case 2:
            client = store.find(std::to_string(step - 2)).value().value_or(client);
            client.challenge = std::to_string(step);
            return store.replace(client).has_value();
        case 3:
            return store.countAttempt("counter", rate, now).has_value();
        case 4:
            return store.countAttempt("all", rate, now).has_value();
        default:
            return store.forgive("counter", rate).has_value();
    }
}

/** What can be seen of a store. */
template <Store S>
std::string stateOf(S& store, int steps)
{
    std::string state;
    for (int id = 0; id <= steps; ++id)
    {
        const auto client = store.find(std::to_string(id)).value();
        state += client
                     ? std::to_string(id) + (client->refresh ? "+" : "-") + client->challenge + " "
                     : "";
    }
    for (const char* counter : {"counter", "all"})
    {
        int left = 0;
        while (store.countAttempt(counter, rate, now).value())
        {
            ++left;
        }
        state += std::to_string(left) + " ";
    }
    return state;
}

std::string stateAfter(int steps)
{
    MemoryStore model;
    for (int step = 0; step < steps; ++step)
    {
        EXPECT_TRUE(play(model, step));
    }
    return stateOf(model, steps);
}

/** Plays without end, and says so after each operation. */
[[noreturn]] void playInChild(const std::string& file, int told)
{
    const auto store = SqliteStore::open(file);
    for (int step = 0; store && play(**store, step); ++step)
    {
        if (::write(told, "x", 1) != 1)
        {
            break;
        }
    }
    ::_exit(EXIT_FAILURE);
}

/** How many operations a process has been told of that was killed after `count` of them, or within
 *  the next. */
int playUntilKilled(const std::string& file, int count)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    const pid_t child = ::fork();
    if (child == 0)
    {
        playInChild(file, ends[1]);
    }
    ::close(ends[1]);
    int told = 0;
    for (char byte = 0; ::read(ends[0], &byte, 1) == 1;)
    {
        if (++told == count)
        {
            ::kill(child, SIGKILL);
        }
    }
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    return told;
}

TEST(SqliteStore, HoldsWhatItHasSaidWhenTheProcessIsKilled)
{
    constexpr int most = 36;
    for (int count = 1; count <= most; ++count)
    {
        const TemporaryFolder folder;
        const int told = playUntilKilled(folder.file(), count);
        const auto store = SqliteStore::open(folder.file()).value();
        const std::string state = stateOf(*store, told + 1);
        // The operation at work may have been done, too.
        EXPECT_TRUE(state == stateAfter(told) || state == stateAfter(told + 1))
            << told << " operations: " << state << "\ninstead of " << stateAfter(told);
    }
}

} // namespace

} // namespace bmcoauth
