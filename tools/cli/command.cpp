// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"

#include "cli/color.hpp"
#include "cli/documents.hpp"
#include "cli/files.hpp"
#include "cli/manual.hpp"
#include "cli/refusal.hpp"
#include "cli/suggestion.hpp"

#include <CLI/CLI.hpp>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string_view>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

constexpr const char* jsonFlag = "--json";
constexpr const char* jsonHelp = "Print the result, or the problem, as JSON";

/** One line of what CLI11 has to say. */
std::string firstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

/** The two words of "--name VALUE"; the second one is empty for an argument. */
std::pair<std::string, std::string> declared(const std::string& text)
{
    const std::size_t space = text.find(' ');
    return {text.substr(0, space), space == std::string::npos ? "" : text.substr(space + 1)};
}

/** An option with one value: given twice, it is refused. */
template <typename Value>
CLI::Option* addOption(CLI::App& app, const std::string& declaration, Value& value,
                       const std::string& help)
{
    const auto [name, type] = declared(declaration);
    return app.add_option(name, value, help)->expected(1)->type_name(type);
}

/** Has the option take one of @p choices. */
CLI::Option& limit(CLI::Option& option, const std::vector<std::string>& choices)
{
    option.type_name(CLI::detail::join(choices, "|"))
        ->check(CLI::IsMember(choices).description(""));
    return option;
}

/** An option that takes one value each time that it is given, or an argument with several. */
CLI::Option* addList(CLI::App& app, const std::string& declaration,
                     std::vector<std::string>& values, const std::string& help)
{
    const auto [name, type] = declared(declaration);
    CLI::Option* option = app.add_option(name, values, help)->type_name(type);
    if (name.starts_with('-'))
    {
        // Otherwise it would swallow the arguments behind it.
        option->expected(1)->take_all()->allow_extra_args(false);
    }
    return option;
}

// --------------------------------------------------------------------------------- descriptions

/** Ends the help of a verb, behind the notes. */
constexpr const char* exampleMark = "Example: ";

/** The group of the options that every verb has. */
constexpr const char* commonGroup = "Options of every verb";

OptionDescription describe(const CLI::Option& option)
{
    OptionDescription described;
    described.argument = option.get_positional();
    described.name = option.get_name(described.argument);
    described.help = option.get_description();
    described.required = option.get_required();
    described.common = option.get_group() == commonGroup;
    described.repeatable = option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll ||
                           option.get_items_expected_max() > 1;
    const std::string type = option.get_items_expected_max() > 0 ? option.get_type_name() : "";
    if (described.repeatable && !described.argument)
    {
        described.help += "; may be given again";
    }
    described.value = described.argument ? "" : type;
    const std::string offered = option.get_option_text().empty() ? type : option.get_option_text();
    if (offered.find('|') != std::string::npos)
    {
        described.choices = CLI::detail::split(offered, '|');
    }
    return described;
}

/** The words of @p command behind the name of the tool. */
std::vector<std::string> pathOf(const CLI::App& command)
{
    std::vector<std::string> path;
    for (const CLI::App* at = &command; at->get_parent() != nullptr; at = at->get_parent())
    {
        path.insert(path.begin(), at->get_name());
    }
    return path;
}

// As deep as the commands: the tool, a group, a verb.
// NOLINTNEXTLINE(misc-no-recursion)
CommandDescription describe(const CLI::App& app)
{
    CommandDescription described;
    described.path = pathOf(app);
    described.section = app.get_group();
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
            described.commands.push_back(describe(*below));
        }
    }
    for (const CLI::Option* option : app.get_options())
    {
        described.options.push_back(describe(*option));
    }
    return described;
}

// ----------------------------------------------------------------------------------- the tool

