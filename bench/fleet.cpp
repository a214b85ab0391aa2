// SPDX-License-Identifier: Apache-2.0
//
// Many registrations at once, as after a power cut:
//
//   bench-fleet [fleet MODE THREADS CONTROLLERS...]
//   bench-fleet one MODE CLIENTS IN_FLIGHT PENDING PROVEN
//   bench-fleet steps MODE ROUNDS
//
// "fleet" is a fleet manager that registers at so many controllers, each with keys and a store of its
// own, in this process. "one" is a controller that so many clients register at: as many of them as IN_FLIGHT
// says wait between their registration and their proof, and the store has the limits PENDING and PROVEN.
// "steps" takes one client through its journey, step by step; callgrind is told to count within
// `measured`. Every call is a real one; only the transport is missing. In mode 2, clients know a password;
// in mode 3 they have a certificate of the factory as well. Without arguments: the tables of
// docs/capacity.md. Times are processor time of the thread, memory is what malloc has handed out.
#include "journeys.hpp"

#include <bmcoauth/service.hpp>
#include <bmcoauth/testing.h>

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

/** What callgrind counts: known to it by this name. A plugin of an emulator sees the marks before and
 *  behind it, a system call that no machine has. */
extern "C" [[gnu::noinline]] void measured(const std::function<void()>& work)
{
    constexpr long mark = 0x6d61;
    static_cast<void>(syscall(mark));
    work();
    static_cast<void>(syscall(mark));
}

