// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"
#include "privileges.hpp"
#include "tokens.hpp"
#include "trust.hpp"

#include <deque>

namespace bmcoauth::tool
{

namespace
{

struct Options
{
    std::string path = "-";
    std::vector<std::string> trust;
    std::vector<std::string> providers;
    std::string roles;
    std::uint32_t skewSeconds = 0;
};

/** The caller's roles and what each grants. */
class Roles
{
public:
    /** Reads the file @p path; there are none without one. */
    explicit Roles(const std::string& path)
    {
        const Json::Value document =
            path.empty() ? Json::Value{Json::objectValue} : readObject(path);
        for (const std::string& name : document.getMemberNames())
        {
            entries.push_back(
                {names.emplace_back(name).c_str(), maskOf(document[name], nameOf(path))});
        }
        entries.push_back({nullptr, 0});
    }

    [[nodiscard]] userRole_s* data()
    {
        return entries.data();
    }

private:
    static unsigned int maskOf(const Json::Value& rights, const std::string& file)
    {
        if (rights.isUInt() && rights.asUInt() < 1U << privilegeCount)
        {
            return rights.asUInt();
        }
        if (rights.isArray())
        {
            unsigned int mask = 0;
            for (const Json::Value& right : rights)
            {
                const std::optional<unsigned int> bit =
                    right.isString() ? privilegeMask(right.asString()) : std::nullopt;
                if (!bit)
                {
                    throw Stop{Exit::invalid,
                               file +
                                   " names a privilege that there is not (see bmcoauth "
                                   "privileges): " +
                                   json_fastWriter(right)};
                }
                mask |= *bit;
            }
            return mask;
        }
        throw Stop{Exit::invalid, file + " must give each role a mask from 0 to 511 or an array "
                                         "of scope names"};
    }

    std::deque<std::string> names;
    std::vector<userRole_s> entries;
};

/** What a valid token says of its user. */
void describe(const JWTPayload& payload, const std::string& token, Json::Value& report)
{
    if (payload.sub != nullptr)
    {
        report["user"] = payload.sub;
    }
    const Json::Value scope = claimsOf(token)["scope"];
    if (scope.isObject() && !scope.empty())
    {
        // The issuer wrote these entries, in whatever words: they are not the library's mask.
        report["scopes"] = scope;
        warn("the token brings scope entries of its own; no privileges were computed");
        return;
    }
    for (int i = 0; i < payload.scopes_count; ++i)
    {
        const JWTscopes& entry = payload.scopes[i];
        if (std::string{entry.name} == "USER_PRIV")
        {
            const auto mask = static_cast<unsigned int>(std::strtoul(entry.values[0], nullptr, 10));
            report["mask"] = mask;
            report["privileges"] = privilegeNames(mask);
        }
    }
}

void judgeToken(const Options& options)
{
    const std::vector<TrustedKey> keys = usableKeys(options.trust);
    Roles roles{options.roles};
    std::vector<const char*> providers;
    for (const std::string& provider : options.providers)
    {
        providers.push_back(provider.c_str());
    }
    providers.push_back(nullptr);
    const std::string token = readToken(options.path);
    const Judgement judgement =
        judgeByAll(token, keys, options.skewSeconds, roles.data(), providers.data());

    Json::Value report;
    report["verified"] = judgement.verified;
    if (judgement.verdict == Verdict::valid)
    {
        report["verdict"] = "valid";
        describe(*judgement.payload, token, report);
        printJson(report);
        return;
    }
    // What a refused token claims is nobody's rights: it is not shown.
    const bool expired = judgement.verdict == Verdict::expired;
    report["verdict"] = expired ? "expired" : "invalid";
    printJson(report);
    if (expired)
    {
        throw Stop{Exit::expired, "the token is signed by a trusted key, but has expired"};
    }
    throw Stop{Exit::invalid, judgement.verified
                                  ? "the token is signed by a trusted key, but not valid yet, or "
                                    "has no expiry"
                                  : "the token is not signed by a trusted key, or is malformed"};
}

} // namespace

void addDelegatedCommand(const Command& tokens)
{
    const Command verb = tokens.verb(
        "delegated", "Judge a token of another issuer by trusted keys",
        "token delegated --trust issuer.jwks --provider corp --roles roles.json token.txt",
        "Prints the verdict (valid, invalid or expired), whether a trusted key verified the "
        "signature and, of a\nvalid token, its user and privileges. Exit status 3 when the token "
        "is refused, 4 when it has expired.\nA file of roles looks like {\"operator\": 3, "
        "\"auditor\": [\"ravok_login\"]}.");
    Options& options = verb.runs(judgeToken);
    verb.option("FILE", options.path, "Token, or response document with access_token");
    verb.required("--trust", options.trust,
                  "JSON Web Key, JWK Set or PEM public key; may be given again");
    verb.option("--provider", options.providers,
                "Identity provider whose privilege codes count; may be given again");
    verb.option("--roles", options.roles, "JSON object: what each role grants");
    verb.number("--skew", options.skewSeconds,
                "Seconds by which the issuer's clock may differ (default 0)");
}

} // namespace bmcoauth::tool
