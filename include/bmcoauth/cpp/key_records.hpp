// SPDX-License-Identifier: Apache-2.0
#pragma once

/* JSON Web Keys as records, over <bmcoauth/jwk.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/owners.hpp>
#include <bmcoauth/cpp/text.hpp>
#include <bmcoauth/jwk.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

namespace bmcoauth
{
inline namespace v1
{

/** KeyView looks at a JSON Web Key as name/value pairs, which must outlive it. */
class KeyView
{
public:
    /** Looks at a key of <bmcoauth.h>; null has no members. */
    explicit KeyView(jwk* record = nullptr) noexcept : first{record}
    {
    }

    /** The text of the first member of this name; it lives as long as the key. */
    [[nodiscard]] std::optional<std::string_view> member(std::string_view name) const noexcept
    {
        detail::Arguments in;
        const char* const nameText = in.text("name", name);
        return in.failed() ? std::nullopt : detail::textOrNone(::jwk_key_value(first, nameText));
    }
    /** The bytes of a shared secret: decode_dfs_jwk. */
    [[nodiscard]] Expected<Bytes> secret() const
    {
        int length = 0;
        unsigned char* const bytes = ::decode_dfs_jwk(first, &length);
        if (bytes == nullptr)
        {
            return Error::last();
        }
        return Bytes{bytes, static_cast<std::size_t>(length)};
    }

private:
    jwk* first;
};

/** KeyRecord owns a JSON Web Key as name/value pairs. */
class KeyRecord
{
public:
    /** Takes over what a function of <bmcoauth.h> gave. */
    explicit KeyRecord(jwk* record = nullptr) noexcept : owned{record}
    {
    }

    /** The key that the JSON text `text` holds: oauth2_parse_jwk. */
    [[nodiscard]] static Expected<KeyRecord> parse(std::string_view text)
    {
        return detail::made<KeyRecord>(::oauth2_parse_jwk, {{"text", text}});
    }
    /** A key of the type "DFS" that holds a shared secret: encode_dfs_jwk. */
    [[nodiscard]] static Expected<KeyRecord> sharedSecret(ByteSpan secret)
    {
        detail::Arguments in;
        const int length = in.length<int>("secret", secret.size());
        if (in.failed())
        {
            return in.failure();
        }
        return detail::ownedOrRefused<KeyRecord>(::encode_dfs_jwk(addressOf(secret), length));
    }
    /** A key that holds `data` in its member `member`: encode_cert_jwk. */
    [[nodiscard]] static Expected<KeyRecord> of(std::string_view type,
                                                std::optional<std::string_view> keyId,
                                                std::string_view member, ByteSpan data)
    {
        detail::Arguments in;
        const char* const typeText = in.text("type", type);
        const char* const keyIdText = in.maybe("keyId", keyId);
        const char* const memberText = in.text("member", member);
        const int length = in.length<int>("data", data.size());
        if (in.failed())
        {
            return in.failure();
        }
        return detail::ownedOrRefused<KeyRecord>(
            ::encode_cert_jwk(typeText, keyIdText, memberText, addressOf(data), length));
    }

    /** The text of the first member of this name; it lives as long as the record. */
    [[nodiscard]] std::optional<std::string_view>
    member(std::string_view name) const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return KeyView{owned.get()}.member(name);
    }
    /** The bytes of a shared secret: decode_dfs_jwk. */
    [[nodiscard]] Expected<Bytes> secret() const
    {
        return KeyView{owned.get()}.secret();
    }

    /** The first pair, for functions of <bmcoauth.h>; null if there is none. It stays here. */
    [[nodiscard]] jwk* get() const noexcept BMCOAUTH_LIFETIMEBOUND
    {
        return owned.get();
    }

private:
    struct Release
    {
        void operator()(jwk* record) const noexcept
        {
            ::free_jwk(&record);
        }
    };

    [[nodiscard]] static const unsigned char* addressOf(ByteSpan bytes) noexcept
    {
        static constexpr unsigned char none = 0;
        return bytes.empty() ? &none : bytes.data();
    }

    std::unique_ptr<jwk, Release> owned;
};

/** KeyList owns a list of keys. */
class KeyList : public detail::Owned<jwk*, free_jwk_list>
{
public:
    using Owned::Owned;

    /** Copies of these keys, of each the members before the first that is not a string:
     *  set_jwk_list. */
    [[nodiscard]] static Expected<KeyList> of(std::span<const KeyRecord> keys)
    {
        detail::Arguments in;
        jwk** const list = in.array<jwk*>("keys", keys.size());
        if (in.failed())
        {
            return in.failure();
        }
        for (std::size_t i = 0; i < keys.size(); ++i)
        {
            list[i] = keys[i].get();
        }
        return detail::ownedOrRefused<KeyList>(::set_jwk_list(list));
    }
};

} // namespace v1
} // namespace bmcoauth
