// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "refusals.hpp"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/** The device that a test program runs on: its clock, random device, files, marker, journal and
 *  memory. The test program itself defines the calls of the operating system. The dynamic linker
 *  prefers these definitions in the library, too: no test needs root or depends on the machine.
 *
 *  Each object takes effect when it is made, and puts everything back when it is destroyed. Of two
 *  alive at once, the younger one counts. Without any object the calls do what they always do,
 *  except where the machine's own state would get in: the directory of the factory roots is empty,
 *  the device's marker absent, and nothing reaches the machine's journal. */
namespace support
{

/** Which calls something happens to: every one, or `number` of them after the first `after`. */
struct Calls
{
    unsigned int after = 0;
    unsigned int number = ~0U;

    [[nodiscard]] bool include(unsigned int index) const
    {
        return index >= after && index - after < number;
    }
};

/** FakeClock stops the clock: `time` gives what it is set to, in seconds since the epoch. */
class FakeClock
{
public:
    explicit FakeClock(std::time_t seconds);
    FakeClock(const FakeClock&) = delete;
    FakeClock& operator=(const FakeClock&) = delete;
    ~FakeClock();

    void set(std::time_t seconds);
    void advance(std::time_t seconds);

    /** From now on `gmtime_r` gives null, as for a year that does not fit. */
    void failBreakingDown();

private:
    std::time_t previousSeconds;
    int previousMode;
};

/** FakeRandom is what "/dev/urandom" gives: the given bytes, again from their start when they are
 *  used up (none at all: zeros), until told to fail.
 *
 *  Only the device file is replaced; OpenSSL takes its own random numbers from elsewhere. */
class FakeRandom
{
public:
    explicit FakeRandom(std::string_view bytes = {});
    FakeRandom(const FakeRandom&) = delete;
    FakeRandom& operator=(const FakeRandom&) = delete;
    ~FakeRandom();

    /** Opening fails with `error`: ENOENT, EACCES, EMFILE... */
    void failOpening(int error, Calls calls = {});

    /** Reading fails with `error`: EIO, EINTR... */
    void failReading(int error, Calls calls = {});

    /** Reading gives `missing` bytes less than asked for. */
    void shortenReading(std::size_t missing, Calls calls = {});

    /** How often the device was opened and read so far, failing attempts included. */
    [[nodiscard]] unsigned int opens() const;
    [[nodiscard]] unsigned int reads() const;

    /** How many bytes were asked for so far. */
    [[nodiscard]] std::size_t bytesAskedFor() const;

    // What the replaced calls ask.
    [[nodiscard]] int onOpen();
    [[nodiscard]] ssize_t onRead(void* buffer, std::size_t size);

private:
    struct Failure
    {
        int error = 0;
        Calls calls{0, 0};
    };

    mutable std::mutex mutex;
    std::string source;
    std::size_t position = 0;
    Failure openFailure;
    Failure readFailure;
    std::size_t missingBytes = 0;
    Calls shortReads{0, 0};
    unsigned int openCount = 0;
    unsigned int readCount = 0;
    std::size_t byteCount = 0;
    FakeRandom* previous;
};

/** One file that was opened while a FakeFiles is alive, whether it was there or not. */
struct Opening
{
    std::string path;
    bool closeOnExec = false;
    bool forWriting = false;
    /** The mode that a created file is given; 0666 for `fopen`. */
    mode_t mode = 0;
};

/** FakeFiles puts files of the device at absolute paths, without touching those of the machine.
 *  Files can be read, not written: a test writes into a TemporaryDirectory. "/dev/full" is a file
 *  that can be opened but never written. */
class FakeFiles
{
public:
    FakeFiles();
    FakeFiles(const FakeFiles&) = delete;
    FakeFiles& operator=(const FakeFiles&) = delete;
    ~FakeFiles();

    /** There is a file at `path` with these bytes. */
    void put(const std::string& path, std::string contents);

    /** Opening `path`, or asking whether it exists, fails with `error`: ENOENT, EACCES, EMFILE...
     */
    void fail(const std::string& path, int error);

    /** `path` can be opened, but each read fails with EISDIR. */
    void failReading(const std::string& path);

    /** Every file opened so far, in order. */
    [[nodiscard]] std::vector<Opening> openings() const;

    /** What the replaced calls ask: a descriptor, or -1 with errno set, or `notMapped`. */
    static constexpr int notMapped = -2;
    [[nodiscard]] int onOpen(const Opening& opening);
    [[nodiscard]] int onAccess(const char* path);

private:
    struct File
    {
        std::string contents;
        int error = 0;
        bool readable = true;
    };

