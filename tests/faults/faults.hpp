// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/fake_device.hpp"
#include "support/heap_ledger.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/** Exhaustive fault injection. Each exported function is called with arguments that it accepts.
 *  Then each request to the machine fails once: the first allocation, the second, and so on, and
 *  each opening and reading of a file or device. After each failure, the function must have kept
 *  its promises. */
namespace faults
{

/** What is to fail during a call. */
struct Fault
{
    enum Source
    {
        allocation,
        opening,
        asking,
        reading
    };

    Source source = allocation;
    /** An errno, or what FailCall has instead; not for allocations. */
    int error = 0;
    support::FailAllocation::Extent extent = support::FailAllocation::onceOnly;
    /** Which one, counted from 1; 0 for none. */
    unsigned int nth = 0;
};

[[nodiscard]] std::string nameOf(const Fault& fault);

/** What a call came to. */
struct Outcome
{
    enum Kind
    {
        got,    /**< it succeeded, and `text` shows the whole result */
        failed, /**< it failed, and left behind what it promises */
        ended,  /**< it ended the process with status 255 */
        wrong,  /**< it did what it must not do, and `text` says what */
    };

    Kind kind = wrong;
    std::string text;
};

[[nodiscard]] Outcome got(std::string text);
[[nodiscard]] Outcome failed();
[[nodiscard]] Outcome wrong(std::string text);

/** Failed, if what stays as it was on failure did so. */
[[nodiscard]] Outcome failedLeaving(bool untouched);

/** One call under observation. */
class Attempt
{
public:
    explicit Attempt(const Fault& toHappen);
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt();

    /** Gives what @p body gives; the fault happens inside it. A row makes this call once, with
     *  everything that it needs ready, and releases what it receives. */
    template <typename Body>
    decltype(auto) call(const Body& body)
    {
        const Arming arming{*this};
        return body();
    }

    /** Whether the fault has happened. */
    [[nodiscard]] bool reached() const
    {
        return happened;
    }

    /** What the call has left behind and must not; empty for nothing. */
    [[nodiscard]] std::string complaint() const;

    /** What errno has become, if it is not what it was. */
    [[nodiscard]] std::optional<int> changedErrno() const
    {
        return errnoAfter;
    }

    /** What it has left behind that may be there for the process, set up once; empty for nothing.
     */
    [[nodiscard]] std::string remains() const;

    /** The rule that the call refused by; empty where it left the last refusal alone. */
    [[nodiscard]] const std::string& rule() const
    {
        return refusedBy;
    }

private:
    class Arming
    {
    public:
        explicit Arming(Attempt& observed);
        Arming(const Arming&) = delete;
        Arming& operator=(const Arming&) = delete;
        ~Arming();

    private:
        Attempt& attempt;
    };

    struct Surroundings;

    void arm();
    void disarm();

    Fault fault;
    support::FakeRandom random;
    std::unique_ptr<Surroundings> before;
    support::HeapLedger ledger;
    std::optional<support::FailAllocation> allocations;
    std::optional<support::FailCall> calls;
    bool happened = false;
    bool descriptorLeft = false;
    std::optional<int> errnoAfter;
    std::string changed;
    std::string refusedBy;
};

/** What a function may do when something fails, beside failing as it says. */
enum Allowance : unsigned int
{
    failsOnly = 0,
    /** It gets by without what failed, with the very same result: OpenSSL often has another way. */
    getsBy = 1,
    /** It ends the process with status 255. Each attempt is made in a child process then. */
    ends = 2,
    /** It does not put errno back. */
    changesErrno = 4,
    /** Its arguments are refused even if nothing fails, but it leaves something anyway. */
    isRefused = 8,
    /** It never says why: it is not a function of the library, or its 0 is an answer. */
    givesNoReason = 16,
};

/** One function with one kind of arguments. */
struct Row
{
    const char* function;
    const char* arguments;
    unsigned int allowed;
    std::function<Outcome(Attempt&)> run;
    /** Fields of a record that are allowed to be null where something failed; a record is shown in
     *  lines "field=value". */
    std::vector<std::string> mayLack = {};
};

/** What came of all attempts of a row. */
struct Report
{
    unsigned int points = 0;
    unsigned int failed = 0;
    unsigned int gotBy = 0;
    unsigned int ended = 0;
    /** What went wrong, one line each. */
    std::vector<std::string> complaints = {};
};

/** Which points are tried. */
struct Thoroughness
{
    /** Each for itself, and also everything from there on. */
    bool fromThereOn = false;
    /** Every one, or every nth. */
    unsigned int step = 1;
    /** Of the many allocations of a large call those behind this one are only sampled. */
    unsigned int everyOneUpTo = ~0U;
};

/** The size of the run, from the environment: FAULTS=all tries everything. FAULTS_STEP=n tries
 *  every nth point of an ordinary run, which fails each point once, and a sample of the largest
 *  calls. */
[[nodiscard]] Thoroughness thoroughness();

/** Makes every attempt of @p row. */
[[nodiscard]] Report report(const Row& row, const Thoroughness& how);

/** Makes a test case of each row. */
class Table
{
public:
    Table(std::initializer_list<Row> added);
};

/** The functions of all tables. */
[[nodiscard]] const std::vector<std::string>& functionsWithRows();

} // namespace faults
