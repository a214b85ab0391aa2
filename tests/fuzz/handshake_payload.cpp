// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A handshake message. */
namespace
{

constexpr auto nameRules =
    std::to_array<std::string_view>({"json.syntax", "json.nesting", "json.root"});
constexpr auto messageRules = std::to_array<std::string_view>(
    {"json.syntax", "json.nesting", "json.root", "document.parameter", "document.empty"});

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text = fuzz::wholeText(data, size);
    char** names = nullptr;
    const int parsed = fuzz::judged(nameRules, [&] {
        return getKeyNames(text.c_str(), static_cast<unsigned int>(text.size()), &names);
    });
    const support::StringArray nameOwner{names};
    fuzz::require((parsed == 1) == (names != nullptr), "names are handed out on success");

    const support::PayloadPtr message{
        fuzz::judged(messageRules, [&] { return parse_handshake_payload(text.c_str()); })};
    if (!message)
    {
        return 0;
    }
    fuzz::require(names != nullptr && *names != nullptr, "what parses has names");
    const support::HeapText written{write_handshake_payload(message.get())};
    fuzz::require(written != nullptr, "what parses can be written");
    const support::PayloadPtr again{
        fuzz::judged(messageRules, [&] { return parse_handshake_payload(written.get()); })};
    if (!again)
    {
        fuzz::require(fuzz::same(written.get(), "{}"), "what is written parses");
        return 0;
    }
    fuzz::requireRoundTrip<free_handshake_payload>(
        written.get(), messageRules, parse_handshake_payload, write_handshake_payload);
    const support::HeapText rewritten{write_handshake_payload(again.get())};
    fuzz::require(!fuzz::writable(text) || fuzz::same(written.get(), rewritten.get()),
                  "what is written parses to the same");

    const support::PayloadPtr copy{set_handshake_payload(again.get())};
    fuzz::require(copy != nullptr, "what is written and read can be copied");
    const support::HeapText copied{write_handshake_payload(copy.get())};
    fuzz::require(fuzz::same(rewritten.get(), copied.get()), "a copy is the same");
    return 0;
}