/** The columns of the terminal, within reason; 80 where stdout is not a terminal. */
std::size_t columns()
{
    constexpr std::size_t ofPages = 80;
    winsize size{};
    if (isatty(STDOUT_FILENO) != 1 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
    {
        return ofPages;
    }
    return size.ws_col == 0 ? ofPages
                            : std::clamp(std::size_t{size.ws_col}, ofPages - 20, ofPages + 20);
}

void fill(CLI::App& app)
{
    app.name("bmcoauth");
    app.description("OAuth 2.0 building blocks for server management controllers");
    app.require_subcommand(1);
    app.set_help_flag("-h,--help", "Print this help and exit")->group(commonGroup);
    app.set_help_all_flag("--help-all", "Print the help of every command and exit");
    app.set_version_flag(
        "--version", [] { return "bmcoauth " BMCOAUTH_VERSION "\n" + loadedFrom("libbmcoauth"); },
        "Print the versions of the tool and the library, and exit");
    app.formatter_fn([](const CLI::App* command, const std::string&, CLI::AppFormatMode mode) {
        const CommandDescription described = describe(*command);
        return mode == CLI::AppFormatMode::All ? allHelpText(described, columns())
                                               : helpText(described, columns());
    });
    app.footer("A document is read from FILE, or from standard input if FILE is left out or is "
               "\"-\". Results go to standard output, problems to standard error.\n\n"
               "Exit status:\n"
               "  0  success\n"
               "  1  failure of a file, the random device or memory\n"
               "  2  wrong usage\n"
               "  3  a token, key, certificate, handshake or document is refused\n"
               "  4  a token has expired\n"
               "  6  doctor found something doubtful\n\n"
               "bmcoauth COMMAND --help explains a command.");
    addCommands(Command{app});
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

/** The message for @p error, found while @p command was read. */
std::string complaint(const CommandDescription& command, const std::vector<std::string>& unknown,
                      const CLI::ParseError& error)
{
    // A word that is not a command, or has a slip in it, is often why something is missing.
    if (unknown.empty())
    {
        return firstLine(error.what());
    }
    const std::string& word = unknown.front();
    std::string text = "there is an argument too many, ";
    if (word.starts_with('-'))
    {
        text = "there is no option ";
    }
    else if (!command.commands.empty())
    {
        text = "there is no command ";
    }
    // Behind an equals sign there is a value.
    const std::vector<std::string> near = meant(word.substr(0, word.find('=')), command);
    return text + word +
           (near.empty() ? "" : ": did you mean " + CLI::detail::join(near, " or ") + "?");
}

/** Ends the command: @p app refuses the command line with @p error. */
int refuseLine(const CLI::App& app, const CLI::ParseError& error)
{
    const CommandDescription command = describe(commandRead(app));
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty() && !command.commands.empty())
    {
        std::cerr << helpText(command, columns());
        return static_cast<int>(Exit::usage);
    }
    throw Stop{Exit::usage,
               complaint(command, unknown, error) + " (see " + wordsOf(command) + " --help)"};
}

} // namespace

Command Command::section(const std::string& title) const
{
    Command same{*app};
    same.listedUnder = title;
    return same;
}

Command Command::group(const std::string& name, const std::string& description) const
{
    CLI::App& added = *app->add_subcommand(name, description);
    added.group(listedUnder);
    added.require_subcommand(1);
    added.footer("");
    added.get_help_ptr()->group(commonGroup);
    return Command{added};
}

Command Command::verb(const std::string& name, const std::string& description,
                      const std::string& example, const std::string& notes) const
{
    CLI::App& added = *app->add_subcommand(name, description);
    added.footer((notes.empty() ? "" : notes + "\n") + exampleMark + "bmcoauth " + example);
    added.group(listedUnder);
    added.set_help_all_flag();
    added.get_help_ptr()->group(commonGroup);
    added.add_flag(jsonFlag, jsonHelp)->group(commonGroup);
    const std::vector<std::string> times{"auto", "always", "never"};
    limit(*added.add_option_function<std::string>(
              "--color", useColor, "When to use colors (default auto: on terminals)"),
          times)
        .group(commonGroup);
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
    app->add_flag(jsonFlag, value, jsonHelp)->group(commonGroup);
}

void Command::choice(const std::string& name, std::string& value, const std::string& help,
                     const std::vector<std::string>& choices) const
{
    limit(*addOption(*app, name, value, help), choices).required();
}

void Command::offer(const std::string& name, const std::vector<std::string>& words) const
{
    // The help of the tool has no other use for this text.
    app->get_option(name)->option_text(CLI::detail::join(words, "|"));
}

void Command::number(const std::string& name, std::uint32_t& value, const std::string& help,
                     std::uint32_t least, std::uint32_t most) const
{
    addOption(*app, name, value, help)->check(CLI::Range(least, most).description(""));
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
    catch (const Quiet& quiet)
    {
        return static_cast<int>(quiet.status());
    }
    catch (const CLI::Success& asked)
    {
        return app.exit(asked);
    }
    catch (const CLI::ParseError& error)
    {
        return refuseLine(app, error);
    }
}

bool asksForJson(int argc, char** argv)
{
    // CLI11 stops at the first mistake. Only arguments follow "--".
    const std::vector<std::string_view> words{argv, argv + argc};
    const auto end = std::ranges::find(words, "--");
    return std::any_of(words.begin(), end, [](std::string_view word) {
        return word == jsonFlag || word == "--json=true";
    });
}

CommandDescription describeTool()
{
    CLI::App app;
    fill(app);
    return describe(app);
}

} // namespace bmcoauth::tool
