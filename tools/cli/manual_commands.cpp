// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/manual.hpp"

#include <algorithm>
#include <fstream>

namespace bmcoauth::tool
{

namespace
{

struct CompletionOptions
{
    std::string shell;
};

void printCompletion(const CompletionOptions& options)
{
    const CommandDescription tool = describeTool();
    if (options.shell == "bash")
    {
        printBytes(bashCompletion(tool));
        return;
    }
    printBytes(options.shell == "fish" ? fishCompletion(tool) : zshCompletion(tool));
}

struct ManualOptions
{
    std::string directory;
    std::vector<std::string> pages;
};

void writePage(const std::string& file, const std::string& page)
{
    requireWritable(file);
    std::ofstream stream{file};
    stream << page;
    stream.close();
    if (!stream)
    {
        throw Stop{Exit::failure, "cannot write " + file};
    }
}

/** Writes the pages that the build lists, which must be all. */
void writeManual(const ManualOptions& options)
{
    const CommandDescription tool = describeTool();
    std::vector<const CommandDescription*> described = verbsOf(tool);
    described.push_back(&tool);
    for (const CommandDescription* command : described)
    {
        const std::string name = pageName(*command);
        if (std::ranges::find(options.pages, name) == options.pages.end())
        {
            throw Stop{Exit::usage, "the page " + name + " is not asked for"};
        }
        writePage(options.directory + "/" + name + ".1", manualPage(*command, tool));
    }
    if (options.pages.size() != described.size())
    {
        throw Stop{Exit::usage, "the list has pages of unknown verbs"};
    }
}

} // namespace

void addManualCommands(const Command& root)
{
    const Command completionVerb = root.hiddenVerb("completion");
    CompletionOptions& completionOptions = completionVerb.runs(printCompletion);
    completionVerb.choice("SHELL", completionOptions.shell, "Shell to complete for",
                          {"bash", "fish", "zsh"});

    const Command manualVerb = root.hiddenVerb("manual");
    ManualOptions& manualOptions = manualVerb.runs(writeManual);
    manualVerb.required("DIRECTORY", manualOptions.directory, "Where to write the pages");
    manualVerb.required("PAGE", manualOptions.pages, "Names of all pages");
}

} // namespace bmcoauth::tool
