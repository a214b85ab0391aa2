// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/records.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace support;

namespace
{

struct KeyReleaser
{
    void operator()(jwk* record) const noexcept
    {
        free_jwk(&record);
    }
};
using KeyRecord = std::unique_ptr<jwk, KeyReleaser>;

/** A pair to pass to the library; null stands for an absent text. */
using Pair = std::pair<const char*, const char*>;

/** A key to pass to the library; its texts live as long as it does. */
class LiteralKey
{
public:
    LiteralKey(std::initializer_list<Pair> list)
    {
        // The texts must not move once they are pointed at.
        kept.reserve(2 * list.size());
        for (const auto& [key, value] : list)
        {
            pairs.push_back({keep(key), keep(value)});
        }
        pairs.push_back({});
    }
    LiteralKey(const LiteralKey&) = delete;
    LiteralKey& operator=(const LiteralKey&) = delete;
    ~LiteralKey() = default;

    operator jwk*() // not explicit: it stands for the array
    {
        return pairs.data();
    }

private:
    char* keep(const char* text)
    {
        return text == nullptr ? nullptr : kept.emplace_back(text).data();
    }

    std::vector<std::string> kept;
    std::vector<jwk> pairs;
};

std::vector<std::pair<std::string, std::string>> pairsOf(const jwk* record)
{
    std::vector<std::pair<std::string, std::string>> pairs;
    for (; record != nullptr && record->key != nullptr; ++record)
    {
        pairs.emplace_back(record->key, orNull(record->value));
    }
    return pairs;
}

using Pairs = std::vector<std::pair<std::string, std::string>>;

const unsigned char* bytes(const char* text)
{
    return reinterpret_cast<const unsigned char*>(text);
}

/** decode_dfs_jwk with the length it stored, or its rule with the length untouched. */
std::string decoded(jwk* record)
{
    int length = -7;
    HeapBytes data;
    std::string rule = ruleOf([&] {
        data.reset(decode_dfs_jwk(record, &length));
        return data.get();
    });
    if (!data)
    {
        EXPECT_EQ(length, -7);
        return rule;
    }
    EXPECT_EQ(data.get()[length], 0);
    return {reinterpret_cast<const char*>(data.get()), static_cast<std::size_t>(length)};
}

TEST(EncodeCertJwk, HoldsTypeMemberAndKeyIdInThisOrder)
{
    const KeyRecord record{encode_cert_jwk("EC", "key-1", "x5c", bytes("abcd"), 4)};
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(pairsOf(record.get()), (Pairs{{"kty", "EC"}, {"x5c", "YWJjZA=="}, {"kid", "key-1"}}));
}

TEST(EncodeCertJwk, WithoutKeyIdHasTwoPairsAndAnEnd)
{
    const KeyRecord record{encode_cert_jwk("EC", nullptr, "x5c", bytes("\xff"), 1)};
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(pairsOf(record.get()), (Pairs{{"kty", "EC"}, {"x5c", "/w=="}}));
}

TEST(EncodeCertJwk, TakesZeroBytesAndEmptyTexts)
{
    const KeyRecord record{encode_cert_jwk("", "", "", bytes("\0\0\0"), 3)};
    EXPECT_EQ(pairsOf(record.get()), (Pairs{{"kty", ""}, {"", "AAAA"}, {"kid", ""}}));
}

TEST(EncodeCertJwk, WritesNoBytesAsAnEmptyText)
{
    const KeyRecord record{encode_cert_jwk("EC", nullptr, "x5c", bytes("abc"), 0)};
    EXPECT_EQ(pairsOf(record.get()), (Pairs{{"kty", "EC"}, {"x5c", ""}}));
}

TEST(EncodeCertJwk, GivesNullWithoutTypeMemberOrData)
{
    const KeyRecord whole{encode_cert_jwk("EC", nullptr, "x5c", bytes("abc"), 3)};
    EXPECT_NE(whole, nullptr);
    EXPECT_REFUSED("argument.null", encode_cert_jwk(nullptr, nullptr, "x5c", bytes("abc"), 3));
    EXPECT_REFUSED("argument.null", encode_cert_jwk("EC", nullptr, nullptr, bytes("abc"), 3));
    EXPECT_REFUSED("argument.null", encode_cert_jwk("EC", nullptr, "x5c", nullptr, 3));
}

TEST(EncodeCertJwk, ChecksItsArgumentsBeforeItAllocates)
{
    FailAllocation failure{1};
    jwk* const record = encode_cert_jwk("EC", "id", nullptr, bytes("abc"), 3);
    EXPECT_FALSE(failure.reached());
    EXPECT_EQ(record, nullptr);
}

TEST(EncodeCertJwk, GivesNullForANegativeLength)
{
    EXPECT_REFUSED("argument.length", encode_cert_jwk("EC", nullptr, "x5c", bytes("abc"), -1));
    EXPECT_REFUSED("argument.length",
                   encode_cert_jwk("EC", nullptr, "x5c", bytes("abc"), -2147483647 - 1));
}

TEST(EncodeCertJwk, GivesNullWhenTheDataCannotBeEncoded)
{
    plantRefusal();
    FailAllocation failure{1};
    jwk* const record = encode_cert_jwk("EC", "id", "x5c", bytes("abc"), 3);
    ASSERT_TRUE(failure.reached());
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(lastRule(), "memory.exhausted");
}

TEST(EncodeCertJwk, EndsTheProcessWhenThereIsNoMemoryForTheKey)
{
    // The Base64 text, then the array and six texts.
    for (unsigned int nth = 2; nth <= 8; ++nth)
    {
        SCOPED_TRACE(nth);
        EXPECT_EQ(exitStatusOf([&] {
                      const FailAllocation failure{nth};
                      encode_cert_jwk("EC", "id", "x5c", bytes("abc"), 3);
                  }),
                  255);
    }
    EXPECT_EQ(exitStatusOf([] {
                  const FailAllocation failure{9};
                  const KeyRecord record{encode_cert_jwk("EC", "id", "x5c", bytes("abc"), 3)};
              }),
              0);
}

TEST(EncodeDfsJwk, IsAKeyOfTypeDfs)
{
    const KeyRecord record{encode_dfs_jwk(bytes("abc"), 3)};
    EXPECT_EQ(pairsOf(record.get()), (Pairs{{"kty", "DFS"}, {"dfs", "YWJj"}}));
}

TEST(EncodeDfsJwk, GivesNullWithoutData)
{
    EXPECT_REFUSED("argument.null", encode_dfs_jwk(nullptr, 3));
    EXPECT_REFUSED("argument.length", encode_dfs_jwk(bytes("abc"), -1));
}

TEST(DecodeDfsJwk, GivesTheBytesBack)
{
    const KeyRecord text{encode_dfs_jwk(bytes("abc"), 3)};
    EXPECT_EQ(decoded(text.get()), "abc");
    const KeyRecord binary{encode_dfs_jwk(bytes("\0\xff\x7f\0"), 4)};
    EXPECT_EQ(decoded(binary.get()), std::string("\0\xff\x7f\0", 4));
}

TEST(DecodeDfsJwk, TakesEitherAlphabetAndAnyPadding)
{
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", "/w=="}}), "\xff");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", "/w"}}), "\xff");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", "_w"}}), "\xff");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", "_w=="}}), "\xff");
}

