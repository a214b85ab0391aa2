// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The keys with which a service signs its tokens, and the issuing of these. */

#include <bmcoauth/cpp/document.hpp>
#include <bmcoauth/cpp/encoding.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/key_file.hpp>
#include <bmcoauth/cpp/keys.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/service/common.hpp>
#include <bmcoauth/service/judging.hpp>
#include <bmcoauth/service/verification_keys.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
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
 *  PKCS #11, in a provider of OpenSSL. Several threads may call `sign` at the same time.
 *
 *  | function | returns |
 *  |---|---|
 *  | sign(digest) | the ECDSA signature of a SHA-256 digest, in DER |
 *  | publicPoint() | the public point, uncompressed (SEC 1, section 2.3.3) | */
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

/** Makes the token of a plan. */
using MakeToken = std::function<Expected<Text>(const TokenPlan&)>;

/** The ES256 key with this public point. Its "kid" is `keyId`, or its thumbprint (RFC 7638). */
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
    const std::string numbers = R"("kty":"EC","x":")" + std::string{x->view()} + R"(","y":")" +
                                std::string{y->view()} + R"("})";
    const Expected<Text> id =
        keyId ? Text::copy(*keyId) : base64Url(sha256(R"({"crv":"P-256",)" + numbers));
    // The id is written into documents as it is.
    const bool isPlain =
        id && !id->view().empty() && id->view().size() <= 255 &&
        std::ranges::all_of(id->view(), [](char character) {
            return character > ' ' && character <= '~' && character != '"' && character != '\\';
        });
    if (!isPlain)
    {
        return id || keyId ? Error{BMCOAUTH_RULE_POLICY_KEY_ID, "keyId"} : id.error();
    }
    return importOwnKeys(R"({"keys":[{"alg":"ES256","crv":"P-256","use":"sig","kid":")" +
                         std::string{id->view()} + "\"," + numbers + "]}");
}

/** The public key of a key in the process. */
[[nodiscard]] inline Expected<KeySet> publicKeyOf(const PrivateKey& key)
{
    return publicPointOf(key).and_then([](const Bytes& point) { return published(point, {}); });
}

