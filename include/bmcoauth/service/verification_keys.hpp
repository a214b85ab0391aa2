// SPDX-License-Identifier: Apache-2.0
#pragma once

/* Public keys that verify tokens, imported from a JSON Web Key Set (RFC 7517). */

#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/validation.hpp>
#include <bmcoauth/service/common.hpp>

#include <climits>
#include <openssl/bn.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <map>
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
/** The algorithms that the library verifies. */
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
    /** The algorithms that it may verify, one at least. */
    std::vector<std::string_view> algorithms;
    /** The key alone, in PEM. */
    TrustedKeys key;
};
/** The keys of a set, one at least. */
using KeySet = std::vector<VerifyingKey>;

/** The strings of a JSON Web Key, by name. An absent one is empty. */
using KeyMembers = std::map<std::string_view, std::string>;

/** Reads the strings that importing needs. Refuses a member of another type. */
[[nodiscard]] inline Expected<KeyMembers> membersOf(const Document& key)
{
    KeyMembers members;
    for (const char* const name : {"kid", "kty", "crv", "alg", "use", "n"})
    {
        const Expected<Text> text = key.string(name);
        if (!text && text.error().rule() != BMCOAUTH_RULE_JSON_MEMBER_MISSING)
        {
            return text.error();
        }
        members[name] = text ? text->view() : std::string_view{};
    }
    return members;
}

/** Those of `allowed` that the key is meant for, by its type, curve, "alg", "use" and "key_ops". */
[[nodiscard]] inline std::vector<std::string_view>
algorithmsOf(const Document& key, const KeyMembers& members, std::span<const std::string> allowed)
{
    const Expected<Texts> operations = key.strings("key_ops");
    if (!operations && operations.error().rule() != BMCOAUTH_RULE_JSON_MEMBER_MISSING)
    {
        return {};
    }
    const auto isOrAbsent = [&members](const char* name, std::string_view wanted) {
        return members.at(name).empty() || members.at(name) == wanted;
    };
    std::vector<std::string_view> found;
    for (const Algorithm& one : algorithmTable)
    {
        if (isOrAbsent("use", "sig") && isOrAbsent("alg", one.name) &&
            (!operations || operations->range().contains("verify")) &&
            members.at("kty") == one.type &&
            (one.curve.empty() || members.at("crv") == one.curve) &&
            std::ranges::find(allowed, one.name) != allowed.end())
        {
            found.push_back(one.name);
        }
    }
    return found;
}

/** Whether the RSA modulus `n`, in Base64url, has at least 2048 bits. */
[[nodiscard]] inline bool isLong(std::string_view n)
{
    const Expected<Bytes> bytes = decodeBase64Url(n);
    const ByteSpan number = bytes ? bytes->span() : ByteSpan{};
    const std::unique_ptr<BIGNUM, Releaser<BN_free>> modulus{
        BN_bin2bn(number.data(), static_cast<int>(number.size()), nullptr)};
    return modulus != nullptr && BN_num_bits(modulus.get()) >= 2048;
}

/** Adds the key `text` to `keys` for those of `allowed` that it fits. Does nothing if it fits none.
 *  Refuses a weak key, and one that cannot be told from the others by its "kid". */
[[nodiscard]] inline Expected<void> addKey(KeySet& keys, std::string_view text,
                                           std::span<const std::string> allowed)
{
    Expected<Document> key = Document::parse(text);
    const Expected<KeyMembers> members = key.and_then(membersOf);
    if (!members)
    {
        return members.error();
    }
    std::vector<std::string_view> algorithms = algorithmsOf(*key, *members, allowed);
    if (algorithms.empty())
    {
        return {};
    }
    // The sets of a service are published, and a private number must not be.
    if (key->string("d"))
    {
        return Error{BMCOAUTH_RULE_POLICY_KEY_UNUSABLE, "d"};
    }
    if (members->at("kty") == "RSA" && !isLong(members->at("n")))
    {
        return Error{BMCOAUTH_RULE_POLICY_KEY_WEAK, "n"};
    }
    const std::string& id = members->at("kid");
    if (!keys.empty() && (id.empty() || keys.front().id.empty() ||
                          std::ranges::find(keys, id, &VerifyingKey::id) != keys.end()))
    {
        return Error{BMCOAUTH_RULE_POLICY_KEY_ID, "kid", static_cast<int>(keys.size())};
    }
    // Made from the numbers. Replaces a PEM text that the document brings.
    return key->addPublicKey()
        .and_then([&key] { return key->string("kest_decoded_key"); })
        .and_then([](const Text& pem) { return TrustedKeys::of(std::array{pem.view()}); })
        .transform([&](TrustedKeys trusted) {
            keys.push_back({id, std::string{text}, std::move(algorithms), std::move(trusted)});
        });
}

