// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

// Only command.cpp includes CLI11: compiling it takes longer than all the rest of a verb.
namespace CLI // NOLINT(readability-identifier-naming): theirs
{
class App;
} // namespace CLI

namespace bmcoauth::tool
{

/** The exit statuses of the tool, part of its interface. */
enum class Exit : int
{
    success = 0,
    failure = 1,  /**< a file, the random device or memory failed */
    usage = 2,    /**< the command line is wrong, or lacks something that is needed */
    invalid = 3,  /**< a token, key, certificate, handshake or document is refused */
    expired = 4,  /**< a token's time is over */
    doubtful = 6, /**< nothing is wrong, but something is not as it should be */
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

/** Ends the command with a status, where what was printed says it all. */
class Quiet : public std::exception
{
public:
    explicit Quiet(Exit status) noexcept : exitStatus{status}
    {
    }

    [[nodiscard]] Exit status() const noexcept
    {
        return exitStatus;
    }

private:
    Exit exitStatus;
};

/** A command of the tool: a group of commands such as `key`, or a verb such as `key check`. */
class Command
{
public:
    explicit Command(CLI::App& parsed) : app{&parsed}
    {
    }

    /** A group of commands, which asks for one of them. */
    [[nodiscard]] Command group(const std::string& name, const std::string& description) const;

    /** A verb. The example, without the tool's name, ends its help; notes stand before it. */
    [[nodiscard]] Command verb(const std::string& name, const std::string& description,
                               const std::string& example, const std::string& notes = "") const;

    /** A verb that no help mentions, for those who build and install the tool. */
    [[nodiscard]] Command hiddenVerb(const std::string& name) const;

    /** Has the verb run @p action, on options that live as long as the command line. */
    template <typename Options>
    std::remove_const_t<Options>& runs(void (*action)(Options&)) const
    {
        auto options = std::make_shared<std::remove_const_t<Options>>();
        onRun([action, options] { action(*options); });
        return *options;
    }

    // An option is named "--name" and an argument "NAME". Neither has to be given unless it is
    // called required; what may be given several times is kept in a list.
    void option(const std::string& name, std::string& value, const std::string& help) const;
    void option(const std::string& name, std::optional<std::string>& value,
                const std::string& help) const;
    void option(const std::string& name, std::vector<std::string>& values,
                const std::string& help) const;
    void required(const std::string& name, std::string& value, const std::string& help) const;
    void required(const std::string& name, std::vector<std::string>& values,
                  const std::string& help) const;
    void flag(const std::string& name, bool& value, const std::string& help) const;

    /** The flag --json, which every verb has: @p value tells whether it was given. A verb that does
     *  not ask prints JSON, or nothing, in any case. */
    void json(bool& value) const;

    /** An option that takes one of @p choices. */
    void choice(const std::string& name, std::string& value, const std::string& help,
                const std::vector<std::string>& choices) const;

    /** A number from @p least to @p most. */
    void number(const std::string& name, std::uint32_t& value, const std::string& help,
                std::uint32_t least = 0, std::uint32_t most = UINT32_MAX) const;

private:
    void onRun(std::function<void()> action) const;

    CLI::App* app;
};

/** Reads the command line and runs what it says. Gives the exit status; what is wrong with the
 *  command line is a Stop. */
int runCommandLine(int argc, char** argv);

/** Adds every command of the tool. */
void addCommands(const Command& root);

void addCertCommands(const Command& root);
void addDelegatedCommand(const Command& tokens);
void addDoctorCommand(const Command& root);
void addEciesCommands(const Command& root);
void addErrorCommand(const Command& root);
void addHandshakeCommands(const Command& root);
void addJsonCommands(const Command& root);
void addJwkCommands(const Command& root);
void addKeyCommands(const Command& root);
void addKeyFormCommands(const Command& keys);
void addManualCommands(const Command& root);
void addPkiCommands(const Command& root);
void addPrivilegesCommand(const Command& root);
void addRegisterCommands(const Command& root);
void addTokenCommands(const Command& root);
void addTokenConversion(const Command& tokens);

} // namespace bmcoauth::tool
