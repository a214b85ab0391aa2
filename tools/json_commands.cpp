// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"
#include "payloads.hpp"

#include <cstring>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

/** A document that the library's editors may replace. */
class EditedDocument
{
public:
    explicit EditedDocument(const std::string& path) : text{strdup(readText(path).c_str())}
    {
        if (!text)
        {
            throw std::bad_alloc();
        }
        Json::Value document;
        if (!loadJsonDoc(text.get(), document))
        {
            throw Stop{Exit::invalid, nameOf(path) + " is not a JSON object"};
        }
    }

    /** Runs @p editor on the document and prints what comes out. */
    template <typename Editor>
    void edit(Editor editor)
    {
        char* raw = text.release();
        const int result = editor(&raw);
        text.reset(raw);
        if (result != 1)
        {
            throw Stop{Exit::failure, "the document could not be changed"};
        }
        print(text.get());
    }

private:
    RawText text;
};

struct GetOptions
{
    std::string key;
    std::string path = "-";
    bool json = false;
};

void getMember(const GetOptions& options)
{
    Json::Value document = readObject(options.path);
    char* raw = nullptr;
    if (!options.json && json_to_char(document, options.key.c_str(), &raw) == 1)
    {
        print(RawText{raw}.get());
        return;
    }
    if (!document.isMember(options.key) || document[options.key].isNull())
    {
        throw Stop{Exit::invalid, nameOf(options.path) + " has no member \"" + options.key + "\""};
    }
    printJson(document[options.key]);
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
    EditedDocument document{options.path};
    if (!options.array && options.values.size() < 2)
    {
        const char* value = options.remove ? nullptr : options.values.front().c_str();
        document.edit(
            [&](char** text) { return set_value_char(text, options.key.c_str(), value); });
        return;
    }
    TextList values{options.values};
    document.edit(
        [&](char** text) { return set_value_chararray(text, options.key.c_str(), values.data()); });
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
    const std::string from = json_fastWriter(readObject(options.from));
    EditedDocument document{options.into};
    document.edit([&](char** text) { return merge_doc(text, from.c_str()); });
}

} // namespace

void addJsonCommands(const Command& root)
{
    const Command group = root.group("json", "Read and change JSON documents");

    const Command get = group.verb("get", "Print one member: a string as it is, else JSON",
                                   "json get access_token response.json");
    GetOptions& getOptions = get.runs(getMember);
    get.required("KEY", getOptions.key, "Name of the member");
    get.option("FILE", getOptions.path, "Document");
    get.json(getOptions.json);

    const Command set = group.verb("set", "Set or remove one member, print the document",
                                   "json set state --value xyz request.json");
    SetOptions& setOptions = set.runs(setMember);
    set.required("KEY", setOptions.key, "Name of the member");
    set.option("FILE", setOptions.path, "Document");
    set.option("--value", setOptions.values, "Text to set; several make an array of strings");
    set.flag("--array", setOptions.array, "Make an array, of a single value too");
    set.flag("--remove", setOptions.remove, "Remove the member");

    const Command mergeVerb = group.verb(
        "merge", "Merge a second document into the first, print the result",
        "json merge settings.json changes.json",
        "An object of the second document is merged only into an object that the first has "
        "already:\nwhere it has none, the member becomes null.");
    MergeOptions& mergeOptions = mergeVerb.runs(merge);
    mergeVerb.required("FILE", mergeOptions.into, "First document");
    mergeVerb.required("OTHER", mergeOptions.from, "Second document");
}

} // namespace bmcoauth::tool
