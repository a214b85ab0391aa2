// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/parameter_list.hpp"
#include "common/string_array.hpp"

#include <bmcoauth/handshake_payload.h>
#include <bmcoauth/support.h>

#include <algorithm>
#include <cstring>
#include <vector>

using namespace bmcoauth;

namespace
{

/** The number of parameters that a copy holds: those before the first incomplete one. */
std::size_t countParameters(const HandshakePayload* payload)
{
    std::size_t count = 0;
    while (payload[count].name != nullptr && payload[count].values != nullptr)
    {
        ++count;
    }
    return count;
}

/** The first value of @p parameter, which may be null; null if it has none. */
const char* firstValue(const HandshakePayload* parameter)
{
    return parameter == nullptr || parameter->values == nullptr ? nullptr : *parameter->values;
}

} // namespace

extern "C" void free_handshake_payload(HandshakePayload* payload)
{
    if (payload == nullptr)
    {
        return;
    }
    for (HandshakePayload* parameter = payload; parameter->name != nullptr; ++parameter)
    {
        std::free(parameter->name);
        releaseStringArray(parameter->values);
    }
    std::free(payload);
}

extern "C" HandshakePayload* set_handshake_payload(const HandshakePayload* payload)
{
    if (payload == nullptr || payload->name == nullptr || payload->values == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&]() -> HandshakePayload* {
        const std::size_t count = countParameters(payload);
        ParameterList copy = emptyParameterList(count);
        for (std::size_t i = 0; i < count; ++i)
        {
            // A parameter without values is written and read, but never copied.
            if (*payload[i].values == nullptr)
            {
                return nullptr;
            }
            StringArray values = copyStringArray(payload[i].values);
            HeapText name = heapText(payload[i].name);
            if (!values || !name)
            {
                return nullptr;
            }
            copy.get()[i] = {name.release(), values.release()};
        }
        return copy.release();
    });
}

extern "C" bool get_handshake_payload_paramValue(HandshakePayload* payload, const char* name,
                                                 std::string& value)
{
    return guarded(false, [&] {
        const char* first = firstValue(findParameter(payload, name));
        if (first == nullptr)
        {
            return false;
        }
        value = first;
        return true;
    });
}

bool getChallengeValue(HandshakePayload* payload, const char* name, char* buffer, unsigned int size)
{
    const char* first = firstValue(findParameter(payload, name));
    if (first == nullptr || buffer == nullptr || size == 0)
    {
        return false;
    }
    const std::size_t kept = std::string_view{first}.copy(buffer, size - 1);
    buffer[kept] = '\0';
    return true;
}

bool getChallengeValueArray(HandshakePayload* payload, const char* name, char*** values)
{
    const HandshakePayload* found = findParameter(payload, name);
    if (found == nullptr || values == nullptr)
    {
        return false;
    }
    // Written in both cases, as callers expect: null says that there was nothing to copy.
    *values = set_char_array(found->values);
    return *values != nullptr;
}

char** create_handshake_types_copy(char** types, unsigned int* count)
{
    const ErrnoKeeper keeper;
    const std::size_t length = countStrings(types);
    if (length == 0 || count == nullptr)
    {
        return nullptr;
    }
    StringArray copy = copyStringArray(types);
    if (copy)
    {
        *count = static_cast<unsigned int>(length);
    }
    return copy.release();
}

void free_handshake_types_copy(char** types)
{
    releaseStringArray(types);
}

extern "C" int getKeyNames(const char* text, unsigned int length, char*** names)
{
    // Never looks beyond the text, whatever length it is given.
    if (text == nullptr || *text == '\0' || std::strlen(text) != length || names == nullptr)
    {
        return 0;
    }
    return guarded(0, [&] {
        Json::Value tree;
        if (!parseJson(text, tree) || tree.isNull())
        {
            return 0;
        }
        const std::vector<NamedMember> members = namedMembers(tree);
        StringArray found = emptyStringArray(members.size());
        if (!found)
        {
            return 0;
        }
        std::ranges::transform(members, found.get(), [](const NamedMember& member) {
            return requireHeapText(member.name).release();
        });
        *names = found.release();
        return 1;
    });
}

extern "C" char* write_handshake_payload(HandshakePayload* payload)
{
    if (payload == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&] { return heapJsonText(objectOf(payload, {})).release(); });
}

extern "C" HandshakePayload* parse_handshake_payload(const char* text)
{
    if (text == nullptr)
    {
        return nullptr;
    }
    return guarded(nullptr, [&]() -> HandshakePayload* {
        Json::Value tree;
        return parseJsonObject(text, tree) ? parameterListOf(tree, {}).release() : nullptr;
    });
}
