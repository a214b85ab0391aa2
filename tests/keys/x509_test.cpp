// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/hostile.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.h>

#include <climits>
#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace support;

namespace
{

constexpr const char* beginLine = "-----BEGIN CERTIFICATE-----\n";
constexpr const char* endLine = "-----END CERTIFICATE-----\n";

/** The header of a PEM body that is encrypted. */
constexpr const char* encryptedHeader = "Proc-Type: 4,ENCRYPTED\n"
                                        "DEK-Info: AES-128-CBC,000102030405060708090A0B0C0D0E0F\n"
                                        "\n";

std::string recreated(const std::string& body)
{
    return orNull(HeapText{recreate_x509_cert(body.c_str())}.get());
}

Identity named(const std::optional<std::string>& commonName)
{
    CertificatePlan plan;
    plan.commonName = commonName;
    return Identity::selfSigned(plan);
}

PayloadPtr encoded(const std::string& pem)
{
    return PayloadPtr{encode_x509_jwk(pem.c_str(), static_cast<unsigned int>(pem.size()))};
}

/** The "x5c" values of what encode_x509_jwk makes of @p pem; one "null" when it refuses. */
std::vector<std::string> bodiesOf(const std::string& pem)
{
    const PayloadPtr record = encoded(pem);
    return record ? texts(record.get()[2].values) : std::vector<std::string>{"null"};
}

TEST(RemoveSubStr, RemovesEveryOccurrence)
{
    std::string text = "-a-b-c-";
    EXPECT_EQ(removeSubStr(text, "-"), std::string::npos);
    EXPECT_EQ(text, "abc");
}

TEST(RemoveSubStr, RemovesWhatARemovalJoins)
{
    for (const auto& [before, after] :
         std::vector<std::pair<const char*, const char*>>{{"aabb", ""},
                                                          {"aababb", ""},
                                                          {"xaabbx", "xx"},
                                                          {"abba", "ba"},
                                                          {"a", "a"},
                                                          {"", ""},
                                                          {"ab", ""}})
    {
        std::string text = before;
        EXPECT_EQ(removeSubStr(text, "ab"), std::string::npos);
        EXPECT_EQ(text, after) << before;
    }
    // The leftmost occurrence goes first: "aba" at 0, then what is left is "ba".
    std::string overlapping = "ababa";
    EXPECT_EQ(removeSubStr(overlapping, "aba"), std::string::npos);
    EXPECT_EQ(overlapping, "ba");
}

TEST(RemoveSubStr, AgreesWithSearchingFromTheStartEachTime)
{
    // Every text of up to ten letters of two, every pattern of up to three.
    for (unsigned int length = 0; length <= 10; ++length)
    {
        for (unsigned int bits = 0; bits < 1U << length; ++bits)
        {
            std::string text;
            for (unsigned int i = 0; i < length; ++i)
            {
                text += (bits >> i & 1U) != 0 ? 'b' : 'a';
            }
            for (const char* pattern : {"a", "b", "aa", "ab", "ba", "aba", "aab", "abb", "bbb"})
            {
                std::string expected = text;
                for (std::size_t at = expected.find(pattern); at != std::string::npos;
                     at = expected.find(pattern))
                {
                    expected.erase(at, std::string{pattern}.size());
                }
                std::string actual = text;
                removeSubStr(actual, pattern);
                ASSERT_EQ(actual, expected) << text << " without " << pattern;
            }
        }
    }
}

TEST(RemoveSubStr, TakesZeroBytesInTheText)
{
    std::string text{"a\0-b", 4};
    removeSubStr(text, "-");
    EXPECT_EQ(text, std::string("a\0b", 3));
}

TEST(RemoveSubStr, RemovesNothingForAnEmptySubstring)
{
    std::string text = "abc";
    EXPECT_EQ(removeSubStr(text, ""), std::string::npos);
    EXPECT_EQ(removeSubStr(text, nullptr), std::string::npos);
    EXPECT_EQ(removeSubStr(text, "abcd"), std::string::npos);
    EXPECT_EQ(text, "abc");
}

TEST(RemoveSubStr, TakesAMegabyteOfOccurrences)
{
    // Searching from the start each time would take minutes.
    std::string nested = std::string(500000, '(') + std::string(500000, ')');
    removeSubStr(nested, "()");
    EXPECT_EQ(nested, "");
}

TEST(RecreateX509Cert, BreaksTheBodyIntoLinesOf64)
{
    const std::string line(64, 'x');
    const std::string begin = beginLine;
    const std::string end = "\n-----END CERTIFICATE-----";
    EXPECT_EQ(recreated(""), begin + end);
    EXPECT_EQ(recreated("x"), begin + "x" + end);
    EXPECT_EQ(recreated(line), begin + line + end);
    EXPECT_EQ(recreated(line + "y"), begin + line + "\ny" + end);
    EXPECT_EQ(recreated(line + line), begin + line + "\n" + line + end);
    EXPECT_EQ(recreated(line + line + "y"), begin + line + "\n" + line + "\ny" + end);
}

TEST(RecreateX509Cert, WritesWhatOpenSslWrites)
{
    for (const std::size_t length : {1U, 2U, 10U, 11U, 12U, 64U, 65U})
    {
        const Identity identity = named(std::string(length, 'n'));
        EXPECT_EQ(recreated(identity.body()) + "\n", identity.pem());
    }
}

TEST(RecreateX509Cert, DoesNotLookAtTheBody)
{
    EXPECT_EQ(recreated("\n\n-----"),
              std::string{beginLine} + "\n\n-----\n-----END CERTIFICATE-----");
}

TEST(RecreateX509Cert, GivesNullForNull)
{
    EXPECT_REFUSED("argument.null", recreate_x509_cert(nullptr));
}

TEST(RecreateX509Cert, GivesNullWhicheverAllocationFails)
{
    withEachAllocationFailing([&](auto& failure) {
        const HeapText text{recreate_x509_cert("AAAA")};
        EXPECT_EQ(failure.reached(), text == nullptr);
    });
}

TEST(DecodeX509Jwk, IsTheFirstCertificate)
{
    const Identity identity = named("device");
    const PayloadPtr record = certificateRecord({identity.body(), "AAAA"});
    unsigned int length = 0;
    const HeapText pem{decode_x509_jwk(record.get(), &length)};
    ASSERT_NE(pem, nullptr);
    EXPECT_EQ(std::string{pem.get()} + "\n", identity.pem());
    EXPECT_EQ(length, identity.pem().size() - 1);
}

TEST(DecodeX509Jwk, StoresZeroWhenThereIsNone)
{
    TextList value{"AAAA"};
    TextList none{};
    std::string x5c = "x5c";
    std::string upper = "X5C";
    std::string kty = "kty";
    std::vector<HandshakePayload> record{{kty.data(), value}, {x5c.data(), value}, {}};
    unsigned int length = 7;
    const auto decode = [&] {
        length = 7;
        return HeapText{decode_x509_jwk(record.data(), &length)};
    };
    EXPECT_STREQ(decode().get(), "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----");
    EXPECT_EQ(length, 58U);

    record[1] = {upper.data(), value};
    EXPECT_REFUSED("certificate.missing", decode() != nullptr);
    EXPECT_EQ(length, 0U);
    // The walk ends at a parameter without value array.
    record[1] = {x5c.data(), value};
    record[0].values = nullptr;
    EXPECT_REFUSED("certificate.missing", decode() != nullptr);
    EXPECT_EQ(length, 0U);
    record[0].values = none;
    EXPECT_NE(decode(), nullptr);
    // The first "x5c" decides, one without values too.
    record[0] = {x5c.data(), none};
    EXPECT_REFUSED("certificate.missing", decode() != nullptr);
    EXPECT_EQ(length, 0U);
    record[0] = {};
    EXPECT_REFUSED("certificate.missing", decode() != nullptr);
    EXPECT_EQ(length, 0U);

    length = 7;
    EXPECT_REFUSED("argument.null", decode_x509_jwk(nullptr, &length));
    EXPECT_EQ(length, 0U);
    EXPECT_REFUSED("argument.null", decode_x509_jwk(nullptr, nullptr));
}

TEST(DecodeX509Jwk, GivesNullWhicheverAllocationFails)
{
    const PayloadPtr record = certificateRecord({"AAAA"});
    withEachAllocationFailing([&](auto& failure) {
        unsigned int length = 7;
        const HeapText pem{decode_x509_jwk(record.get(), &length)};
        EXPECT_EQ(failure.reached(), pem == nullptr);
        EXPECT_EQ(length, pem ? 58U : 0U);
    });
}

TEST(GetX509Cert, ReadsTheFirstCertificate)
{
    const Identity first = named("first");
    const Identity second = named("second");
    const X509Ptr read{getX509Cert(("text before\n" + first.pem() + second.pem()).c_str())};
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(X509_cmp(read.get(), &first.certificate()), 0);
}

TEST(GetX509Cert, PassesOverOtherPemBodies)
{
    const Identity identity = named("device");
    const std::string key = pemOf("EC PRIVATE KEY", identity.privateKeyDer());
    const X509Ptr read{getX509Cert((key + identity.pem()).c_str())};
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(X509_cmp(read.get(), &identity.certificate()), 0);
}

TEST(GetX509Cert, GivesNullForWhatIsNoCertificate)
{
    const Identity identity = named("device");
    const std::string pem = identity.pem();
    const X509Ptr read{getX509Cert(pem.c_str())};
    EXPECT_NE(read, nullptr);
    EXPECT_REFUSED("argument.null", getX509Cert(nullptr));
    EXPECT_REFUSED("certificate.encoding", getX509Cert(""));
    EXPECT_REFUSED("certificate.encoding", getX509Cert(pem.substr(0, pem.size() / 2).c_str()));
    EXPECT_REFUSED("certificate.encoding", getX509Cert(identity.body().c_str()));
    EXPECT_REFUSED("certificate.encoding", getX509Cert(pemOf("CERTIFICATE", "not DER").c_str()));
    EXPECT_REFUSED("certificate.encoding",
                   getX509Cert(pemOf("CERTIFICATE REQUEST", identity.der()).c_str()));
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        EXPECT_REFUSED("certificate.encoding", getX509Cert(hostile.text.c_str()));
        EXPECT_REFUSED("certificate.encoding", getX509Cert(recreated(hostile.text).c_str()));
    }
}

