// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"

#include "cli/documents.hpp"
#include "cli/manual.hpp"
#include "cli/refusal.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <string_view>
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

void fill(CLI::App& app)
{
    app.name("bmcoauth");
    app.description(
        "OAuth 2.0 building blocks for server management controllers, on the command line.");
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Print the help of every command and exit");
    app.set_version_flag("--version", BMCOAUTH_VERSION);
    app.footer("A document is read from FILE, or from standard input where FILE is left out or is "
               "\"-\".\nResults go to standard output, problems to standard error.\n\n"
               "Exit status: 0 success, 1 failure of a file, the random device or memory, 2 wrong "
               "usage,\n3 a token, key, certificate, handshake or document is refused, 4 a token "
               "has expired,\n6 doctor found something doubtful.");
    addCommands(Command{app});
}

// --------------------------------------------------------------------------------- descriptions

/** Ends the help of a verb, behind the notes. */
constexpr const char* exampleMark = "Example: ";

OptionDescription describe(const CLI::Option& option)
{
    OptionDescription described;
    described.argument = option.get_positional();
    described.name = option.get_name(described.argument);
    described.help = option.get_description();
    described.takesValue = option.get_items_expected_max() > 0;
    described.required = option.get_required();
    described.repeatable = option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll ||
                           option.get_items_expected_max() > 1;
    const std::string type = option.get_type_name();
    for (std::size_t begin = 0; type.find('|') != std::string::npos && begin <= type.size();)
    {
        const std::size_t end = std::min(type.find('|', begin), type.size());
        described.choices.push_back(type.substr(begin, end - begin));
        begin = end + 1;
    }
    return described;
}

// As deep as the commands: the tool, a group, a verb.
// NOLINTNEXTLINE(misc-no-recursion)
CommandDescription describe(const CLI::App& app, std::vector<std::string> path)
{
    CommandDescription described;
    described.path = std::move(path);
    described.summary = app.get_description();
    described.notes = app.get_footer();
    const std::size_t example = described.notes.rfind(exampleMark);
    if (example != std::string::npos)
    {
        described.example = described.notes.substr(example + std::string_view{exampleMark}.size());
        described.notes.erase(example);
        described.notes.erase(described.notes.find_last_not_of('\n') + 1);
    }
    for (const CLI::App* below : app.get_subcommands([](const CLI::App*) { return true; }))
    {
        if (!below->get_group().empty())
        {
            std::vector<std::string> longer = described.path;
            longer.push_back(below->get_name());
            described.commands.push_back(describe(*below, std::move(longer)));
        }
    }
    for (const CLI::Option* option : app.get_options())
    {
        described.options.push_back(describe(*option));
    }
    return described;
}

// ----------------------------------------------------------------------------------- complaints

/** The command that was read of @p app's command line, as far as it names one. */
const CLI::App& commandRead(const CLI::App& app)
{
    const CLI::App* read = &app;
    while (!read->get_subcommands().empty())
    {
        read = read->get_subcommands().front();
    }
    return *read;
}

std::string wordsOf(const CLI::App& command)
{
    std::string words = command.get_name();
    for (const CLI::App* above = command.get_parent(); above != nullptr;
         above = above->get_parent())
    {
        words.insert(0, above->get_name() + ' ');
    }
    return words;
}

bool asksForJson(const CLI::App& command)
{
    const CLI::Option* const flag = command.get_option_no_throw(jsonFlag);
    return flag != nullptr && flag->count() > 0;
}

/** What is wrong with the command line that @p app refuses with @p error. */
std::string complaint(const CLI::App& app, const CLI::ParseError& error)
{
    // A word that is no command, or has a slip in it, is often why something is missing.
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty())
    {
        return firstLine(error.what());
    }
    const std::string& word = unknown.front();
    if (word.starts_with('-'))
    {
        return "there is no option " + word;
    }
    const bool group = commandRead(app).get_require_subcommand_min() > 0;
    return (group ? "there is no command " : "there is an argument too many, ") + word;
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
    added.footer((notes.empty() ? "" : notes + "\n") + exampleMark + "bmcoauth " + example);
    const std::string help = "Print the result as JSON, which it is without this, too";
    added.add_flag(jsonFlag, help);
    return Command{added};
}

Command Command::hiddenVerb(const std::string& name) const
{
    CLI::App& added = *app->add_subcommand(name);
    added.group("");
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
    addOption(*app, name, value, help)
        ->required()
        ->type_name(CLI::detail::join(choices, "|"))
        ->check(CLI::IsMember(choices).description(""));
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

int runCommandLine(int argc, char** argv)
{
    CLI::App app;
    fill(app);
    try
    {
        app.parse(argc, argv);
        return static_cast<int>(Exit::success);
    }
    catch (const Refused& refused)
    {
        if (asksForJson(commandRead(app)))
        {
            printJson(refused.document);
            std::cout.flush();
        }
        throw;
    }
    catch (const CLI::Success& asked)
    {
        return app.exit(asked);
    }
    catch (const CLI::ParseError& error)
    {
        throw Stop{Exit::usage,
                   complaint(app, error) + " (see " + wordsOf(commandRead(app)) + " --help)"};
    }
}

CommandDescription describeTool()
{
    CLI::App app;
    fill(app);
    return describe(app, {});
}

} // namespace bmcoauth::tool
