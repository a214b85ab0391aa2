// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The keys with which a service signs its tokens. Uses containers of the standard library: without
 * memory, those do what they always do. */

#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/service/digest.hpp>
#include <bmcoauth/service/key_files.hpp>
#include <bmcoauth/service/key_set.hpp>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bmcoauth
{
inline namespace v1
{

/** A signer has a P-256 key whose private number need not be in the process: in a TPM, behind
 *  PKCS #11, in a provider of OpenSSL. `sign` gives the ECDSA signature of a SHA-256 digest, in DER;
 *  `publicPoint` the public point, uncompressed (SEC 1, section 2.3.3). Several threads may call
 *  `sign` at the same time. */
template <typename T>
concept Signer = std::copy_constructible<T> && requires(const T& signer, const Sha256Digest& digest)
{
    {
        signer.sign(digest)
        } -> std::same_as<Expected<Bytes>>;
    {
        signer.publicPoint()
        } -> std::same_as<Expected<Bytes>>;
};

namespace detail
{

/** A public key as it is published. */
struct PublishedKey
{
    /** The member "kid". */
    std::string id;
    /** The JSON Web Key. */
    std::string text;

    /** The key with this uncompressed point of P-256. Its id is its thumbprint (RFC 7638). */
    [[nodiscard]] static Expected<PublishedKey> of(ByteSpan point)
    {
        if (point.size() != 65 || point.front() != 4)
        {
            return Error{BMCOAUTH_RULE_KEY_POINT, "publicPoint"};
        }
        const Expected<Text> x = base64Url(point.subspan(1, 32));
        const Expected<Text> y = base64Url(point.subspan(33));
        if (!x || !y)
        {
            return Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED};
        }
        // Refuses what is not a point of the curve.
        if (const Expected<Text> pem = ecPublicKeyPem(*x, *y, "P-256"); !pem)
        {
            return pem.error();
        }
        const std::string numbers = R"("kty":"EC",)"
                                    R"("x":")" +
                                    std::string{x->view()} + R"(","y":")" + std::string{y->view()} +
                                    R"("})";
        const Sha256Digest digest = sha256(R"({"crv":"P-256",)" + numbers);
        const Expected<Text> id = base64Url(digest);
        if (!id)
        {
            return id.error();
        }
        std::string name{id->view()};
        std::string text =
            R"({"alg":"ES256","crv":"P-256","kid":")" + name + R"(","use":"sig",)" + numbers;
        return PublishedKey{std::move(name), std::move(text)};
    }

    /** The key of `key`. */
    [[nodiscard]] static Expected<PublishedKey> of(const PrivateKey& key);
};

/** The JSON Web Key Set of these keys. */
[[nodiscard]] inline std::string jwksOf(const std::vector<PublishedKey>& keys)
{
    std::string text = R"({"keys":[)";
    for (const PublishedKey& key : keys)
    {
        text.append(text.back() == '[' ? "" : ",").append(key.text);
    }
    return text += "]}";
}

// EC_KEY is marked deprecated.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif

inline Expected<PublishedKey> PublishedKey::of(const PrivateKey& key)
{
    const Expected<EcKey> ecKey = ecKeyOf(key);
    if (!ecKey)
    {
        return ecKey.error();
    }
    std::array<unsigned char, 65> point{};
    unsigned char* behind = point.data();
    if (i2o_ECPublicKey(ecKey->get(), nullptr) != static_cast<int>(point.size()) ||
        i2o_ECPublicKey(ecKey->get(), &behind) != static_cast<int>(point.size()))
    {
        return Error{BMCOAUTH_RULE_KEY_UNSOUND};
    }
    return of(ByteSpan{point});
}

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

/** The keys of the JSON Web Key Set `jwks`, as this layer has written it. */
[[nodiscard]] inline Expected<std::vector<PublishedKey>> publishedKeys(std::string_view jwks)
{
    std::vector<PublishedKey> keys;
    // All of them are read before one is taken.
    const Expected<VerificationKeys> sound = VerificationKeys::of(jwks);
    const Expected<Document> set = sound ? Document::parse(jwks) : sound.error();
    const Expected<Texts> members = set ? set->objects("keys") : set.error();
    if (!members)
    {
        return members.error();
    }
    for (const std::string_view member : *members)
    {
        const Expected<Document> key = Document::parse(member);
        const Expected<Text> id = key ? key->string("kid") : key.error();
        if (!id)
        {
            return id.error();
        }
        keys.push_back({std::string{id->view()}, std::string{member}});
    }
    return keys;
}

/** How the current key makes a token of a plan. */
using MakeToken = std::function<Expected<Text>(const TokenPlan&)>;

/** Makes tokens with a key in the process. */
[[nodiscard]] inline MakeToken makerOf(PrivateKey key)
{
    return [key = std::make_shared<const PrivateKey>(std::move(key))](const TokenPlan& plan) {
        return issueToken(plan, *key);
    };
}