TEST(GetX509Cert, AsksForNoPassPhrase)
{
    std::string pem = named("device").pem();
    pem.insert(std::string{beginLine}.size(), encryptedHeader);
    const FakeFiles files;
    EXPECT_REFUSED("certificate.encoding", getX509Cert(pem.c_str()));
    EXPECT_REFUSED("certificate.encoding", validateX509(pem.c_str(), nullptr));
    EXPECT_REFUSED("certificate.encoding", get_EC_pubKey(pem.c_str()));
    EXPECT_TRUE(files.openings().empty()) << "the terminal is opened, if there is one";
}

TEST(GetX509Cert, LeavesTheErrorQueueAndErrnoAlone)
{
    ERR_clear_error();
    errno = 1234;
    EXPECT_REFUSED("certificate.encoding", getX509Cert("garbage"));
    EXPECT_REFUSED("certificate.encoding", validateX509("garbage", nullptr));
    EXPECT_REFUSED("certificate.encoding", get_EC_pubKey("garbage"));
    EXPECT_REFUSED("certificate.encoding", encoded(std::string{"garbage"} + endLine) != nullptr);
    EXPECT_EQ(ERR_peek_error(), 0U);
    EXPECT_EQ(errno, 1234);
}

TEST(ValidateX509, ComparesTheCommonNameWithoutRegardToCase)
{
    const std::string pem = named("ABC").pem();
    EXPECT_EQ(validateX509(pem.c_str(), "abc"), 1);
    EXPECT_EQ(validateX509(pem.c_str(), "ABC"), 1);
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "ab"));
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "abd"));
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), ""));
    EXPECT_REFUSED("certificate.name", validateX509(named("abcd").pem().c_str(), "abc"));
}

