// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"

namespace bmcoauth::tool
{

void addCommands(const Command& root)
{
    addTokenCommands(root);
    addKeyCommands(root);
    addRegisterCommands(root);
    addHandshakeCommands(root);
    addEciesCommands(root);
    addCertCommands(root);
    addJwkCommands(root);
    addPrivilegesCommand(root);
    addJsonCommands(root);
    addErrorCommand(root);
    addPkiCommands(root);
    addDoctorCommand(root);
    addManualCommands(root);
}

} // namespace bmcoauth::tool
