// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Public keys by which tokens are verified, imported from a JSON Web Key Set (RFC 7517). */

#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/validation.hpp>

#include <climits>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

namespace detail
{

/** An algorithm (RFC 7518, section 3.1), and the keys that it takes. */
struct Algorithm
{
    /** As in "alg". */
    std::string_view name;
    /** As in "kty". */
    std::string_view type;
    /** As in "crv"; empty for RSA. */
    std::string_view curve;
};
/** The algorithms that are verified. */
inline constexpr std::array<Algorithm, 9> algorithmTable{{{"ES256", "EC", "P-256"},
                                                          {"ES384", "EC", "P-384"},
                                                          {"ES512", "EC", "P-521"},
                                                          {"RS256", "RSA", ""},
                                                          {"RS384", "RSA", ""},
                                                          {"RS512", "RSA", ""},
                                                          {"PS256", "RSA", ""},
                                                          {"PS384", "RSA", ""},
                                                          {"PS512", "RSA", ""}}};

/** A key of a set. */
struct VerifyingKey
{
    /** The member "kid"; empty if there is none. */
    std::string id;
    /** The JSON Web Key. */
    std::string text;
    /** What it is trusted with, one algorithm at least. */
    std::vector<std::string_view> algorithms;
    /** The key alone, in PEM. */
    TrustedKeys key;
};
/** The keys of a set, one at least. */
using KeySet = std::vector<VerifyingKey>;

/** The string `name` of `key`; empty if it is absent. Refused if it is something else. */
[[nodiscard]] inline Expected<std::string> textMember(const Document& key, std::string_view name)
{
    const Expected<Text> text = key.string(name);
    if (!text && text.error().rule() != BMCOAUTH_RULE_JSON_MEMBER_MISSING)
    {
        return text.error();
    }
    return text ? std::string{text->view()} : std::string{};
}

/** Those of `allowed` that `key` is meant for: by its type and curve and, where they are there, by
 *  "alg", "use" and "key_ops". */
[[nodiscard]] inline Expected<std::vector<std::string_view>>
algorithmsOf(const Document& key, std::span<const std::string> allowed)
{
    const Expected<std::string> type = textMember(key, "kty");
    const Expected<std::string> curve = textMember(key, "crv");
    const Expected<std::string> algorithm = textMember(key, "alg");
    const Expected<std::string> use = textMember(key, "use");
    if (const Expected<void> all = allOf(type, curve, algorithm, use); !all)
    {
        return all.error();
    }
    const Expected<Texts> operations = key.strings("key_ops");
    const bool isForSignatures =
        (use->empty() || *use == "sig") && (!operations || operations->range().contains("verify"));
    std::vector<std::string_view> found;
    for (const Algorithm& one : algorithmTable)
    {
        if (isForSignatures && std::ranges::find(allowed, one.name) != allowed.end() &&
            *type == one.type && (one.curve.empty() || *curve == one.curve) &&
            (algorithm->empty() || *algorithm == one.name))
        {
            found.push_back(one.name);
        }
    }
    return found;
}

/** Whether the RSA modulus `n`, in Base64url, has 2048 bits at least. */
[[nodiscard]] inline bool isLong(std::string_view n)
{
    const Expected<Bytes> number = decodeBase64Url(n);
    const ByteSpan bytes = number ? number->span() : ByteSpan{};
    const auto first = std::ranges::find_if(bytes, [](unsigned char byte) { return byte != 0; });
    const auto size = bytes.end() - first;
    return size > 256 || (size == 256 && *first >= 0x80);
}

/** Adds the key `text` to `keys` for those of `allowed` that it fits, unless it fits none. */
[[nodiscard]] inline Expected<void> addKey(KeySet& keys, std::string_view text,
                                           std::span<const std::string> allowed)
{
    Expected<Document> key = Document::parse(text);
    Expected<std::string> id = key ? textMember(*key, "kid") : key.error();
    Expected<std::vector<std::string_view>> algorithms =
        key ? algorithmsOf(*key, allowed) : key.error();
    const Expected<void> all = allOf(id, algorithms);
    if (!all || algorithms->empty())
    {
        return all;
    }
    const Expected<std::string> modulus = textMember(*key, "n");
    if (algorithms->front().front() != 'E' && modulus && !modulus->empty() && !isLong(*modulus))
    {
        return Error{BMCOAUTH_RULE_POLICY_KEY_WEAK, "n"};
    }
    // Made of the numbers alone: it replaces a text that came along.
    const Expected<Text> pem =
        key->addPublicKey().and_then([&key] { return key->string("kest_decoded_key"); });
    Expected<TrustedKeys> trusted =
        pem ? TrustedKeys::of(std::array{pem->view()}) : Expected<TrustedKeys>{pem.error()};
    if (!trusted)
    {
        return trusted.error();
    }
    keys.push_back(
        {*std::move(id), std::string{text}, *std::move(algorithms), *std::move(trusted)});
    return {};
}

/** Imports the JSON Web Key Set `jwks`, of which each key is trusted with those of `allowed` that it
 *  fits. Left out are keys that fit none, and those for encryption. Of several, each has its "kid". */
[[nodiscard]] inline Expected<KeySet> importKeys(std::string_view jwks,
                                                 std::span<const std::string> allowed)
{
    if (holdsZeroByte(jwks))
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, "jwks"};
    }
    const Expected<Document> set = Document::parse(jwks);
    const Expected<Texts> members = set ? set->objects("keys") : set.error();
    KeySet keys;
    Expected<void> all = allOf(members);
    for (const std::string_view member : members ? members->range() : TextRange{})
    {
        all = all ? addKey(keys, member, allowed) : all;
    }
    if (!all || keys.empty())
    {
        return all ? Error{BMCOAUTH_RULE_POLICY_KEY_UNUSABLE, "keys"} : all.error();
    }
    for (auto key = keys.begin(); keys.size() > 1 && key != keys.end(); ++key)
    {
        if (key->id.empty() ||
            std::ranges::find(keys.begin(), key, key->id, &VerifyingKey::id) != key)
        {
            return Error{BMCOAUTH_RULE_POLICY_KEY_ID, "kid", static_cast<int>(key - keys.begin())};
        }
    }
    return keys;
}

