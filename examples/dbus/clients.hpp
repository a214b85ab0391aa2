// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;

/** The SHA-256 digest of a secret. The secrets that are kept here are 16 random bytes: nobody finds
 *  one by trying, so a digest without salt and repetition is enough. A password needs more. */
class Digest
{
public:
    static constexpr std::size_t size = 32;

    /** Nothing if the digest cannot be computed. */
    [[nodiscard]] static std::optional<Digest> of(std::string_view secret);
    /** Nothing unless it has the length of a digest. */
    [[nodiscard]] static std::optional<Digest> fromBytes(std::string_view stored);

    /** Takes equally long whether they are equal or not. */
    [[nodiscard]] bool equals(const Digest& other) const;
    [[nodiscard]] std::string_view bytes() const;

private:
    std::array<unsigned char, size> value{};
};

/** What is kept of a client. */
struct Client
{
    std::string id;
    std::optional<Digest> secret;
    /** The challenge that has not been answered yet; empty when it has. */
    std::string challenge;
    /** Of the refresh token that is good now. */
    std::optional<Digest> refreshToken;
    std::int64_t failures = 0;
    /** Until then no proof is looked at, in seconds since the epoch. */
    std::int64_t lockedUntil = 0;
};

/** The clients, in a file that outlives the service: who starts it anew gets no fresh attempts. */
class Clients
{
public:
    /** Opens the file at `path`, or makes it. Nobody else may read it from then on. Throws
     *  std::runtime_error with the path and the cause. */
    [[nodiscard]] static Clients open(const std::string& path);

    /** A client that has still to prove itself. False if too many others have, too: whoever may
     *  call can register, and the file must not grow without end. */
    [[nodiscard]] bool add(std::string_view id, const Digest& secret, std::string_view challenge,
                           std::int64_t now);

    [[nodiscard]] std::optional<Client> find(std::string_view id);

    /** Counts a failed proof, and closes the door for a while from the third on: 30 seconds, then
     *  twice as long each time, up to about four hours. */
    [[nodiscard]] bool noteFailure(const Client& client, std::int64_t now);

    /** The client has proven itself: its challenge is used up, so that nobody proves anything with
     *  the same answer again, and its old refresh token is, too. */
    [[nodiscard]] bool noteSuccess(const Client& client, const Digest& refreshToken);

private:
    struct Close
    {
        void operator()(sqlite3* database) const noexcept;
    };
    using Database = std::unique_ptr<sqlite3, Close>;

    explicit Clients(Database opened);

    Database database;
};
