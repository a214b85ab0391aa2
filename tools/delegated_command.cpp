// SPDX-License-Identifier: Apache-2.0
#include "command.hpp"
#include "documents.hpp"
#include "jwks.hpp"
#include "privileges.hpp"
#include "tokens.hpp"

#include <array>
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

/** The keys in the file @p path in the library's form; what cannot be imported is left out of a
 *  set, where other keys are usual, and refused where it stands alone. */
std::vector<std::string> trustedKeys(const std::string& path)
{
    const std::string text = readText(path);
    Json::Value document;
    if (!loadJsonDoc(text.c_str(), document))
    {
        if (text.find("PUBLIC KEY-----") == std::string::npos)
        {
            throw Stop{Exit::invalid, nameOf(path) + " holds neither a public key in PEM form nor "
                                                     "JSON Web Keys"};
        }
        return {text};
    }
    std::vector<std::string> keys;
    for (const Json::Value& key : keysOf(document))
    {
        if (std::optional<std::string> imported = importedKey(key))
        {
            keys.push_back(std::move(*imported));
        }
    }
    if (keys.empty())
    {
        throw Stop{Exit::invalid, nameOf(path) + " holds no JSON Web Key that can be imported"};
    }
    return keys;
}

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

/** What one trusted key makes of a token. */
struct Judgement
{
    int verdict = Verdict::invalid;
    bool verified = false;
    JwtHeaderPtr header;
    JwtPayloadPtr payload;
};

Judgement judge(const std::string& token, const std::string& key, Roles& roles,
                const char** providers, std::uint32_t skewSeconds)
{
    std::array<const char*, 2> keys{key.c_str(), nullptr};
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    int verified = 0;
    Judgement judgement;
    judgement.verdict = validateJWT_Delegated(token.c_str(), keys.data(), 0, &header, &payload,
                                              skewSeconds, roles.data(), providers, &verified);
    judgement.header.reset(header);
    judgement.payload.reset(payload);
    judgement.verified = verified == 1;
    return judgement;
}

/** Judges by one key after the other. In one list the outcome would depend on their order: a key
 *  in PEM form that verifies is forgotten when the next one fails. */
Judgement judgeByAll(const std::string& token, const std::vector<std::string>& keys, Roles& roles,
                     const char** providers, std::uint32_t skewSeconds)
{
    Judgement best;
    for (const std::string& key : keys)
    {
        Judgement judgement = judge(token, key, roles, providers, skewSeconds);
        if (judgement.verified)
        {
            return judgement;
        }
        best = std::move(judgement);
    }
    return best;
}

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
    std::vector<std::string> keys;
    for (const std::string& path : options.trust)
    {
        const std::vector<std::string> more = trustedKeys(path);
        keys.insert(keys.end(), more.begin(), more.end());
    }
    Roles roles{options.roles};
    std::vector<const char*> providers;
    for (const std::string& provider : options.providers)
    {
        providers.push_back(provider.c_str());
    }
    providers.push_back(nullptr);
    const std::string token = readToken(options.path);
    const Judgement judgement =
        judgeByAll(token, keys, roles, providers.data(), options.skewSeconds);

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
