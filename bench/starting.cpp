// SPDX-License-Identifier: Apache-2.0
//
// What it costs a process to load a library: the processor time of the loader, and the pages that it
// writes. Linked with nothing but the C library, so that nothing is there before. Writes both, then
// the files that were loaded.
#include <dlfcn.h>
#include <link.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

namespace
{

/** The KiB of memory that this process has written and shares with no other. */
long writtenPages()
{
    std::ifstream rollup{"/proc/self/smaps_rollup"};
    for (std::string name; rollup >> name;)
    {
        if (name == "Anonymous:")
        {
            long kibibytes = 0;
            rollup >> kibibytes;
            return kibibytes;
        }
    }
    return 0;
}

/** In microseconds, of this process. */
double processorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

std::set<std::string> loadedFiles()
{
    std::set<std::string> files;
    dl_iterate_phdr(
        [](dl_phdr_info* object, std::size_t /*size*/, void* found) {
            static_cast<std::set<std::string>*>(found)->insert(object->dlpi_name);
            return 0;
        },
        &files);
    return files;
}

} // namespace

int main(int argc, char** argv)
{
    const std::set<std::string> filesBefore = loadedFiles();
    const long writtenBefore = writtenPages();
    const double begin = processorTime();
    if (argc != 2 || dlopen(argv[1], RTLD_NOW) == nullptr)
    {
        std::cerr << "usage: bench-starting LIBRARY, which must be there\n";
        return EXIT_FAILURE;
    }
    const double taken = processorTime() - begin;
    std::cout << taken << ' ' << writtenPages() - writtenBefore << '\n';
    for (const std::string& file : loadedFiles())
    {
        if (!filesBefore.contains(file))
        {
            std::cout << file << '\n';
        }
    }
    return EXIT_SUCCESS;
}
