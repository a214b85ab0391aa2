// SPDX-License-Identifier: Apache-2.0
//
// Runs operations for callgrind, which is told to count within `measured` alone and to write what
// it has counted whenever that returns. Writes the name of the operation of each count, in order.
// scripts/bench reads both.
#include "fixtures.hpp"
#include "operations.hpp"

#include <openssl/rand.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <span>

namespace
{

constexpr int warmUps = 40;
constexpr int counts = 3;
constexpr int callsPerCount = 16;

/** Always the same numbers, so that keys, certificates and signatures are the same in every run, and
 *  with them the work: for the numbers of `splitmix64` see Steele, Lea and Flood, "Fast splittable
 *  pseudorandom number generators". */
int sameBytes(unsigned char* out, int count)
{
    static std::uint64_t state = 0;
    for (int i = 0; i < count; ++i)
    {
        state += 0x9e3779b97f4a7c15;
        std::uint64_t mixed = state;
        mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111eb;
        out[i] = static_cast<unsigned char>(mixed >> 56U);
    }
    return 1;
}

int isSeeded()
{
    return 1;
}

constexpr RAND_METHOD sameNumbers{nullptr, sameBytes, nullptr, nullptr, sameBytes, isSeeded};

} // namespace

/** What callgrind counts: known to it by this name. */
extern "C" [[gnu::noinline]] void measured(const bench::Work& work)
{
    for (int i = 0; i < callsPerCount; ++i)
    {
        work();
    }
}

int main(int argc, char** argv)
{
    bench::require(RAND_set_rand_method(&sameNumbers) == 1, "random numbers");
    for (const char* name : std::span{argv, static_cast<std::size_t>(argc)}.subspan(1))
    {
        const bench::Work work = bench::operationOf(name).contenders.at(0).work;
        for (int i = 0; i < warmUps; ++i)
        {
            work();
        }
        for (int i = 0; i < counts; ++i)
        {
            measured(work);
            std::cout << name << ' ' << callsPerCount << '\n';
        }
    }
    return EXIT_SUCCESS;
}
