// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/records.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <set>
#include <thread>

using namespace support;

namespace
{

const std::set<std::string> expectedMessages{
    "Base64 encoding the header failed", "Base64 encoding the payload failed",
    "JWT header serialization failed", "JWT payload serialization failed"};

/** The names that the loader was asked for while it finds nothing; unset: it finds what is there. */
// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): dlopen has no other place
std::optional<std::set<std::string>> notFound;

/** Generates a token with each allocation failing in turn: some of the failures are logged. */
void generateFailing()
{
    const HeaderPtr header{create_jwt_header("JWT", "ES256", nullptr)};
    const TokenPayloadPtr payload{
        create_jwt_payload("user", "id", "issuer", "1", "1", "2", nullptr, 0)};
    withEachAllocationFailing([&](FailAllocation& failure) {
        errno = EXDEV;
        const HeapText token{generateJWT(header.get(), payload.get(), nullptr, 0)};
        const int error = errno;
        failure.stop();
        // OpenSSL does without some of its memory.
        EXPECT_TRUE(token != nullptr || failure.reached());
        EXPECT_EQ(error, EXDEV);
    });
}

std::set<std::string> valuesOf(std::string_view name,
                               const std::vector<JournalEntries::Entry>& entries)
{
    std::set<std::string> values;
    for (const JournalEntries::Entry& entry : entries)
    {
        values.insert(field(entry, name));
    }
    return values;
}

} // namespace

/** In place of the loader's for every library of the process. */
extern "C" void* dlopen(const char* file, int mode)
{
    if (!notFound)
    {
        return reinterpret_cast<decltype(dlopen)*>(dlsym(RTLD_NEXT, "dlopen"))(file, mode);
    }
    notFound->insert(file);
    errno = ENOENT;
    return nullptr;
}

TEST(LogError, SendsTheFieldsThatReadersFilterBy)
{
    const JournalEntries journal;
    generateFailing();
    const std::vector<JournalEntries::Entry> entries = journal.all();
    EXPECT_EQ(valuesOf("MESSAGE", entries), expectedMessages);
    EXPECT_EQ(valuesOf("PRIORITY", entries), std::set<std::string>{"3"});
    EXPECT_EQ(valuesOf("CODE_LINE", entries), std::set<std::string>{"77"});
    EXPECT_EQ(valuesOf("CODE_FUNC", entries), std::set<std::string>{"helper_log"});
}

TEST(LogError, TransactionIsDecimalAndTheSameForOneThread)
{
    const JournalEntries journal;
    generateFailing();
    ASSERT_GE(journal.all().size(), 2U);
    const std::set<std::string> ids = valuesOf("TRANSACTION_ID", journal.all());
    ASSERT_EQ(ids.size(), 1U);
    EXPECT_EQ(ids.begin()->find_first_not_of("0123456789"), std::string::npos);
    EXPECT_NE(std::strtoull(ids.begin()->c_str(), nullptr, 10), 0U);
}

TEST(LogError, TransactionOfAnotherThreadIsAnother)
{
    const JournalEntries journal;
    generateFailing();
    std::thread{generateFailing}.join();
    EXPECT_EQ(valuesOf("TRANSACTION_ID", journal.all()).size(), 2U);
    EXPECT_EQ(valuesOf("MESSAGE", journal.all()), expectedMessages);
}

TEST(LogError, JournalThatIsNotThereIsNoFailure)
{
    for (const int error : {ENOENT, ECONNREFUSED, EAGAIN})
    {
        SCOPED_TRACE(error);
        const JournalEntries journal{error};
        generateFailing(); // which looks at results and errno
        EXPECT_TRUE(journal.all().empty());
    }
}

TEST(LogError, LibraryThatIsNotThereIsNoFailureAndIsLookedForAgain)
{
    const JournalEntries journal;
    notFound.emplace();
    generateFailing(); // which looks at results and errno
    EXPECT_EQ(notFound, std::set<std::string>{"libsystemd.so.0"});
    EXPECT_TRUE(journal.all().empty());
    notFound.reset();
    generateFailing();
    EXPECT_EQ(valuesOf("MESSAGE", journal.all()), expectedMessages);
}
