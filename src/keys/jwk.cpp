// SPDX-License-Identifier: Apache-2.0
#include "keys/jwk.hpp"

#include "common/guard.hpp"
#include "common/pair_list.hpp"
#include "crypto/base64.hpp"
#include "crypto/openssl.hpp"

#include <bmcoauth/support.h>

#include <string_view>

using namespace bmcoauth;
using namespace bmcoauth::keys;

namespace
{

constexpr std::size_t dfsPairs = 2;

template <typename Record>
std::size_t countRecords(Record* const* list) noexcept
{
    std::size_t count = 0;
    while (list != nullptr && list[count] != nullptr)
    {
        ++count;
    }
    return count;
}

KeyRecord copyKey(const jwk* record) noexcept
{
    return countPairs(record) == 0 ? nullptr : copyPairs<KeyRecord>(record);
}

/** A list of what @p copyOne makes of each record; null when there is none or one has no copy. */
template <typename List, typename CopyOne>
List copyList(typename List::element_type const* list, CopyOne copyOne) noexcept
{
    const std::size_t count = countRecords(list);
    if (count == 0)
    {
        return nullptr;
    }
    List copy{zeroedBlock<typename List::element_type>(count + 1).release()};
    for (std::size_t i = 0; copy && i < count; ++i)
    {
        copy.get()[i] = copyOne(list[i]);
        if (copy.get()[i] == nullptr)
        {
            return nullptr;
        }
    }
    return copy;
}

/** The fail-fast wrappers, on behalf of the one function here whose callers count on them. */
char* failFastCopy(const char* text)
{
    return o2_ff_strdup(text, "encode_cert_jwk", 192);
}

/** The text of the "dfs" pair among the first two; null when there is none, or when "kty" names
 *  another type of key. */
const char* dfsText(const jwk* record) noexcept
{
    const char* text = nullptr;
    for (std::size_t i = 0; i < dfsPairs && record[i].key != nullptr; ++i)
    {
        const std::string_view key = record[i].key;
        const char* value = record[i].value;
        if (key == "kty" && (value == nullptr || std::string_view{value} != "DFS"))
        {
            return nullptr;
        }
        if (key == "dfs")
        {
            if (value == nullptr)
            {
                return nullptr;
            }
            text = value;
        }
    }
    return text;
}

} // namespace

extern "C" void free_jwk(jwk** record)
{
    if (record == nullptr || *record == nullptr)
    {
        return;
    }
    for (jwk* pair = *record; pair->key != nullptr; ++pair)
    {
        std::free(pair->key);
        releaseSecret(pair->value);
        *pair = {};
    }
    std::free(*record);
    *record = nullptr;
}

extern "C" void free_jwk_list(jwk** list)
{
    if (list == nullptr)
    {
        return;
    }
    for (jwk** record = list; *record != nullptr; ++record)
    {
        const std::size_t count = countPairs(*record);
        for (std::size_t i = 0; i < count; ++i)
        {
            std::free((*record)[i].key);
            releaseSecret((*record)[i].value);
        }
        std::free(*record);
    }
    std::free(list);
}

extern "C" jwk** set_jwk_list(jwk** list)
{
    const ErrnoKeeper keeper;
    return copyList<KeyList>(list, [](const jwk* record) { return copyKey(record).release(); })
        .release();
}

extern "C" void free_jwk_certs(HandshakePayload** list)
{
    if (list == nullptr)
    {
        return;
    }
    for (HandshakePayload** record = list; *record != nullptr; ++record)
    {
        free_handshake_payload(*record);
    }
    std::free(list);
}

extern "C" HandshakePayload** set_jwk_certs(HandshakePayload** list)
{
    const ErrnoKeeper keeper;
    return copyList<CertificateKeyList>(list, set_handshake_payload).release();
}

extern "C" jwk* encode_cert_jwk(const char* kty, const char* kid, const char* member,
                                const unsigned char* data, int length)
{
    if (kty == nullptr || member == nullptr || data == nullptr || length < 0)
    {
        return nullptr;
    }
    const ErrnoKeeper keeper;
    // What is kept so may be a secret.
    const SecretText text = secretText(crypto::encodeBase64(
        {reinterpret_cast<const char*>(data), static_cast<std::size_t>(length)}));
    if (!text)
    {
        return nullptr;
    }
    const std::size_t pairs = kid == nullptr ? dfsPairs : dfsPairs + 1;
    auto* record = static_cast<jwk*>(o2_ff_calloc(pairs + 1, sizeof(jwk), "encode_cert_jwk", 192));
    record[0] = {failFastCopy("kty"), failFastCopy(kty)};
    record[1] = {failFastCopy(member), failFastCopy(text.get())};
    if (kid != nullptr)
    {
        record[2] = {failFastCopy("kid"), failFastCopy(kid)};
    }
    return record;
}

extern "C" jwk* encode_dfs_jwk(const unsigned char* data, int length)
{
    return encode_cert_jwk("DFS", nullptr, "dfs", data, length);
}

extern "C" char* jwk_key_value(jwk* record, const char* key)
{
    if (record == nullptr || key == nullptr)
    {
        return nullptr;
    }
    const std::string_view wanted = key;
    for (const jwk* pair = record; pair->key != nullptr; ++pair)
    {
        if (wanted == pair->key)
        {
            return pair->value;
        }
    }
    return nullptr;
}

extern "C" unsigned char* decode_dfs_jwk(jwk* record, int* length)
{
    const char* text = record == nullptr ? nullptr : dfsText(record);
    if (text == nullptr || length == nullptr)
    {
        return nullptr;
    }
    return crypto::guardedCrypto(nullptr, [&]() -> unsigned char* {
        std::optional<crypto::DecodedBytes> bytes = crypto::decodeEitherBase64(text);
        if (!bytes)
        {
            return nullptr;
        }
        *length = bytes->size;
        return bytes->data.release();
    });
}