TEST(ValidateX509, KeepsTheCaseOfOtherLetters)
{
    // U+00C4 and U+00E4.
    const std::string pem = named("\xc3\x84").pem();
    EXPECT_EQ(validateX509(pem.c_str(), "\xc3\x84"), 1);
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "\xc3\xa4"));
}

TEST(ValidateX509, ComparesSeventeenBytes)
{
    const auto accepts = [](std::size_t nameLength, std::size_t expectedLength) {
        return validateX509(named(std::string(nameLength, 'n')).pem().c_str(),
                            std::string(expectedLength, 'n').c_str());
    };
    EXPECT_EQ(accepts(1, 1), 1);
    EXPECT_EQ(accepts(16, 16), 1);
    EXPECT_EQ(accepts(16, 17), 0);
    EXPECT_EQ(accepts(17, 16), 0);
    EXPECT_EQ(accepts(17, 17), 1);
    // A longer name is cut to 17 bytes, and a longer expectation never met.
    EXPECT_EQ(accepts(18, 17), 1);
    EXPECT_EQ(accepts(18, 18), 0);
    EXPECT_EQ(accepts(64, 17), 1);
    EXPECT_EQ(accepts(64, 16), 0);
    EXPECT_EQ(accepts(64, 64), 0);
}

TEST(ValidateX509, WithoutExpectationTakesEveryNameButAnEmptyOne)
{
    EXPECT_EQ(validateX509(named("n").pem().c_str(), nullptr), 1);
    EXPECT_EQ(validateX509(named(std::string(64, 'n')).pem().c_str(), nullptr), 1);
    EXPECT_EQ(validateX509(named(std::nullopt).pem().c_str(), nullptr), 1);
    EXPECT_REFUSED("certificate.name-empty", validateX509(named("").pem().c_str(), nullptr));
}

