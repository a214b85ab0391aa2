// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A whole token as it comes in, before anybody knows whose it is. */
namespace
{

constexpr auto partRules = std::to_array<std::string_view>(
    {"token.parts", "base64.malformed", "base64.length", "json.syntax", "json.nesting", "json.root",
     "token.member", "token.scope"});
constexpr auto tokenRules = std::to_array<std::string_view>(
    {"token.parts", "base64.malformed", "base64.length", "json.syntax", "json.nesting", "json.root",
     "token.member", "token.scope", "token.not-yet-valid", "token.expired", "token.signature"});

/** The document that a part of a token encodes. */
std::string decoded(const std::string& part)
{
    char* text = nullptr;
    int length = 0;
    fuzz::require(base64URIdecode(part.c_str(), &text, &length) == 1,
                  "a part that reads is Base64url");
    const support::HeapText owner{text};
    return {text, static_cast<std::size_t>(length)};
}

/** @p value is the string @p name of @p document, or null where it has none. Only a document
 *  without zero bytes can be read as a text. */
void requireMember(const std::string& document, const char* name, const char* value)
{
    char* member = nullptr;
    get_value_char(document.c_str(), name, &member);
    const support::HeapText owner{member};
    fuzz::require(document.find('\0') != std::string::npos || fuzz::same(value, member), name);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string token = fuzz::wholeText(data, size);
    const std::size_t firstDot = token.find('.');
    const std::size_t secondDot =
        firstDot == std::string::npos ? firstDot : token.find('.', firstDot + 1);

    JWTHeader* header = nullptr;
    if (fuzz::judged(partRules, [&] { return get_jwt_header(token.c_str(), &header); }) == 1)
    {
        const fuzz::Header owner{header};
        fuzz::require(secondDot != std::string::npos, "a token has two dots");
        const std::string text = decoded(token.substr(0, firstDot));
        requireMember(text, "alg", header->alg);
        requireMember(text, "typ", header->typ);
        requireMember(text, "kid", header->kid);
    }
    JWTPayload* payload = nullptr;
    if (fuzz::judged(partRules, [&] { return get_jwt_payload(token.c_str(), &payload); }) == 1)
    {
        const fuzz::Payload owner{payload};
        fuzz::require(secondDot != std::string::npos, "a token has two dots");
        const std::string text = decoded(token.substr(firstDot + 1, secondDot - firstDot - 1));
        requireMember(text, "sub", payload->sub);
        requireMember(text, "jti", payload->jti);
        const unsigned int rights =
            get_scope_privileges(payload) | get_xidp_privileges(payload, nullptr);
        fuzz::require(rights <= 0x1ff, "there are nine privileges");
    }

    const fuzz::PrivateKey& key = fuzz::peer().key;
    JWTHeader* ownHeader = nullptr;
    JWTPayload* ownPayload = nullptr;
    const int result = fuzz::judged(tokenRules, [&] {
        return validateJWT(token.c_str(), key.data(), key.length(), &ownHeader, &ownPayload);
    });
    const fuzz::Header headerOwner{ownHeader};
    const fuzz::Payload payloadOwner{ownPayload};
    fuzz::require(result != 1, "a wrong key never verifies");
    return 0;
}
