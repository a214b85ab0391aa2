// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/owners.hpp"

#include <gtest/gtest.h>

#include <strutil.h>

#include <string>
#include <vector>

using namespace support;

namespace
{

using Texts = std::vector<std::string>;

Texts pieces(const char* text, const char* separator)
{
    char** array = splitString(text, separator);
    Texts list = texts(array);
    freeStrArray(&array);
    return list;
}

} // namespace

TEST(CopyReplace, StoresACopy)
{
    const char source[] = "text";
    char* text = nullptr;
    copyReplace(&text, source);
    EXPECT_STREQ(text, "text");
    EXPECT_NE(text, source);
    std::free(text);
}

TEST(CopyReplace, ReleasesThePreviousText)
{
    char* text = strdup("old");
    copyReplace(&text, "new");
    EXPECT_STREQ(text, "new");
    copyReplace(&text, nullptr);
    EXPECT_EQ(text, nullptr);
    copyReplace(&text, nullptr);
    EXPECT_EQ(text, nullptr);
}

TEST(CopyReplace, TakesAPartOfThePreviousText)
{
    char* text = strdup("a longer text");
    copyReplace(&text, text + 2);
    EXPECT_STREQ(text, "longer text");
    std::free(text);
}

TEST(CopyReplace, TakesANullAddress)
{
    copyReplace(nullptr, "text");
}

TEST(CopyReplace, StoresNullWhenMemoryRunsOut)
{
    char* text = strdup("old");
    FailAllocation failure{1};
    copyReplace(&text, "new");
    ASSERT_TRUE(failure.reached());
    EXPECT_EQ(text, nullptr);
}

TEST(CopyAppendArray, AppendsInOrder)
{
    char** array = nullptr;
    copyAppendArray(&array, "first");
    copyAppendArray(&array, "");
    copyAppendArray(&array, "third");
    EXPECT_EQ(texts(array), (Texts{"first", "", "third"}));
    freeStrArray(&array);
}

TEST(CopyAppendArray, AppendsToAnArrayThatHoldsOnlyItsEnd)
{
    auto** array = static_cast<char**>(std::calloc(1, sizeof(char*)));
    copyAppendArray(&array, "text");
    EXPECT_EQ(texts(array), Texts{"text"});
    freeStrArray(&array);
}

TEST(CopyAppendArray, AppendsNothingForNull)
{
    copyAppendArray(nullptr, "text");
    char** array = nullptr;
    copyAppendArray(&array, nullptr);
    EXPECT_EQ(array, nullptr);
    copyAppendArray(&array, "text");
    copyAppendArray(&array, nullptr);
    EXPECT_EQ(texts(array), Texts{"text"});
    freeStrArray(&array);
}

TEST(CopyAppendArray, LeavesTheArrayWhenMemoryRunsOut)
{
    char** array = nullptr;
    copyAppendArray(&array, "first");
    bool failed = true;
    for (unsigned int nth = 1; failed; ++nth)
    {
        FailAllocation failure{nth};
        copyAppendArray(&array, "second");
        failed = failure.reached();
        EXPECT_EQ(texts(array), failed ? Texts{"first"} : (Texts{"first", "second"}));
    }
    freeStrArray(&array);
}

TEST(FreeStrArray, StoresNull)
{
    char** array = nullptr;
    copyAppendArray(&array, "text");
    freeStrArray(&array);
    EXPECT_EQ(array, nullptr);
    freeStrArray(&array);
    EXPECT_EQ(array, nullptr);
    freeStrArray(nullptr);
}

TEST(SplitString, GivesThePieces)
{
    EXPECT_EQ(pieces("a b c", " "), (Texts{"a", "b", "c"}));
    EXPECT_EQ(pieces("whole", " "), Texts{"whole"});
    EXPECT_EQ(pieces("a, b,c", ", "), (Texts{"a", "b,c"}));
}

TEST(SplitString, DropsEmptyPieces)
{
    EXPECT_EQ(pieces("a  b", " "), (Texts{"a", "b"}));
    EXPECT_EQ(pieces("  a b  ", " "), (Texts{"a", "b"}));
    EXPECT_EQ(pieces("abababx", "ab"), Texts{"x"});
}

TEST(SplitString, GivesTheNullArrayWithoutPieces)
{
    EXPECT_EQ(splitString("", " "), nullptr);
    EXPECT_EQ(splitString("   ", " "), nullptr);
    EXPECT_EQ(splitString(nullptr, " "), nullptr);
    EXPECT_EQ(splitString("a b", nullptr), nullptr);
}

TEST(SplitString, GivesTheWholeTextForAnEmptySeparator)
{
    EXPECT_EQ(pieces("a b", ""), Texts{"a b"});
}

TEST(SplitString, GivesManyPieces)
{
    std::string text;
    for (int i = 0; i < 100000; ++i)
    {
        text += "piece ";
    }
    EXPECT_EQ(pieces(text.c_str(), " ").size(), 100000U);
}

TEST(SplitString, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([](FailAllocation& failure) {
        char** array = splitString("a b c", " ");
        const bool failed = failure.reached();
        EXPECT_EQ(texts(array), failed ? Texts{} : (Texts{"a", "b", "c"}));
        freeStrArray(&array);
    });
}

TEST(CleanPrint, LeavesTheText)
{
    char text[] = " {\"a\":\t\"\x01\"}\n";
    cleanPrint(text);
    EXPECT_STREQ(text, " {\"a\":\t\"\x01\"}\n");
    cleanPrint(nullptr);
}
