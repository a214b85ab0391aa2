// SPDX-License-Identifier: Apache-2.0

// The calls of the operating system that test programs replace. Each is defined under its own
// name, and under those that the C library's headers turn it into for large files.
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE
#undef _TIME_BITS
#include "support/interposed.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

// If a sanitizer's runtime is part of the program itself, these names reach its allocator: the next
// definition after ours would be the C library's, whose blocks its `free` does not know.
extern "C"
{
    [[gnu::weak]] void* __interceptor_malloc(std::size_t size);
    [[gnu::weak]] void* __interceptor_calloc(std::size_t count, std::size_t size);
    [[gnu::weak]] void* __interceptor_realloc(void* block, std::size_t size);
    [[gnu::weak]] void* __interceptor_aligned_alloc(std::size_t alignment, std::size_t size);
    [[gnu::weak]] int __interceptor_posix_memalign(void** block, std::size_t alignment,
                                                   std::size_t size);
    [[gnu::weak]] void __interceptor_free(void* block);
}

namespace support::interposed
{

constinit thread_local Allocations allocations{};
constinit thread_local SystemCalls systemCalls{};
constinit thread_local Books books{};

namespace
{

/** The definition that would be called if the test program had none. It is looked up at the first
 *  call, perhaps before any constructor has run. Two threads that look it up at once find the
 *  same. */
template <typename Function>
class Real
{
public:
    constexpr explicit Real(const char* functionName) : name{functionName}
    {
    }

    Function* operator*()
    {
        Function* function = found.load(std::memory_order_relaxed);
        if (function == nullptr)
        {
            const QuietAllocations quiet;
            function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
            found.store(function, std::memory_order_relaxed);
        }
        return function;
    }

private:
    const char* name;
    std::atomic<Function*> found = nullptr;
};

constinit Real<void*(std::size_t)> realMalloc{"malloc"};
constinit Real<void*(std::size_t, std::size_t)> realCalloc{"calloc"};
constinit Real<void*(void*, std::size_t)> realRealloc{"realloc"};
constinit Real<void*(std::size_t, std::size_t)> realAlignedAlloc{"aligned_alloc"};
constinit Real<int(void**, std::size_t, std::size_t)> realPosixMemalign{"posix_memalign"};
constinit Real<void(void*)> realFree{"free"};
constinit Real<int(const char*, int, ...)> realOpen64{"open64"};
constinit Real<std::FILE*(const char*, const char*)> realFopen{"fopen64"};
constinit Real<int(const char*, int)> realAccess{"access"};
constinit Real<int(int, mode_t)> realFchmod{"fchmod"};
constinit Real<ssize_t(int, void*, std::size_t)> realRead{"read"};
constinit Real<std::time_t(std::time_t*)> realTime{"time"};
constinit Real<std::tm*(const std::time_t*, std::tm*)> realGmtimeR{"gmtime_r"};
constinit Real<ssize_t(int, const msghdr*, int)> realSendmsg{"sendmsg"};
#if __TIMESIZE == 32
// As 32-bit systems name what is built for times beyond 2038.
constinit Real<std::int64_t(std::int64_t*)> realTime64{"__time64"};
constinit Real<std::tm*(const std::int64_t*, std::tm*)> realGmtime64R{"__gmtime64_r"};
constinit Real<ssize_t(int, const msghdr*, int)> realSendmsg64{"__sendmsg64"};
#endif

/** Whether this allocation is the one to fail; errno is then set as by the real one. */
bool failsNow()
{
    Allocations& state = allocations;
    if (state.failed == nullptr || state.remaining == 0 || --state.remaining > 0)
    {
        return false;
    }
    *state.failed = true;
    if (state.stayExhausted)
    {
        state.remaining = 1;
    }
    errno = ENOMEM;
    return true;
}

/** Tells the books of a new block. */
void* entered(void* block)
{
    if (books.ledger != nullptr && block != nullptr)
    {
        books.ledger->onAllocated(block, books.quiet);
    }
    return block;
}

/** Whether @p block, not null, is to be released. */
bool struckOff(void* block)
{
    if (books.ledger != nullptr && !books.ledger->onReleased(block))
    {
        return false;
    }
    if (books.released != nullptr)
    {
        books.released->onReleased(block);
    }
    return true;
}

/** How this call of @p kind is to fail: an error or what FailCall names; 0 when it is not. */
int failureOf(FailCall::Kind kind)
{
    SystemCalls& state = systemCalls;
    if (state.failed == nullptr || state.kind != kind || state.remaining == 0 ||
        --state.remaining > 0)
    {
        return 0;
    }
    *state.failed = true;
    if (state.stays)
    {
        state.remaining = 1;
    }
    return state.error;
}

int openAnywhere(const char* path, int flags, mode_t mode)
{
    if (const int error = failureOf(FailCall::opening); error != 0)
    {
        errno = error;
        return -1;
    }
    const int descriptor = openFake(path, {.path = {},
                                           .closeOnExec = (flags & O_CLOEXEC) != 0,
                                           .forWriting = (flags & O_ACCMODE) != O_RDONLY,
                                           .mode = mode});
    return descriptor != FakeFiles::notMapped ? descriptor
                                              : interposed::realOpen(path, flags, mode);
}

mode_t modeArgument(int flags, std::va_list& arguments)
{
    // A narrower mode_t would arrive promoted to int.
    return (flags & (O_CREAT | __O_TMPFILE)) != 0
               ? static_cast<mode_t>(va_arg(arguments, unsigned int))
               : mode_t{0};
}

bool isRandomDevice(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode) &&
           status.st_rdev == makedev(1, 9);
}

ssize_t readAnywhere(int descriptor, void* buffer, std::size_t size)
{
    const int failure = failureOf(FailCall::reading);
    if (failure > 0)
    {
        errno = failure;
        return -1;
    }
    if (failure == FailCall::endOfFile)
    {
        return 0;
    }
    if (failure == FailCall::oneByteLess && size > 0)
    {
        --size;
    }
    FakeRandom* const random = randomFake();
    return random != nullptr && isRandomDevice(descriptor) ? random->onRead(buffer, size)
                                                           : (*realRead)(descriptor, buffer, size);
}

int descriptorOf(void* cookie)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie));
}