TEST(ValidateX509, NoNameMeetsNoExpectation)
{
    EXPECT_REFUSED("certificate.name", validateX509(named(std::nullopt).pem().c_str(), "n"));
    EXPECT_REFUSED("certificate.name", validateX509(named(std::nullopt).pem().c_str(), ""));
    EXPECT_REFUSED("certificate.name-empty", validateX509(named("").pem().c_str(), ""));
}

TEST(ValidateX509, ComparesTheFirstOfSeveralNames)
{
    const auto withSecondName = [](const char* first, const char* second) {
        const Identity identity = named(first);
        using Name = std::unique_ptr<X509_NAME, Releaser<X509_NAME_free>>;
        const Name subject{X509_NAME_dup(X509_get_subject_name(&identity.certificate()))};
        EXPECT_EQ(X509_NAME_add_entry_by_txt(subject.get(), "CN", MBSTRING_ASC,
                                             reinterpret_cast<const unsigned char*>(second), -1, -1,
                                             0),
                  1);
        EXPECT_EQ(X509_set_subject_name(&identity.certificate(), subject.get()), 1);
        return identity.pem();
    };
    const std::string pem = withSecondName("first", "second");
    EXPECT_EQ(validateX509(pem.c_str(), "first"), 1);
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "second"));
    EXPECT_EQ(validateX509(pem.c_str(), nullptr), 1);
    EXPECT_REFUSED("certificate.name-empty",
                   validateX509(withSecondName("", "second").c_str(), nullptr));
}

TEST(ValidateX509, DoesNotEndANameAtAZeroByte)
{
    const std::string pem = named(std::string("corp\0evil", 9)).pem();
    EXPECT_EQ(validateX509(pem.c_str(), nullptr), 1);
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "corp"));
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "corpevil"));
    EXPECT_REFUSED("certificate.name",
                   validateX509(named(std::string("corp\0", 5)).pem().c_str(), "corp"));
    EXPECT_REFUSED("certificate.name", validateX509(named(std::string("\0", 1)).pem().c_str(), ""));
    EXPECT_EQ(validateX509(named("corp").pem().c_str(), "corp"), 1);
}

TEST(ValidateX509, ComparesTheBytesWhateverTheirEncoding)
{
    CertificatePlan plan;
    plan.commonName = "device";
    for (const int encoding : {V_ASN1_PRINTABLESTRING, V_ASN1_T61STRING, V_ASN1_IA5STRING})
    {
        plan.nameEncoding = encoding;
        EXPECT_EQ(validateX509(Identity::selfSigned(plan).pem().c_str(), "device"), 1);
    }
    plan.commonName = std::string("\0d\0e", 4);
    plan.nameEncoding = V_ASN1_BMPSTRING;
    EXPECT_EQ(validateX509(Identity::selfSigned(plan).pem().c_str(), nullptr), 1);
    EXPECT_REFUSED("certificate.name",
                   validateX509(Identity::selfSigned(plan).pem().c_str(), "de"));
}

TEST(ValidateX509, RefusesWhatIsNoCertificate)
{
    EXPECT_REFUSED("argument.null", validateX509(nullptr, nullptr));
    EXPECT_REFUSED("argument.null", validateX509(nullptr, "device"));
    EXPECT_REFUSED("certificate.encoding", validateX509("", nullptr));
    const std::string pem = named("device").pem();
    EXPECT_EQ(validateX509(pem.c_str(), "device"), 1);
    EXPECT_REFUSED("certificate.encoding",
                   validateX509(pem.substr(0, pem.size() - 30).c_str(), "device"));
    for (const HostileText& hostile : hostileTexts())
    {
        SCOPED_TRACE(hostile.name);
        EXPECT_REFUSED("certificate.encoding", validateX509(hostile.text.c_str(), nullptr));
        EXPECT_REFUSED("certificate.encoding",
                       validateX509(recreated(hostile.text).c_str(), nullptr));
    }
}