TEST(DecodeDfsJwk, TakesTheTwoPairsInEitherOrder)
{
    EXPECT_EQ(decoded(LiteralKey{{"dfs", "YWJj"}, {"kty", "DFS"}}), "abc");
}

TEST(DecodeDfsJwk, DoesWithoutAType)
{
    EXPECT_EQ(decoded(LiteralKey{{"dfs", "YWJj"}}), "abc");
    EXPECT_EQ(decoded(LiteralKey{{"kid", "x"}, {"dfs", "YWJj"}}), "abc");
}

TEST(DecodeDfsJwk, RefusesAnotherType)
{
    EXPECT_EQ(decoded(LiteralKey{{"kty", "EC"}, {"dfs", "YWJj"}}), "jwk.kind");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "dfs"}, {"dfs", "YWJj"}}), "jwk.kind");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFSX"}, {"dfs", "YWJj"}}), "jwk.kind");
    EXPECT_EQ(decoded(LiteralKey{{"kty", nullptr}, {"dfs", "YWJj"}}), "jwk.kind");
    EXPECT_EQ(decoded(LiteralKey{{"dfs", "YWJj"}, {"kty", "EC"}}), "jwk.kind");
}

TEST(DecodeDfsJwk, LooksAtTwoPairsOnly)
{
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"kid", "x"}, {"dfs", "YWJj"}}), "jwk.member");
    // The third pair is ignored, whatever it is.
    EXPECT_EQ(decoded(LiteralKey{{"kid", "x"}, {"dfs", "YWJj"}, {"kty", "EC"}}), "abc");
}

