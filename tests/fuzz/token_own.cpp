// SPDX-License-Identifier: Apache-2.0
#include "fuzz/support.hpp"

#include <array>

/** A token of one's own: the header and the payload are the input, the signature is right. */
namespace
{

constexpr auto tokenRules = std::to_array<std::string_view>(
    {"base64.malformed", "base64.length", "json.syntax", "json.nesting", "json.root",
     "token.member", "token.scope", "token.not-yet-valid", "token.expired", "token.signature"});

struct Verdict
{
    int result = 0;
    fuzz::Header header;
    fuzz::Payload payload;
};

Verdict validate(const std::string& token, const fuzz::Party& party)
{
    JWTHeader* header = nullptr;
    JWTPayload* payload = nullptr;
    Verdict verdict;
    verdict.result = fuzz::judged(tokenRules, [&] {
        return validateJWT(token.c_str(), party.key.data(), party.key.length(), &header, &payload);
    });
    verdict.header.reset(header);
    verdict.payload.reset(payload);
    return verdict;
}

/** The token of two records, without its signature, which is another one each time. */
std::string signingInput(const Verdict& verdict, std::string& token)
{
    const support::HeapText text{generateJWT(verdict.header.get(), verdict.payload.get(),
                                             fuzz::device().key.data(),
                                             fuzz::device().key.length())};
    fuzz::require(text != nullptr, "what is valid can be written");
    token = text.get();
    return token.substr(0, token.rfind('.'));
}

void requirePlainReadersAgree(const std::string& token, const Verdict& verdict)
{
    JWTHeader* header = nullptr;
    fuzz::require(get_jwt_header(token.c_str(), &header) == 1, "the header of a valid token reads");
    const fuzz::Header headerOwner{header};
    fuzz::require(fuzz::same(header->typ, verdict.header->typ), "typ");
    fuzz::require(fuzz::same(header->alg, verdict.header->alg), "alg");
    fuzz::require(fuzz::same(header->kid, verdict.header->kid), "kid");

    JWTPayload* payload = nullptr;
    fuzz::require(get_jwt_payload(token.c_str(), &payload) == 1,
                  "the payload of a valid token reads");
    const fuzz::Payload payloadOwner{payload};
    fuzz::require(fuzz::same(payload->sub, verdict.payload->sub), "sub");
    fuzz::require(fuzz::same(payload->iss, verdict.payload->iss), "iss");
    fuzz::require(fuzz::same(payload->jti, verdict.payload->jti), "jti");
    fuzz::require(fuzz::same(payload->iat, verdict.payload->iat), "iat");
    fuzz::require(fuzz::same(payload->nbf, verdict.payload->nbf), "nbf");
    fuzz::require(fuzz::same(payload->exp, verdict.payload->exp), "exp");
    fuzz::require(payload->scopes_count == verdict.payload->scopes_count, "scopes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input{data, size};
    const std::string header = fuzz::nextText(input);
    const std::string payload = fuzz::nextText(input);
    const std::string token = tokens::handmade(header, payload, fuzz::device().key);

    fuzz::require(validate(token, fuzz::peer()).result != 1, "a wrong key never verifies");

    const Verdict verdict = validate(token, fuzz::device());
    if (verdict.result != 1)
    {
        return 0;
    }
    fuzz::require(verdict.header != nullptr && verdict.payload != nullptr,
                  "a valid token has both records");
    requirePlainReadersAgree(token, verdict);

    std::string written;
    const std::string first = signingInput(verdict, written);
    const Verdict again = validate(written, fuzz::device());
    fuzz::require(again.result == 1, "what is valid is valid when it is written again");
    fuzz::require(signingInput(again, written) == first, "what is written reads as the same");
    return 0;
}
