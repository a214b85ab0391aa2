// SPDX-License-Identifier: Apache-2.0
#include "common/files.hpp"

#include "common/guard.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bmcoauth::internal
{

void closeFile(std::FILE* file) noexcept
{
    // Writers call fflush before and check it; here there is nobody to report an error to.
    static_cast<void>(std::fclose(file));
}

FilePtr openForReading(const char* path) noexcept
{
    FilePtr file{std::fopen(path, "re")};
    if (!file)
    {
        return refuse(BMCOAUTH_RULE_FILE_UNREADABLE).about(path).sawErrno();
    }
    return file;
}

namespace
{

/** Takes the file away from everybody but its owner. Devices are left as they are: a service that
 *  runs as root would close "/dev/null" to all others. */
bool makePrivate(int descriptor) noexcept
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 &&
           (!S_ISREG(status.st_mode) || fchmod(descriptor, 0600) == 0);
}

} // namespace

FilePtr openPrivateForWriting(const char* path) noexcept
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    FilePtr file{descriptor >= 0 && makePrivate(descriptor) ? fdopen(descriptor, "w") : nullptr};
    if (!file)
    {
        refuse(BMCOAUTH_RULE_FILE_UNWRITABLE).about(path).sawErrno();
        if (descriptor >= 0)
        {
            close(descriptor);
        }
    }
    return file;
}

bool exists(const char* path) noexcept
{
    return access(path, F_OK) == 0;
}

} // namespace bmcoauth::internal
