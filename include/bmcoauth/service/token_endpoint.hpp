// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The token endpoint of a service, with revocation and introspection.
 *
 * Rules and records are made of std::string and std::function: where memory for one runs out, it
 * does what it always does. */

#include <bmcoauth/cpp/authorize.hpp>
#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/parameters.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/service/client_record.hpp>
#include <bmcoauth/service/clock.hpp>
#include <bmcoauth/service/device_identity.hpp>
#include <bmcoauth/service/issued_token.hpp>
#include <bmcoauth/service/refresh_token.hpp>
#include <bmcoauth/service/refusal.hpp>
#include <bmcoauth/service/secret_digest.hpp>
#include <bmcoauth/service/store.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** What a valid access token says. */
struct TokenFacts
{
    /** The claim "sub": the "client_id". */
    std::string subject;
    /** The claim "jti". */
    std::string id;
    /** The claim "exp". */
    std::chrono::sys_seconds expiresAt;
    /** What the subject may do. */
    Privileges privileges;
};

/** What a TokenEndpoint asks the service for. All of them are needed, and are called from several
 *  threads at once. */
struct TokenFunctions
{
    /** Issues an access token. */
    std::function<Expected<IssuedToken>(std::string_view subject, Privileges)> issue;
    /** Validates an access token that `issue` has issued. */
    std::function<Expected<TokenFacts>(std::string_view token)> validate;
    /** The key document that this client has, too: one for each, or each could answer for the
     *  others. Not looked at if passwords are not asked for. */
    std::function<Expected<Text>(const ClientRecord&)> secrets;
    /** What this client may do. Asked for each token. */
    std::function<Privileges(const ClientRecord&)> privileges;
    /** Whether this sender may ask what tokens are good for. */
    std::function<bool(std::string_view sender)> mayIntrospect;
};

/** How a TokenEndpoint decides. */
struct TokenEndpointRules
{
    /** How many proofs of one sender may fail. */
    FailureRate failuresOfSender{.burst = 10, .interval = std::chrono::minutes{10}};
    /** How many may fail in all, whoever sends them: 338 in the first day. */
    FailureRate failuresInAll{.burst = 50, .interval = std::chrono::minutes{5}};
    /** A client that is not used for so long ends. */
    std::chrono::seconds refreshLifetime = std::chrono::days{30};
    /** When a refresh token may come twice. */
    ReplayWindow replays = {};
    /** The longest request or token that is read at all. */
    std::size_t maximumBytes = 16384;
};

/** TokenEndpoint gives tokens to clients that have proven who they are, or that show a refresh token.
 *  Thread-safe; it has no state but the store's. All that it refuses, it refuses with the same
 *  word to the peer: an unknown client, a wrong secret, a locked sender, a wrong proof. */
