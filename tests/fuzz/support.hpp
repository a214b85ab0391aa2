// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/owners.hpp"
#include "support/tokens.hpp"

#include <bmcoauth.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/** What the fuzz targets share. The clock stands still, so that a crash comes back when its file is
 *  run again, and the journal takes nothing. */
namespace fuzz
{

/** Ends the process, which is what the fuzzer calls a crash, unless @p rule holds. */
void require(bool holds, const char* rule);

/** The names of the rules by which a call may refuse. */
using Rules = std::span<const std::string_view>;

/** Makes a refusal of the target's own the last one of this thread. */
void plantRefusal();

/** Ends the process unless a call that failed has left one of @p rules, with texts that are printable
 *  and end, and one that @p succeeded has left the planted refusal. */
void requireReason(bool succeeded, Rules rules);

/** The result of @p call, which refuses by @p rules alone. A failure is null, false or a number other
 *  than 1. */
template <typename Call>
auto judged(Rules rules, const Call& call)
{
    plantRefusal();
    auto result = call();
    if constexpr (requires { result == nullptr; })
    {
        requireReason(result != nullptr, rules);
    }
    else
    {
        requireReason(result == 1, rules);
    }
    return result;
}

/** The next text of a divided input: it ends at a backslash with anything but a second one behind
 *  it, and holds no zero byte. */
[[nodiscard]] std::string nextText(FuzzedDataProvider& input);

/** The whole input as a text. */
[[nodiscard]] std::string wholeText(const std::uint8_t* data, std::size_t size);

/** The time of the clock, which the seeds know. */
constexpr std::uint64_t now = 1'800'000'000;

using tokens::Header;
using tokens::Payload;
using tokens::PrivateKey;

/** Two parties: their keys, and what each shows of its own. */
struct Party
{
    PrivateKey key;
    std::string publicKey;   /**< PEM */
    std::string certificate; /**< PEM, with a common name */
};
[[nodiscard]] const Party& device();
[[nodiscard]] const Party& peer();

/** The certificate key of @p party. */
[[nodiscard]] support::PayloadPtr certificateOf(const Party& party);

/** Whether no character of @p text is replaced when it is written: what is not UTF-8 becomes U+FFFD,
 *  and so may half of a surrogate pair. */
[[nodiscard]] bool writable(std::string_view text);

/** Both null, or equal texts. */
[[nodiscard]] bool same(const char* left, const char* right);

/** A text that parses can be written, and the written text parses to the same. A text that does not
 *  parse is refused by one of @p rules. Replaced characters may change the order of names or make
 *  one name of two, but only at the first writing. */
template <auto Release, typename Record>
void requireRoundTrip(const char* text, Rules rules, Record* (*parse)(const char*),
                      char* (*write)(Record*))
{
    using Owner = std::unique_ptr<Record, support::Releaser<Release>>;
    const Owner record{judged(rules, [&] { return parse(text); })};
    if (!record)
    {
        return;
    }
    const support::HeapText written{write(record.get())};
    require(written != nullptr, "what parses can be written");
    const Owner again{parse(written.get())};
    require(again != nullptr, "what is written parses");
    const support::HeapText rewritten{write(again.get())};
    if (writable(text))
    {
        require(same(written.get(), rewritten.get()), "what is written parses to the same");
        return;
    }
    const Owner third{parse(rewritten.get())};
    require(third != nullptr, "what is written again parses");
    const support::HeapText last{write(third.get())};
    require(same(rewritten.get(), last.get()), "what is written again parses to the same");
}

} // namespace fuzz
