// SPDX-License-Identifier: Apache-2.0
#include "support/records.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <latch>
#include <set>
#include <thread>

using namespace support;

namespace
{

constexpr std::size_t threadCount = 8;
constexpr int rounds = 12;

/** A service's private key, in the form that the token functions take. */
struct Key
{
    Key()
    {
        unsigned char* publicPart = nullptr;
        unsigned char* privatePart = nullptr;
        int publicLength = 0;
        EXPECT_EQ(generateECKey(&publicPart, &privatePart, &publicLength, &length), 1);
        bytes.reset(privatePart);
        std::free(publicPart);
    }

    HeapBytes bytes;
    int length = 0;
};

/** What one thread saw; the main thread judges it. */
struct Outcome
{
    std::set<std::string> ids;
    std::set<std::string> subjects;
    int issued = 0;
    int valid = 0;
    int refused = 0;
};

std::string issue(const Key& key, const std::string& subject)
{
    std::string name = subject;
    std::string issuer = "controller";
    AuthorizeClaims claims{name.data(), issuer.data(), nullptr, 0};
    const AuthorizeResponsePtr response{authorize_client(
        "state", key.bytes.get(), static_cast<unsigned int>(key.length), nullptr, &claims)};
    return response ? response->access_token : "";
}

int validate(const std::string& token, const Key& key, Outcome& outcome)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int result = validateJWT(token.c_str(), key.bytes.get(), key.length, &header, &payload);
    const HeaderPtr ownedHeader{header};
    const TokenPayloadPtr ownedPayload{payload};
    if (result == 1)
    {
        outcome.ids.insert(payload->jti);
        outcome.subjects.insert(payload->sub);
    }
    return result;
}

/** The same work for every thread, with a subject of its own and, every second one, a key. */
void work(const Key& own, const Key& other, const std::string& subject, Outcome& outcome)
{
    for (int round = 0; round < rounds; ++round)
    {
        const std::string token = issue(own, subject);
        outcome.issued += token.empty() ? 0 : 1;
        outcome.valid += validate(token, own, outcome) == 1 ? 1 : 0;
        outcome.refused += validate(token, other, outcome) == 0 ? 1 : 0;
    }
}

} // namespace

TEST(Concurrency, EightThreadsIssueAndValidateTokensAtOnce)
{
    const std::array<Key, 2> keys;
    std::array<Outcome, threadCount> outcomes;
    std::latch start{threadCount};
    {
        std::vector<std::jthread> threads;
        threads.reserve(threadCount);
        for (std::size_t index = 0; index < threadCount; ++index)
        {
            threads.emplace_back([&, index] {
                start.arrive_and_wait();
                work(keys.at(index % 2), keys.at(1 - index % 2), "user-" + std::to_string(index),
                     outcomes.at(index));
            });
        }
    }
    std::set<std::string> ids;
    for (std::size_t index = 0; index < threadCount; ++index)
    {
        SCOPED_TRACE(index);
        const Outcome& outcome = outcomes.at(index);
        EXPECT_EQ(outcome.issued, rounds);
        EXPECT_EQ(outcome.valid, rounds);
        EXPECT_EQ(outcome.refused, rounds);
        EXPECT_EQ(outcome.subjects, std::set<std::string>{"user-" + std::to_string(index)});
        ids.insert(outcome.ids.begin(), outcome.ids.end());
    }
    // No two of all tokens bear the same id.
    EXPECT_EQ(ids.size(), threadCount * rounds);
}

TEST(Concurrency, EightThreadsValidateTheSameTokenAtOnce)
{
    const Key key;
    const std::string token = issue(key, "user");
    std::string tampered = token;
    // In the middle of the payload, where every bit counts.
    char& altered = tampered.at(tampered.find('.') + 20);
    altered = altered == 'A' ? 'B' : 'A';
    std::array<Outcome, threadCount> outcomes;
    std::latch start{threadCount};
    {
        std::vector<std::jthread> threads;
        threads.reserve(threadCount);
        for (Outcome& outcome : outcomes)
        {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                for (int round = 0; round < rounds; ++round)
                {
                    outcome.valid += validate(token, key, outcome) == 1 ? 1 : 0;
                    outcome.refused += validate(tampered, key, outcome) == 1 ? 0 : 1;
                }
            });
        }
    }
    for (const Outcome& outcome : outcomes)
    {
        EXPECT_EQ(outcome.valid, rounds);
        EXPECT_EQ(outcome.refused, rounds);
        EXPECT_EQ(outcome.subjects, std::set<std::string>{"user"});
    }
}
