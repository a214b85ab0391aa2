// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

using namespace support;

namespace
{

constexpr const char* rootPath = "/etc/default/certs/FactorycertProdRoot.pem";
constexpr const char* markerPath = "/etc/vorn_fw";

/** What a file at @p path holds, as the library reads it; nothing at all when it cannot be read. */
std::string read(const char* path)
{
    std::string contents;
    if (std::FILE* const file = std::fopen(path, "re"); file != nullptr)
    {
        std::array<char, 64> piece{};
        const std::size_t count = std::fread(piece.data(), 1, piece.size(), file);
        contents.assign(piece.data(), count);
        std::fclose(file);
    }
    return contents;
}

std::string hex(int count)
{
    std::array<char, 35> text{};
    return issueRandomBytesInHex(text.data(), count) == 1 ? text.data() : "failed";
}

/** Sends one datagram to the journal, past the library; 0 or the error. */
int sendToJournal(std::string datagram)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    constexpr std::string_view path = "/run/systemd/journal/socket";
    path.copy(static_cast<char*>(address.sun_path), path.size());
    iovec piece{datagram.data(), datagram.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    return sendmsg(-1, &message, 0) < 0 ? errno : 0;
}

/** What the compiler cannot know to be unused, and so does not remove. */
void* volatile block = nullptr;

bool allocates(std::size_t size)
{
    block = std::malloc(size);
    const bool given = block != nullptr;
    std::free(block);
    return given;
}

} // namespace

