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
    doubtful = 6, /**< nothing is bad, but something is doubtful */
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

    /** The same command, whose next groups and verbs the help of the tool lists under @p title. */
    [[nodiscard]] Command section(const std::string& title) const;

    /** A group of commands. Without one of them it prints its help. */
    [[nodiscard]] Command group(const std::string& name, const std::string& description) const;

    /** A verb. Its help ends with the notes and the example, which is given without the tool's name.
     *  An empty line separates the paragraphs of the notes. */
    [[nodiscard]] Command verb(const std::string& name, const std::string& description,
                               const std::string& example, const std::string& notes = "") const;

    /** A verb that no help mentions: the build and the installation of the tool call it. */
    [[nodiscard]] Command hiddenVerb(const std::string& name) const;

    /** Has the verb run @p action, on options that live as long as the command line. */
    template <typename Options>
    std::remove_const_t<Options>& runs(void (*action)(Options&)) const
    {
        auto options = std::make_shared<std::remove_const_t<Options>>();
        onRun([action, options] { action(*options); });
        return *options;
    }

    // An option is declared as "--name VALUE", a flag as "--name", an argument as "NAME". All are
    // optional but those that are called required. A list may be given several times.
    void option(const std::string& name, std::string& value, const std::string& help) const;
    void option(const std::string& name, std::optional<std::string>& value,
                const std::string& help) const;
    void option(const std::string& name, std::vector<std::string>& values,
                const std::string& help) const;
    void required(const std::string& name, std::string& value, const std::string& help) const;
    void required(const std::string& name, std::vector<std::string>& values,
                  const std::string& help) const;
    void flag(const std::string& name, bool& value, const std::string& help) const;

    /** The flag --json, which every verb has: sets @p value if it is given. Verbs without a call of
     *  this always print JSON, or nothing. */
    void json(bool& value) const;

    /** A required option, or argument, that takes one of @p choices; declared without a value. */
    void choice(const std::string& name, std::string& value, const std::string& help,
                const std::vector<std::string>& choices) const;

    /** Has shells offer @p words as values of the option or argument @p name. */
    void offer(const std::string& name, const std::vector<std::string>& words) const;

    /** A number from @p least to @p most. */
    void number(const std::string& name, std::uint32_t& value, const std::string& help,
                std::uint32_t least = 0, std::uint32_t most = UINT32_MAX) const;

private:
    void onRun(std::function<void()> action) const;

    CLI::App* app;
    std::string listedUnder = "Commands";
};

/** Reads the command line and runs what it says. Returns the exit status; a mistake in the command
 *  line is a Stop. */
int runCommandLine(int argc, char** argv);

/** Whether the command line asks for JSON, also if it is wrong otherwise. */
[[nodiscard]] bool asksForJson(int argc, char** argv);

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
