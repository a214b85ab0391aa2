// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth/service.hpp>

#include <sqlite3.h>

#include <concepts>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

/** A bmcoauth::Store in a file of SQLite, which threads and processes may share. Each operation is
 *  one transaction, and on the medium when it returns. */
class SqliteStore
{
    template <typename T>
    using Expected = bmcoauth::Expected<T>;
    using Client = bmcoauth::ClientRecord;
    using Digest = bmcoauth::SecretDigest;
    using Time = std::chrono::sys_seconds;
    using Row = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

public:
    /** Opens the file `path`, or makes it. Refuses one that a later version has made. */
    [[nodiscard]] static Expected<std::unique_ptr<SqliteStore>> open(const std::string& path)
    {
        std::unique_ptr<SqliteStore> store{new SqliteStore};
        return store->attempt([&] { store->prepare(path); }).transform([&] {
            return std::move(store);
        });
    }

    Expected<std::optional<Client>> find(std::string_view id)
    {
        return attempt([&] {
            const Row row = run("SELECT * FROM clients WHERE id = ?", id);
            return row ? std::optional{clientIn(row.get())} : std::nullopt;
        });
    }
    Expected<void> add(const Client& client, const bmcoauth::ClientLimits& limits, Time now)
    {
        return attempt([&] {
            run("BEGIN IMMEDIATE");
            run("DELETE FROM clients WHERE expires <= ?", now);
            insert(client);
            trim(false, limits.pending, client.expiresAt);
            trim(true, limits.proven, Time::max());
        });
    }
    Expected<bool> replace(const Client& client)
    {
        return attempt([&] {
            run("BEGIN IMMEDIATE");
            run("DELETE FROM clients WHERE id = ? AND version = ?", client.id, client.version);
            return sqlite3_changes(database.get()) == 1 && insert(client);
        });
    }
    Expected<void> remove(std::string_view id)
    {
        return attempt([&] { run("DELETE FROM clients WHERE id = ?", id); });
    }
    Expected<bool> countAttempt(std::string_view counter, const bmcoauth::FailureRate& rate,
                                Time now)
    {
        return attempt([&] {
            run("BEGIN IMMEDIATE");
            const std::chrono::seconds end{
                number("SELECT max(busy_until) FROM counters WHERE name = ?", counter)};
            const auto [busyUntil, allowed] = bmcoauth::countAttempt(Time{end}, rate, now);
            run("REPLACE INTO counters VALUES (?, ?)", counter, busyUntil);
            run("DELETE FROM counters WHERE busy_until <= ?", now);
            return allowed;
        });
    }
    Expected<void> forgive(std::string_view counter, const bmcoauth::FailureRate& rate)
    {
        return attempt([&] {
            run("UPDATE counters SET busy_until = busy_until - ? WHERE name = ?",
                rate.interval.count(), counter);
        });
    }

private:
    SqliteStore() = default;

