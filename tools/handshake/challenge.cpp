// SPDX-License-Identifier: Apache-2.0
#include "handshake/challenge.hpp"

#include "cli/command.hpp"

namespace bmcoauth::tool
{

ParameterList challengeFor(TextSpan types, std::uint32_t mode)
{
    return orStop(serverChallenge(types, static_cast<Proofs>(mode)),
                  "no challenge can be made by mode " + std::to_string(mode), Exit::invalid);
}

} // namespace bmcoauth::tool
