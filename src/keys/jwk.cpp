// SPDX-License-Identifier: Apache-2.0
#include "keys/jwk.hpp"

#include "common/guard.hpp"
#include "common/pair_list.hpp"
#include "common/parameter_list.hpp"
#include "crypto/base64.hpp"
#include "crypto/openssl.hpp"

#include <bmcoauth/support.h>

namespace bmcoauth::internal::keys
{

namespace
{

constexpr std::size_t dfsPairs = 2;

KeyRecord copyKey(const jwk* record) noexcept
{
    if (countPairs(record) == 0)
    {
        return refuse(BMCOAUTH_RULE_JWK_EMPTY);
    }
    return copyPairs<KeyRecord>(record);
}

/** A list of what @p copyOne makes of each record; null when there is none or one has no copy. */
template <typename List, typename Record, typename CopyOne>
List copyList(Record* const* list, CopyOne copyOne) noexcept
{
    std::size_t count = 0;
    while (list != nullptr && list[count] != nullptr)
    {
        ++count;
    }
    if (count == 0)
    {
        return refuse(BMCOAUTH_RULE_DOCUMENT_EMPTY);
    }
    List copy{zeroedBlock<typename List::element_type>(count + 1).release()};
    for (std::size_t i = 0; copy && i < count; ++i)
    {
        copy.get()[i] = copyOne(list[i]).release();
        if (copy.get()[i] == nullptr)
        {
            return refused().at(i);
        }
    }
    return copy;
}

/** The fail-fast wrappers, on behalf of the one function here whose callers count on them. */
char* failFastCopy(const char* text)
{
    return o2_ff_strdup(text, "encode_cert_jwk", 192);
}

/** What both encoders do, the check of their arguments included. */
jwk* encodeKey(const char* kty, const char* kid, const char* member, const unsigned char* data,
               int length) noexcept
{
    if (refusesNull("kty member data", kty, member, data))
    {
        return refused();
    }
    if (length < 0)
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "length");
    }
    const ErrnoKeeper keeper;
    // The bytes may be a secret.
    const SecretText text =
        secretText(crypto::encodeBase64(asText({data, static_cast<std::size_t>(length)})));
    if (!text)
    {
        publishRefusal();
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

/** The text of the "dfs" pair among the first two; null when there is none, or when "kty" names
 *  another type of key. */
const char* dfsText(const jwk* record) noexcept
{
    const char* text = nullptr;
    for (std::size_t i = 0; i < dfsPairs && record[i].key != nullptr; ++i)
    {
        const std::string_view key = record[i].key;
        const std::string_view value = record[i].value == nullptr ? "" : record[i].value;
        if (key == "kty" && value != "DFS")
        {
            return refuse(BMCOAUTH_RULE_JWK_KIND).about("kty").saw(value).wanted("DFS");
        }
        if (key == "dfs")
        {
            text = record[i].value;
            if (text == nullptr)
            {
                break;
            }
        }
    }
    if (text == nullptr)
    {
        return refuse(BMCOAUTH_RULE_JWK_MEMBER).about("dfs");
    }
    return text;
}

std::optional<crypto::DecodedBytes> dfsBytes(const jwk* record)
{
    const char* const text = dfsText(record);
    if (text == nullptr)
    {
        return std::nullopt;
    }
    std::optional<crypto::DecodedBytes> bytes = crypto::decodeEitherBase64(text);
    if (!bytes)
    {
        return refused().within("dfs");
    }
    return bytes;
}

} // namespace

char* findValue(const jwk* record, std::string_view name) noexcept
{
    for (const jwk* pair = record; pair->key != nullptr; ++pair)
    {
        if (name == pair->key)
        {
            return pair->value;
        }
    }
    return nullptr;
}

KeyList copyKeys(const jwk* const* list) noexcept
{
    return copyList<KeyList>(list, copyKey);
}

CertificateKeyList copyCertificateKeys(const HandshakePayload* const* list) noexcept
{
    return copyList<CertificateKeyList>(list, copyParameters);
}

} // namespace bmcoauth::internal::keys

using namespace bmcoauth::internal;

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
    if (refusesNull("list", list))
    {
        return refused();
    }
    return guardedMemory([=] { return keys::copyKeys(list).release(); });
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
    if (refusesNull("list", list))
    {
        return refused();
    }
    return guardedMemory([=] { return keys::copyCertificateKeys(list).release(); });
}

extern "C" jwk* encode_cert_jwk(const char* kty, const char* kid, const char* member,
                                const unsigned char* data, int length)
{
    return keys::encodeKey(kty, kid, member, data, length);
}

extern "C" jwk* encode_dfs_jwk(const unsigned char* data, int length)
{
    return keys::encodeKey("DFS", nullptr, "dfs", data, length);
}

extern "C" char* jwk_key_value(jwk* record, const char* key)
{
    if (refusesNull("record key", record, key))
    {
        return refused();
    }
    char* const value = keys::findValue(record, key);
    return value != nullptr ? value : refuseCall(BMCOAUTH_RULE_JWK_MEMBER, key);
}

extern "C" unsigned char* decode_dfs_jwk(jwk* record, int* length)
{
    if (refusesNull("record length", record, length))
    {
        return refused();
    }
    return crypto::guardedCrypto([=]() -> unsigned char* {
        std::optional<crypto::DecodedBytes> bytes = keys::dfsBytes(record);
        if (!bytes)
        {
            return nullptr;
        }
        *length = bytes->size;
        return bytes->data.release();
    });
}
