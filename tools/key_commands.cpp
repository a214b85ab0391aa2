// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path;
    bool force = false;
};

void generate(const Options& options)
{
    if (!options.force && access(options.path.c_str(), F_OK) == 0)
    {
        throw Stop{Exit::usage, options.path + " exists already: give --force to replace the key"};
    }
    if (generateECPrivateKey(options.path.c_str()) != 1)
    {
        throw Stop{Exit::failure, "cannot write a key to " + options.path};
    }
}

void check(const Options& options)
{
    if (access(options.path.c_str(), R_OK) != 0)
    {
        throw Stop{Exit::failure, "cannot read " + options.path + ": " + std::strerror(errno)};
    }
    if (validateECPrivateKey(options.path.c_str()) != 1)
    {
        throw Stop{Exit::invalid,
                   options.path + " does not hold a valid elliptic-curve private key"};
    }
    print("valid");
}

} // namespace

void addKeyCommands(CLI::App& app)
{
    CLI::App& group = addGroup(app, "key", "Make and check the key that signs tokens");
    auto options = std::make_shared<Options>();

    CLI::App& generateCommand =
        *group.add_subcommand("generate", "Make a P-256 private key file (PEM, mode 0600)");
    generateCommand.add_option("FILE", options->path, "Where to write the key")->required();
    generateCommand.add_flag("--force", options->force, "Replace a file that is there already");
    generateCommand.footer("Example: bmcoauth key generate signing.pem");
    generateCommand.callback([options] { generate(*options); });

    CLI::App& checkCommand = *group.add_subcommand("check", "Check a private key file");
    checkCommand.add_option("FILE", options->path, "Key file")->required();
    checkCommand.footer("Example: bmcoauth key check signing.pem");
    checkCommand.callback([options] { check(*options); });
}

} // namespace bmcoauth::tool
