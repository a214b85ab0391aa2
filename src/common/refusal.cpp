// SPDX-License-Identifier: Apache-2.0
#include "common/refusal.hpp"

#include "common/text.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace bmcoauth::internal
{

namespace
{

// Two, since a call that notes something may still succeed; variables, since the last refusal
// outlives the call.
// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
constinit thread_local bmcoauth_refusal noted{};
constinit thread_local bmcoauth_refusal published{};
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

/** Writes @p text to the field of @p size characters, printable and cut to fit. */
void put(char* field, std::size_t size, std::string_view text) noexcept
{
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr std::string_view cut = "...";
    constexpr std::size_t escaped = 4;
    const std::size_t room = size - 1 - cut.size();
    char* next = field;
    char* const end = field + room;
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte >= 0x20 && byte < 0x7f && c != '\\';
        if (end - next < static_cast<std::ptrdiff_t>(plain ? 1 : escaped))
        {
            next = std::ranges::copy(cut, next).out;
            break;
        }
        if (plain)
        {
            *next++ = c;
            continue;
        }
        *next++ = '\\';
        *next++ = 'x';
        *next++ = digits[byte >> 4U];
        *next++ = digits[byte & 0x0FU];
    }
    *next = '\0';
}

template <std::size_t size>
void put(char (&field)[size], std::string_view text) noexcept
{
    put(static_cast<char*>(field), size, text);
}

// strerror_r is declared in two ways; which one decides how its answer is read.
[[maybe_unused]] const char* errorText(const char* result, const char* /*buffer*/) noexcept
{
    return result;
}
[[maybe_unused]] const char* errorText(int result, const char* buffer) noexcept
{
    return result == 0 ? buffer : "";
}

void note(bmcoauth_rule rule) noexcept
{
    noted = {.rule = rule, .index = -1, .subject = {}, .saw = {}, .wanted = {}};
}

} // namespace

void Refused::noteSubject(const char* subject) noexcept
{
    // Of a path the end tells more. What put does not cut is as long as this.
    std::array<char, sizeof noted.subject - 3> end{"..."};
    const std::size_t length = std::strlen(subject);
    if (length >= end.size() && *subject == '/')
    {
        const std::size_t room = end.size() - sizeof "...";
        std::memcpy(end.data() + 3, subject + (length - room), room);
        subject = end.data();
    }
    put(noted.subject, subject);
}

void Refused::noteOtherRule(bmcoauth_rule rule) noexcept
{
    if (noted.rule != BMCOAUTH_RULE_MEMORY_EXHAUSTED)
    {
        noted.rule = rule;
    }
}

void Refused::noteOuterSubject(const char* subject) noexcept
{
    if (*std::begin(noted.subject) == '\0')
    {
        noteSubject(subject);
    }
}

void Refused::noteIndex(std::size_t index) noexcept
{
    noted.index = static_cast<int>(index);
}

void Refused::noteSeen(const char* text) noexcept
{
    put(noted.saw, text == nullptr ? "" : text);
}

void Refused::noteSeen(std::string_view text) noexcept
{
    put(noted.saw, text);
}

void Refused::noteErrno() noexcept
{
    std::array<char, sizeof noted.saw> buffer{};
    noteSeen(errorText(strerror_r(errno, buffer.data(), buffer.size()), buffer.data()));
}

void Refused::noteWanted(const char* text) noexcept
{
    put(noted.wanted, text);
}

void Refused::noteWanted(const char* words, std::uint64_t number) noexcept
{
    std::array<char, sizeof noted.wanted> buffer{};
    const std::string_view before{words};
    char* const digits = writeDecimal(number, buffer.data() + buffer.size() - 1) - 1;
    *digits = ' ';
    noteWanted(std::ranges::copy_backward(before, digits).out);
}

void noteRule(bmcoauth_rule rule) noexcept
{
    // After a failed allocation the data may be sound. In one place of two, libcrypto reports it as
    // an error of the data. But the allocator always sets errno, which the guards have cleared.
    note(errno == ENOMEM ? BMCOAUTH_RULE_MEMORY_EXHAUSTED : rule);
}

int notedRule() noexcept
{
    return noted.rule;
}

void publishRefusal() noexcept
{
    // A later failure that notes nothing must not be taken for this one.
    if (noted.rule != 0)
    {
        published = noted;
        noted.rule = 0;
    }
}

Refused refuseCall(bmcoauth_rule rule, const char* parameter) noexcept
{
    note(rule);
    Refused{}.about(parameter);
    publishRefusal();
    return {};
}

