// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

/** What the tests of both sides of the handshake look into lists with. */
namespace handshake
{

inline constexpr const char* certificateType = "software_id_cert-1.0";

using Lines = std::vector<std::string>;

/** The parameters in their order, each as "name=value,value". */
[[nodiscard]] inline Lines shown(const HandshakePayload* payload)
{
    Lines lines;
    for (; payload != nullptr && payload->name != nullptr; ++payload)
    {
        std::string line = std::string{payload->name} + "=";
        std::string separator;
        for (const std::string& value : support::texts(payload->values))
        {
            line += separator + value;
            separator = ",";
        }
        lines.push_back(line);
    }
    return lines;
}

[[nodiscard]] inline Lines namesOf(const HandshakePayload* payload)
{
    Lines names;
    for (; payload != nullptr && payload->name != nullptr; ++payload)
    {
        names.emplace_back(payload->name);
    }
    return names;
}

/** The values of the parameter `name`; none where it is missing. */
[[nodiscard]] inline Lines valuesOf(const HandshakePayload* payload, const std::string& name)
{
    for (; payload != nullptr && payload->name != nullptr; ++payload)
    {
        if (name == payload->name)
        {
            return support::texts(payload->values);
        }
    }
    return {};
}

/** A list from its JSON text; a test that mistypes it fails at once. */
[[nodiscard]] inline support::PayloadPtr listOf(const std::string& json)
{
    support::PayloadPtr list{parse_handshake_payload(json.c_str())};
    EXPECT_NE(list, nullptr) << json;
    return list;
}

} // namespace handshake
