// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"

#include <charconv>
#include <optional>

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
        if (text == oauthErro_toStr(code) || text == std::to_string(number))
        {
            return code;
        }
    }
    return std::nullopt;
}

const char* orNull(const std::optional<std::string>& text)
{
    return text ? text->c_str() : nullptr;
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
    const Text document{write_oauth_error(*code, orNull(options.description),
                                          orNull(options.resolution), orNull(options.uri))};
    print(orStop(document, "cannot write the error document"));
}

} // namespace

void addErrorCommand(CLI::App& app)
{
    CLI::App& command = *app.add_subcommand("error", "Write an OAuth error document");
    auto options = std::make_shared<Options>();
    command.add_option("CODE", options->code, "Number from 0 to 13, or name such as invalid_grant")
        ->required();
    command.add_option("--description", options->description, "Text of error_description");
    command.add_option("--resolution", options->resolution, "Text of error_resolution");
    command.add_option("--uri", options->uri, "Text of error_uri");
    command.footer("Example: bmcoauth error invalid_scope --description \"unknown scope\"");
    command.callback([options] { writeError(*options); });
}

} // namespace bmcoauth::tool