TEST(ValidateX509, RefusesWhicheverAllocationFails)
{
    const std::string pem = named("device").pem();
    ASSERT_EQ(validateX509(pem.c_str(), "device"), 1);
    withEachAllocationFailing([&](auto& failure) {
        const int result = validateX509(pem.c_str(), "other");
        static_cast<void>(failure.reached());
        EXPECT_EQ(result, 0);
    });
    FailAllocation failure{1, FailAllocation::fromThenOn};
    const int result = validateX509(pem.c_str(), "device");
    EXPECT_TRUE(failure.reached());
    EXPECT_EQ(result, 0);
}

TEST(ValidateX509, ShowsTheNameThatItRefuses)
{
    const std::string pem = named(std::string("corp\0evil", 9)).pem();
    EXPECT_REFUSED("certificate.name", validateX509(pem.c_str(), "corp"));
    EXPECT_STREQ(lastRefusal().saw, "corp\\x00evil");
    EXPECT_STREQ(lastRefusal().wanted, "corp");
    EXPECT_EQ(lastRefusal().index, -1);
    EXPECT_REFUSED("certificate.name", validateX509(named(std::nullopt).pem().c_str(), "corp"));
    EXPECT_STREQ(lastRefusal().saw, "");
}

TEST(EncodeX509Jwk, HoldsTypeAlgorithmAndChain)
{
    const Identity first = named("first");
    const Identity second = named("second");
    const PayloadPtr record = encoded(first.pem() + second.pem());
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record.get()[0].name, "kty");
    EXPECT_EQ(texts(record.get()[0].values), (std::vector<std::string>{"EC"}));
    EXPECT_STREQ(record.get()[1].name, "alg");
    EXPECT_EQ(texts(record.get()[1].values), (std::vector<std::string>{"ES-256"}));
    EXPECT_STREQ(record.get()[2].name, "x5c");
    EXPECT_EQ(texts(record.get()[2].values),
              (std::vector<std::string>{first.body(), second.body()}));
    EXPECT_EQ(record.get()[3].name, nullptr);
}

TEST(EncodeX509Jwk, TakesChainsOfAnyLength)
{
    const Identity identity = named("device");
    for (const std::size_t count : {1U, 2U, 3U, 4U, 5U, 100U})
    {
        std::string pem;
        for (std::size_t i = 0; i < count; ++i)
        {
            pem += identity.pem();
        }
        EXPECT_EQ(bodiesOf(pem), std::vector<std::string>(count, identity.body()));
    }
}

TEST(EncodeX509Jwk, GivesAnEmptyChainWithoutAnEndMarker)
{
    for (const std::string text : {"garbage", "-----BEGIN CERTIFICATE-----\n"})
    {
        const PayloadPtr record = encoded(text);
        ASSERT_NE(record, nullptr);
        EXPECT_STREQ(record.get()[2].name, "x5c");
        ASSERT_NE(record.get()[2].values, nullptr);
        EXPECT_EQ(*record.get()[2].values, nullptr);
    }
}

TEST(EncodeX509Jwk, WantsTheExactLength)
{
    const std::string pem = named("device").pem();
    const auto length = static_cast<unsigned int>(pem.size());
    EXPECT_NE(PayloadPtr{encode_x509_jwk(pem.c_str(), length)}, nullptr);
    EXPECT_REFUSED("argument.length", encode_x509_jwk(pem.c_str(), length - 1));
    EXPECT_REFUSED("argument.length", encode_x509_jwk(pem.c_str(), length + 1));
    EXPECT_REFUSED("argument.length", encode_x509_jwk(pem.c_str(), UINT_MAX));
    EXPECT_REFUSED("argument.length", encode_x509_jwk(pem.c_str(), 0));
    EXPECT_REFUSED("argument.length", encode_x509_jwk("", 0));
    EXPECT_REFUSED("argument.null", encode_x509_jwk(nullptr, 0));
    EXPECT_REFUSED("argument.null", encode_x509_jwk(nullptr, length));
    // The length of a text ends at its first zero byte.
    const std::string twice = pem + '\0' + pem;
    EXPECT_REFUSED("argument.length", encoded(twice) != nullptr);
}

