// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

namespace support
{

/** TemporaryDirectory is a new directory of this test alone; it is gone afterwards. */
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory();

    /** The path of `name` in the directory. */
    [[nodiscard]] std::string operator/(const std::string& name) const;

private:
    std::filesystem::path directory;
};

/** Runs `body` in a child process and gives its exit status: what it passed to `_exit`, 0 when it
 *  came back, minus the signal's number when a signal ended it. */
[[nodiscard]] int exitStatusOf(const std::function<void()>& body);

/** How many descriptors this process has open: equal before and after a call that closes its. */
[[nodiscard]] std::size_t openDescriptors();

/** The whole file at `path`; throws when it cannot be read. */
[[nodiscard]] std::string contentsOf(const std::string& path);

/** Makes or replaces the file at `path`; throws when it cannot be written. */
void writeFile(const std::string& path, const std::string& contents);

} // namespace support
