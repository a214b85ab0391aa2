// SPDX-License-Identifier: Apache-2.0
#include "cli/files.hpp"

#include <pwd.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <fstream>

namespace bmcoauth::tool
{

namespace
{

/** What the system knows of the file @p path; zeros if it knows nothing. */
struct stat statusOf(const std::string& path)
{
    struct stat status
    {
    };
    static_cast<void>(stat(path.c_str(), &status));
    return status;
}

} // namespace

std::string modeOf(const std::string& path)
{
    std::array<char, 16> mode{};
    static_cast<void>(
        std::snprintf(mode.data(), mode.size(), "%04o", unsigned{statusOf(path).st_mode & 07777U}));
    return mode.data();
}

std::string ownerOf(const std::string& path)
{
    const uid_t owner = statusOf(path).st_uid;
    // cppcheck-suppress getpwuidCalled ; one thread
    const passwd* const user = getpwuid(owner); // NOLINT(concurrency-mt-unsafe): one thread
    return user != nullptr ? user->pw_name : std::to_string(owner);
}

std::string openTo(const std::string& path, mode_t forbidden)
{
    const mode_t mode = statusOf(path).st_mode;
    if ((mode & forbidden) == 0)
    {
        return "";
    }
    return std::string{"lets others "} + ((mode & 0022U) != 0 ? "write" : "read") + " it";
}

std::string loadedFrom(const std::string& name)
{
    std::ifstream maps{"/proc/self/maps"};
    for (std::string line; std::getline(maps, line);)
    {
        const std::size_t begin = line.find('/');
        if (begin != std::string::npos && line.find("/" + name + ".so", begin) != std::string::npos)
        {
            return line.substr(begin);
        }
    }
    return "linked in";
}

} // namespace bmcoauth::tool
