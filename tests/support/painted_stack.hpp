// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>

namespace support
{

/** A stack of 1 MiB and a second view of the same memory: valgrind lets nobody look at a stack that
 *  has been left. */
class PaintedStack
{
public:
    PaintedStack() : file{memfd_create("stack", MFD_CLOEXEC)}
    {
        if (file < 0 || ftruncate(file, static_cast<off_t>(size)) != 0)
        {
            throw std::system_error(errno, std::generic_category(), "memfd_create");
        }
        stack = map();
        view = static_cast<char*>(map());
    }
    PaintedStack(const PaintedStack&) = delete;
    PaintedStack& operator=(const PaintedStack&) = delete;
    PaintedStack(PaintedStack&&) = delete;
    PaintedStack& operator=(PaintedStack&&) = delete;
    ~PaintedStack()
    {
        munmap(stack, size);
        munmap(view, size);
        close(file);
    }

    /** Runs @p body on it and gives the bytes that were used, with those that the C library keeps at
     *  the top of a thread's stack. */
    [[nodiscard]] std::size_t usedBy(std::function<void()> body)
    {
        std::memset(view, paint, size);
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_t thread{};
        const int error = pthread_attr_setstack(&attributes, stack, size) != 0
                              ? EINVAL
                              : pthread_create(&thread, &attributes, call, &body);
        pthread_attr_destroy(&attributes);
        if (error != 0)
        {
            throw std::system_error(error, std::generic_category(), "pthread_create");
        }
        pthread_join(thread, nullptr);
        // Page by page, for the sake of emulators.
        const std::string page(4096, paint);
        std::size_t untouched = 0;
        while (std::memcmp(view + untouched, page.data(), page.size()) == 0)
        {
            untouched += page.size();
        }
        return size - untouched -
               std::string_view{view + untouched, page.size()}.find_first_not_of(paint);
    }

private:
    static constexpr std::size_t size = std::size_t{1024} * 1024;
    static constexpr char paint = 0x5A;

    [[nodiscard]] void* map() const
    {
        void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (memory == MAP_FAILED)
        {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        return memory;
    }

    static void* call(void* body)
    {
        (*static_cast<std::function<void()>*>(body))();
        return nullptr;
    }

    int file;
    void* stack = nullptr;
    char* view = nullptr;
};

/** The bytes of stack that @p body needs, without those that a thread has in use before it. */
[[nodiscard]] inline std::size_t stackOf(const std::function<void()>& body)
{
    PaintedStack stack;
    const std::size_t unused = stack.usedBy([] {});
    return stack.usedBy(body) - unused;
}

} // namespace support
