// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The token endpoint of a service, with revocation and introspection. */

#include <bmcoauth/cpp/authorize.hpp>
#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/service/issuing.hpp>
#include <bmcoauth/service/judging.hpp>
#include <bmcoauth/service/registrar.hpp>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** What a TokenEndpoint asks the service for. All must be given. Several threads call them at once. */
struct TokenFunctions
{
    /** Returns the key document of this client. Each client needs its own, or each could answer for the
     *  others. Ignored unless passwords are asked for. */
    std::function<Expected<Text>(const ClientRecord&)> secrets;
    /** Returns what this client may do. Called for each token. */
    std::function<Privileges(const ClientRecord&)> privileges;
    /** Whether this sender may call `introspect`. */
    std::function<bool(std::string_view sender)> mayIntrospect;
};

/** How a TokenEndpoint decides. */
struct TokenEndpointRules
{
    /** How many proofs of one sender may fail. */
    FailureRate failuresOfSender{.burst = 10, .interval = std::chrono::minutes{10}};
    /** How many of all senders together: 338 in the first day. */
    FailureRate failuresInAll{.burst = 50, .interval = std::chrono::minutes{5}};
    /** How long a client may be unused before it ends. */
    std::chrono::seconds refreshLifetime = std::chrono::days{30};
    /** When a refresh token may come twice. */
    ReplayWindow replays = {};
    /** The longest request or token that is read. */
    std::size_t maximumBytes = 16384;
};

/** TokenEndpoint gives tokens to clients that prove who they are or show a refresh token. The peer gets
 *  the same word for an unknown client, a wrong secret, a locked sender and a wrong proof. All state is
 *  in the store. Any thread may call any function. */
template <Store S>
class TokenEndpoint
{
public:
    /** Gives access tokens of `issuer`, by its clock. `store` must outlive the endpoint. Refuses an
     *  absent function, and rules without a meaning. */
    [[nodiscard]] static Expected<TokenEndpoint> of(S& store BMCOAUTH_LIFETIMEBOUND,
                                                    TokenIssuer issuer, TokenFunctions functions,
                                                    TokenEndpointRules rules = {})
    {
        if (!functions.secrets || !functions.privileges || !functions.mayIntrospect)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "functions"};
        }
        const auto isRate = [](const FailureRate& rate) {
            return rate.burst > 0 && rate.interval.count() > 0 &&
                   rate.interval <= detail::longestTime / rate.burst;
        };
        if (!isRate(rules.failuresOfSender) || !isRate(rules.failuresInAll) ||
            rules.refreshLifetime.count() <= 0 || rules.refreshLifetime > detail::longestTime)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "rules"};
        }
        // Whether a client has ended, the endpoint looks for itself.
        return issuer.validator(ignored).transform([&](TokenValidator own) {
            return TokenEndpoint{store, std::move(issuer), std::move(own), std::move(functions),
                                 rules};
        });
    }

    /** Answers the token request `text` of `sender`: see Registrar::answer. */
    [[nodiscard]] Expected<Text, Refusal> answer(std::string_view text, std::string_view sender)
    {
        const Expected<TokenRequest> request = detail::read<TokenRequest>(text, rules.maximumBytes);
        if (!request)
        {
            return Refusal{OAUTH_INVALID_REQUEST, request.error()};
        }
        // A turn is lost if another call has changed the client meanwhile.
        constexpr int mostTurns = 16;
        for (int turn = 0; turn < mostTurns; ++turn)
        {
            Expected<Grant> grant = grantOf(*request, sender);
            if (!grant)
            {
                return refusal(grant.error());
            }
            // Made first, so that a failure changes nothing. It is sent only if `replace` succeeds.
            Expected<Text> document = documentOf(*grant, *request);
            if (!document)
            {
                return Refusal{OAUTH_SERVER_ERROR, document.error()};
            }
            const Expected<bool> placed = store->replace(std::move(grant->client));
            if (!placed)
            {
                return refusal(placed.error());
            }
            if (*placed)
            {
                return *std::move(document);
            }
        }
        return refusal(Error{BMCOAUTH_RULE_CLIENT_STORE_FAILED, "replace"});
    }

    /** Ends the client if `token` is one of its refresh or access tokens (RFC 7009). All its tokens end
     *  with it. Succeeds without a change if the token is not the client's. */
    [[nodiscard]] Expected<void, Refusal>
    revoke(std::string_view clientId, std::string_view clientSecret, std::string_view token)
    {
        if (clientId.size() > rules.maximumBytes || clientSecret.size() > rules.maximumBytes)
        {
            return Refusal{OAUTH_INVALID_REQUEST, Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "request"}};
        }
        const Expected<void> done =
            authenticated(clientId, clientSecret).and_then([&](const ClientRecord& client) {
                return isOf(client, token).and_then([&](bool isTheirs) {
                    return isTheirs ? store->remove(client.id) : Expected<void>{};
                });
            });
        return done ? Expected<void, Refusal>{} : refusal(done.error());
    }

    /** Whether access tokens of this subject still count: its client has proven itself, and has neither
     *  ended nor been removed. */
    [[nodiscard]] Expected<bool> isActive(std::string_view subject) const
    {
        return store->find(subject).transform([&](const std::optional<ClientRecord>& client) {
            return client && client->refresh && issuer.now() < client->expiresAt;
        });
    }

    /** For TokenRules::revoked: whether the subject is not active. */
    [[nodiscard]] Expected<bool> isRevoked(const Claims& claims) const
    {
        return isActive(claims.subject().value_or("")).transform([](bool active) {
            return !active;
        });
    }

    /** Describes the access token `token` (RFC 7662) to a sender that may ask. Of a token that does not
     *  count, says only this. */
    [[nodiscard]] Expected<Text, Refusal> introspect(std::string_view token,
                                                     std::string_view sender) const
    {
        if (!functions.mayIntrospect(sender))
        {
            return Refusal{OAUTH_ACCESS_DENIED, Error{BMCOAUTH_RULE_CLIENT_NOT_AUTHORIZED}};
        }
        Expected<Text> document =
            validated(token).and_then([&](const std::optional<ValidToken>& valid) {
                const Expected<bool> active = valid ? isActive(subjectOf(*valid)) : false;
                return active.and_then([&](bool counts) {
                    return counts ? described(*valid) : Text::copy(R"({"active":false})");
                });
            });
        return document ? Expected<Text, Refusal>{*std::move(document)}
                        : Refusal{OAUTH_SERVER_ERROR, document.error()};
    }

