// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/records.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

using namespace support;

// Only the making of a token writes to the journal, and only when a part of it cannot be written.

namespace
{

/** Makes a token while the @p nth allocation fails, so that there is none; gives the errno that is
 *  left of 77. */
int errnoAfterFailure(unsigned int nth)
{
    const HeaderPtr header{create_jwt_header("JWT", "ES256", nullptr)};
    const TokenPayloadPtr payload{
        create_jwt_payload("sub", "jti", "iss", "1", "1", "2", nullptr, 0)};
    // What OpenSSL sets up for a thread must not be counted.
    EXPECT_NE(HeapText{generateJWT(header.get(), payload.get(), nullptr, 0)}, nullptr);
    errno = 77;
    FailAllocation failure{nth};
    const HeapText token{generateJWT(header.get(), payload.get(), nullptr, 0)};
    const int left = errno;
    EXPECT_TRUE(failure.reached());
    EXPECT_EQ(token, nullptr);
    EXPECT_EQ(lastRule(), "memory.exhausted");
    return left;
}

/** The first allocation whose failure is logged: the earlier ones only build the trees
 *  that are to be written. */
unsigned int firstToldFailure()
{
    const JournalEntries journal;
    unsigned int nth = 0;
    while (journal.all().empty() && nth < 1000)
    {
        errnoAfterFailure(++nth);
    }
    return nth;
}

JournalEntries::Entry oneEntry()
{
    const unsigned int nth = firstToldFailure();
    const JournalEntries journal;
    errnoAfterFailure(nth);
    const std::vector<JournalEntries::Entry> entries = journal.all();
    EXPECT_EQ(entries.size(), 1U);
    return entries.empty() ? JournalEntries::Entry{} : entries.front();
}

} // namespace

TEST(Journal, ReceivesTheMessageAndWhereItComesFrom)
{
    const JournalEntries::Entry entry = oneEntry();
    EXPECT_EQ(field(entry, "MESSAGE"), "JWT header serialization failed");
    EXPECT_EQ(field(entry, "PRIORITY"), "3");
    EXPECT_EQ(field(entry, "CODE_LINE"), "77");
    EXPECT_EQ(field(entry, "CODE_FUNC"), "helper_log");
}

TEST(Journal, ReceivesTheTransactionIdAsADecimalNumber)
{
    const std::string id = field(oneEntry(), "TRANSACTION_ID");
    EXPECT_FALSE(id.empty());
    EXPECT_EQ(id.find_first_not_of("0123456789"), std::string::npos) << id;
}

TEST(Journal, KeepsTheTransactionIdOfAThread)
{
    const std::string id = field(oneEntry(), "TRANSACTION_ID");
    EXPECT_EQ(field(oneEntry(), "TRANSACTION_ID"), id);
    std::string other;
    std::thread thread{[&] {
        other = field(oneEntry(), "TRANSACTION_ID");
    }};
    thread.join();
    EXPECT_NE(other, id);
}

TEST(Journal, LeavesErrnoAlone)
{
    const unsigned int nth = firstToldFailure();
    const JournalEntries journal;
    EXPECT_EQ(errnoAfterFailure(nth), 77);
    EXPECT_EQ(journal.all().size(), 1U);
}

TEST(Journal, MayBeAbsent)
{
    const unsigned int nth = firstToldFailure();
    const JournalEntries absent{ENOENT};
    EXPECT_EQ(errnoAfterFailure(nth), 77);
}
