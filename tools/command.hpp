// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>

#include <stdexcept>
#include <string>

namespace bmcoauth::tool
{

/** The exit statuses of the tool, part of its interface. */
enum class Exit : int
{
    success = 0,
    failure = 1, /**< a file, the random device or memory failed */
    usage = 2,   /**< the command line is wrong, or lacks something that is needed */
    invalid = 3, /**< a token, key or document is refused */
    expired = 4, /**< a token's time is over */
};

/** Ends the command: the message goes to stderr in one line, the status to the shell. */
class Stop : public std::runtime_error
{
public:
    Stop(Exit status, const std::string& message) : std::runtime_error{message}, exitStatus{status}
    {
    }

    [[nodiscard]] Exit status() const noexcept
    {
        return exitStatus;
    }

private:
    Exit exitStatus;
};

/** A group of subcommands, such as `key`, that asks for one of its own. */
inline CLI::App& addGroup(CLI::App& parent, const std::string& name, const std::string& description)
{
    CLI::App& group = *parent.add_subcommand(name, description);
    group.require_subcommand(1);
    return group;
}

void addErrorCommand(CLI::App& app);
void addJsonCommands(CLI::App& app);
void addKeyCommands(CLI::App& app);
void addTokenCommands(CLI::App& app);

} // namespace bmcoauth::tool
