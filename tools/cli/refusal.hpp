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
    std::string subject = {}; /**< the member, file or parameter; empty where there is one only */
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

/** Ends the command, as Stop does: something is refused. With --json, `document` is printed, too. */
class Refused : public Stop
{
public:
    Refused(Exit status, const std::string& message, Json::Value refusal);

    Json::Value document;
};

/** Ends the command, as Stop does: its document is printed already. */
class Reported : public Stop
{
public:
    using Stop::Stop;
};

/** Ends the command: @p what, such as "the token is refused", for @p reason. With --json, the member
 *  @p verdict of the document is false. The status is Exit::failure if the machine failed. */
[[noreturn]] void refuse(const std::string& what, const Reason& reason,
                         const char* verdict = "valid", Exit status = Exit::invalid);

} // namespace bmcoauth::tool
