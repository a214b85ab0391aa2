// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The keys with which a service signs its tokens. */

#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/key_file.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/service/digest.hpp>
#include <bmcoauth/service/verification_keys.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <concepts>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

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

/** How a key makes a token of a plan. */
using MakeToken = std::function<Expected<Text>(const TokenPlan&)>;

/** Refuses a "kid" that is not plain ASCII: it is written into documents as it is. */
[[nodiscard]] inline Expected<void> requirePlain(std::string_view keyId)
{
    const bool isPlain = std::ranges::all_of(keyId, [](char character) {
        return character > ' ' && character <= '~' && character != '"' && character != '\\';
    });
    return isPlain && !keyId.empty() && keyId.size() <= 255
               ? Expected<void>{}
               : Error{BMCOAUTH_RULE_POLICY_KEY_ID, "keyId"};
}

/** The ES256 key with this uncompressed point of P-256. Its "kid" is `keyId`, or its thumbprint
 *  (RFC 7638). */
[[nodiscard]] inline Expected<KeySet> published(const Bytes& point,
                                                const std::optional<std::string_view>& keyId)
{
    if (point.span().size() != 65 || point.span().front() != 4)
    {
        return Error{BMCOAUTH_RULE_KEY_POINT, "publicPoint"};
    }
    const Expected<Text> x = base64Url(point.span().subspan(1, 32));
    const Expected<Text> y = base64Url(point.span().subspan(33));
    if (const Expected<void> all = allOf(x, y); !all)
    {
        return all.error();
    }
    Expected<Document> key = Document::parse("{}");
    const auto set = [&key](std::string_view name, std::string_view value) {
        return key.and_then([&](Document& document) { return document.setString(name, value); });
    };
    const Expected<void> wanted =
        allOf(set("crv", "P-256"), set("kty", "EC"), set("x", *x), set("y", *y));
    if (!wanted)
    {
        return wanted.error();
    }
    const Expected<void> plain = keyId ? requirePlain(*keyId) : Expected<void>{};
    const Expected<Text> id = keyId ? Text::copy(*keyId) : base64Url(sha256(key->view()));
    if (const Expected<void> all = allOf(plain, id); !all)
    {
        return all.error();
    }
    const Expected<void> whole = allOf(set("alg", "ES256"), set("kid", *id), set("use", "sig"));
    return whole ? importOwnKeys(R"({"keys":[)" + std::string{key->view()} + "]}") : whole.error();
}

/** The public key of a key in the process. */
[[nodiscard]] inline Expected<KeySet> publicKeyOf(const PrivateKey& key)
{
    return publicPointOf(key).and_then([](const Bytes& point) { return published(point, {}); });
}

/** The JSON Web Key Set of `first` and those of `others` that are not it, of `count` keys at most. */
[[nodiscard]] inline std::string jwksOf(const VerifyingKey& first, const KeySet& others,
                                        std::size_t count)
{
    std::string text = R"({"keys":[)" + first.text;
    for (const VerifyingKey& key : others)
    {
        if (key.text != first.text && count > 1)
        {
            --count;
            text.append(1, ',').append(key.text);
        }
    }
    return text += "]}";
}

/** Makes tokens with a key in the process. */
[[nodiscard]] inline MakeToken makerOf(PrivateKey key)
{
    return [key = std::make_shared<const PrivateKey>(std::move(key))](const TokenPlan& plan) {
        return issueToken(plan, *key);
    };
}

/** `written` with the signature of `signer`, whose key is `own`, instead of its own. It is verified
 *  before it is given: a signature that a fault has spoiled can give the key away. */
template <Signer S>
[[nodiscard]] Expected<Text> signedAnew(const Text& written, const S& signer,
                                        const VerifyingKey& own)
{
    std::string token{written.view().substr(0, written.view().rfind('.'))};
    const Expected<Bytes> der = signer.sign(sha256(token));
    const Expected<Text> signature = der ? base64Url(*der) : der.error();
    if (!signature)
    {
        return signature.error();
    }
    token.append(1, '.').append(signature->view());
    return verifiedBy(own, token).and_then([&token](const VerifiedToken& /*sound*/) {
        return Text::copy(token);
    });
}

