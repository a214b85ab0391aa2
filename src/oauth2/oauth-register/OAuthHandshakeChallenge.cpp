// SPDX-License-Identifier: Apache-2.0
#include "oauth2/oauth-register/OAuthHandshakeChallenge.hpp"

#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/string_array.hpp"
#include "crypto/base64.hpp"
#include "crypto/random.hpp"
#include "oauth2/oauth-register/HandshakeProofs.hpp"

#include <bmcoauth/encoding.h>
#include <bmcoauth/handshake.h>

#include <climits>

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <vector>

using namespace bmcoauth;

namespace bmcoauth::registration
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
    SupportedTypes result;
    result.owner = copyStringArray(types);
    if (!result.owner || count == 0)
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

/** A random number of the size of @p Number, its first byte the most significant; 0 on failure. */
template <typename Number>
Number randomNumber()
{
    std::array<unsigned char, sizeof(Number)> bytes{};
    if (!crypto::fillRandom(bytes))
    {
        return 0;
    }
    Number number = 0;
    for (const unsigned char byte : bytes)
    {
        number = static_cast<Number>(number << 8U) | byte;
    }
    return number;
}

} // namespace

std::optional<Counters> drawCounters()
{
    const std::uint64_t selector = genRandHexValue();
    const std::uint64_t movingFactor = genRandHexValue();
    if (selector == 0 || movingFactor == 0)
    {
        return std::nullopt;
    }
    return Counters{selector, movingFactor};
}

void putCounters(ParameterListWriter& writer, const Counters& counters)
{
    writer.put("M", std::to_string(counters.selector));
    writer.put("C", std::to_string(counters.movingFactor));
}

namespace
{

enum Mode : unsigned int
{
    certificateOnly = 1,
    passwordOnly = 2,
    passwordAndCertificate = 3,
};

ParameterList serverChallenge(const char* const* types, unsigned int mode)
{
    constexpr unsigned int tokenBytes = 16;
    const std::optional<SupportedTypes> supported = partition(types);
    if (!supported || mode < certificateOnly || mode > passwordAndCertificate)
    {
        return nullptr;
    }
    const bool asksPassword = mode != certificateOnly;
    const bool asksCertificate = mode != passwordOnly;
    // Drawn whether a type is picked with it or not, so that the draws stand in one order.
    const std::uint32_t pick = _do_random();
    std::string_view passwordType;
    std::optional<Counters> counters;
    if (asksPassword)
    {
        if (supported->oneTimePassword.empty())
        {
            return nullptr;
        }
        passwordType = supported->oneTimePassword[pick % supported->oneTimePassword.size()];
        counters = drawCounters();
        if (!counters)
        {
            return nullptr;
        }
    }
    SecretText token;
    if (asksCertificate)
    {
        token = supported->hasCertificate ? crypto::randomToken(tokenBytes) : nullptr;
        if (!token)
        {
            return nullptr;
        }
    }

    ParameterListWriter writer{4};
    if (asksPassword && asksCertificate)
    {
        writer.put("T", stringArrayOf({passwordType, certificateType}));
    }
    else
    {
        writer.put("T", asksPassword ? passwordType : certificateType);
    }
    if (counters)
    {
        putCounters(writer, *counters);
    }
    if (token)
    {
        writer.put("V", token.get());
    }
    return writer.take();
}

ParameterList clientChallenge(const char* const* types, unsigned int count)
{
    const std::optional<SupportedTypes> supported = partition(types);
    // A client offers two types at least, or there is nothing to choose from.
    if (!supported || countStrings(types) < 2 || supported->oneTimePassword.empty())
    {
        return nullptr;
    }
    const char* picked =
        supported->oneTimePassword[_do_random() % supported->oneTimePassword.size()];
    StringArray values = emptyStringArray(count);
    if (!values)
    {
        return nullptr;
    }
    std::generate_n(values.get(), count, [&] { return requireHeapText(picked).release(); });
    ParameterListWriter writer{1};
    writer.put("T", std::move(values));
    return writer.take();
}

/** Stores what @p make gives through @p out; 0 when that is nothing. */
template <typename Make>
int handOver(HandshakePayload** out, const Make& make)
{
    return guarded(0, [&] {
        ParameterList list = make();
        if (!list || out == nullptr)
        {
            return 0;
        }
        *out = list.release();
        return 1;
    });
}

HeapText keyDocument(std::string_view prefix, unsigned int keys, unsigned int tokens,
                     unsigned int tokenLength)
{
    constexpr std::size_t longestName = 49;
    std::vector<SecretText> kept;
    Json::Value document{Json::objectValue};
    for (unsigned int number = 1; number - 1 < keys; ++number)
    {
        const std::string name = std::string{prefix} + std::to_string(number) + ".0";
        if (name.size() > longestName)
        {
            return nullptr;
        }
        Json::Value& secrets = document[name] = Json::Value{Json::arrayValue};
        for (unsigned int i = 0; i < tokens; ++i)
        {
            const SecretText& token = kept.emplace_back(crypto::randomToken(tokenLength));
            if (!token || base64URIencode(token.get()) != 1)
            {
                return nullptr;
            }
            secrets.append(borrowed(token.get()));
        }
    }
    return heapJsonText(document);
}

} // namespace

} // namespace bmcoauth::registration

using namespace bmcoauth::registration;

extern "C" bool compareSoftwareCertTag(const char* type)
{
    return type != nullptr && isCertificateType(type);
}

extern "C" std::uint64_t genRandHexValue(void)
{
    const ErrnoKeeper keeper;
    // Below 2^63, so that the decimal text has at most 19 digits.
    return randomNumber<std::uint64_t>() & (UINT64_MAX >> 1U);
}

extern "C" std::uint32_t _do_random(void)
{
    const ErrnoKeeper keeper;
    return randomNumber<std::uint32_t>();
}

extern "C" int generateServerHandshakeChallenge(char** types, unsigned int mode,
                                                HandshakePayload** challenge)
{
    return handOver(challenge, [&] { return serverChallenge(types, mode); });
}

extern "C" int generateClientHandshakeChallenge(char** types, unsigned int count,
                                                HandshakePayload** challenge)
{
    return handOver(challenge, [&] { return clientChallenge(types, count); });
}

extern "C" int generateKeyTool(const char* prefix, unsigned int keys, unsigned int tokens,
                               int tokenLength, char** text)
{
    if (prefix == nullptr || tokenLength < 0 || text == nullptr)
    {
        return 0;
    }
    return guarded(0, [&] {
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
