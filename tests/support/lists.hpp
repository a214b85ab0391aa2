// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bmcoauth.h>

#include <cstddef>
#include <initializer_list>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/** Lists of the kind that functions read, made in one expression and compared in one. */
namespace support
{

/** The parameters of a list, for comparison. */
using Parameters = std::vector<std::pair<std::string, std::vector<std::string>>>;

/** The pairs of a list of names and values, for comparison. */
using Pairs = std::vector<std::pair<std::string, std::string>>;

/** A parameter list to pass to functions. It may be bent before, for example by
 *  `list[1].values = nullptr`. */
class ParameterList
{
public:
    ParameterList(std::initializer_list<Parameters::value_type> list)
    {
        for (const auto& [name, values] : list)
        {
            std::vector<char*> array;
            for (const std::string& value : values)
            {
                array.push_back(kept.emplace_back(value).data());
            }
            array.push_back(nullptr);
            parameters.push_back(
                {kept.emplace_back(name).data(), arrays.emplace_back(std::move(array)).data()});
        }
        parameters.push_back({});
    }
    ParameterList(const ParameterList&) = delete;
    ParameterList& operator=(const ParameterList&) = delete;
    ~ParameterList() = default;

    operator HandshakePayload*() // not explicit: it stands for the list
    {
        return parameters.data();
    }

private:
    std::list<std::string> kept;
    std::list<std::vector<char*>> arrays;
    std::vector<HandshakePayload> parameters;
};

/** A list of names and values, KestPolicyAuth or jwk, to pass to functions. */
template <typename Pair>
class PairList
{
public:
    PairList(std::initializer_list<Pairs::value_type> list)
    {
        for (const auto& [name, value] : list)
        {
            pairs.push_back({kept.emplace_back(name).data(), kept.emplace_back(value).data()});
        }
        pairs.push_back({});
    }
    PairList(const PairList&) = delete;
    PairList& operator=(const PairList&) = delete;
    ~PairList() = default;

    operator Pair*() // not explicit: it stands for the list
    {
        return pairs.data();
    }

private:
    std::list<std::string> kept;
    std::vector<Pair> pairs;
};

/** What a parameter list holds; nothing for null. */
[[nodiscard]] inline Parameters parameters(const HandshakePayload* list)
{
    Parameters found;
    for (; list != nullptr && list->name != nullptr; ++list)
    {
        std::vector<std::string> values;
        for (char** value = list->values; value != nullptr && *value != nullptr; ++value)
        {
            values.emplace_back(*value);
        }
        found.emplace_back(list->name, std::move(values));
    }
    return found;
}

/** What a list of names and values holds; nothing for null. */
template <typename Pair>
[[nodiscard]] Pairs pairs(const Pair* list)
{
    Pairs found;
    for (; list != nullptr; ++list)
    {
        const auto& [name, value] = *list;
        if (name == nullptr)
        {
            break;
        }
        found.emplace_back(name, value == nullptr ? "(null)" : value);
    }
    return found;
}

/** The words of the std::logic_error that `body` raises. */
template <typename Body>
[[nodiscard]] std::string logicErrorOf(const Body& body)
{
    try
    {
        body();
    }
    catch (const std::logic_error& error)
    {
        return error.what();
    }
    return "(no logic error)";
}

} // namespace support
