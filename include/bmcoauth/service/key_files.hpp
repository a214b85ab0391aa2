// SPDX-License-Identifier: Apache-2.0
#pragma once

/* How SigningKeys reads and replaces files. */

#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/key_file.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** The folder of a file, locked against other processes that use this class too. */
class LockedFolder
{
public:
    /** Waits for the lock of the folder of `path`. */
    explicit LockedFolder(const std::string& path)
        : folder{::open(nameOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)},
          locked{folder.isOpen() && ::flock(folder.get(), LOCK_EX) == 0}
    {
    }

    /** Whether it is locked; if not, errno says why. */
    [[nodiscard]] bool isLocked() const noexcept
    {
        return locked;
    }
    /** Waits until changes of names in it survive a power cut; false if they may not. */
    [[nodiscard]] bool sync() const noexcept
    {
        return folder.sync();
    }

private:
    [[nodiscard]] static std::string nameOf(const std::string& path)
    {
        const std::size_t length = path.rfind('/') + 1;
        return length == 0 ? "." : path.substr(0, length);
    }

    Descriptor folder;
    bool locked;
};

/** The file `path`, 64 KiB of it at most; nothing if there is none. */
[[nodiscard]] inline Expected<std::optional<std::string>> readFileIfThere(const std::string& path)
{
    const Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (!file.isOpen() && errno == ENOENT)
    {
        return std::optional<std::string>{};
    }
    std::string text(65536, '\0');
    std::size_t size = 0;
    ssize_t got = file.isOpen() ? 1 : -1;
    while (got > 0 && size < text.size())
    {
        got = ::read(file.get(), text.data() + size, text.size() - size);
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
    }
    if (got < 0)
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNREADABLE, path);
    }
    text.resize(size);
    return std::optional{std::move(text)};
}

/** Gives the file `path` the contents `text`: it has the old ones or the new ones at every moment.
 *  The name is on the medium once the folder is. */
[[nodiscard]] inline Expected<void> replaceFile(const std::string& path, std::string_view text)
{
    std::string temporary = path + ".XXXXXX";
    const Descriptor file{::mkostemp(temporary.data(), O_CLOEXEC)};
    if (!file.isOpen())
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    }
    if (::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        !file.sync() || std::rename(temporary.c_str(), path.c_str()) != 0)
    {
        const Error error = Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
        ::unlink(temporary.c_str());
        return error;
    }
    return {};
}

/** Removes the file `path`, if there is one. */
[[nodiscard]] inline Expected<void> removeFile(const std::string& path)
{
    if (::unlink(path.c_str()) != 0 && errno != ENOENT)
    {
        return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    }
    return {};
}

} // namespace detail

} // namespace v1
} // namespace bmcoauth
