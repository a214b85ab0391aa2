// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fixtures.hpp"
#include "operations.hpp"

#include <map>
#include <string>
#include <vector>

/** General-purpose JOSE libraries of the distribution, where the build has found them, doing the
 *  same as a user of theirs would: the key, as PEM or as a JSON Web Key, is handed in at each call,
 *  and the claims are read. None of them verifies what it has just signed. */
namespace bench
{

struct Peer
{
    std::string name;
    /** By the name of the operation; what it cannot do is missing. */
    std::map<std::string, Work> works;
};

/** What a peer signs with: the controller's key in the forms that they take. */
struct SigningKey
{
    std::string pem;
    std::string jwk;
};
[[nodiscard]] const SigningKey& signingKey();

[[nodiscard]] Peer libjwt();
[[nodiscard]] Peer cjose();
[[nodiscard]] Peer rhonabwy();

/** Those that were found. */
[[nodiscard]] std::vector<Peer> peers();

} // namespace bench
