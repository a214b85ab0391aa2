// SPDX-License-Identifier: Apache-2.0
#include "cli/clock.hpp"
#include "cli/command.hpp"
#include "cli/documents.hpp"
#include "cli/refusal.hpp"
#include "key/keys.hpp"
#include "token/tokens.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

// ---------------------------------------------------------------------------------------- issue

/** A scope entry given on the command line. */
struct Scope
{
    std::string_view name;
    std::vector<std::string_view> values;
};

/** Takes a text such as "files=read,write". */
Scope scopeOf(std::string_view text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos || equals == 0 || equals + 1 == text.size())
    {
        throw Stop{Exit::usage, "--scope takes NAME=VALUE[,VALUE...], not " + std::string{text}};
    }
    Scope scope{text.substr(0, equals), {}};
    for (std::size_t begin = equals + 1; begin < text.size();)
    {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        scope.values.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return scope;
}

struct IssueOptions
{
    std::string path = "-";
    std::string key;
    std::string subject;
    std::string issuer;
    std::vector<std::string> scopes;
    std::uint32_t lifetimeSeconds = 3600;
};

void issue(const IssueOptions& options)
{
    std::vector<Scope> scopes;
    std::ranges::transform(options.scopes, std::back_inserter(scopes), scopeOf);
    std::vector<ScopeEntry> entries;
    entries.reserve(scopes.size());
    for (const Scope& scope : scopes)
    {
        entries.push_back({scope.name, scope.values});
    }
    const PrivateKey key = readPrivateKey(options.key);
    const TokenRequest request =
        orStop(TokenRequest::parse(readText(options.path)),
               nameOf(options.path) + " is not an authorize request", Exit::invalid);
    TokenGrant grant{
        .state = request.state().value(),
        .lifetimeSeconds = options.lifetimeSeconds,
        .scopes = entries,
    };
    if (!options.subject.empty())
    {
        grant.subject = options.subject;
    }
    if (!options.issuer.empty())
    {
        grant.issuer = options.issuer;
    }
    const TokenResponse response = orStop(issueTokens(grant, key), "the token could not be issued");
    print(orStop(response.write(), "the response could not be written"));
}

// -------------------------------------------------------------------------------------- inspect

/** The seconds that a claim holds, as a number or as a decimal text. */
std::optional<std::uint64_t> secondsOf(const Json::Value& claim)
{
    if (claim.isUInt64())
    {
        return claim.asUInt64();
    }
    if (!claim.isString() || claim.asString().empty())
    {
        return std::nullopt;
    }
    const std::string text = claim.asString();
    char* end = nullptr;
    errno = 0;
    const std::uint64_t seconds = std::strtoull(text.c_str(), &end, 0);
    return *end == '\0' && errno == 0 ? std::optional{seconds} : std::nullopt;
}

void printMembers(const std::string& title, const Json::Value& object)
{
    print(title);
    for (const std::string& name : object.getMemberNames())
    {
        const Json::Value& value = object[name];
        std::string line = "  " + shown(name) + "  " +
                           (value.isString() ? shown(value.asString()) : harmless(textOf(value)));
        if (name == "iat" || name == "nbf" || name == "exp")
        {
            const std::optional<std::uint64_t> seconds = secondsOf(value);
            line += "  (" + (seconds ? readableTime(*seconds) : "no time") + ")";
        }
        print(line);
    }
}

struct InspectOptions
{
    std::string path = "-";
    bool json = false;
};

void inspect(const InspectOptions& options)
{
    const std::string token = readToken(options.path);
    const std::optional<TokenParts> parts = partsOf(token);
    if (!parts)
    {
        throw Stop{Exit::invalid, nameOf(options.path) + " holds no token: two dots are expected"};
    }
    const Json::Value header = decodePart(parts->header, "header");
    const Json::Value claims = decodePart(parts->payload, "payload");
    if (options.json)
    {
        Json::Value document;
        document["header"] = header;
        document["claims"] = claims;
        printJson(document);
    }
    else
    {
        printMembers("header", header);
        printMembers("claims", claims);
    }
    warn("nothing was verified; anybody can write such a token");
}

// --------------------------------------------------------------------------------------- verify

struct VerifyOptions
{
    std::string path = "-";
    std::string key;
    bool json = false;
};

void verify(const VerifyOptions& options)
{
    const PrivateKey key = readPrivateKey(options.key);
    const std::string token = readToken(options.path);
    const Verdict verdict = validateToken(token, key);
    if (const Error* const refusal = verdict.refusal())
    {
        if (verdict.judgement() == Judgement::expired)
        {
            // The library looks at the time before it looks at the signature.
            refuse("the token has expired, its signature was not looked at", reasonOf(*refusal),
                   Exit::expired);
        }
        refuse("the token is refused", reasonOf(*refusal));
    }
    // All of them: the records keep those that the library looks at.
    const Json::Value claims = claimsOf(token);
    if (!options.json)
    {
        printJson(claims);
        return;
    }
    Json::Value document;
    document["verdict"] = "valid";
    document["claims"] = claims;
    printJson(document);
}

} // namespace

void addTokenCommands(const Command& root)
{
    const Command group = root.group("token", "Access tokens");

    const Command issueVerb =
        group.verb("issue", "Answer an authorize request with fresh tokens",
                   "token issue --key signing.pem --subject admin --scope files=read,write "
                   "request.json");
    IssueOptions& issueOptions = issueVerb.runs(issue);
    issueVerb.option("FILE", issueOptions.path, "Authorize request document");
    issueVerb.required("--key FILE", issueOptions.key,
                       "Key that signs the token (see key generate)");
    issueVerb.option("--subject NAME", issueOptions.subject, "Who the token is for: claim sub");
    issueVerb.option("--issuer NAME", issueOptions.issuer, "Who issues it: claim iss");
    issueVerb.option("--scope NAME=VALUE[,VALUE...]", issueOptions.scopes,
                     "Entry of the claim scope");
    issueVerb.number("--lifetime SECONDS", issueOptions.lifetimeSeconds,
                     "How long the token is valid (default 3600)", 1);

    const Command inspectVerb =
        group.verb("inspect", "Show the header, claims and times of a token; verify nothing",
                   "token inspect response.json");
    InspectOptions& inspectOptions = inspectVerb.runs(inspect);
    inspectVerb.option("FILE", inspectOptions.path,
                       "Token, or response document with access_token");
    inspectVerb.json(inspectOptions.json);

    const Command verifyVerb = group.verb(
        "verify", "Verify a token of ours and print its claims",
        "token verify --key signing.pem response.json",
        "The key is the private one that signed the token. If the token has expired, its "
        "signature is not looked at.");
    VerifyOptions& verifyOptions = verifyVerb.runs(verify);
    verifyVerb.option("FILE", verifyOptions.path, "Token, or response document with access_token");
    verifyVerb.required("--key FILE", verifyOptions.key, "Key that signed the token");
    verifyVerb.json(verifyOptions.json);

    addTokenConversion(group);
    addDelegatedCommand(group);
}

} // namespace bmcoauth::tool
