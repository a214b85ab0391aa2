// SPDX-License-Identifier: Apache-2.0
#pragma once

/* How PrivateKey::loadOrCreate makes a key file. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/signing.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** Owns a file descriptor. */
class Descriptor
{
public:
    /** Takes over what a call gave, -1 for its failure. */
    explicit Descriptor(int opened) noexcept : number{opened}
    {
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor(Descriptor&&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor()
    {
        if (isOpen())
        {
            ::close(number);
        }
    }

    /** Whether there is a descriptor. */
    [[nodiscard]] bool isOpen() const noexcept
    {
        return number >= 0;
    }
    /** The descriptor itself, for calls. It stays here. */
    [[nodiscard]] int get() const noexcept
    {
        return number;
    }
    /** Waits until the file survives a power cut; false if it may not. */
    [[nodiscard]] bool sync() const noexcept
    {
        return ::fsync(number) == 0;
    }

private:
    int number;
};

/** A new name beside `path`, for `mkostemp` to complete; null if memory runs out. */
[[nodiscard]] inline char* nameBeside(Arguments& in, std::string_view path) noexcept
{
    constexpr std::string_view pattern = ".XXXXXX";
    char* const name = in.array<char>("path", path.size() + pattern.size());
    if (name != nullptr)
    {
        std::memcpy(name, path.data(), path.size());
        std::memcpy(name + path.size(), pattern.data(), pattern.size());
    }
    return name;
}

/** Writes a key to the open file `temporary`, and gives it the name `path` unless that is taken. */
[[nodiscard]] inline Expected<void> fillAndName(const Descriptor& file, const char* temporary,
                                                const char* path) noexcept
{
    if (::generateECPrivateKey(temporary) != 1)
    {
        return Error::last();
    }
    // A link never replaces a file, as renaming does: of two processes, the first one wins.
    if (!file.sync() || (::link(temporary, path) != 0 && errno != EEXIST))
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    }
    return {};
}

/** Makes the key file `path`, unless there is a file by the time that the key is ready, which is
 *  then left alone. Whoever reads `path` meanwhile finds no file or a whole one. */
[[nodiscard]] inline Expected<void> createKeyFile(const char* path) noexcept
{
    Arguments in;
    const std::string_view name{path};
    // With the slash, which alone names the root; a path without one begins in ".".
    const std::size_t folderLength = name.rfind('/') + 1;
    const char* const folderName =
        in.text("path", folderLength == 0 ? "." : name.substr(0, folderLength));
    char* const temporary = nameBeside(in, name);
    if (in.failed())
    {
        return in.failure();
    }
    const Descriptor folder{::open(folderName, O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!folder.isOpen())
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    }
    const Descriptor file{::mkostemp(temporary, O_CLOEXEC)};
    if (!file.isOpen())
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    }
    const Expected<void> done = fillAndName(file, temporary, path);
    ::unlink(temporary);
    if (done && !folder.sync())
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    }
    return done;
}

} // namespace detail

} // namespace v1
} // namespace bmcoauth