TEST(DecodeDfsJwk, TakesTheLaterOfTwoSuchPairs)
{
    EXPECT_EQ(decoded(LiteralKey{{"dfs", "YWJj"}, {"dfs", "ZGVm"}}), "def");
    EXPECT_EQ(decoded(LiteralKey{{"dfs", "YWJj"}, {"dfs", nullptr}}), "jwk.member");
    EXPECT_EQ(decoded(LiteralKey{{"dfs", nullptr}, {"dfs", "YWJj"}}), "jwk.member");
}

TEST(DecodeDfsJwk, NeedsNoEndAfterTwoPairs)
{
    LiteralKey key{{"kty", "DFS"}, {"dfs", "YWJj"}};
    std::vector<jwk> pairs{static_cast<jwk*>(key)[0], static_cast<jwk*>(key)[1]};
    EXPECT_EQ(decoded(pairs.data()), "abc");
}

TEST(DecodeDfsJwk, RefusesWhatHoldsNoBase64)
{
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", ""}}), "base64.malformed");
    EXPECT_STREQ(lastRefusal().subject, "dfs");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", "!!!!"}}), "base64.malformed");
    EXPECT_STREQ(lastRefusal().saw, "") << "it is kept as a secret";
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}, {"dfs", nullptr}}), "jwk.member");
    EXPECT_EQ(decoded(LiteralKey{{"kty", "DFS"}}), "jwk.member");
    EXPECT_EQ(decoded(LiteralKey{}), "jwk.member");
    EXPECT_STREQ(lastRefusal().subject, "dfs");
    EXPECT_EQ(decoded(nullptr), "argument.null");
}

TEST(DecodeDfsJwk, GivesNullWithoutARoomForTheLength)
{
    LiteralKey key{{"kty", "DFS"}, {"dfs", "YWJj"}};
    EXPECT_EQ(decoded(key), "abc");
    EXPECT_REFUSED("argument.null", decode_dfs_jwk(key, nullptr));
}

TEST(DecodeDfsJwk, GivesNullWhicheverAllocationFails)
{
    LiteralKey key{{"kty", "DFS"}, {"dfs", "YWJj"}};
    withEachAllocationFailing([&](auto& failure) {
        int length = -7;
        const HeapBytes data{decode_dfs_jwk(key, &length)};
        if (failure.reached())
        {
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(length, -7);
        }
        else
        {
            EXPECT_NE(data, nullptr);
            EXPECT_EQ(length, 3);
        }
    });
}

TEST(JwkKeyValue, IsTheFirstValueOfThatKey)
{
    LiteralKey key{{"kty", "EC"}, {"x", "1"}, {"kty", "RSA"}};
    EXPECT_STREQ(jwk_key_value(key, "kty"), "EC");
    EXPECT_STREQ(jwk_key_value(key, "x"), "1");
}

TEST(JwkKeyValue, BelongsToTheRecord)
{
    LiteralKey key{{"kty", "EC"}};
    EXPECT_EQ(jwk_key_value(key, "kty"), static_cast<jwk*>(key)->value);
}

TEST(JwkKeyValue, ComparesByteForByte)
{
    LiteralKey key{{"kty", "EC"}};
    EXPECT_REFUSED("jwk.member", jwk_key_value(key, "KTY"));
    EXPECT_REFUSED("jwk.member", jwk_key_value(key, "kt"));
    EXPECT_REFUSED("jwk.member", jwk_key_value(key, "ktyx"));
    EXPECT_REFUSED("jwk.member", jwk_key_value(key, ""));
}

TEST(JwkKeyValue, SeesPairsBehindOneWithoutValue)
{
    LiteralKey key{{"n", nullptr}, {"x", "1"}};
    EXPECT_REFUSED("jwk.member", jwk_key_value(key, "n"));
    EXPECT_STREQ(jwk_key_value(key, "x"), "1");
}

TEST(JwkKeyValue, GivesNullWithoutRecordOrKey)
{
    LiteralKey key{{"kty", "EC"}};
    EXPECT_REFUSED("argument.null", jwk_key_value(nullptr, "kty"));
    EXPECT_REFUSED("argument.null", jwk_key_value(key, nullptr));
    EXPECT_REFUSED("jwk.member", jwk_key_value(key, "crv"));
    EXPECT_STREQ(lastRefusal().subject, "crv");
}

