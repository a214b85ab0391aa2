// SPDX-License-Identifier: Apache-2.0
#include "support/vectors.hpp"

#include "support/machine.hpp"

#include <json/reader.h>

#include <sstream>

namespace support
{

namespace
{

Json::Value documentIn(const std::string& path)
{
    std::istringstream text{contentsOf(path)};
    Json::Value document;
    text >> document;
    return document;
}

} // namespace

Json::Value vectors(const std::string& name)
{
    return documentIn(std::string{TEST_VECTORS "/"} + name);
}

Json::Value vectorsOfManual(const std::string& name)
{
    return documentIn(std::string{MANUAL_VECTORS "/"} + name);
}

std::string fromHex(std::string_view hex)
{
    std::string bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
    {
        bytes += static_cast<char>(std::stoi(std::string{hex.substr(at, 2)}, nullptr, 16));
    }
    return bytes;
}

} // namespace support
