// SPDX-License-Identifier: Apache-2.0
//
// A token service on D-Bus: token-service SIGNING_KEY CLIENTS SECRETS
//
// SIGNING_KEY is a PEM file, which is made if it is not there; CLIENTS a file of SQLite; SECRETS the
// key document (bmcoauth handshake keys) that clients of the factory have, too. The object
// /org/example/Tokens has the interface org.example.Tokens1, all of JSON texts:
//
//     Register(request) -> response      a client registers and is given a challenge
//     Issue(request) -> response         it proves itself, or shows a refresh token, for tokens
//     Introspect(token) -> description   another service asks what a token is good for (RFC 7662)
//
// A refusal is the error org.example.Tokens1.Error.NAME, whose message is the OAuth error document.
// Why something is refused goes to the log alone, which is standard error.
//
// The service keeps one thing only in memory, the signing key; it can be killed at any moment.
#include "clients.hpp"

#include <bmcoauth.hpp>

#include <systemd/sd-bus.h>

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace
{

using bmcoauth::Document;
using bmcoauth::Error;
using bmcoauth::Expected;
using bmcoauth::ParameterList;
using bmcoauth::PrivateKey;
using bmcoauth::Privilege;
using bmcoauth::Text;
using bmcoauth::TokenRequest;

/** What every client may do here. A real service looks it up by who the client is. */
constexpr bmcoauth::Privileges granted = Privilege::login | Privilege::configure;
constexpr std::uint32_t tokenSeconds = 600;
/** Every document fits. A longer text is refused before it is parsed: parsing takes up to 60 times
 *  the memory of the text, and anybody may send one. */
constexpr std::size_t mostBytes = 131072;

struct Service
{
    PrivateKey key;
    Clients clients;
    std::string secrets;
};

/** A document, or the error that the caller is told. */
struct Reply
{
    std::string document;
    std::optional<oauthError> error = {};
};

Reply refuse(oauthError error)
{
    return {.document = {}, .error = error};
}

void log(std::string_view what, const Error& why)
{
    std::cerr << "token-service: " << what << " refused: " << why.describe().view() << std::endl;
}

/** Refuses, and logs why. The client is not told: the reason would help an attacker. */
Reply refuse(oauthError error, std::string_view what, const Error& why)
{
    log(what, why);
    return refuse(error);
}

Reply reply(const Expected<Text>& document)
{
    return document ? Reply{.document = std::string{document->view()}}
                    : refuse(OAUTH_SERVER_ERROR, "answer", document.error());
}

// ---------------------------------------------------------------------------------- registration --

Reply registerClient(Service& service, const std::string& text)
{
    const auto request = bmcoauth::RegistrationRequest::parse(text);
    if (!request)
    {
        return refuse(OAUTH_INVALID_REQUEST, "registration", request.error());
    }
    // A controller with the factory's roots would ask for the certificate proof as well
    // (Proofs::both), check that the request's certificate is that of a factory's device and of this
    // name (CertificateKey::isValid; verifyChain alone would pass a stranger's certificate before a
    // device's chain), keep it beside the challenge and hand it to isProven.
    const Expected<ParameterList> challenge =
        bmcoauth::serverChallengeFor(*request, bmcoauth::Proofs::oneTimePassword);
    if (!challenge)
    {
        return refuse(OAUTH_INVALID_REQUEST, "registration", challenge.error());
    }
    const auto response = bmcoauth::RegistrationResponse::answer(
        *request, {.secretLifetimeSeconds = 0, .challenge = &*challenge});
    const Expected<Text> kept = challenge->write();
    if (!response || !kept)
    {
        return refuse(OAUTH_SERVER_ERROR, "registration",
                      response ? kept.error() : response.error());
    }
    const std::optional<Digest> secret = Digest::of(*response->clientSecret());
    if (!secret || !service.clients.add(*response->clientId(), *secret, *kept, std::time(nullptr)))
    {
        return refuse(OAUTH_SERVER_ERROR);
    }
    return reply(response->write());
}

// ------------------------------------------------------------------------------------------ tokens --

bool matches(const std::optional<Digest>& kept, std::optional<std::string_view> secret)
{
    const std::optional<Digest> shown = secret ? Digest::of(*secret) : std::nullopt;
    return kept && shown && kept->equals(*shown);
}

/** A refresh token that is good, or the right answer to the challenge that has been kept. What the
 *  client says the challenge was is never looked at. */
Expected<void> isProven(const Service& service, const Client& client, const TokenRequest& request)
{
    const Expected<ParameterList> response = request.handshake();
    if (!response)
    {
        return matches(client.refreshToken, request.refreshToken())
                   ? Expected<void>{}
                   : Error{BMCOAUTH_RULE_AUTHORIZE_GRANT, "refresh_token"};
    }
    if (client.challenge.empty())
    {
        return Error{BMCOAUTH_RULE_HANDSHAKE_TYPES, "used challenge"};
    }
    return ParameterList::parse(client.challenge).and_then([&](const ParameterList& challenge) {
        return bmcoauth::isProven(challenge, *response, service.secrets, nullptr);
    });
}

Reply issue(Service& service, const std::string& text)
{
    const Expected<TokenRequest> request = TokenRequest::parse(text);
    if (!request)
    {
        return refuse(OAUTH_INVALID_REQUEST, "token request", request.error());
    }
    const std::time_t now = std::time(nullptr);
    const std::optional<Client> client = service.clients.find(*request->clientId());
    // Unknown, wrong secret, locked, wrong proof: always the same answer, which helps nobody who is
    // trying. A wrong secret does not count as an attempt, or everybody who knows a client's name
    // could lock it out; and while the door is closed nothing is looked at, the right proof either.
    if (!client || !matches(client->secret, request->clientSecret()) || now < client->lockedUntil)
    {
        return refuse(OAUTH_INVALID_CLIENT);
    }
    if (const Expected<void> proven = isProven(service, *client, *request); !proven)
    {
        log("proof of " + client->id, proven.error());
        return refuse(service.clients.noteFailure(*client, now) ? OAUTH_INVALID_CLIENT
                                                                : OAUTH_SERVER_ERROR);
    }

    // The entries in which the library gives the user and the rights of delegated tokens, too: who
    // asks for them later need not know who issued a token.
    const std::array<std::string_view, 1> user{client->id};
    const std::array scopes{bmcoauth::ScopeEntry{"AUTHNZ_USER", user}};
    const auto response = bmcoauth::issueTokens({.state = *request->state(),
                                                 .subject = client->id,
                                                 .issuer = "org.example.Tokens",
                                                 .lifetimeSeconds = tokenSeconds,
                                                 .scopes = scopes,
                                                 .privileges = granted},
                                                service.key);
    if (!response)
    {
        return refuse(OAUTH_SERVER_ERROR, "token", response.error());
    }
    // Kept before the tokens leave: a refresh token that is not kept would be refused later, and a
    // challenge that is not used up could be answered twice.
    const std::optional<Digest> refresh = Digest::of(*response->refreshToken());
    if (!refresh || !service.clients.noteSuccess(*client, *refresh))
    {
        return refuse(OAUTH_SERVER_ERROR);
    }
    return reply(response->write());
}

Reply introspect(Service& service, const std::string& text)
{
    const bmcoauth::Verdict verdict = bmcoauth::validateToken(text, service.key);
    const bmcoauth::VerifiedToken* const token = verdict.verified();
    if (token == nullptr)
    {
        log("token", *verdict.refusal());
        // Nothing more, whatever is wrong with it (RFC 7662, section 2.2).
        return {.document = R"({"active":false})"};
    }
    std::vector<std::string_view> names;
    for (const Privilege privilege :
         bmcoauth::userPrivileges(*token).value_or(bmcoauth::Privileges{}))
    {
        names.push_back(bmcoauth::nameOf(privilege));
    }
    Expected<Document> description = Document::parse(R"({"active":true})");
    const bmcoauth::Claims claims = token->claims();
    if (!description || !description->setString("sub", claims.subject().value_or("")) ||
        !description->setString("iss", claims.issuer().value_or("")) ||
        !description->setStrings("privileges", names))
    {
        return refuse(OAUTH_SERVER_ERROR);
    }
    return {.document = std::string{description->view()}};
}

// ------------------------------------------------------------------------------------------- D-Bus --

struct ReleaseBus
{
    void operator()(sd_bus* bus) const noexcept
    {
        sd_bus_flush_close_unref(bus);
    }
};

template <Reply (*Answer)(Service&, const std::string&)>
int method(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/)
{
    const char* text = nullptr;
    const int read = sd_bus_message_read(message, "s", &text);
    if (read < 0)
    {
        return read;
    }
    const Reply answer = std::strlen(text) > mostBytes
                             ? refuse(OAUTH_INVALID_REQUEST)
                             : Answer(*static_cast<Service*>(userdata), text);
    if (!answer.error)
    {
        return sd_bus_reply_method_return(message, "s", answer.document.c_str());
    }
    const std::string name =
        "org.example.Tokens1.Error." + std::string{bmcoauth::errorText(*answer.error)};
    const Expected<Text> document = bmcoauth::errorDocument(*answer.error);
    return sd_bus_reply_method_errorf(message, name.c_str(), "%s",
                                      document ? document->c_str() : "");
}

// Who may call what is the bus's business: on a controller its policy lets the web server alone call
// Register and Issue.
// NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast): the macros are C.
constexpr std::array table{
    sd_bus_vtable SD_BUS_VTABLE_START(0),
    sd_bus_vtable SD_BUS_METHOD("Register", "s", "s", method<registerClient>,
                                SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD("Issue", "s", "s", method<issue>, SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD("Introspect", "s", "s", method<introspect>,
                                SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_VTABLE_END,
};
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)

[[noreturn]] void fail(const std::string& what, int error)
{
    throw std::system_error{error, std::generic_category(), what};
}

void serve(Service& service)
{
    sd_bus* raw = nullptr;
    // A controller's services meet on the system bus: sd_bus_open_system.
    if (const int opened = sd_bus_open_user(&raw); opened < 0)
    {
        fail("cannot reach the bus", -opened);
    }
    const std::unique_ptr<sd_bus, ReleaseBus> bus{raw};
    if (const int added = sd_bus_add_object_vtable(bus.get(), nullptr, "/org/example/Tokens",
                                                   "org.example.Tokens1", table.data(), &service);
        added < 0)
    {
        fail("cannot offer /org/example/Tokens", -added);
    }
    if (const int requested = sd_bus_request_name(bus.get(), "org.example.Tokens", 0);
        requested < 0)
    {
        fail("cannot own the name org.example.Tokens", -requested);
    }
    std::cout << "ready" << std::endl;
    for (;;)
    {
        const int processed = sd_bus_process(bus.get(), nullptr);
        if (processed < 0 || (processed == 0 && sd_bus_wait(bus.get(), UINT64_MAX) < 0))
        {
            // The bus has gone.
            return;
        }
    }
}

// ------------------------------------------------------------------------------------------- start --

std::string contents(const std::string& path)
{
    std::ifstream file{path};
    std::string text;
    // A text ends at a zero byte. A folder opens; reading it fails.
    std::getline(file, text, '\0');
    if (!file.is_open() || file.bad())
    {
        fail(path, errno);
    }
    return text;
}

/** The signing key. A new one is made only if there is nothing at `path`, not if the file cannot be
 *  read: a new key makes all tokens out there worthless. */
PrivateKey signingKey(const std::string& path)
{
    struct stat status
    {
    };
    // A link that leads nowhere is there: its target may be on a disk that is not mounted yet.
    if (lstat(path.c_str(), &status) != 0)
    {
        if (errno != ENOENT)
        {
            fail(path, errno);
        }
        const std::filesystem::path folder = std::filesystem::path{path}.replace_filename(".");
        if (!PrivateKey::loadOrCreate(path))
        {
            // The library does not say why.
            fail("cannot make " + path, access(folder.c_str(), W_OK) != 0 ? errno : EIO);
        }
    }
    else if (access(path.c_str(), R_OK) != 0)
    {
        fail(path, errno);
    }
    Expected<PrivateKey> key = PrivateKey::fromFile(path);
    if (!key)
    {
        throw std::runtime_error{path + ": not an unencrypted P-256 private key in PEM form"};
    }
    return std::move(*key);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::cerr << "usage: token-service SIGNING_KEY CLIENTS SECRETS\n";
        return EXIT_FAILURE;
    }
    // Whatever is made here is for this user alone, the files beside the data base included.
    umask(077);
    try
    {
        Service service{.key = signingKey(argv[1]),
                        .clients = Clients::open(argv[2]),
                        .secrets = contents(argv[3])};
        serve(service);
    }
    catch (const std::exception& error)
    {
        std::cerr << "token-service: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
