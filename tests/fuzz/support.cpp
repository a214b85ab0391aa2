// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include "support/fake_device.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>

// The library's calls end up here: the dynamic linker prefers the program's definitions.
extern "C" std::time_t time(std::time_t* out) noexcept
{
    const auto seconds = static_cast<std::time_t>(fuzz::now);
    if (out != nullptr)
    {
        *out = seconds;
    }
    return seconds;
}

extern "C" int sd_journal_send_with_location(const char* /*file*/, const char* /*line*/,
                                             const char* /*function*/, const char* /*format*/, ...)
{
    return 0;
}

// The texts of the tests ask for it. The fakes of the device are not linked here.
unsigned int support::faultStep()
{
    return 1;
}

namespace fuzz
{

namespace
{

constexpr std::string_view planted = "planted by the fuzzer";

/** Whether @p field ends, and holds printable ASCII alone. */
bool isPrintable(std::span<const char> field)
{
    const auto end = std::ranges::find(field, '\0');
    return end != field.end() &&
           std::all_of(field.begin(), end, [](char c) { return c >= ' ' && c <= '~'; });
}

std::vector<unsigned char> fromHex(std::string_view digits)
{
    std::vector<unsigned char> bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        const char* pair = &digits[2 * i];
        std::from_chars(pair, pair + 2, bytes[i], 16);
    }
    return bytes;
}

} // namespace

void require(bool holds, const char* rule)
{
    if (!holds)
    {
        std::fprintf(stderr, "does not hold: %s\n", rule);
        std::abort();
    }
}

void plantRefusal()
{
    bool value = false;
    // The member that is not there is the name by which it is known again.
    static_cast<void>(get_value_bool("{}", planted.data(), &value));
}

void requireReason(bool succeeded, Rules rules)
{
    bmcoauth_refusal refusal{};
    require(bmcoauth_last_refusal(&refusal, sizeof refusal) == 1, "there is a reason");
    require(isPrintable(refusal.subject) && isPrintable(refusal.saw) && isPrintable(refusal.wanted),
            "a reason is printable and ends");
    const bool isPlanted = planted == static_cast<const char*>(refusal.subject);
    const char* const name = bmcoauth_rule_name(refusal.rule);
    require(name != nullptr, "a rule has a name");
    if (succeeded)
    {
        require(isPlanted, "success leaves the last reason alone");
        return;
    }
    require(!isPlanted, "a failure has a reason");
    if (std::ranges::find(rules, std::string_view{name}) == rules.end())
    {
        std::fprintf(stderr, "%s: %s, saw %s\n", name, refusal.subject, refusal.saw);
        require(false, "a failure has a reason that this call may give");
    }
}

std::string nextText(FuzzedDataProvider& input)
{
    const std::string text = input.ConsumeRandomLengthString();
    return text.substr(0, text.find('\0'));
}

std::string wholeText(const std::uint8_t* data, std::size_t size)
{
    const std::string text{reinterpret_cast<const char*>(data), size};
    return text.substr(0, text.find('\0'));
}