    mutable std::mutex mutex;
    std::map<std::string, File, std::less<>> files;
    std::vector<Opening> opened;
    FakeFiles* previous;
};

/** MarkerFile: the device's marker file exists while this is alive. It is there, but may not be
 *  read, so asking for more than its existence is answered with EACCES. */
class MarkerFile
{
public:
    MarkerFile();
    MarkerFile(const MarkerFile&) = delete;
    MarkerFile& operator=(const MarkerFile&) = delete;
    ~MarkerFile();
};

/** What FAULTS_STEP in the environment asks for, 1 without it: slow runs fail every nth allocation of
 *  a loop that says so. */
[[nodiscard]] unsigned int faultStep();

/** FailAllocation makes the `nth` allocation of this thread fail, whoever makes it. It counts from 1,
 *  from its construction on; 0 fails none. Other threads are not touched. `onceOnly` lets later
 *  allocations succeed; with `fromThenOn` memory stays exhausted.
 *
 *  Allocations are malloc, calloc, realloc, aligned_alloc, posix_memalign, strdup, strndup, asprintf
 *  and new.
 *
 *  Use OpenSSL once before, see withEachAllocationFailing. GoogleTest allocates too: ask `reached`
 *  before the first expectation. */
class FailAllocation
{
public:
    enum Extent
    {
        onceOnly,
        fromThenOn
    };

    explicit FailAllocation(unsigned int nth, Extent extent = onceOnly);
    FailAllocation(const FailAllocation&) = delete;
    FailAllocation& operator=(const FailAllocation&) = delete;
    ~FailAllocation();

    /** Whether an allocation failed. Ends the failing and the counting. */
    [[nodiscard]] bool reached();

    /** Ends the failing and the counting. */
    void stop();

private:
    bool failed = false;
    bool armed = true;
};

/** Runs `body(failure)` without a failing allocation, then with a failure of the first one, the
 *  second, and so on, until a run no longer reaches the failure. `body` asks `failure.reached()`
 *  and checks each case. At the beginning of each run, the last refusal is a planted one.
 *
 *  The run ahead of the others is for what OpenSSL sets up at its first use: if that fails once, it
 *  is never tried again, and nothing works in this process any more. */
template <typename Body>
void withEachAllocationFailing(const Body& body,
                               FailAllocation::Extent extent = FailAllocation::onceOnly)
{
    bool more = true;
    for (unsigned int nth = 0; more; ++nth)
    {
        plantRefusal();
        FailAllocation failure{nth, extent};
        body(failure);
        more = failure.reached() || nth == 0;
    }
}

/** FailCall makes the `nth` call of one kind fail that this thread makes to the operating system,
 *  counted from 1 from its making on (0: none), on whatever file.
 *
 *  While one for reading is alive, a file that is opened as a stream is read in a way that it can
 *  see: the C library's own reading cannot be replaced. */
class FailCall
{
public:
    enum Kind
    {
        opening, /**< open and fopen */
        asking,  /**< access */
        reading,
        permitting /**< fchmod */
    };

    /** What a reading call may do instead of failing with an error. */
    static constexpr int oneByteLess = -1;
    static constexpr int endOfFile = -2;

    FailCall(Kind kind, int error, unsigned int nth,
             FailAllocation::Extent extent = FailAllocation::onceOnly);
    FailCall(const FailCall&) = delete;
    FailCall& operator=(const FailCall&) = delete;
    ~FailCall();

    /** Whether a call failed. Ends the failing and the counting. */
    [[nodiscard]] bool reached();

    /** Ends the failing and the counting. */
    void stop();

private:
    bool failed = false;
    bool armed = true;
};

/** JournalEntries keeps what is sent to the system journal instead of letting it go there. */
class JournalEntries
{
public:
    /** One field after the other as the journal receives them. */
    using Entry = std::multimap<std::string, std::string, std::less<>>;

    /** `error` other than 0: sending fails with it (ENOENT: there is no journal). */
    explicit JournalEntries(int error = 0);
    JournalEntries(const JournalEntries&) = delete;
    JournalEntries& operator=(const JournalEntries&) = delete;
    ~JournalEntries();

    /** Every entry so far, in order. */
    [[nodiscard]] std::vector<Entry> all() const;

    /** The field MESSAGE of every entry so far. */
    [[nodiscard]] std::vector<std::string> messages() const;

    // What the replaced call asks: 0, or the error.
    [[nodiscard]] int onSend(std::string_view datagram);

private:
    mutable std::mutex mutex;
    std::vector<Entry> entries;
    int sendError;
    JournalEntries* previous;
};

/** The value of a field that the entry carries exactly once; a text that says so otherwise. */
[[nodiscard]] std::string field(const JournalEntries::Entry& entry, std::string_view name);

} // namespace support