/** The JSON Web Key Set of `first` and of up to `most` of those of `others` that are not it. */
[[nodiscard]] inline std::string jwksOf(const VerifyingKey& first, const KeySet& others,
                                        std::size_t most)
{
    std::string text = R"({"keys":[)" + first.text;
    for (const VerifyingKey& key : others)
    {
        if (key.text != first.text && most > 0)
        {
            --most;
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

/** `written` with the signature of `signer`, whose key is `own`, in place of its own. The signature is
 *  verified first: one that a fault has spoiled can give the key away. */
template <Signer S>
[[nodiscard]] Expected<Text> signedAnew(const Text& written, const S& signer,
                                        const VerifyingKey& own)
{
    std::string token{written.view().substr(0, written.view().rfind('.'))};
    const Expected<Text> signature =
        signer.sign(sha256(token)).and_then([](const Bytes& der) { return base64Url(der); });
    if (!signature)
    {
        return signature.error();
    }
    token.append(1, '.').append(signature->view());
    return verifiedBy(own, token).and_then([&token](const VerifiedToken& /*sound*/) {
        return Text::copy(token);
    });
}

/** Gives the file `path` the contents `text`, or removes it if that is empty. At every moment the file
 *  has the old contents or the new ones. The caller synchronizes the folder. */
[[nodiscard]] inline Expected<void> replaceFile(const std::string& path, std::string_view text)
{
    if (text.empty() && (::unlink(path.c_str()) == 0 || errno == ENOENT))
    {
        return {};
    }
    std::string temporary = path + ".XXXXXX";
    const Descriptor file{text.empty() ? -1 : ::mkostemp(temporary.data(), O_CLOEXEC)};
    // A short write sets no errno.
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

/** The keys in the file `path`; none if there is no file. */
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

/** SigningKeys are the current key, which signs tokens, and the public keys of earlier ones, whose
 *  tokens are still valid. A key's id is its thumbprint (RFC 7638), unless a signer brings another.
 *
 *  Copies share one set. Any thread may call any function. `rotate` holds a mutex while it works on
 *  files. */
class SigningKeys
{
public:
    /** Reads the key file `path`, and the public keys of earlier keys in the file `path`.retired. If,
     *  and only if, there is no key file, makes one: see PrivateKey::loadOrCreate. Refuses a file that
     *  cannot be read, and leaves it as it is. */
    [[nodiscard]] static Expected<SigningKeys> loadOrCreate(std::string path)
    {
        Expected<PrivateKey> key = PrivateKey::loadOrCreate(path);
        const Expected<detail::KeySet> retired = detail::readKeysIfThere(path + ".retired");
        return allOf(key, retired)
            .and_then([&] { return currentOf(*std::move(key), *retired); })
            .and_then([&](Current current) { return with(std::move(current), std::move(path)); });
    }

    /** Signs with `signer`. `retired` is what `jwks` returned for the keys before it, if there are any.
     *  `keyId` replaces the thumbprint as "kid": up to 255 printable ASCII characters without space,
     *  quote and backslash, and not that of a retired key. */
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
            {own->front().id,
             [signer = std::move(signer), own,
              write = detail::makerOf(std::move(writer->privateKey))](const TokenPlan& plan) {
                 return write(plan).and_then([&](const Text& written) {
                     return detail::signedAnew(written, signer, own->front());
                 });
             },
             detail::jwksOf(own->front(), *before, before->size())},
            {});
    }

    /** Makes a new key in the key file, and signs with it from then on. The public keys of the `keep`
     *  keys before it, at most 100, remain; the private ones are gone. 0 withdraws all earlier keys, as
     *  after a leak.
     *
     *  Reads the files first: if another process has rotated, its key is the one that retires. After
     *  a failure or a power cut, the files hold a key that signs, and no public key that was to be kept
     *  is lost. Other processes that have loaded the files must load them again. Refused by
     *  argument.empty if the keys came from `of`. */
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
        return rotated(path, keep, folder).and_then([this](Current next) {
            state->current = std::make_shared<const Current>(std::move(next));
            return verification.replace(state->current->jwks);
        });
    }

    /** The public keys, the current one first: a JSON Web Key Set, to be published, and for
     *  VerificationKeys::replace in services that judge tokens. */
    [[nodiscard]] std::string jwks() const
    {
        return current()->jwks;
    }

    /** The public keys. They change with these. */
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

    SigningKeys(VerificationKeys keys, Current current, std::string path)
        : verification{std::move(keys)}
    {
        state->path = std::move(path);
        state->current = std::make_shared<const Current>(std::move(current));
    }

    [[nodiscard]] static Expected<SigningKeys> with(Current current, std::string path)
    {
        return VerificationKeys::of(current.jwks).transform([&](const VerificationKeys& keys) {
            return SigningKeys{keys, std::move(current), std::move(path)};
        });
    }

    /** Signs with `key`, and publishes those of `retired` that are not it as well. */
    [[nodiscard]] static Expected<Current> currentOf(PrivateKey key, const detail::KeySet& retired)
    {
        return detail::publicKeyOf(key).transform([&](const detail::KeySet& own) {
            return Current{own.front().id, detail::makerOf(std::move(key)),
                           detail::jwksOf(own.front(), retired, retired.size())};
        });
    }

    /** Makes a new key in the locked `folder`, and the present one the first of `keep` retired ones. */
    [[nodiscard]] static Expected<Current> rotated(const std::string& path, std::size_t keep,
                                                   const detail::Descriptor& folder)
    {
        const std::string retiredPath = path + ".retired";
        const std::string nextPath = path + ".next";
        const Expected<detail::KeySet> present =
            PrivateKey::fromFile(path).and_then(detail::publicKeyOf);
        const Expected<detail::KeySet> before = detail::readKeysIfThere(retiredPath);
        if (const Expected<void> all = allOf(present, before); !all)
        {
            return all.error();
        }
        const std::string retired =
            keep > 0 ? detail::jwksOf(present->front(), *before, keep - 1) : "";
        // This file exists if a rotation was cut short. Its key has signed nothing yet. If all earlier
        // keys are withdrawn, it may have leaked with them.
        Expected<PrivateKey> key =
            (keep > 0 ? Expected<void>{} : detail::replaceFile(nextPath, {})).and_then([&] {
                return PrivateKey::loadOrCreate(nextPath);
            });
        // The retired keys are written before the key that retires the present one.
        Expected<Current> next =
            allOf(key)
                .and_then([&] { return detail::replaceFile(retiredPath, retired); })
                .and_then([&] { return detail::readKeysIfThere(retiredPath); })
                .and_then(
                    [&](const detail::KeySet& kept) { return currentOf(*std::move(key), kept); });
        const auto good = next.and_then(
            [](const Current& current) { return VerificationKeys::of(current.jwks); });
        if (good &&
            (!folder.sync() || std::rename(nextPath.c_str(), path.c_str()) != 0 || !folder.sync()))
        {
            return Error::ofFile(BMCOAUTH_RULE_FILE_UNWRITABLE, path);
        }
        return good ? std::move(next) : good.error();
    }

    /** The key that signs now. */
    [[nodiscard]] std::shared_ptr<const Current> current() const
    {
        const std::lock_guard lock{state->mutex};
        return state->current;
    }

    VerificationKeys verification;
    detail::Shared<State> state{std::make_shared<State>()};
};

/** An access token, and what the service keeps of it. */
struct IssuedToken
{
    /** What goes to the client. */
    Text token;
    /** The claim "jti", by which the token can be revoked. */
    std::string id;
    /** The claim "exp". */
    std::chrono::sys_seconds expiresAt;
};

/** What the tokens of an issuer have in common. */
struct TokenIssuerRules
{
    /** The claim "iss". */
    std::string issuer;
    /** Who the tokens are for: the scope entry "aud", which TokenValidator reads. */
    Expectation<std::string> audience;
    /** How long a token is valid, unless `issue` is asked for another time. */
    std::chrono::seconds lifetime = std::chrono::minutes{10};
    /** The longest lifetime that `issue` may be asked for, at most a year. */
    std::chrono::seconds longestLifetime = std::chrono::hours{1};
    /** The header's "typ". */
    std::string type = "JWT";
};

/** TokenIssuer issues tokens with the current one of its SigningKeys. A TokenValidator with the same
 *  issuer, audience, type and longest lifetime accepts all of them. Any thread may call `issue`. */
class TokenIssuer
{
public:
    /** Refuses an empty text or clock, a lifetime that is not positive or longer than the longest, and
     *  a longest lifetime above a year. */
    [[nodiscard]] static Expected<TokenIssuer> of(const SigningKeys& keys, TokenIssuerRules rules,
                                                  Clock clock)
    {
        constexpr std::chrono::hours year{24 * 366};
        const bool isInRange = rules.lifetime.count() > 0 &&
                               rules.lifetime <= rules.longestLifetime &&
                               rules.longestLifetime <= year;
        return allOf(detail::requireText("issuer", rules.issuer),
                     detail::requireText("audience", rules.audience),
                     detail::requireText("type", rules.type),
                     clock ? Expected<void>{} : Error{BMCOAUTH_RULE_ARGUMENT_EMPTY, "clock"},
                     isInRange ? Expected<void>{} : Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "lifetime"})
            .transform([&] {
                return TokenIssuer{keys, std::move(rules), std::move(clock)};
            });
    }

    /** Issues a token that gives `privileges` to `subject` for `lifetime`. Refuses a subject that is
     *  empty or not UTF-8, other bits than the nine in `privileges`, a lifetime that is not positive
     *  or longer than the longest, and a token that is too long for TokenValidator. */
    [[nodiscard]] Expected<IssuedToken>
    issue(std::string_view subject, Privileges privileges,
          std::optional<std::chrono::seconds> lifetime = {}) const
    {
        const std::chrono::seconds length = lifetime.value_or(rules.lifetime);
        if (subject.empty() || !detail::isUtf8(subject))
        {
            return Error{subject.empty() ? BMCOAUTH_RULE_ARGUMENT_EMPTY
                                         : BMCOAUTH_RULE_POLICY_ENCODING,
                         "subject"};
        }
        if ((privileges.bits() & ~Privileges::all().bits()) != 0)
        {
            return Error{BMCOAUTH_RULE_ARGUMENT_RANGE, "privileges"};
        }
        if (length.count() < 1 || length > rules.longestLifetime)
        {
            return Error{BMCOAUTH_RULE_POLICY_LIFETIME, "lifetime"};
        }
        const std::chrono::sys_seconds begin = now();
        if (begin.time_since_epoch().count() < 1)
        {
            return Error{BMCOAUTH_RULE_CLOCK_UNREADABLE};
        }
        return randomToken(16).and_then(
            [&](const Text& id) { return make(subject, privileges, id, begin, begin + length); });
    }
    /** A validator of this issuer's tokens, with its keys, rules and clock. */
    [[nodiscard]] Expected<TokenValidator> validator(Expectation<RevocationCheck> revoked) const
    {
        return TokenValidator::of(keys.verificationKeys(),
                                  {.issuer = rules.issuer,
                                   .audience = rules.audience,
                                   .longestLifetime = rules.longestLifetime,
                                   .revoked = std::move(revoked),
                                   .type = rules.type},
                                  clock);
    }
    /** The time of its clock. */
    [[nodiscard]] std::chrono::sys_seconds now() const
    {
        return clock();
    }

private:
    TokenIssuer(SigningKeys signingKeys, TokenIssuerRules issuerRules, Clock time)
        : keys{std::move(signingKeys)}, rules{std::move(issuerRules)}, clock{std::move(time)}
    {
    }

    [[nodiscard]] Expected<IssuedToken> make(std::string_view subject, Privileges privileges,
                                             const Text& id, std::chrono::sys_seconds issued,
                                             std::chrono::sys_seconds expiry) const
    {
        const std::string* const audience = rules.audience.get();
        const std::array<std::string_view, 1> audiences{
            audience == nullptr ? std::string_view{} : std::string_view{*audience}};
        const std::array<ScopeEntry, 1> scopes{
            {{.name = detail::audienceEntry, .values = audiences}}};
        const auto begin = static_cast<std::uint64_t>(issued.time_since_epoch().count());
        // One key, even if another thread rotates meanwhile.
        const std::shared_ptr<const SigningKeys::Current> key = keys.current();
        return key
            ->make({
                .subject = subject,
                .id = id,
                .issuer = rules.issuer,
                .expiresAt = static_cast<std::uint64_t>(expiry.time_since_epoch().count()),
                .issuedAt = begin,
                .notBefore = begin,
                .scopes =
                    audience == nullptr ? Borrowed<ScopeEntry>{} : Borrowed<ScopeEntry>{scopes},
                .privileges = privileges,
                .keyId = key->id,
                .type = rules.type,
            })
            .and_then([&](Text token) -> Expected<IssuedToken> {
                if (token.view().size() > detail::longestToken)
                {
                    return Error{BMCOAUTH_RULE_ARGUMENT_LENGTH, "subject"};
                }
                return IssuedToken{std::move(token), std::string{id.view()}, expiry};
            });
    }

    SigningKeys keys;
    TokenIssuerRules rules;
    Clock clock;
};

} // namespace v1
} // namespace bmcoauth