TEST(FreeJwk, LeavesNullBehind)
{
    jwk* record = encode_cert_jwk("EC", "id", "x5c", bytes("abc"), 3);
    ASSERT_NE(record, nullptr);
    free_jwk(&record);
    EXPECT_EQ(record, nullptr);
    free_jwk(&record);
    EXPECT_EQ(record, nullptr);
    free_jwk(nullptr);
}

TEST(FreeJwkList, TakesNull)
{
    free_jwk_list(nullptr);
    free_jwk_certs(nullptr);
}

// The pairs after such a pair belong to the caller who put them there.
TEST(FreeJwkList, StopsAtAPairWithoutValue)
{
    auto** list = static_cast<jwk**>(std::calloc(2, sizeof(jwk*)));
    auto* record = static_cast<jwk*>(std::calloc(4, sizeof(jwk)));
    ASSERT_NE(list, nullptr);
    ASSERT_NE(record, nullptr);
    const HeapText valueless = heapText("n");
    const HeapText key = heapText("kid");
    const HeapText value = heapText("1");
    record[0] = {heapText("kty").release(), heapText("EC").release()};
    record[1] = {valueless.get(), nullptr};
    record[2] = {key.get(), value.get()};
    list[0] = record;
    // The owners release these three once more if they were not left alone.
    free_jwk_list(list);
    EXPECT_STREQ(valueless.get(), "n");
    EXPECT_STREQ(key.get(), "kid");
    EXPECT_STREQ(value.get(), "1");
}

TEST(SetJwkList, CopiesEveryKey)
{
    LiteralKey first{{"kty", "DFS"}, {"dfs", "YWJj"}};
    LiteralKey second{{"kty", "EC"}, {"crv", "P-256"}, {"kid", ""}};
    std::vector<jwk*> list{first, second, nullptr};
    const KeyList copy{set_jwk_list(list.data())};
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(pairsOf(copy.get()[0]), (Pairs{{"kty", "DFS"}, {"dfs", "YWJj"}}));
    EXPECT_EQ(pairsOf(copy.get()[1]), (Pairs{{"kty", "EC"}, {"crv", "P-256"}, {"kid", ""}}));
    EXPECT_EQ(copy.get()[2], nullptr);
    EXPECT_NE(copy.get()[0], list[0]);
    EXPECT_NE(copy.get()[0]->key, list[0]->key);
    EXPECT_NE(copy.get()[0]->value, list[0]->value);
}

TEST(SetJwkList, StopsAtAPairWithoutValue)
{
    LiteralKey key{{"kty", "EC"}, {"x5c", nullptr}, {"kid", "1"}};
    std::vector<jwk*> list{key, nullptr};
    const KeyList copy{set_jwk_list(list.data())};
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(pairsOf(copy.get()[0]), (Pairs{{"kty", "EC"}}));
}

TEST(SetJwkList, RefusesAListWithAnEmptyKey)
{
    LiteralKey good{{"kty", "EC"}};
    LiteralKey empty{};
    LiteralKey valueless{{"kty", nullptr}, {"kid", "1"}};
    std::vector<jwk*> two{good, good, nullptr};
    const KeyList copy{set_jwk_list(two.data())};
    EXPECT_NE(copy, nullptr);
    two[1] = empty;
    EXPECT_REFUSED("jwk.empty", set_jwk_list(two.data()));
    EXPECT_EQ(lastRefusal().index, 1);
    two[1] = valueless;
    EXPECT_REFUSED("jwk.empty", set_jwk_list(two.data()));
    EXPECT_EQ(lastRefusal().index, 1);
}

TEST(SetJwkList, GivesNullForNoKeys)
{
    jwk* end = nullptr;
    EXPECT_REFUSED("argument.null", set_jwk_list(nullptr));
    EXPECT_REFUSED("document.empty", set_jwk_list(&end));
}

TEST(SetJwkList, GivesNullWhicheverAllocationFails)
{
    LiteralKey first{{"kty", "DFS"}, {"dfs", "YWJj"}};
    LiteralKey second{{"kty", "EC"}};
    std::vector<jwk*> list{first, second, nullptr};
    withEachAllocationFailing([&](auto& failure) {
        const KeyList copy{set_jwk_list(list.data())};
        EXPECT_EQ(failure.reached(), copy == nullptr);
    });
}

/** A certificate key to pass to the library; its texts live as long as it does. */
class LiteralCertificateKey
{
public:
    struct Parameter
    {
        std::string name;
        std::vector<const char*> values;
    };

