// SPDX-License-Identifier: Apache-2.0
#include "support/vectors.hpp"

#include "support/machine.hpp"

#include <json/reader.h>

#include <cstdlib>
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

std::string testData(const std::string& name)
{
    const char* const folder = std::getenv("BMCOAUTH_TEST_DATA");
    return std::string{folder == nullptr ? TEST_DATA : folder}.append("/").append(name);
}

Json::Value vectors(const std::string& name)
{
    return documentIn(testData("tests/vectors/" + name));
}

Json::Value vectorsOfManual(const std::string& name)
{
    return documentIn(testData("docs/vectors/" + name));
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
