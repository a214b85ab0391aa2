// SPDX-License-Identifier: Apache-2.0
#include "cli/manual.hpp"

#include <algorithm>
#include <functional>
#include <sstream>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

/** Where the explanations of a list begin. */
constexpr std::size_t column = 26;

/** The words of @p text in lines of @p width columns, all but the first indented, all but the last
 *  ended by @p end. */
std::string wrapped(const std::string& text, std::size_t width, std::size_t indent,
                    const std::string& end = "")
{
    std::istringstream words{text};
    std::string result;
    std::size_t used = indent;
    for (std::string word; words >> word; used += word.size())
    {
        if (result.empty())
        {
            result = word;
        }
        else if (used + 1 + word.size() + end.size() <= width)
        {
            result += ' ' + word;
            ++used;
        }
        else
        {
            result += end;
            result += '\n';
            result.append(indent, ' ').append(word);
            used = indent;
        }
    }
    return result + '\n';
}

/** An entry of a list: a name, and what there is to say about it. */
std::string entry(const std::string& name, const std::string& text, std::size_t width)
{
    std::string line = "  " + name;
    if (line.size() + 2 > column)
    {
        line += '\n';
        line.append(column, ' ');
    }
    line.resize(std::max(line.size(), column), ' ');
    return line + wrapped(text, width, column);
}

/** @p text in paragraphs; lines that begin with two spaces stay as they are. */
std::string paragraphs(const std::string& text, std::size_t width)
{
    std::istringstream lines{text};
    std::string result;
    for (std::string line; std::getline(lines, line);)
    {
        result += line.starts_with("  ") || line.empty() ? line + '\n' : wrapped(line, width, 0);
    }
    return result;
}

std::string spelled(const OptionDescription& option)
{
    return option.value.empty() ? option.name : option.name + ' ' + option.value;
}

std::string usage(const CommandDescription& command, std::size_t width)
{
    std::string text = "Usage: " + wordsOf(command);
    std::string arguments;
    for (const OptionDescription& option : command.options)
    {
        const std::string shown = spelled(option) + (option.repeatable ? "..." : "");
        if (option.argument)
        {
            arguments += option.required ? ' ' + shown : " [" + shown + ']';
        }
        else if (option.required)
        {
            text += ' ' + shown;
        }
    }
    text += command.commands.empty() ? " [OPTIONS]" + arguments : " COMMAND";
    return wrapped(text, width, std::string_view{"Usage: "}.size());
}

/** The options of @p command for which @p chosen holds, under @p title. */
std::string optionList(const std::string& title, const CommandDescription& command,
                       std::size_t width,
                       const std::function<bool(const OptionDescription&)>& chosen)
{
    std::string text;
    for (const OptionDescription& option : command.options)
    {
        if (chosen(option))
        {
            text += entry(spelled(option), option.help, width);
        }
    }
    return text.empty() ? text : '\n' + title + ":\n" + text;
}

std::string commandList(const CommandDescription& command, std::size_t width)
{
    std::string text;
    const std::string* title = nullptr;
    for (const CommandDescription& below : command.commands)
    {
        if (title == nullptr || *title != below.section)
        {
            text += '\n' + below.section + ":\n";
        }
        title = &below.section;
        std::string names;
        for (const CommandDescription& verb : below.commands)
        {
            names += (names.empty() ? ": " : ", ") + verb.path.back();
        }
        text += entry(below.path.back(), below.summary + names, width);
    }
    return text;
}

} // namespace

std::string wordsOf(const CommandDescription& command)
{
    std::string words = "bmcoauth";
    for (const std::string& word : command.path)
    {
        words += ' ' + word;
    }
    return words;
}

std::string helpText(const CommandDescription& command, std::size_t width)
{
    const bool isVerb = command.commands.empty();
    std::string text = usage(command, width) + '\n' + wrapped(command.summary + '.', width, 0);
    text += commandList(command, width);
    text += optionList("Arguments", command, width,
                       [](const OptionDescription& option) { return option.argument; });
    text += optionList("Required", command, width, [](const OptionDescription& option) {
        return option.required && !option.argument;
    });
    text += optionList("Options", command, width, [](const OptionDescription& option) {
        return !option.required && !option.argument && !option.common;
    });
    if (command.path.empty())
    {
        text += optionList("Options of every verb", *verbsOf(command).front(), width,
                           [](const OptionDescription& option) { return option.common; });
    }
    if (!command.notes.empty())
    {
        text += '\n' + paragraphs(command.notes, width);
    }
    if (isVerb)
    {
        text += "\nExample:\n  " + wrapped(command.example, width, 4, " \\");
        text +=
            '\n' + wrapped("Every verb takes --json, --color and --help, too: see bmcoauth --help.",
                           width, 0);
    }
    return text;
}

// As deep as the commands: the tool, a group, a verb.
// NOLINTNEXTLINE(misc-no-recursion)
std::string allHelpText(const CommandDescription& command, std::size_t width)
{
    std::string text = helpText(command, width);
    for (const CommandDescription& below : command.commands)
    {
        text += '\n' + allHelpText(below, width);
    }
    return text;
}

} // namespace bmcoauth::tool
