// SPDX-License-Identifier: Apache-2.0
//
// How long each operation takes beside its floor, how it grows with its input, and how much faster
// two threads are than one. scripts/bench makes a table of what this writes.
#include "fixtures.hpp"
#include "operations.hpp"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <barrier>
#include <chrono>
#include <cmath>
#include <ctime>
#include <thread>

using namespace bench;

namespace
{

/** A round is long beside a reading of the clock, and short beside the moods of a machine. */
constexpr double roundSeconds = 1e-3;
constexpr int rounds = 301;
constexpr int growthRounds = 61;
/** Two threads meet at the end of each of these: waking up must not count. */
constexpr double threadRoundSeconds = 10e-3;
constexpr int threadRounds = 41;

/** Time that this thread has spent on a processor: another program's share does not count. */
double threadSeconds()
{
    std::timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double wallSeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void repeat(const Work& work, int calls)
{
    for (int i = 0; i < calls; ++i)
    {
        work();
    }
}

/** How many calls fill a round; they warm everything up as well. */
int callsPerRound(const Work& work, double seconds = roundSeconds)
{
    constexpr int warmUps = 5;
    repeat(work, warmUps);
    int calls = 1;
    for (;;)
    {
        const double begin = threadSeconds();
        repeat(work, calls);
        const double taken = threadSeconds() - begin;
        if (taken >= seconds / 4)
        {
            return std::max(1, static_cast<int>(seconds / taken * calls));
        }
        calls *= 2;
    }
}

double median(std::vector<double>& values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/** One of several kinds of work that are measured against each other. */
struct Runner
{
    explicit Runner(Contender contender)
        : name{std::move(contender.name)},
          work{std::move(contender.work)},
          calls{callsPerRound(work)}
    {
    }

    void round()
    {
        const double begin = threadSeconds();
        repeat(work, calls);
        microseconds.push_back((threadSeconds() - begin) / calls * 1e6);
    }

    std::string name;
    Work work;
    int calls;
    std::vector<double> microseconds;
};

/** Each round of the benchmark is one of every contender, the other way round every second time, so
 *  that whatever the machine does, it does to all of them. Leaves their medians, in microseconds a
 *  call. */
void compare(benchmark::State& state, const std::vector<Contender>& contenders)
{
    std::vector<Runner> runners{contenders.begin(), contenders.end()};
    bool forward = true;
    for ([[maybe_unused]] auto round : state)
    {
        const double begin = threadSeconds();
        if (forward)
        {
            std::for_each(runners.begin(), runners.end(), [](Runner& runner) { runner.round(); });
        }
        else
        {
            std::for_each(runners.rbegin(), runners.rend(), [](Runner& runner) { runner.round(); });
        }
        forward = !forward;
        state.SetIterationTime(threadSeconds() - begin);
    }
    for (Runner& runner : runners)
    {
        state.counters[runner.name] = median(runner.microseconds);
    }
}

/** Two threads that do the same work at the same time, over and over. */
class Pair
{
public:
    Pair(Work shared, int count) : work{std::move(shared)}, calls{count}, second{&Pair::serve, this}
    {
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    Pair(Pair&&) = delete;
    Pair& operator=(Pair&&) = delete;
    ~Pair()
    {
        ended = true;
        start.arrive_and_wait();
        second.join();
    }

    /** How much longer one thread takes for all calls than both for half of them each. */
    double factor()
    {
        const double begin = wallSeconds();
        repeat(work, 2 * calls);
        const double middle = wallSeconds();
        start.arrive_and_wait();
        repeat(work, calls);
        finish.arrive_and_wait();
        return (middle - begin) / (wallSeconds() - middle);
    }

private:
    void serve()
    {
        for (;;)
        {
            start.arrive_and_wait();
            if (ended)
            {
                return;
            }
            repeat(work, calls);
            finish.arrive_and_wait();
        }
    }

    Work work;
    int calls;
    std::barrier<> start{2};
    std::barrier<> finish{2};
    bool ended = false; // read behind the barrier that it is written before
    std::thread second;
};

/** Leaves the medians of the factors by which two threads are faster, on the wall's clock: waiting
 *  for each other would not show on their own. */
void share(benchmark::State& state, const Operation& operation)
{
    const Work& ours = operation.contenders.at(0).work;
    const Work& floors = operation.contenders.at(1).work;
    const int calls = callsPerRound(ours, threadRoundSeconds);
    Pair ourPair{ours, calls};
    Pair floorPair{floors, calls};
    std::vector<double> ourFactors;
    std::vector<double> floorFactors;
    for ([[maybe_unused]] auto round : state)
    {
        const double begin = wallSeconds();
        ourFactors.push_back(ourPair.factor());
        floorFactors.push_back(floorPair.factor());
        state.SetIterationTime(wallSeconds() - begin);
    }
    state.counters[library] = median(ourFactors);
    state.counters[floorName] = median(floorFactors);
}

void registerAll()
{
    using benchmark::RegisterBenchmark;
    for (const Operation& operation : operations())
    {
        RegisterBenchmark(("operation/" + operation.name).c_str(),
                          [operation](auto& state) {
                              compare(state, operation.contenders);
                              state.counters["must"] = operation.must;
                              state.counters["reach"] = operation.reach;
                          })
            ->UseManualTime()
            ->Iterations(rounds);
    }
    for (const Growth& growth : growths())
    {
        RegisterBenchmark(
            ("growth/" + growth.name).c_str(),
            [growth](auto& state) {
                std::vector<Contender> amounts;
                for (const std::size_t amount : growth.amounts)
                {
                    amounts.push_back({std::to_string(amount), growth.workFor(amount)});
                }
                compare(state, amounts);
            })
            ->UseManualTime()
            ->Iterations(growthRounds);
    }
    for (const char* name : {"issue", "validate", "delegated-es256-pem", "delegated-rs256", "seal"})
    {
        RegisterBenchmark((std::string{"threads/"} + name).c_str(),
                          [operation = operationOf(name)](auto& state) { share(state, operation); })
            ->UseManualTime()
            ->Iterations(threadRounds);
    }
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
    {
        return EXIT_FAILURE;
    }
    registerAll();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return EXIT_SUCCESS;
}
