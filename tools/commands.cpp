// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"

namespace bmcoauth::tool
{

void addCommands(const Command& root)
{
    const Command tokens = root.section("Tokens");
    addTokenCommands(tokens);
    addPrivilegesCommand(tokens);
    const Command keys = root.section("Keys and certificates");
    addKeyCommands(keys);
    addJwkCommands(keys);
    addCertCommands(keys);
    addPkiCommands(keys);
    const Command registration = root.section("Registration");
    addRegisterCommands(registration);
    addHandshakeCommands(registration);
    addEciesCommands(root.section("Envelopes"));
    const Command documents = root.section("Documents");
    addJsonCommands(documents);
    addErrorCommand(documents);
    addDoctorCommand(root.section("The device"));
    addManualCommands(root);
}

} // namespace bmcoauth::tool
