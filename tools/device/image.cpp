// SPDX-License-Identifier: Apache-2.0
#include "device/image.hpp"

#include <deque>
#include <filesystem>
#include <system_error>

namespace bmcoauth::tool
{

std::string pathInImage(const std::string& root, const std::string& path)
{
    namespace fs = std::filesystem;
    constexpr int mostLinks = 40; // as the kernel
    const fs::path given{path};
    std::deque<fs::path> ahead{given.begin(), given.end()};
    fs::path reached = "/";
    for (int links = 0; !ahead.empty();)
    {
        const fs::path name = ahead.front();
        ahead.pop_front();
        if (name == "..")
        {
            reached = reached.parent_path();
            continue;
        }
        std::error_code error;
        const fs::path here = root / (reached / name).relative_path();
        const fs::path target = fs::read_symlink(here, error);
        if (error || ++links > mostLinks)
        {
            // Absolute for the "/" that begins an absolute path.
            reached /= name;
            continue;
        }
        reached = target.is_absolute() ? "/" : reached;
        ahead.insert(ahead.begin(), target.begin(), target.end());
    }
    return root / reached.relative_path();
}

} // namespace bmcoauth::tool
