// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Where a service keeps its clients.
 *
 * MemoryStore is made of containers of the standard library: where memory for them runs out, they
 * do what they always do. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/service/client.hpp>

#include <algorithm>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** How many clients a store holds. Where one more comes, another one goes: see Store. One at least. */
struct ClientLimits
{
    /** Those that have not proven themselves. */
    std::size_t pending = 128;
    /** Those that have. */
    std::size_t proven = 256;
};

/** Store is what Registrar and TokenEndpoint keep their state in: nothing else survives a call, so the
 *  process may be killed between any two operations, and during one.
 *
 *  Each operation is atomic: other threads and processes see all of it or nothing. A change survives
 *  a crash of the machine once its operation has returned; after a crash before, all of it is there
 *  or nothing. Operations are called from several threads at once. A failure is an Error,
 *  BMCOAUTH_RULE_CLIENT_STORE_FAILED where nothing says more; whether a change took place is then
 *  unknown, and nothing here relies on either.
 *
 *  | operation | what it does |
 *  |---|---|
 *  | find(id) | gives the client, or nothing; case matters |
 *  | add(client, limits, now) | removes all clients whose `expiresAt` is not after `now`; adds this one, with a version, or is refused if its id is there; removes a client for each above the limits |
 *  | replace(client) | puts the record, with a version that this id never had, in place of the one with its id, if that has the version of `client`; gives whether it had. Of several callers with one version a single one is told true |
 *  | remove(id) | after it, there is no such client |
 *  | countAttempt(counter, rate, now) | replaces the counter, a text of any bytes, by what the function countAttempt makes of it, and gives whether the attempt is allowed. An absent counter is the epoch; one that is not after `now` may be forgotten |
 *  | forgive(counter, rate) | takes one interval away from the counter, if it is there |
 *
 *  Above limits.pending goes the client that ends first (`expiresAt`) of the sender that has most of
 *  them: who registers without end loses registrations of his own. One that ends after the added one
 *  came while the clock was ahead, and counts as ending before it. Above limits.proven, likewise, but
 *  by software id instead of sender, and by `expiresAt` alone.
 *
 *  A crash between countAttempt and forgive leaves an attempt counted; one between two others loses
 *  at most a registration. */
template <typename T>
concept Store = requires(T& store, ClientRecord client, std::string_view text,
                         const ClientLimits& limits, const FailureRate& rate,
                         std::chrono::sys_seconds now)
{
    {
        store.find(text)
        } -> std::same_as<Expected<std::optional<ClientRecord>>>;
    {
        store.add(client, limits, now)
        } -> std::same_as<Expected<void>>;
    {
        store.replace(client)
        } -> std::same_as<Expected<bool>>;
    {
        store.remove(text)
        } -> std::same_as<Expected<void>>;
    {
        store.countAttempt(text, rate, now)
        } -> std::same_as<Expected<bool>>;
    {
        store.forgive(text, rate)
        } -> std::same_as<Expected<void>>;
};

/** MemoryStore keeps clients as long as it lives: for tests, and for services whose clients may
 *  have to register anew after each start. Thread-safe (a mutex). */
class MemoryStore
{
public:
    /** See Store. */
    [[nodiscard]] Expected<std::optional<ClientRecord>> find(std::string_view id) const
    {
        const std::lock_guard guard{mutex};
        const auto place = clients.find(id);
        return place == clients.end() ? std::optional<ClientRecord>{} : place->second;
    }
    /** See Store. */
    Expected<void> add(ClientRecord client, const ClientLimits& limits,
                       std::chrono::sys_seconds now)
    {
        const std::lock_guard guard{mutex};
        std::erase_if(clients, [&](const auto& one) { return one.second.expiresAt <= now; });
        client.version = ++lastVersion;
        const std::chrono::sys_seconds last = client.expiresAt;
        std::string id = client.id;
        if (!clients.try_emplace(std::move(id), std::move(client)).second)
        {
            return Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED, "client_id"};
        }
        trim(false, limits.pending, last);
        trim(true, limits.proven, std::chrono::sys_seconds::max());
        return {};
    }
    /** See Store. */
    Expected<bool> replace(ClientRecord client)
    {
        const std::lock_guard guard{mutex};
        const auto place = clients.find(client.id);
        if (place == clients.end() || place->second.version != client.version)
        {
            return false;
        }
        client.version = ++lastVersion;
        place->second = std::move(client);
        return true;
    }
    /** See Store. */
    Expected<void> remove(std::string_view id)
    {
        const std::lock_guard guard{mutex};
        if (const auto place = clients.find(id); place != clients.end())
        {
            clients.erase(place);
        }
        return {};
    }
    /** See Store. */
    Expected<bool> countAttempt(std::string_view counter, const FailureRate& rate,
                                std::chrono::sys_seconds now)
    {
        const std::lock_guard guard{mutex};
        std::erase_if(counters, [&](const auto& one) { return one.second <= now; });
        std::chrono::sys_seconds& busyUntil = counters[std::string{counter}];
        const CountedAttempt attempt = bmcoauth::countAttempt(busyUntil, rate, now);
        busyUntil = attempt.busyUntil;
        return attempt.allowed;
    }
    /** See Store. */
    Expected<void> forgive(std::string_view counter, const FailureRate& rate)
    {
        const std::lock_guard guard{mutex};
        if (const auto place = counters.find(counter); place != counters.end())
        {
            place->second -= rate.interval;
        }
        return {};
    }

private:
    using Clients = std::map<std::string, ClientRecord, std::less<>>;

    [[nodiscard]] static const std::string& groupOf(const ClientRecord& client) noexcept
    {
        return client.refresh ? client.softwareId : client.sender;
    }
    /** Removes pending or proven clients until there are no more than `most`. None of them counts as
     *  ending after `last`. */
    void trim(bool proven, std::size_t most, std::chrono::sys_seconds last)
    {
        std::map<std::string, std::ptrdiff_t> groups;
        std::vector<Clients::iterator> left;
        for (auto one = clients.begin(); one != clients.end(); ++one)
        {
            if (one->second.refresh.has_value() == proven)
            {
                ++groups[groupOf(one->second)];
                left.push_back(one);
            }
        }
        const auto rank = [&](Clients::iterator one) {
            const ClientRecord& client = one->second;
            return std::tuple{-groups[groupOf(client)], std::min(client.expiresAt, last),
                              client.version};
        };
        while (left.size() > most)
        {
            const auto least = std::ranges::min_element(left, {}, rank);
            --groups[groupOf((*least)->second)];
            clients.erase(*least);
            left.erase(least);
        }
    }

    mutable std::mutex mutex;
    Clients clients;
    std::map<std::string, std::chrono::sys_seconds, std::less<>> counters;
    std::uint64_t lastVersion = 0;
};

} // namespace v1
} // namespace bmcoauth
