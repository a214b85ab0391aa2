// SPDX-License-Identifier: Apache-2.0
#include "oauth2/jwt/token_records.hpp"

#include "common/clock.hpp"
#include "common/guard.hpp"
#include "common/json.hpp"
#include "common/string_array.hpp"
#include "common/text.hpp"
#include "crypto/base64.hpp"
#include "crypto/openssl.hpp"

#include <bmcoauth/support.h>

#include <strutil.h>

#include <algorithm>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace bmcoauth::internal::jwt
{

namespace
{

/** Stores a copy of @p text, the member @p name of a record, in @p field; false when there is no text
 *  or no memory. */
bool copyInto(char*& field, const char* text, const char* name) noexcept
{
    if (text == nullptr)
    {
        return refuse(BMCOAUTH_RULE_ARGUMENT_NULL).about(name);
    }
    field = heapText(text).release();
    return field != nullptr;
}

/** A zeroed block, or the end of the process: the readers allocate their records fail-fast, under
 *  the tags that common/fail_fast.cpp explains. */
template <typename T>
HeapBlock<T> recordBlock(std::size_t bytes, const char* caller, unsigned int line)
{
    return HeapBlock<T>{static_cast<T*>(o2_ff_calloc(1, bytes, caller, line))};
}

/** A copy of the string @p name of @p claims; null when there is none. */
HeapText textClaim(const Claims& claims, const char* name)
{
    const char* text = claims.text(name);
    return text == nullptr ? nullptr : requireHeapText(text);
}

/** A time is a number in most issuers' tokens and a text in ours; numbers beyond 32 bits are not
 *  taken. */
HeapText timeClaim(Claims& claims, const char* name, unsigned int line)
{
    HeapText text = textClaim(claims, name);
    const Json::Value* const value = text ? nullptr : claims.value(name);
    if (value != nullptr && isUnsigned(*value))
    {
        text.reset(o2_ff_strdup(decimal(value->asUInt()).c_str(), "da_parseJwtPayload", line));
    }
    return text;
}

/** The strings of the array @p name; null when there are none. */
StringArray arrayClaim(Claims& claims, const char* name)
{
    const Json::Value* found = claims.value(name);
    if (found == nullptr || !found->isArray())
    {
        return nullptr;
    }
    StringArray texts = stringsOf(*found);
    return *texts == nullptr ? nullptr : std::move(texts);
}

/** The audiences: one text, or an array of them (RFC 7519, section 4.1.3). */
StringArray audienceClaim(Claims& claims)
{
    const char* single = claims.text("aud");
    if (single == nullptr)
    {
        return arrayClaim(claims, "aud");
    }
    char** audiences = nullptr;
    copyAppendArray(&audiences, single);
    if (audiences == nullptr)
    {
        raiseExhausted(); // GCOVR_EXCL_LINE: a child's counters are lost
    }
    return StringArray{audiences};
}

/** The names in a space-separated list; null when there are none. */
StringArray splitNames(std::string_view list)
{
    StringArray names{splitString(list.data(), " ")};
    if (!names && list.find_first_not_of(' ') != std::string_view::npos)
    {
        raiseExhausted(); // GCOVR_EXCL_LINE: a child's counters are lost
    }
    return names;
}

/** The pointers to the strings of @p array; with room for one if it is empty or not an array. The
 *  first text is a block of its own, the others follow the pointers. */
HeapBlock<char*> firstOwned(const Json::Value& array)
{
    const Json::ArrayIndex count = array.isArray() ? array.size() : 0;
    std::size_t bytesBehind = 0;
    for (Json::ArrayIndex i = 1; i < count; ++i)
    {
        bytesBehind += array[i].asString().size() + 1;
    }
    const std::size_t pointers = std::max<std::size_t>(count, 1);
    // The sum cannot wrap: the tree of the same texts, which is larger, is in memory already.
    HeapBlock<char*> values =
        recordBlock<char*>(pointers * sizeof(char*) + bytesBehind, "da_create_jwt_scopes", 1917);
    if (count != 0)
    {
        *values = requireHeapText(array[0U].asString()).release();
    }
    char* behind = reinterpret_cast<char*>(values.get() + pointers);
    for (Json::ArrayIndex i = 1; i < count; ++i)
    {
        const std::string text = array[i].asString();
        values.get()[i] = behind;
        behind += text.copy(behind, text.size()) + 1;
    }
    return values;
}

ScopesPtr scopesOf(const Json::Value& object)
{
    const std::vector<NamedMember> members = namedMembers(object);
    const std::size_t count = members.size();
    // Without entries it is still an array: the claim was there, and grants nothing.
    HeapBlock<JWTscopes> block = recordBlock<JWTscopes>(
        std::max<std::size_t>(count, 1) * sizeof(JWTscopes), "da_create_jwt_scopes", 1906);
    ScopesPtr scopes{block.release(), {static_cast<int>(count)}};
    JWTscopes* entry = scopes.get();
    for (const auto& [name, values] : members)
    {
        entry->name = requireHeapText(name).release();
        // One, whatever the member holds: what reads these entries looks at the first value only.
        entry->values = firstOwned(values).release();
        entry->count = 1;
        ++entry;
    }
    return scopes;
}

/** Stores what @p read makes of the part @p part of @p token in @p out; @p names are the two arguments'. */
template <typename Record, typename Read>
int readRecord(const char* token, Record** out, const char* names,
               std::string_view TokenParts::*part, Read read)
{
    if (refusesNull(names, token, out))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> int {
        const std::optional<TokenParts> parts = splitToken(token);
        auto record = parts ? read((*parts).*part) : nullptr;
        if (!record)
        {
            return 0;
        }
        *out = record.release();
        return 1;
    });
}

} // namespace

