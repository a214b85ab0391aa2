// SPDX-License-Identifier: Apache-2.0
#include "support/exports.hpp"

#include "support/vectors.hpp"

#include <filesystem>
#include <fstream>

namespace support
{

std::set<std::string> exportedFunctions()
{
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator{testData("tests/abi")})
    {
        if (entry.path().extension() != ".symbols")
        {
            continue;
        }
        std::ifstream file{entry.path()};
        for (std::string line; std::getline(file, line);)
        {
            names.insert(line.substr(0, line.find_first_of("([")));
        }
    }
    // The two tables are not functions.
    names.erase("ravok_scope_privileges");
    names.erase("xidp_claim_privileges");
    return names;
}

} // namespace support
