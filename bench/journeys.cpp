// SPDX-License-Identifier: Apache-2.0
//
// A client of the token service in examples/dbus that measures its journeys: bench-journeys FOLDER
//
// Writes the factory's roots into FOLDER, and the key document that client and service share; prints
// "ready"; and then takes a line of standard input at a time:
//
//   steps ROUNDS BATCH SERVICE BUS   as many journeys in step, with the process numbers of service and bus
//   calls SECONDS THREADS METHOD     whole journeys (METHOD is journey) or calls of Introspect, without a pause
//
// and answers with lines of numbers, a blank one behind the last. journeys.py runs it. A batch does one step
// for all of its clients before the next one, so that the processes' counters, which are read before and after
// a step, are shared by many calls.
#include "journeys.hpp"

#include <systemd/sd-bus.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <numeric>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using bench::Client;
using bench::Device;
using bench::Tokens;
using Clock = std::chrono::steady_clock;

[[nodiscard]] double microseconds(Clock::duration time)
{
    return std::chrono::duration<double, std::micro>{time}.count();
}

[[nodiscard]] double medianOf(std::vector<double> values)
{
    std::ranges::sort(values);
    return values.at(values.size() / 2);
}

// ------------------------------------------------------------------------------------- the bus --

/** A connection to the bus. */
class Peer
{
public:
    Peer()
    {
        sd_bus* raw = nullptr;
        if (sd_bus_open_user(&raw) < 0)
        {
            throw std::runtime_error{"cannot reach the bus"};
        }
        bus.reset(raw);
    }

    /** The text that a method of the token service gives. */
    [[nodiscard]] std::string call(const char* method, const std::string& text) const
    {
        return call("org.example.Tokens1", method, &text);
    }
    /** The same for a method that takes nothing. */
    [[nodiscard]] std::string call(const char* interface, const char* method,
                                   const std::string* text = nullptr) const
    {
        sd_bus_error error{}; // the macro for it is C
        sd_bus_message* answer = nullptr;
        const int result = sd_bus_call_method(
            bus.get(), "org.example.Tokens", "/org/example/Tokens", interface, method, &error,
            &answer, text == nullptr ? "" : "s", text == nullptr ? nullptr : text->c_str());
        const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owned{
            answer, sd_bus_message_unref};
        const std::string reason = error.message == nullptr ? "no reason" : error.message;
        sd_bus_error_free(&error);
        if (result < 0)
        {
            throw std::runtime_error{std::string{method} + ": " + reason};
        }
        const char* given = nullptr;
        return sd_bus_message_read(answer, "s", &given) > 0 ? given : "";
    }

private:
    std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)> bus{nullptr,
                                                                     sd_bus_flush_close_unref};
};

// -------------------------------------------------------------------------------- the processes --

/** What a process has used. */
struct Usage
{
    double processorMicroseconds = 0;
    double switches = 0;
};

/** The switches are those of the main thread, which is the only one while steps are measured. */
[[nodiscard]] Usage usageOf(pid_t process)
{
    clockid_t clock{};
    std::timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
    {
        throw std::runtime_error{"there is no process " + std::to_string(process)};
    }
    Usage usage;
    usage.processorMicroseconds =
        microseconds(std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec});
    std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
    for (std::string name; status >> name;)
    {
        double value = 0;
        if (name.find("ctxt_switches") != std::string::npos && status >> value)
        {
            usage.switches += value;
        }
    }
    return usage;
}

/** The client, the service and the bus. */
using Processes = std::vector<pid_t>;

[[nodiscard]] std::vector<Usage> usageOf(const Processes& processes)
{
    std::vector<Usage> usage;
    for (const pid_t process : processes)
    {
        usage.push_back(usageOf(process));
    }
    return usage;
}

// ------------------------------------------------------------------------------------ the steps --

/** A client on its way. */
struct Traveller
{
    std::string sent;
    std::string answer;
    std::optional<Client> client;
    Tokens tokens;
};

struct Step
{
    const char* name;
    std::function<void(Traveller&)> work;
};

[[nodiscard]] std::vector<Step> stepsOf(const Peer& peer, const Device& device)
{
    return {
        {"ping",
         [&](Traveller& /*one*/) {
             static_cast<void>(peer.call("org.freedesktop.DBus.Peer", "Ping"));
         }},
        {"keys",
         [&](Traveller& /*one*/) {
             static_cast<void>(peer.call("org.example.Tokens1", "Keys"));
         }},
        {"write-registration",
         [&](Traveller& one) {
             one.sent = bench::registrationOf(device);
         }},
        {"register",
         [&](Traveller& one) {
             one.answer = peer.call("Register", one.sent);
         }},
        {"write-proof",
         [&](Traveller& one) {
             one.client = bench::clientIn(one.answer);
             one.sent = bench::proofOf(*one.client, device);
         }},
        {"token",
         [&](Traveller& one) {
             one.answer = peer.call("Issue", one.sent);
         }},
        {"read-tokens",
         [&](Traveller& one) {
             one.tokens = bench::tokensIn(one.answer);
         }},
        {"introspect",
         [&](Traveller& one) {
             one.answer = peer.call("Introspect", one.tokens.access);
         }},
        {"introspect-again",
         [&](Traveller& one) {
             one.answer = peer.call("Introspect", one.tokens.access);
         }},
        {"write-refresh",
         [&](Traveller& one) {
             one.sent = bench::requestOf(*one.client, {.refreshToken = one.tokens.refresh});
         }},
        {"refresh",
         [&](Traveller& one) {
             one.answer = peer.call("Issue", one.sent);
         }},
    };
}

