// SPDX-License-Identifier: Apache-2.0
//
// A token service on D-Bus: token-service 2|3 STATE DEVICES
//
// In mode 3, clients prove that they have a device's certificate and know its passwords; in mode 2,
// the passwords. STATE is a folder for the signing key and the clients, which are made if they are
// not there. In the folder DEVICES, ID.json is the key document of the device ID, the "software_id"
// of its clients, and ID.rights names their privileges.
#include "bus.hpp"
#include "sqlite_store.hpp"

#include <openssl/crypto.h>

#include <sys/stat.h>

#include <array>
#include <fstream>
#include <functional>

namespace
{

using namespace bmcoauth;
using Answer = Expected<Text, Refusal>;
using Arguments = std::array<const char*, 3>;

/** The key document in the file `path`. Without one, it is empty: no proof is right. */
Expected<Text> keyDocument(const std::string& path)
{
    std::array<char, 16384> text{};
    std::ifstream file;
    // Without a buffer, which would keep the secrets.
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(path);
    file.read(text.data(), text.size());
    const auto size = static_cast<std::size_t>(file.gcount());
    Expected<Text> document = Text::copy(size > 0 ? std::string_view{text.data(), size} : "{}");
    OPENSSL_cleanse(text.data(), text.size());
    return document;
}

/** The privileges that the file `path` names. */
Privileges privilegesIn(const std::string& path)
{
    Privileges granted;
    std::ifstream names{path};
    for (std::string name; names >> name;)
    {
        granted = granted | privilegeNamed(name).value_or(Privilege{});
    }
    return granted;
}

/** All that a call works with. Not moved: the functions know where it is. */
struct Service
{
    Proofs proofs;
    std::string state;
    std::string devices;
    SigningKeys keys = required(SigningKeys::loadOrCreate(state + "/signing.pem"));
    const std::unique_ptr<SqliteStore> clients = required(SqliteStore::open(state + "/clients.db"));
    RegistrationRules asked{.proofs = proofs, .redirectUris = {"https://client.example/callback"}};
    // Who may introspect, the policy of the bus has decided.
    TokenFunctions functions{
        .secrets = [this](auto& client) { return keyDocument(fileOf(client, ".json")); },
        .privileges = [this](auto& client) { return privilegesIn(fileOf(client, ".rights")); },
        .mayIntrospect =
            [](auto /*sender*/) {
                return true;
            }};
    Registrar<SqliteStore> registrar = required(Registrar<SqliteStore>::of(*clients, asked));
    TokenEndpoint<SqliteStore> tokens = required(TokenEndpoint<SqliteStore>::of(
        *clients,
        required(TokenIssuer::of(keys, {.issuer = tokenService.name, .audience = tokenService.name},
                                 systemClock())),
        functions));

    /** The file of the client's device; no peer's text leads out of the folder. */
    [[nodiscard]] std::string fileOf(const ClientRecord& client, const char* kind) const
    {
        const bool isName =
            client.softwareId.find_first_of(std::string_view{"/\0", 2}) == std::string::npos;
        return isName ? devices + '/' + client.softwareId + kind : "";
    }
    Answer answer(std::string_view method, const Arguments& in, std::string_view sender)
    {
        const auto nothing = [] {
            return Text{};
        };
        const auto refusal = [](const Error& reason) -> Answer {
            return Refusal{OAUTH_SERVER_ERROR, reason};
        };
        return method == "Register"     ? registrar.answer(in[0], sender)
               : method == "Issue"      ? tokens.answer(in[0], sender)
               : method == "Introspect" ? tokens.introspect(in[0], sender)
               : method == "Revoke"     ? tokens.revoke(in[0], in[1], in[2]).transform(nothing)
               : method == "Keys"       ? Text::copy(keys.jwks()).or_else(refusal)
                                        : keys.rotate().transform(nothing).or_else(refusal);
    }
};

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

int call(sd_bus_message* message, void* service, sd_bus_error* error)
{
    Arguments in{};
    const char* const types = sd_bus_message_get_signature(message, 1);
    if (const int read = sd_bus_message_read(message, types, in.data(), &in[1], &in[2]); read < 0)
    {
        return read;
    }
    const std::string_view method = sd_bus_message_get_member(message);
    const std::string sender = senderOf(message);
    const Answer answer = static_cast<Service*>(service)->answer(method, in, sender);
    if (answer && method == "Rotate")
    {
        sd_bus_emit_signal(sd_bus_message_get_bus(message), tokenService.path,
                           tokenService.interface, "KeysChanged", "");
    }
    if (answer)
    {
        const char* const type = answer->view().empty() ? "" : "s";
        return sd_bus_reply_method_return(message, type, answer->c_str());
    }
    // The reason is for the log alone: it would help an attacker.
    const Refusal& refusal = answer.error();
    std::cerr << "token-service: " << method << " of " << sender
              << " refused: " << refusal.describe().view() << std::endl;
    const std::string word{errorText(refusal.code())};
    const Expected<Text> document = refusal.document();
    return sd_bus_error_set(error, (tokenService.interface + (".Error." + word)).c_str(),
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
    return serve(tokenService, table, [&](sd_bus* /*bus*/) {
        return Service{mode == "2" ? Proofs::oneTimePassword : Proofs::both, argv[2], argv[3]};
    });
}