const Party& device()
{
    static const Party party{
        {fromHex("307702010104209132c1309d268176a9644a455f31b89cb5da861793aeab74f3"
                 "9edb97ab0eec47a00a06082a8648ce3d030107a1440342000442afd32139d4b3"
                 "ce5ec09a1ed33dcc385140c4f442fafd3962b2d7a5342d1037fa2957850f8c80"
                 "c57501d368f14b33f6514595e695021e47c3a01a6f8d448266")},
        R"(-----BEGIN PUBLIC KEY-----
MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEQq/TITnUs85ewJoe0z3MOFFAxPRC
+v05YrLXpTQtEDf6KVeFD4yAxXUB02jxSzP2UUWV5pUCHkfDoBpvjUSCZg==
-----END PUBLIC KEY-----
)",
        R"(-----BEGIN CERTIFICATE-----
MIIBejCCASGgAwIBAgIUJ7FYRiTzNMwH/NWPTvc+8Tx9bKAwCgYIKoZIzj0EAwIw
EzERMA8GA1UEAwwIZGV2aWNlLWEwHhcNMjYxMTIwMTIzODU1WhcNNDgxMDE1MTIz
ODU1WjATMREwDwYDVQQDDAhkZXZpY2UtYTBZMBMGByqGSM49AgEGCCqGSM49AwEH
A0IABEKv0yE51LPOXsCaHtM9zDhRQMT0Qvr9OWKy16U0LRA3+ilXhQ+MgMV1AdNo
8Usz9lFFleaVAh5Hw6Aab41EgmajUzBRMB0GA1UdDgQWBBTrnIPBQxwws46gO0gm
SdfIe/ArQDAfBgNVHSMEGDAWgBTrnIPBQxwws46gO0gmSdfIe/ArQDAPBgNVHRMB
Af8EBTADAQH/MAoGCCqGSM49BAMCA0cAMEQCICa8M59eYpcLSdTUyPYhxEZMCn9d
HbjAZDN3BHiT3abfAiACc7yoyIyPbyoM1rsHbtIRd9q4s5eN6hZkbAUCp08ehg==
-----END CERTIFICATE-----
)"};
    return party;
}

const Party& peer()
{
    static const Party party{
        {fromHex("307702010104203e06dcec3ccb5e35e42b1ba22aff3578a587a02f5d89230fab"
                 "de7490031cc0c4a00a06082a8648ce3d030107a144034200043fa12fc32b4010"
                 "1a7c9bfe115029468c5764e65dd19c288983a67e7fd51cabf649c38c6324e085"
                 "a7f819a5efab49ed5920c04ca4051de0431a2ee74488f6ae2c")},
        R"(-----BEGIN PUBLIC KEY-----
MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEP6EvwytAEBp8m/4RUClGjFdk5l3R
nCiJg6Z+f9Ucq/ZJw4xjJOCFp/gZpe+rSe1ZIMBMpAUd4EMaLudEiPauLA==
-----END PUBLIC KEY-----
)",
        R"(-----BEGIN CERTIFICATE-----
MIIBfDCCASGgAwIBAgIUPBO0fi1xoaeE2w8T6nHaP0jCIvowCgYIKoZIzj0EAwIw
EzERMA8GA1UEAwwIZGV2aWNlLWIwHhcNMjYxMTIwMTIzODU1WhcNNDgxMDE1MTIz
ODU1WjATMREwDwYDVQQDDAhkZXZpY2UtYjBZMBMGByqGSM49AgEGCCqGSM49AwEH
A0IABD+hL8MrQBAafJv+EVApRoxXZOZd0ZwoiYOmfn/VHKv2ScOMYyTghaf4GaXv
q0ntWSDATKQFHeBDGi7nRIj2riyjUzBRMB0GA1UdDgQWBBQJwIB2LF2+DMjA2iUY
s8XhZb3YizAfBgNVHSMEGDAWgBQJwIB2LF2+DMjA2iUYs8XhZb3YizAPBgNVHRMB
Af8EBTADAQH/MAoGCCqGSM49BAMCA0kAMEYCIQCqrE7EY/oMdhbaAQ2+Ux/9A1c5
GOuRLPsE0SWRwKNZiwIhAJCplE9MnCQBXLtUbiVQPnJs4Q4kKyB9lIgaSufxpZ4A
-----END CERTIFICATE-----
)"};
    return party;
}

support::PayloadPtr certificateOf(const Party& party)
{
    support::PayloadPtr key{encode_x509_jwk(party.certificate.c_str(),
                                            static_cast<unsigned int>(party.certificate.size()))};
    require(key != nullptr, "the certificate makes a key");
    return key;
}

bool writable(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; }) &&
           text.find("\\ud") == std::string_view::npos &&
           text.find("\\uD") == std::string_view::npos;
}

bool same(const char* left, const char* right)
{
    return left == right ||
           (left != nullptr && right != nullptr && std::string_view{left} == right);
}

} // namespace fuzz