template <Store S>
class TokenEndpoint
{
public:
    /** An endpoint for `store`, which must outlive it. Refused if a function is absent or a rule
     *  has no meaning. */
    [[nodiscard]] static Expected<TokenEndpoint> of(S& store BMCOAUTH_LIFETIMEBOUND,
                                                    TokenFunctions functions,
                                                    TokenEndpointRules rules = {},
                                                    Clock clock = systemClock())
    {
        if (!functions.issue || !functions.validate || !functions.secrets ||
            !functions.privileges || !functions.mayIntrospect || !clock)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "functions"};
        }
        const auto isRate = [](const FailureRate& rate) {
            return rate.burst > 0 && rate.interval.count() > 0;
        };
        if (!isRate(rules.failuresOfSender) || !isRate(rules.failuresInAll) ||
            rules.refreshLifetime.count() <= 0)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "rules"};
        }
        return TokenEndpoint{store, std::move(functions), rules, std::move(clock)};
    }

    /** Answers the token request `text` of `sender`: see Registrar::answer. */
    [[nodiscard]] Expected<Text, Refusal> answer(std::string_view text, std::string_view sender)
    {
        if (text.size() > rules.maximumBytes)
        {
            return Refusal{OAUTH_INVALID_REQUEST, Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "request"}};
        }
        const Expected<TokenRequest> request = TokenRequest::parse(text);
        if (!request)
        {
            return Refusal{OAUTH_INVALID_REQUEST, request.error()};
        }
        const Expected<ClientRecord> client =
            authenticated(request->clientId().value_or(""), request->clientSecret().value_or(""));
        if (!client)
        {
            return refusal(client.error());
        }
        return request->get()->handshake != nullptr ? proven(*client, *request, sender)
                                                    : refreshed(*client, *request);
    }

    /** Ends the client whose refresh token or access token this is (RFC 7009): all its tokens with
     *  it. Succeeds without a change if the token is not one of the client's. */
    [[nodiscard]] Expected<void, Refusal>
    revoke(std::string_view clientId, std::string_view clientSecret, std::string_view token)
    {
        const Expected<ClientRecord> client = authenticated(clientId, clientSecret);
        if (!client)
        {
            return refusal(client.error());
        }
        const Expected<bool> own = isOf(*client, token);
        if (!own)
        {
            return refusal(own.error());
        }
        if (const Expected<void> removed = *own ? store->remove(client->id) : Expected<void>{};
            !removed)
        {
            return refusal(removed.error());
        }
        return {};
    }

    /** Whether access tokens of this subject still count: its client has neither ended nor been removed.
     *  For every service that validates them. */
    [[nodiscard]] Expected<bool> isActive(std::string_view subject) const
    {
        const Expected<std::optional<ClientRecord>> client = store->find(subject);
        if (!client)
        {
            return client.error();
        }
        return *client && (*client)->refresh && clock() < (*client)->expiresAt;
    }

    /** What the access token `token` is good for (RFC 7662), for a sender who may ask. Of a token
     *  that does not count, nothing but that. */
    [[nodiscard]] Expected<Text, Refusal> introspect(std::string_view token,
                                                     std::string_view sender) const
    {
        if (!functions.mayIntrospect(sender))
        {
            return Refusal{OAUTH_ACCESS_DENIED, Error{BMCOAUTH_RULE_CLIENT_NOT_AUTHORIZED}};
        }
        const Expected<std::optional<TokenFacts>> facts = valid(token);
        const Expected<bool> active =
            facts && *facts ? isActive((*facts)->subject) : Expected<bool>{false};
        if (!facts || !active)
        {
            return Refusal{OAUTH_SERVER_ERROR, facts ? active.error() : facts.error()};
        }
        Expected<Text> document = *active ? described(**facts) : Text::copy(R"({"active":false})");
        return document ? Expected<Text, Refusal>{*std::move(document)}
                        : Refusal{OAUTH_SERVER_ERROR, document.error()};
    }

