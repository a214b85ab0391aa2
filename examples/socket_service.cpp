// SPDX-License-Identifier: Apache-2.0
//
// socket-service KEY SECRETS USER: a token service on a Unix socket, as examples/README.md tells.
#include <bmcoauth/service.hpp>

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <thread>

using namespace bmcoauth;

/** Registers devices of the factory, and gives them tokens. Several threads may call `serve`. */
struct Service
{
    SigningKeys keys;
    std::string secretsFolder;
    std::string introspector;
    MemoryStore clients = {};
    // `value` ends the program if a rule has no meaning; these have.
    TokenIssuer issuer =
        TokenIssuer::of(keys, {.issuer = "socket-service", .audience = "devices"}, systemClock())
            .value();
    RegistrationRules asked{.redirectUris = {"https://client.example/callback"}};
    Registrar<MemoryStore> registrar = Registrar<MemoryStore>::of(clients, asked).value();
    TokenEndpoint<MemoryStore> tokens =
        TokenEndpoint<MemoryStore>::of(
            clients, issuer,
            {.secrets = std::bind_front(&Service::secretsOf, this),
             .privileges = [](const ClientRecord&) { return Privileges{Privilege::login}; },
             .mayIntrospect = std::bind_front(std::equal_to{}, introspector)})
            .value();
    TokenValidator judge =
        issuer.validator([this](const Claims& claims) { return tokens.isRevoked(claims); }).value();

    /** The secrets of this device alone, whose name is in its certificate. Wipes its own copy. */
    Expected<Text> secretsOf(const ClientRecord& client) const
    {
        std::array<char, 16384> text{};
        std::ifstream file;
        file.rdbuf()->pubsetbuf(nullptr, 0); // a buffer would keep the secrets
        file.open(secretsFolder + '/' + client.deviceName + ".json");
        const std::streamsize size = file.read(text.data(), text.size()).gcount();
        Expected<Text> secrets = size > 0 && client.deviceName.find('/') == std::string::npos
                                     ? Text::copy({text.data(), static_cast<std::size_t>(size)})
                                     : Error{BMCOAUTH_RULE_FILE_UNREADABLE, client.deviceName};
        OPENSSL_cleanse(text.data(), text.size());
        return secrets;
    }
    Expected<Text, Refusal> answer(std::string_view line, std::string_view user)
    {
        const auto member = [document = Document::parse(line)](const char* name) {
            const Expected<Text> text = document ? document->string(name) : document.error();
            return std::string{text ? text->view() : ""};
        };
        const std::string call = member("call");
        const std::string token = member("token");
        const auto yes = [](const auto&... /*ignored*/) {
            return Text::copy("{}").value();
        };
        const auto refusal = [](const Error& reason) -> Expected<Text, Refusal> {
            return Refusal{OAUTH_INVALID_TOKEN, reason};
        };
        return call == "token"        ? tokens.answer(line, user)
               : call == "introspect" ? tokens.introspect(token, user)
               : call == "validate"   ? judge.validate(token).transform(yes).or_else(refusal)
               : call == "revoke"
                   ? tokens.revoke(member("client_id"), member("client_secret"), token)
                         .transform(yes)
               : call == "register"
                   ? registrar.answer(line, user)
                   : Refusal{OAUTH_INVALID_REQUEST, Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "call"}};
    }
    /** Answers a line of each connection that comes in 16 parts, each in a second. Logs refusals. */
    void serve()
    {
        for (int peer = 0; (peer = accept(3, nullptr, nullptr)) >= 0; close(peer))
        {
            ucred user{.pid = 0, .uid = ~0U, .gid = ~0U};
            socklen_t size = sizeof user;
            const timeval second{1, 0};
            getsockopt(peer, SOL_SOCKET, SO_PEERCRED, &user, &size);
            setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
            std::string line;
            std::array<char, 2048> part{};
            ssize_t got = 1;
            for (int i = 0; got > 0 && i < 16 && !line.ends_with('\n'); ++i)
            {
                got = recv(peer, part.data(), part.size(), 0);
                line.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
            }
            const Expected<Text, Refusal> made = answer(line, std::to_string(user.uid));
            std::clog << (made ? ""
                               : std::string{"refused: "} + made.error().describe().c_str() + '\n');
            const Expected<Text> text = made ? Text::copy(*made) : made.error().document();
            line = std::string{text.value()} + '\n';
            send(peer, line.data(), line.size(), MSG_NOSIGNAL);
        }
    }
};

int main(int argc, char** argv)
{
    const Expected<SigningKeys> keys = SigningKeys::loadOrCreate(argc == 4 ? argv[1] : "");
    if (!keys)
    {
        std::cerr << "socket-service KEY SECRETS USER: " << keys.error().describe().view() << '\n';
        return 1;
    }
    Service service{*keys, argv[2], argv[3]};
    std::array<std::jthread, 8> threads;
    std::ranges::generate(threads, [&] { return std::jthread{&Service::serve, &service}; });
}
