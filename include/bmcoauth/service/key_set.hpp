// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Public keys by which tokens are verified, imported from a JSON Web Key Set (RFC 7517). Uses
 * containers of the standard library: without memory, those do what they always do. */

#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/cpp/validation.hpp>

#include <climits>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
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

/** An algorithm for public keys (RFC 7518, section 3.1), and the keys that it takes. */
struct AlgorithmFacts
{
    /** As in "alg". */
    std::string_view name;
    /** As in "kty". */
    std::string_view type;
    /** As in "crv"; empty for RSA. */
    std::string_view curve;
};
/** The algorithms that are verified. */
inline constexpr std::array<AlgorithmFacts, 9> algorithmTable{{{"ES256", "EC", "P-256"},
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
    /** The algorithms that it is trusted with, one at least. */
    std::vector<std::string_view> algorithms;
    /** The key alone, in PEM. */
    TrustedKeys key;
};

/** Verifies the signature of `token` by `key` alone, whose algorithm has been looked at. */
[[nodiscard]] inline Expected<VerifiedToken>
verifiedBy(const VerifyingKey& key, std::string_view token, DelegationRules rules = {})
{
    // The times are compared with the service's clock: by the library's, all are near enough.
    rules.skewSeconds = UINT_MAX;
    return validateDelegatedToken(token, key.key, rules).takeVerified();
}

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

/** How many bits the big-endian number `number`, in Base64url, has. */
[[nodiscard]] inline std::size_t bitsOf(std::string_view number)
{
    const Expected<Bytes> bytes = decodeBase64Url(number);
    if (!bytes)
    {
        return 0;
    }
    const auto first =
        std::ranges::find_if(bytes->span(), [](unsigned char byte) { return byte != 0; });
    const auto size = static_cast<std::size_t>(bytes->span().end() - first);
    return size == 0 ? 0 : (size - 1) * 8 + static_cast<std::size_t>(std::bit_width(*first));
}

/** The PEM text of the public key `key` of the type `type`. Only the numbers are read: a PEM text
 *  that came along counts for nothing. */
[[nodiscard]] inline Expected<Text> pemOf(const Document& key, std::string_view type)
{
    const bool isRsa = type == "RSA";
    const char* const firstName = isRsa ? "n" : "x";
    const char* const secondName = isRsa ? "e" : "y";
    const Expected<std::string> first = textMember(key, firstName);
    const Expected<std::string> second = textMember(key, secondName);
    const Expected<std::string> curve = textMember(key, "crv");
    if (!first || !second || !curve)
    {
        return !first ? first.error() : !second ? second.error() : curve.error();
    }
    if (first->empty() || second->empty())
    {
        return Error{BMCOAUTH_RULE_JWK_NUMBER, first->empty() ? firstName : secondName};
    }
    if (isRsa && bitsOf(*first) < 2048)
    {
        return Error{BMCOAUTH_RULE_POLICY_KEY_WEAK, "n"};
    }
    return isRsa ? rsaPublicKeyPem(*first, *second) : ecPublicKeyPem(*first, *second, *curve);
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
    for (const Expected<std::string>* member : {&type, &curve, &algorithm, &use})
    {
        if (!*member)
        {
            return member->error();
        }
    }
    std::vector<std::string_view> found;
    const Expected<Texts> operations = key.strings("key_ops");
    if ((!use->empty() && *use != "sig") || (operations && !operations->range().contains("verify")))
    {
        return found;
    }
    for (const AlgorithmFacts& facts : algorithmTable)
    {
        if (std::ranges::find(allowed, facts.name) != allowed.end() && *type == facts.type &&
            (facts.curve.empty() || *curve == facts.curve) &&
            (algorithm->empty() || *algorithm == facts.name))
        {
            found.push_back(facts.name);
        }
    }
    return found;
}

/** The key that `text` holds, for those of `allowed` that it fits; nothing if it fits none. */
[[nodiscard]] inline Expected<std::optional<VerifyingKey>>
importKey(std::string_view text, std::span<const std::string> allowed)
{
    const Expected<Document> key = Document::parse(text);
    if (!key)
    {
        return key.error();
    }
    Expected<std::vector<std::string_view>> algorithms = algorithmsOf(*key, allowed);
    Expected<std::string> id = textMember(*key, "kid");
    if (!algorithms || !id)
    {
        return algorithms ? id.error() : algorithms.error();
    }
    if (algorithms->empty())
    {
        return std::optional<VerifyingKey>{};
    }
    const Expected<Text> pem = pemOf(*key, algorithms->front().front() == 'E' ? "EC" : "RSA");
    if (!pem)
    {
        return pem.error();
    }
    const std::array<std::string_view, 1> pems{pem->view()};
    Expected<TrustedKeys> trusted = TrustedKeys::of(pems);
    if (!trusted)
    {
        return trusted.error();
    }
    return std::optional{VerifyingKey{std::move(*id), std::move(*algorithms), std::move(*trusted)}};
}

/** Refuses `keys` unless each can be told from the others by its id. */
[[nodiscard]] inline Expected<void> requireKeyIds(std::span<const VerifyingKey> keys)
{
    for (std::size_t i = 0; keys.size() > 1 && i < keys.size(); ++i)
    {
        const auto before = keys.first(i);
        if (keys[i].id.empty() ||
            std::ranges::find(before, keys[i].id, &VerifyingKey::id) != before.end())
        {
            return Error{BMCOAUTH_RULE_POLICY_KEY_ID, "kid", static_cast<int>(i)};
        }
    }
    return {};
}

/** The keys of a set at one time. */
class KeySet
{
public:
    /** Imports the JSON Web Key Set `jwks`, of which each key is trusted with those of `algorithms`
     *  that it fits. Keys that fit none, and those for encryption, are left out. */
    [[nodiscard]] static Expected<KeySet> import(std::string_view jwks,
                                                 std::span<const std::string> algorithms)
    {
        if (holdsZeroByte(jwks))
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, "jwks"};
        }
        const Expected<Document> set = Document::parse(jwks);
        const Expected<Texts> members = set ? set->objects("keys") : set.error();
        if (!members)
        {
            return members.error();
        }
        KeySet made;
        for (const std::string_view member : *members)
        {
            Expected<std::optional<VerifyingKey>> key = importKey(member, algorithms);
            if (!key)
            {
                return key.error();
            }
            if (*key)
            {
                made.keys.push_back(*std::move(*key));
            }
        }
        if (made.keys.empty())
        {
            return Error{BMCOAUTH_RULE_POLICY_KEY_UNUSABLE, "keys"};
        }
        return requireKeyIds(made.keys).transform([&made] { return std::move(made); });
    }

    /** The one key that a token with this header may be verified by. */
    [[nodiscard]] Expected<const VerifyingKey*> select(const TokenHeader& header) const
    {
        const std::optional<std::string_view> id = header.keyId();
        const auto found = std::ranges::find_if(keys, [&](const VerifyingKey& key) {
            return id == key.id || (keys.size() == 1 && (!id || key.id.empty()));
        });
        if (found == keys.end())
        {
            return Error{BMCOAUTH_RULE_POLICY_KEY_UNKNOWN, "kid"};
        }
        if (std::ranges::find(found->algorithms, header.algorithm()) == found->algorithms.end())
        {
            return Error{BMCOAUTH_RULE_POLICY_ALGORITHM, "alg"};
        }
        return &*found;
    }

