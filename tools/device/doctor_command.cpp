// SPDX-License-Identifier: Apache-2.0
#include "cli/color.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "device/doctor.hpp"

#include <unistd.h>

#include <filesystem>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::vector<std::string> keys;
    std::string root;
    bool json = false;
};

std::string levelName(Exit level)
{
    switch (level)
    {
        case Exit::success:
            return "ok";
        case Exit::doubtful:
            return "doubtful";
        default:
            return "bad";
    }
}

Shade shadeOf(Exit level)
{
    switch (level)
    {
        case Exit::success:
            return Shade::good;
        case Exit::doubtful:
            return Shade::doubtful;
        default:
            return Shade::bad;
    }
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

void examine(const Options& options)
{
    if (!options.root.empty() && !std::filesystem::is_directory(options.root))
    {
        throw Stop{Exit::failure, "--root takes a folder, not " + options.root};
    }
    const std::vector<Finding> findings = options.root.empty()
                                              ? examineDevice(options.keys)
                                              : examineImage(options.root, options.keys);
    const Exit worst = worstOf(findings);
    Json::Value document;
    if (!options.json)
    {
        print(padded("level", 10) + padded("subject", 18) + "finding");
    }
    for (const Finding& finding : findings)
    {
        Json::Value entry;
        entry["level"] = levelName(finding.level);
        entry["subject"] = finding.subject;
        entry["text"] = harmless(finding.text);
        document["findings"].append(entry);
        if (!options.json)
        {
            print(colored(shadeOf(finding.level), padded(levelName(finding.level), 10),
                          STDOUT_FILENO) +
                  padded(finding.subject, 18) + harmless(finding.text));
        }
    }
    document["verdict"] = levelName(worst);
    if (options.json)
    {
        printJson(document);
    }
    if (worst != Exit::success)
    {
        throw Quiet{worst};
    }
}

} // namespace

void addDoctorCommand(const Command& root)
{
    const Command verb = root.verb(
        "doctor", "Examine everything on this device that the library depends on",
        "doctor --key signing.pem",
        "Looks at the clock, the library's clock, the time zone, the factory roots, the marker "
        "file, the given key files, the random device, the journal and the libraries. Each is ok, "
        "doubtful or bad. The exit status is that of the worst: 0, 6 or 3.\n\n"
        "With --root, looks at the time zone, the roots, the marker file and the key files of an "
        "image: nothing else can be seen there.");
    Options& options = verb.runs(examine);
    verb.option("--key FILE", options.keys, "Private key file to look at");
    verb.option("--root DIRECTORY", options.root,
                "Folder with the files of a device: look at them, not at this device");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
