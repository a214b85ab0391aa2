// SPDX-License-Identifier: Apache-2.0
#include "clients.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace
{

constexpr std::int64_t pendingSeconds = 300;
constexpr std::int64_t mostPending = 64;
constexpr std::int64_t freeFailures = 3;
constexpr std::int64_t firstLockSeconds = 30;
constexpr std::int64_t mostDoublings = 9;

/** One SQL statement with its values. They are always bound, never written into the text: what
 *  comes from a client is data. */
class Statement
{
public:
    Statement(sqlite3* database, const char* sql)
    {
        sqlite3_stmt* raw = nullptr;
        good = sqlite3_prepare_v2(database, sql, -1, &raw, nullptr) == SQLITE_OK;
        prepared.reset(raw);
    }

    Statement& text(std::string_view value)
    {
        good = good && sqlite3_bind_text64(prepared.get(), ++bound, value.data(), value.size(),
                                           SQLITE_TRANSIENT, SQLITE_UTF8) == SQLITE_OK;
        return *this;
    }
    Statement& blob(std::string_view value)
    {
        good = good && sqlite3_bind_blob64(prepared.get(), ++bound, value.data(), value.size(),
                                           SQLITE_TRANSIENT) == SQLITE_OK;
        return *this;
    }
    Statement& number(std::int64_t value)
    {
        good = good && sqlite3_bind_int64(prepared.get(), ++bound, value) == SQLITE_OK;
        return *this;
    }

    /** Whether the statement has run and gives no row. */
    [[nodiscard]] bool run()
    {
        return good && sqlite3_step(prepared.get()) == SQLITE_DONE;
    }
    /** Whether there is a row. */
    [[nodiscard]] bool row()
    {
        return good && sqlite3_step(prepared.get()) == SQLITE_ROW;
    }
    /** The bytes of a column of the row; none for null. */
    [[nodiscard]] std::string_view bytes(int column)
    {
        const void* const data = sqlite3_column_blob(prepared.get(), column);
        const int size = sqlite3_column_bytes(prepared.get(), column);
        return data == nullptr ? std::string_view{}
                               : std::string_view{static_cast<const char*>(data),
                                                  static_cast<std::size_t>(size)};
    }
    [[nodiscard]] std::int64_t integer(int column)
    {
        return sqlite3_column_int64(prepared.get(), column);
    }

private:
    struct Finalize
    {
        void operator()(sqlite3_stmt* statement) const noexcept
        {
            sqlite3_finalize(statement);
        }
    };

    std::unique_ptr<sqlite3_stmt, Finalize> prepared;
    int bound = 0;
    bool good = false;
};

} // namespace

std::optional<Digest> Digest::of(std::string_view secret)
{
    Digest digest;
    if (EVP_Digest(secret.data(), secret.size(), digest.value.data(), nullptr, EVP_sha256(),
                   nullptr) != 1)
    {
        return std::nullopt;
    }
    return digest;
}

std::optional<Digest> Digest::fromBytes(std::string_view stored)
{
    if (stored.size() != size)
    {
        return std::nullopt;
    }
    Digest digest;
    std::copy(stored.begin(), stored.end(), digest.value.begin());
    return digest;
}

bool Digest::equals(const Digest& other) const
{
    return CRYPTO_memcmp(value.data(), other.value.data(), size) == 0;
}

std::string_view Digest::bytes() const
{
    const void* const data = value.data();
    return {static_cast<const char*>(data), size};
}

void Clients::Close::operator()(sqlite3* database) const noexcept
{
    sqlite3_close(database);
}

Clients::Clients(Database opened) : database{std::move(opened)}
{
}

Clients Clients::open(const std::string& path)
{
    sqlite3* raw = nullptr;
    const int opened = sqlite3_open(path.c_str(), &raw);
    Database database{raw};
    if (opened != SQLITE_OK ||
        !Statement{raw, "CREATE TABLE IF NOT EXISTS clients ("
                        "id TEXT PRIMARY KEY, secret BLOB NOT NULL, challenge TEXT NOT NULL,"
                        "registered INTEGER NOT NULL, refresh BLOB, failures INTEGER DEFAULT 0,"
                        "locked_until INTEGER DEFAULT 0) STRICT"}
             .run())
    {
        const int error = sqlite3_system_errno(raw);
        throw std::runtime_error{
            path + ": " + sqlite3_errmsg(raw) +
            (error != 0 ? " (" + std::generic_category().message(error) + ")" : "")};
    }
    // The file may be there already, made under another umask.
    if (chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0)
    {
        throw std::system_error{errno, std::generic_category(), path};
    }
    return Clients{std::move(database)};
}

bool Clients::add(std::string_view id, const Digest& secret, std::string_view challenge,
                  std::int64_t now)
{
    // Those that never came back make room, whatever the clock has done in between.
    if (!Statement{database.get(), "DELETE FROM clients WHERE refresh IS NULL AND "
                                   "registered NOT BETWEEN ? AND ?"}
             .number(now - pendingSeconds)
             .number(now)
             .run())
    {
        return false;
    }
    Statement pending{database.get(), "SELECT count(*) FROM clients WHERE refresh IS NULL"};
    if (!pending.row() || pending.integer(0) >= mostPending)
    {
        return false;
    }
    return Statement{database.get(),
                     "INSERT INTO clients (id, secret, challenge, registered) VALUES (?, ?, ?, ?)"}
        .text(id)
        .blob(secret.bytes())
        .text(challenge)
        .number(now)
        .run();
}

std::optional<Client> Clients::find(std::string_view id)
{
    Statement query{database.get(), "SELECT secret, challenge, refresh, failures, locked_until "
                                    "FROM clients WHERE id = ?"};
    if (!query.text(id).row())
    {
        return std::nullopt;
    }
    return Client{.id = std::string{id},
                  .secret = Digest::fromBytes(query.bytes(0)),
                  .challenge = std::string{query.bytes(1)},
                  .refreshToken = Digest::fromBytes(query.bytes(2)),
                  .failures = query.integer(3),
                  .lockedUntil = query.integer(4)};
}

bool Clients::noteFailure(const Client& client, std::int64_t now)
{
    const std::int64_t failures = client.failures + 1;
    std::int64_t lockedUntil = 0;
    if (failures >= freeFailures)
    {
        lockedUntil = now + (firstLockSeconds << std::min(failures - freeFailures, mostDoublings));
    }
    return Statement{database.get(), "UPDATE clients SET failures = ?, locked_until = ? "
                                     "WHERE id = ?"}
        .number(failures)
        .number(lockedUntil)
        .text(client.id)
        .run();
}

bool Clients::noteSuccess(const Client& client, const Digest& refreshToken)
{
    return Statement{database.get(), "UPDATE clients SET failures = 0, locked_until = 0, "
                                     "challenge = '', refresh = ? WHERE id = ?"}
        .blob(refreshToken.bytes())
        .text(client.id)
        .run();
}
