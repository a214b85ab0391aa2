// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"
#include "service/keys.hpp"

#include <bmcoauth/service.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <set>

/** Hostile requests for registrations and tokens, one after the other. The service has two clients:
 *  "own", which knows its secrets, and "pending", which does not know the service's passwords. */
namespace
{

using bmcoauth::ClientRecord;
using bmcoauth::Expected;
using bmcoauth::MemoryStore;
using bmcoauth::Refusal;
using bmcoauth::Registrar;
using bmcoauth::SecretDigest;
using bmcoauth::Text;
using bmcoauth::TokenEndpoint;
using bmcoauth::TokenIssuer;

/** The groups of rules, up to the dot. */
constexpr auto registrationRules =
    std::to_array<std::string_view>({"json", "document", "argument", "registration", "handshake",
                                     "certificate", "chain", "key", "client"});
constexpr auto tokenRules = std::to_array<std::string_view>(
    {"json", "document", "argument", "authorize", "handshake", "client"});
constexpr auto revocationRules = std::to_array<std::string_view>({"client"});

constexpr bmcoauth::ClientLimits limits{.pending = 3, .proven = 2};
constexpr std::string_view goodRegistration =
    R"({"client_name":"c","software_id":"s","handshake_types":["otp1.0"],)"
    R"("redirect_uri":["https://c/"]})";

/** Ends the process unless `answer` is a value, or a refusal by a rule of the groups `rules` with a
 *  document and a printable reason. */
template <typename T>
bool judgedAnswer(fuzz::Rules rules, const Expected<T, Refusal>& answer)
{
    if (answer)
    {
        return true;
    }
    const bmcoauth::Description reason = answer.error().describe();
    fuzz::require(std::ranges::all_of(reason.view(), [](char c) { return c >= ' ' && c <= '~'; }),
                  "a reason is printable");
    const std::string_view name = answer.error().name();
    if (std::ranges::find(rules, name.substr(0, name.find('.'))) == rules.end())
    {
        std::fprintf(stderr, "%s\n", reason.c_str());
        fuzz::require(false, "a refusal has a reason that this call may give");
    }
    fuzz::require(answer.error().document().has_value(), "a refusal has a document");
    return false;
}

class Service
{
public:
    Service()
    {
        // Its challenge is a new one each time, so that no password is found by comparing.
        std::string id = registered(goodRegistration);
        fuzz::require(!id.empty(), "a good request is answered");
        ClientRecord pending = *store.find(id).value();
        pending.id = "pending";
        pending.secret = SecretDigest::of("secret");
        ClientRecord own = pending;
        own.id = "own";
        own.challenge.clear();
        own.expiresAt = own.endsAt;
        own.refresh = bmcoauth::RefreshFamily{.family = SecretDigest::of("family"),
                                              .current = SecretDigest::of("family.secret"),
                                              .rotatedAt = now()};
        fuzz::require(store.remove(id) && store.add(pending, limits, now()) &&
                          store.add(own, limits, now()),
                      "there are two clients");
        ids = {"pending"};
        tokens = {"family.secret"};
    }

