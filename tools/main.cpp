// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"

#include <exception>
#include <iostream>
#include <string>
#include <string_view>

namespace
{

using namespace bmcoauth::tool;

int report(Exit status, std::string_view message)
{
    std::cerr << "bmcoauth: " << message << '\n';
    return static_cast<int>(status);
}

/** One line of what CLI11 has to say. */
std::string firstLine(const std::string& text)
{
    return text.substr(0, text.find('\n'));
}

int run(int argc, char** argv)
{
    CLI::App app{"OAuth 2.0 building blocks for server management controllers, on the command "
                 "line.",
                 "bmcoauth"};
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Print the help of every command and exit");
    app.set_version_flag("--version", BMCOAUTH_VERSION);
    app.footer("A document is read from FILE, or from standard input where FILE is left out or is "
               "\"-\".\nResults go to standard output, problems to standard error.\n\n"
               "Exit status: 0 success, 1 failure of a file, the random device or memory, 2 wrong "
               "usage,\n3 a token, key or document is refused, 4 a token has expired.");
    addErrorCommand(app);
    addJsonCommands(app);
    addKeyCommands(app);
    addTokenCommands(app);
    try
    {
        app.parse(argc, argv);
        std::cout.flush();
        return std::cout ? static_cast<int>(Exit::success)
                         : report(Exit::failure, "cannot write to standard output");
    }
    catch (const CLI::Success& asked)
    {
        return app.exit(asked);
    }
    catch (const CLI::ParseError& error)
    {
        return report(Exit::usage, firstLine(error.what()) + " (see bmcoauth --help)");
    }
    catch (const Stop& stop)
    {
        return report(stop.status(), stop.what());
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return run(argc, argv);
    }
    catch (const std::exception& error)
    {
        return report(Exit::failure, error.what());
    }
}