/** What a step takes: the median of all calls, and for each process the median of the rounds. */
class Costs
{
public:
    void doStep(const Step& step, std::vector<Traveller>& travellers, const Processes& processes)
    {
        const std::vector<Usage> before = usageOf(processes);
        for (Traveller& one : travellers)
        {
            const Clock::time_point begin = Clock::now();
            step.work(one);
            calls.push_back(microseconds(Clock::now() - begin));
        }
        const std::vector<Usage> after = usageOf(processes);
        const auto amount = static_cast<double>(travellers.size());
        used.resize(processes.size());
        for (std::size_t i = 0; i < processes.size(); ++i)
        {
            used[i].time.push_back(
                (after[i].processorMicroseconds - before[i].processorMicroseconds) / amount);
            used[i].switches.push_back((after[i].switches - before[i].switches) / amount);
        }
    }
    void print(const char* name) const
    {
        std::cout << name << ' ' << medianOf(calls);
        for (const Rounds& process : used)
        {
            std::cout << ' ' << medianOf(process.time) << ' ' << medianOf(process.switches);
        }
        std::cout << '\n';
    }

private:
    struct Rounds
    {
        std::vector<double> time;
        std::vector<double> switches;
    };
    std::vector<double> calls;
    std::vector<Rounds> used;
};

void measureSteps(const Device& device, std::istream& words)
{
    std::size_t rounds = 0;
    std::size_t batch = 0;
    Processes processes{getpid(), 0, 0};
    words >> rounds >> batch >> processes[1] >> processes[2];
    const Peer peer;
    const std::vector<Step> steps = stepsOf(peer, device);
    std::vector<Costs> costs(steps.size());
    for (std::size_t round = 0; round < rounds; ++round)
    {
        std::vector<Traveller> travellers(batch);
        for (std::size_t i = 0; i < steps.size(); ++i)
        {
            costs[i].doStep(steps[i], travellers, processes);
        }
    }
    for (std::size_t i = 0; i < steps.size(); ++i)
    {
        costs[i].print(steps[i].name);
    }
}

// --------------------------------------------------------------------------------- calls a second --

[[nodiscard]] Tokens journey(const Peer& peer, const Device& device)
{
    const Client client = bench::clientIn(peer.call("Register", bench::registrationOf(device)));
    Tokens tokens = bench::tokensIn(peer.call("Issue", bench::proofOf(client, device)));
    static_cast<void>(peer.call("Introspect", tokens.access));
    return tokens;
}

void measureCalls(const Device& device, std::istream& words)
{
    double seconds = 0;
    std::size_t threads = 0;
    std::string method;
    words >> seconds >> threads >> method;
    const auto length =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>{seconds});
    std::vector<std::vector<double>> times(threads);
    std::vector<std::thread> running;
    running.reserve(threads);
    const Clock::time_point end = Clock::now() + length;
    for (std::vector<double>& own : times)
    {
        running.emplace_back([&] {
            const Peer peer;
            const Tokens tokens = journey(peer, device);
            // One at least, however busy the machine is.
            do
            {
                const Clock::time_point begin = Clock::now();
                static_cast<void>(method == "Introspect" ? peer.call("Introspect", tokens.access)
                                                         : journey(peer, device).access);
                own.push_back(microseconds(Clock::now() - begin));
            } while (Clock::now() < end);
        });
    }
    std::vector<double> all;
    double rate = 0;
    for (std::size_t i = 0; i < threads; ++i)
    {
        running[i].join();
        all.insert(all.end(), times[i].begin(), times[i].end());
        // The last call ends after the others' time is up.
        const double sum = std::accumulate(times[i].begin(), times[i].end(), 0.0);
        rate += 1'000'000 * static_cast<double>(times[i].size()) / sum;
    }
    std::cout << rate << ' ' << medianOf(all) << '\n';
}

void run(const std::string& folder)
{
    const bench::Factory factory{folder};
    const Device device = factory.device("client-1", true);
    std::ofstream{folder + "/client-1.json"} << factory.keyDocument();
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);)
    {
        std::istringstream words{line};
        std::string verb;
        words >> verb;
        verb == "steps" ? measureSteps(device, words) : measureCalls(device, words);
        std::cout << std::endl;
    }
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        run(argc == 2 ? argv[1] : throw std::runtime_error{"usage: bench-journeys FOLDER"});
        return EXIT_SUCCESS;
    }
    catch (const std::exception& error)
    {
        std::cerr << "bench-journeys: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