ssize_t readCookie(void* cookie, char* buffer, std::size_t size)
{
    return readAnywhere(descriptorOf(cookie), buffer, size);
}

int closeCookie(void* cookie)
{
    return close(descriptorOf(cookie));
}

/** A stream over @p descriptor, which it closes, that reads by readAnywhere. */
std::FILE* seenStream(int descriptor)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the cookie is the descriptor
    auto* const cookie = reinterpret_cast<void*>(std::intptr_t{descriptor});
    return fopencookie(
        cookie, "r", {.read = readCookie, .write = nullptr, .seek = nullptr, .close = closeCookie});
}

bool watchesReading()
{
    return systemCalls.failed != nullptr && systemCalls.kind == FailCall::reading;
}

std::FILE* fopenAnywhere(const char* path, const char* mode)
{
    if (const int error = failureOf(FailCall::opening); error != 0)
    {
        errno = error;
        return nullptr;
    }
    const int descriptor =
        openFake(path, {.path = {},
                        .closeOnExec = std::strchr(mode, 'e') != nullptr,
                        .forWriting = mode[0] != 'r' || std::strchr(mode, '+') != nullptr,
                        .mode = 0666});
    const bool seen = watchesReading() && std::strcmp(mode, "re") == 0;
    if (descriptor == FakeFiles::notMapped && !seen)
    {
        return (*realFopen)(path, mode);
    }
    const int found = descriptor == FakeFiles::notMapped
                          ? interposed::realOpen(path, O_RDONLY | O_CLOEXEC, 0)
                          : descriptor;
    std::FILE* const file = found < 0 ? nullptr : seen ? seenStream(found) : fdopen(found, mode);
    if (found >= 0 && file == nullptr)
    {
        close(found);
    }
    return file;
}

bool goesToJournal(const msghdr& message)
{
    const auto* const address = static_cast<const sockaddr*>(message.msg_name);
    constexpr std::string_view path = "/run/systemd/journal/socket";
    return address != nullptr && address->sa_family == AF_UNIX &&
           message.msg_namelen >= offsetof(sockaddr_un, sun_path) + path.size() &&
           std::string_view{reinterpret_cast<const sockaddr_un*>(address)->sun_path}.starts_with(
               path);
}

