// SPDX-License-Identifier: Apache-2.0
#include "cli/manual.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace bmcoauth::tool
{

namespace
{

/** @p text with a backslash before each character of @p special. */
std::string escaped(const std::string& text, std::string_view special)
{
    std::string result;
    for (const char c : text)
    {
        if (special.find(c) != std::string_view::npos)
        {
            result += '\\';
        }
        result += c;
    }
    return result;
}

/** @p text as one word of bash or zsh. */
std::string inQuotes(const std::string& text)
{
    std::string result = "'";
    for (const char c : text)
    {
        result += c == '\'' ? R"('\'')" : std::string(1, c);
    }
    return result + "'";
}

/** The command and all below it. */
// NOLINTNEXTLINE(misc-no-recursion): as deep as the commands
std::vector<const CommandDescription*> allOf(const CommandDescription& command)
{
    std::vector<const CommandDescription*> all{&command};
    for (const CommandDescription& below : command.commands)
    {
        std::ranges::move(allOf(below), std::back_inserter(all));
    }
    return all;
}

bool takesValue(const OptionDescription& option)
{
    return option.argument || !option.value.empty();
}

/** Whether the value of @p option is the name of a file. */
bool isFile(const OptionDescription& option)
{
    const std::string& value = option.argument ? option.name : option.value;
    return value == "FILE" || value == "OTHER" || value == "DIRECTORY";
}

} // namespace

std::string bashCompletion(const CommandDescription& tool)
{
    std::string words;
    std::string values;
    for (const CommandDescription* command : allOf(tool))
    {
        const std::string path = joined(command->path, " ");
        words += "        " + inQuotes(path) +
                 ") words=" + inQuotes(joined(wordsBehind(*command), " ")) + " ;;\n";
        for (const OptionDescription& option : command->options)
        {
            // For an argument there is no option in front. Of several, the file counts.
            if (!option.value.empty() || isFile(option) || !option.choices.empty())
            {
                values += "        " + inQuotes(path + ' ' + (option.argument ? "" : option.name)) +
                          ") takes=" + (isFile(option) ? "file" : "word") +
                          "; choices=" + inQuotes(joined(option.choices, " ")) + " ;;\n";
            }
        }
    }
    return R"(# bash completion for bmcoauth; made by the tool from its own verbs and options

_bmcoauth_words()
{
    words= takes= choices=
    case $1 in
)" + words +
           R"(    esac
    case "$1 $2" in
)" + values +
           R"(    esac
}

_bmcoauth()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
    local words takes choices verb='' longer word other=''
    COMPREPLY=()

    # The verb: as many of the words as make one.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        longer=${verb:+$verb }$word
        _bmcoauth_words "$longer" ''
        if [[ -z $words ]]; then
            other=$word
            break
        fi
        verb=$longer
    done

    _bmcoauth_words "$verb" "$previous"
    if [[ -z $takes && $current != -* && $words == --* ]]; then
        _bmcoauth_words "$verb" ''
    fi
    if [[ -n $choices ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
    elif [[ $takes == file ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    elif [[ -n $takes ]]; then
        : # Nobody but the user knows the word.
    elif [[ $words != --* && -n $other ]]; then
        : # The word before is not a command: nothing to offer.
    elif [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -X '-*' -- "$current")
    fi
}

complete -o filenames -F _bmcoauth bmcoauth
)";
}

namespace
{

/** What _arguments of zsh takes of @p option. */
std::string zshOption(const OptionDescription& option)
{
    std::string text = option.repeatable ? "*" : "";
    text += option.argument ? ":" : option.name + '[' + escaped(option.help, "[]:\\") + ']';
    if (takesValue(option))
    {
        text += ':' + escaped(option.argument ? option.name : option.value, ":\\") + ':';
        text += isFile(option) ? "_files" : '(' + joined(option.choices, " ") + ')';
    }
    return inQuotes(text);
}

std::string fishQuoted(const std::string& text)
{
    return "'" + escaped(text, "'\\") + "'";
}

/** The line of fish for @p option of a command, for which @p condition holds. */
std::string fishOption(const OptionDescription& option, const std::string& condition)
{
    std::string line = "complete -c bmcoauth -n " + fishQuoted(condition);
    if (!option.argument)
    {
        line += " -l " + option.name.substr(2);
    }
    if (isFile(option))
    {
        line += option.argument ? " -F" : " -r -F";
    }
    else if (takesValue(option))
    {
        line += (option.argument ? " -a " : " -x -a ") + fishQuoted(joined(option.choices, " "));
    }
    return line + " -d " + fishQuoted(option.help) + '\n';
}

} // namespace

std::string zshCompletion(const CommandDescription& tool)
{
    std::string paths;
    std::string cases;
    for (const CommandDescription* command : allOf(tool))
    {
        const std::string path = inQuotes(joined(command->path, " "));
        paths += (paths.empty() ? "" : "|") + path;
        cases += "        " + path + ")\n            commands=(";
        for (const CommandDescription& below : command->commands)
        {
            cases += ' ' + inQuotes(below.path.back() + ':' + escaped(below.summary, ":\\"));
        }
        cases += " )\n            options=(";
        for (const OptionDescription& option : command->options)
        {
            cases += ' ' + zshOption(option);
        }
        cases += " ) ;;\n";
    }
    return R"(#compdef bmcoauth
# zsh completion for bmcoauth; made by the tool from its own verbs and options

_bmcoauth()
{
    local verb='' word
    local -a commands options
    local -i depth=0

    # The verb: as many of the words as make one.
    for word in ${words[2,CURRENT-1]}; do
        case ${verb:+$verb }$word in
            )" +
           paths + R"()
                verb=${verb:+$verb }$word
                depth+=1 ;;
            *) break ;;
        esac
    done

    case $verb in
)" + cases +
           R"(    esac
    if (( $#commands )) && [[ $words[CURRENT] != -* ]]; then
        (( CURRENT == depth + 2 )) && _describe command commands
    else
        shift depth words
        (( CURRENT -= depth ))
        _arguments $options
    fi
}

_bmcoauth "$@"
)";
}

std::string fishCompletion(const CommandDescription& tool)
{
    std::string lines;
    for (const CommandDescription* command : allOf(tool))
    {
        const std::string path = joined(command->path, " ");
        for (const CommandDescription& below : command->commands)
        {
            lines += "complete -c bmcoauth -n " + fishQuoted("__bmcoauth_is " + path) + " -a " +
                     below.path.back() + " -d " + fishQuoted(below.summary) + '\n';
        }
        const std::string condition =
            (command->commands.empty() ? "__bmcoauth_begins " : "__bmcoauth_is ") + path;
        for (const OptionDescription& option : command->options)
        {
            lines += fishOption(option, condition);
        }
    }
    return R"fish(# fish completion for bmcoauth; made by the tool from its own verbs and options

# Whether the words before the cursor are those given.
function __bmcoauth_is
    set -l before (commandline -opc)
    test "$before" = "$(string join ' ' bmcoauth $argv)"
end

# Whether they begin with those given.
function __bmcoauth_begins
    set -l before (commandline -opc) ''
    string match -q -- "$(string join ' ' bmcoauth $argv) *" "$before"
end

complete -c bmcoauth -f
)fish" + lines;
}

} // namespace bmcoauth::tool
