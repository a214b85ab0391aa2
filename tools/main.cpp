// SPDX-License-Identifier: Apache-2.0
#include "cli/color.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"

#include <unistd.h>

#include <exception>
#include <iostream>
#include <new>

namespace
{

using namespace bmcoauth::tool;

int report(Exit status, const std::string& message)
{
    // Messages contain file names and members of documents. None of them must write to the
    // terminal, or in the name of the tool on a line of its own.
    std::cerr << colored(Shade::bad, "bmcoauth:", STDERR_FILENO) << ' ' << harmless(message)
              << '\n';
    return static_cast<int>(status);
}

int run(int argc, char** argv)
{
    try
    {
        const int status = runCommandLine(argc, argv);
        std::cout.flush();
        return std::cout ? status : report(Exit::failure, "cannot write to standard output");
    }
    catch (const Stop& stop)
    {
        return report(stop.status(), stop.what());
    }
    catch (const Quiet& quiet)
    {
        std::cout.flush();
        return std::cout ? static_cast<int>(quiet.status())
                         : report(Exit::failure, "cannot write to standard output");
    }
    catch (const std::bad_alloc&)
    {
        return report(Exit::failure, "memory is exhausted");
    }
    catch (const std::exception& error)
    {
        return report(Exit::failure, error.what());
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