namespace
{

using namespace bmcoauth;
using bench::Client;
using bench::Device;
using bench::needed;
using bench::Tokens;
using Seconds = std::chrono::duration<double>;
using Microseconds = std::chrono::duration<double, std::micro>;

// ---------------------------------------------------------------------------------- measuring --

[[nodiscard]] Seconds threadTime()
{
    std::timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return std::chrono::seconds{now.tv_sec} + std::chrono::nanoseconds{now.tv_nsec};
}

/** What malloc has handed out, its own overhead included. */
[[nodiscard]] std::size_t heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/** Does `work`, and adds its time to `sum`. */
template <typename Work>
auto timed(Seconds& sum, const Work& work)
{
    const Seconds begin = threadTime();
    auto result = work();
    sum += threadTime() - begin;
    return result;
}

/** Lines of a table in Markdown. */
class Table
{
public:
    explicit Table(std::initializer_list<const char*> heads)
    {
        std::string rule = "|";
        for (const char* const head : heads)
        {
            std::cout << "| " << head << ' ';
            rule += "--:|";
        }
        std::cout << "|\n" << rule << std::endl;
    }
    template <typename... Cells>
    void row(const Cells&... cells)
    {
        std::cout << std::fixed << std::setprecision(1);
        ((std::cout << "| " << cells << ' '), ...);
        std::cout << "|" << std::endl;
    }
};

// -------------------------------------------------------------------------------- the machines --

/** A folder that ends with its object, in memory if there is such a place: keys are made on it. */
class Folder
{
public:
    Folder()
    {
        const std::filesystem::path memory = "/dev/shm";
        const bool isThere = ::access(memory.c_str(), W_OK) == 0;
        name = (isThere ? memory : std::filesystem::temp_directory_path()) / "fleet-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr)
        {
            throw std::runtime_error{name};
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder()
    {
        std::error_code ignoredError;
        std::filesystem::remove_all(name, ignoredError);
    }
    [[nodiscard]] const std::string& path() const
    {
        return name;
    }

private:
    std::string name;
};

/** A factory whose roots this process trusts. */
class Site
{
public:
    Site()
    {
        bmcoauth_testing_set_roots(folder.path().c_str());
    }
    [[nodiscard]] const bench::Factory& factory() const
    {
        return made;
    }
    /** A key of a controller. */
    [[nodiscard]] SigningKeys newKeys() const
    {
        const std::string path = folder.path() + "/signing.pem";
        std::filesystem::remove(path);
        return needed(SigningKeys::loadOrCreate(path));
    }

private:
    Folder folder;
    bench::Factory made{folder.path()};
};

constexpr const char* issuerName = "org.example.Tokens";

/** A controller's token service. */
class Controller
{
public:
    Controller(const Site& site, Proofs proofs, const ClientLimits& limits)
        : keys{site.newKeys()},
          issuer{needed(TokenIssuer::of(keys, {.issuer = issuerName, .audience = issuerName},
                                        systemClock()))},
          validator{needed(issuer.validator(ignored))},
          registrar{needed(Registrar<MemoryStore>::of(
              clients, {.proofs = proofs,
                        .redirectUris = {std::string{bench::redirectUri}},
                        .limits = limits}))},
          tokens{needed(TokenEndpoint<MemoryStore>::of(clients, issuer, functions(site)))}
    {
    }
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;
    ~Controller() = default;

    [[nodiscard]] Expected<Text, Refusal> registered(std::string_view request)
    {
        return registrar.answer(request, sender);
    }
    [[nodiscard]] Expected<Text, Refusal> given(std::string_view request)
    {
        return tokens.answer(request, sender);
    }
    [[nodiscard]] Expected<Text, Refusal> described(std::string_view token)
    {
        return tokens.introspect(token, sender);
    }
    [[nodiscard]] Expected<ValidToken> validated(std::string_view token) const
    {
        return validator.validate(token);
    }
    [[nodiscard]] bool isKnown(std::string_view id) const
    {
        return needed(tokens.isActive(id));
    }

private:
    [[nodiscard]] static TokenFunctions functions(const Site& site)
    {
        return {.secrets = [&site](auto&) { return Text::copy(site.factory().keyDocument()); },
                .privileges = [](auto&) { return Privilege::login | Privilege::configure; },
                .mayIntrospect =
                    [](auto) {
                        return true;
                    }};
    }

    // All clients come by way of one web server, which is the sender for all of them.
    static constexpr std::string_view sender = "user:33";

    SigningKeys keys;
    TokenIssuer issuer;
    TokenValidator validator;
    MemoryStore clients;
    Registrar<MemoryStore> registrar;
    TokenEndpoint<MemoryStore> tokens;
};

// --------------------------------------------------------------------------------- a whole fleet --

/** What a fleet manager keeps of a controller. */
struct Membership
{
    std::string id;
    std::string secret;
    Tokens tokens;
};

/** The time that both sides have taken. */
struct Costs
{
    Seconds client{};
    Seconds controller{};
};

[[nodiscard]] Membership join(Controller& controller, const Device& device, Costs& costs)
{
    const std::string request = timed(costs.client, [&] { return bench::registrationOf(device); });
    const Text registered =
        timed(costs.controller, [&] { return needed(controller.registered(request)); });
    const Client client = timed(costs.client, [&] { return bench::clientIn(registered); });
    const std::string proof = timed(costs.client, [&] { return bench::proofOf(client, device); });
    const Text given = timed(costs.controller, [&] { return needed(controller.given(proof)); });
    return {client.id, client.secret, timed(costs.client, [&] { return bench::tokensIn(given); })};
}

using Controllers = std::vector<std::unique_ptr<Controller>>;

/** Registers at all of them, on so many threads, each of which takes the next controller. */
[[nodiscard]] Costs joinAll(const Controllers& controllers, const Device& device, int threads,
                            std::vector<Membership>& memberships)
{
    std::atomic<std::size_t> next = 0;
    std::vector<Costs> costs(static_cast<std::size_t>(threads));
    std::vector<std::thread> running;
    running.reserve(costs.size());
    for (Costs& own : costs)
    {
        running.emplace_back([&] {
            for (std::size_t i = next++; i < controllers.size(); i = next++)
            {
                memberships[i] = join(*controllers[i], device, own);
            }
        });
    }
    Costs sum;
    for (std::size_t i = 0; i < running.size(); ++i)
    {
        running[i].join();
        sum.client += costs[i].client;
        sum.controller += costs[i].controller;
    }
    return sum;
}

[[nodiscard]] double perOne(double sum, std::size_t amount)
{
    return sum / static_cast<double>(amount);
}

void measureFleet(Table& table, const Site& site, Proofs mode, int threads, std::size_t amount)
{
    const Device device = site.factory().device("fleet-manager", mode == Proofs::both);
    const std::size_t atFirst = heapInUse();
    Controllers controllers(amount);
    for (auto& controller : controllers)
    {
        controller = std::make_unique<Controller>(site, mode, ClientLimits{});
    }
    const std::size_t idle = heapInUse();
    std::vector<Membership> memberships(amount);
    const auto begin = std::chrono::steady_clock::now();
    const Costs costs = joinAll(controllers, device, threads, memberships);
    const Seconds wall = std::chrono::steady_clock::now() - begin;
    const std::size_t all = heapInUse();
    std::vector<Membership>{}.swap(memberships);
    const std::size_t withoutManager = heapInUse();
    constexpr double kibibyte = 1024;
    table.row(static_cast<unsigned int>(mode), threads, amount,
              static_cast<double>(amount) / wall.count(),
              perOne(Microseconds{costs.client}.count(), amount),
              perOne(Microseconds{costs.controller}.count(), amount),
              perOne(static_cast<double>(all - withoutManager), amount) / kibibyte,
              perOne(static_cast<double>(idle - atFirst), amount) / kibibyte,
              perOne(static_cast<double>(withoutManager - atFirst), amount) / kibibyte);
}

void measureFleets(Proofs mode, int threads, const std::vector<std::size_t>& amounts)
{
    const Site site;
    {
        // The first use makes things for the whole process, which are not one controller's.
        Costs unused;
        Controller first{site, mode, {}};
        static_cast<void>(
            join(first, site.factory().device("first", mode == Proofs::both), unused));
    }
    Table table{"mode",
                "threads",
                "controllers",
                "registrations a second",
                "manager, µs",
                "controller, µs",
                "manager, KiB for each",
                "idle controller, KiB",
                "controller after it, KiB"};
    for (const std::size_t amount : amounts)
    {
        measureFleet(table, site, mode, threads, amount);
    }
}

// --------------------------------------------------------------------- many clients of one controller --

/** How the clients of one controller come. */
struct Crowd
{
    Proofs mode = Proofs::both;
    std::size_t clients = 0;
    std::size_t inFlight = 0;
    ClientLimits limits = {};
};

/** What has become of them. */
struct Outcome
{
    std::size_t withTokens = 0;
    std::size_t stillKnown = 0;
    std::map<std::string, std::size_t> refusals = {};
    Seconds time = {};
    std::size_t heap = 0;
};

[[nodiscard]] std::string refusalsIn(const Outcome& outcome)
{
    std::ostringstream text;
    for (const auto& [name, count] : outcome.refusals)
    {
        text << (text.str().empty() ? "" : ", ") << name << ": " << count;
    }
    return text.str().empty() ? "none" : text.str();
}

/** The clients of one controller, each of which registers first and proves itself later. */
class Clients
{
public:
    Clients(const Site& place, const Crowd& coming, Controller& asked)
        : site{place}, crowd{coming}, controller{asked}, proofs(coming.clients), ids(coming.clients)
    {
    }

    void comeAll()
    {
        for (std::size_t i = 0; i < crowd.clients + crowd.inFlight; ++i)
        {
            if (i >= crowd.inFlight)
            {
                proveOne(i - crowd.inFlight);
            }
            if (i < crowd.clients)
            {
                registerOne(i);
            }
        }
        outcome.stillKnown = static_cast<std::size_t>(std::ranges::count_if(
            ids, [&](const std::string& id) { return controller.isKnown(id); }));
    }
    [[nodiscard]] const Outcome& result() const
    {
        return outcome;
    }

private:
    void registerOne(std::size_t place)
    {
        const Device device =
            site.factory().device("client-" + std::to_string(place), crowd.mode == Proofs::both);
        const std::string request = bench::registrationOf(device);
        const Text answer =
            timed(outcome.time, [&] { return needed(controller.registered(request)); });
        const Client client = bench::clientIn(answer);
        proofs[place] = bench::proofOf(client, device);
        ids[place] = client.id;
    }
    void proveOne(std::size_t place)
    {
        const std::string proof = std::exchange(proofs[place], {});
        const auto answer = timed(outcome.time, [&] { return controller.given(proof); });
        if (answer)
        {
            ++outcome.withTokens;
        }
        else
        {
            ++outcome.refusals[std::string{answer.error().name()}];
        }
    }

    const Site& site;
    const Crowd& crowd;
    Controller& controller;
    std::vector<std::string> proofs;
    std::vector<std::string> ids;
    Outcome outcome;
};

[[nodiscard]] Outcome play(const Site& site, const Crowd& crowd)
{
    Controller controller{site, crowd.mode, crowd.limits};
    const std::size_t atFirst = heapInUse();
    Outcome outcome;
    {
        Clients clients{site, crowd, controller};
        clients.comeAll();
        outcome = clients.result();
    }
    outcome.heap = heapInUse() - atFirst;
    return outcome;
}

void measureCrowds(const std::vector<Crowd>& crowds)
{
    const Site site;
    static_cast<void>(play(site, {.clients = 1}));
    Table table{"mode",        "clients",          "in flight",      "pending",        "proven",
                "with tokens", "known in the end", "controller, µs", "KiB in the end", "refusals"};
    for (const Crowd& crowd : crowds)
    {
        const Outcome outcome = play(site, crowd);
        table.row(static_cast<unsigned int>(crowd.mode), crowd.clients, crowd.inFlight,
                  crowd.limits.pending, crowd.limits.proven, outcome.withTokens, outcome.stillKnown,
                  perOne(Microseconds{outcome.time}.count(), crowd.clients), outcome.heap / 1024,
                  refusalsIn(outcome));
    }
}

// ------------------------------------------------------------------------------- one journey's steps --

struct Step
{
    const char* side;
    const char* what;
    std::function<void()> work;
};

/** A journey that is under way: what one step gives, the next one takes. */
class Journey
{
public:
    Journey(const Site& site, Controller& asked, Proofs mode)
        : device{site.factory().device("client-1", mode == Proofs::both)}, controller{asked}
    {
    }

    [[nodiscard]] std::vector<Step> steps()
    {
        return {
            {"client", "registration, written",
             [this] {
                 sent = bench::registrationOf(device);
             }},
            {"controller", "registration, answered",
             [this] {
                 answer = needed(controller.registered(sent));
             }},
            {"client", "proof, written",
             [this] {
                 client = bench::clientIn(answer);
                 sent = bench::proofOf(*client, device);
             }},
            {"controller", "proof, answered with tokens",
             [this] {
                 answer = needed(controller.given(sent));
             }},
            {"client", "tokens, read",
             [this] {
                 tokens = bench::tokensIn(answer);
             }},
            {"controller", "introspection, first",
             [this] {
                 answer = needed(controller.described(tokens.access));
             }},
            {"controller", "introspection, again",
             [this] {
                 answer = needed(controller.described(tokens.access));
             }},
            {"client", "refresh, written",
             [this] {
                 sent = bench::requestOf(*client, {.refreshToken = tokens.refresh});
             }},
            {"controller", "refresh, answered with tokens",
             [this] {
                 answer = needed(controller.given(sent));
                 tokens = bench::tokensIn(answer);
             }},
            {"controller", "token validated, first",
             [this] {
                 static_cast<void>(needed(controller.validated(tokens.access)));
             }},
            {"controller", "token validated, again",
             [this] {
                 static_cast<void>(needed(controller.validated(tokens.access)));
             }},
        };
    }

private:
    Device device;
    Controller& controller;
    std::string sent;
    Text answer;
    std::optional<Client> client;
    Tokens tokens;
};

void measureSteps(Proofs mode, std::size_t rounds)
{
    const Site site;
    Controller controller{site, mode, {}};
    Journey journey{site, controller, mode};
    const std::vector<Step> steps = journey.steps();
    std::vector<std::vector<double>> times(steps.size());
    for (std::size_t round = 0; round < rounds; ++round)
    {
        for (std::size_t i = 0; i < steps.size(); ++i)
        {
            const Seconds begin = threadTime();
            measured(steps[i].work);
            times[i].push_back(Microseconds{threadTime() - begin}.count());
        }
    }
    Table table{"mode", "side", "step", "median, µs"};
    for (std::size_t i = 0; i < steps.size(); ++i)
    {
        std::ranges::sort(times[i]);
        table.row(static_cast<unsigned int>(mode), steps[i].side, steps[i].what,
                  times[i][rounds / 2]);
    }
}

// ------------------------------------------------------------------------------------------- main --

[[nodiscard]] Proofs modeIn(const std::string& text)
{
    if (text != "2" && text != "3")
    {
        throw std::runtime_error{"the mode is 2 or 3, and not " + text};
    }
    return text == "2" ? Proofs::oneTimePassword : Proofs::both;
}

/** The tables of docs/capacity.md. */
void measureAll()
{
    for (const Proofs mode : {Proofs::oneTimePassword, Proofs::both})
    {
        measureFleets(mode, 1, {1000});
        measureFleets(mode, 2, {10, 100, 1000, 10000});
    }
    std::vector<Crowd> crowds;
    for (const std::size_t inFlight : {1U, 128U, 129U, 10000U})
    {
        crowds.push_back({Proofs::oneTimePassword, 10000, inFlight, {}});
    }
    for (const std::size_t clients : {10U, 100U, 1000U, 4000U})
    {
        const ClientLimits limits{.pending = clients, .proven = clients};
        crowds.push_back({Proofs::oneTimePassword, clients, 1, limits});
    }
    measureCrowds(crowds);
    measureSteps(Proofs::oneTimePassword, 201);
    measureSteps(Proofs::both, 201);
}

void run(std::span<const std::string> words)
{
    std::vector<std::size_t> numbers;
    for (const std::string& word : words.subspan(std::min<std::size_t>(words.size(), 2)))
    {
        numbers.push_back(std::stoul(word));
    }
    if (words.empty())
    {
        measureAll();
    }
    else if (words[0] == "fleet" && numbers.size() > 1)
    {
        measureFleets(modeIn(words[1]), static_cast<int>(numbers[0]),
                      {numbers.begin() + 1, numbers.end()});
    }
    else if (words[0] == "one" && numbers.size() == 4)
    {
        measureCrowds({{modeIn(words[1]),
                        numbers[0],
                        numbers[1],
                        {.pending = numbers[2], .proven = numbers[3]}}});
    }
    else if (words[0] == "steps" && numbers.size() == 1)
    {
        measureSteps(modeIn(words[1]), numbers[0]);
    }
    else
    {
        throw std::runtime_error{"usage: bench-fleet [fleet MODE THREADS CONTROLLERS... | "
                                 "one MODE CLIENTS IN_FLIGHT PENDING PROVEN | steps MODE ROUNDS]"};
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        const std::vector<std::string> words{argv + 1, argv + argc};
        run(words);
        return EXIT_SUCCESS;
    }
    catch (const std::exception& error)
    {
        std::cerr << "bench-fleet: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
