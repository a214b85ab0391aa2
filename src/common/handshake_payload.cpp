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

using namespace bmcoauth::internal;

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
    if (refusesNull("payload", payload))
    {
        return refused();
    }
    return guardedMemory([=] { return copyParameters(payload).release(); });
}

extern "C" bool get_handshake_payload_paramValue(HandshakePayload* payload, const char* name,
                                                 std::string& value)
{
    if (refusesNull("payload name", payload, name))
    {
        return refused();
    }
    return guarded([&] {
        const char* first = firstValue(payload, name);
        if (first == nullptr)
        {
            return false;
        }
        value = std::string{first};
        return true;
    });
}

bool getChallengeValue(HandshakePayload* payload, const char* name, char* buffer, unsigned int size)
{
    if (refusesNull("payload name buffer", payload, name, buffer))
    {
        return refused();
    }
    if (size == 0)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "size");
    }
    const ErrnoKeeper keeper;
    const char* first = firstValue(payload, name);
    if (first == nullptr)
    {
        publishRefusal();
        return false;
    }
    const std::size_t kept = std::string_view{first}.copy(buffer, size - 1);
    buffer[kept] = '\0';
    return true;
}

bool getChallengeValueArray(HandshakePayload* payload, const char* name, char*** values)
{
    if (refusesNull("payload name values", payload, name, values))
    {
        return refused();
    }
    return guardedMemory([=] { return copyValues(payload, name, *values); });
}

char** create_handshake_types_copy(char** types, unsigned int* count)
{
    if (refusesNull("types count", types, count))
    {
        return refused();
    }
    return guardedMemory([=] {
        StringArray copy = copyFilledArray(types);
        if (copy)
        {
            *count = static_cast<unsigned int>(countStrings(types));
        }
        return copy.release();
    });
}

void free_handshake_types_copy(char** types)
{
    releaseStringArray(types);
}

extern "C" int getKeyNames(const char* text, unsigned int length, char*** names)
{
    if (refusesNull("text names", text, names))
    {
        return refused();
    }
    // Never looks beyond the text, whatever length it is given.
    if (std::strlen(text) != length)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "length");
    }
    return guarded([=]() -> int {
        Json::Value tree;
        if (!parseJson(text, tree))
        {
            return 0;
        }
        if (tree.isNull())
        {
            return refuse(BMCOAUTH_RULE_JSON_ROOT);
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
    if (refusesNull("payload", payload))
    {
        return refused();
    }
    return guarded([=] { return heapJsonText(objectOf(payload, {})).release(); });
}

extern "C" HandshakePayload* parse_handshake_payload(const char* text)
{
    if (refusesNull("text", text))
    {
        return refused();
    }
    return guarded([=]() -> HandshakePayload* {
        Json::Value tree;
        return parseJsonObject(text, tree) ? parameterListOf(tree, {}).release() : nullptr;
    });
}