void* newBlock(std::size_t size)
{
    void* const block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr)
    {
        throw std::bad_alloc{};
    }
    return block;
}

template <typename Seconds>
Seconds timeAnywhere(Seconds* out, Real<Seconds(Seconds*)>& real)
{
    std::int64_t seconds = 0;
    if (!clockStopped(seconds))
    {
        return (*real)(out);
    }
    if (out != nullptr)
    {
        *out = static_cast<Seconds>(seconds);
    }
    return static_cast<Seconds>(seconds);
}

template <typename Seconds>
std::tm* gmtimeAnywhere(const Seconds* seconds, std::tm* out,
                        Real<std::tm*(const Seconds*, std::tm*)>& real)
{
    if (clockBroken())
    {
        errno = EOVERFLOW;
        return nullptr;
    }
    return (*real)(seconds, out);
}

ssize_t sendmsgAnywhere(int descriptor, const msghdr& message, int flags,
                        Real<ssize_t(int, const msghdr*, int)>& real)
{
    if (!goesToJournal(message))
    {
        return (*real)(descriptor, &message, flags);
    }
    const QuietAllocations quiet;
    std::string datagram;
    for (std::size_t part = 0; part < message.msg_iovlen; ++part)
    {
        const iovec& piece = message.msg_iov[part];
        datagram.append(static_cast<const char*>(piece.iov_base), piece.iov_len);
    }
    const int error = sendFake(datagram);
    errno = error != 0 ? error : errno;
    return error != 0 ? -1 : static_cast<ssize_t>(datagram.size());
}

} // namespace

int realOpen(const char* path, int flags, mode_t mode)
{
    return (*realOpen64)(path, flags, mode);
}

} // namespace support::interposed

using namespace support::interposed;

