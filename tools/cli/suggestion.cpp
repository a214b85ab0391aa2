// SPDX-License-Identifier: Apache-2.0
#include "cli/suggestion.hpp"

#include <algorithm>
#include <string_view>

namespace bmcoauth::tool
{

namespace
{

/** How many letters must be put in, left out or replaced, or be swapped with the next one, to make
 *  @p word of @p other. */
std::size_t distance(std::string_view word, std::string_view other)
{
    std::vector<std::vector<std::size_t>> steps(word.size() + 1,
                                                std::vector<std::size_t>(other.size() + 1));
    for (std::size_t i = 0; i <= word.size(); ++i)
    {
        for (std::size_t j = 0; j <= other.size(); ++j)
        {
            if (i == 0 || j == 0)
            {
                steps[i][j] = i + j;
                continue;
            }
            const std::size_t replaced =
                steps[i - 1][j - 1] + (word[i - 1] == other[j - 1] ? 0 : 1);
            steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && word[i - 1] == other[j - 2] && word[i - 2] == other[j - 1])
            {
                steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
            }
        }
    }
    return steps.back().back();
}

} // namespace

std::vector<std::string> meant(const std::string& word, const CommandDescription& command)
{
    std::vector<std::string> found;
    // Of short words, nearly every one is near to every other.
    std::size_t nearest = std::min<std::size_t>(word.size() / 3, 2);
    for (const std::string& candidate : wordsBehind(command))
    {
        const std::size_t away = distance(word, candidate);
        if (away < nearest)
        {
            found.clear();
        }
        if (away <= nearest)
        {
            nearest = away;
            found.push_back(candidate);
        }
    }
    // The group may have been left out.
    for (const CommandDescription* verb : verbsOf(command))
    {
        if (verb->path.size() == command.path.size() + 2 && verb->path.back() == word)
        {
            found.push_back(verb->path.front() + ' ' + word);
        }
    }
    return found;
}

} // namespace bmcoauth::tool