/** Imports the JSON Web Key Set `jwks`. Trusts each key with those of `allowed` that it fits. Leaves
 *  out keys that fit none, and keys for encryption. Of several keys, each needs a "kid". */
[[nodiscard]] inline Expected<KeySet> importKeys(std::string_view jwks,
                                                 std::span<const std::string> allowed)
{
    if (holdsZeroByte(jwks))
    {
        return Error{BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, "jwks"};
    }
    const Expected<Texts> members =
        Document::parse(jwks).and_then([](const Document& set) { return set.objects("keys"); });
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
    return keys;
}

/** The same for keys of one's own tokens. */
[[nodiscard]] inline Expected<KeySet> importOwnKeys(std::string_view jwks)
{
    static const std::array<std::string, 1> algorithms{"ES256"};
    return importKeys(jwks, algorithms);
}

/** The one of `keys` that may verify a token with this header. */
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

/** Verifies the signature of `token` by `key`, whose algorithm has been checked. */
[[nodiscard]] inline Expected<VerifiedToken>
verifiedBy(const VerifyingKey& key, std::string_view token, DelegationRules rules = {})
{
    // The service's clock decides, not the library's: with this skew, all times are near enough.
    rules.skewSeconds = UINT_MAX;
    return validateDelegatedToken(token, key.key, rules).takeVerified();
}

/** Keys that can be replaced while other threads verify by them. */
class ReplaceableKeys
{
public:
    /** The keys at this moment. Must not be asked before `replace`. */
    [[nodiscard]] std::shared_ptr<const KeySet> get() const
    {
        const std::lock_guard lock{mutex};
        return keys;
    }
    /** Changes whenever the keys do. Takes no lock. Must be read before the keys. */
    [[nodiscard]] std::uint64_t generation() const noexcept
    {
        return number.load();
    }
    /** Takes `next` instead. */
    void replace(KeySet next)
    {
        auto shared = std::make_shared<const KeySet>(std::move(next));
        const std::lock_guard lock{mutex};
        keys = std::move(shared);
        number.fetch_add(1);
    }

private:
    mutable std::mutex mutex;
    std::shared_ptr<const KeySet> keys;
    std::atomic<std::uint64_t> number = 0;
};

} // namespace detail

/** VerificationKeys are the public keys of a service's own tokens. A service that only judges tokens
 *  needs nothing else.
 *
 *  Copies share one set: replacing it changes all of them, and the validators that use one. Any thread
 *  may call any function. */
class VerificationKeys
{
public:
    /** Imports the ES256 keys of the JSON Web Key Set `jwks`, one at least. Of several keys, each
     *  needs a "kid". */
    [[nodiscard]] static Expected<VerificationKeys> of(std::string_view jwks)
    {
        VerificationKeys made;
        return made.replace(jwks).transform([&made] { return made; });
    }

    /** Takes the keys of `jwks` instead. From then on, tokens of other keys are refused, also those
     *  that a validator remembers. On failure, the keys stay. */
    Expected<void> replace(std::string_view jwks)
    {
        return detail::importOwnKeys(jwks).transform(
            [this](detail::KeySet next) { keys->replace(std::move(next)); });
    }

private:
    friend class TokenValidator;

    VerificationKeys() = default;

    detail::Shared<detail::ReplaceableKeys> keys{std::make_shared<detail::ReplaceableKeys>()};
};

} // namespace v1
} // namespace bmcoauth
