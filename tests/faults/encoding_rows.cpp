// SPDX-License-Identifier: Apache-2.0
#include "show.hpp"

#include <array>

namespace faults
{

namespace
{

/** Decodes what is accepted; the length may be overwritten by a failure. */
Outcome decodes(Attempt& attempt, const char* text)
{
    char* out = untouched<char>();
    int length = 0;
    const int decoded = attempt.call([&] { return base64URIdecode(text, &out, &length); });
    if (decoded == 0)
    {
        return failedLeaving(out == untouched<char>());
    }
    const HeapText bytes{out};
    return got(hexOf(out, static_cast<std::size_t>(length) + 1));
}

const Table rows{
    {"issueRandomBytesInHex", "16 bytes", failsOnly,
     [](Attempt& attempt) {
         std::array<char, 35> out{};
         const int issued = attempt.call([&] { return issueRandomBytesInHex(out.data(), 16); });
         return issued == 1 ? got(out.data()) : failedLeaving(out == std::array<char, 35>{});
     }},
    {"issueRandomToken", "16 bytes", failsOnly,
     [](Attempt& attempt) {
         char* out = untouched<char>();
         attempt.call([&] { issueRandomToken(&out, 16); });
         return stored<HeapText>(out != untouched<char>(), out);
     }},
    {"base64encode", "ten bytes", failsOnly,
     [](Attempt& attempt) {
         char* out = untouched<char>();
         const int encoded = attempt.call([&] { return base64encode("0123456789", &out, 10); });
         return stored<HeapText>(encoded == 1, out);
     }},
    {"base64URIencode", "a text", failsOnly,
     [](Attempt& attempt) {
         std::string text = "+/ab==";
         const int encoded = attempt.call([&] { return base64URIencode(text.data()); });
         return encoded == 1 ? got(show(text.data())) : failed();
     }},
    {"base64URIdecode", "one line", failsOnly,
     [](Attempt& attempt) {
         return decodes(attempt, "AAECAwQFBgcICQ-_");
     }},
    {"base64URIdecode", "two lines with padding", failsOnly,
     [](Attempt& attempt) {
         return decodes(attempt, "AAECAwQFBgcI\nCQ==");
     }},
    {"base64URIdecode", "a long text", failsOnly,
     [](Attempt& attempt) {
         const std::string text(20000, 'A');
         return decodes(attempt, text.c_str());
     }},
};

} // namespace

} // namespace faults
