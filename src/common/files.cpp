// SPDX-License-Identifier: Apache-2.0
#include "common/files.hpp"

#include "common/guard.hpp"

#include <bmcoauth/support.h>

#include <fcntl.h>
#include <unistd.h>

namespace bmcoauth
{

void closeFile(std::FILE* file) noexcept
{
    // Who has written makes sure of it with fflush before; here nobody could be told.
    static_cast<void>(std::fclose(file));
}

FilePtr openForReading(const char* path) noexcept
{
    return FilePtr{std::fopen(path, "re")};
}

FilePtr openPrivateForWriting(const char* path) noexcept
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0)
    {
        return nullptr;
    }
    FilePtr file{fdopen(descriptor, "w")};
    if (!file)
    {
        close(descriptor);
    }
    return file;
}

bool exists(const char* path) noexcept
{
    return access(path, F_OK) == 0;
}

} // namespace bmcoauth

extern "C" int isDeviceVorn(void)
{
    const bmcoauth::ErrnoKeeper keeper;
    return bmcoauth::exists("/etc/vorn_fw") ? 1 : 0;
}
