// SPDX-License-Identifier: Apache-2.0
#include "explanation.hpp"

#include "documents.hpp"

#include <utility>

namespace bmcoauth::tool
{

namespace
{

void printLines(const Explanation& explanation)
{
    if (explanation.verdict == Exit::success)
    {
        print("accepted: every rule is kept");
        return;
    }
    print(verdictName(explanation.verdict) + ": " + explanation.rule);
    print("  saw     " + harmless(explanation.saw));
    print("  wanted  " + harmless(explanation.wanted));
    if (!explanation.hint.empty())
    {
        print("  hint    " + harmless(explanation.hint));
    }
}

void printDocument(const Explanation& explanation)
{
    Json::Value document;
    document["verdict"] = verdictName(explanation.verdict);
    if (explanation.verdict != Exit::success)
    {
        document["rule"] = explanation.rule;
        document["saw"] = harmless(explanation.saw);
        document["wanted"] = harmless(explanation.wanted);
    }
    if (!explanation.hint.empty())
    {
        document["hint"] = harmless(explanation.hint);
    }
    printJson(document);
}

} // namespace

Explanation refused(std::string rule, std::string saw, std::string wanted, std::string hint)
{
    return {Exit::invalid, std::move(rule), std::move(saw), std::move(wanted), std::move(hint)};
}

Explanation outOfTime(std::string saw, std::string wanted, std::string hint)
{
    return {Exit::expired, "exp", std::move(saw), std::move(wanted), std::move(hint)};
}

std::string brief(std::string_view text)
{
    constexpr std::size_t most = 80;
    return text.size() <= most ? shown(text) : shown(text.substr(0, most)) + "...";
}

std::string verdictName(Exit verdict)
{
    switch (verdict)
    {
        case Exit::success:
            return "accepted";
        case Exit::invalid:
            return "refused";
        case Exit::expired:
            return "expired";
        default:
            return "not judged";
    }
}

void answer(const Explanation& explanation, Exit library, bool json)
{
    if (explanation.verdict != library)
    {
        const std::string rule =
            explanation.rule.empty() ? "" : " (" + explanation.rule + ": " + explanation.saw + ")";
        throw Stop{Exit::disagreement, "the explanation is wrong: by the rules it is " +
                                           verdictName(explanation.verdict) + rule +
                                           ", by the library it is " + verdictName(library) +
                                           "; please report this"};
    }
    if (json)
    {
        printDocument(explanation);
    }
    else
    {
        printLines(explanation);
    }
    if (explanation.verdict != Exit::success)
    {
        throw Quiet{explanation.verdict};
    }
}

} // namespace bmcoauth::tool
