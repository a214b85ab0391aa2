// SPDX-License-Identifier: Apache-2.0
#include "oauth2/oauth-register/handshake_challenge.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/string_array.hpp"
#include "common/text.hpp"
#include "crypto/base64.hpp"
#include "crypto/random.hpp"
#include "oauth2/oauth-register/handshake_proofs.hpp"

#include <bmcoauth/handshake.h>

#include <climits>

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <vector>

using namespace bmcoauth::internal;

namespace bmcoauth::internal::registration
{

namespace
{

/** The types that a client supports, those for one-time passwords before the others. */
struct SupportedTypes
{
    StringArray owner;
    std::span<char*> oneTimePassword;
    bool hasCertificate = false;
};

bool isCertificateType(const char* type)
{
    return certificateType == type;
}

/** Copies @p types and swaps every certificate type with the last other type behind it. Nothing
 *  when there is no type. */
std::optional<SupportedTypes> partition(const char* const* types)
{
    const std::size_t count = countStrings(types);
    if (count == 0)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_TYPES).about("types");
    }
    SupportedTypes result;
    result.owner = copyStringArray(types);
    if (!result.owner)
    {
        return std::nullopt;
    }
    const std::span<char*> all{result.owner.get(), count};
    std::size_t back = count - 1;
    for (std::size_t front = 0; front < back; ++front)
    {
        if (!isCertificateType(all[front]))
        {
            continue;
        }
        while (back > front && isCertificateType(all[back]))
        {
            --back;
        }
        std::swap(all[front], all[back]);
    }
    const auto firstCertificate = std::ranges::find_if(all, isCertificateType);
    result.oneTimePassword =
        all.first(static_cast<std::size_t>(std::distance(all.begin(), firstCertificate)));
    result.hasCertificate = firstCertificate != all.end();
    return result;
}

/** A random number of the size of @p Number, its first byte the most significant; nothing on
 *  failure. */
template <typename Number>
std::optional<Number> randomNumber()
{
    std::array<unsigned char, sizeof(Number)> bytes{};
    if (!crypto::fillRandom(bytes))
    {
        return std::nullopt;
    }
    Number number = 0;
    for (const unsigned char byte : bytes)
    {
        number = static_cast<Number>(number << 8U) | byte;
    }
    return number;
}

/** A random number below 2^63, so that its decimal text has at most 19 digits; nothing on
 *  failure. */
std::optional<std::uint64_t> randomCounter()
{
    std::optional<std::uint64_t> number = randomNumber<std::uint64_t>();
    if (number)
    {
        *number &= UINT64_MAX >> 1U;
    }
    return number;
}

/** The counter @p name; nothing if 0 was drawn. */
std::optional<std::uint64_t> drawCounter(const char* name)
{
    const std::optional<std::uint64_t> number = randomCounter();
    if (number == 0)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_COUNTERS).about(name).saw("0");
    }
    return number;
}

} // namespace

std::optional<Counters> drawCounters()
{
    const std::optional<std::uint64_t> selector = drawCounter("M");
    const std::optional<std::uint64_t> movingFactor = drawCounter("C");
    if (!selector || !movingFactor)
    {
        return std::nullopt;
    }
    return Counters{*selector, *movingFactor};
}

void putCounters(ParameterListWriter& writer, const Counters& counters)
{
    writer.put("M", decimal(counters.selector));
    writer.put("C", decimal(counters.movingFactor));
}

namespace
{

enum Mode : unsigned int
{
    certificateOnly = 1,
    passwordOnly = 2,
    passwordAndCertificate = 3,
};

/** The types that a draw picks one of; empty, and refused, where there is none. */
std::span<char* const> passwordTypes(const SupportedTypes& supported)
{
    if (supported.oneTimePassword.empty())
    {
        refuse(BMCOAUTH_RULE_HANDSHAKE_TYPES).about("types").wanted("a type for passwords");
    }
    return supported.oneTimePassword;
}

/** What a server asks for. */
struct Questions
{
    const char* passwordType = nullptr;
    std::optional<Counters> counters;
    SecretText token; /**< for the certificate proof */
};

bool askPassword(const SupportedTypes& supported, std::uint32_t pick, Questions& asked)
{
    const std::span<char* const> types = passwordTypes(supported);
    if (types.empty())
    {
        return false;
    }
    asked.passwordType = types[pick % types.size()];
    asked.counters = drawCounters();
    return asked.counters.has_value();
}

bool askCertificate(const SupportedTypes& supported, Questions& asked)
{
    constexpr unsigned int tokenBytes = 16;
    if (!supported.hasCertificate)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_TYPES).about("types").wanted(certificateType.data());
    }
    asked.token = crypto::randomToken(tokenBytes);
    return asked.token != nullptr;
}

ParameterList listOf(const Questions& asked)
{
    ParameterListWriter writer{4};
    if (asked.passwordType != nullptr && asked.token)
    {
        writer.put("T", stringArrayOf({asked.passwordType, certificateType}));
    }
    else
    {
        writer.put("T", asked.token ? certificateType : asked.passwordType);
    }
    if (asked.counters)
    {
        putCounters(writer, *asked.counters);
    }
    if (asked.token)
    {
        writer.put("V", asked.token.get());
    }
    return writer.take();
}