/** `token` with the signature of `signer` instead of its own. */
template <Signer S>
[[nodiscard]] Expected<Text> signedAnew(std::string_view token, const S& signer)
{
    const std::string_view signedPart = token.substr(0, token.rfind('.'));
    const Expected<Bytes> der = signer.sign(sha256(signedPart));
    const Expected<Text> signature = der ? base64Url(*der) : der.error();
    if (!signature)
    {
        return signature.error();
    }
    return Text::copy(std::string{signedPart}.append(1, '.').append(signature->view()));
}

/** Makes tokens with `signer`. Each is verified before it is given: a signature that a fault has
 *  spoiled is of no use to the client, and can give the key away. */
template <Signer S>
[[nodiscard]] Expected<MakeToken> makerOf(S signer, const PublishedKey& published)
{
    static const std::array<std::string, 1> algorithms{"ES256"};
    Expected<KeyPair> pair = KeyPair::generate();
    Expected<std::optional<VerifyingKey>> key = importKey(published.text, algorithms);
    if (!pair || !key)
    {
        return pair ? key.error() : pair.error();
    }
    // The library writes the parts and signs them with a key that verifies nothing; that signature
    // is replaced.
    return MakeToken{[signer = std::move(signer), write = makerOf(std::move(pair->privateKey)),
                      own = std::make_shared<const VerifyingKey>(std::move(**key))](
                         const TokenPlan& plan) -> Expected<Text> {
        const Expected<Text> written = write(plan);
        Expected<Text> made = written ? signedAnew(written->view(), signer) : written.error();
        const Expected<VerifiedToken> sound =
            made ? verifiedBy(*own, made->view()) : Expected<VerifiedToken>{made.error()};
        return sound ? std::move(made) : Expected<Text>{sound.error()};
    }};
}

} // namespace detail

/** SigningKeys are the current key, with which tokens are signed, and the public keys of earlier
 *  ones, whose tokens are still good. A key's id is its thumbprint (RFC 7638).
 *
 *  Copies share one set, and a moved-from object is as it was. Any thread may call any function: a
 *  mutex guards the set, held for as long as `rotate` works on files. */
class SigningKeys
{
public:
    /** Shares the keys of the other. */
    SigningKeys(const SigningKeys&) noexcept = default;
    /** Shares the keys of the other from now on. */
    SigningKeys& operator=(const SigningKeys&) noexcept = default;
    ~SigningKeys() = default;

    /** Reads the key file `path`, and the public keys of earlier keys in the file `path` and
     *  ".retired". If, and only if, there is no key file, makes one: PrivateKey::loadOrCreate. A
     *  file that cannot be read is refused and stays as it is. */
    [[nodiscard]] static Expected<SigningKeys> loadOrCreate(std::string path)
    {
        Expected<PrivateKey> key = PrivateKey::loadOrCreate(path);
        if (!key)
        {
            return key.error();
        }
        const Expected<Retired> retired = readRetired(path);
        Expected<SigningKeys> made =
            retired ? withKey(std::move(*key), *retired) : Expected<SigningKeys>{retired.error()};
        if (made)
        {
            made->state->path = std::move(path);
        }
        return made;
    }

    /** Signs with `signer`. `retired` is the JSON Web Key Set of the keys before it, if there are
     *  any: what `jwks` gave. */
    template <Signer S>
    [[nodiscard]] static Expected<SigningKeys> of(S signer,
                                                  std::optional<std::string_view> retired = {})
    {
        const Expected<Retired> before =
            retired ? detail::publishedKeys(*retired) : Expected<Retired>{Retired{}};
        const Expected<Bytes> point = signer.publicPoint();
        const Expected<detail::PublishedKey> published =
            point ? detail::PublishedKey::of(*point) : point.error();
        if (!before || !published)
        {
            return before ? published.error() : before.error();
        }
        Expected<detail::MakeToken> make = detail::makerOf(std::move(signer), *published);
        return make ? with(*published, std::move(*make), *before) : make.error();
    }

