// SPDX-License-Identifier: Apache-2.0
#include "cli/color.hpp"

#include <unistd.h>

#include <cstdlib>

namespace bmcoauth::tool
{

namespace
{

std::string& setting()
{
    static std::string when = "auto";
    return when;
}

/** Whether the environment variable @p name is set and not empty. */
bool isSet(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): one thread
    return value != nullptr && *value != '\0';
}

bool isColored(int stream)
{
    return setting() == "auto" ? isatty(stream) == 1 && !isSet("NO_COLOR") : setting() == "always";
}

/** The control sequence that begins a color; the ones that every terminal has. */
const char* beginOf(Shade shade)
{
    switch (shade)
    {
        case Shade::good:
            return "\033[32m";
        case Shade::doubtful:
            return "\033[33m";
        default:
            return "\033[31m";
    }
}

} // namespace

void useColor(const std::string& when)
{
    setting() = when;
}

std::string colored(Shade shade, std::string_view text, int stream)
{
    std::string shown{text};
    return isColored(stream) ? beginOf(shade) + shown + "\033[0m" : shown;
}

} // namespace bmcoauth::tool
