// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <cerrno>

using namespace support;

using Texts = std::vector<std::string>;

TEST(SetCharArray, CopiesEachTextInOrder)
{
    TextList source{"b", "", "a"};
    const StringArray copy{set_char_array(source)};
    EXPECT_EQ(texts(copy.get()), (Texts{"b", "", "a"}));
}

TEST(SetCharArray, SharesNothingWithItsSource)
{
    TextList source{"first", "second"};
    const StringArray copy{set_char_array(source)};
    char** const original = source;
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy.get(), original);
    original[0][0] = 'X';
    original[1] = nullptr;
    EXPECT_EQ(texts(copy.get()), (Texts{"first", "second"}));
}

TEST(SetCharArray, GivesNullForNothing)
{
    EXPECT_REFUSED("argument.null", set_char_array(nullptr));
    TextList empty{};
    EXPECT_REFUSED("document.empty", set_char_array(empty));
}

TEST(SetCharArray, StopsAtTheFirstEnd)
{
    char text[] = "kept";
    char beyond[] = "beyond";
    char* array[] = {text, nullptr, beyond, nullptr};
    const StringArray copy{set_char_array(array)};
    EXPECT_EQ(texts(copy.get()), Texts{"kept"});
}

TEST(SetCharArray, GivesNullWhicheverAllocationFails)
{
    TextList source{"one", "two"};
    withEachAllocationFailing([&](FailAllocation& failure) {
        errno = 77;
        const StringArray copy{set_char_array(source)};
        const int left = errno;
        const bool failed = failure.reached();
        EXPECT_EQ(lastRule(), failed ? "memory.exhausted" : "nothing noted");
        EXPECT_EQ(left, 77);
        EXPECT_EQ(texts(copy.get()), failed ? Texts{} : (Texts{"one", "two"}));
    });
}

TEST(FreeCharArray, TakesNull)
{
    free_char_array(nullptr);
}

TEST(FreeCharArray, TakesAnArrayThatHoldsOnlyItsEnd)
{
    // Whether all of it is released is for the leak checker.
    free_char_array(std::calloc(1, sizeof(char*)));
}