    LiteralCertificateKey(std::initializer_list<Parameter> list)
    {
        // The texts must not move once they are pointed at.
        names.reserve(list.size());
        texts.reserve(list.size());
        for (const auto& [name, values] : list)
        {
            std::vector<std::string>& kept = texts.emplace_back(values.begin(), values.end());
            std::vector<char*>& array = arrays.emplace_back();
            for (std::string& text : kept)
            {
                array.push_back(text.data());
            }
            array.push_back(nullptr);
            parameters.push_back({names.emplace_back(name).data(), array.data()});
        }
        parameters.push_back({});
    }
    LiteralCertificateKey(const LiteralCertificateKey&) = delete;
    LiteralCertificateKey& operator=(const LiteralCertificateKey&) = delete;
    ~LiteralCertificateKey() = default;

    HandshakePayload* get()
    {
        return parameters.data();
    }

private:
    std::vector<std::string> names;
    std::vector<std::vector<std::string>> texts;
    std::vector<std::vector<char*>> arrays;
    std::vector<HandshakePayload> parameters;
};

TEST(SetJwkCerts, CopiesEveryKeyWithAllValues)
{
    LiteralCertificateKey first{{"kty", {"EC"}}, {"x5c", {"A", "B", "C", "D"}}};
    LiteralCertificateKey second{{"x5c", {""}}};
    std::vector<HandshakePayload*> list{first.get(), second.get(), nullptr};
    const CertificateList copy{set_jwk_certs(list.data())};
    ASSERT_NE(copy, nullptr);
    const HandshakePayload* const record = copy.get()[0];
    EXPECT_STREQ(record[0].name, "kty");
    EXPECT_EQ(texts(record[0].values), (std::vector<std::string>{"EC"}));
    EXPECT_STREQ(record[1].name, "x5c");
    EXPECT_EQ(texts(record[1].values), (std::vector<std::string>{"A", "B", "C", "D"}));
    EXPECT_EQ(record[2].name, nullptr);
    EXPECT_NE(record[1].values[0], first.get()[1].values[0]);
    EXPECT_EQ(texts(copy.get()[1]->values), (std::vector<std::string>{""}));
    EXPECT_EQ(copy.get()[2], nullptr);
}

TEST(SetJwkCerts, StopsAtAParameterWithoutValueArray)
{
    LiteralCertificateKey key{{"kty", {"EC"}}, {"x5c", {"A"}}, {"alg", {"ES-256"}}};
    key.get()[1].values = nullptr;
    std::vector<HandshakePayload*> list{key.get(), nullptr};
    const CertificateList copy{set_jwk_certs(list.data())};
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy.get()[0][0].name, "kty");
    EXPECT_EQ(copy.get()[0][1].name, nullptr);
}

TEST(SetJwkCerts, RefusesAListWithAnEmptyKey)
{
    LiteralCertificateKey good{{"x5c", {"A"}}};
    LiteralCertificateKey bare{};
    LiteralCertificateKey valueless{{"kty", {"EC"}}, {"x5c", {}}};
    LiteralCertificateKey arrayless{{"x5c", {"A"}}};
    arrayless.get()->values = nullptr;
    std::vector<HandshakePayload*> list{good.get(), good.get(), nullptr};
    const CertificateList copy{set_jwk_certs(list.data())};
    EXPECT_NE(copy, nullptr);
    for (LiteralCertificateKey* key : {&bare, &valueless, &arrayless})
    {
        list[1] = key->get();
        EXPECT_REFUSED(key == &valueless ? "document.parameter-missing" : "document.empty",
                       set_jwk_certs(list.data()));
        EXPECT_EQ(lastRefusal().index, 1);
    }
}

TEST(SetJwkCerts, GivesNullForNoKeys)
{
    HandshakePayload* end = nullptr;
    EXPECT_REFUSED("argument.null", set_jwk_certs(nullptr));
    EXPECT_REFUSED("document.empty", set_jwk_certs(&end));
}

TEST(SetJwkCerts, GivesNullWhicheverAllocationFails)
{
    LiteralCertificateKey first{{"kty", {"EC"}}, {"x5c", {"A", "B"}}};
    LiteralCertificateKey second{{"x5c", {"C"}}};
    std::vector<HandshakePayload*> list{first.get(), second.get(), nullptr};
    withEachAllocationFailing([&](auto& failure) {
        const CertificateList copy{set_jwk_certs(list.data())};
        EXPECT_EQ(failure.reached(), copy == nullptr);
    });
}

} // namespace
