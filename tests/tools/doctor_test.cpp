// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "tools/device/doctor.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <string>

using bmcoauth::tool::Exit;
using bmcoauth::tool::Finding;
using support::Identity;

namespace
{

constexpr std::time_t now = 1'700'000'000;

Finding finding(const std::string& subject)
{
    for (const Finding& found : bmcoauth::tool::examineDevice({}))
    {
        if (found.subject == subject)
        {
            return found;
        }
    }
    ADD_FAILURE() << subject;
    return {};
}

/** A device on which there is nothing to find. */
struct Doctor : testing::Test
{
    Doctor()
    {
        files.put("/etc/default/certs/FactorycertProdRoot.pem", production.pem());
        files.put("/etc/default/certs/FactorycertDevRoot.pem", development.pem());
    }

    const Identity production = Identity::root("production root");
    const Identity development = Identity::root("development root");
    support::FakeFiles files;
    support::FakeClock clock{now};
};

TEST_F(Doctor, FindsNothingOnASoundDevice)
{
    EXPECT_EQ(finding("clock").text, "2023-11-14 22:13:20 UTC");
    for (const char* subject : {"clock", "production root", "development root", "marker file",
                                "random device", "OpenSSL"})
    {
        EXPECT_EQ(finding(subject).level, Exit::success) << subject << finding(subject).text;
    }
}

TEST_F(Doctor, DoubtsAClockThatWasNeverSet)
{
    clock.set(1577836800);
    EXPECT_EQ(finding("clock").level, Exit::success);
    clock.set(1577836799);
    EXPECT_EQ(finding("clock").level, Exit::doubtful);
    clock.set(0);
    EXPECT_EQ(finding("clock").text, "1970-01-01 00:00:00 UTC: it was never set");
}

TEST_F(Doctor, TellsALibraryClockThatCannotBeRead)
{
    clock.failBreakingDown();
    EXPECT_EQ(finding("library clock").level, Exit::invalid);
}

TEST_F(Doctor, TellsARandomDeviceThatFails)
{
    {
        // The same bytes, again from their start.
        const support::FakeRandom stuck;
        EXPECT_EQ(finding("random device").text, "/dev/urandom gives the same bytes again");
    }
    support::FakeRandom random{"0123456789abcdefghijklmnopqrstuv"};
    EXPECT_EQ(finding("random device").level, Exit::success);
    random.failOpening(EACCES);
    EXPECT_EQ(finding("random device").level, Exit::invalid);
    EXPECT_EQ(finding("random device").text, "/dev/urandom gives no bytes");
}

TEST_F(Doctor, DoubtsAMarkedDevice)
{
    EXPECT_EQ(finding("marker file").text, "/etc/vorn_fw is not there");
    const support::MarkerFile marker;
    EXPECT_EQ(finding("marker file").level, Exit::doubtful);
}

TEST_F(Doctor, MindsADevelopmentRootOnlyWhereItCounts)
{
    const Identity early = Identity::selfSigned({.notAfter = "20341231235959Z"});
    files.put("/etc/default/certs/FactorycertDevRoot.pem", early.pem());
    EXPECT_EQ(finding("development root").level, Exit::doubtful);
    const support::MarkerFile marker;
    EXPECT_EQ(finding("development root").level, Exit::invalid);
}

TEST_F(Doctor, TellsARootThatBeginsAfterTheJudgement)
{
    const Identity late = Identity::selfSigned({.notBefore = "20360101000000Z"});
    files.put("/etc/default/certs/FactorycertProdRoot.pem", late.pem());
    EXPECT_EQ(finding("production root").level, Exit::invalid);
    files.put("/etc/default/certs/FactorycertProdRoot.pem", "nonsense");
    EXPECT_NE(finding("production root").text.find("holds no certificate"), std::string::npos);
}

TEST(WorstOf, IsTheWorst)
{
    const Finding fine{Exit::success, "a", "b"};
    const Finding doubtful{Exit::doubtful, "a", "b"};
    const Finding bad{Exit::invalid, "a", "b"};
    EXPECT_EQ(bmcoauth::tool::worstOf({}), Exit::success);
    EXPECT_EQ(bmcoauth::tool::worstOf({fine, fine}), Exit::success);
    EXPECT_EQ(bmcoauth::tool::worstOf({fine, doubtful, fine}), Exit::doubtful);
    EXPECT_EQ(bmcoauth::tool::worstOf({bad, doubtful, fine}), Exit::invalid);
}

} // namespace