TEST(FakeClock, StopsAtWhatItIsSetToAndGoesOnAfterwards)
{
    {
        FakeClock clock{1000};
        EXPECT_EQ(std::time(nullptr), 1000);
        clock.advance(7);
        std::time_t stored = 0;
        EXPECT_EQ(std::time(&stored), 1007);
        EXPECT_EQ(stored, 1007);
        const FakeClock younger{5};
        EXPECT_EQ(std::time(nullptr), 5);
        clock.set(6);
        EXPECT_EQ(std::time(nullptr), 6);
    }
    EXPECT_GT(std::time(nullptr), 1'700'000'000);
}

TEST(FakeClock, CanRefuseToBeBrokenDown)
{
    FakeClock clock{86400};
    const std::time_t now = std::time(nullptr);
    std::tm date{};
    ASSERT_NE(gmtime_r(&now, &date), nullptr);
    EXPECT_EQ(date.tm_mday, 2);
    clock.failBreakingDown();
    EXPECT_EQ(gmtime_r(&now, &date), nullptr);
}

TEST(FakeClock, LocalZoneIsUtc)
{
    EXPECT_EQ(get_seconds_from_epoch(1'234'567'890), 1'234'567'890U);
}

TEST(FakeRandom, GivesItsBytesToTheLibrary)
{
    const FakeRandom random{"\x01\x02\xFF"};
    EXPECT_EQ(hex(4), "0x0102ff01");
    EXPECT_EQ(hex(2), "0x02ff");
    EXPECT_EQ(random.opens(), 2U);
    EXPECT_EQ(random.reads(), 2U);
    EXPECT_EQ(random.bytesAskedFor(), 6U);
}

TEST(FakeRandom, GivesZerosWhenNothingElseIsSaid)
{
    const FakeRandom random;
    EXPECT_EQ(hex(16), "0x00000000000000000000000000000000");
}

TEST(FakeRandom, MachineAnswersAgainAfterwards)
{
    {
        const FakeRandom random;
    }
    EXPECT_NE(hex(16), hex(16));
}

TEST(FakeRandom, FailsWhereItIsToldTo)
{
    FakeRandom random;
    const std::size_t before = openDescriptors();
    random.failOpening(EACCES, {.after = 1, .number = 1});
    EXPECT_EQ(hex(1), "0x00");
    EXPECT_EQ(hex(1), "failed");
    EXPECT_EQ(random.reads(), 1U);
    EXPECT_EQ(hex(1), "0x00");
    random.failReading(EINTR, {.number = 1});
    EXPECT_EQ(hex(1), "failed");
    EXPECT_EQ(hex(1), "0x00");
    random.shortenReading(1);
    EXPECT_EQ(hex(8), "failed");
    EXPECT_EQ(hex(8), "failed");
    EXPECT_EQ(openDescriptors(), before);
}

TEST(FakeRandom, SetsTheErrorItIsToldTo)
{
    FakeRandom random;
    random.failReading(EIO);
    const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(device, 0);
    char byte = 'x';
    errno = 0;
    EXPECT_EQ(::read(device, &byte, 1), -1);
    EXPECT_EQ(errno, EIO);
    close(device);
    random.failOpening(EMFILE);
    EXPECT_EQ(open("/dev/urandom", O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(errno, EMFILE);
}

TEST(FakeFiles, PutsFilesWhereTheMachineHasNone)
{
    {
        FakeFiles files;
        files.put(rootPath, "first\nsecond");
        EXPECT_EQ(read(rootPath), "first\nsecond");
        EXPECT_EQ(read(rootPath), "first\nsecond");
        EXPECT_EQ(access(rootPath, F_OK), 0);
        EXPECT_EQ(open(rootPath, O_WRONLY | O_CLOEXEC), -1);
        EXPECT_EQ(errno, EROFS);
        files.put(rootPath, "");
        EXPECT_EQ(access(rootPath, F_OK), 0);
        EXPECT_EQ(read(rootPath), "");
    }
    EXPECT_EQ(std::fopen(rootPath, "re"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(access(rootPath, F_OK), -1);
}

TEST(FakeFiles, FailsAsToldTo)
{
    FakeFiles files;
    files.fail(rootPath, EMFILE);
    EXPECT_EQ(std::fopen(rootPath, "re"), nullptr);
    EXPECT_EQ(errno, EMFILE);
    files.failReading(rootPath);
    std::FILE* const file = std::fopen(rootPath, "re");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(std::fgetc(file), EOF);
    EXPECT_NE(std::ferror(file), 0);
    std::fclose(file);
}

TEST(FakeFiles, LeavesOtherFilesToTheMachine)
{
    FakeFiles files;
    files.put(rootPath, "root");
    const TemporaryDirectory directory;
    const std::string path = directory / "file";
    const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(write(descriptor, "abc", 3), 3);
    close(descriptor);
    EXPECT_EQ(read(path.c_str()), "abc");
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(FakeFiles, TellsWhatWasOpened)
{
    const FakeFiles files;
    const TemporaryDirectory directory;
    const std::string path = directory / "file";
    close(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640));
    std::fclose(std::fopen(path.c_str(), "r")); // NOLINT: without close-on-exec on purpose
    const std::vector<Opening> openings = files.openings();
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[0].path, path);
    EXPECT_TRUE(openings[0].closeOnExec);
    EXPECT_TRUE(openings[0].forWriting);
    EXPECT_EQ(openings[0].mode, 0640U);
    EXPECT_EQ(openings[1].path, path);
    EXPECT_FALSE(openings[1].closeOnExec);
    EXPECT_FALSE(openings[1].forWriting);
}

TEST(MarkerFile, IsThereWhileAlive)
{
    EXPECT_EQ(isDeviceVorn(), 0);
    {
        const MarkerFile marker;
        EXPECT_EQ(isDeviceVorn(), 1);
        EXPECT_EQ(access(markerPath, R_OK), -1);
        EXPECT_EQ(errno, EACCES);
    }
    EXPECT_EQ(isDeviceVorn(), 0);
}

TEST(FailAllocation, FailsTheNthOfEachKind)
{
    {
        FailAllocation failure{1};
        const bool given = allocates(8);
        const bool reached = failure.reached();
        EXPECT_FALSE(given);
        EXPECT_TRUE(reached);
    }
    {
        FailAllocation failure{2};
        void* const first = std::calloc(1, 8);
        void* const second = std::realloc(first, 1000);
        const int error = errno;
        failure.stop();
        EXPECT_NE(first, nullptr);
        EXPECT_EQ(second, nullptr);
        EXPECT_EQ(error, ENOMEM);
        std::free(second == nullptr ? first : second);
    }
    {
        FailAllocation failure{1};
        char* const copy = strdup("text");
        EXPECT_TRUE(failure.reached());
        EXPECT_EQ(copy, nullptr);
        std::free(copy);
    }
    {
        FailAllocation failure{1};
        bool thrown = false;
        try
        {
            // Volatile, or an optimising compiler would leave the pair out.
            int* const volatile made = new int{1};
            delete made;
        }
        catch (const std::bad_alloc&)
        {
            thrown = true;
        }
        EXPECT_TRUE(failure.reached());
        EXPECT_TRUE(thrown);
    }
}

TEST(FailAllocation, FailsOnceOrFromThenOn)
{
    {
        FailAllocation failure{2};
        const std::array given{allocates(8), allocates(8), allocates(8)};
        EXPECT_TRUE(failure.reached());
        EXPECT_EQ(given, (std::array{true, false, true}));
    }
    {
        FailAllocation failure{2, FailAllocation::fromThenOn};
        const std::array given{allocates(8), allocates(8), allocates(8)};
        EXPECT_TRUE(failure.reached());
        EXPECT_EQ(given, (std::array{true, false, false}));
    }
    FailAllocation failure{2};
    const bool given = allocates(8);
    EXPECT_FALSE(failure.reached());
    EXPECT_TRUE(given);
}

TEST(FailAllocation, LeavesOtherThreadsAlone)
{
    std::atomic<bool> armed = false;
    bool given = false;
    std::thread other{[&] {
        armed.wait(false);
        given = allocates(8);
    }};
    FailAllocation failure{1};
    armed = true;
    armed.notify_one();
    other.join();
    EXPECT_FALSE(failure.reached());
    EXPECT_TRUE(given);
}

TEST(FailAllocation, DoesNotCountWhatTheFakesAllocate)
{
    FakeFiles files;
    files.put(rootPath, std::string(100, 'x'));
    FailAllocation failure{1};
    const int descriptor = open(rootPath, O_RDONLY | O_CLOEXEC);
    EXPECT_FALSE(failure.reached());
    EXPECT_GE(descriptor, 0);
    close(descriptor);
}

TEST(FailAllocation, ReachesAllocationsOfTheLibraryAndOfWhatItUses)
{
    TextList list{"a"};
    FailAllocation inLibrary{1};
    const StringArray copy{set_char_array(list)};
    EXPECT_TRUE(inLibrary.reached());
    unsigned int runs = 0;
    withEachAllocationFailing([&](FailAllocation& failure) {
        const HeapText document{
            write_oauth_error(OAUTH_INVALID_REQUEST, "description", nullptr, nullptr)};
        const bool reached = failure.reached();
        EXPECT_EQ(document == nullptr, reached);
        ++runs;
    });
    EXPECT_GT(runs, 5U);
}

TEST(FailAllocation, FailsWhatTheCLibraryAllocatesForItsCaller)
{
    char* text = nullptr;
    FailAllocation printed{1};
    const int length = asprintf(&text, "%d", 4711);
    EXPECT_TRUE(printed.reached());
    EXPECT_EQ(length, -1);
    void* given = nullptr;
    FailAllocation aligned{1};
    const int error = posix_memalign(&given, 64, 64);
    EXPECT_TRUE(aligned.reached());
    EXPECT_EQ(error, ENOMEM);
    EXPECT_EQ(given, nullptr);
}

TEST(FailCall, FailsTheNthOpeningOnceOrFromThenOn)
{
    FakeFiles files;
    files.put(rootPath, "root");
    const auto opens = [] {
        const int descriptor = open(rootPath, O_RDONLY | O_CLOEXEC);
        const int error = errno;
        if (descriptor >= 0)
        {
            close(descriptor);
        }
        return descriptor >= 0 ? 0 : error;
    };
    const auto opensAsStream = [] {
        std::FILE* const stream = std::fopen(rootPath, "re");
        const int error = errno;
        if (stream != nullptr)
        {
            std::fclose(stream);
        }
        return stream != nullptr ? 0 : error;
    };
    {
        FailCall failure{FailCall::opening, EMFILE, 2};
        const std::array errors{opensAsStream(), opens(), opens()};
        EXPECT_TRUE(failure.reached());
        EXPECT_EQ(errors, (std::array{0, EMFILE, 0}));
    }
    {
        FailCall failure{FailCall::opening, EACCES, 2, FailAllocation::fromThenOn};
        const std::array errors{opens(), opensAsStream(), opens()};
        EXPECT_TRUE(failure.reached());
        EXPECT_EQ(errors, (std::array{0, EACCES, EACCES}));
    }
    FailCall failure{FailCall::opening, EACCES, 2};
    EXPECT_EQ(opens(), 0);
    EXPECT_FALSE(failure.reached());
    EXPECT_EQ(opens(), 0);
}

TEST(FailCall, FailsAskingForAFile)
{
    const MarkerFile marker;
    FailCall failure{FailCall::asking, EACCES, 1};
    const int refused = access("/etc/vorn_fw", F_OK);
    const int error = errno;
    EXPECT_TRUE(failure.reached());
    EXPECT_EQ(refused, -1);
    EXPECT_EQ(error, EACCES);
    EXPECT_EQ(access("/etc/vorn_fw", F_OK), 0);
}

TEST(FailCall, FailsReadingOfDevicesAndOfStreams)
{
    const FakeRandom random{"0123456789"};
    FakeFiles files;
    files.put(rootPath, "0123456789");
    const auto received = [](int error) {
        FailCall failure{FailCall::reading, error, 1};
        const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
        std::array<char, 10> bytes{};
        const ssize_t count = read(device, bytes.data(), bytes.size());
        close(device);
        EXPECT_TRUE(failure.reached());
        return count;
    };
    EXPECT_EQ(received(EINTR), -1);
    EXPECT_EQ(received(FailCall::oneByteLess), 9);
    EXPECT_EQ(received(FailCall::endOfFile), 0);

    const auto streamed = [](int error, unsigned int nth) {
        FailCall failure{FailCall::reading, error, nth};
        std::FILE* const stream = std::fopen(rootPath, "re");
        std::array<char, 20> bytes{};
        const std::size_t count = std::fread(bytes.data(), 1, bytes.size(), stream);
        const bool failed = std::ferror(stream) != 0;
        std::fclose(stream);
        EXPECT_EQ(failure.reached(), nth == 1);
        return failed ? std::string{"error"} : std::string(bytes.data(), count);
    };
    EXPECT_EQ(streamed(EIO, 0), "0123456789");
    EXPECT_EQ(streamed(EIO, 1), "error");
    EXPECT_EQ(streamed(FailCall::endOfFile, 1), "");
}

TEST(JournalEntries, KeepsFieldsInBothForms)
{
    using namespace std::string_literals;
    const JournalEntries journal;
    EXPECT_EQ(sendToJournal("MESSAGE=one=1\nPRIORITY=3\n"), 0);
    EXPECT_EQ(sendToJournal("MESSAGE\n\x05\0\0\0\0\0\0\0a\nb=c\nPRIORITY=3\n"s), 0);
    const std::vector<JournalEntries::Entry> entries = journal.all();
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(field(entries[0], "MESSAGE"), "one=1");
    EXPECT_EQ(field(entries[0], "PRIORITY"), "3");
    EXPECT_EQ(field(entries[0], "CODE_LINE"), "(0 fields CODE_LINE)");
    EXPECT_EQ(journal.messages(), (std::vector<std::string>{"one=1", "a\nb=c"}));
    EXPECT_EQ(field(entries[1], "PRIORITY"), "3");
}

TEST(JournalEntries, SendingFailsAsToldToAndAlwaysWithoutIt)
{
    {
        const JournalEntries journal{ECONNREFUSED};
        EXPECT_EQ(sendToJournal("MESSAGE=lost\n"), ECONNREFUSED);
        EXPECT_TRUE(journal.all().empty());
    }
    EXPECT_EQ(sendToJournal("MESSAGE=lost\n"), ENOENT);
}