HeaderPtr makeHeader(const char* typ, const char* alg, const char* kid) noexcept
{
    HeaderPtr header{zeroedBlock<JWTHeader>(1).release()};
    if (!header || !copyInto(header->typ, typ, "typ") || !copyInto(header->alg, alg, "alg"))
    {
        return nullptr;
    }
    header->kid = o2_ff_strdup(kid, "create_jwt_header", 266);
    return header;
}

PayloadPtr makePayload(const PayloadTexts& texts, std::uint64_t now)
{
    PayloadPtr payload{zeroedBlock<JWTPayload>(1).release()};
    if (!payload || !copyInto(payload->sub, texts.sub, "sub") ||
        !copyInto(payload->jti, texts.jti, "jti") || !copyInto(payload->iss, texts.iss, "iss") ||
        !copyInto(payload->exp, texts.exp, "exp"))
    {
        return nullptr;
    }
    // Only a token that is issued now is looked at, and only for this very second: an earlier
    // expiry is the caller's wish.
    if (texts.iat == nullptr && secondsOf(texts.exp) == now)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_EXPIRES_NOW).about("exp").saw(texts.exp);
    }
    const bool dated = texts.iat != nullptr && texts.nbf != nullptr;
    const std::string nowText = dated ? std::string{} : decimal(now);
    if (!copyInto(payload->iat, texts.iat != nullptr ? texts.iat : nowText.c_str(), "iat") ||
        !copyInto(payload->nbf, texts.nbf != nullptr ? texts.nbf : nowText.c_str(), "nbf"))
    {
        return nullptr;
    }
    return payload;
}

void giveScopes(JWTPayload& payload, ScopesPtr scopes) noexcept
{
    payload.scopes_count = scopes.get_deleter().count;
    payload.scopes = scopes.release();
}

bmcoauth_token_result refuseExpired(const char* expiry, std::uint64_t now) noexcept
{
    refuse(BMCOAUTH_RULE_TOKEN_EXPIRED).about("exp").saw(expiry).wanted("above", now);
    return BMCOAUTH_TOKEN_EXPIRED;
}

