// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"

#include <charconv>
#include <optional>
#include <string>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string code;
    std::optional<std::string> description;
    std::optional<std::string> resolution;
    std::optional<std::string> uri;
};

/** The code that @p text names by its number or by its OAuth text. */
std::optional<oauthError> codeOf(const std::string& text)
{
    for (unsigned int number = 0; number <= OAUTH_NETWORK_ERROR; ++number)
    {
        const auto code = static_cast<oauthError>(number);
        if (text == errorText(code) || text == std::to_string(number))
        {
            return code;
        }
    }
    return std::nullopt;
}

void writeError(const Options& options)
{
    const std::optional<oauthError> code = codeOf(options.code);
    if (!code)
    {
        throw Stop{Exit::usage, "no error has the code " + options.code +
                                    ": give a number from 0 to 13, or a name such as "
                                    "invalid_request"};
    }
    print(orStop(errorDocument(*code, options.description, options.resolution, options.uri),
                 "the error document could not be written"));
}

} // namespace

void addErrorCommand(const Command& root)
{
    const Command command = root.verb("error", "Write an OAuth error document",
                                      "error invalid_scope --description \"unknown scope\"");
    Options& options = command.runs(writeError);
    command.required("CODE", options.code, "Number from 0 to 13, or name such as invalid_grant");
    std::vector<std::string> names;
    for (unsigned int number = 0; number <= OAUTH_NETWORK_ERROR; ++number)
    {
        names.emplace_back(errorText(static_cast<oauthError>(number)));
    }
    command.offer("CODE", names);
    command.option("--description TEXT", options.description, "Text of error_description");
    command.option("--resolution TEXT", options.resolution, "Text of error_resolution");
    command.option("--uri URI", options.uri, "Text of error_uri");
}

} // namespace bmcoauth::tool