/** Gives the file `path` the contents `text`, or removes it if that is empty: it has the old ones or
 *  the new ones at every moment, and the new ones for good once its folder is synchronized. */
[[nodiscard]] inline Expected<void> replaceFile(const std::string& path, std::string_view text)
{
    if (text.empty() && (::unlink(path.c_str()) == 0 || errno == ENOENT))
    {
        return {};
    }
    std::string temporary = path + ".XXXXXX";
    const Descriptor file{text.empty() ? -1 : ::mkostemp(temporary.data(), O_CLOEXEC)};
    // A short write gives no reason.
    errno = file.isOpen() ? ENOSPC : errno;
    const bool isDone =
        file.isOpen() &&
        ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
        file.sync() && std::rename(temporary.c_str(), path.c_str()) == 0;
    const Error error = Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
    if (file.isOpen() && !isDone)
    {
        ::unlink(temporary.c_str());
    }
    return isDone ? Expected<void>{} : error;
}

/** The keys in the file `path`, none if there is no file. */
[[nodiscard]] inline Expected<KeySet> readKeysIfThere(const std::string& path)
{
    std::string text(65536, '\0');
    const Descriptor file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    const ssize_t size = file.isOpen() ? ::read(file.get(), text.data(), text.size()) : -1;
    if (size < 0)
    {
        return errno == ENOENT ? Expected<KeySet>{KeySet{}}
                               : Error::ofFile(BMCOAUTH_RULE_FILE_UNREADABLE, path);
    }
    text.resize(static_cast<std::size_t>(size));
    return importOwnKeys(text);
}

} // namespace detail