    void take(const std::string& text)
    {
        const std::string id = registered(text);
        if (!id.empty())
        {
            ids.insert(id);
        }
        const auto isThere = [&](const std::string& one) {
            return store.find(one).value().has_value();
        };
        fuzz::require(std::cmp_less_equal(std::ranges::count_if(ids, isThere), limits.pending),
                      "the store stays within its limits");
        // No factory's roots are here.
        fuzz::require(!judgedAnswer(registrationRules, devices.answer(text, "sender")),
                      "no device is registered");
        askForTokens(text);
        judgeToken(text);
    }

private:
    static std::chrono::sys_seconds now()
    {
        return std::chrono::sys_seconds{std::chrono::seconds{fuzz::now}};
    }
    [[nodiscard]] Registrar<MemoryStore> registrarOf(bmcoauth::Proofs proofs)
    {
        return Registrar<MemoryStore>::of(
                   store, {.proofs = proofs, .redirectUris = {"https://c/"}, .limits = limits}, now)
            .value();
    }
    [[nodiscard]] TokenEndpoint<MemoryStore> endpointOf()
    {
        bmcoauth::TokenFunctions functions;
        functions.secrets = [](const ClientRecord&) {
            return Text::copy(R"({"otp1.0":["83016483920461748392"]})");
        };
        functions.privileges = [](const ClientRecord&) {
            return bmcoauth::Privileges{};
        };
        functions.mayIntrospect = [](std::string_view) {
            return true;
        };
        return TokenEndpoint<MemoryStore>::of(store, issuer(), std::move(functions)).value();
    }
    /** Of all services: making its keys takes a while. */
    static const TokenIssuer& issuer()
    {
        static const TokenIssuer only =
            TokenIssuer::of(bmcoauth::SigningKeys::of(bmcoauth::TestSigner{}).value(),
                            {.issuer = "i", .audience = bmcoauth::ignored}, now)
                .value();
        return only;
    }
    /** An access token of the client "own". */
    static std::string_view access()
    {
        static const bmcoauth::IssuedToken only = issuer().issue("own", {}).value();
        return only.token;
    }

    /** The new client's identifier; empty if the request is refused. */
    std::string registered(std::string_view text)
    {
        const Expected<Text, Refusal> answer = passwords.answer(text, "sender");
        if (!judgedAnswer(registrationRules, answer))
        {
            return {};
        }
        char* id = nullptr;
        fuzz::require(get_value_char(answer->c_str(), "client_id", &id) == 1,
                      "an answer has an identifier");
        const support::HeapText owner{id};
        fuzz::require(store.find(id).value().has_value(), "who is answered is in the store");
        return id;
    }

    void askForTokens(const std::string& text)
    {
        const Expected<Text, Refusal> answer = endpoint.answer(text, "sender");
        if (!judgedAnswer(tokenRules, answer))
        {
            return;
        }
        const bmcoauth::TokenRequest request = bmcoauth::TokenRequest::parse(text).value();
        const bmcoauth::TokenResponse response = bmcoauth::TokenResponse::parse(*answer).value();
        const std::string shown{request.refreshToken().value_or("")};
        fuzz::require(request.clientId() == "own" && request.clientSecret() == "secret" &&
                          request.get()->handshake == nullptr && tokens.contains(shown),
                      "no tokens without a proof");
        fuzz::require(response.refreshToken() != shown, "a refresh token rotates");
        tokens.insert(std::string{response.refreshToken().value()});
    }

    /** Judges `text`, or the access token where it is "access". */
    void judgeToken(const std::string& text)
    {
        const bool isAccess = text == "access";
        const std::string_view token = isAccess ? access() : text;
        const bool wasActive = endpoint.isActive("own").value();
        const Expected<Text, Refusal> facts = endpoint.introspect(token, "sender");
        fuzz::require(facts && (facts->view() != R"({"active":false})") == (isAccess && wasActive),
                      "only what was issued is active");
        fuzz::require(!judgedAnswer(revocationRules, endpoint.revoke("own", "wrong", token)),
                      "nobody revokes without the secret");
        fuzz::require(endpoint.isActive("own").value() == wasActive,
                      "a refused revocation changes nothing");
        const bool isTheirs = isAccess || text.substr(0, text.find('.')) == "family";
        judgedAnswer(revocationRules, endpoint.revoke("own", "secret", token));
        fuzz::require(endpoint.isActive("own").value() == (wasActive && !isTheirs),
                      "a client's tokens end it, and no other");
    }

    MemoryStore store;
    Registrar<MemoryStore> passwords = registrarOf(bmcoauth::Proofs::oneTimePassword);
    Registrar<MemoryStore> devices = registrarOf(bmcoauth::Proofs::both);
    TokenEndpoint<MemoryStore> endpoint = endpointOf();
    std::set<std::string> ids;
    /** The refresh tokens that "own" has been given. */
    std::set<std::string> tokens;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input{data, size};
    Service service;
    constexpr int most = 8;
    for (int i = 0; i < most && input.remaining_bytes() > 0; ++i)
    {
        service.take(fuzz::nextText(input));
    }
    return 0;
}
