// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/json.hpp"
#include "common/owners.hpp"

#include <json/value.h>

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>
#include <vector>

namespace bmcoauth::internal
{

/* Lists of name/value pairs: heap arrays of a record with exactly these two texts, ended by a pair
 * without a name. The records differ by the names of their fields alone. */

/** The number of pairs before the first one that lacks its name or its value. */
template <typename Pair>
[[nodiscard]] std::size_t countPairs(const Pair* pairs) noexcept
{
    std::size_t count = 0;
    for (;; ++count)
    {
        const auto& [name, value] = pairs[count];
        if (name == nullptr || value == nullptr)
        {
            return count;
        }
    }
}

/** Room for @p count pairs and the end, zeroed; null when memory runs out. */
template <typename Owner>
[[nodiscard]] Owner emptyPairs(std::size_t count) noexcept
{
    return Owner{zeroedBlock<typename Owner::element_type>(count + 1).release()};
}

/** A copy of the pairs that countPairs counts; null when memory runs out. */
template <typename Owner>
[[nodiscard]] Owner copyPairs(const typename Owner::element_type* pairs) noexcept
{
    const std::size_t count = countPairs(pairs);
    Owner copy = emptyPairs<Owner>(count);
    for (std::size_t i = 0; copy && i < count; ++i)
    {
        const auto& [name, value] = pairs[i];
        HeapText nameCopy = heapText(name);
        SecretText valueCopy = secretText(heapText(value));
        if (!nameCopy || !valueCopy)
        {
            return nullptr;
        }
        copy.get()[i] = {nameCopy.release(), valueCopy.release()};
    }
    return copy;
}

/** An object with the pairs that countPairs counts as string members, whose values it borrows; a
 *  repeated name replaces the earlier one. */
template <typename Pair>
[[nodiscard]] Json::Value objectOfPairs(const Pair* pairs)
{
    Json::Value object{Json::objectValue};
    const std::size_t count = countPairs(pairs);
    for (std::size_t i = 0; i < count; ++i)
    {
        const auto& [name, value] = pairs[i];
        object[name] = borrowed(value);
    }
    return object;
}

/** The namedMembers of @p object; null, with `json.member-type` noted, when one of them is not a
 *  string. Without any the list holds
 *  only its end. Throws std::bad_alloc. */
template <typename Owner>
[[nodiscard]] Owner pairsOf(const Json::Value& object)
{
    const std::vector<NamedMember> members = namedMembers(object);
    const auto odd = std::ranges::find_if(
        members, [](const NamedMember& member) { return !member.value.isString(); });
    if (odd != members.end())
    {
        return refuse(BMCOAUTH_RULE_JSON_MEMBER_TYPE).about(odd->name);
    }
    Owner list = required(emptyPairs<Owner>(members.size()));
    typename Owner::element_type* next = list.get();
    for (const auto& [name, value] : members)
    {
        HeapText nameCopy = requireHeapText(name);
        HeapText valueCopy = requireHeapText(value.asCString());
        *next++ = {nameCopy.release(), valueCopy.release()};
    }
    return list;
}

} // namespace bmcoauth::internal
