// SPDX-License-Identifier: Apache-2.0
#include "cli/manual.hpp"

#include <algorithm>
#include <iterator>
#include <sstream>

namespace bmcoauth::tool
{

std::string joined(const std::vector<std::string>& words, const std::string& separator)
{
    std::string text;
    for (const std::string& word : words)
    {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

namespace
{

/** @p text so that roff prints it as it is. */
std::string roff(const std::string& text)
{
    std::string result;
    bool lineBegins = true;
    for (const char c : text)
    {
        if (lineBegins && (c == '.' || c == '\''))
        {
            // A line that begins so would be a request.
            result += "\\&";
        }
        lineBegins = c == '\n';
        if (c == '\\')
        {
            result += "\\e";
        }
        else if (c == '-')
        {
            // A hyphen would be broken at, and copied as another character.
            result += "\\-";
        }
        else
        {
            result += c;
        }
    }
    return result;
}

std::string bold(const std::string& text)
{
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(const std::string& text)
{
    return "\\fI" + roff(text) + "\\fR";
}

/** An option and its value. */
std::string spelled(const OptionDescription& option)
{
    std::string text = option.argument ? italic(option.name) : bold(option.name);
    if (!option.value.empty())
    {
        text += ' ';
        text += option.choices.empty() ? italic(option.value) : roff(option.value);
    }
    return text;
}

/** An option as a synopsis shows it. */
std::string synopsis(const OptionDescription& option)
{
    std::string text = spelled(option);
    if (!option.required)
    {
        text.insert(0, 1, '[');
        text += ']';
    }
    return option.repeatable ? text + "..." : text;
}

/** The paragraphs of @p notes; lines that begin with two spaces stay as they are. */
std::string paragraphs(const std::string& notes)
{
    std::istringstream lines{notes};
    std::string text;
    bool filled = true;
    for (std::string line; std::getline(lines, line);)
    {
        if (filled == line.starts_with("  "))
        {
            filled = !filled;
            text += filled ? ".fi\n" : ".nf\n";
        }
        text += line.empty() ? ".PP\n" : roff(line) + '\n';
    }
    return filled ? text : text + ".fi\n";
}

std::string section(const std::string& name)
{
    return ".SH " + name + "\n";
}

std::string header(const std::string& name, const std::string& summary)
{
    return ".TH " + name + " 1 \"\" \"bmcoauth " BMCOAUTH_VERSION "\" \"User Commands\"\n" +
           section("NAME") + roff(name) + " \\- " + roff(summary) + "\n";
}

std::string options(const std::vector<OptionDescription>& described)
{
    std::string text = section("OPTIONS");
    for (const OptionDescription& option : described)
    {
        text += ".TP\n" + spelled(option) + '\n' + roff(option.help) + '\n';
    }
    return text;
}

std::string example(const std::string& text)
{
    return text.empty() ? "" : section("EXAMPLE") + ".nf\n" + roff(text) + "\n.fi\n";
}

std::string verbPage(const CommandDescription& verb)
{
    std::string text = header(pageName(verb), verb.summary) + section("SYNOPSIS") +
                       bold("bmcoauth " + joined(verb.path, " ")) + "\n";
    for (const bool argument : {false, true})
    {
        for (const OptionDescription& option : verb.options)
        {
            if (option.argument == argument)
            {
                text += synopsis(option) + "\n";
            }
        }
    }
    text += section("DESCRIPTION") + roff(verb.summary) + ".\n";
    if (!verb.notes.empty())
    {
        text += ".PP\n" + paragraphs(verb.notes);
    }
    text += options(verb.options);
    return text + example(verb.example) + section("SEE ALSO") + bold("bmcoauth") +
           "(1), which lists the exit statuses.\n";
}

std::string toolPage(const CommandDescription& tool)
{
    std::string text = header("bmcoauth", tool.summary) + section("SYNOPSIS") + bold("bmcoauth") +
                       " " + italic("COMMAND") + " [" + italic("VERB") + "] [" + italic("OPTIONS") +
                       "]\n" + section("DESCRIPTION");
    text += paragraphs(tool.notes) + options(tool.options) + section("COMMANDS");
    for (const CommandDescription* verb : verbsOf(tool))
    {
        text += ".TP\n" + bold(pageName(*verb)) + "(1)\n" + roff(verb->summary) + "\n";
    }
    return text;
}

} // namespace

// NOLINTNEXTLINE(misc-no-recursion)
std::vector<const CommandDescription*> verbsOf(const CommandDescription& command)
{
    std::vector<const CommandDescription*> verbs;
    for (const CommandDescription& below : command.commands)
    {
        if (below.commands.empty())
        {
            verbs.push_back(&below);
        }
        else
        {
            std::ranges::move(verbsOf(below), std::back_inserter(verbs));
        }
    }
    return verbs;
}

std::vector<std::string> wordsBehind(const CommandDescription& command)
{
    std::vector<std::string> words;
    for (const CommandDescription& below : command.commands)
    {
        words.push_back(below.path.back());
    }
    for (const OptionDescription& option : command.options)
    {
        if (!option.argument)
        {
            words.push_back(option.name);
        }
    }
    return words;
}

std::string pageName(const CommandDescription& command)
{
    return command.path.empty() ? "bmcoauth" : "bmcoauth-" + joined(command.path, "-");
}

std::string manualPage(const CommandDescription& command, const CommandDescription& tool)
{
    return command.path.empty() ? toolPage(tool) : verbPage(command);
}

} // namespace bmcoauth::tool
