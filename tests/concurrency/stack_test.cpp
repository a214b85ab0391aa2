// SPDX-License-Identifier: Apache-2.0
#include "calls.hpp"
#include "deep.hpp"
#include "device.hpp"
#include "support/painted_stack.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace calls;

namespace
{

/** What every function gets along with, as bmcoauth.h promises. */
constexpr std::size_t promised = std::size_t{192} * 1024;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isInstrumented = true;
#else
constexpr bool isInstrumented = false;
#endif

/** The largest use of a test's calls, which is also in the report. */
class Stack : public testing::Test
{
protected:
    void SetUp() override
    {
        if (isInstrumented)
        {
            GTEST_SKIP() << "a sanitizer makes every frame larger";
        }
    }

    void measure(const std::string& name, std::function<void()> body)
    {
        const std::size_t used = stack.usedBy(std::move(body));
        EXPECT_LE(used, promised) << name;
        if (used > most)
        {
            most = used;
            RecordProperty("function", name);
            RecordProperty("bytes", std::to_string(most));
        }
    }

private:
    support::PaintedStack stack;
    std::size_t most = 0;
};

} // namespace

TEST_F(Stack, IsEnoughForEveryFunction)
{
    Device device;
    Inputs inputs{device.world};
    for (const Call& call : allCalls())
    {
        measure(call.functions.front(), [&] { call.run(inputs); });
    }
}

TEST_F(Stack, IsEnoughForTheDeepestTexts)
{
    Device device;
    Inputs inputs{device.world};
    const std::vector<TextReader> all = readers(inputs);
    // The innermost value is a level too, and one is the list of get_value_objarray.
    for (const int depth : {252, 253, 254, 255, 256, 990})
    {
        for (const std::string& text : {nestedObjects(depth), nestedArrays(depth)})
        {
            for (const TextReader& reader : all)
            {
                measure(reader.name + (" " + std::to_string(depth)), [&] { reader.read(text); });
            }
        }
    }
}

TEST_F(Stack, IsEnoughForLongChains)
{
    Device device;
    std::vector<std::string> bodies = longChain(device.world.root, 90);
    std::vector<char*> values;
    values.reserve(bodies.size() + 1);
    for (std::string& body : bodies)
    {
        values.push_back(body.data());
    }
    values.push_back(nullptr);
    std::string name = "x5c";
    std::vector<HandshakePayload> record{{name.data(), values.data()}, {}};
    int result = 0;
    measure("chainVerify", [&] { result = chainVerify(record.data()); });
    EXPECT_EQ(result, 1);
}

// As long as a modulus may be; the key need not have made the signature.
TEST_F(Stack, IsEnoughForLargeRsaKeys)
{
    const HeapText key = largestRsaKey();
    ASSERT_NE(key, nullptr);
    std::vector<const char*> trusted{key.get(), nullptr};
    for (const char* algorithm : {"RS512", "PS512"})
    {
        const std::string token = largestRsaToken(algorithm);
        JWTHeader* header = nullptr;
        JWTPayload* payload = nullptr;
        int verified = 0;
        measure(algorithm, [&] {
            validateJWT_Delegated(token.c_str(), trusted.data(), 0, &header, &payload, 0, nullptr,
                                  nullptr, &verified);
        });
        const HeaderPtr headerOwner{header};
        const TokenPtr payloadOwner{payload};
        EXPECT_NE(header, nullptr);
    }
}
