// SPDX-License-Identifier: Apache-2.0
//
// A client of the token service: token-client NAME SECRETS [CHAIN KEY]
//
// Registers as the device NAME, proves itself, works with its tokens, and shows what the service
// refuses. SECRETS is the device's key document, which the service has, too; CHAIN and KEY are PEM
// files of its certificate. Ends with 1 where something went otherwise.
#include "peer.hpp"

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace
{

/** One step of the story: says what it is about, and whether it went as it should. */
bool step(std::string_view what, bool asItShould)
{
    std::cout << (asItShould ? "as it should: " : "WRONG: ") << what << '\n';
    return asItShould;
}

bool isGiven(const Reply& reply)
{
    return reply.state == Reply::given;
}
/** Whatever is wrong with a client, it is told the same. */
bool isRefused(const Reply& reply)
{
    return reply.text == R"(org.example.Tokens1.Error.invalid_client: {"error":"invalid_client"})";
}

Client registered(const Peer& peer, const Device& device)
{
    const Reply reply = peer.call("Register", {registrationText(device)});
    if (!step("the client is registered and challenged", isGiven(reply)))
    {
        throw std::runtime_error{reply.text};
    }
    return clientIn(reply.text);
}

Reply refreshed(const Peer& peer, const Client& client, std::string_view token)
{
    return peer.call("Issue", {requestOf(client, {.refreshToken = token})});
}

bool isActive(const Peer& peer, const Tokens& tokens)
{
    return peer.call("Introspect", {tokens.access}).text.starts_with(R"({"active":true)");
}

bool lookAt(const Peer& peer, const Tokens& tokens)
{
    const Reply described = peer.call("Introspect", {tokens.access});
    bool good =
        step("the access token allows to log in and to configure",
             described.text.find(R"("scope":"ravok_login ravok_configure")") != std::string::npos);
    std::string altered = tokens.access;
    altered[altered.size() / 2] = altered[altered.size() / 2] == 'A' ? 'B' : 'A';
    return step("altered, it is worth nothing", !isActive(peer, {altered, {}})) && good;
}

bool workWithTokens(const Peer& peer, const Device& device)
{
    const Client client = registered(peer, device);
    const std::string proof = proofOf(client, device);
    const Reply reply = peer.call("Issue", {proof});
    if (!step("it proves itself and has tokens", isGiven(reply)))
    {
        return false;
    }
    const Tokens first = tokensIn(reply.text);
    bool good = step("the same proof is good once", isRefused(peer.call("Issue", {proof})));
    good = lookAt(peer, first) && good;
    const Tokens second = tokensIn(refreshed(peer, client, first.refresh).text);
    good = step("the refresh token gives new tokens", isActive(peer, second)) && good;
    const Tokens again = tokensIn(refreshed(peer, client, first.refresh).text);
    good = step("asked at once again, the same one: the answer may have been lost",
                again.refresh == second.refresh) &&
           good;
    const Tokens third = tokensIn(refreshed(peer, client, second.refresh).text);
    good = step("the old one, replayed, is refused",
                isRefused(refreshed(peer, client, first.refresh))) &&
           good;
    good = step("then all tokens are worth nothing", !isActive(peer, third)) && good;
    return step("and the client must register anew",
                isRefused(refreshed(peer, client, third.refresh))) &&
           good;
}

bool revoke(const Peer& peer, const Device& device)
{
    const Client client = registered(peer, device);
    const Tokens tokens = tokensIn(peer.call("Issue", {proofOf(client, device)}).text);
    bool good = step("a wrong secret revokes nothing",
                     isRefused(peer.call("Revoke", {client.id, "guessed", tokens.refresh})));
    good = step("the tokens are good", isActive(peer, tokens)) && good;
    good = step("they are revoked",
                isGiven(peer.call("Revoke", {client.id, client.secret, tokens.refresh}))) &&
           good;
    return step("and good no more", !isActive(peer, tokens)) && good;
}

bool isJudgedGood(const Peer& peer, const Client& client, const Tokens& tokens)
{
    return peer.call("Judge", {tokens.access}, judgingService).text == client.id;
}

/** The other service, which judges tokens without the token service. */
bool haveItJudged(const Peer& peer, const Device& device)
{
    const Client client = registered(peer, device);
    const Tokens first = tokensIn(peer.call("Issue", {proofOf(client, device)}).text);
    bool good = step("the judge knows whose token it is", isJudgedGood(peer, client, first));
    Tokens altered = first;
    altered.access.insert(altered.access.size() / 2, "A");
    good = step("and refuses an altered one", !isJudgedGood(peer, client, altered)) && good;
    good = step("the signing key is replaced", isGiven(peer.call("Rotate", {}))) && good;
    good = step("the token is still good", isJudgedGood(peer, client, first)) && good;
    const Tokens second = tokensIn(refreshed(peer, client, first.refresh).text);
    return step("and so is one of the new key", isJudgedGood(peer, client, second)) && good;
}

bool guess(const Peer& peer, const Device& device)
{
    const Client client = registered(peer, device);
    const Device other{device.name, R"({"otp1.0":["AAAA"],"otp2.0":["AAAA"]})", device.chain,
                       device.keyFile};
    bool good = step("a guessed password is refused",
                     isRefused(peer.call("Issue", {proofOf(client, other)})));
    good = step("and uses the challenge up: the right one is refused, too",
                isRefused(peer.call("Issue", {proofOf(client, device)}))) &&
           good;
    const Reply unknown =
        peer.call("Issue", {requestOf({"nobody", "nothing", {}}, {.refreshToken = "x"})});
    return step("an unknown client is told the same", isRefused(unknown)) && good;
}

/** A request of `size` bytes, with a member that nobody reads. */
std::string padded(std::string_view request, std::size_t size)
{
    const std::string_view before = R"({"x":")";
    const std::string_view after = R"(",)";
    const std::size_t kept = before.size() + after.size() + request.size() - 1;
    return std::string{before} + std::string(size - kept, '.') + std::string{after} +
           std::string{request.substr(1)};
}

bool sendTooMuch(const Peer& peer, const Device& device)
{
    constexpr std::size_t most = 16384;
    const std::string text = registrationText(device);
    const bool good =
        step("a request of 16 KiB is taken", isGiven(peer.call("Register", {padded(text, most)})));
    return step("one of a byte more is refused",
                !isGiven(peer.call("Register", {padded(text, most + 1)}))) &&
           good;
}

std::string contents(const char* path)
{
    std::ifstream file{path};
    std::string text{std::istreambuf_iterator<char>{file}, {}};
    return text.empty() ? throw std::runtime_error{std::string{"cannot read "} + path} : text;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3 && argc != 5)
    {
        std::cerr << "usage: token-client NAME SECRETS [CHAIN KEY]\n";
        return EXIT_FAILURE;
    }
    try
    {
        const Device device{argv[1], contents(argv[2]), argc == 5 ? contents(argv[3]) : "",
                            argc == 5 ? argv[4] : ""};
        const Peer peer;
        bool good = workWithTokens(peer, device);
        good = revoke(peer, device) && good;
        good = haveItJudged(peer, device) && good;
        good = guess(peer, device) && good;
        return sendTooMuch(peer, device) && good ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    catch (const std::exception& error)
    {
        std::cerr << "token-client: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
