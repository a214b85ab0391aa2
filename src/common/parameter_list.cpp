// SPDX-License-Identifier: Apache-2.0
#include "common/parameter_list.hpp"

#include "common/json.hpp"
#include "common/string_array.hpp"
#include "common/text.hpp"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace bmcoauth::internal
{

namespace
{

bool isNamed(const HandshakePayload& parameter) noexcept
{
    return parameter.name != nullptr;
}

bool isWhole(const HandshakePayload& parameter) noexcept
{
    return isNamed(parameter) && parameter.values != nullptr;
}

/** Whether @p form writes the values of @p name as an array however many there are. A name may be
 *  empty, too, which is not what an empty alwaysArray stands for. */
bool isAlwaysArray(const ListForm& form, const char* name)
{
    return !form.alwaysArray.empty() && form.alwaysArray == name;
}

/** The number of parameters of @p list, which may be null, before the first that does not count. */
std::size_t countParameters(const HandshakePayload* list,
                            bool (*counts)(const HandshakePayload&)) noexcept
{
    std::size_t count = 0;
    while (list != nullptr && counts(list[count]))
    {
        ++count;
    }
    return count;
}

/** What @p form makes of a member that is neither a string nor a filled array. */
OddMember ruleFor(const Json::Value& value, const ObjectForm& form)
{
    switch (value.type())
    {
        case Json::nullValue:
            return form.null;
        case Json::arrayValue:
            return form.emptyArray;
        case Json::objectValue:
            return OddMember::refuse;
        default:
            return form.scalar;
    }
}

bool isFilledArray(const Json::Value& value)
{
    return value.isArray() && !value.empty();
}

/** The values of one member as a new string array; null when @p value holds no strings only. */
StringArray valuesOf(const Json::Value& value)
{
    if (value.isString())
    {
        return stringArrayOf({value.asCString()});
    }
    return isArrayOfStrings(value) ? stringsOf(value) : nullptr;
}

} // namespace

ParameterList emptyParameterList(std::size_t count)
{
    return ParameterList{required(zeroedBlock<HandshakePayload>(count + 1)).release()};
}

StringArray stringArrayOf(std::initializer_list<std::string_view> values)
{
    StringArray array = required(emptyStringArray(values.size()));
    std::ranges::transform(values, array.get(),
                           [](std::string_view value) { return requireHeapText(value).release(); });
    return array;
}

ParameterListWriter::ParameterListWriter(std::size_t count)
    : list{emptyParameterList(count)}, next{list.get()}
{
}

void ParameterListWriter::put(std::string_view name, StringArray values)
{
    next->name = requireHeapText(name).release();
    next->values = values.release();
    ++next;
}

void ParameterListWriter::put(std::string_view name, std::string_view value)
{
    put(name, stringArrayOf({value}));
}

ParameterList ParameterListWriter::take() noexcept
{
    return std::move(list);
}

bool appendParameters(HandshakePayload*& list, ParameterList added) noexcept
{
    const std::size_t present = countParameters(list, isNamed);
    const std::size_t more = countParameters(added.get(), isNamed);
    auto* grown = static_cast<HandshakePayload*>(
        std::realloc(list, (present + more + 1) * sizeof(HandshakePayload)));
    if (grown == nullptr)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    // The end marker comes along; the old block is then an empty list and is released as one.
    std::copy_n(added.get(), more + 1, grown + present);
    added->name = nullptr;
    list = grown;
    return true;
}

ParameterList copyParameters(const HandshakePayload* list) noexcept
{
    const std::size_t count = countParameters(list, isWhole);
    if (count == 0)
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_EMPTY);
    }
    ParameterList copy{zeroedBlock<HandshakePayload>(count + 1).release()};
    for (std::size_t i = 0; copy && i < count; ++i)
    {
        // A parameter without values is written and read, but never copied.
        if (*list[i].values == nullptr)
        {
            return refuse(BMCOAUTH_RULE_DOCUMENT_PARAMETER_MISSING).about(list[i].name);
        }
        StringArray values = copyStringArray(list[i].values);
        HeapText name = heapText(list[i].name);
        if (!values || !name)
        {
            return nullptr;
        }
        copy.get()[i] = {name.release(), values.release()};
    }
    return copy;
}

Json::Value objectOf(const HandshakePayload* list, const ListForm& form, std::size_t* written)
{
    Json::Value object{Json::objectValue};
    std::size_t count = 0;
    for (; list != nullptr && isWhole(*list); ++list)
    {
        if (*list->values == nullptr)
        {
            if (form.noValue == NoValue::raise)
            {
                raiseNullText();
            }
            if (form.noValue == NoValue::stop)
            {
                break;
            }
            if (!isAlwaysArray(form, list->name))
            {
                continue;
            }
        }
        const bool single = !isAlwaysArray(form, list->name) && list->values[1] == nullptr;
        object[list->name] = single ? borrowed(*list->values) : jsonArrayOf(list->values);
        ++count;
    }
    if (written != nullptr)
    {
        *written = count;
    }
    return object;
}

ParameterList parameterListOf(const Json::Value& object, const ObjectForm& form)
{
    const std::vector<NamedMember> members = namedMembers(object);
    ParameterList list = emptyParameterList(members.size());
    HandshakePayload* next = list.get();
    for (const auto& [name, value] : members)
    {
        StringArray values;
        if (value.isString() || isFilledArray(value))
        {
            values = valuesOf(value);
            if (!values)
            {
                return refuse(BMCOAUTH_RULE_DOCUMENT_PARAMETER).about(name);
            }
        }
        else
        {
            const OddMember rule = ruleFor(value, form);
            if (rule == OddMember::refuse)
            {
                return refuse(BMCOAUTH_RULE_DOCUMENT_PARAMETER).about(name);
            }
            if (rule == OddMember::skip)
            {
                continue;
            }
            values = stringArrayOf({});
        }
        next->name = requireHeapText(name).release();
        next->values = values.release();
        ++next;
    }
    if (next == list.get())
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_EMPTY);
    }
    return list;
}

const HandshakePayload* findParameter(const HandshakePayload* list, const char* name)
{
    if (name == nullptr)
    {
        return nullptr;
    }
    for (; list != nullptr && list->name != nullptr; ++list)
    {
        if (equalIgnoringCase(list->name, name))
        {
            return list;
        }
    }
    return nullptr;
}

const char* firstValue(const HandshakePayload* list, const char* name)
{
    const HandshakePayload* const found = findParameter(list, name);
    if (found == nullptr || found->values == nullptr || *found->values == nullptr)
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_PARAMETER_MISSING).about(name);
    }
    return *found->values;
}

bool copyValues(const HandshakePayload* list, const char* name, char**& values) noexcept
{
    const HandshakePayload* const found = findParameter(list, name);
    if (found != nullptr)
    {
        // As callers expect: null says that there was nothing to copy.
        values = nullptr;
    }
    if (found == nullptr || firstValue(found, name) == nullptr)
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_PARAMETER_MISSING).about(name);
    }
    values = copyStringArray(found->values).release();
    return values != nullptr;
}

char** findValues(const HandshakePayload* list, std::string_view name)
{
    for (; list != nullptr && isWhole(*list); ++list)
    {
        if (name == list->name)
        {
            return list->values;
        }
    }
    return nullptr;
}

} // namespace bmcoauth::internal
