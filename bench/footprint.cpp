// SPDX-License-Identifier: Apache-2.0
//
// The deepest stack and the highest heap of each exported function, everything that it calls
// included: for ordinary arguments, for the largest and for hostile ones. Writes one line for each
// kind of arguments and function: the kind, the function, the bytes of stack and those of heap.
#include "allocator.hpp"
#include "concurrency/calls.hpp"
#include "concurrency/deep.hpp"
#include "concurrency/device.hpp"
#include "support/hostile.hpp"
#include "support/painted_stack.hpp"

#include <openssl/err.h>

#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

using namespace calls;

namespace
{

void measure(const char* kind, const std::string& function, const std::function<void()>& body)
{
    bench::Heap& heap = bench::heapOfProcess();
    long before = 0;
    const std::size_t stack = support::stackOf([&] {
        ERR_clear_error(); // for what libcrypto keeps for each thread
        before = heap.bytes;
        heap.highest = before;
        body();
    });
    std::cout << kind << ' ' << function << ' ' << stack << ' ' << heap.highest - before << '\n';
}

void measureOrdinary(Inputs& inputs)
{
    for (const Call& call : allCalls())
    {
        call.run(inputs); // for what is made at a first call
        for (const std::string& function : call.functions)
        {
            measure("ordinary", function.substr(0, function.find_first_of("([")),
                    [&] { call.run(inputs); });
        }
    }
}

/** A text of a MiB: many members, or one long one. */
std::vector<std::string> largeTexts()
{
    constexpr std::size_t size = std::size_t{1024} * 1024;
    std::string members = R"({"xidp":"a")";
    for (std::size_t i = 0; members.size() < size; ++i)
    {
        members += ",\"name" + std::to_string(i) + R"(":["value",1.5])";
    }
    return {members + "}", R"({"xidp":")" + std::string(size, 'a') + "\"}"};
}

void measureLargest(Device& device, Inputs& inputs)
{
    for (const TextReader& reader : readers(inputs))
    {
        for (const std::string& text : largeTexts())
        {
            measure("largest", reader.name, [&] { reader.read(text); });
        }
    }
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
    measure("largest", "chainVerify", [&] { static_cast<void>(chainVerify(record.data())); });
    const HeapText key = largestRsaKey();
    std::vector<const char*> trusted{key.get(), nullptr};
    const std::string token = largestRsaToken("PS512");
    measure("largest", "validateJWT_Delegated", [&] {
        JWTHeader* header = nullptr;
        JWTPayload* payload = nullptr;
        int verified = 0;
        validateJWT_Delegated(token.c_str(), trusted.data(), 0, &header, &payload, 0, nullptr,
                              nullptr, &verified);
        const HeaderPtr headerOwner{header};
        const TokenPtr payloadOwner{payload};
    });
}

void measureHostile(Inputs& inputs)
{
    // The innermost value is a level too, and one is the list of get_value_objarray.
    std::vector<std::string> texts;
    for (const int depth : {253, 254, 255, 256, 990})
    {
        texts.push_back(nestedObjects(depth));
        texts.push_back(nestedArrays(depth));
    }
    for (const auto* list : {&support::hostileTexts(), &support::oddObjects()})
    {
        for (const support::HostileText& hostile : *list)
        {
            if (!hostile.text.empty())
            {
                texts.push_back(hostile.text);
            }
        }
    }
    for (const TextReader& reader : readers(inputs))
    {
        for (const std::string& text : texts)
        {
            measure("hostile", reader.name, [&] { reader.read(text); });
        }
    }
}

} // namespace

int main()
{
    try
    {
        Device device;
        Inputs inputs{device.world};
        measureOrdinary(inputs);
        measureLargest(device, inputs);
        measureHostile(inputs);
        return EXIT_SUCCESS;
    }
    catch (const std::exception& error)
    {
        std::cerr << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