bmcoauth_token_result refuseNotYetValid(const char* notBefore, std::uint64_t now) noexcept
{
    return refuse(BMCOAUTH_RULE_TOKEN_NOT_YET_VALID)
        .about("nbf")
        .saw(notBefore)
        .wanted("at most", now);
}

void throwExhaustedMemory()
{
    if (notedRule() == BMCOAUTH_RULE_MEMORY_EXHAUSTED)
    {
        raiseExhausted();
    }
}

std::optional<TokenParts> splitToken(std::string_view token) noexcept
{
    const std::size_t first = token.find('.');
    const std::size_t second = first == std::string_view::npos ? first : token.find('.', first + 1);
    if (second == std::string_view::npos)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_PARTS);
    }
    return TokenParts{token.substr(0, first), token.substr(first + 1, second - first - 1),
                      token.substr(second + 1), token.substr(0, second)};
}

bool Claims::read(std::string_view part)
{
    std::optional<crypto::DecodedBytes> decoded = crypto::decodeBase64Url(part);
    if (!decoded)
    {
        return false;
    }
    bytes = std::move(*decoded);
    const std::string_view text = bytes.text();
    // A raw zero byte is not JSON, although jsoncpp takes it: a string would end there in a record.
    if (text.find('\0') != std::string_view::npos)
    {
        return refuse(BMCOAUTH_RULE_JSON_SYNTAX).saw("a zero byte");
    }
    count = readPlainMembers(text, members);
    for (const PlainMember& member : std::span{members}.first(count))
    {
        if (member.value.front() == '"')
        {
            // Ends the string in the place of its quotation mark.
            bytes.data.get()[member.value.data() + member.value.size() - text.data() - 1] = 0;
        }
    }
    return count != 0 || parseJsonObject(text, tree);
}

const PlainMember* Claims::find(std::string_view name) const noexcept
{
    for (std::size_t i = count; i != 0; --i)
    {
        if (members[i - 1].name == name)
        {
            return &members[i - 1];
        }
    }
    return nullptr;
}

const char* Claims::text(const char* name) const noexcept
{
    const PlainMember* const found = find(name);
    if (found == nullptr)
    {
        return stringMember(tree, name);
    }
    return found->value.front() == '"' ? found->value.data() + 1 : nullptr;
}

const Json::Value* Claims::value(const char* name)
{
    const PlainMember* const found = find(name);
    if (found == nullptr)
    {
        return member(tree, name);
    }
    if (const char* const string = text(name))
    {
        last = string;
        return &last;
    }
    return readPlainValue(found->value, last) ? &last : nullptr;
}

bool Claims::staysTheSame(const char* name) const noexcept
{
    const PlainMember* const found = find(name);
    return found != nullptr && std::ranges::all_of(found->value, [](char c) {
               return static_cast<unsigned char>(c) < 0x80;
           });
}

HeaderPtr readHeader(std::string_view part)
{
    Claims claims;
    if (!claims.read(part))
    {
        return refused().within("header");
    }
    HeaderPtr header{recordBlock<JWTHeader>(sizeof(JWTHeader), "da_parseJwtHeader", 953).release()};
    header->typ = textClaim(claims, "typ").release();
    header->alg = textClaim(claims, "alg").release();
    if (header->alg == nullptr)
    {
        return refuse(BMCOAUTH_RULE_TOKEN_MEMBER).about("alg");
    }
    header->kid = textClaim(claims, "kid").release();
    return header;
}

