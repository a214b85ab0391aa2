// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace bench
{

/** One call's worth of work; throws when it fails. */
using Work = std::function<void()>;

/** Someone who can do an operation: the library, the floor, or a library of others. */
struct Contender
{
    std::string name;
    Work work;
};

/** An operation of the library beside its floor. */
struct Operation
{
    std::string name;
    /** The most that the library's time may be of the floor's, and what is aimed at; 0 for no
     *  target. */
    double must = 0;
    double reach = 0;
    /** The library first, then the floor, then "bare", the floor without the reading of claims,
     *  where there is one, then the others. */
    std::vector<Contender> contenders;
};

inline constexpr const char* library = "library";
inline constexpr const char* floorName = "floor";
inline constexpr const char* bareFloor = "bare";

[[nodiscard]] std::vector<Operation> operations();

/** The operation of this name; throws where there is none. */
[[nodiscard]] Operation operationOf(const std::string& name);

/** What takes longer for more input: work for each amount. */
struct Growth
{
    std::string name;
    std::vector<std::size_t> amounts;
    std::function<Work(std::size_t)> workFor;
};

[[nodiscard]] std::vector<Growth> growths();

} // namespace bench
