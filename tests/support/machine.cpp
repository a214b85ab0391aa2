// SPDX-License-Identifier: Apache-2.0
#include "support/machine.hpp"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

namespace support
{

namespace
{

[[noreturn]] void raise(const std::string& what)
{
    throw std::system_error{errno, std::generic_category(), what};
}

} // namespace

TemporaryDirectory::TemporaryDirectory()
{
    std::string name = std::filesystem::temp_directory_path() / "bmcoauth-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
    {
        raise(name);
    }
    directory = name;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

std::string TemporaryDirectory::operator/(const std::string& name) const
{
    return directory / name;
}

int exitStatusOf(const std::function<void()>& body)
{
    const pid_t child = fork();
    if (child < 0)
    {
        raise("fork");
    }
    if (child == 0)
    {
        // A child that aborts as expected leaves no core file.
        constexpr rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        body();
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
    {
        if (errno != EINTR)
        {
            raise("waitpid");
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator entries{"/proc/self/fd"};
    // One of them is this listing's own.
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries))) - 1;
}

std::string contentsOf(const std::string& path)
{
    std::ifstream file{path, std::ios::binary};
    if (!file)
    {
        raise(path);
    }
    return {std::istreambuf_iterator<char>{file}, {}};
}

void writeFile(const std::string& path, const std::string& contents)
{
    std::ofstream file{path, std::ios::binary};
    if (!file.write(contents.data(), static_cast<std::streamsize>(contents.size())).flush())
    {
        raise(path);
    }
}

} // namespace support
