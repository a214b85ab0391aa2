// SPDX-License-Identifier: Apache-2.0
#include "clock.hpp"
#include "command.hpp"
#include "explanation.hpp"
#include "keys.hpp"
#include "token_rules.hpp"
#include "tokens.hpp"
#include "trust.hpp"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <utility>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path = "-";
    std::string key;
    std::vector<std::string> trust;
    std::uint32_t skewSeconds = 0;
    bool asGiven = false;
    bool json = false;
};

/** Has @p walk and @p ask judge within one second of the clock: a token that expires between them
 *  is no disagreement. */
template <typename Walk, typename Ask>
void answerAtOnce(const Walk& walk, const Ask& ask, bool json)
{
    std::time_t now = std::time(nullptr);
    for (;;)
    {
        const Explanation explanation = walk(librarySeconds(now));
        const Exit library = exitOf(ask());
        const std::time_t then = std::exchange(now, std::time(nullptr));
        if (then == now || explanation.verdict == library)
        {
            answer(explanation, library, json);
            return;
        }
    }
}

void explainOwn(const Options& options, const std::string& token)
{
    const PrivateKey key = readPrivateKey(options.key);
    answerAtOnce([&](auto now) { return explainOwnToken(token, key, now); },
                 [&] { return validateToken(token, key).judgement(); }, options.json);
}

void explainDelegated(const Options& options, const std::string& token)
{
    std::vector<TrustedKey> keys;
    for (const std::string& path : options.trust)
    {
        std::ranges::move(keysIn(path, !options.asGiven), std::back_inserter(keys));
    }
    const DelegationRules rules{.skewSeconds = options.skewSeconds};
    const auto ask = [&] {
        // The library is never asked without a key.
        return keys.empty() ? Judgement::invalid : judgeByAll(token, keys, rules).judgement();
    };
    answerAtOnce(
        [&](auto now) { return explainDelegatedToken(token, keys, options.skewSeconds, now); }, ask,
        options.json);
}

void explain(const Options& options)
{
    if (options.key.empty() == options.trust.empty())
    {
        throw Stop{Exit::usage, "token explain needs either --key FILE, for a token of ours, or "
                                "--trust FILE, for one of another issuer"};
    }
    const std::string token = readToken(options.path);
    if (options.key.empty())
    {
        explainDelegated(options, token);
    }
    else
    {
        explainOwn(options, token);
    }
}

} // namespace

void addTokenExplanation(const Command& tokens)
{
    const Command verb = tokens.verb(
        "explain", "Say by which rule a token is refused",
        "token explain --key signing.pem response.json",
        "Names the first rule that refuses, what it saw and what it wanted. --key explains a token "
        "of ours,\n--trust one of another issuer. Exit status 0 when the token is accepted, 3 when "
        "it is refused,\n4 when it has expired, 5 when the explanation is not what the library "
        "says.");
    Options& options = verb.runs(explain);
    verb.option("FILE", options.path, "Token, or response document with access_token");
    verb.option("--key", options.key, "Key file that signed the token");
    verb.option("--trust", options.trust,
                "JSON Web Key, JWK Set or PEM public key; may be given again");
    verb.number("--skew", options.skewSeconds,
                "With --trust: seconds by which the issuer's clock may differ (default 0)");
    verb.flag("--as-given", options.asGiven,
              "With --trust: import no key, as a service that hands them over as they are");
    verb.json(options.json);
}

} // namespace bmcoauth::tool
