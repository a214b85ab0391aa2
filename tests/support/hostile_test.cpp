// SPDX-License-Identifier: Apache-2.0
#include "support/hostile.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <json/value.h>

using namespace support;

TEST(HostileTexts, AreNoObjects)
{
    for (const auto& [name, text] : hostileTexts())
    {
        SCOPED_TRACE(name);
        Json::Value document;
        EXPECT_REFUSED(hostileRule(name), loadJsonDoc(text.c_str(), document));
        EXPECT_EQ(text.find('\0'), std::string::npos);
    }
}

TEST(OddObjects, AreObjects)
{
    for (const auto& [name, text] : oddObjects())
    {
        SCOPED_TRACE(name);
        Json::Value document;
        EXPECT_TRUE(loadJsonDoc(text.c_str(), document));
        EXPECT_EQ(text.find('\0'), std::string::npos);
    }
}

TEST(HostileTexts, NestingIsAcceptedOrNotByItsDepthAlone)
{
    Json::Value document;
    EXPECT_TRUE(loadJsonDoc(nestedMember("a", 255).c_str(), document));
    EXPECT_REFUSED("json.nesting", loadJsonDoc(nestedMember("a", 256).c_str(), document));
}

TEST(JsonValuesOfEveryType, CanEachBeAMember)
{
    for (const std::string& value : jsonValuesOfEveryType())
    {
        SCOPED_TRACE(value);
        Json::Value document;
        EXPECT_TRUE(loadJsonDoc(("{\"a\":" + value + "}").c_str(), document));
    }
}
