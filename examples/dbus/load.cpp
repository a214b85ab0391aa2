// SPDX-License-Identifier: Apache-2.0
//
// Eight clients that work without a pause: token-load SECONDS NAME SECRETS
//
// The service may be killed and started again meanwhile. All that it has acknowledged must be there
// afterwards: each client refreshes its tokens all the time and counts on the last answer that it got,
// and clients that were revoked must stay so. Another one guesses passwords. Prints "ready" once all
// clients have proven themselves, and in the end what it has measured. Ends with 1 where something was
// lost. load.py runs it.
#include "peer.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

/** Calls until the service answers; `calls` gets how long each answered one took. */
struct Caller
{
    Peer peer;
    std::vector<Clock::duration> calls;
    int lost = 0;

    Reply call(const char* method, std::initializer_list<std::string_view> texts)
    {
        for (;;)
        {
            const Clock::time_point begin = Clock::now();
            Reply reply = peer.call(method, texts);
            if (reply.state != Reply::lost)
            {
                calls.push_back(Clock::now() - begin);
                return reply;
            }
            ++lost;
            std::this_thread::sleep_for(std::chrono::milliseconds{20});
        }
    }
};

/** A client that has proven itself. */
struct Session
{
    Client client;
    std::string refresh;
    std::string access;

    [[nodiscard]] std::string request() const
    {
        return requestOf(client, {.refreshToken = refresh});
    }
};

Session begin(Caller& caller, const Device& device)
{
    Client client = clientIn(caller.call("Register", {registrationText(device)}).text);
    const Tokens tokens = tokensIn(caller.call("Issue", {proofOf(client, device)}).text);
    return {std::move(client), tokens.refresh, tokens.access};
}

/** How often something was wrong. */
std::atomic<int>& faults()
{
    static std::atomic<int> count = 0;
    return count;
}
/** Says what is wrong. */
void expect(bool asItShould, std::string_view what, const Reply& reply)
{
    if (!asItShould)
    {
        ++faults();
        std::cerr << "LOST: " << what << ": " << reply.text << std::endl;
    }
}

bool isRefused(const Reply& reply)
{
    return reply.text.find("invalid_client") != std::string::npos;
}

void refresh(Caller& caller, Session& session)
{
    const Reply reply = caller.call("Issue", {session.request()});
    expect(reply.state == Reply::given, "a refresh token", reply);
    if (reply.state == Reply::given)
    {
        const Tokens tokens = tokensIn(reply.text);
        session.refresh = tokens.refresh;
        session.access = tokens.access;
    }
}

void introspect(Caller& caller, const Session& session, bool active)
{
    const Reply reply = caller.call("Introspect", {session.access});
    expect(reply.text.starts_with(R"({"active":true)") == active, "the state of a token", reply);
}

void revoke(Caller& caller, const Session& session)
{
    const int lostBefore = caller.lost;
    const Reply reply =
        caller.call("Revoke", {session.client.id, session.client.secret, session.refresh});
    // If the answer to the first call was lost, there is no such client any more.
    expect(reply.state == Reply::given || (caller.lost > lostBefore && isRefused(reply)),
           "a revocation", reply);
}

/** Works until `end` with the first session, and revokes the others meanwhile. */
void work(Caller& caller, std::vector<Session>& sessions, Clock::time_point end)
{
    const Clock::time_point start = Clock::now();
    const auto share = (end - start) / static_cast<int>(sessions.size());
    std::size_t revoked = 0;
    while (Clock::now() < end)
    {
        refresh(caller, sessions.front());
        introspect(caller, sessions.front(), true);
        if (revoked + 1 < sessions.size() &&
            Clock::now() > start + share * static_cast<int>(revoked + 1))
        {
            revoke(caller, sessions[++revoked]);
        }
    }
    refresh(caller, sessions.front());
    for (std::size_t i = 1; i <= revoked; ++i)
    {
        const Reply reply = caller.call("Issue", {sessions[i].request()});
        expect(isRefused(reply), "a revocation that was acknowledged", reply);
        introspect(caller, sessions[i], false);
    }
}

/** Guesses until `end`. */
void guess(Caller& caller, const Device& device, Clock::time_point end)
{
    const Device other{device.name, R"({"otp1.0":["AAAA"],"otp2.0":["AAAA"]})"};
    while (Clock::now() < end)
    {
        const Client client = clientIn(caller.call("Register", {registrationText(device)}).text);
        const Reply reply = caller.call("Issue", {proofOf(client, other)});
        expect(isRefused(reply), "the answer to a guess", reply);
        std::this_thread::sleep_for(std::chrono::milliseconds{100});
    }
}

void report(std::vector<Caller>& callers, Clock::duration length)
{
    std::vector<Clock::duration> calls;
    int lost = 0;
    for (Caller& caller : callers)
    {
        calls.insert(calls.end(), caller.calls.begin(), caller.calls.end());
        lost += caller.lost;
    }
    std::ranges::sort(calls);
    const auto at = [&](std::size_t percent) {
        const auto time = calls[(calls.size() - 1) * percent / 100];
        return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
    };
    const auto seconds = std::chrono::duration_cast<std::chrono::duration<double>>(length).count();
    std::cout << "calls per second: " << static_cast<double>(calls.size()) / seconds
              << "\nmedian, microseconds: " << at(50)
              << "\n99th percentile, microseconds: " << at(99)
              << "\ncalls without an answer: " << lost << "\nfaults: " << faults() << std::endl;
}

int run(int seconds, const Device& device)
{
    constexpr std::size_t clients = 8;
    constexpr std::size_t sessionsOfEach = 4;
    // The last one guesses.
    std::vector<Caller> callers(clients + 1);
    std::vector<std::vector<Session>> sessions(clients);
    for (std::size_t i = 0; i < clients; ++i)
    {
        for (std::size_t one = 0; one < sessionsOfEach; ++one)
        {
            sessions[i].push_back(begin(callers[i], device));
        }
        callers[i].calls.clear();
    }
    std::cout << "ready" << std::endl;
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = start + std::chrono::seconds{seconds};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < clients; ++i)
    {
        threads.emplace_back(work, std::ref(callers[i]), std::ref(sessions[i]), end);
    }
    threads.emplace_back(guess, std::ref(callers.back()), std::cref(device), end);
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    report(callers, Clock::now() - start);
    return faults() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::cerr << "usage: token-load SECONDS NAME SECRETS\n";
        return EXIT_FAILURE;
    }
    try
    {
        std::ifstream file{argv[3]};
        return run(std::stoi(argv[1]), {argv[2], {std::istreambuf_iterator<char>{file}, {}}});
    }
    catch (const std::exception& error)
    {
        std::cerr << "token-load: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