TEST(EncodeX509Jwk, DoesWithoutALineFeedAtTheEnd)
{
    const Identity identity = named("device");
    std::string pem = identity.pem();
    pem.pop_back();
    EXPECT_EQ(bodiesOf(pem), (std::vector<std::string>{identity.body()}));
}

TEST(EncodeX509Jwk, KeepsWhatStandsBetweenTheCertificates)
{
    const Identity identity = named("device");
    EXPECT_EQ(bodiesOf("before\n" + identity.pem() + "be\ntween\n" + identity.pem() + "behind"),
              (std::vector<std::string>{"before" + identity.body(), "between" + identity.body()}));
}

// The begin marker appears only when the end marker inside it is gone, and that one only when the
// line feed inside it is.
TEST(EncodeX509Jwk, TakesOutLineFeedsThenEndMarkersThenBeginMarkers)
{
    const Identity identity = named("device");
    EXPECT_EQ(bodiesOf("-----BEGIN -----END CERTI\nFICATE-----CERTIFICATE-----\n" + identity.pem()),
              (std::vector<std::string>{identity.body()}));
}

TEST(EncodeX509Jwk, TakesOneCharacterAfterTheEndMarkerIntoTheBlock)
{
    const Identity identity = named("device");
    std::string pem = identity.pem();
    pem.back() = ' ';
    EXPECT_EQ(bodiesOf(pem), (std::vector<std::string>{identity.body() + " "}));
    // Other text on that line is not a part of the block, although PEM has no such line.
    pem += "and more\n";
    EXPECT_EQ(bodiesOf(pem), (std::vector<std::string>{identity.body() + " "}));
    EXPECT_REFUSED("certificate.encoding", getX509Cert(pem.c_str()));
}

TEST(EncodeX509Jwk, KeepsCarriageReturns)
{
    const Identity identity = named("device");
    std::string pem;
    std::size_t lines = 0;
    for (const char c : identity.pem() + identity.pem())
    {
        if (c == '\n')
        {
            pem += '\r';
            ++lines;
        }
        pem += c;
    }
    const std::vector<std::string> bodies = bodiesOf(pem);
    ASSERT_EQ(bodies.size(), 2U);
    std::size_t kept = 0;
    for (std::string body : bodies)
    {
        kept += static_cast<std::size_t>(std::erase(body, '\r'));
        EXPECT_EQ(body, identity.body());
    }
    EXPECT_EQ(kept, lines);
}

TEST(EncodeX509Jwk, RefusesAChainWithOneBadCertificate)
{
    const std::string good = named("device").pem();
    EXPECT_EQ(bodiesOf(good + good).size(), 2U);
    EXPECT_REFUSED("certificate.encoding",
                   encoded(good + std::string{beginLine} + "AAAA\n" + endLine) != nullptr);
    EXPECT_EQ(lastRefusal().index, 1);
    EXPECT_REFUSED("certificate.encoding", encoded(good + endLine) != nullptr);
    EXPECT_EQ(lastRefusal().index, 1);
    EXPECT_REFUSED("certificate.name-empty", encoded(good + named("").pem()) != nullptr);
    EXPECT_EQ(lastRefusal().index, 1);
    EXPECT_EQ(bodiesOf(good + named(std::nullopt).pem()).size(), 2U);
}

TEST(EncodeX509Jwk, RefusesWhicheverAllocationFails)
{
    const std::string pem = named("device").pem();
    const auto length = static_cast<unsigned int>(pem.size());
    // Once, so that what libcrypto loads on first use is there.
    ASSERT_NE(encoded(pem), nullptr);
    withEachAllocationFailing([&](auto& failure) {
        const PayloadPtr record{encode_x509_jwk(pem.c_str(), length)};
        if (failure.reached())
        {
            EXPECT_TRUE(record == nullptr || texts(record.get()[2].values).size() == 1);
        }
        else
        {
            EXPECT_NE(record, nullptr);
        }
    });
}

/** A device with both factory roots. */
struct ValidateX509Jwk : testing::Test
{
    ValidateX509Jwk()
    {
        files.put("/etc/default/certs/FactorycertProdRoot.pem", root.pem());
        files.put("/etc/default/certs/FactorycertDevRoot.pem", root.pem());
    }

