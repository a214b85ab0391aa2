// SPDX-License-Identifier: Apache-2.0
#include "clock.hpp"
#include "command.hpp"
#include "documents.hpp"
#include "keys.hpp"
#include "tokens.hpp"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <deque>
#include <optional>
#include <sstream>
#include <vector>

namespace bmcoauth::tool
{

namespace
{

/** Where `issue` and `verify` explain why they want a key. */
constexpr const char* withoutKey =
    "a key is needed: give --key FILE (bmcoauth key generate makes one). Without a key the library "
    "would sign with a throwaway key, and nobody could ever verify the token";

// ---------------------------------------------------------------------------------------- issue

/** The scope entries given on the command line, in the library's form. */
class Scopes
{
public:
    /** Takes texts such as "files=read,write". */
    explicit Scopes(const std::vector<std::string>& given)
    {
        for (const std::string& text : given)
        {
            add(text);
        }
    }

    [[nodiscard]] JWTscopes* data()
    {
        return entries.data();
    }

    [[nodiscard]] int size() const
    {
        return static_cast<int>(entries.size());
    }

private:
    void add(const std::string& text)
    {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
        {
            throw Stop{Exit::usage, "--scope takes NAME=VALUE[,VALUE...], not " + text};
        }
        std::vector<char*>& values = valueLists.emplace_back();
        std::istringstream rest{text.substr(equals + 1)};
        for (std::string value; std::getline(rest, value, ',');)
        {
            values.push_back(keep(std::move(value)));
        }
        entries.push_back(
            {keep(text.substr(0, equals)), values.data(), static_cast<int>(values.size())});
    }

    char* keep(std::string text)
    {
        return texts.emplace_back(std::move(text)).data();
    }

    // Deques, because what the entries point at must not move.
    std::deque<std::string> texts;
    std::deque<std::vector<char*>> valueLists;
    std::vector<JWTscopes> entries;
};

struct IssueOptions
{
    std::string path = "-";
    std::string key;
    std::string subject;
    std::string issuer;
    std::vector<std::string> scopes;
    std::uint32_t lifetimeSeconds = 3600;
};

void issue(IssueOptions& options)
{
    if (options.key.empty())
    {
        throw Stop{Exit::usage, withoutKey};
    }
    Scopes scopes{options.scopes};
    const PrivateKeyBytes key{options.key};
    const AuthorizeRequestPtr request{parse_authorize_request(readText(options.path).c_str())};
    if (!request)
    {
        throw Stop{Exit::invalid,
                   nameOf(options.path) +
                       " is not an authorize request: it needs the strings client_id, "
                       "client_secret and state, and a refresh_token or a handshake_response"};
    }
    AuthorizeClaims claims{
        options.subject.empty() ? nullptr : options.subject.data(),
        options.issuer.empty() ? nullptr : options.issuer.data(),
        scopes.data(),
        scopes.size(),
    };
    const AuthorizeResponsePtr settings{
        configure_auth_response(std::to_string(options.lifetimeSeconds).c_str(), nullptr)};
    const AuthorizeResponsePtr response{authorize_client(request->state, key.data(),
                                                         static_cast<unsigned int>(key.size()),
                                                         settings.get(), &claims)};
    if (!settings || !response)
    {
        throw Stop{Exit::failure, "the token could not be issued"};
    }
    print(orStop(write_authorize_response(response.get()), "the response could not be written")
              .get());
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

/** @p seconds as date and time in UTC, and how far they are from now. */
std::string readableTime(std::uint64_t seconds)
{
    std::string date = dateOf(seconds);
    if (date == beyondCalendar)
    {
        return date;
    }
    const double away = std::difftime(static_cast<std::time_t>(seconds), std::time(nullptr));
    const auto whole = static_cast<unsigned long long>(away < 0 ? -away : away);
    return date + (away < 0 ? ", " : ", in ") + std::to_string(whole) + " s" +
           (away < 0 ? " ago" : "");
}

void printMembers(const std::string& title, const Json::Value& object)
{
    print(title);
    for (const std::string& name : object.getMemberNames())
    {
        const Json::Value& value = object[name];
        std::string line =
            "  " + shown(name) + "  " +
            (value.isString() ? shown(value.asString()) : harmless(json_fastWriter(value)));
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
};

void verify(const VerifyOptions& options)
{
    if (options.key.empty())
    {
        throw Stop{Exit::usage, "a key is needed: give --key FILE, the key that signed the token"};
    }
    const PrivateKeyBytes key{options.key};
    const std::string token = readToken(options.path);
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    const int verdict = validateJWT(token.c_str(), key.data(), key.size(), &header, &payload);
    const JwtHeaderPtr ownedHeader{header};
    const JwtPayloadPtr ownedPayload{payload};
    switch (verdict)
    {
        case Verdict::valid:
            printJson(claimsOf(token));
            return;
        case Verdict::expired:
            // The library looks at the time before it looks at the signature.
            throw Stop{Exit::expired, "the token has expired (its signature was not looked at)"};
        case Verdict::invalid:
            throw Stop{Exit::invalid, "the token is not valid: it is malformed, not valid yet, or "
                                      "not signed with this key"};
        default:
            throw Stop{Exit::failure, "the token could not be judged: the clock or memory failed"};
    }
}

} // namespace

void addTokenCommands(const Command& root)
{
    const Command group = root.group("token", "Issue, inspect and verify access tokens");

    const Command issueVerb =
        group.verb("issue", "Answer an authorize request with fresh tokens",
                   "token issue --key signing.pem --subject admin --scope files=read,write "
                   "request.json");
    IssueOptions& issueOptions = issueVerb.runs(issue);
    issueVerb.option("FILE", issueOptions.path, "Authorize request document");
    issueVerb.option("--key", issueOptions.key, "Key file that signs the token");
    issueVerb.option("--subject", issueOptions.subject, "Claim sub");
    issueVerb.option("--issuer", issueOptions.issuer, "Claim iss");
    issueVerb.option("--scope", issueOptions.scopes,
                     "Scope entry NAME=VALUE[,VALUE...]; may be given again");
    issueVerb.number("--lifetime", issueOptions.lifetimeSeconds,
                     "Seconds until the token expires (default 3600)", 1);

    const Command inspectVerb =
        group.verb("inspect", "Show header, claims and times; verifies nothing",
                   "token inspect response.json");
    InspectOptions& inspectOptions = inspectVerb.runs(inspect);
    inspectVerb.option("FILE", inspectOptions.path,
                       "Token, or response document with access_token");
    inspectVerb.json(inspectOptions.json);

    const Command verifyVerb =
        group.verb("verify", "Verify a token of ours, print its claims",
                   "token verify --key signing.pem response.json",
                   "Exit status 3 when the token is refused, 4 when it has expired.");
    VerifyOptions& verifyOptions = verifyVerb.runs(verify);
    verifyVerb.option("FILE", verifyOptions.path, "Token, or response document with access_token");
    verifyVerb.option("--key", verifyOptions.key, "Key file that signed the token");

    addTokenExplanation(group);
    addTokenConversion(group);
    addDelegatedCommand(group);
}

} // namespace bmcoauth::tool