private:
    /** What a request gets if `client` can replace the record in the store. */
    struct Grant
    {
        ClientRecord client;
        Text refreshToken;
    };

    TokenEndpoint(S& clients, TokenIssuer tokenIssuer, TokenValidator own, TokenFunctions asked,
                  const TokenEndpointRules& given)
        : store{&clients},
          issuer{std::move(tokenIssuer)},
          validator{std::move(own)},
          functions{std::move(asked)},
          rules{given}
    {
    }

    [[nodiscard]] static Refusal refusal(const Error& reason) noexcept
    {
        return {OAUTH_INVALID_CLIENT, reason};
    }

    [[nodiscard]] Expected<ClientRecord> known(std::string_view id) const
    {
        return store->find(id).and_then([](std::optional<ClientRecord> found) {
            return found ? Expected<ClientRecord>{*std::move(found)}
                         : Error{BMCOAUTH_RULE_CLIENT_UNKNOWN};
        });
    }
    /** The client of this name and secret. */
    [[nodiscard]] Expected<ClientRecord> authenticated(std::string_view id,
                                                       std::string_view secret) const
    {
        Expected<ClientRecord> client = known(id);
        // Takes the same time if there is no such client.
        const bool same = (client ? client->secret : SecretDigest{}) == SecretDigest::of(secret);
        return client && !same ? Error{BMCOAUTH_RULE_CLIENT_SECRET} : std::move(client);
    }

    [[nodiscard]] Expected<Grant> grantOf(const TokenRequest& request, std::string_view sender)
    {
        return authenticated(request.clientId().value_or(""), request.clientSecret().value_or(""))
            .and_then([&](ClientRecord client) {
                return request.get()->handshake != nullptr
                           ? proven(client, request, sender)
                           : refreshed(std::move(client), request.refreshToken().value_or(""));
            });
    }

    /** The first tokens, for a client that answers its challenge. */
    [[nodiscard]] Expected<Grant> proven(const ClientRecord& client, const TokenRequest& request,
                                         std::string_view sender)
    {
        const Expected<ParameterList> response = request.handshake();
        const Expected<ParameterList> challenge = challengeOf(client);
        const Expected<Text> secrets = functions.secrets(client);
        const Expected<std::optional<DeviceIdentity>> device = deviceOf(client);
        // Counted and used up before it is checked: neither two calls at once nor the end of this
        // process give another try.
        const Expected<void> good =
            allOf(response, challenge, secrets, device)
                .and_then([&] { return claimAttempt(client, sender); })
                .and_then([&] { return checkProofs(*challenge, *response, *secrets, *device); });
        if (!good)
        {
            return good.error();
        }
        // If this fails, a good proof stays counted as one that failed.
        static_cast<void>(forgive(sender));
        return established(client.id);
    }

    /** The challenge, if it may be answered. */
    [[nodiscard]] Expected<ParameterList> challengeOf(const ClientRecord& client) const
    {
        if (client.challenge.empty())
        {
            return Error{BMCOAUTH_RULE_CLIENT_CHALLENGE_USED};
        }
        return issuer.now() < client.expiresAt ? ParameterList::parse(client.challenge)
                                               : Error{BMCOAUTH_RULE_CLIENT_CHALLENGE_EXPIRED};
    }

    /** The device that the challenge is for; nothing if a password is enough. */
    [[nodiscard]] static Expected<std::optional<DeviceIdentity>>
    deviceOf(const ClientRecord& client)
    {
        if (client.certificate.empty())
        {
            return std::optional<DeviceIdentity>{};
        }
        return CertificateKey::parse(client.certificate)
            .and_then([&](CertificateKey key) {
                return DeviceIdentity::of(std::move(key), client.deviceName);
            })
            .transform([](DeviceIdentity device) { return std::optional{std::move(device)}; });
    }

    /** Counts an attempt, and uses the challenge up. */
    [[nodiscard]] Expected<void> claimAttempt(ClientRecord client, std::string_view sender)
    {
        if (const Expected<void> ofSender = count(counterOf(sender), rules.failuresOfSender);
            !ofSender)
        {
            return ofSender;
        }
        if (const Expected<void> inAll = count(everybody, rules.failuresInAll); !inAll)
        {
            static_cast<void>(store->forgive(counterOf(sender), rules.failuresOfSender));
            return inAll;
        }
        client.challenge.clear();
        const Expected<bool> first = store->replace(std::move(client));
        if (first && *first)
        {
            return {};
        }
        static_cast<void>(forgive(sender));
        return first ? Error{BMCOAUTH_RULE_CLIENT_CHALLENGE_USED} : first.error();
    }

    [[nodiscard]] Expected<void> count(std::string_view counter, const FailureRate& rate)
    {
        return store->countAttempt(counter, rate, issuer.now()).and_then([&](bool allowed) {
            return allowed ? Expected<void>{} : Error{BMCOAUTH_RULE_CLIENT_LOCKED, counter};
        });
    }
    [[nodiscard]] Expected<void> forgive(std::string_view sender)
    {
        return store->forgive(counterOf(sender), rules.failuresOfSender).and_then([&] {
            return store->forgive(everybody, rules.failuresInAll);
        });
    }

    /** Begins the client's family of refresh tokens. */
    [[nodiscard]] Expected<Grant> established(std::string_view id) const
    {
        Expected<Text> token = detail::firstRefreshToken();
        Expected<ClientRecord> client = known(id);
        if (const Expected<void> all = allOf(token, client); !all)
        {
            return all.error();
        }
        const std::chrono::sys_seconds now = issuer.now();
        client->refresh = RefreshFamily{.family = SecretDigest::of(detail::familyPart(*token)),
                                        .current = SecretDigest::of(*token),
                                        .rotatedAt = now};
        client->expiresAt = std::min(now + rules.refreshLifetime, client->endsAt);
        return Grant{*std::move(client), *std::move(token)};
    }

    [[nodiscard]] static bool isOfFamily(const ClientRecord& client, std::string_view token)
    {
        return client.refresh &&
               client.refresh->family == SecretDigest::of(detail::familyPart(token));
    }

    /** What the refresh token `token` gives. One that is used again ends the client. */
    [[nodiscard]] Expected<Grant> refreshed(ClientRecord client, std::string_view token)
    {
        if (!isOfFamily(client, token))
        {
            return Error{BMCOAUTH_RULE_CLIENT_REFRESH_UNKNOWN};
        }
        const std::chrono::sys_seconds now = issuer.now();
        const SecretDigest shown = SecretDigest::of(token);
        const Expected<bool> rotates = decideRefresh(client, shown, rules.replays, now);
        if (!rotates)
        {
            const bool isReused = rotates.error().rule() == BMCOAUTH_RULE_CLIENT_REFRESH_REUSED;
            const Expected<void> removed = isReused ? store->remove(client.id) : Expected<void>{};
            return removed ? rotates.error() : removed.error();
        }
        RefreshFamily& family = *client.refresh;
        ++family.replays;
        if (*rotates)
        {
            const Expected<Text> salt = randomToken(SecretDigest::size);
            if (!salt)
            {
                return salt.error();
            }
            family = {.family = family.family,
                      .previous = shown,
                      .salt = std::string{salt->view()},
                      .rotatedAt = now};
            client.expiresAt = std::min(now + rules.refreshLifetime, client.endsAt);
        }
        return detail::nextRefreshToken(token, family.salt).transform([&](Text next) {
            family.current = SecretDigest::of(next);
            return Grant{std::move(client), std::move(next)};
        });
    }

    /** The response that a grant gives, with an access token. */
    [[nodiscard]] Expected<Text> documentOf(const Grant& grant, const TokenRequest& request) const
    {
        return issuer.issue(grant.client.id, functions.privileges(grant.client))
            .and_then([&](const IssuedToken& issued) {
                const std::chrono::seconds left = issued.expiresAt - issuer.now();
                const std::string expiresIn =
                    std::to_string(std::max<std::int64_t>(left.count(), 0));
                return TokenResponse::of({.accessToken = issued.token,
                                          .state = request.state().value_or(""),
                                          .refreshToken = grant.refreshToken,
                                          .expiresIn = expiresIn});
            })
            .and_then([](const TokenResponse& response) { return response.write(); });
    }

    /** An access token; nothing if it is not valid. */
    [[nodiscard]] Expected<std::optional<ValidToken>> validated(std::string_view token) const
    {
        if (token.size() > rules.maximumBytes)
        {
            return std::optional<ValidToken>{};
        }
        Expected<ValidToken> valid = validator.validate(token);
        if (!valid && Refusal::isOfMachine(valid.error()))
        {
            return valid.error();
        }
        return valid ? std::optional{*std::move(valid)} : std::nullopt;
    }
    [[nodiscard]] static std::string_view subjectOf(const ValidToken& valid) noexcept
    {
        return valid.claims().subject().value_or("");
    }

    /** Whether `token` is the client's, of either kind. */
    [[nodiscard]] Expected<bool> isOf(const ClientRecord& client, std::string_view token) const
    {
        if (token.size() <= rules.maximumBytes && isOfFamily(client, token))
        {
            return true;
        }
        return validated(token).transform([&](const std::optional<ValidToken>& valid) {
            return valid && subjectOf(*valid) == client.id;
        });
    }

    [[nodiscard]] static Expected<Text> described(const ValidToken& valid)
    {
        std::string scope;
        for (const Privilege privilege : valid.privileges())
        {
            scope.append(scope.empty() ? "" : " ").append(nameOf(privilege));
        }
        const std::string exp = std::to_string(valid.expiresAt().time_since_epoch().count());
        Expected<Document> document =
            Document::parse(R"({"active":true,"token_type":"bearer","exp":)" + exp + "}");
        const auto set = [&document](std::string_view name, std::string_view value) {
            return document.and_then([&](Document& text) { return text.setString(name, value); });
        };
        return allOf(set("client_id", subjectOf(valid)), set("sub", subjectOf(valid)),
                     set("jti", valid.claims().id().value_or("")), set("scope", scope))
            .and_then([&document] { return Text::copy(document->view()); });
    }

    /** The counter of a sender. Its name differs from `everybody`. */
    [[nodiscard]] static std::string counterOf(std::string_view sender)
    {
        return "sender:" + std::string{sender};
    }
    static constexpr std::string_view everybody = "all";

    S* store;
    TokenIssuer issuer;
    TokenValidator validator;
    TokenFunctions functions;
    TokenEndpointRules rules;
};

} // namespace v1
} // namespace bmcoauth
