// SPDX-License-Identifier: Apache-2.0
#include "faults.hpp"
#include "support/exports.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>
#include <stdexcept>
#include <string>

using namespace faults;

namespace
{

/** A function that allocates twice, and gives null and nothing else where that fails; with one
 *  mistake, or none. */
enum Mistake
{
    none,
    keepsTheFirst,
    releasesTwice,
    spoilsErrno,
    leavesAnError,
    changesTheLocale,
    leavesADescriptor,
    throws,
    dies,
    touches,
    givesLess,
};

/** What was kept by mistake, for release behind the backs of those who look. */
std::array<void*, 32> keptBlocks;
std::size_t keptCount = 0;

char* twoBlocks(Mistake mistake, bool& outParameter)
{
    const int error = errno;
    void* const first = std::malloc(10);
    char* const second = first == nullptr ? nullptr : strdup("result");
    errno = error;
    if (second != nullptr)
    {
        std::free(first);
        return second;
    }
    if (mistake == keepsTheFirst)
    {
        keptBlocks.at(keptCount++) = first;
        return nullptr;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(first);
    std::free(first);
    switch (mistake)
    {
        case releasesTwice:
            // NOLINTNEXTLINE(performance-no-int-to-ptr): out of the compiler's sight
            std::free(reinterpret_cast<void*>(address));
            break;
        case spoilsErrno:
            errno = ENOMEM;
            break;
        case leavesAnError:
            ERR_raise(ERR_LIB_USER, 1);
            break;
        case changesTheLocale:
            std::setlocale(LC_ALL, "C.UTF-8");
            break;
        case leavesADescriptor:
            static_cast<void>(open("/", O_RDONLY | O_CLOEXEC));
            break;
        case throws:
            throw std::bad_alloc{};
        case dies:
            _exit(-1);
        case touches:
            outParameter = true;
            break;
        case givesLess:
            return static_cast<char*>(std::calloc(1, 1));
        default:
            break;
    }
    return nullptr;
}

Row rowOf(Mistake mistake, unsigned int allowed = failsOnly)
{
    return {"twoBlocks", "none", allowed | givesNoReason, [mistake](Attempt& attempt) {
                bool touched = false;
                char* const text = attempt.call([&] { return twoBlocks(mistake, touched); });
                const std::string shown = text == nullptr ? "" : text;
                std::free(text);
                return text == nullptr ? failedLeaving(!touched) : got(shown);
            }};
}

/** Everything that is wrong with @p row; empty for nothing. */
std::string complaintsAbout(const Row& row)
{
    std::string all;
    for (const std::string& complaint : report(row, {.fromThereOn = true, .step = 1}).complaints)
    {
        all += complaint + "\n";
    }
    return all;
}

void expectComplaint(const Row& row, const std::string& words)
{
    const std::string all = complaintsAbout(row);
    EXPECT_NE(all.find(words), std::string::npos) << words << "\nis not in\n" << all;
}

TEST(Faults, HaveNothingToSayAboutAFunctionThatFailsAsItPromises)
{
    const Report made = report(rowOf(none), {.fromThereOn = true, .step = 1});
    EXPECT_TRUE(made.complaints.empty());
    EXPECT_EQ(made.points, 4U);
    EXPECT_EQ(made.failed, 4U);
    EXPECT_EQ(report(rowOf(none), {}).points, 2U);
    EXPECT_EQ(report(rowOf(none), {.fromThereOn = false, .step = 2}).points, 1U);
}

TEST(Faults, TellWhatIsLeftBehind)
{
    expectComplaint(rowOf(keepsTheFirst), "leaks 1 blocks");
    while (keptCount > 0)
    {
        std::free(keptBlocks.at(--keptCount));
    }
    expectComplaint(rowOf(releasesTwice), "released twice");
    expectComplaint(rowOf(spoilsErrno), "errno became 12");
    expectComplaint(rowOf(leavesAnError), "error queue");
    // Data of locales have the byte order of their machine: under an emulator of another one there
    // is no locale to change to.
    if (std::setlocale(LC_ALL, "C.UTF-8") != nullptr)
    {
        std::setlocale(LC_ALL, "C");
        expectComplaint(rowOf(changesTheLocale), "locale");
        std::setlocale(LC_ALL, "C");
    }
    const int next = dup(STDERR_FILENO);
    expectComplaint(rowOf(leavesADescriptor), "descriptor");
    close_range(static_cast<unsigned int>(next), ~0U, 0);
    expectComplaint(rowOf(touches), "touched");
}

TEST(Faults, TellHowAFunctionEndsThatMayNot)
{
    expectComplaint(rowOf(throws), "an exception came out");
    expectComplaint(rowOf(givesLess), "another result");
    Row getsByOnce{"getsBy", "none", failsOnly, [](Attempt& attempt) {
                       attempt.call([] {
                           const int error = errno;
                           // Volatile, or an optimising compiler would leave the pair out.
                           void* const volatile block = std::malloc(1);
                           std::free(block);
                           errno = error;
                       });
                       return got("");
                   }};
    expectComplaint(getsByOnce, "succeeded all the same");
    getsByOnce.allowed = getsBy;
    EXPECT_EQ(complaintsAbout(getsByOnce), "");
}

TEST(Faults, AllowAnEndOnlyWhereARowSaysSo)
{
    const Report ended = report(rowOf(dies, ends), {});
    EXPECT_TRUE(ended.complaints.empty());
    EXPECT_EQ(ended.ended, 2U);
    Row another{"exits", "none", ends, [](Attempt& attempt) {
                    attempt.call([] {
                        void* const block = std::malloc(1);
                        if (block == nullptr)
                        {
                            _exit(1);
                        }
                        std::free(block);
                    });
                    return got("");
                }};
    expectComplaint(another, "status 1");
}

TEST(Faults, AllowARecordToLackWhatARowNames)
{
    Row row{"record", "none", failsOnly, [](Attempt& attempt) {
                char* const text = attempt.call([] { return strdup("x"); });
                const std::string shown = text == nullptr ? "(null)" : text;
                std::free(text);
                return got("name=n\nlist=" + shown + "\n");
            }};
    expectComplaint(row, "errno");
    row.allowed = changesErrno;
    expectComplaint(row, "another result");
    row.mayLack = {"list"};
    EXPECT_EQ(complaintsAbout(row), "");
}

TEST(Faults, DemandTheReasonOfEachFailureAndNoneOfASuccess)
{
    Row silent = rowOf(none);
    silent.allowed = failsOnly;
    expectComplaint(silent, "failed without a reason");
    const auto refused = [](Attempt& attempt) {
        bool value = false;
        attempt.call([&] { return get_value_bool("{}", "absent", &value); });
        return attempt.reached() ? failed() : got("");
    };
    Row row{"refuses", "none", failsOnly, refused};
    expectComplaint(row, "succeeded, and refused by json.member-missing");
    row.allowed = isRefused;
    EXPECT_EQ(complaintsAbout(row), "");
    row.run = [](Attempt& attempt) {
        attempt.call([] {});
        return got("");
    };
    expectComplaint(row, "refused without a reason");
}

TEST(Faults, FailOpeningAndReadingToo)
{
    const Row row{"reads", "none", givesNoReason, [](Attempt& attempt) {
                      char byte = 0;
                      const bool read = attempt.call([&] {
                          const int error = errno;
                          const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
                          const bool received = device >= 0 && ::read(device, &byte, 1) == 1;
                          if (device >= 0)
                          {
                              close(device);
                          }
                          errno = error;
                          return received;
                      });
                      return read ? got(std::string(1, byte)) : failed();
                  }};
    const Report made = report(row, {});
    EXPECT_TRUE(made.complaints.empty());
    // Three errors of opening, and four ways not to read.
    EXPECT_EQ(made.failed, 7U);
}

TEST(Faults, HaveARowForEachExportedFunction)
{
    const std::set<std::string> exported = support::exportedFunctions();
    const std::set<std::string> covered{functionsWithRows().begin(), functionsWithRows().end()};
    EXPECT_GT(exported.size(), 100U);
    EXPECT_EQ(covered, exported);
}

} // namespace
