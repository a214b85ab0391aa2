// SPDX-License-Identifier: Apache-2.0
#include "tools/cli/refusal.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using bmcoauth::tool::Exit;
using bmcoauth::tool::lineOf;
using bmcoauth::tool::Reason;
using bmcoauth::tool::reasonOf;

namespace
{

/** Beyond the last area of rules. */
constexpr int noRule = 10000;

constexpr bmcoauth_refusal expired{.rule = BMCOAUTH_RULE_TOKEN_EXPIRED,
                                   .index = 0,
                                   .subject = "exp",
                                   .saw = "5",
                                   .wanted = "above 7"};

Reason ruleAlone(int rule)
{
    bmcoauth_refusal refusal{};
    refusal.rule = rule;
    refusal.index = -1;
    return reasonOf(refusal);
}

/** The status with which a command ends that @p rule refuses as expired. */
Exit statusOf(int rule)
{
    try
    {
        bmcoauth::tool::refuse("it is refused", ruleAlone(rule), Exit::expired);
    }
    catch (const bmcoauth::tool::Stop& stop)
    {
        return stop.status();
    }
}

} // namespace

TEST(Reason, HasASentenceForEveryRule)
{
    // What services decide for themselves begins there; no verb does.
    constexpr int ofServices = 2000;
    int rules = 0;
    for (int rule = 0; rule < ofServices; ++rule)
    {
        if (const char* name = bmcoauth_rule_name(rule))
        {
            ++rules;
            EXPECT_NE(ruleAlone(rule).sentence, "") << name;
        }
    }
    EXPECT_GT(rules, 70);
}

TEST(Reason, IsOneLine)
{
    EXPECT_EQ(lineOf(reasonOf(expired)),
              "token.expired: the token's time is over (\"exp\", index 0, saw 5, wanted above 7); "
              "bmcoauth doctor compares the clocks");
    EXPECT_EQ(lineOf(ruleAlone(BMCOAUTH_RULE_JSON_ROOT)),
              "json.root: the JSON text is not an object");
    EXPECT_EQ(lineOf({.rule = "tool.own", .sentence = "a", .hint = "b"}), "tool.own: a; b");
}

TEST(Reason, TellsTheFieldsOfARuleThatHasNoSentence)
{
    bmcoauth_refusal refusal = expired;
    refusal.rule = noRule;
    EXPECT_EQ(lineOf(reasonOf(refusal)), "rule 10000 (\"exp\", index 0, saw 5, wanted above 7)");
}

TEST(Reason, IsADocumentOfWhatApplies)
{
    Json::Value document;
    describe(reasonOf(expired), document);
    EXPECT_EQ(document.toStyledString(), "{\n\t\"index\" : 0,\n\t\"rule\" : \"token.expired\",\n"
                                         "\t\"saw\" : \"5\",\n\t\"subject\" : \"exp\",\n"
                                         "\t\"wanted\" : \"above 7\"\n}\n");
    document = Json::Value{};
    describe(ruleAlone(BMCOAUTH_RULE_JSON_ROOT), document);
    EXPECT_EQ(document.getMemberNames(), std::vector<std::string>{"rule"});
}

TEST(Refuse, JudgesNothingWhereTheMachineFailed)
{
    for (const int rule : {BMCOAUTH_RULE_MEMORY_EXHAUSTED, BMCOAUTH_RULE_RANDOM_DEVICE,
                           BMCOAUTH_RULE_CLOCK_UNREADABLE, BMCOAUTH_RULE_FILE_UNREADABLE,
                           BMCOAUTH_RULE_FILE_UNWRITABLE, BMCOAUTH_RULE_CHAIN_ROOT_MISSING})
    {
        EXPECT_EQ(statusOf(rule), Exit::failure) << bmcoauth_rule_name(rule);
    }
    for (const int rule : {BMCOAUTH_RULE_ARGUMENT_RANGE, BMCOAUTH_RULE_JSON_SYNTAX,
                           BMCOAUTH_RULE_CHAIN_UNTRUSTED, BMCOAUTH_RULE_TOKEN_EXPIRED})
    {
        EXPECT_EQ(statusOf(rule), Exit::expired) << bmcoauth_rule_name(rule);
    }
}