/** SigningKeys are the current key, with which tokens are signed, and the public keys of earlier
 *  ones, whose tokens are still good. A key's id is its thumbprint (RFC 7638), unless a signer brings
 *  another.
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
        const Expected<detail::KeySet> retired = detail::readKeysIfThere(path + ".retired");
        const Expected<void> all = allOf(key, retired);
        return all ? with(*std::move(key), *retired, std::move(path)) : all.error();
    }

    /** Signs with `signer`. `retired` is the JSON Web Key Set of the keys before it, if there are
     *  any: what `jwks` gave. `keyId` is the key's "kid" instead of its thumbprint: up to 255
     *  printable ASCII characters without space, quote and backslash, and not that of a retired key. */
    template <Signer S>
    [[nodiscard]] static Expected<SigningKeys> of(S signer,
                                                  std::optional<std::string_view> retired = {},
                                                  std::optional<std::string_view> keyId = {})
    {
        const Expected<detail::KeySet> before =
            retired ? detail::importOwnKeys(*retired) : detail::KeySet{};
        Expected<detail::KeySet> key = signer.publicPoint().and_then(
            [&keyId](const Bytes& point) { return detail::published(point, keyId); });
        Expected<KeyPair> writer = KeyPair::generate();
        if (const Expected<void> all = allOf(before, key, writer); !all)
        {
            return all.error();
        }
        // The library signs what it writes, with a key that verifies nothing.
        const auto own = std::make_shared<const detail::KeySet>(*std::move(key));
        return with(
            [signer = std::move(signer), own,
             write = detail::makerOf(std::move(writer->privateKey))](const TokenPlan& plan) {
                return write(plan).and_then([&](const Text& written) {
                    return detail::signedAnew(written, signer, own->front());
                });
            },
            own->front(), *before);
    }

    /** Makes a new key in the key file and signs with it from now on. The public keys of the `keep`
     *  keys before it, 100 at most, stay good, and the private ones are gone. 0 withdraws all
     *  earlier keys, as when one has leaked.
     *
     *  Works on the files as they are: if another process has rotated, its key is the one that
     *  retires. Whatever fails, or if the power does, the files hold a key that signs and all public
     *  keys that they had but those not to be kept. Refused by argument.empty if the keys came from
     *  `of`. Other processes that have loaded the files must load them again. */
    Expected<void> rotate(std::size_t keep = 2)
    {
        const std::lock_guard lock{state->mutex};
        const std::string& path = state->path;
        if (path.empty() || keep > 100)
        {
            return path.empty() ? Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "path"}
                                : Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "keep"};
        }
        const std::string folderName = path.substr(0, path.rfind('/') + 1) + ".";
        const detail::Descriptor folder{
            ::open(folderName.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
        // Against other processes that rotate.
        if (!folder.isOpen() || ::flock(folder.get(), LOCK_EX) != 0)
        {
            return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
        }
        return rotated(path, keep, folder).and_then([this](const SigningKeys& next) {
            state->current = next.state->current;
            return verification.replace(state->current->jwks);
        });
    }

    /** The public keys, the current one first: a JSON Web Key Set, to be published, and for
     *  VerificationKeys::replace in services that judge tokens. */
    [[nodiscard]] std::string jwks() const
    {
        return current()->jwks;
    }

    /** The public keys, which change with these. */
    [[nodiscard]] VerificationKeys verificationKeys() const
    {
        return verification;
    }

private:
    friend class TokenIssuer;

    /** What signs, and what is published. */
    struct Current
    {
        std::string id;
        detail::MakeToken make;
        std::string jwks;
    };
    struct State
    {
        std::mutex mutex;
        std::string path;
        std::shared_ptr<const Current> current;
    };

    SigningKeys(const VerificationKeys& keys, Current current, std::string path)
        : verification{keys}, state{std::make_shared<State>()}
    {
        state->path = std::move(path);
        state->current = std::make_shared<const Current>(std::move(current));
    }

    /** Signs by `make`, and verifies by `key` and by those of `retired` that are not it. */
    [[nodiscard]] static Expected<SigningKeys> with(detail::MakeToken make,
                                                    const detail::VerifyingKey& key,
                                                    const detail::KeySet& retired,
                                                    std::string path = {})
    {
        std::string jwks = detail::jwksOf(key, retired, retired.size() + 1);
        return VerificationKeys::of(jwks).transform([&](const VerificationKeys& keys) {
            return SigningKeys{keys, {key.id, std::move(make), std::move(jwks)}, std::move(path)};
        });
    }
    /** The same for the key of the file `path`. */
    [[nodiscard]] static Expected<SigningKeys> with(PrivateKey key, const detail::KeySet& retired,
                                                    std::string path)
    {
        const Expected<detail::KeySet> own = detail::publicKeyOf(key);
        return own ? with(detail::makerOf(std::move(key)), own->front(), retired, std::move(path))
                   : own.error();
    }

    /** Makes a new key in the locked `folder`, and the present one the first of `keep` retired ones. */
    [[nodiscard]] static Expected<SigningKeys> rotated(const std::string& path, std::size_t keep,
                                                       const detail::Descriptor& folder)
    {
        const std::string retiredPath = path + ".retired";
        const std::string nextPath = path + ".next";
        const Expected<detail::KeySet> current =
            PrivateKey::fromFile(path).and_then(detail::publicKeyOf);
        const Expected<detail::KeySet> retired = detail::readKeysIfThere(retiredPath);
        if (const Expected<void> all = allOf(current, retired); !all)
        {
            return all.error();
        }
        // A file of that name is left where a rotation was cut short; its key is as good as new.
        Expected<PrivateKey> key = PrivateKey::loadOrCreate(nextPath);
        const std::string before = detail::jwksOf(current->front(), *retired, keep);
        // The retired keys are there before the key that makes the present one retire.
        const Expected<detail::KeySet> kept =
            allOf(key)
                .and_then([&] { return detail::replaceFile(retiredPath, keep > 0 ? before : ""); })
                .and_then([&] { return detail::readKeysIfThere(retiredPath); });
        Expected<SigningKeys> made = kept ? with(*std::move(key), *kept, path) : kept.error();
        if (made &&
            (!folder.sync() || std::rename(nextPath.c_str(), path.c_str()) != 0 || !folder.sync()))
        {
            return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
        }
        return made;
    }

    /** The key that signs now. */
    [[nodiscard]] std::shared_ptr<const Current> current() const
    {
        const std::lock_guard lock{state->mutex};
        return state->current;
    }

    VerificationKeys verification;
    std::shared_ptr<State> state;
};

} // namespace v1
} // namespace bmcoauth