ParameterList serverChallenge(const char* const* types, unsigned int mode)
{
    const std::optional<SupportedTypes> supported = partition(types);
    if (!supported)
    {
        return nullptr;
    }
    if (mode < certificateOnly || mode > passwordAndCertificate)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_RANGE).about("mode").wanted("1, 2 or 3");
    }
    // Always drawn, even if no type is picked with it: the order of the draws stays the same.
    const std::uint32_t pick = randomNumber<std::uint32_t>().value_or(0);
    Questions asked;
    if ((mode != certificateOnly && !askPassword(*supported, pick, asked)) ||
        (mode != passwordOnly && !askCertificate(*supported, asked)))
    {
        return nullptr;
    }
    return listOf(asked);
}

ParameterList clientChallenge(const char* const* types, unsigned int count)
{
    const std::optional<SupportedTypes> supported = partition(types);
    if (!supported)
    {
        return nullptr;
    }
    // A client offers two types at least, or there is nothing to choose from.
    if (countStrings(types) < 2)
    {
        return refuse(BMCOAUTH_RULE_HANDSHAKE_TYPES).about("types").wanted("two types or more");
    }
    const std::span<char* const> choice = passwordTypes(*supported);
    if (choice.empty())
    {
        return nullptr;
    }
    const char* const picked = choice[randomNumber<std::uint32_t>().value_or(0) % choice.size()];
    StringArray values = emptyStringArray(count);
    if (!values)
    {
        return refuse(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    }
    std::generate_n(values.get(), count, [&] { return requireHeapText(picked).release(); });
    ParameterListWriter writer{1};
    writer.put("T", std::move(values));
    return writer.take();
}

/** Stores what @p make gives through @p out; 0 when that is nothing. */
template <typename Make>
int handOver(char** types, HandshakePayload** out, const Make& make)
{
    if (refusesNull("types challenge", types, out))
    {
        return refused();
    }
    return guarded([&] {
        ParameterList list = make();
        if (!list)
        {
            return 0;
        }
        *out = list.release();
        return 1;
    });
}

/** What the exported draws give, which have no other sign of failure than 0. */
template <typename Number>
Number drawn(const std::optional<Number>& number) noexcept
{
    if (!number)
    {
        publishRefusal();
    }
    return number.value_or(0);
}

HeapText keyDocument(std::string_view prefix, unsigned int keys, unsigned int tokens,
                     unsigned int tokenLength)
{
    constexpr std::size_t longestType = 49;
    std::vector<SecretText> kept;
    Json::Value document{Json::objectValue};
    for (unsigned int number = 1; number - 1 < keys; ++number)
    {
        std::string name{prefix};
        name.append(decimal(number)).append(".0");
        if (name.size() > longestType)
        {
            return refuse(BMCOAUTH_RULE_ARGUMENT_LENGTH).about("prefix").saw(name);
        }
        Json::Value& secrets = document[name.c_str()] = Json::Value{Json::arrayValue};
        for (unsigned int i = 0; i < tokens; ++i)
        {
            const SecretText& token = kept.emplace_back(crypto::randomToken(tokenLength));
            if (!token)
            {
                return nullptr;
            }
            crypto::toUrlAlphabet(token.get());
            secrets.append(borrowed(token.get()));
        }
    }
    return heapJsonText(document);
}

} // namespace

} // namespace bmcoauth::internal::registration

using namespace bmcoauth::internal::registration;

extern "C" bool compareSoftwareCertTag(const char* type)
{
    return type != nullptr && isCertificateType(type);
}

extern "C" std::uint64_t genRandHexValue(void)
{
    const ErrnoKeeper keeper;
    return drawn(randomCounter());
}

extern "C" std::uint32_t _do_random(void)
{
    const ErrnoKeeper keeper;
    return drawn(randomNumber<std::uint32_t>());
}

extern "C" int generateServerHandshakeChallenge(char** types, unsigned int mode,
                                                HandshakePayload** challenge)
{
    return handOver(types, challenge, [&] { return serverChallenge(types, mode); });
}

extern "C" int generateClientHandshakeChallenge(char** types, unsigned int count,
                                                HandshakePayload** challenge)
{
    return handOver(types, challenge, [&] { return clientChallenge(types, count); });
}

extern "C" int generateKeyTool(const char* prefix, unsigned int keys, unsigned int tokens,
                               int tokenLength, char** text)
{
    if (refusesNull("prefix text", prefix, text))
    {
        return refused();
    }
    if (tokenLength < 0)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "tokenLength");
    }
    return guarded([=] {
        HeapText document =
            keyDocument(prefix, keys, tokens, static_cast<unsigned int>(tokenLength));
        if (!document)
        {
            return 0;
        }
        *text = document.release();
        return 1;
    });
}
