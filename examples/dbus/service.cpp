// SPDX-License-Identifier: Apache-2.0
//
// A token service on D-Bus: token-service 2|3 STATE DEVICES
//
// In mode 3, clients prove that they have a device's certificate and know its passwords; in mode 2,
// the passwords. STATE is a folder for the signing key and the clients, which are made if they are not
// there. In the folder DEVICES, ID.json is the key document of the device ID, which is the "software_id"
// of its clients, and each line of the file "rights" says what one may do: a device, behind its
// privileges; "user:N", behind the word introspect.
#include "sqlite_store.hpp"

#include <openssl/crypto.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <stdexcept>

namespace
{

using namespace bmcoauth;
using Answer = Expected<Text, Refusal>;
using Arguments = std::array<const char*, 3>;

constexpr const char* path = "/org/example/Tokens";
constexpr const char* interface = "org.example.Tokens1";

struct Service
{
    SigningKeys keys;
    Registrar<SqliteStore> registrar;
    TokenEndpoint<SqliteStore> tokens;
    sd_bus* bus = nullptr;
};

/** The key document of a device. Of an unknown one, it is empty: no proof is right. */
Expected<Text> keyDocument(const std::string& devices, const std::string& id)
{
    const bool isName =
        !id.empty() && id.find_first_of(std::string_view{"/\0", 2}) == std::string::npos;
    std::ifstream file;
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(isName ? devices + "/" + id + ".json" : "");
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    Expected<Text> document = Text::copy(text.empty() ? "{}" : text);
    OPENSSL_cleanse(text.data(), text.size());
    return document;
}

/** What the file "rights" says of `name`. */
std::set<std::string> rightsOf(const std::string& devices, std::string_view name)
{
    std::ifstream file{devices + "/rights"};
    for (std::string line, first; std::getline(file, line);)
    {
        std::istringstream words{line};
        if (words >> first && first == name)
        {
            return {std::istream_iterator<std::string>{words}, {}};
        }
    }
    return {};
}

Privileges privilegesOf(const std::string& devices, const ClientRecord& client)
{
    Privileges granted;
    for (const std::string& right : rightsOf(devices, client.softwareId))
    {
        const std::optional<Privilege> privilege = privilegeNamed(right);
        granted = privilege ? granted | *privilege : granted;
    }
    return granted;
}

TokenFacts factsOf(const ValidToken& token)
{
    const Claims claims = token.claims();
    return {.subject = std::string{claims.subject().value_or("")},
            .id = std::string{claims.id().value_or("")},
            .expiresAt = token.expiresAt(),
            .privileges = token.privileges()};
}

TokenFunctions functionsOf(const TokenIssuer& issuer, const TokenValidator& validator,
                           const std::string& devices)
{
    return {
        .issue = issuer,
        .validate =
            [&](std::string_view token) { return validator.validate(token).transform(factsOf); },
        .secrets =
            [&](const ClientRecord& client) { return keyDocument(devices, client.softwareId); },
        .privileges = [&](const ClientRecord& client) { return privilegesOf(devices, client); },
        .mayIntrospect =
            [&](std::string_view sender) {
                return rightsOf(devices, sender).contains("introspect");
            }};
}

// ------------------------------------------------------------------------------------------- D-Bus --

Answer registerClient(Service& service, const Arguments& in, const std::string& sender)
{
    return service.registrar.answer(in[0], sender);
}
Answer issue(Service& service, const Arguments& in, const std::string& sender)
{
    return service.tokens.answer(in[0], sender);
}
Answer revoke(Service& service, const Arguments& in, const std::string& /*sender*/)
{
    return service.tokens.revoke(in[0], in[1], in[2]).transform([] { return Text{}; });
}
Answer introspect(Service& service, const Arguments& in, const std::string& sender)
{
    return service.tokens.introspect(in[0], sender);
}
Answer publish(Service& service, const Arguments& /*in*/, const std::string& /*sender*/)
{
    Expected<Text> jwks = Text::copy(service.keys.jwks());
    return jwks ? Answer{*std::move(jwks)} : Refusal{OAUTH_SERVER_ERROR, jwks.error()};
}
Answer rotate(Service& service, const Arguments& /*in*/, const std::string& /*sender*/)
{
    const Expected<void> rotated = service.keys.rotate();
    sd_bus_emit_signal(service.bus, path, interface, "KeysChanged", "");
    return rotated ? Answer{Text{}} : Refusal{OAUTH_SERVER_ERROR, rotated.error()};
}

/** The user who sends `message`, as the bus knows it. */
std::string senderOf(sd_bus_message* message)
{
    sd_bus_creds* creds = nullptr;
    uid_t user = 0;
    const bool known = sd_bus_query_sender_creds(message, SD_BUS_CREDS_EUID, &creds) >= 0 &&
                       sd_bus_creds_get_euid(creds, &user) >= 0;
    sd_bus_creds_unref(creds);
    return known ? "user:" + std::to_string(user) : "nobody";
}

template <Answer (*handle)(Service&, const Arguments&, const std::string& sender)>
int method(sd_bus_message* message, void* service, sd_bus_error* /*error*/)
{
    Arguments in{};
    if (const int read = sd_bus_message_read(message, sd_bus_message_get_signature(message, 1),
                                             &in[0], &in[1], &in[2]);
        read < 0)
    {
        return read;
    }
    const std::string sender = senderOf(message);
    const Answer answer = handle(*static_cast<Service*>(service), in, sender);
    if (answer)
    {
        return sd_bus_reply_method_return(message, answer->view().empty() ? "" : "s",
                                          answer->c_str());
    }
    // The reason is for the log alone: it would help an attacker.
    std::cerr << "token-service: " << sd_bus_message_get_member(message) << " of " << sender
              << " refused: " << answer.error().describe().view() << std::endl;
    const std::string name =
        std::string{interface}.append(".Error.").append(errorText(answer.error().code()));
    const Expected<Text> document = answer.error().document();
    return sd_bus_reply_method_errorf(message, name.c_str(), "%s",
                                      document ? document->c_str() : "");
}

// NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast): the macros are C.
constexpr std::array table{
    sd_bus_vtable SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES("Register", "s", SD_BUS_PARAM(request), "s",
                                           SD_BUS_PARAM(response), method<registerClient>,
                                           SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES("Issue", "s", SD_BUS_PARAM(request), "s",
                                           SD_BUS_PARAM(response), method<issue>,
                                           SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES(
        "Revoke", "sss", SD_BUS_PARAM(client_id) SD_BUS_PARAM(client_secret) SD_BUS_PARAM(token),
        "", "", method<revoke>, SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES("Introspect", "s", SD_BUS_PARAM(token), "s",
                                           SD_BUS_PARAM(description), method<introspect>,
                                           SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES("Keys", "", "", "s", SD_BUS_PARAM(jwks), method<publish>,
                                           SD_BUS_VTABLE_UNPRIVILEGED),
    // For root and the service's own user alone.
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES("Rotate", "", "", "", "", method<rotate>, 0),
    sd_bus_vtable SD_BUS_SIGNAL("KeysChanged", "", 0),
    sd_bus_vtable SD_BUS_VTABLE_END,
};
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)

template <typename T>
T required(Expected<T> result, const std::string& about)
{
    if (!result)
    {
        throw std::runtime_error{about + ": " + std::string{result.error().describe().view()}};
    }
    return *std::move(result);
}
void require(int result, const char* about)
{
    if (result < 0)
    {
        throw std::system_error{-result, std::generic_category(), about};
    }
}

/** Until a signal ends it. */
void serve(Service& service)
{
    sd_event* event = nullptr;
    require(sd_event_default(&event), "event loop");
    const std::unique_ptr<sd_event, decltype(&sd_event_unref)> loop{event, sd_event_unref};
    for (const int signal : {SIGTERM, SIGINT})
    {
        require(sd_event_add_signal(event, nullptr, signal, nullptr, nullptr), "signals");
    }
    // On a controller, services meet on the system bus.
    const bool isSession =
        std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr; // NOLINT(concurrency-mt-unsafe)
    require(isSession ? sd_bus_open_user(&service.bus) : sd_bus_open_system(&service.bus), "bus");
    const std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> bus{
        service.bus, sd_bus_flush_close_unref};
    require(sd_bus_set_exit_on_disconnect(bus.get(), 1), "bus");
    require(sd_bus_add_object_vtable(bus.get(), nullptr, path, interface, table.data(), &service),
            path);
    require(sd_bus_request_name(bus.get(), "org.example.Tokens", 0), "org.example.Tokens");
    require(sd_bus_attach_event(bus.get(), event, SD_EVENT_PRIORITY_NORMAL), "event loop");
    std::cout << "ready" << std::endl;
    sd_notify(0, "READY=1");
    require(sd_event_loop(event), "event loop");
}

void run(bool asksForBoth, const std::string& state, const std::string& devices)
{
    const SigningKeys keys = required(SigningKeys::loadOrCreate(state + "/signing.pem"), state);
    const std::string name = "org.example.Tokens";
    const TokenIssuer issuer = required(
        TokenIssuer::of(keys, {.issuer = name, .audience = name}, systemClock()), "issuer");
    // Whether a token's client has been removed, the endpoint asks.
    const TokenValidator validator =
        required(TokenValidator::of(keys.verificationKeys(),
                                    {.issuer = name,
                                     .audience = name,
                                     .longestLifetime = std::chrono::hours{1},
                                     .revoked = ignored},
                                    systemClock()),
                 "validator");
    const auto clients = required(SqliteStore::open(state + "/clients.db"), state);
    Service service{
        .keys = keys,
        .registrar =
            required(Registrar<SqliteStore>::of(
                         *clients, {.proofs = asksForBoth ? Proofs::both : Proofs::oneTimePassword,
                                    .redirectUris = {"https://client.example/callback"}}),
                     "registrar"),
        .tokens = required(
            TokenEndpoint<SqliteStore>::of(*clients, functionsOf(issuer, validator, devices)),
            "tokens")};
    serve(service);
}

} // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode != "2" && mode != "3")
    {
        std::cerr << "usage: token-service 2|3 STATE DEVICES\n";
        return EXIT_FAILURE;
    }
    umask(077);
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    try
    {
        run(mode == "3", argv[2], argv[3]);
    }
    catch (const std::exception& error)
    {
        std::cerr << "token-service: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
