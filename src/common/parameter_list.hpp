// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "common/owners.hpp"
#include "common/string_array.hpp"

#include <bmcoauth/handshake_payload.h>

#include <json/value.h>

#include <cstddef>
#include <initializer_list>
#include <string_view>

namespace bmcoauth::internal
{

/** Owns a parameter list. */
using ParameterList = std::unique_ptr<HandshakePayload, Releaser<free_handshake_payload>>;

/** Room for @p count parameters and the end, zeroed; throws std::bad_alloc. */
[[nodiscard]] ParameterList emptyParameterList(std::size_t count);

/** @p values as a string array; throws std::bad_alloc. */
[[nodiscard]] StringArray stringArrayOf(std::initializer_list<std::string_view> values);

/** Fills a list, one parameter after the other. */
class ParameterListWriter
{
public:
    /** Makes room for @p count parameters, which put must not exceed; throws std::bad_alloc. */
    explicit ParameterListWriter(std::size_t count);

    /** Adds a parameter; throws std::bad_alloc, and then nothing is added. */
    void put(std::string_view name, StringArray values);
    void put(std::string_view name, std::string_view value);

    /** Gives the list away. */
    [[nodiscard]] ParameterList take() noexcept;

private:
    ParameterList list;
    HandshakePayload* next;
};

/** Moves the parameters of @p added behind those of @p list, which may be null and may move; false,
 *  with @p list as it was, when memory runs out. */
[[nodiscard]] bool appendParameters(HandshakePayload*& list, ParameterList added) noexcept;

/** A copy of the parameters before the first one whose name or value array is null. Null, with the
 *  reason noted, if there is no such parameter, if one has no value, or if memory runs out. */
[[nodiscard]] ParameterList copyParameters(const HandshakePayload* list) noexcept;

/** What a walk over a list does at a parameter that has no value. */
enum class NoValue
{
    skip, /**< writes an empty array where its values always are one, else leaves it out; goes on */
    stop, /**< ends there */
    raise, /**< raises the logic error of raiseNullText */
};

/** How a parameter list is written as a JSON object. In every form, a parameter whose name or value
 *  array is null ends the walk; one value becomes a string, several become an array. */
struct ListForm
{
    /** The name whose values are an array even when there is only one; empty for none. */
    std::string_view alwaysArray;
    NoValue noValue = NoValue::skip;
};

/** Writes the parameters of @p list, which may be null, into an object that borrows their values.
 *  @p written, where given,
 *  receives their number, a repeated name counting each time. */
[[nodiscard]] Json::Value objectOf(const HandshakePayload* list, const ListForm& form,
                                   std::size_t* written = nullptr);

/** What a reader makes of a member that holds no string and no array of one string or more. */
enum class OddMember
{
    skip,      /**< no parameter */
    valueless, /**< a parameter without values */
    refuse,    /**< the whole object is refused */
};

/** How an object is read as a parameter list. Always refused: a member that is an object, an
 *  array that holds anything but strings, and an object without parameters. */
struct ObjectForm
{
    OddMember null = OddMember::skip;
    OddMember emptyArray = OddMember::valueless;
    OddMember scalar = OddMember::valueless; /**< a number or a Boolean */
};

/** Reads the namedMembers of @p object; null, with the reason noted, when refused. Throws
 *  std::bad_alloc. */
[[nodiscard]] ParameterList parameterListOf(const Json::Value& object, const ObjectForm& form);

/** The first parameter named @p name without regard to case; null if there is none, or no name. */
[[nodiscard]] const HandshakePayload* findParameter(const HandshakePayload* list, const char* name);

/** The first value of the parameter that findParameter finds; null, with
 *  `document.parameter-missing` noted, if there is none. @p name must not be null. */
[[nodiscard]] const char* firstValue(const HandshakePayload* list, const char* name);

/** Stores a copy of the values of the parameter that findParameter finds; null where it has none or
 *  memory runs out. False, with the reason noted, then and where there is no such parameter, which
 *  leaves @p values as it was. @p name must not be null. */
[[nodiscard]] bool copyValues(const HandshakePayload* list, const char* name,
                              char**& values) noexcept;

/** The value array of the first parameter named exactly @p name, null if there is none. The walk
 *  ends at a parameter whose name or value array is null. */
[[nodiscard]] char** findValues(const HandshakePayload* list, std::string_view name);

} // namespace bmcoauth::internal