PayloadPtr readPayload(std::string_view part)
{
    Claims claims;
    if (!claims.read(part))
    {
        return refused().within("payload");
    }
    PayloadPtr payload{
        recordBlock<JWTPayload>(sizeof(JWTPayload), "da_parseJwtPayload", 812).release()};
    payload->sub = textClaim(claims, "sub").release();
    payload->iss = textClaim(claims, "iss").release();
    payload->jti = textClaim(claims, "jti").release();
    payload->aud = audienceClaim(claims).release();
    payload->act = textClaim(claims, "act").release();
    payload->iat = timeClaim(claims, "iat", 860).release();
    payload->nbf = timeClaim(claims, "nbf", 868).release();
    payload->exp = timeClaim(claims, "exp", 876).release();
    const Json::Value* providers = claims.value("xidp");
    if (providers != nullptr && providers->isObject())
    {
        payload->xidp = heapJsonText(*providers).release();
    }
    payload->ravok_roles = arrayClaim(claims, "ravok_roles").release();
    if (const char* const names = claims.text("scope"))
    {
        payload->scope = splitNames(names).release();
    }
    else if (const Json::Value* const scope = claims.value("scope");
             scope != nullptr && scope->isObject())
    {
        // Through its text, as "xidp": a comment or broken UTF-8 in it counts as it does there.
        try
        {
            giveScopes(*payload, claims.staysTheSame("scope") ? scopesOf(*scope)
                                                              : structuredScopes(jsonText(*scope)));
        }
        catch (const Json::LogicError&)
        {
            return refuse(BMCOAUTH_RULE_TOKEN_SCOPE).about("scope").wanted("texts in its arrays");
        }
    }
    return payload;
}

ScopesPtr structuredScopes(std::string_view text)
{
    Json::Value object;
    return parseJsonObject(text, object) ? scopesOf(object) : nullptr;
}

} // namespace bmcoauth::internal::jwt

using namespace bmcoauth::internal;

extern "C" JWTHeader* create_jwt_header(const char* typ, const char* alg, const char* kid)
{
    return guarded([=] { return jwt::makeHeader(typ, alg, kid).release(); });
}

extern "C" void free_jwt_header(JWTHeader* header)
{
    if (header == nullptr)
    {
        return;
    }
    std::free(header->typ);
    std::free(header->alg);
    std::free(header->kid);
    std::free(header);
}

extern "C" JWTPayload* create_jwt_payload(const char* sub, const char* jti, const char* iss,
                                          const char* iat, const char* nbf, const char* exp,
                                          JWTscopes* scopes, int count)
{
    return guarded([=]() -> JWTPayload* {
        const std::optional<std::uint64_t> now = currentSeconds();
        jwt::PayloadPtr payload =
            now ? jwt::makePayload({sub, jti, iss, iat, nbf, exp}, *now) : nullptr;
        if (payload && scopes != nullptr && count != 0)
        {
            payload->scopes = scopes;
            payload->scopes_count = count;
        }
        return payload.release();
    });
}

extern "C" void free_jwt_scopes(JWTscopes* scopes, int count)
{
    for (int i = 0; scopes != nullptr && i < count; ++i)
    {
        JWTscopes& entry = scopes[i];
        std::free(entry.name);
        entry.name = nullptr;
        for (int j = 0; entry.values != nullptr && j < entry.count; ++j)
        {
            std::free(entry.values[j]);
        }
        std::free(entry.values);
        entry.values = nullptr;
    }
}

extern "C" void free_jwt_payload(JWTPayload* payload)
{
    if (payload == nullptr)
    {
        return;
    }
    for (char* text : {payload->sub, payload->jti, payload->iss, payload->iat, payload->exp,
                       payload->nbf, payload->xidp, payload->act})
    {
        std::free(text);
    }
    freeStrArray(&payload->aud);
    freeStrArray(&payload->ravok_roles);
    freeStrArray(&payload->scope);
    // cppcheck-suppress unreadVariable ; it is there to release them
    const jwt::ScopesPtr scopes{payload->scopes, {payload->scopes_count}};
    std::free(payload);
}

extern "C" int get_jwt_header(const char* token, JWTHeader** header)
{
    return jwt::readRecord(token, header, "token header", &jwt::TokenParts::header,
                           jwt::readHeader);
}

extern "C" int get_jwt_payload(const char* token, JWTPayload** payload)
{
    return jwt::readRecord(token, payload, "token payload", &jwt::TokenParts::payload,
                           jwt::readPayload);
}

void print_jwt_scopes(JWTscopes* /*scopes*/, int /*count*/)
{
}