extern "C"
{

    void* malloc(std::size_t size) noexcept
    {
        if (failsNow())
        {
            return nullptr;
        }
        void* const block = entered(__interceptor_malloc != nullptr ? __interceptor_malloc(size)
                                                                    : (*realMalloc)(size));
        if (books.released != nullptr && block != nullptr)
        {
            support::ReleasedBlocks::onAllocated(block);
        }
        return block;
    }

    void* calloc(std::size_t count, std::size_t size) noexcept
    {
        if (failsNow())
        {
            return nullptr;
        }
        return entered(__interceptor_calloc != nullptr ? __interceptor_calloc(count, size)
                                                       : (*realCalloc)(count, size));
    }

    void* realloc(void* block, std::size_t size) noexcept
    {
        if (block == nullptr)
        {
            return std::malloc(size);
        }
        if (failsNow())
        {
            return nullptr;
        }
        if (books.released != nullptr)
        {
            books.released->onReleased(block);
        }
        void* const resized = __interceptor_realloc != nullptr ? __interceptor_realloc(block, size)
                                                               : (*realRealloc)(block, size);
        if (books.released != nullptr && (resized == block || (resized == nullptr && size != 0)))
        {
            books.released->takeBack();
        }
        if (books.ledger != nullptr && (resized != nullptr || size == 0))
        {
            books.ledger->onResized(block, resized);
        }
        return resized;
    }

    void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
    {
        if (failsNow())
        {
            return nullptr;
        }
        return entered(__interceptor_aligned_alloc != nullptr
                           ? __interceptor_aligned_alloc(alignment, size)
                           : (*realAlignedAlloc)(alignment, size));
    }

    int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept
    {
        const int before = errno;
        if (failsNow())
        {
            errno = before;
            return ENOMEM;
        }
        const int error = __interceptor_posix_memalign != nullptr
                              ? __interceptor_posix_memalign(block, alignment, size)
                              : (*realPosixMemalign)(block, alignment, size);
        if (error == 0)
        {
            entered(*block);
        }
        return error;
    }

    void free(void* block) noexcept
    {
        if (block == nullptr || !struckOff(block))
        {
            return;
        }
        if (__interceptor_free != nullptr)
        {
            __interceptor_free(block);
            return;
        }
        // dlsym releases the message of an earlier failure, which leads here again: while the
        // function is looked up for the first time, such a message stays.
        [[gnu::tls_model("initial-exec")]] static constinit thread_local bool looksUp = false;
        if (looksUp)
        {
            return;
        }
        looksUp = true;
        auto* const function = *realFree;
        looksUp = false;
        function(block);
    }

    // A sanitizer's own copies of these two would not come by `malloc` above.
    char* strndup(const char* text, std::size_t limit) noexcept
    {
        const std::size_t length = strnlen(text, limit);
        auto* const copy = static_cast<char*>(std::malloc(length + 1));
        if (copy != nullptr)
        {
            std::memcpy(copy, text, length);
            copy[length] = '\0';
        }
        return copy;
    }

    char* strdup(const char* text) noexcept
    {
        return strndup(text, std::strlen(text));
    }

    int open(const char* path, int flags, ...)
    {
        std::va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = modeArgument(flags, arguments);
        va_end(arguments);
        return openAnywhere(path, flags, mode);
    }

    int open64(const char* path, int flags, ...)
    {
        std::va_list arguments;
        va_start(arguments, flags);
        const mode_t mode = modeArgument(flags, arguments);
        va_end(arguments);
        return openAnywhere(path, flags, mode);
    }

    int __open_2(const char* path, int flags)
    {
        return openAnywhere(path, flags, 0);
    }

    int __open64_2(const char* path, int flags)
    {
        return openAnywhere(path, flags, 0);
    }

    std::FILE* fopen(const char* path, const char* mode)
    {
        return fopenAnywhere(path, mode);
    }

    std::FILE* fopen64(const char* path, const char* mode)
    {
        return fopenAnywhere(path, mode);
    }

    int access(const char* path, int mode) noexcept
    {
        if (const int error = failureOf(support::FailCall::asking); error != 0)
        {
            errno = error;
            return -1;
        }
        const int answer = accessFake(path, mode);
        return answer != support::FakeFiles::notMapped ? answer : (*realAccess)(path, mode);
    }

    int fchmod(int descriptor, mode_t mode) noexcept
    {
        if (const int error = failureOf(support::FailCall::permitting); error != 0)
        {
            errno = error;
            return -1;
        }
        return (*realFchmod)(descriptor, mode);
    }

    ssize_t read(int descriptor, void* buffer, std::size_t size)
    {
        return readAnywhere(descriptor, buffer, size);
    }

    ssize_t __read_chk(int descriptor, void* buffer, std::size_t size, std::size_t room)
    {
        if (size > room)
        {
            std::abort();
        }
        return readAnywhere(descriptor, buffer, size);
    }

    std::time_t time(std::time_t* out) noexcept
    {
        return timeAnywhere(out, realTime);
    }

    std::tm* gmtime_r(const std::time_t* seconds, std::tm* out) noexcept
    {
        return gmtimeAnywhere(seconds, out, realGmtimeR);
    }

#if __TIMESIZE == 32
    std::int64_t __time64(std::int64_t* out) noexcept
    {
        return timeAnywhere(out, realTime64);
    }

    std::tm* __gmtime64_r(const std::int64_t* seconds, std::tm* out) noexcept
    {
        return gmtimeAnywhere(seconds, out, realGmtime64R);
    }

    ssize_t __sendmsg64(int descriptor, const msghdr* message, int flags)
    {
        return sendmsgAnywhere(descriptor, *message, flags, realSendmsg64);
    }
#endif

    ssize_t sendmsg(int descriptor, const msghdr* message, int flags)
    {
        return sendmsgAnywhere(descriptor, *message, flags, realSendmsg);
    }

} // extern "C"

// All forms together, so that what one of them gives is always released by its like, also where a
// sanitizer would otherwise serve some of them.
void* operator new(std::size_t size)
{
    return newBlock(size);
}

void* operator new[](std::size_t size)
{
    return newBlock(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    return std::malloc(size == 0 ? 1 : size);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete[](void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept
{
    std::free(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept
{
    std::free(block);
}

void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept
{
    std::free(block);
}

void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept
{
    std::free(block);
}
