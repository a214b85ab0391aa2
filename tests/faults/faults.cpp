// SPDX-License-Identifier: Apache-2.0
#include "faults.hpp"

#include "support/refusals.hpp"

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

namespace faults
{

namespace
{

using support::FailAllocation;
using support::FailCall;

/** The contents of errno and of OpenSSL's error queue before a call, and required after it. */
constexpr int someErrno = EXDEV;
constexpr int someReason = 4711;

constexpr int endedStatus = 255;

/** The number that the next descriptor is given: a larger one where one is left open. */
int nextDescriptor()
{
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

std::string currentLocale()
{
    const char* const name = std::setlocale(LC_ALL, nullptr);
    return name == nullptr ? "" : name;
}

/** Whether OpenSSL's error queue holds what arm left there, and nothing else. If memory stays
 *  exhausted, each step that OpenSSL tries adds an error, and its 16 places do not suffice: then
 *  the queue may be empty, but must not hold an error of this call. */
bool errorQueueIsKept(bool staysExhausted)
{
    const unsigned long error = ERR_get_error();
    const bool first = ERR_GET_LIB(error) == ERR_LIB_USER && ERR_GET_REASON(error) == someReason;
    return (first || (staysExhausted && error == 0)) && ERR_get_error() == 0;
}

FailCall::Kind kindOf(Fault::Source source)
{
    switch (source)
    {
        case Fault::opening:
            return FailCall::opening;
        case Fault::asking:
            return FailCall::asking;
        default:
            return FailCall::reading;
    }
}

} // namespace

std::string nameOf(const Fault& fault)
{
    if (fault.nth == 0)
    {
        return "no fault";
    }
    constexpr std::array<const char*, 4> sources{"allocation", "opening", "asking", "reading"};
    std::string name = std::string{sources.at(fault.source)} + " " + std::to_string(fault.nth);
    if (fault.error > 0)
    {
        name += std::string{" "} + strerrorname_np(fault.error);
    }
    else if (fault.error != 0)
    {
        name += fault.error == FailCall::endOfFile ? " end of file" : " one byte less";
    }
    return name + (fault.extent == FailAllocation::onceOnly ? ", once" : ", and all after it");
}

Outcome got(std::string text)
{
    return {Outcome::got, std::move(text)};
}

Outcome failed()
{
    return {Outcome::failed, {}};
}

Outcome wrong(std::string text)
{
    return {Outcome::wrong, std::move(text)};
}

Outcome failedLeaving(bool untouched)
{
    return untouched ? failed() : wrong("failed, and touched what it says it does not");
}

struct Attempt::Surroundings
{
    int descriptor = nextDescriptor();
    std::string locale = currentLocale();
};

// Each random byte is the same, so that results are, even where a draw has failed.
Attempt::Attempt(const Fault& toHappen) : fault{toHappen}, random{"0"}
{
}

Attempt::~Attempt() = default;

Attempt::Arming::Arming(Attempt& observed) : attempt{observed}
{
    attempt.arm();
}

Attempt::Arming::~Arming()
{
    attempt.disarm();
}

void Attempt::arm()
{
    before = std::make_unique<Surroundings>();
    support::plantRefusal();
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, someReason);
    // The generators of this thread too.
    unsigned char drawn = 0;
    RAND_bytes(&drawn, 1);
    RAND_priv_bytes(&drawn, 1);
    ledger.open();
    errno = someErrno;
    if (fault.source == Fault::allocation)
    {
        allocations.emplace(fault.nth, fault.extent);
    }
    else
    {
        calls.emplace(kindOf(fault.source), fault.error, fault.nth, fault.extent);
    }
}

void Attempt::disarm()
{
    const int error = errno;
    happened = allocations ? allocations->reached() : calls->reached();
    ledger.close();
    if (error != someErrno)
    {
        errnoAfter = error;
    }
    if (!errorQueueIsKept(fault.source == Fault::allocation &&
                          fault.extent == FailAllocation::fromThenOn))
    {
        changed += "; OpenSSL's error queue changed";
    }
    descriptorLeft = nextDescriptor() != before->descriptor;
    if (currentLocale() != before->locale)
    {
        changed += "; the locale changed";
    }
    if (!support::isPlantedRefusal())
    {
        refusedBy = support::lastRule();
    }
    ERR_clear_error();
}

std::string Attempt::complaint() const
{
    std::string text = changed;
    if (ledger.releasedTwice() != 0)
    {
        text += "; " + std::to_string(ledger.releasedTwice()) + " blocks were released twice";
    }
    return text;
}

std::string Attempt::remains() const
{
    std::string text;
    if (ledger.kept() > ledger.olderReleased())
    {
        text += "; leaks " + std::to_string(ledger.kept() - ledger.olderReleased()) + " blocks";
    }
    if (descriptorLeft)
    {
        text += "; a descriptor was left open";
    }
    return text;
}

namespace
{

struct Observation
{
    Outcome outcome;
    bool reached = false;
};

/** Whether a failure that @p fault has caused may name @p rule. */
bool explains(std::string_view rule, const Fault& fault)
{
    if (fault.source == Fault::allocation)
    {
        return rule == "memory.exhausted";
    }
    if (fault.source == Fault::asking)
    {
        // Where the device's marker is not found, what it allows is refused as on any other device.
        return !rule.empty();
    }
    return rule.starts_with("file.") || rule.starts_with("random.") ||
           rule == "chain.root-missing" ||
           // Of a key file that is cut short nothing but this can be said.
           (fault.source == Fault::reading && rule == "key.encoding");
}

/** A complaint about the reason that a call gave or left out; empty if it is right. */
std::string wrongReason(const Row& row, const Outcome& outcome, const std::string& rule,
                        const Fault& fault)
{
    const bool refused = (row.allowed & isRefused) != 0;
    if (outcome.kind == Outcome::got && rule.empty() == refused)
    {
        return refused ? "; refused without a reason" : "; succeeded, and refused by " + rule;
    }
    if (outcome.kind == Outcome::failed && (row.allowed & givesNoReason) == 0 &&
        !explains(rule, fault))
    {
        return rule.empty() ? "; failed without a reason" : "; failed by " + rule;
    }
    return {};
}

/** One attempt, and what it left behind. */
std::pair<Observation, std::string> attemptOnce(const Row& row, const Fault& fault)
{
    Attempt attempt{fault};
    Outcome outcome;
    try
    {
        outcome = row.run(attempt);
    }
    catch (const std::exception& error)
    {
        outcome = wrong(std::string{"an exception came out: "} + error.what());
    }
    catch (...)
    {
        outcome = wrong("an exception came out that is none of the standard library's");
    }
    std::string complaint = attempt.complaint();
    if (attempt.changedErrno() && (row.allowed & changesErrno) == 0)
    {
        complaint += "; errno became " + std::to_string(*attempt.changedErrno());
    }
    complaint += wrongReason(row, outcome, attempt.rule(), fault);
    if (!complaint.empty())
    {
        outcome = wrong(outcome.text + complaint);
    }
    return {{std::move(outcome), attempt.reached()}, attempt.remains()};
}

/** What is left behind once, and not again, is set up once for the process: no leak. */
Observation observe(const Row& row, const Fault& fault)
{
    constexpr unsigned int tries = 4;
    for (unsigned int tried = 1;; ++tried)
    {
        auto [observation, remains] = attemptOnce(row, fault);
        if (remains.empty() || observation.outcome.kind == Outcome::wrong)
        {
            return observation;
        }
        if (tried == tries)
        {
            observation.outcome = wrong(remains);
            return observation;
        }
    }
}

void writeAll(int descriptor, std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written <= 0)
        {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

std::string readAll(int descriptor)
{
    std::string text;
    std::array<char, 4096> buffer{};
    for (ssize_t count = 0; (count = read(descriptor, buffer.data(), buffer.size())) > 0;)
    {
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

/** As observe, in a child process: the call may end it. */
Observation observeChild(const Row& row, const Fault& fault)
{
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
    {
        return {wrong("no pipe"), false};
    }
    const pid_t child = fork();
    if (child == 0)
    {
        const Observation observation = observe(row, fault);
        // Two digits, then the text.
        writeAll(ends[1], std::to_string(observation.outcome.kind) +
                              (observation.reached ? "1" : "0") + observation.outcome.text);
        _exit(0);
    }
    close(ends[1]);
    const std::string told = readAll(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0 && told.size() >= 2)
    {
        return {{static_cast<Outcome::Kind>(told[0] - '0'), told.substr(2)}, told[1] == '1'};
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == endedStatus && told.empty())
    {
        return {{Outcome::ended, {}}, true};
    }
    return {wrong(WIFSIGNALED(status)
                      ? "died of signal " + std::to_string(WTERMSIG(status))
                      : "ended the process with status " + std::to_string(WEXITSTATUS(status))),
            true};
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);)
    {
        lines.push_back(line);
    }
    return lines;
}

/** Whether @p text shows the record of @p whole, but for fields that @p row allows it to lack. */
bool isPartOf(const std::string& text, const std::string& whole, const Row& row)
{
    const std::vector<std::string> lines = linesOf(text);
    const std::vector<std::string> wholeLines = linesOf(whole);
    return std::ranges::equal(lines, wholeLines, [&](const auto& line, const auto& wholeLine) {
        return line == wholeLine || std::ranges::any_of(row.mayLack, [&](const auto& field) {
                   return line == field + "=(null)" && wholeLine.starts_with(field + "=");
               });
    });
}

/** What is wrong with an observation where something failed; empty for nothing. */
std::string objection(const Row& row, const Outcome& outcome, const std::string& whole)
{
    switch (outcome.kind)
    {
        case Outcome::failed:
            return {};
        case Outcome::ended:
            return (row.allowed & ends) != 0 ? "" : "ended the process";
        case Outcome::got:
            if (outcome.text != whole)
            {
                return isPartOf(outcome.text, whole, row) ? "" : "another result: " + outcome.text;
            }
            return (row.allowed & getsBy) != 0 ? "" : "succeeded all the same";
        default:
            return outcome.text;
    }
}

struct Family
{
    Fault::Source source;
    int error;
};

/** Every way in which something fails. */
constexpr std::array families{
    Family{Fault::allocation, 0},
    Family{Fault::opening, ENOENT},
    Family{Fault::opening, EACCES},
    Family{Fault::opening, EMFILE},
    Family{Fault::asking, ENOENT},
    Family{Fault::asking, EACCES},
    Family{Fault::reading, EIO},
    Family{Fault::reading, EINTR},
    Family{Fault::reading, support::FailCall::oneByteLess},
    Family{Fault::reading, support::FailCall::endOfFile},
};

/** A number of complaints that says enough. */
constexpr std::size_t enough = 5;

/** The step from one sampled point to the next; prime, so that no pattern falls through. */
constexpr unsigned int sample = 23;

/** Makes the attempts of one family, until one comes to its end without a fault. */
void tryFamily(const Row& row, Fault fault, const Thoroughness& how, const std::string& whole,
               Report& report)
{
    const auto observed = (row.allowed & ends) != 0 ? observeChild : observe;
    for (fault.nth = 1; report.complaints.size() < enough;
         fault.nth += fault.nth < how.everyOneUpTo ? how.step : how.step * sample)
    {
        const auto [outcome, reached] = observed(row, fault);
        std::string complaint;
        if (!reached)
        {
            if (outcome.kind == Outcome::got && outcome.text == whole)
            {
                return;
            }
            complaint = "without the fault another result: " + outcome.text;
        }
        else
        {
            complaint = objection(row, outcome, whole);
            ++report.points;
        }
        if (!complaint.empty())
        {
            report.complaints.push_back(nameOf(fault) + ": " + complaint);
            if (!reached)
            {
                return;
            }
            continue;
        }
        report.failed += outcome.kind == Outcome::failed ? 1 : 0;
        report.gotBy += outcome.kind == Outcome::got ? 1 : 0;
        report.ended += outcome.kind == Outcome::ended ? 1 : 0;
    }
}

/** The world in which every call is made: its clock stands still. What OpenSSL sets up at its first
 *  use is there, the places of its error queue included. */
class World : public testing::Environment
{
public:
    void SetUp() override
    {
        constexpr std::time_t someTime = 1'700'000'000;
        clock = std::make_unique<support::FakeClock>(someTime);
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS | OPENSSL_INIT_ADD_ALL_CIPHERS |
                                OPENSSL_INIT_ADD_ALL_DIGESTS,
                            nullptr);
        constexpr unsigned int places = 16;
        for (unsigned int place = 0; place < places; ++place)
        {
            ERR_raise_data(ERR_LIB_USER, someReason, "%s", "something to keep");
        }
        ERR_clear_error();
    }

    void TearDown() override
    {
        clock.reset();
    }

private:
    std::unique_ptr<support::FakeClock> clock;
};

/** Adds a line to the file that the environment names, for who makes a table of it. */
void tell(const Row& row, const Report& report)
{
    const char* const path = std::getenv("FAULTS_TABLE");
    if (path == nullptr)
    {
        return;
    }
    std::ofstream file{path, std::ios::app};
    file << row.function << '\t' << row.arguments << '\t' << report.points << '\t' << report.failed
         << '\t' << report.gotBy << '\t' << report.ended << '\t' << report.complaints.size()
         << '\n';
}

class RowTest : public testing::Test
{
public:
    explicit RowTest(Row tested) : row{std::move(tested)}
    {
    }

