// SPDX-License-Identifier: Apache-2.0
#include "common/secret.hpp"

namespace bmcoauth::internal
{

// NOLINTNEXTLINE(misc-no-recursion): no deeper than the tree, whose depth the parser bounds
void wipeTexts(const Json::Value& tree) noexcept
{
    const char* begin = nullptr;
    const char* end = nullptr;
    if (tree.isString() && tree.getString(&begin, &end))
    {
        // jsoncpp shows its texts read-only, but the tree is ours and about to go.
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
        explicit_bzero(const_cast<char*>(begin), static_cast<std::size_t>(end - begin));
    }
    for (const Json::Value& child : tree)
    {
        wipeTexts(child);
    }
}

} // namespace bmcoauth::internal
