// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"

#include "support/interposed.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace support
{

namespace
{

enum ClockMode
{
    machineClock,
    stoppedClock,
    brokenClock
};

std::atomic<int> clockMode = machineClock;
std::atomic<std::time_t> clockSeconds = 0;
std::atomic<int> markers = 0;
std::atomic<FakeRandom*> fakeRandom = nullptr;
std::atomic<FakeFiles*> fakeFiles = nullptr;
std::atomic<JournalEntries*> journalEntries = nullptr;

constexpr std::string_view markerPath = "/etc/vorn_fw";
constexpr std::string_view rootsDirectory = "/etc/default/certs/";

bool absentByDefault(std::string_view path)
{
    return path == markerPath || path.starts_with(rootsDirectory);
}

/** A descriptor that reads @p contents from their start. */
int memoryFile(std::string_view contents)
{
    const int descriptor = memfd_create("device-file", MFD_CLOEXEC);
    while (descriptor >= 0 && !contents.empty())
    {
        const ssize_t written = write(descriptor, contents.data(), contents.size());
        if (written <= 0)
        {
            close(descriptor);
            return -1;
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    if (descriptor >= 0)
    {
        lseek(descriptor, 0, SEEK_SET);
    }
    return descriptor;
}

/** Reads one entry as it comes over the journal's socket: lines "NAME=value", or, for a value with
 *  line feeds, "NAME", a 64-bit little-endian length, the value and a line feed. */
JournalEntries::Entry parseEntry(std::string_view datagram)
{
    JournalEntries::Entry entry;
    while (!datagram.empty())
    {
        const std::size_t end = datagram.find('\n');
        const std::string_view line = datagram.substr(0, end);
        datagram.remove_prefix(std::min(line.size() + 1, datagram.size()));
        const std::size_t equals = line.find('=');
        if (equals != std::string_view::npos)
        {
            entry.emplace(line.substr(0, equals), line.substr(equals + 1));
            continue;
        }
        std::uint64_t length = 0;
        for (std::size_t byte = 0; byte < sizeof(length) && byte < datagram.size(); ++byte)
        {
            length |= std::uint64_t{static_cast<unsigned char>(datagram[byte])} << (8 * byte);
        }
        datagram.remove_prefix(std::min(sizeof(length), datagram.size()));
        const std::string_view value = datagram.substr(
            0, static_cast<std::size_t>(std::min<std::uint64_t>(length, datagram.size())));
        entry.emplace(line, value);
        datagram.remove_prefix(std::min(value.size() + 1, datagram.size()));
    }
    return entry;
}

} // namespace

FakeClock::FakeClock(std::time_t seconds) : previousSeconds{clockSeconds}, previousMode{clockMode}
{
    set(seconds);
    clockMode = stoppedClock;
}

FakeClock::~FakeClock()
{
    clockMode = previousMode;
    clockSeconds = previousSeconds;
}

void FakeClock::set(std::time_t seconds)
{
    clockSeconds = seconds;
}

void FakeClock::advance(std::time_t seconds)
{
    clockSeconds += seconds;
}

void FakeClock::failBreakingDown()
{
    clockMode = brokenClock;
}

FakeRandom::FakeRandom(std::string_view bytes)
    : source{bytes.empty() ? std::string(1, '\0') : std::string{bytes}},
      previous{fakeRandom.exchange(this)}
{
}

FakeRandom::~FakeRandom()
{
    fakeRandom = previous;
}

void FakeRandom::failOpening(int error, Calls calls)
{
    const std::lock_guard lock{mutex};
    openFailure = {error, {calls.after + openCount, calls.number}};
}

void FakeRandom::failReading(int error, Calls calls)
{
    const std::lock_guard lock{mutex};
    readFailure = {error, {calls.after + readCount, calls.number}};
}

void FakeRandom::shortenReading(std::size_t missing, Calls calls)
{
    const std::lock_guard lock{mutex};
    missingBytes = missing;
    shortReads = {calls.after + readCount, calls.number};
}

unsigned int FakeRandom::opens() const
{
    const std::lock_guard lock{mutex};
    return openCount;
}

unsigned int FakeRandom::reads() const
{
    const std::lock_guard lock{mutex};
    return readCount;
}

std::size_t FakeRandom::bytesAskedFor() const
{
    const std::lock_guard lock{mutex};
    return byteCount;
}

int FakeRandom::onOpen()
{
    const std::lock_guard lock{mutex};
    return openFailure.calls.include(openCount++) ? openFailure.error : 0;
}

ssize_t FakeRandom::onRead(void* buffer, std::size_t size)
{
    const std::lock_guard lock{mutex};
    const unsigned int index = readCount++;
    byteCount += size;
    if (readFailure.calls.include(index))
    {
        errno = readFailure.error;
        return -1;
    }
    if (shortReads.include(index))
    {
        size -= std::min(missingBytes, size);
    }
    std::generate_n(static_cast<char*>(buffer), size,
                    [this] { return source[position++ % source.size()]; });
    return static_cast<ssize_t>(size);
}

FakeFiles::FakeFiles() : previous{fakeFiles.exchange(this)}
{
}

FakeFiles::~FakeFiles()
{
    fakeFiles = previous;
}

void FakeFiles::put(const std::string& path, std::string contents)
{
    const std::lock_guard lock{mutex};
    files[path] = {std::move(contents), 0, true};
}

void FakeFiles::fail(const std::string& path, int error)
{
    const std::lock_guard lock{mutex};
    files[path] = {{}, error, true};
}

void FakeFiles::failReading(const std::string& path)
{
    const std::lock_guard lock{mutex};
    files[path] = {{}, 0, false};
}

std::vector<Opening> FakeFiles::openings() const
{
    const std::lock_guard lock{mutex};
    return opened;
}

int FakeFiles::onOpen(const Opening& opening)
{
    const std::lock_guard lock{mutex};
    opened.push_back(opening);
    const auto file = files.find(opening.path);
    if (file == files.end())
    {
        return notMapped;
    }
    const auto& [contents, error, readable] = file->second;
    if (error != 0 || opening.forWriting)
    {
        errno = error != 0 ? error : EROFS;
        return -1;
    }
    return readable ? memoryFile(contents)
                    : interposed::realOpen("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
}

int FakeFiles::onAccess(const char* path)
{
    const std::lock_guard lock{mutex};
    const auto file = files.find(std::string_view{path});
    if (file == files.end())
    {
        return notMapped;
    }
    errno = file->second.error != 0 ? file->second.error : errno;
    return file->second.error != 0 ? -1 : 0;
}

MarkerFile::MarkerFile()
{
    ++markers;
}

MarkerFile::~MarkerFile()
{
    --markers;
}

unsigned int faultStep()
{
    const char* const step = std::getenv("FAULTS_STEP");
    const unsigned long wanted = step == nullptr ? 1 : std::strtoul(step, nullptr, 10);
    return static_cast<unsigned int>(std::clamp(wanted, 1UL, 1000000UL));
}

FailAllocation::FailAllocation(unsigned int nth, Extent extent)
{
    interposed::allocations = {&failed, nth, extent == fromThenOn};
}

FailAllocation::~FailAllocation()
{
    stop();
}

bool FailAllocation::reached()
{
    stop();
    return failed;
}

void FailAllocation::stop()
{
    if (armed)
    {
        interposed::allocations = {};
        armed = false;
    }
}

FailCall::FailCall(Kind kind, int error, unsigned int nth, FailAllocation::Extent extent)
{
    interposed::systemCalls = {&failed, kind, error, nth, extent == FailAllocation::fromThenOn};
}

FailCall::~FailCall()
{
    stop();
}

bool FailCall::reached()
{
    stop();
    return failed;
}

void FailCall::stop()
{
    if (armed)
    {
        interposed::systemCalls = {};
        armed = false;
    }
}

JournalEntries::JournalEntries(int error)
    : sendError{error}, previous{journalEntries.exchange(this)}
{
}

JournalEntries::~JournalEntries()
{
    journalEntries = previous;
}

std::vector<JournalEntries::Entry> JournalEntries::all() const
{
    const std::lock_guard lock{mutex};
    return entries;
}

std::vector<std::string> JournalEntries::messages() const
{
    std::vector<std::string> texts;
    for (const Entry& entry : all())
    {
        texts.push_back(field(entry, "MESSAGE"));
    }
    return texts;
}

int JournalEntries::onSend(std::string_view datagram)
{
    const std::lock_guard lock{mutex};
    if (sendError == 0)
    {
        entries.push_back(parseEntry(datagram));
    }
    return sendError;
}

std::string field(const JournalEntries::Entry& entry, std::string_view name)
{
    const std::size_t number = entry.count(name);
    return number == 1 ? entry.find(name)->second
                       : "(" + std::to_string(number) + " fields " + std::string{name} + ")";
}

namespace interposed
{

bool clockStopped(std::int64_t& seconds)
{
    seconds = clockSeconds;
    return clockMode != machineClock;
}

bool clockBroken()
{
    return clockMode == brokenClock;
}

int openFake(const char* path, const Opening& opening)
{
    // What the fakes allocate is not the tested code's.
    const QuietAllocations quiet;
    if (FakeFiles* const files = fakeFiles; files != nullptr)
    {
        Opening kept = opening;
        kept.path = path;
        const int descriptor = files->onOpen(kept);
        if (descriptor != FakeFiles::notMapped)
        {
            return descriptor;
        }
    }
    FakeRandom* const random = fakeRandom;
    if (const int error = random != nullptr && std::strcmp(path, "/dev/urandom") == 0
                              ? random->onOpen()
                              : (absentByDefault(path) ? ENOENT : 0);
        error != 0)
    {
        errno = error;
        return -1;
    }
    return FakeFiles::notMapped;
}

int accessFake(const char* path, int mode)
{
    const QuietAllocations quiet;
    if (FakeFiles* const files = fakeFiles; files != nullptr)
    {
        const int answer = files->onAccess(path);
        if (answer != FakeFiles::notMapped)
        {
            return answer;
        }
    }
    if (markers > 0 && path == markerPath)
    {
        errno = mode == F_OK ? errno : EACCES;
        return mode == F_OK ? 0 : -1;
    }
    if (absentByDefault(path))
    {
        errno = ENOENT;
        return -1;
    }
    return FakeFiles::notMapped;
}

FakeRandom* randomFake()
{
    return fakeRandom;
}

int sendFake(std::string_view datagram)
{
    const QuietAllocations quiet;
    JournalEntries* const entries = journalEntries;
    return entries == nullptr ? ENOENT : entries->onSend(datagram);
}

} // namespace interposed

} // namespace support
