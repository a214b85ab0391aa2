// SPDX-License-Identifier: Apache-2.0
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/refusal.hpp"
#include "token/privileges.hpp"
#include "token/tokens.hpp"
#include "token/trust.hpp"

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

/** The privileges that the JSON value @p rights of the file @p file grants. */
Privileges privilegesOf(const Json::Value& rights, const std::string& file)
{
    if (rights.isUInt() && rights.asUInt() < 1U << privilegeCount)
    {
        return Privileges{rights.asUInt()};
    }
    if (!rights.isArray())
    {
        throw Stop{Exit::invalid, file + " must give each role a mask from 0 to 511 or an array "
                                         "of scope names"};
    }
    Privileges granted;
    for (const Json::Value& right : rights)
    {
        const std::optional<Privilege> one =
            right.isString() ? privilegeNamed(right.asString()) : std::nullopt;
        if (!one)
        {
            throw Stop{
                Exit::invalid,
                file + " names an unknown privilege (see bmcoauth privileges): " + textOf(right)};
        }
        granted = granted | *one;
    }
    return granted;
}

/** Adds the user of a valid token, and the user's rights, to @p report. */
void describe(const VerifiedToken& valid, const std::string& token, Json::Value& report)
{
    if (const std::optional<std::string_view> user = valid.claims().subject())
    {
        report["user"] = std::string{*user};
    }
    const Json::Value scope = claimsOf(token)["scope"];
    if (scope.isObject() && !scope.empty())
    {
        // The issuer wrote these entries, in whatever words: they are not the library's mask.
        report["scopes"] = scope;
        warn("the token brings scope entries of its own; no privileges were computed");
        return;
    }
    if (const std::optional<Privileges> privileges = userPrivileges(valid))
    {
        report["mask"] = privileges->bits();
        report["privileges"] = namesOf(*privileges);
    }
}

/** Does not show the claims of a refused token: nobody has these rights. */
[[noreturn]] void refuseToken(const Verdict& verdict)
{
    const Reason reason = reasonOf(*verdict.refusal());
    const bool expired = verdict.judgement() == Judgement::expired && !reason.machine;
    const std::string message = (expired ? "the token is signed by a trusted key, but has expired: "
                                         : "the token is refused: ") +
                                lineOf(reason);
    Json::Value report;
    report["signature_verified"] = verdict.hasTrustedSignature();
    describe(reason, report);
    const Exit refused = expired ? Exit::expired : Exit::invalid;
    throw Refused{reason.machine ? Exit::failure : refused, message, std::move(report), true};
}

void judgeToken(const Options& options)
{
    const std::vector<std::string> keys = trustedKeys(options.trust);
    const Json::Value granted =
        options.roles.empty() ? Json::Value{Json::objectValue} : readObject(options.roles);
    const std::vector<std::string> names = granted.getMemberNames();
    std::vector<Role> roles;
    roles.reserve(names.size());
    for (const std::string& name : names)
    {
        if (name.find('\0') != std::string::npos)
        {
            throw Stop{Exit::invalid, nameOf(options.roles) + " names a role with a zero byte"};
        }
        roles.push_back({name, privilegesOf(granted[name], nameOf(options.roles))});
    }
    const std::vector<std::string_view> providers = viewsOf(options.providers);
    const std::string token = readToken(options.path);
    const Verdict verdict = judgeByAll(
        token, keys, {.skewSeconds = options.skewSeconds, .roles = roles, .providers = providers});

    const VerifiedToken* const valid = verdict.verified();
    if (valid == nullptr)
    {
        refuseToken(verdict);
    }
    Json::Value report;
    report["verdict"] = "valid";
    report["signature_verified"] = true;
    describe(*valid, token, report);
    printJson(report);
}

} // namespace

void addDelegatedCommand(const Command& tokens)
{
    const Command verb = tokens.verb(
        "delegated", "Judge a token of another issuer by trusted keys",
        "token delegated --trust issuer.jwks --provider corp --roles roles.json token.txt",
        "Prints the verdict and whether a trusted key has verified the signature. For a valid "
        "token, also its user and privileges; for any other, the rule that refuses it.\n\n"
        "A file of roles gives each role a mask or a list of privileges:\n"
        "  {\"operator\": 3, \"auditor\": [\"ravok_login\"]}\n");
    Options& options = verb.runs(judgeToken);
    verb.option("FILE", options.path, "Token, or response document with access_token");
    verb.required("--trust FILE", options.trust,
                  "Trusted key: JSON Web Key, JWK Set or PEM public key");
    verb.option("--provider NAME", options.providers,
                "Identity provider whose privilege codes count");
    verb.option("--roles FILE", options.roles, "What each role grants");
    verb.number("--skew SECONDS", options.skewSeconds,
                "How far the issuer's clock may be off (default 0)");
}

} // namespace bmcoauth::tool