private:
    std::vector<VerifyingKey> keys;
};

} // namespace detail

/** VerificationKeys are the public keys of a service's own tokens. A service that only judges tokens
 *  has these alone, and nothing that makes tokens.
 *
 *  Copies share one set: replacing it changes what all of them, and the validators that have one,
 *  go by. A moved-from object is as it was. Any thread may call any function: a mutex guards the
 *  set, and validators take it only for tokens that they have not seen before. */
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
        static const std::array<std::string, 1> algorithms{"ES256"};
        Expected<detail::KeySet> imported = detail::KeySet::import(jwks, algorithms);
        if (!imported)
        {
            return imported.error();
        }
        const std::lock_guard lock{state->mutex};
        state->keys = std::make_shared<const detail::KeySet>(std::move(*imported));
        state->generation.fetch_add(1);
        return {};
    }

private:
    friend class TokenValidator;

    using Snapshot = std::pair<std::shared_ptr<const detail::KeySet>, std::uint64_t>;

    struct State
    {
        std::mutex mutex;
        std::shared_ptr<const detail::KeySet> keys;
        std::atomic<std::uint64_t> generation = 0;
    };

    VerificationKeys() : state{std::make_shared<State>()}
    {
    }

    /** The keys, and what `generation` gives as long as they are these. */
    [[nodiscard]] Snapshot snapshot() const
    {
        const std::lock_guard lock{state->mutex};
        return {state->keys, state->generation.load()};
    }
    /** Another number for each set. */
    [[nodiscard]] std::uint64_t generation() const noexcept
    {
        return state->generation.load();
    }

    std::shared_ptr<State> state;
};

} // namespace v1
} // namespace bmcoauth
