// SPDX-License-Identifier: Apache-2.0
#include "cli/color.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/refusal.hpp"

#include <unistd.h>

#include <exception>
#include <iostream>
#include <new>

namespace
{

using namespace bmcoauth::tool;

/** Says why the command ends with @p status: on stderr, and with @p json in a document on stdout. */
int report(bool json, Exit status, const std::string& reason,
           const Json::Value& members = Json::objectValue)
{
    // Messages hold file names and members of documents. None of them may control the terminal, or
    // look like a message of the tool on a line of its own.
    const std::string message = harmless(reason);
    std::cerr << colored(Shade::bad, "bmcoauth:", STDERR_FILENO) << ' ' << message << '\n';
    if (json)
    {
        // The exit status counts even if nothing can be written.
        std::cout << textOf(problemDocument(status, message, members)) << '\n' << std::flush;
    }
    return static_cast<int>(status);
}

int run(int argc, char** argv)
{
    const bool json = asksForJson(argc, argv);
    try
    {
        const int status = runCommandLine(argc, argv);
        flushOutput();
        return status;
    }
    catch (const Refused& refused)
    {
        return report(json || refused.alwaysPrinted, refused.status(), refused.what(),
                      refused.members);
    }
    catch (const Stop& stop)
    {
        return report(json, stop.status(), stop.what());
    }
    catch (const std::bad_alloc&)
    {
        return report(json, Exit::failure, "memory is exhausted");
    }
    catch (const std::exception& error)
    {
        return report(json, Exit::failure, error.what());
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return run(argc, argv);
    }
    catch (...)
    {
        return static_cast<int>(Exit::failure);
    }
}