    /** Makes a new key in the key file and signs with it from now on. The public keys of the `keep`
     *  keys before it stay good, and the private ones are gone. 0 withdraws all earlier keys, as
     *  when one has leaked.
     *
     *  Works on the files as they are: if another process has rotated, its key is the one that
     *  retires. Whatever fails, or if the power does, the files hold a key that signs and all public
     *  keys that they had. Refused by argument.empty if the keys came from `of`. Other processes that
     *  have loaded the files must load them again. */
    Expected<void> rotate(std::size_t keep = 2)
    {
        const std::lock_guard lock{state->mutex};
        if (state->path.empty())
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "path"};
        }
        const detail::LockedFolder folder{state->path};
        if (!folder.isLocked())
        {
            return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, state->path);
        }
        const Expected<detail::PublishedKey> current =
            PrivateKey::fromFile(state->path).and_then(publish);
        const Expected<Retired> retired = readRetired(state->path);
        if (!current || !retired)
        {
            return current ? retired.error() : current.error();
        }
        // A file of that name is left where a rotation was cut short; its key is as good as new.
        Expected<PrivateKey> next = PrivateKey::loadOrCreate(state->path + nextSuffix);
        if (!next)
        {
            return next.error();
        }
        Retired before = withFirst(*current, *retired, keep);
        const Expected<void> replaced = replaceFiles(before, folder);
        return replaced ? adopt(*state, std::move(*next), before) : replaced;
    }

    /** The public keys, the current one first: a JSON Web Key Set, to be published, and for
     *  VerificationKeys::replace in services that judge tokens. */
    [[nodiscard]] std::string jwks() const
    {
        const std::lock_guard lock{state->mutex};
        return state->jwks;
    }

    /** The public keys, which change with these. */
    [[nodiscard]] VerificationKeys verificationKeys() const
    {
        return state->verification;
    }

private:
    friend class TokenIssuer;

    using Retired = std::vector<detail::PublishedKey>;

    static constexpr const char* retiredSuffix = ".retired";
    static constexpr const char* nextSuffix = ".next";

    /** What signs. */
    struct Current
    {
        std::string id;
        detail::MakeToken make;
    };

    struct State
    {
        explicit State(const VerificationKeys& keys) : verification{keys}
        {
        }

        std::mutex mutex;
        std::string path;
        std::shared_ptr<const Current> current;
        std::string jwks;
        VerificationKeys verification;
    };

    explicit SigningKeys(std::shared_ptr<State> shared) noexcept : state{std::move(shared)}
    {
    }

    [[nodiscard]] static Expected<detail::PublishedKey> publish(const PrivateKey& key)
    {
        return detail::PublishedKey::of(key);
    }

    /** `first`, and those of `others` that are not it; `count` at most. */
    [[nodiscard]] static Retired withFirst(const detail::PublishedKey& first, const Retired& others,
                                           std::size_t count)
    {
        Retired keys{first};
        for (const detail::PublishedKey& other : others)
        {
            if (other.id != first.id)
            {
                keys.push_back(other);
            }
        }
        keys.resize(std::min(count, keys.size()));
        return keys;
    }

    [[nodiscard]] static Expected<Retired> readRetired(const std::string& path)
    {
        const Expected<std::optional<std::string>> text =
            detail::readFileIfThere(path + retiredSuffix);
        if (!text)
        {
            return text.error();
        }
        return *text ? detail::publishedKeys(**text) : Retired{};
    }

    /** Writes the retired keys before the key that makes the current one retire. */
    [[nodiscard]] Expected<void> replaceFiles(const Retired& retired,
                                              const detail::LockedFolder& folder) const
    {
        const std::string retiredPath = state->path + retiredSuffix;
        const std::string nextPath = state->path + nextSuffix;
        const Expected<void> written =
            retired.empty() ? detail::removeFile(retiredPath)
                            : detail::replaceFile(retiredPath, detail::jwksOf(retired));
        if (!written)
        {
            return written;
        }
        if (!folder.sync() || std::rename(nextPath.c_str(), state->path.c_str()) != 0 ||
            !folder.sync())
        {
            return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, state->path);
        }
        return {};
    }

    /** Signs by `make` from now on, and verifies by `published` and `retired`. */
    [[nodiscard]] static Expected<SigningKeys> with(const detail::PublishedKey& published,
                                                    detail::MakeToken make, const Retired& retired)
    {
        std::string jwks = detail::jwksOf(withFirst(published, retired, retired.size() + 1));
        Expected<VerificationKeys> keys = VerificationKeys::of(jwks);
        if (!keys)
        {
            return keys.error();
        }
        auto state = std::make_shared<State>(*keys);
        state->current = std::make_shared<const Current>(Current{published.id, std::move(make)});
        state->jwks = std::move(jwks);
        return SigningKeys{std::move(state)};
    }

    /** The same for a key of a file. */
    [[nodiscard]] static Expected<SigningKeys> withKey(PrivateKey key, const Retired& retired)
    {
        const Expected<detail::PublishedKey> published = publish(key);
        return published ? with(*published, detail::makerOf(std::move(key)), retired)
                         : published.error();
    }

    /** Goes on with `key`. */
    [[nodiscard]] static Expected<void> adopt(State& state, PrivateKey key, const Retired& retired)
    {
        const Expected<SigningKeys> made = withKey(std::move(key), retired);
        if (!made)
        {
            return made.error();
        }
        state.current = made->state->current;
        state.jwks = made->state->jwks;
        return state.verification.replace(state.jwks);
    }

    /** The key that signs now. */
    [[nodiscard]] std::shared_ptr<const Current> current() const
    {
        const std::lock_guard lock{state->mutex};
        return state->current;
    }

    std::shared_ptr<State> state;
};

} // namespace v1
} // namespace bmcoauth
