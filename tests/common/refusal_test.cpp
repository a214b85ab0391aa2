// SPDX-License-Identifier: Apache-2.0
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <thread>

using support::lastRefusal;

namespace
{

/** Has a call refuse: @p key is not a member of the document. */
void refuseMember(const char* key)
{
    bool value = false;
    ASSERT_EQ(get_value_bool("{}", key, &value), 0);
}

} // namespace

TEST(Refusal, IsAbsentOnAThreadThatWasRefusedNothing)
{
    std::thread([] {
        bmcoauth_refusal refusal{};
        refusal.rule = -7;
        EXPECT_EQ(bmcoauth_last_refusal(&refusal, sizeof refusal), 0);
        EXPECT_EQ(refusal.rule, -7);
    }).join();
}

TEST(Refusal, NamesTheRuleAndTheMember)
{
    refuseMember("enabled");
    bmcoauth_refusal refusal{};
    ASSERT_EQ(bmcoauth_last_refusal(&refusal, sizeof refusal), 1);
    EXPECT_EQ(refusal.rule, BMCOAUTH_RULE_JSON_MEMBER_MISSING);
    EXPECT_EQ(refusal.index, -1);
    EXPECT_STREQ(refusal.subject, "enabled");
    EXPECT_STREQ(refusal.saw, "");
    EXPECT_STREQ(refusal.wanted, "");
}

TEST(Refusal, StaysWhenALaterCallSucceeds)
{
    refuseMember("enabled");
    bool value = false;
    ASSERT_EQ(get_value_bool(R"({"a":true})", "a", &value), 1);
    EXPECT_STREQ(lastRefusal().subject, "enabled");
}

TEST(Refusal, DoesNotTakeAnErrorOfTheCallersForItsOwn)
{
    HandshakePayload nothing{};
    std::array<char, 8> buffer{};
    errno = ENOMEM;
    EXPECT_REFUSED("document.parameter-missing",
                   getChallengeValue(&nothing, "T", buffer.data(), buffer.size()));
    EXPECT_EQ(errno, ENOMEM);
    bool value = false;
    EXPECT_REFUSED("json.member-missing", get_value_bool("{}", "absent", &value));
    EXPECT_EQ(errno, ENOMEM);
}

TEST(Refusal, IsReplacedByTheNextFailure)
{
    refuseMember("enabled");
    refuseMember("ready");
    EXPECT_STREQ(lastRefusal().subject, "ready");
}

TEST(Refusal, IsNotSeenByOtherThreads)
{
    refuseMember("mine");
    std::thread([] {
        refuseMember("theirs");
        EXPECT_STREQ(lastRefusal().subject, "theirs");
    }).join();
    EXPECT_STREQ(lastRefusal().subject, "mine");
}

TEST(Refusal, IsPrintableWhateverTheTextHolds)
{
    refuseMember("a\x01\x7f\n\\\xc3z");
    EXPECT_STREQ(lastRefusal().subject, R"(a\x01\x7f\x0a\x5c\xc3z)");
}

TEST(Refusal, EndsWithThreeDotsWhereItWasCut)
{
    refuseMember("0123456789012345678901234567890123456789");
    EXPECT_STREQ(lastRefusal().subject, "0123456789012345678901234567...");
    // An escape is never cut in two.
    refuseMember("01234567890123456789012345\x01");
    EXPECT_STREQ(lastRefusal().subject, "01234567890123456789012345...");
}

TEST(Refusal, MarksAPathThatItCuts)
{
    static_cast<void>(getECKeyFromFile("/absent/4567890123456789.pem"));
    EXPECT_STREQ(lastRefusal().subject, "/absent/4567890123456789.pem");
    static_cast<void>(getECKeyFromFile("/absent/45678901234567890.pem"));
    EXPECT_STREQ(lastRefusal().subject, "...ent/45678901234567890.pem");
}

TEST(Refusal, NamesAFileByTheEndOfItsPathAndTheSystemsError)
{
    const support::TemporaryDirectory directory;
    const std::string absent = directory / "absent";
    EXPECT_REFUSED("file.unreadable", getECKeyFromFile(absent.c_str()));
    EXPECT_EQ(lastRefusal().subject, "..." + absent.substr(absent.size() - 25));
    EXPECT_STREQ(lastRefusal().saw, "No such file or directory");

    const std::string unwritable = directory / "absent/key.pem";
    EXPECT_REFUSED("file.unwritable", generateECPrivateKey(unwritable.c_str()));
    EXPECT_EQ(lastRefusal().subject, "..." + unwritable.substr(unwritable.size() - 25));
    EXPECT_STREQ(lastRefusal().saw, "No such file or directory");
}

TEST(Refusal, GivesAProgramWhatItsRecordHolds)
{
    refuseMember("enabled");
    // An older program knows the rule alone.
    bmcoauth_refusal small{};
    small.index = 77;
    ASSERT_EQ(bmcoauth_last_refusal(&small, sizeof small.rule), 1);
    EXPECT_EQ(small.rule, BMCOAUTH_RULE_JSON_MEMBER_MISSING);
    EXPECT_EQ(small.index, 77);
    EXPECT_STREQ(small.subject, "");

    // A newer one finds zeros in what this library does not know.
    struct Newer
    {
        bmcoauth_refusal known;
        std::array<unsigned char, 8> more;
    };
    Newer newer{};
    newer.more.fill(0xff);
    ASSERT_EQ(bmcoauth_last_refusal(&newer.known, sizeof newer), 1);
    EXPECT_STREQ(newer.known.subject, "enabled");
    EXPECT_EQ(newer.more, (std::array<unsigned char, 8>{}));
}

TEST(Refusal, IsNotGivenToNothing)
{
    refuseMember("enabled");
    bmcoauth_refusal refusal{};
    EXPECT_EQ(bmcoauth_last_refusal(nullptr, sizeof refusal), 0);
    EXPECT_EQ(bmcoauth_last_refusal(&refusal, sizeof(int) - 1), 0);
    EXPECT_EQ(refusal.rule, 0);
    EXPECT_STREQ(lastRefusal().subject, "enabled");
}

TEST(RuleName, IsStable)
{
    EXPECT_STREQ(bmcoauth_rule_name(BMCOAUTH_RULE_TOKEN_EXPIRED), "token.expired");
    EXPECT_STREQ(bmcoauth_rule_name(BMCOAUTH_RULE_ARGUMENT_NULL), "argument.null");
    EXPECT_STREQ(bmcoauth_rule_name(1305), "token.expired");
}

TEST(RuleName, IsNullForWhatIsNotARule)
{
    for (const int number : {-1, 0, 1, 100, 2147483647, -2147483647 - 1})
    {
        EXPECT_EQ(bmcoauth_rule_name(number), nullptr) << number;
    }
}