    static int validate(std::initializer_list<std::string> bodies, const char* name)
    {
        return validate_x509_jwk(certificateRecord(bodies).get(), name);
    }

    Identity root = Identity::root("root");
    FakeFiles files;
};

TEST_F(ValidateX509Jwk, WantsNameAndChain)
{
    const std::string good = root.issue({}).body();
    const std::string own = Identity::selfSigned({}).body();
    EXPECT_EQ(validate({good}, "device"), 1);
    EXPECT_EQ(validate({good}, "DEVICE"), 1);
    EXPECT_EQ(validate({good}, nullptr), 1);
    EXPECT_REFUSED("certificate.name", validate({good}, "other"));
    EXPECT_REFUSED("chain.untrusted", validate({own}, "device"));
    EXPECT_REFUSED("chain.untrusted", validate({own}, nullptr));
}

TEST_F(ValidateX509Jwk, ChecksTheNameOfTheFirstAndTheChainOfTheLast)
{
    CertificatePlan plan;
    plan.commonName = "first";
    const std::string first = Identity::selfSigned(plan).body();
    plan.commonName = "last";
    const std::string last = root.issue(plan).body();
    EXPECT_EQ(validate({first, last}, "first"), 1);
    EXPECT_REFUSED("certificate.name", validate({first, last}, "last"));
    EXPECT_REFUSED("chain.untrusted", validate({last, first}, "last"));
    EXPECT_REFUSED("certificate.encoding", validate({"garbage", last}, nullptr));
}

TEST_F(ValidateX509Jwk, RefusesARecordWithoutChain)
{
    EXPECT_REFUSED("certificate.missing", validate({}, nullptr));
    EXPECT_REFUSED("certificate.missing", validate({}, "device"));
    EXPECT_REFUSED("argument.null", validate_x509_jwk(nullptr, nullptr));
    EXPECT_REFUSED("certificate.encoding", validate({""}, nullptr));
    EXPECT_REFUSED("certificate.encoding", validate({"garbage"}, nullptr));
}

// Otherwise an empty list would take the place of the name to check, and leave the chain to the
// second one.
TEST_F(ValidateX509Jwk, TakesNameAndChainFromTheFirstOfTwoLists)
{
    const std::string good = root.issue({}).body();
    TextList chain{good};
    TextList none{};
    std::string x5c = "x5c";
    std::vector<HandshakePayload> record{{x5c.data(), chain}, {x5c.data(), none}, {}};
    EXPECT_EQ(validate_x509_jwk(record.data(), "device"), 1);
    EXPECT_REFUSED("certificate.name", validate_x509_jwk(record.data(), "other"));
    record[0].values = none;
    record[1].values = chain;
    EXPECT_REFUSED("certificate.missing", validate_x509_jwk(record.data(), "other"));
    EXPECT_REFUSED("certificate.missing", validate_x509_jwk(record.data(), "device"));
}

TEST_F(ValidateX509Jwk, TellsWhichCertificateItRefuses)
{
    const std::string good = root.issue({}).body();
    EXPECT_REFUSED("certificate.name", validate({good, good}, "other"));
    EXPECT_EQ(lastRefusal().index, 0);
    EXPECT_REFUSED("chain.untrusted", validate({good, Identity::selfSigned({}).body()}, nullptr));
    EXPECT_EQ(lastRefusal().index, 1);
}

TEST_F(ValidateX509Jwk, RefusesWithoutRoots)
{
    const std::string good = root.issue({}).body();
    EXPECT_EQ(validate({good}, "device"), 1);
    files.fail("/etc/default/certs/FactorycertDevRoot.pem", ENOENT);
    EXPECT_REFUSED("chain.root-missing", validate({good}, "device"));
}

TEST_F(ValidateX509Jwk, SkipsNoCheckWhenMemoryRunsOut)
{
    const PayloadPtr record = certificateRecord({root.issue({}).body()});
    ASSERT_EQ(validate_x509_jwk(record.get(), "device"), 1);
    for (unsigned int nth = 1; nth < 60; ++nth)
    {
        FailAllocation failure{nth};
        const int result = validate_x509_jwk(record.get(), "other");
        static_cast<void>(failure.reached());
        EXPECT_EQ(result, 0);
    }
}

} // namespace
