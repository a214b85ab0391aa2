// SPDX-License-Identifier: Apache-2.0
#include "cli/new_file.hpp"

#include "cli/documents.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace bmcoauth::tool
{

namespace
{

/** Stops the command where @p path leads to something that no file may take the place of. */
void requireReplaceable(const std::string& path)
{
    struct stat status
    {
    };
    if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode))
    {
        return;
    }
    if (S_ISDIR(status.st_mode))
    {
        stopWriting(path, EISDIR);
    }
    throw Stop{Exit::failure, "cannot write " + path + ": it is not a regular file"};
}

/** Makes the renaming of a file in @p folder last. The file has its name already, so a folder that
 *  cannot be opened, or a file system without this, is not a failure. */
void syncFolder(const std::string& folder)
{
    const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor >= 0)
    {
        static_cast<void>(fsync(descriptor));
        ::close(descriptor);
    }
}

/** A temporary file that can take the name of another. */
class NewFile
{
public:
    NewFile(const std::string& path, const Existing& existing)
        : name{path}, whenThere{existing}, folder{std::filesystem::path{path}.replace_filename(".")}
    {
        if (whenThere.replaced)
        {
            requireReplaceable(name);
        }
        // Short, whatever the name: that may be as long as a name can be.
        temporaryName = std::filesystem::path{path}.replace_filename(".bmcoauth-XXXXXX");
        // Mode 0600, whatever the umask.
        mask = umask(0);
        descriptor = mkostemp(temporaryName.data(), O_CLOEXEC);
        umask(mask);
        if (descriptor < 0)
        {
            stopWriting(name, errno);
        }
    }
    ~NewFile()
    {
        ::close(descriptor);
        // Nothing is there to remove after a renaming.
        ::unlink(temporaryName.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile(NewFile&&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    NewFile& operator=(NewFile&&) = delete;

    [[nodiscard]] const std::string& temporary() const
    {
        return temporaryName;
    }

    void write(std::string_view bytes) const
    {
        while (!bytes.empty())
        {
            const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
            stopUnless(count >= 0);
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    /** Gives the file its mode and its name. */
    void finish(Readers readers) const
    {
        if (readers == Readers::everybody)
        {
            stopUnless(fchmod(descriptor, 0644 & ~mask) == 0);
        }
        stopUnless(fsync(descriptor) == 0);
        if (whenThere.replaced)
        {
            stopUnless(std::rename(temporaryName.c_str(), name.c_str()) == 0);
        }
        // Unlike a look before, a link leaves no time in which somebody else could take the name.
        else if (::link(temporaryName.c_str(), name.c_str()) != 0)
        {
            if (errno == EEXIST)
            {
                throw Stop{Exit::usage, name + " exists already: " + whenThere.advice};
            }
            stopWriting(name, errno);
        }
        syncFolder(folder);
    }

private:
    void stopUnless(bool success) const
    {
        if (!success)
        {
            stopWriting(name, errno);
        }
    }

    std::string name;
    Existing whenThere;
    std::string folder;
    std::string temporaryName;
    mode_t mask = 0;
    int descriptor = -1;
};

} // namespace

void writeFile(const std::string& path, std::string_view bytes, Readers readers,
               const Existing& existing)
{
    const NewFile file{path, existing};
    file.write(bytes);
    file.finish(readers);
}

void requireFileName(const std::string& out)
{
    if (out == "-")
    {
        throw Stop{Exit::usage,
                   "--out takes a file: without it the result goes to standard output"};
    }
}

void writeNewKey(const std::string& path, const Existing& existing)
{
    const NewFile file{path, existing};
    // Whether there is room is found out before the library empties the file and writes less.
    constexpr std::size_t room = 4096;
    file.write(std::string(room, '\n'));
    if (const Expected<void> made = generateKeyFile(file.temporary()); !made)
    {
        stopFor(made.error(), "cannot make a key for " + path, Exit::failure);
    }
    file.finish(Readers::owner);
}

} // namespace bmcoauth::tool