    void prepare(const std::string& path)
    {
        constexpr int busyMilliseconds = 5000;
        sqlite3* raw = nullptr;
        const int opened = sqlite3_open(path.c_str(), &raw);
        database.reset(raw);
        if (opened != SQLITE_OK || sqlite3_busy_timeout(raw, busyMilliseconds) != SQLITE_OK)
        {
            throw std::runtime_error{sqlite3_errmsg(raw)};
        }
        run("PRAGMA journal_mode = WAL");
        run("PRAGMA synchronous = FULL");
        run("BEGIN IMMEDIATE");
        const sqlite3_int64 version = number("PRAGMA user_version");
        if (version != 0 && version != 2)
        {
            throw std::runtime_error{"of another version"};
        }
        if (version == 0)
        {
            // With AUTOINCREMENT no version comes twice. Peers' texts are BLOBs, whatever their bytes.
            run("CREATE TABLE clients (id BLOB UNIQUE,"
                "version INTEGER PRIMARY KEY AUTOINCREMENT, secret BLOB, software BLOB, sender "
                "BLOB,"
                "certificate BLOB, device BLOB, challenge BLOB, ends INTEGER, expires INTEGER,"
                "proven INTEGER, family BLOB, current BLOB, previous BLOB, salt BLOB,"
                "rotated INTEGER, replays INTEGER) STRICT");
            run("CREATE TABLE counters (name BLOB PRIMARY KEY, busy_until INTEGER) STRICT");
            run("PRAGMA user_version = 2");
        }
    }
    /** What `work` gives. The transaction that it has begun takes place, or none if it throws. */
    template <typename Work>
    [[nodiscard]] auto attempt(const Work& work) -> decltype(Expected<void>{}.transform(work))
    {
        const std::lock_guard guard{mutex};
        try
        {
            if (database && sqlite3_get_autocommit(database.get()) == 0)
            {
                run("ROLLBACK"); // of an operation that had no memory for it
            }
            auto result = Expected<void>{}.transform(work);
            if (sqlite3_get_autocommit(database.get()) == 0)
            {
                run("COMMIT");
            }
            return result;
        }
        catch (const std::exception& failure)
        {
            sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
            return bmcoauth::Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED, failure.what()};
        }
    }
    /** Runs a statement; its row, null if there is none. Values are bound, never written into the
     *  text: they are a peer's. */
    template <typename... Values>
    Row run(const char* sql, const Values&... values)
    {
        sqlite3_stmt* raw = nullptr;
        const int made = sqlite3_prepare_v2(database.get(), sql, -1, &raw, nullptr);
        Row row{raw, sqlite3_finalize};
        int place = 0;
        const bool isBound = made == SQLITE_OK && ((put(raw, ++place, values) == SQLITE_OK) && ...);
        const int step = isBound ? sqlite3_step(raw) : SQLITE_ERROR;
        if (step != SQLITE_ROW && step != SQLITE_DONE)
        {
            throw std::runtime_error{sqlite3_errmsg(database.get())};
        }
        return step == SQLITE_ROW ? std::move(row) : Row{nullptr, sqlite3_finalize};
    }
    template <typename... Values>
    [[nodiscard]] sqlite3_int64 number(const char* sql, const Values&... values)
    {
        return sqlite3_column_int64(run(sql, values...).get(), 0);
    }
    [[nodiscard]] static int put(sqlite3_stmt* row, int place, std::integral auto value)
    {
        return sqlite3_bind_int64(row, place, static_cast<sqlite3_int64>(value));
    }
    [[nodiscard]] static int put(sqlite3_stmt* row, int place, Time value)
    {
        return put(row, place, value.time_since_epoch().count());
    }
    [[nodiscard]] static int put(sqlite3_stmt* row, int place, std::string_view value)
    {
        // Without an address, an empty text would be NULL.
        return sqlite3_bind_blob64(row, place, value.empty() ? "" : value.data(), value.size(),
                                   SQLITE_TRANSIENT);
    }
    [[nodiscard]] static int put(sqlite3_stmt* row, int place, const Digest& value)
    {
        return sqlite3_bind_blob(row, place, value.bytes().data(), Digest::size, SQLITE_TRANSIENT);
    }

    bool insert(const Client& client)
    {
        const auto refresh = client.refresh.value_or(bmcoauth::RefreshFamily{});
        run("INSERT INTO clients VALUES (?,NULL,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)", client.id,
            client.secret, client.softwareId, client.sender, client.certificate, client.deviceName,
            client.challenge, client.endsAt, client.expiresAt, client.refresh.has_value(),
            refresh.family, refresh.current, refresh.previous, refresh.salt, refresh.rotatedAt,
            refresh.replays);
        return true;
    }
    [[nodiscard]] static Client clientIn(sqlite3_stmt* row)
    {
        int column = 0;
        const auto number = [&] {
            return sqlite3_column_int64(row, column++);
        };
        const auto time = [&] {
            return Time{std::chrono::seconds{number()}};
        };
        const auto text = [&] {
            const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(row, column));
            const auto size = static_cast<std::size_t>(sqlite3_column_bytes(row, column++));
            return std::string{bytes, size};
        };
        const auto digest = [&] {
            bmcoauth::Sha256Digest bytes{};
            text().copy(reinterpret_cast<char*>(bytes.data()), bytes.size());
            return Digest{bytes};
        };
        const auto family = [&] {
            return bmcoauth::RefreshFamily{
                digest(), digest(), digest(), text(), time(), static_cast<std::uint32_t>(number())};
        };
        // Braces make these calls in the order of the columns.
        return {text(),
                static_cast<std::uint64_t>(number()),
                digest(),
                text(),
                text(),
                text(),
                text(),
                text(),
                time(),
                time(),
                number() != 0 ? std::optional{family()} : std::nullopt};
    }
    /** Removes pending or proven clients until there are no more than `most`: always the oldest of
     *  those who have most. Ends after `last` count as `last`. */
    void trim(bool proven, std::size_t most, Time last)
    {
        run("DELETE FROM clients WHERE version IN (SELECT version FROM clients "
            "WHERE proven = ?1 ORDER BY row_number() OVER (PARTITION BY "
            "iif(?1, software, sender) ORDER BY min(expires, ?3) DESC, version DESC) DESC, "
            "min(expires, ?3), version "
            "LIMIT max(0, (SELECT count(*) FROM clients WHERE proven = ?1) - ?2))",
            proven, most, last);
    }

    std::mutex mutex;
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> database{nullptr, sqlite3_close};
};