/** The same for keys of one's own tokens. */
[[nodiscard]] inline Expected<KeySet> importOwnKeys(std::string_view jwks)
{
    static const std::array<std::string, 1> algorithms{"ES256"};
    return importKeys(jwks, algorithms);
}

/** The one of `keys` that a token with this header may be verified by. */
[[nodiscard]] inline Expected<const VerifyingKey*> selectKey(const KeySet& keys,
                                                             const TokenHeader& header)
{
    const std::optional<std::string_view> id = header.keyId();
    const auto key = std::ranges::find_if(keys, [&](const VerifyingKey& one) {
        return id == one.id || (keys.size() == 1 && (!id || one.id.empty()));
    });
    if (key == keys.end())
    {
        return Error{BMCOAUTH_RULE_POLICY_KEY_UNKNOWN, "kid"};
    }
    if (std::ranges::find(key->algorithms, header.algorithm()) == key->algorithms.end())
    {
        return Error{BMCOAUTH_RULE_POLICY_ALGORITHM, "alg"};
    }
    return &*key;
}

/** Verifies the signature of `token` by `key` alone, whose algorithm has been looked at. */
[[nodiscard]] inline Expected<VerifiedToken>
verifiedBy(const VerifyingKey& key, std::string_view token, DelegationRules rules = {})
{
    // The times are compared with the service's clock: by the library's, all are near enough.
    rules.skewSeconds = UINT_MAX;
    return validateDelegatedToken(token, key.key, rules).takeVerified();
}

} // namespace detail

/** VerificationKeys are the public keys of a service's own tokens. A service that only judges tokens
 *  has these alone, and nothing that makes tokens.
 *
 *  Copies share one set: replacing it changes what all of them, and the validators that have one,
 *  go by. A moved-from object is as it was. Any thread may call any function. */
class VerificationKeys
{
public:
    /** Shares the set of the other. */
    VerificationKeys(const VerificationKeys&) noexcept = default;
    /** Shares the set of the other from now on. */
    VerificationKeys& operator=(const VerificationKeys&) noexcept = default;
    ~VerificationKeys() = default;

    /** The ES256 keys of the JSON Web Key Set `jwks`, one at least; of several, each has a "kid". */
    [[nodiscard]] static Expected<VerificationKeys> of(std::string_view jwks)
    {
        VerificationKeys made;
        return made.replace(jwks).transform([&made] { return made; });
    }

    /** Takes the keys of `jwks` instead. Tokens of other keys are refused from now on, those seen
     *  before included. If it is refused, the keys stay. */
    Expected<void> replace(std::string_view jwks)
    {
        return detail::importOwnKeys(jwks).transform([this](detail::KeySet keys) {
            auto shared = std::make_shared<const detail::KeySet>(std::move(keys));
            const std::lock_guard lock{state->mutex};
            state->keys = std::move(shared);
            state->generation.fetch_add(1);
        });
    }

private:
    friend class TokenValidator;

    struct State
    {
        std::mutex mutex;
        std::shared_ptr<const detail::KeySet> keys;
        // Another number for each set. Read without the mutex for tokens seen before.
        std::atomic<std::uint64_t> generation = 0;
    };

    VerificationKeys() : state{std::make_shared<State>()}
    {
    }

    /** The keys, and the generation that they are of. */
    [[nodiscard]] std::pair<std::shared_ptr<const detail::KeySet>, std::uint64_t> snapshot() const
    {
        const std::lock_guard lock{state->mutex};
        return {state->keys, state->generation.load()};
    }

    std::shared_ptr<State> state;
};

} // namespace v1
} // namespace bmcoauth