namespace
{

/** Refuses the first null of @p arguments by its name in @p names. */
[[gnu::cold]] bool refuseFirstNull(const char* names,
                                   std::initializer_list<const void*> arguments) noexcept
{
    std::string_view name = names;
    for (const void* argument : arguments)
    {
        if (argument == nullptr)
        {
            break;
        }
        name.remove_prefix(name.find(' ') + 1);
    }
    note(BMCOAUTH_RULE_ARGUMENT_NULL);
    put(noted.subject, name.substr(0, name.find(' ')));
    publishRefusal();
    return true;
}

} // namespace

bool refusesNull(const char* names, const void* only) noexcept
{
    return only == nullptr && refuseFirstNull(names, {only});
}

bool refusesNull(const char* names, const void* first, const void* second) noexcept
{
    return (first == nullptr || second == nullptr) && refuseFirstNull(names, {first, second});
}

bool refusesNull(const char* names, const void* first, const void* second,
                 const void* third) noexcept
{
    return (first == nullptr || second == nullptr || third == nullptr) &&
           refuseFirstNull(names, {first, second, third});
}

bool refusesNull(const char* names, const void* first, const void* second, const void* third,
                 const void* fourth, const void* fifth) noexcept
{
    return (first == nullptr || second == nullptr || third == nullptr || fourth == nullptr ||
            fifth == nullptr) &&
           refuseFirstNull(names, {first, second, third, fourth, fifth});
}

} // namespace bmcoauth::internal

extern "C" int bmcoauth_last_refusal(bmcoauth_refusal* refusal, std::size_t size)
{
    if (refusal == nullptr || size < sizeof refusal->rule ||
        bmcoauth::internal::published.rule == 0)
    {
        return 0;
    }
    std::memset(static_cast<void*>(refusal), 0, size);
    std::memcpy(static_cast<void*>(refusal), &bmcoauth::internal::published,
                std::min(size, sizeof bmcoauth::internal::published));
    return 1;
}

