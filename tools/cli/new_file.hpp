// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace bmcoauth::tool
{

/** Who may read a file. */
enum class Readers
{
    owner,    /**< mode 0600, always */
    everybody /**< mode 0644, as far as the umask allows it */
};

/** What happens to a file that has the name already. */
struct Existing
{
    bool replaced = false;
    /** What to do about a file that is not replaced. */
    const char* advice = "give --force to replace it";
};

// Both functions write a temporary file in the folder of `path` and give it the name when all of it
// is on the disk. Until then, and after any failure, the file that had the name is unchanged.
// Symbolic links are not followed: a link is a file that has the name. Devices and directories are
// never replaced. A failure stops the command and removes the temporary file.

/** Writes @p bytes to the file @p path. */
void writeFile(const std::string& path, std::string_view bytes, Readers readers,
               const Existing& existing);

/** Stops the command if @p out, given to --out, is "-". */
void requireFileName(const std::string& out);

/** Makes a P-256 private key and writes it to the file @p path, which only its owner may read. */
void writeNewKey(const std::string& path, const Existing& existing);

} // namespace bmcoauth::tool
