// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"
#include "support/released_blocks.hpp"

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/** No function may leave a secret in memory that it releases. Each function that takes, makes or
 *  passes on a secret is called, and then everything that it released is searched. */
namespace secrets
{

/** The secret that rows pass to functions, which nothing else holds: 36 characters. */
inline constexpr const char* someSecret = "Zq7-known.to_the.two.of-us.only.81xW";

/** What is looked for after a call. */
using Secrets = std::vector<std::string>;

/** One call under observation. */
class Watch
{
public:
    /** Gives what @p body gives. A row makes this call once. */
    template <typename Body>
    decltype(auto) call(const Body& body)
    {
        blocks.emplace();
        const Stopping stopping{*blocks};
        return body();
    }

    /** Whether something that was released held a part of @p secret: half of it is too much. */
    [[nodiscard]] bool finds(std::string_view secret) const;

    /** Whether the reason of a refusal holds a part of @p secret, as it is or in hexadecimal digits:
     *  a third of it is too much. */
    [[nodiscard]] static bool tells(std::string_view secret);

private:
    class Stopping
    {
    public:
        explicit Stopping(support::ReleasedBlocks& watched) : released{watched}
        {
        }
        Stopping(const Stopping&) = delete;
        Stopping& operator=(const Stopping&) = delete;
        ~Stopping()
        {
            released.stop();
        }

    private:
        support::ReleasedBlocks& released;
    };

    std::optional<support::ReleasedBlocks> blocks;
};

/** One function with one kind of arguments. `run` makes the call, sees that it did what it is for,
 *  and gives the secrets of it: what it was given, and what it has made. */
struct Row
{
    const char* function;
    const char* arguments;
    std::function<Secrets(Watch&)> run;
};

/** Makes a test case of each row. */
class Table
{
public:
    Table(std::initializer_list<Row> added);
};

/** The bytes that a Base64 text of either alphabet stands for. */
[[nodiscard]] std::string fromBase64(std::string text);

/** The private scalar in an ECPrivateKey structure. */
[[nodiscard]] std::string scalarOf(std::string_view der);

/** The string member @p name of the JSON object @p text. */
[[nodiscard]] std::string memberOf(const char* text, const char* name);

} // namespace secrets