private:
    TokenEndpoint(S& clients, TokenFunctions asked, const TokenEndpointRules& given, Clock time)
        : store{&clients}, functions{std::move(asked)}, rules{given}, clock{std::move(time)}
    {
    }

    [[nodiscard]] static Refusal refusal(const Error& reason) noexcept
    {
        return {OAUTH_INVALID_CLIENT, reason};
    }

    [[nodiscard]] Expected<ClientRecord> known(std::string_view id) const
    {
        Expected<std::optional<ClientRecord>> found = store->find(id);
        if (!found || !*found)
        {
            return found ? Error{BMCOAUTH_RULE_CLIENT_UNKNOWN} : found.error();
        }
        return **std::move(found);
    }
    /** The client of this name and secret. */
    [[nodiscard]] Expected<ClientRecord> authenticated(std::string_view id,
                                                       std::string_view secret) const
    {
        Expected<ClientRecord> client = known(id);
        const Expected<SecretDigest> shown = SecretDigest::of(secret);
        if (!shown)
        {
            return shown.error();
        }
        // The same work, whether there is such a client or not.
        const bool same = (client ? client->secret : SecretDigest{}) == *shown;
        return client && !same ? Error{BMCOAUTH_RULE_CLIENT_SECRET} : std::move(client);
    }

    // ------------------------------------------------------------------------------------ proofs --

    /** The first tokens, for a client that answers its challenge. */
    [[nodiscard]] Expected<Text, Refusal>
    proven(const ClientRecord& client, const TokenRequest& request, std::string_view sender)
    {
        const Expected<ParameterList> response = request.handshake();
        const Expected<ParameterList> challenge = challengeOf(client);
        const Expected<Text> secrets = functions.secrets(client);
        const Expected<std::optional<DeviceIdentity>> device = deviceOf(client);
        if (!response || !challenge)
        {
            return refusal(response ? challenge.error() : response.error());
        }
        if (!secrets || !device)
        {
            return refusal(secrets ? device.error() : secrets.error());
        }
        // Counted and used up before it is looked at: nobody gets another try, by two calls at once
        // or by the end of this process.
        if (const Expected<void> claimed = claimAttempt(client, sender); !claimed)
        {
            return refusal(claimed.error());
        }
        if (const Expected<void> good = checkProofs(*challenge, *response, *secrets, *device);
            !good)
        {
            return refusal(good.error());
        }
        // If this fails, a good proof stays counted as one that failed.
        static_cast<void>(forgive(sender));
        return established(client.id, request);
    }

    /** The challenge, if it may be answered. */
    [[nodiscard]] Expected<ParameterList> challengeOf(const ClientRecord& client) const
    {
        if (client.challenge.empty())
        {
            return Error{BMCOAUTH_RULE_CLIENT_CHALLENGE_USED};
        }
        if (clock() >= client.expiresAt)
        {
            return Error{BMCOAUTH_RULE_CLIENT_CHALLENGE_EXPIRED};
        }
        return ParameterList::parse(client.challenge);
    }

    /** The device that the challenge is for; nothing where a password is enough. */
    [[nodiscard]] static Expected<std::optional<DeviceIdentity>>
    deviceOf(const ClientRecord& client)
    {
        if (client.certificate.empty())
        {
            return std::optional<DeviceIdentity>{};
        }
        Expected<CertificateKey> key = CertificateKey::parse(client.certificate);
        if (!key)
        {
            return key.error();
        }
        return DeviceIdentity::of(*std::move(key), client.deviceName)
            .transform([](DeviceIdentity device) { return std::optional{std::move(device)}; });
    }

    /** Counts an attempt, and uses the challenge up. */
    [[nodiscard]] Expected<void> claimAttempt(const ClientRecord& client, std::string_view sender)
    {
        const std::chrono::sys_seconds now = clock();
        const Expected<bool> ofSender =
            store->countAttempt(counterOf(sender), rules.failuresOfSender, now);
        if (!ofSender || !*ofSender)
        {
            return ofSender ? Error{BMCOAUTH_RULE_CLIENT_LOCKED, "sender"} : ofSender.error();
        }
        const Expected<bool> inAll = store->countAttempt(everybody, rules.failuresInAll, now);
        if (!inAll || !*inAll)
        {
            static_cast<void>(store->forgive(counterOf(sender), rules.failuresOfSender));
            return inAll ? Error{BMCOAUTH_RULE_CLIENT_LOCKED, "all"} : inAll.error();
        }
        ClientRecord claimed = client;
        claimed.challenge.clear();
        const Expected<bool> first = store->replace(std::move(claimed));
        if (!first || !*first)
        {
            static_cast<void>(forgive(sender));
            return first ? Error{BMCOAUTH_RULE_CLIENT_CHALLENGE_USED} : first.error();
        }
        return {};
    }

    [[nodiscard]] Expected<void> forgive(std::string_view sender)
    {
        const Expected<void> forgiven = store->forgive(counterOf(sender), rules.failuresOfSender);
        return forgiven ? store->forgive(everybody, rules.failuresInAll) : forgiven;
    }

    /** Begins the client's family of refresh tokens. */
    [[nodiscard]] Expected<Text, Refusal> established(std::string_view id,
                                                      const TokenRequest& request)
    {
        const Expected<Text> refresh = detail::firstRefreshToken();
        if (!refresh)
        {
            return refusal(refresh.error());
        }
        const Expected<SecretDigest> family = SecretDigest::of(detail::familyPart(*refresh));
        const Expected<SecretDigest> current = SecretDigest::of(*refresh);
        Expected<ClientRecord> client = known(id);
        if (!family || !current || !client)
        {
            return refusal(!family ? family.error() : !current ? current.error() : client.error());
        }
        const std::chrono::sys_seconds now = clock();
        client->refresh = RefreshFamily{.family = *family, .current = *current, .rotatedAt = now};
        client->expiresAt = std::min(now + rules.refreshLifetime, client->endsAt);
        Expected<std::optional<Text>, Refusal> document = given(*client, *refresh, request);
        if (document && !*document)
        {
            return refusal(Error{BMCOAUTH_RULE_CLIENT_UNKNOWN});
        }
        return document ? Expected<Text, Refusal>{**std::move(document)} : document.error();
    }

    // ----------------------------------------------------------------------------------- refresh --

    /** New tokens for a client that shows a refresh token. */
    [[nodiscard]] Expected<Text, Refusal> refreshed(Expected<ClientRecord> client,
                                                    const TokenRequest& request)
    {
        const std::string_view token = request.refreshToken().value_or("");
        const Expected<SecretDigest> shown = SecretDigest::of(token);
        const Expected<SecretDigest> family = SecretDigest::of(detail::familyPart(token));
        if (!shown || !family)
        {
            return refusal(shown ? family.error() : shown.error());
        }
        // Each turn but the last is lost to another call that has changed the client.
        constexpr int mostTurns = 16;
        for (int turn = 0; turn < mostTurns; ++turn)
        {
            if (!client)
            {
                return refusal(client.error());
            }
            if (!client->refresh || client->refresh->family != *family)
            {
                return refusal(Error{BMCOAUTH_RULE_CLIENT_REFRESH_UNKNOWN});
            }
            Expected<std::optional<Text>, Refusal> document = rotated(*client, *shown, request);
            if (!document)
            {
                return document.error();
            }
            if (*document)
            {
                return **std::move(document);
            }
            client = known(client->id);
        }
        return refusal(Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED, "replace"});
    }

    /** What the token of the digest `shown` gives; nothing if the client has changed meanwhile. */
    [[nodiscard]] Expected<std::optional<Text>, Refusal>
    rotated(ClientRecord& client, const SecretDigest& shown, const TokenRequest& request)
    {
        const std::chrono::sys_seconds now = clock();
        const RefreshOutcome outcome = decideRefresh(client, shown, rules.replays, now);
        RefreshFamily& family = *client.refresh;
        if (outcome == RefreshOutcome::rotate)
        {
            const Expected<Text> salt = randomToken(SecretDigest::size);
            if (!salt)
            {
                return refusal(salt.error());
            }
            family.previous = shown;
            family.salt = salt->view();
            family.rotatedAt = now;
            family.replays = 0;
            client.expiresAt = std::min(now + rules.refreshLifetime, client.endsAt);
        }
        else if (outcome == RefreshOutcome::replayWithinWindow)
        {
            ++family.replays;
        }
        else
        {
            return refusal(endedBy(outcome, client));
        }
        const Expected<Text> next =
            detail::nextRefreshToken(request.refreshToken().value_or(""), family.salt);
        const Expected<SecretDigest> current = next.and_then(SecretDigest::of);
        if (!current)
        {
            return refusal(current.error());
        }
        family.current = *current;
        return given(client, *next, request);
    }

    /** Why there is no new token. A token that comes back ends the client. */
    [[nodiscard]] Error endedBy(RefreshOutcome outcome, const ClientRecord& client)
    {
        if (outcome != RefreshOutcome::reuse)
        {
            return Error{outcome == RefreshOutcome::expired ? BMCOAUTH_RULE_CLIENT_REFRESH_EXPIRED
                                                            : BMCOAUTH_RULE_CLIENT_FAMILY_EXPIRED};
        }
        const Expected<void> removed = store->remove(client.id);
        return removed ? Error{BMCOAUTH_RULE_CLIENT_REFRESH_REUSED} : removed.error();
    }

    /** Puts `client` in its place and gives a response with an access token and `refresh`; nothing
     *  if the client has changed meanwhile. The tokens are made first, so that a failure changes
     *  nothing; they leave only if the place was won. */
    [[nodiscard]] Expected<std::optional<Text>, Refusal>
    given(const ClientRecord& client, std::string_view refresh, const TokenRequest& request)
    {
        const Expected<IssuedToken> issued =
            functions.issue(client.id, functions.privileges(client));
        if (!issued)
        {
            return Refusal{OAUTH_SERVER_ERROR, issued.error()};
        }
        const std::string left = std::to_string((issued->expiresAt - clock()).count());
        Expected<Text> document =
            TokenResponse::of({.accessToken = issued->token,
                               .state = request.state().value_or(""),
                               .refreshToken = refresh,
                               .expiresIn = left})
                .and_then([](const TokenResponse& response) { return response.write(); });
        if (!document)
        {
            return Refusal{OAUTH_SERVER_ERROR, document.error()};
        }
        const Expected<bool> placed = store->replace(client);
        if (!placed)
        {
            return refusal(placed.error());
        }
        return *placed ? std::optional<Text>{*std::move(document)} : std::nullopt;
    }

    // -------------------------------------------------------------------------------- judgements --

    /** What an access token says; nothing if it is not valid. */
    [[nodiscard]] Expected<std::optional<TokenFacts>> valid(std::string_view token) const
    {
        if (token.size() > rules.maximumBytes)
        {
            return std::optional<TokenFacts>{};
        }
        Expected<TokenFacts> facts = functions.validate(token);
        if (!facts && Refusal::isOfMachine(facts.error()))
        {
            return facts.error();
        }
        return facts ? std::optional{*std::move(facts)} : std::nullopt;
    }

    /** Whether `token` is the client's, of either kind. */
    [[nodiscard]] Expected<bool> isOf(const ClientRecord& client, std::string_view token) const
    {
        const Expected<SecretDigest> family = SecretDigest::of(detail::familyPart(token));
        if (!family)
        {
            return family.error();
        }
        if (client.refresh && client.refresh->family == *family)
        {
            return true;
        }
        return valid(token).transform([&](const std::optional<TokenFacts>& facts) {
            return facts && facts->subject == client.id;
        });
    }

    [[nodiscard]] static Expected<Text> described(const TokenFacts& facts)
    {
        std::string scope;
        for (const Privilege privilege : facts.privileges)
        {
            scope.append(scope.empty() ? "" : " ").append(nameOf(privilege));
        }
        const std::string exp = std::to_string(facts.expiresAt.time_since_epoch().count());
        Expected<Document> document = Document::parse(R"({"active":true,"exp":)" + exp + "}");
        if (!document)
        {
            return document.error();
        }
        for (const auto& [name, value] :
             {std::pair<std::string_view, std::string_view>{"client_id", facts.subject},
              {"sub", facts.subject},
              {"jti", facts.id},
              {"scope", scope},
              {"token_type", "bearer"}})
        {
            if (const Expected<void> set = document->setString(name, value); !set)
            {
                return set.error();
            }
        }
        return Text::copy(document->view());
    }

    /** The counter of a sender. That of all has no such name. */
    [[nodiscard]] static std::string counterOf(std::string_view sender)
    {
        return "sender:" + std::string{sender};
    }
    static constexpr std::string_view everybody = "all";

    S* store;
    TokenFunctions functions;
    TokenEndpointRules rules;
    Clock clock;
};

} // namespace v1
} // namespace bmcoauth