    void TestBody() override
    {
        const Report made = report(row, thoroughness());
        tell(row, made);
        for (const std::string& complaint : made.complaints)
        {
            ADD_FAILURE() << row.function << " (" << row.arguments << "): " << complaint;
        }
    }

private:
    Row row;
};

std::vector<std::string>& mutableFunctions()
{
    static std::vector<std::string> functions;
    return functions;
}

} // namespace

Thoroughness thoroughness()
{
    const char* const all = std::getenv("FAULTS");
    if (all != nullptr && std::string_view{all} == "all")
    {
        return {.fromThereOn = true};
    }
    constexpr unsigned int largeCall = 300;
    return {.fromThereOn = false, .step = support::faultStep(), .everyOneUpTo = largeCall};
}

Report report(const Row& row, const Thoroughness& how)
{
    Report made;
    // The first run is for what is set up at the first use.
    const Observation whole = observe(row, {});
    const Observation again = observe(row, {});
    if (whole.outcome.kind != Outcome::got || again.outcome.kind != Outcome::got ||
        whole.outcome.text != again.outcome.text)
    {
        made.complaints.push_back("without a fault: " + whole.outcome.text +
                                  (whole.outcome.kind == Outcome::failed ? "failed" : "") +
                                  "\nand then: " + again.outcome.text);
        return made;
    }
    for (const auto& [source, error] : families)
    {
        for (const auto extent : {FailAllocation::onceOnly, FailAllocation::fromThenOn})
        {
            if (extent == FailAllocation::onceOnly || how.fromThereOn)
            {
                tryFamily(row, {source, error, extent, 0}, how, whole.outcome.text, made);
            }
        }
    }
    return made;
}

Table::Table(std::initializer_list<Row> added)
{
    static testing::Environment* const world =
        testing::AddGlobalTestEnvironment(std::make_unique<World>().release());
    static_cast<void>(world);
    for (const Row& row : added)
    {
        mutableFunctions().emplace_back(row.function);
        std::string name = row.arguments;
        std::ranges::replace(name, ' ', '_');
        testing::RegisterTest(row.function, name.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              // GoogleTest releases it.
                              [row]() -> testing::Test* { return new RowTest{row}; });
    }
}

const std::vector<std::string>& functionsWithRows()
{
    return mutableFunctions();
}

} // namespace faults