namespace
{

/** The name of @p rule; null where it is not one. */
constexpr const char* nameOf(bmcoauth_rule rule)
{
    // Without a default, so that the compiler misses no rule.
    switch (rule)
    {
        case BMCOAUTH_RULE_ARGUMENT_NULL:
            return "argument.null";
        case BMCOAUTH_RULE_ARGUMENT_LENGTH:
            return "argument.length";
        case BMCOAUTH_RULE_ARGUMENT_RANGE:
            return "argument.range";
        case BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE:
            return "argument.zero-byte";
        case BMCOAUTH_RULE_ARGUMENT_EMPTY:
            return "argument.empty";
        case BMCOAUTH_RULE_ARGUMENT_CONFLICT:
            return "argument.conflict";
        case BMCOAUTH_RULE_MEMORY_EXHAUSTED:
            return "memory.exhausted";
        case BMCOAUTH_RULE_RANDOM_DEVICE:
            return "random.device";
        case BMCOAUTH_RULE_CLOCK_UNREADABLE:
            return "clock.unreadable";
        case BMCOAUTH_RULE_FILE_UNREADABLE:
            return "file.unreadable";
        case BMCOAUTH_RULE_FILE_UNWRITABLE:
            return "file.unwritable";
        case BMCOAUTH_RULE_JSON_SYNTAX:
            return "json.syntax";
        case BMCOAUTH_RULE_JSON_NESTING:
            return "json.nesting";
        case BMCOAUTH_RULE_JSON_ROOT:
            return "json.root";
        case BMCOAUTH_RULE_JSON_MEMBER_MISSING:
            return "json.member-missing";
        case BMCOAUTH_RULE_JSON_MEMBER_TYPE:
            return "json.member-type";
        case BMCOAUTH_RULE_BASE64_MALFORMED:
            return "base64.malformed";
        case BMCOAUTH_RULE_BASE64_LENGTH:
            return "base64.length";
        case BMCOAUTH_RULE_KEY_ENCODING:
            return "key.encoding";
        case BMCOAUTH_RULE_KEY_KIND:
            return "key.kind";
        case BMCOAUTH_RULE_KEY_CURVE:
            return "key.curve";
        case BMCOAUTH_RULE_KEY_RANGE:
            return "key.range";
        case BMCOAUTH_RULE_KEY_UNSOUND:
            return "key.unsound";
        case BMCOAUTH_RULE_KEY_POINT:
            return "key.point";
        case BMCOAUTH_RULE_JWK_KIND:
            return "jwk.kind";
        case BMCOAUTH_RULE_JWK_NUMBER:
            return "jwk.number";
        case BMCOAUTH_RULE_JWK_POINT:
            return "jwk.point";
        case BMCOAUTH_RULE_JWK_EMPTY:
            return "jwk.empty";
        case BMCOAUTH_RULE_JWK_MEMBER:
            return "jwk.member";
        case BMCOAUTH_RULE_CERTIFICATE_MISSING:
            return "certificate.missing";
        case BMCOAUTH_RULE_CERTIFICATE_ENCODING:
            return "certificate.encoding";
        case BMCOAUTH_RULE_CERTIFICATE_NAME:
            return "certificate.name";
        case BMCOAUTH_RULE_CERTIFICATE_NAME_EMPTY:
            return "certificate.name-empty";
        case BMCOAUTH_RULE_CHAIN_ROOT_MISSING:
            return "chain.root-missing";
        case BMCOAUTH_RULE_CHAIN_UNTRUSTED:
            return "chain.untrusted";
        case BMCOAUTH_RULE_CHAIN_UNSUPPORTED:
            return "chain.unsupported";
        case BMCOAUTH_RULE_CHAIN_ENDS:
            return "chain.ends";
        case BMCOAUTH_RULE_ENVELOPE_IV:
            return "envelope.iv";
        case BMCOAUTH_RULE_ENVELOPE_MAC_MISSING:
            return "envelope.mac-missing";
        case BMCOAUTH_RULE_ENVELOPE_MAC_WRONG:
            return "envelope.mac-wrong";
        case BMCOAUTH_RULE_ENVELOPE_PADDING:
            return "envelope.padding";
        case BMCOAUTH_RULE_ENVELOPE_TEXT:
            return "envelope.text";
        case BMCOAUTH_RULE_ENVELOPE_LENGTH:
            return "envelope.length";
        case BMCOAUTH_RULE_TOKEN_PARTS:
            return "token.parts";
        case BMCOAUTH_RULE_TOKEN_MEMBER:
            return "token.member";
        case BMCOAUTH_RULE_TOKEN_SCOPE:
            return "token.scope";
        case BMCOAUTH_RULE_TOKEN_NOT_YET_VALID:
            return "token.not-yet-valid";
        case BMCOAUTH_RULE_TOKEN_EXPIRED:
            return "token.expired";
        case BMCOAUTH_RULE_TOKEN_SIGNATURE:
            return "token.signature";
        case BMCOAUTH_RULE_TOKEN_ALGORITHM:
            return "token.algorithm";
        case BMCOAUTH_RULE_TOKEN_KEY_NOT_SELECTED:
            return "token.key-not-selected";
        case BMCOAUTH_RULE_TOKEN_KEY_NOT_IMPORTED:
            return "token.key-not-imported";
        case BMCOAUTH_RULE_TOKEN_INCOMPLETE:
            return "token.incomplete";
        case BMCOAUTH_RULE_TOKEN_EXPIRES_NOW:
            return "token.expires-now";
        case BMCOAUTH_RULE_PRIVILEGES_CLAIM:
            return "privileges.claim";
        case BMCOAUTH_RULE_DOCUMENT_MEMBER:
            return "document.member";
        case BMCOAUTH_RULE_DOCUMENT_INCOMPLETE:
            return "document.incomplete";
        case BMCOAUTH_RULE_DOCUMENT_PARAMETER:
            return "document.parameter";
        case BMCOAUTH_RULE_DOCUMENT_PARAMETER_MISSING:
            return "document.parameter-missing";
        case BMCOAUTH_RULE_DOCUMENT_EMPTY:
            return "document.empty";
        case BMCOAUTH_RULE_REGISTRATION_REDIRECT_URI:
            return "registration.redirect-uri";
        case BMCOAUTH_RULE_REGISTRATION_CHALLENGE:
            return "registration.challenge";
        case BMCOAUTH_RULE_REGISTRATION_HANDSHAKE_TYPES:
            return "registration.handshake-types";
        case BMCOAUTH_RULE_REGISTRATION_KEYS:
            return "registration.keys";
        case BMCOAUTH_RULE_REGISTRATION_LIFETIME:
            return "registration.lifetime";
        case BMCOAUTH_RULE_REGISTRATION_UNSUPPORTED:
            return "registration.unsupported";
        case BMCOAUTH_RULE_AUTHORIZE_GRANT:
            return "authorize.grant";
        case BMCOAUTH_RULE_AUTHORIZE_HANDSHAKE:
            return "authorize.handshake";
        case BMCOAUTH_RULE_AUTHORIZE_POLICY:
            return "authorize.policy";
        case BMCOAUTH_RULE_AUTHORIZE_SCOPE:
            return "authorize.scope";
        case BMCOAUTH_RULE_HANDSHAKE_TYPES:
            return "handshake.types";
        case BMCOAUTH_RULE_HANDSHAKE_TOKEN:
            return "handshake.token";
        case BMCOAUTH_RULE_HANDSHAKE_CERTIFICATE:
            return "handshake.certificate";
        case BMCOAUTH_RULE_HANDSHAKE_COUNTERS:
            return "handshake.counters";
        case BMCOAUTH_RULE_HANDSHAKE_KEYS:
            return "handshake.keys";
        case BMCOAUTH_RULE_HANDSHAKE_SECRET:
            return "handshake.secret";
        case BMCOAUTH_RULE_HANDSHAKE_PROOF_MISSING:
            return "handshake.proof-missing";
        case BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG:
            return "handshake.proof-wrong";
        case BMCOAUTH_RULE_HANDSHAKE_IV:
            return "handshake.iv";
        case BMCOAUTH_RULE_POLICY_KEY_UNKNOWN:
            return "policy.key-unknown";
        case BMCOAUTH_RULE_POLICY_KEY_ID:
            return "policy.key-id";
        case BMCOAUTH_RULE_POLICY_KEY_WEAK:
            return "policy.key-weak";
        case BMCOAUTH_RULE_POLICY_KEY_UNUSABLE:
            return "policy.key-unusable";
        case BMCOAUTH_RULE_POLICY_ENCODING:
            return "policy.encoding";
        case BMCOAUTH_RULE_POLICY_CRITICAL:
            return "policy.critical";
        case BMCOAUTH_RULE_POLICY_TYPE:
            return "policy.type";
        case BMCOAUTH_RULE_POLICY_ALGORITHM:
            return "policy.algorithm";
        case BMCOAUTH_RULE_POLICY_ISSUER:
            return "policy.issuer";
        case BMCOAUTH_RULE_POLICY_AUDIENCE:
            return "policy.audience";
        case BMCOAUTH_RULE_POLICY_LIFETIME:
            return "policy.lifetime";
        case BMCOAUTH_RULE_POLICY_REVOKED:
            return "policy.revoked";
        case BMCOAUTH_RULE_POLICY_SCOPES:
            return "policy.scopes";
        case BMCOAUTH_RULE_CLIENT_UNKNOWN:
            return "client.unknown";
        case BMCOAUTH_RULE_CLIENT_SECRET:
            return "client.secret";
        case BMCOAUTH_RULE_CLIENT_LOCKED:
            return "client.locked";
        case BMCOAUTH_RULE_CLIENT_CHALLENGE_USED:
            return "client.challenge-used";
        case BMCOAUTH_RULE_CLIENT_CHALLENGE_EXPIRED:
            return "client.challenge-expired";
        case BMCOAUTH_RULE_CLIENT_REFRESH_UNKNOWN:
            return "client.refresh-unknown";
        case BMCOAUTH_RULE_CLIENT_REFRESH_REUSED:
            return "client.refresh-reused";
        case BMCOAUTH_RULE_CLIENT_REFRESH_EXPIRED:
            return "client.refresh-expired";
        case BMCOAUTH_RULE_CLIENT_FAMILY_EXPIRED:
            return "client.family-expired";
        case BMCOAUTH_RULE_CLIENT_REDIRECT_URI:
            return "client.redirect-uri";
        case BMCOAUTH_RULE_CLIENT_NOT_AUTHORIZED:
            return "client.not-authorized";
        case BMCOAUTH_RULE_CLIENT_STORE_FAILED:
            return "client.store-failed";
    }
    return nullptr;
}

/** Above every rule that there may be. */
constexpr int endOfRules = 3000;

/** Calls @p visit with the number and the name of each rule. */
template <typename Visit>
constexpr void forEachRule(Visit visit)
{
    for (int number = 0; number < endOfRules; ++number)
    {
        const char* const name = nameOf(static_cast<bmcoauth_rule>(number));
        if (name != nullptr)
        {
            visit(static_cast<std::uint16_t>(number), std::string_view{name});
        }
    }
}

constexpr std::size_t countOfRules = [] {
    std::size_t count = 0;
    forEachRule([&](std::uint16_t, std::string_view) { ++count; });
    return count;
}();

constexpr std::size_t sizeOfNames = [] {
    std::size_t size = 0;
    forEachRule([&](std::uint16_t, std::string_view name) { size += name.size() + 1; });
    return size;
}();

/** The rules and their names, each with a zero byte, in one order. Called by the program, nameOf would
 *  take as much room as the names themselves. */
struct RuleNames
{
    std::array<std::uint16_t, countOfRules> rules{};
    std::array<char, sizeOfNames> names{};
};

constexpr RuleNames ruleNames = [] {
    RuleNames all;
    std::uint16_t* rule = all.rules.data();
    char* text = all.names.data();
    forEachRule([&](std::uint16_t number, std::string_view name) {
        *rule++ = number;
        text = std::ranges::copy(name, text).out + 1;
    });
    return all;
}();

} // namespace

extern "C" const char* bmcoauth_rule_name(int rule)
{
    const char* name = ruleNames.names.data();
    for (const std::uint16_t known : ruleNames.rules)
    {
        if (known == rule)
        {
            return name;
        }
        name += std::strlen(name) + 1;
    }
    return nullptr;
}
