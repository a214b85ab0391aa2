// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace bmcoauth::tool
{

/** An option "--name" or an argument "NAME" of a command. */
struct OptionDescription
{
    std::string name;
    std::string value; /**< what it takes: "FILE", "pem|der|jwk"; empty for a flag or an argument */
    std::string help;
    std::vector<std::string> choices; /**< the values, or the most useful ones */
    bool argument = false;
    bool required = false;
    bool repeatable = false;
    bool common = false; /**< every verb has it */
};

/** A command as its help describes it. Is moved, never copied, since it holds others of its kind. */
struct CommandDescription
{
    CommandDescription() = default;
    CommandDescription(const CommandDescription&) = delete;
    CommandDescription& operator=(const CommandDescription&) = delete;
    CommandDescription(CommandDescription&&) = default;
    CommandDescription& operator=(CommandDescription&&) = default;
    ~CommandDescription() = default;

    std::vector<std::string> path; /**< its words, without the name of the tool */
    std::string section;           /**< the title under which its help lists it */
    std::string summary;
    std::string notes;   /**< paragraphs; lines that begin with two spaces are not wrapped */
    std::string example; /**< with the name of the tool; empty for a group */
    std::vector<OptionDescription> options;
    std::vector<CommandDescription> commands; /**< of a group, or of the tool itself */
};

/** The tool, as its command line is read. */
[[nodiscard]] CommandDescription describeTool();

/** @p words with @p separator between them. */
[[nodiscard]] std::string joined(const std::vector<std::string>& words,
                                 const std::string& separator);

/** Every verb below @p command, in order. */
[[nodiscard]] std::vector<const CommandDescription*> verbsOf(const CommandDescription& command);

/** The commands and options that may be typed behind @p command. */
[[nodiscard]] std::vector<std::string> wordsBehind(const CommandDescription& command);

/** The command as it is typed: "bmcoauth token issue". */
[[nodiscard]] std::string wordsOf(const CommandDescription& command);

/** The help of a command, wrapped to @p width columns. */
[[nodiscard]] std::string helpText(const CommandDescription& command, std::size_t width);

/** The help of a command and of every one below it. */
[[nodiscard]] std::string allHelpText(const CommandDescription& command, std::size_t width);

/** The name of the manual page of a command: "bmcoauth", "bmcoauth-token-issue". */
[[nodiscard]] std::string pageName(const CommandDescription& command);

/** The manual page (section 1, in the language of man(7)) of a verb, or of the tool itself. */
[[nodiscard]] std::string manualPage(const CommandDescription& command,
                                     const CommandDescription& tool);

// Scripts that have a shell complete the command line of the tool.
[[nodiscard]] std::string bashCompletion(const CommandDescription& tool);
[[nodiscard]] std::string fishCompletion(const CommandDescription& tool);
[[nodiscard]] std::string zshCompletion(const CommandDescription& tool);

} // namespace bmcoauth::tool
