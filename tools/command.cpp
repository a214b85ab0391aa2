// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"

#include <CLI/CLI.hpp>

#include <utility>

namespace bmcoauth::tool
{

namespace
{

constexpr const char* jsonFlag = "--json";

/** One line of what CLI11 has to say. */
std::string firstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

/** An option with one value: given twice, it is refused. */
template <typename Value>
CLI::Option* addOption(CLI::App& app, const std::string& name, Value& value,
                       const std::string& help)
{
    return app.add_option(name, value, help)->expected(1);
}

/** An option that takes one value each time that it is given, or an argument with several. */
CLI::Option* addList(CLI::App& app, const std::string& name, std::vector<std::string>& values,
                     const std::string& help)
{
    CLI::Option* option = app.add_option(name, values, help);
    if (name.starts_with('-'))
    {
        // Otherwise it would swallow the arguments behind it.
        option->expected(1)->take_all()->allow_extra_args(false);
    }
    return option;
}

} // namespace

Command Command::group(const std::string& name, const std::string& description) const
{
    CLI::App& added = *app->add_subcommand(name, description);
    added.require_subcommand(1);
    return Command{added};
}

Command Command::verb(const std::string& name, const std::string& description,
                      const std::string& example, const std::string& notes) const
{
    CLI::App& added = *app->add_subcommand(name, description);
    added.footer((notes.empty() ? "" : notes + "\n") + "Example: bmcoauth " + example);
    const std::string help = "Print the result as JSON, which it is without this, too";
    added.add_flag(jsonFlag, help);
    return Command{added};
}

void Command::option(const std::string& name, std::string& value, const std::string& help) const
{
    addOption(*app, name, value, help);
}

void Command::option(const std::string& name, std::optional<std::string>& value,
                     const std::string& help) const
{
    addOption(*app, name, value, help);
}

void Command::option(const std::string& name, std::vector<std::string>& values,
                     const std::string& help) const
{
    addList(*app, name, values, help);
}

void Command::required(const std::string& name, std::string& value, const std::string& help) const
{
    addOption(*app, name, value, help)->required();
}

void Command::required(const std::string& name, std::vector<std::string>& values,
                       const std::string& help) const
{
    addList(*app, name, values, help)->required();
}

void Command::flag(const std::string& name, bool& value, const std::string& help) const
{
    app->add_flag(name, value, help);
}

void Command::json(bool& value) const
{
    app->remove_option(app->get_option(jsonFlag));
    flag(jsonFlag, value, "Print the result as JSON");
}

void Command::choice(const std::string& name, std::string& value, const std::string& help,
                     const std::vector<std::string>& choices) const
{
    addOption(*app, name, value, help)->required()->check(CLI::IsMember(choices));
}

void Command::number(const std::string& name, std::uint32_t& value, const std::string& help,
                     std::uint32_t least, std::uint32_t most) const
{
    addOption(*app, name, value, help)->check(CLI::Range(least, most));
}

void Command::onRun(std::function<void()> action) const
{
    app->callback(std::move(action));
}

int runCommandLine(int argc, char** argv, void (*addCommands)(const Command& root))
{
    CLI::App app{"OAuth 2.0 building blocks for server management controllers, on the command "
                 "line.",
                 "bmcoauth"};
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Print the help of every command and exit");
    app.set_version_flag("--version", BMCOAUTH_VERSION);
    app.footer("A document is read from FILE, or from standard input where FILE is left out or is "
               "\"-\".\nResults go to standard output, problems to standard error.\n\n"
               "Exit status: 0 success, 1 failure of a file, the random device or memory, 2 wrong "
               "usage,\n3 a token, key, certificate, handshake or document is refused, 4 a token "
               "has expired,\n5 an explanation is not what the library says, 6 doctor found "
               "something doubtful.");
    addCommands(Command{app});
    try
    {
        app.parse(argc, argv);
        return static_cast<int>(Exit::success);
    }
    catch (const CLI::Success& asked)
    {
        return app.exit(asked);
    }
    catch (const CLI::ParseError& error)
    {
        throw Stop{Exit::usage, firstLine(error.what()) + " (see bmcoauth --help)"};
    }
}

} // namespace bmcoauth::tool
