// SPDX-License-Identifier: Apache-2.0
//
// Runs operations for a program that counts instructions, and writes the name of the operation of
// each count and how many calls it is of, in order. Callgrind is told to count within `measured`
// alone and to write what it has counted whenever that returns. The emulator's plugin, for which
// the argument --emulated is, writes how far it has counted at each mark. scripts/bench reads both.
#include "fixtures.hpp"
#include "operations.hpp"

#include <openssl/rand.h>

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace
{

/** How often an operation is called for one count, and how many contenders are counted. */
struct Plan
{
    int warmUps;
    int counts;
    int calls;
    std::size_t contenders;
};

constexpr Plan forCallgrind{40, 3, 16, 1};
/** The emulator is slow, and the floor is counted too. */
constexpr Plan forEmulator{4, 1, 4, 2};

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
extern "C" [[gnu::noinline]] void measured(const bench::Work& work, int calls)
{
    for (int i = 0; i < calls; ++i)
    {
        work();
    }
}

namespace
{

/** A system call that no machine has, which the emulator's plugin waits for. */
void mark()
{
    static_cast<void>(syscall(MARK));
}

void count(const bench::Contender& contender, const std::string& operation, const Plan& plan)
{
    for (int i = 0; i < plan.warmUps; ++i)
    {
        contender.work();
    }
    for (int i = 0; i < plan.counts; ++i)
    {
        mark();
        measured(contender.work, plan.calls);
        mark();
        std::cout << operation << ' ' << contender.name << ' ' << plan.calls << std::endl;
    }
}

} // namespace

int main(int argc, char** argv)
{
    bench::require(RAND_set_rand_method(&sameNumbers) == 1, "random numbers");
    std::vector<std::string> names{argv + 1, argv + argc};
    const bool emulated = std::erase(names, "--emulated") != 0;
    const Plan& plan = emulated ? forEmulator : forCallgrind;
    for (const std::string& name : names)
    {
        const bench::Operation operation = bench::operationOf(name);
        for (std::size_t i = 0; i < plan.contenders; ++i)
        {
            count(operation.contenders.at(i), name, plan);
        }
    }
    return EXIT_SUCCESS;
}
