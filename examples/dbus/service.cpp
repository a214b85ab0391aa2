// SPDX-License-Identifier: Apache-2.0
//
// A token service on D-Bus: token-service 2|3 STATE DEVICES
//
// In mode 3, clients prove that they have a device's certificate and know its passwords; in mode 2,
// the passwords. STATE is a folder for the signing key and the clients, which are made if they are
// not there. In the folder DEVICES, ID.json is the key document of the device ID, the "software_id" of
// its clients; and in the file "rights", each line begins with a device, before its privileges, or with
// "user:NUMBER", before the word introspect.
#include "bus.hpp"
#include "sqlite_store.hpp"

#include <openssl/crypto.h>

#include <sys/stat.h>

#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

namespace
{

using namespace bmcoauth;
using Answer = Expected<Text, Refusal>;
using Arguments = std::array<const char*, 3>;

constexpr const char* name = "org.example.Tokens";
constexpr const char* path = "/org/example/Tokens";
constexpr const char* interface = "org.example.Tokens1";

struct Service
{
    SigningKeys keys;
    Registrar<SqliteStore> registrar;
    TokenEndpoint<SqliteStore> tokens;
};

/** The key document of a device. Of an unknown one, it is empty: no proof is right. */
Expected<Text> keyDocument(const std::string& devices, const std::string& id)
{
    const bool isName = id.find_first_of(std::string_view{"/\0", 2}) == std::string::npos;
    std::ifstream file;
    // Without a buffer, which would keep the secrets.
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(isName ? devices + "/" + id + ".json" : "");
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    Expected<Text> document = Text::copy(text.empty() ? "{}" : text);
    OPENSSL_cleanse(text.data(), text.size());
    return document;
}

/** What the file "rights" says of `holder`. */
std::set<std::string> rightsOf(const std::string& devices, std::string_view holder)
{
    std::ifstream file{devices + "/rights"};
    for (std::string line, first; std::getline(file, line);)
    {
        std::istringstream words{line};
        if (words >> first && first == holder)
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

Answer textOr(const Expected<void>& done, std::string_view text)
{
    Expected<Text> copy = done ? Text::copy(text) : done.error();
    return copy ? Answer{*std::move(copy)} : Refusal{OAUTH_SERVER_ERROR, copy.error()};
}

Answer answerTo(std::string_view method, Service& service, const Arguments& in,
                std::string_view sender)
{
    if (method == "Register")
    {
        return service.registrar.answer(in[0], sender);
    }
    if (method == "Issue")
    {
        return service.tokens.answer(in[0], sender);
    }
    if (method == "Introspect")
    {
        return service.tokens.introspect(in[0], sender);
    }
    if (method == "Revoke")
    {
        return service.tokens.revoke(in[0], in[1], in[2]).transform([] { return Text{}; });
    }
    return method == "Keys" ? textOr({}, service.keys.jwks()) : textOr(service.keys.rotate(), "");
}

/** The user who has sent `message`, as the bus knows it. */
std::string senderOf(sd_bus_message* message)
{
    sd_bus_creds* creds = nullptr;
    uid_t user = 0;
    const bool known = sd_bus_query_sender_creds(message, SD_BUS_CREDS_EUID, &creds) >= 0 &&
                       sd_bus_creds_get_euid(creds, &user) >= 0;
    sd_bus_creds_unref(creds);
    return known ? "user:" + std::to_string(user) : "nobody";
}

int call(sd_bus_message* message, void* service, sd_bus_error* /*error*/)
{
    Arguments in{};
    const char* const types = sd_bus_message_get_signature(message, 1);
    if (const int read = sd_bus_message_read(message, types, in.data(), &in[1], &in[2]); read < 0)
    {
        return read;
    }
    const std::string_view method = sd_bus_message_get_member(message);
    const std::string sender = senderOf(message);
    const Answer answer = answerTo(method, *static_cast<Service*>(service), in, sender);
    if (answer && method == "Rotate")
    {
        sd_bus_emit_signal(sd_bus_message_get_bus(message), path, interface, "KeysChanged", "");
    }
    if (answer)
    {
        const char* const type = answer->view().empty() ? "" : "s";
        return sd_bus_reply_method_return(message, type, answer->c_str());
    }
    // The reason is for the log alone: it would help an attacker.
    std::cerr << "token-service: " << method << " of " << sender
              << " refused: " << answer.error().describe().view() << std::endl;
    const std::string error =
        std::string{interface} + ".Error." + std::string{errorText(answer.error().code())};
    const Expected<Text> document = answer.error().document();
    return sd_bus_reply_method_errorf(message, error.c_str(), "%s",
                                      document ? document->c_str() : "");
}

// Who may call what, the bus decides; Rotate is for root and the service's own user.
// clang-format off
// NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast): the macros are C.
constexpr sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Register", SD_BUS_ARGS("s", request), SD_BUS_RESULT("s", response), call, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Issue", SD_BUS_ARGS("s", request), SD_BUS_RESULT("s", response), call, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Introspect", SD_BUS_ARGS("s", token), SD_BUS_RESULT("s", description), call, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Revoke", SD_BUS_ARGS("s", client_id, "s", client_secret, "s", token), SD_BUS_NO_RESULT, call, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Keys", SD_BUS_NO_ARGS, SD_BUS_RESULT("s", jwks), call, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Rotate", SD_BUS_NO_ARGS, SD_BUS_NO_RESULT, call, 0),
    SD_BUS_SIGNAL("KeysChanged", "", 0),
    SD_BUS_VTABLE_END,
};
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)
// clang-format on

void run(bool both, const std::string& state, const std::string& devices)
{
    const SigningKeys keys = required(SigningKeys::loadOrCreate(state + "/signing.pem"), state);
    const auto issuer = required(
        TokenIssuer::of(keys, {.issuer = name, .audience = name}, systemClock()), "issuer");
    // Whether a token's client has been removed, the endpoint asks.
    const auto validator = required(TokenValidator::of(keys.verificationKeys(),
                                                       {.issuer = name,
                                                        .audience = name,
                                                        .longestLifetime = std::chrono::hours{1},
                                                        .revoked = ignored},
                                                       systemClock()),
                                    "validator");
    const TokenFunctions functions{
        .issue = issuer,
        .validate = [&](auto token) { return validator.validate(token).transform(TokenFacts::of); },
        .secrets = [&](auto& client) { return keyDocument(devices, client.softwareId); },
        .privileges = [&](auto& client) { return privilegesOf(devices, client); },
        .mayIntrospect =
            [&](auto who) {
                return rightsOf(devices, who).contains("introspect");
            }};
    const auto clients = required(SqliteStore::open(state + "/clients.db"), state);
    const RegistrationRules rules{.proofs = both ? Proofs::both : Proofs::oneTimePassword,
                                  .redirectUris = {"https://client.example/callback"}};
    Service service{.keys = keys,
                    .registrar = required(Registrar<SqliteStore>::of(*clients, rules), "registrar"),
                    .tokens =
                        required(TokenEndpoint<SqliteStore>::of(*clients, functions), "tokens")};
    const Bus bus = openBus();
    required(sd_bus_add_object_vtable(bus.get(), nullptr, path, interface, table, &service), path);
    serve(bus.get(), name);
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
    return status([&] { run(mode == "3", argv[2], argv[3]); });
}
