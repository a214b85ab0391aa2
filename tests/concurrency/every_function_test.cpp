// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"
#include "device.hpp"
#include "support/vectors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <latch>
#include <set>
#include <thread>

using namespace calls;

namespace
{

constexpr std::size_t threadCount = 16;
constexpr std::size_t rounds = 2;

/** A number of complaints that says enough. */
constexpr std::size_t enough = 3;

/** Makes all calls, beginning with another one in each thread, and adds what came out otherwise
 *  than expected. */
void callAll(const std::vector<Call>& calls, std::size_t first, Inputs& inputs,
             std::vector<std::string>& complaints)
{
    for (std::size_t i = 0; i < rounds * calls.size(); ++i)
    {
        const Call& call = calls[(first + i) % calls.size()];
        const std::string outcome = call.run(inputs);
        if (outcome != call.expected && complaints.size() < enough)
        {
            complaints.push_back(call.functions.front() + ": " + outcome);
        }
    }
}

/** Runs `body(index, complaints)` in all threads at once. */
template <typename Body>
void inAllThreads(const Body& body)
{
    std::vector<std::vector<std::string>> complaints(threadCount);
    std::latch start{threadCount};
    {
        std::vector<std::jthread> threads;
        threads.reserve(threadCount);
        for (std::size_t index = 0; index < threadCount; ++index)
        {
            threads.emplace_back([&, index] {
                start.arrive_and_wait();
                body(index, complaints[index]);
            });
        }
    }
    for (const std::vector<std::string>& ofOneThread : complaints)
    {
        EXPECT_EQ(ofOneThread, std::vector<std::string>{});
    }
}

/** The exported symbols as the lists of tests/abi name them. */
std::set<std::string> exportedSymbols()
{
    std::set<std::string> symbols;
    for (const auto& entry : std::filesystem::directory_iterator{support::testData("tests/abi")})
    {
        if (entry.path().extension() != ".symbols")
        {
            continue;
        }
        std::ifstream file{entry.path()};
        for (std::string line; std::getline(file, line);)
        {
            symbols.insert(line);
        }
    }
    return symbols;
}

} // namespace

TEST(EveryFunction, HasACall)
{
    std::set<std::string> called;
    for (const Call& call : allCalls())
    {
        called.insert(call.functions.begin(), call.functions.end());
    }
    EXPECT_EQ(called, exportedSymbols());
}

TEST(EveryFunction, GivesWhatIsExpected)
{
    Device device;
    Inputs inputs{device.world};
    for (const Call& call : allCalls())
    {
        SCOPED_TRACE(call.functions.front());
        EXPECT_EQ(call.run(inputs), call.expected);
    }
}

TEST(EveryFunction, SixteenThreadsCallItAtOnceOnSharedArguments)
{
    Device device;
    Inputs inputs{device.world};
    const std::vector<Call> calls = allCalls();
    inAllThreads([&](std::size_t index, std::vector<std::string>& complaints) {
        callAll(calls, index * calls.size() / threadCount, inputs, complaints);
    });
}

TEST(EveryFunction, SixteenThreadsCallItAtOnceOnTheirOwnArguments)
{
    Device device;
    const std::vector<Call> calls = allCalls();
    inAllThreads([&](std::size_t, std::vector<std::string>& complaints) {
        Inputs inputs{device.world};
        callAll(calls, 0, inputs, complaints);
    });
}
