// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a service's peer is told of a refusal. */

#include <bmcoauth/cpp/error.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/refusal.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/error.h>

namespace bmcoauth
{
inline namespace v1
{

/** Refusal is why a service refuses: an Error, for the log, and the one word of it that the peer
 *  may know. Every refusal of a client that tries to prove who it is has the same word. */
class Refusal : public Error
{
public:
    /** Refuses by `reason`, and tells the peer `code`; where the machine has failed, whatever the
     *  peer has asked for, OAUTH_SERVER_ERROR. */
    Refusal(oauthError code, const Error& reason) noexcept
        : Error{reason}, word{isOfMachine(reason) ? OAUTH_SERVER_ERROR : code}
    {
    }

    /** Whether memory, a file, the clock or the store has failed: nothing is known of the peer. */
    [[nodiscard]] static bool isOfMachine(const Error& reason) noexcept
    {
        constexpr int afterMachine = 600;
        return (reason.rule() >= BMCOAUTH_RULE_MEMORY_EXHAUSTED && reason.rule() < afterMachine) ||
               reason.rule() == BMCOAUTH_RULE_CHAIN_ROOT_MISSING ||
               reason.rule() == BMCOAUTH_RULE_CLIENT_STORE_FAILED;
    }

    /** What the peer is told. */
    [[nodiscard]] oauthError code() const noexcept
    {
        return word;
    }
    /** The document that tells it. */
    [[nodiscard]] Expected<Text> document() const
    {
        return errorDocument(word);
    }

private:
    oauthError word;
};

} // namespace v1
} // namespace bmcoauth
