// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/command.hpp"

#include <bmcoauth/cpp/refusal.hpp>
#include <bmcoauth/refusal.h>

#include <json/value.h>

#include <string>

namespace bmcoauth::tool
{

/** Why something is refused, in words. */
struct Reason
{
    /** The stable name of the rule. "tool." begins the rules of the command itself. */
    std::string rule;
    std::string sentence;
    std::string hint = {};    /**< what to do about it; often empty */
    std::string subject = {}; /**< the member, file or parameter; empty if there is only one */
    std::string saw = {};
    std::string wanted = {};
    int index = -1;       /**< which key, certificate or proof, from 0 */
    bool machine = false; /**< memory, a file or a device failed: nothing was judged */
};

/** Puts @p refusal into words. */
[[nodiscard]] Reason reasonOf(const bmcoauth_refusal& refusal);
/** Puts @p error into words. */
[[nodiscard]] Reason reasonOf(const Error& error);

/** @p reason in one line: the rule, the sentence, what was seen and wanted, the hint. */
[[nodiscard]] std::string lineOf(const Reason& reason);

/** Adds @p reason to @p document, with the members that apply: "rule", "subject", "index", "saw" and
 *  "wanted". */
void describe(const Reason& reason, Json::Value& document);

/** Ends the command, as Stop does. The document of the problem has @p found as further members. */
class Refused : public Stop
{
public:
    Refused(Exit status, const std::string& message, Json::Value found, bool printed = false);

    Json::Value members;
    bool alwaysPrinted; /**< the document is printed without --json, too */
};

/** Ends the command: @p what, such as "the token is refused", for @p reason. The status is
 *  Exit::failure if the machine failed. */
[[noreturn]] void refuse(const std::string& what, const Reason& reason,
                         Exit status = Exit::invalid);

/** What --json prints of a command that ends with @p status because of @p reason: "verdict",
 *  "reason" and @p members. */
[[nodiscard]] Json::Value problemDocument(Exit status, const std::string& reason,
                                          Json::Value members);

} // namespace bmcoauth::tool
