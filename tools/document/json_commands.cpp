// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"

#include <vector>

namespace bmcoauth::tool
{

namespace
{

Document readDocument(const std::string& path)
{
    return orStop(Document::parse(textOf(readObject(path))), "the document could not be read");
}

/** Prints @p document, unless the change that was made to it has failed. */
void printChanged(const Document& document, const Expected<void>& change)
{
    if (!change)
    {
        stopFor(change.error(), "the document could not be changed", Exit::failure);
    }
    print(document.view());
}

struct GetOptions
{
    std::string key;
    std::string path = "-";
    bool json = false;
};

void getMember(const GetOptions& options)
{
    const Json::Value document = readObject(options.path);
    if (!document.isMember(options.key) || document[options.key].isNull())
    {
        throw Stop{Exit::invalid, nameOf(options.path) + " has no member \"" + options.key + "\""};
    }
    const Json::Value& member = document[options.key];
    if (options.json || !member.isString())
    {
        printJson(member);
        return;
    }
    if (member.asString().find('\0') != std::string::npos)
    {
        throw Stop{Exit::invalid,
                   "\"" + options.key + "\" holds a zero byte: print it with --json"};
    }
    print(member.asString());
}

struct SetOptions
{
    std::string key;
    std::vector<std::string> values;
    std::string path = "-";
    bool array = false;
    bool remove = false;
};

void setMember(const SetOptions& options)
{
    const bool sets = options.array || !options.values.empty();
    if (sets == options.remove)
    {
        throw Stop{Exit::usage, "json set needs either --remove, or --value or --array"};
    }
    Document document = readDocument(options.path);
    if (options.remove)
    {
        printChanged(document, document.remove(options.key));
    }
    else if (options.array || options.values.size() > 1)
    {
        printChanged(document, document.setStrings(options.key, viewsOf(options.values)));
    }
    else
    {
        printChanged(document, document.setString(options.key, options.values.front()));
    }
}

struct MergeOptions
{
    std::string into;
    std::string from;
};

void merge(const MergeOptions& options)
{
    if (options.into == "-" && options.from == "-")
    {
        throw Stop{Exit::usage, "only one of the two documents can come from standard input"};
    }
    const Document from = readDocument(options.from);
    Document document = readDocument(options.into);
    printChanged(document, document.merge(from.view()));
}

} // namespace

void addJsonCommands(const Command& root)
{
    const Command group = root.group("json", "JSON documents");

    const Command get =
        group.verb("get", "Print one member of a document", "json get access_token response.json",
                   "A string is printed as it is, anything else as JSON.");
    GetOptions& getOptions = get.runs(getMember);
    get.required("KEY", getOptions.key, "Name of the member");
    get.option("FILE", getOptions.path, "Document");
    get.json(getOptions.json);

    const Command set = group.verb("set", "Set or remove one member and print the document",
                                   "json set state --value xyz request.json");
    SetOptions& setOptions = set.runs(setMember);
    set.required("KEY", setOptions.key, "Name of the member");
    set.option("FILE", setOptions.path, "Document");
    set.option("--value TEXT", setOptions.values, "Text to set; several texts make an array");
    set.flag("--array", setOptions.array, "Make an array even of a single text");
    set.flag("--remove", setOptions.remove, "Remove the member");

    const Command mergeVerb = group.verb(
        "merge", "Merge a second document into the first and print the result",
        "json merge settings.json changes.json",
        "An object of the second document is merged only into an object that the first one has "
        "already. If it has none, the member becomes null.");
    MergeOptions& mergeOptions = mergeVerb.runs(merge);
    mergeVerb.required("FILE", mergeOptions.into, "First document");
    mergeVerb.required("OTHER", mergeOptions.from, "Second document");
}

} // namespace bmcoauth::tool
