// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/service.hpp>

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

/** A bmcoauth::Store in a file of SQLite, which threads and processes may share. Each operation is
 *  one transaction, and on the medium when it returns. */
class SqliteStore
{
    template <typename T>
    using Expected = bmcoauth::Expected<T>;
    using sys_seconds = std::chrono::sys_seconds;
    using Digest = bmcoauth::SecretDigest;

public:
    /** Opens the file `path`, or makes it. Refuses one that a later version has made. */
    [[nodiscard]] static Expected<std::unique_ptr<SqliteStore>> open(const std::string& path)
    {
        constexpr int busyMilliseconds = 5000;
        std::unique_ptr<SqliteStore> store{new SqliteStore};
        sqlite3* raw = nullptr;
        const int opened = sqlite3_open(path.c_str(), &raw);
        store->database.reset(raw);
        if (opened != SQLITE_OK || sqlite3_busy_timeout(raw, busyMilliseconds) != SQLITE_OK ||
            !store->execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL"))
        {
            return store->failure();
        }
        return store->transaction([&] { return store->hasSchema(); }).transform([&] {
            return std::move(store);
        });
    }

    Expected<std::optional<bmcoauth::ClientRecord>> find(std::string_view id)
    {
        std::optional<bmcoauth::ClientRecord> found;
        const auto read = [&](sqlite3_stmt* row) {
            found = clientIn(row);
        };
        return transaction([&] { return query("SELECT * FROM clients WHERE id = ?", read, id); })
            .transform([&] { return std::move(found); });
    }
    Expected<void> add(const bmcoauth::ClientRecord& client, const bmcoauth::ClientLimits& limits,
                       sys_seconds now)
    {
        return transaction([&] {
            return run("DELETE FROM clients WHERE expires <= ?", now) && insert(client) &&
                   trim(false, limits.pending, client.expiresAt) &&
                   trim(true, limits.proven, sys_seconds::max());
        });
    }
    Expected<bool> replace(const bmcoauth::ClientRecord& client)
    {
        bool isSame = false;
        return transaction([&] {
                   const bool removed = run("DELETE FROM clients WHERE id = ? AND version = ?",
                                            client.id, client.version);
                   isSame = sqlite3_changes(database.get()) == 1;
                   return removed && (!isSame || insert(client));
               })
            .transform([&] { return isSame; });
    }
    Expected<void> remove(std::string_view id)
    {
        return transaction([&] { return run("DELETE FROM clients WHERE id = ?", id); });
    }
    Expected<bool> countAttempt(std::string_view counter, const bmcoauth::FailureRate& rate,
                                sys_seconds now)
    {
        bmcoauth::CountedAttempt attempt;
        const auto read = [&](sqlite3_stmt* row) {
            get(row, 0, attempt.busyUntil);
        };
        return transaction([&] {
                   const bool known =
                       query("SELECT busy_until FROM counters WHERE name = ?", read, counter);
                   attempt = bmcoauth::countAttempt(attempt.busyUntil, rate, now);
                   return known &&
                          run("REPLACE INTO counters VALUES (?, ?)", counter, attempt.busyUntil) &&
                          run("DELETE FROM counters WHERE busy_until <= ?", now);
               })
            .transform([&] { return attempt.allowed; });
    }
    Expected<void> forgive(std::string_view counter, const bmcoauth::FailureRate& rate)
    {
        return transaction([&] {
            return run("UPDATE counters SET busy_until = busy_until - ? WHERE name = ?",
                       rate.interval.count(), counter);
        });
    }

private:
    SqliteStore() = default;

    [[nodiscard]] bmcoauth::Error failure() const
    {
        const bool isOfSqlite = sqlite3_errcode(database.get()) != SQLITE_OK;
        return bmcoauth::Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED,
                               isOfSqlite ? sqlite3_errmsg(database.get()) : "of a later version"};
    }
    [[nodiscard]] bool execute(const char* sql)
    {
        return sqlite3_exec(database.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    /** Does `work`, or nothing. */
    template <typename Work>
    [[nodiscard]] Expected<void> transaction(const Work& work)
    {
        const std::lock_guard guard{mutex};
        if (execute("BEGIN IMMEDIATE") && work() && execute("COMMIT"))
        {
            return {};
        }
        const bmcoauth::Error error = failure();
        static_cast<void>(execute("ROLLBACK"));
        return error;
    }
    /** Runs a statement, with `read` for its row if there is one. Values are bound, never written into
     *  the text: they are a peer's. */
    template <typename Read, typename... Values>
    [[nodiscard]] bool query(const char* sql, const Read& read, const Values&... values)
    {
        sqlite3_stmt* raw = nullptr;
        const int made = sqlite3_prepare_v2(database.get(), sql, -1, &raw, nullptr);
        const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> row{raw, sqlite3_finalize};
        int place = 0;
        if (made != SQLITE_OK || !(put(raw, ++place, values) && ...))
        {
            return false;
        }
        const int step = sqlite3_step(raw);
        if (step == SQLITE_ROW)
        {
            read(raw);
        }
        return step == SQLITE_ROW || step == SQLITE_DONE;
    }
    template <typename... Values>
    [[nodiscard]] bool run(const char* sql, const Values&... values)
    {
        return query(
            sql, [](sqlite3_stmt*) {}, values...);
    }
    template <typename T>
    [[nodiscard]] static bool put(sqlite3_stmt* row, int place, const T& value)
    {
        if constexpr (std::is_arithmetic_v<T>)
        {
            return sqlite3_bind_int64(row, place, static_cast<sqlite3_int64>(value)) == SQLITE_OK;
        }
        else if constexpr (std::is_same_v<T, sys_seconds>)
        {
            return put(row, place, value.time_since_epoch().count());
        }
        else if constexpr (std::is_same_v<T, Digest>)
        {
            return sqlite3_bind_blob(row, place, value.bytes().data(), Digest::size,
                                     SQLITE_TRANSIENT) == SQLITE_OK;
        }
        else
        {
            // Without an address, an empty text would be NULL.
            return sqlite3_bind_blob64(row, place, value.empty() ? "" : value.data(), value.size(),
                                       SQLITE_TRANSIENT) == SQLITE_OK;
        }
    }
    template <typename T>
    static void get(sqlite3_stmt* row, int column, T& value)
    {
        const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
        if constexpr (std::is_arithmetic_v<T>)
        {
            value = static_cast<T>(sqlite3_column_int64(row, column));
        }
        else if constexpr (std::is_same_v<T, sys_seconds>)
        {
            value = sys_seconds{std::chrono::seconds{sqlite3_column_int64(row, column)}};
        }
        else if constexpr (std::is_same_v<T, Digest>)
        {
            std::array<unsigned char, Digest::size> copy{};
            std::copy_n(bytes, sqlite3_column_bytes(row, column), copy.begin());
            value = Digest{copy};
        }
        else
        {
            value.assign(bytes, static_cast<std::size_t>(sqlite3_column_bytes(row, column)));
        }
    }

    /** What the columns of a client hold, in their order. */
    template <typename Client, typename Family, typename Proven>
    [[nodiscard]] static auto columns(Client& client, Family& refresh, Proven& proven)
    {
        return std::tie(client.id, client.secret, client.softwareId, client.sender,
                        client.certificate, client.deviceName, client.challenge, client.endsAt,
                        client.expiresAt, proven, refresh.family, refresh.current, refresh.previous,
                        refresh.salt, refresh.rotatedAt, refresh.replays, client.version);
    }
    [[nodiscard]] static bmcoauth::ClientRecord clientIn(sqlite3_stmt* row)
    {
        bmcoauth::ClientRecord client;
        bmcoauth::RefreshFamily refresh;
        bool proven = false;
        int column = 0;
        std::apply([&](auto&... values) { (get(row, column++, values), ...); },
                   columns(client, refresh, proven));
        client.refresh = proven ? std::optional{refresh} : std::nullopt;
        return client;
    }
    [[nodiscard]] bool insert(const bmcoauth::ClientRecord& client)
    {
        const bool proven = client.refresh.has_value();
        const auto refresh = client.refresh.value_or(bmcoauth::RefreshFamily{});
        return std::apply(
            [&](const auto&... values) {
                // The version that it had counts no more.
                return this->run(
                    "INSERT INTO clients VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,iif(?,NULL,NULL))",
                    values...);
            },
            columns(client, refresh, proven));
    }
    /** Removes pending or proven clients until there are no more than `most`: always the oldest of
     *  those who have most. Ends after `last` count as `last`. */
    [[nodiscard]] bool trim(bool proven, std::size_t most, sys_seconds last)
    {
        return run("DELETE FROM clients WHERE version IN (SELECT version FROM clients "
                   "WHERE proven = ?1 ORDER BY row_number() OVER (PARTITION BY "
                   "iif(?1, software, sender) ORDER BY min(expires, ?3) DESC, version DESC) DESC, "
                   "min(expires, ?3), version "
                   "LIMIT max(0, (SELECT count(*) FROM clients WHERE proven = ?1) - ?2))",
                   proven, most, last);
    }
    [[nodiscard]] bool hasSchema()
    {
        int version = 0;
        const auto read = [&](sqlite3_stmt* row) {
            get(row, 0, version);
        };
        // With AUTOINCREMENT no version comes twice. Peers' texts are BLOBs, whatever their bytes.
        return query("PRAGMA user_version", read) && version <= 1 &&
               (version == 1 ||
                execute("CREATE TABLE clients (id BLOB UNIQUE, secret BLOB, software BLOB,"
                        "sender BLOB, certificate BLOB, device BLOB, challenge BLOB, ends INTEGER,"
                        "expires INTEGER, proven INTEGER, family BLOB, current BLOB, previous BLOB,"
                        "salt BLOB, rotated INTEGER, replays INTEGER,"
                        "version INTEGER PRIMARY KEY AUTOINCREMENT) STRICT;"
                        "CREATE TABLE counters (name BLOB PRIMARY KEY, busy_until INTEGER) STRICT;"
                        "PRAGMA user_version = 1"));
    }

    std::mutex mutex;
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database{nullptr, sqlite3_close};
};
