// SPDX-License-Identifier: Apache-2.0
#include "cpp/identities.hpp"
#include "second_unit.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/issuer.hpp"
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.hpp>

#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <concepts>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include <version>
#ifdef __cpp_lib_expected
#include <expected>
#endif

using namespace std::string_literals;
using namespace std::string_view_literals;
using support::FailAllocation;
using support::FakeClock;
using support::withEachAllocationFailing;

namespace bmcoauth
{

namespace
{

constexpr std::time_t now = 1700000000;
constexpr auto withZero = "te\0xt"sv;
const Error missing{BMCOAUTH_RULE_ARGUMENT_EMPTY, "key"};
const Error refused{BMCOAUTH_RULE_TOKEN_EXPIRED, "exp"};
const Error tooLong{BMCOAUTH_RULE_ARGUMENT_LENGTH, "text"};

// ------------------------------------------------------------- what does not compile, at a glance --

template <typename T>
concept HasClaims = requires
{
    std::declval<T>().claims();
};
template <typename T>
concept HasUnverifiedClaims = requires(const T& token)
{
    token.unverifiedClaims();
};
template <typename T>
concept GrantsPrivileges = requires(const T& token)
{
    scopePrivileges(token);
};

static_assert(HasClaims<const VerifiedToken&> && !HasClaims<VerifiedToken>);
static_assert(!HasClaims<const UnverifiedToken&>);
static_assert(!HasClaims<const Verdict&>);
static_assert(HasUnverifiedClaims<UnverifiedToken>);
static_assert(!HasUnverifiedClaims<Verdict>);
static_assert(GrantsPrivileges<VerifiedToken>);
static_assert(!GrantsPrivileges<UnverifiedToken>);
static_assert(!GrantsPrivileges<Verdict>);
static_assert(!std::default_initializable<VerifiedToken>);
static_assert(!std::constructible_from<VerifiedToken, UnverifiedToken>);
static_assert(!std::constructible_from<Claims, UnverifiedClaims>);
static_assert(!std::constructible_from<Claims, const JWTPayload&>);
static_assert(std::constructible_from<Claims, Claims>);

template <typename T>
concept MovesOnly = std::movable<T> && !std::copy_constructible<T>;
static_assert(MovesOnly<Text> && MovesOnly<Bytes> && MovesOnly<Texts> && MovesOnly<PrivateKey> &&
              MovesOnly<ParameterList> && MovesOnly<CertificateKey> && MovesOnly<KeyRecord> &&
              MovesOnly<KeyList> && MovesOnly<CertificateKeyList> && MovesOnly<Verdict> &&
              MovesOnly<VerifiedToken> && MovesOnly<UnverifiedToken> && MovesOnly<TokenRequest> &&
              MovesOnly<TokenResponse> && MovesOnly<RegistrationRequest> &&
              MovesOnly<RegistrationResponse> && MovesOnly<OidcRegistration> &&
              MovesOnly<Document> && MovesOnly<TrustedKeys> && MovesOnly<Opened>);
static_assert(std::forward_iterator<TextRange::Iterator>);

template <typename T>
concept HasView = requires
{
    std::declval<T>().view();
};
template <typename T>
concept HasSpan = requires
{
    std::declval<T>().span();
};
template <typename T>
concept HasRange = requires
{
    std::declval<T>().range();
};
template <typename T>
concept HasCString = requires
{
    std::declval<T>().c_str();
};
template <typename T>
concept HasDer = requires
{
    std::declval<T>().der();
};
template <typename T>
concept HasArrow = requires
{
    std::declval<T>().operator->();
};
static_assert(HasView<const Text&> && !HasView<Text> && !HasView<const Text>);
static_assert(HasCString<const Text&> && !HasCString<Text>);
static_assert(HasView<const Bytes&> && !HasView<Bytes>);
static_assert(HasSpan<const Bytes&> && !HasSpan<Bytes>);
static_assert(HasView<const Document&> && !HasView<Document>);
static_assert(HasRange<const Texts&> && !HasRange<Texts>);
static_assert(HasRange<const TrustedKeys&> && !HasRange<TrustedKeys>);
static_assert(HasDer<const PrivateKey&> && !HasDer<PrivateKey>);
static_assert(HasArrow<Expected<int>&> && HasArrow<const Expected<int>&>);
static_assert(!HasArrow<Expected<int>> && !HasArrow<const Expected<int>>);
static_assert(std::convertible_to<const Text&, std::string_view>);
static_assert(!std::convertible_to<Text, std::string_view>);
static_assert(std::convertible_to<const Bytes&, ByteSpan> && !std::convertible_to<Bytes, ByteSpan>);
// A text can be copied out of what is about to go.
static_assert(std::constructible_from<std::string, Text>);
static_assert(std::convertible_to<std::vector<Role>&, Borrowed<Role>>);
static_assert(std::convertible_to<const std::array<Role, 2>&, Borrowed<Role>>);
static_assert(std::convertible_to<std::span<const Role>, Borrowed<Role>>);
static_assert(!std::convertible_to<std::vector<Role>, Borrowed<Role>>);
static_assert(!std::convertible_to<std::array<Role, 2>, Borrowed<Role>>);
static_assert(!std::convertible_to<Role (&&)[2], Borrowed<Role>>);

// ------------------------------------------------------------------------------------- shorthands --

std::vector<std::string> shown(const TextRange& range)
{
    std::vector<std::string> texts;
    for (const std::string_view text : range)
    {
        texts.emplace_back(text);
    }
    return texts;
}

using Lines = std::vector<std::string>;

/** What a call gives, copied out of it. */
template <typename Owner>
std::string textOf(const Expected<Owner>& result)
{
    return std::string{result->view()};
}

template <typename Owner>
Lines linesOf(const Expected<Owner>& result)
{
    return shown(result->range());
}

PrivateKey newKey()
{
    return std::move(KeyPair::generate().value().privateKey);
}

/** The token with another character in the middle of its last part. */
std::string tampered(std::string token)
{
    char& middle = token.at((token.rfind('.') + token.size()) / 2);
    middle = middle == 'A' ? 'B' : 'A';
    return token;
}

// ---------------------------------------------------------------------------------------- results --

TEST(Expected, IsAValueOrAnError)
{
    const Expected<int> good{5};
    ASSERT_TRUE(good);
    EXPECT_EQ(*good, 5);
    const Expected<int> bad{tooLong};
    ASSERT_FALSE(bad);
    EXPECT_REFUSED("argument.length", bad);
    EXPECT_EQ(Expected<int>{refused}.value_or(7), 7);
    EXPECT_EQ(Expected<int>{6}.value_or(7), 6);
    EXPECT_TRUE(Expected<void>{});
    EXPECT_REFUSED("argument.empty", Expected<void>{missing});
}

/** Half of an even number. */
Expected<int> half(int number)
{
    if (number % 2 != 0)
    {
        return refused;
    }
    return number / 2;
}

TEST(Expected, HandsItsValueOn)
{
    EXPECT_EQ(Expected<int>{6}.and_then(half).value(), 3);
    EXPECT_REFUSED("token.expired", Expected<int>{5}.and_then(half));
    EXPECT_REFUSED("memory.exhausted",
                   Expected<int>{Error{BMCOAUTH_RULE_MEMORY_EXHAUSTED}}.and_then(half));
    const Expected<int> kept{8};
    EXPECT_EQ(kept.and_then(half).and_then(half).value(), 2);
    Expected<int> counted{1};
    EXPECT_TRUE(counted.and_then([](int& number) -> Expected<void> {
        ++number;
        return {};
    }));
    EXPECT_EQ(*counted, 2);
}

TEST(Expected, TransformsItsValue)
{
    EXPECT_EQ(Text::copy("four").transform([](Text text) { return text.view().size(); }).value(),
              4U);
    EXPECT_REFUSED("argument.length", Expected<int>{tooLong}.transform(half));
    const Expected<int> kept{8};
    EXPECT_EQ(kept.transform([](const int& number) { return number + 1; }).value(), 9);
    Expected<int> counted{1};
    EXPECT_TRUE(counted.transform([](int& number) { ++number; }));
    EXPECT_EQ(*counted, 2);
    // What goes through `next` as a reference is there in the result.
    EXPECT_EQ(textOf(Text::copy("kept").transform(std::identity{})), "kept");
}

TEST(Expected, CallsTheAlternativeForAnErrorOnly)
{
    const auto length = [](const Error& error) -> Expected<int> {
        return error.rule() == BMCOAUTH_RULE_ARGUMENT_LENGTH ? Expected<int>{0}
                                                             : Expected<int>{missing};
    };
    EXPECT_EQ(Expected<int>{6}.or_else(length).value(), 6);
    EXPECT_EQ(Expected<int>{tooLong}.or_else(length).value(), 0);
    const Expected<int> kept{refused};
    EXPECT_REFUSED("argument.empty", kept.or_else(length));
    EXPECT_EQ(textOf(Text::copy("kept").or_else(
                  [](const Error& error) -> Expected<Text> { return error; })),
              "kept");
}

TEST(Expected, ChainsCallsThatReturnNothing)
{
    const auto five = [] {
        return Expected<int>{5};
    };
    const Expected<void> good;
    const Expected<void> bad{missing};
    EXPECT_TRUE(good.has_value());
    EXPECT_FALSE(bad.has_value());
    EXPECT_EQ(good.and_then(five).value(), 5);
    EXPECT_REFUSED("argument.empty", bad.and_then(five));
    EXPECT_EQ(good.transform([] { return 7; }).value(), 7);
    EXPECT_REFUSED("argument.empty", bad.transform([] { return 7; }));
    EXPECT_TRUE(bad.or_else([](const Error& /*unused*/) { return Expected<void>{}; }));
    EXPECT_TRUE(good.or_else([](const Error& error) -> Expected<void> { return error; }));
    EXPECT_REFUSED("argument.empty",
                   bad.or_else([](const Error& error) -> Expected<void> { return error; }));
}

TEST(Expected, GivesTheFirstErrorOfSeveral)
{
    const Expected<int> five{5};
    const Expected<Text> late{refused};
    EXPECT_TRUE(allOf(five, Expected<void>{}));
    EXPECT_REFUSED("token.expired", allOf(five, late, Expected<void>{missing}));
    EXPECT_REFUSED("argument.empty", allOf(Expected<void>{missing}, late, five));
}

/** Written for std::expected. */
template <typename Result>
Result checked(const Result& result, bool wanted)
{
    using Failure = typename Result::unexpected_type;
    return wanted ? result : Result{Failure{missing}};
}

template <typename Result>
void behavesAsTheStandardsDo()
{
    static_assert(std::is_same_v<typename Result::value_type, int>);
    const Result six{6};
    EXPECT_EQ(checked(six, true).value(), 6);
    EXPECT_EQ(checked(six, false).error().rule(), BMCOAUTH_RULE_ARGUMENT_EMPTY);
    EXPECT_FALSE(checked(six, false).has_value());
    EXPECT_EQ(checked(six, false).value_or(7), 7);
    EXPECT_EQ(six.value_or(7), 6);
}

TEST(Expected, SuitsTemplatesWrittenForTheStandardLibrarys)
{
    behavesAsTheStandardsDo<Expected<int>>();
#ifdef __cpp_lib_expected
    behavesAsTheStandardsDo<std::expected<int, Error>>();
#endif
}

TEST(Expected, IsThereForALoopOverWhatACallGives)
{
    const auto numbers = [] {
        return Expected<std::vector<int>>{std::vector<int>{1, 2, 3}};
    };
    int sum = 0;
    for (const int number : *numbers())
    {
        sum += number;
    }
    EXPECT_EQ(sum, 6);
    static_assert(std::is_same_v<decltype(*numbers()), std::vector<int>>);
    static_assert(std::is_same_v<decltype(numbers().value()), std::vector<int>>);
}

TEST(Expected, EndsTheProgramWhereThereIsNoValue)
{
    EXPECT_EQ(support::exitStatusOf([] { static_cast<void>(*Expected<int>{5}); }), 0);
    EXPECT_EQ(support::exitStatusOf([] { static_cast<void>(*Expected<int>{refused}); }), -SIGABRT);
    EXPECT_EQ(support::exitStatusOf([] { static_cast<void>(Expected<int>{5}.error()); }), -SIGABRT);
    EXPECT_EQ(support::exitStatusOf([] { static_cast<void>(Expected<void>{}.error()); }), -SIGABRT);
    EXPECT_EQ(support::exitStatusOf([] { *Expected<void>{}; }), 0);
    EXPECT_EQ(support::exitStatusOf([] { *Expected<void>{refused}; }), -SIGABRT);
}

TEST(Text, IsEmptyOnceMovedFrom)
{
    Text first = Text::copy("text").value();
    const Text second{std::move(first)};
    EXPECT_EQ(second.view(), "text");
    // NOLINTNEXTLINE(bugprone-use-after-move): what is left is what this is about.
    EXPECT_EQ(first.view(), "");
    EXPECT_STREQ(first.c_str(), "");
}

TEST(Text, RefusesAZeroByte)
{
    EXPECT_EQ(textOf(Text::copy("text")), "text");
    EXPECT_EQ(textOf(Text::copy({})), "");
    EXPECT_REFUSED("argument.zero-byte", Text::copy(withZero));
}

TEST(Text, TellsOfExhaustedMemory)
{
    withEachAllocationFailing([](auto& failure) {
        const Expected<Text> text = Text::copy("text");
        EXPECT_EQ(!text, failure.reached());
    });
}

TEST(Arguments, KeepTheFirstFailure)
{
    detail::Arguments in;
    EXPECT_STREQ(in.text("first", "one"), "one");
    EXPECT_EQ(in.maybe("none", std::nullopt), nullptr);
    EXPECT_FALSE(in.failed());
    EXPECT_EQ(in.text("second", withZero, 7), nullptr);
    EXPECT_EQ(in.failure().rule(), BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE);
    EXPECT_EQ(in.length<int>("size", std::size_t{1} << 31), 0);
    EXPECT_EQ(in.failure().rule(), BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE);
    EXPECT_EQ(in.text("third", "after it"), nullptr);
}

TEST(Arguments, RefuseLengthsThatTheLibraryDoesNotCount)
{
    detail::Arguments in;
    EXPECT_EQ(in.length<int>("size", (std::size_t{1} << 31) - 1), 2147483647);
    EXPECT_FALSE(in.failed());
    EXPECT_EQ(in.length<int>("size", std::size_t{1} << 31), 0);
    EXPECT_EQ(in.failure().rule(), BMCOAUTH_RULE_ARGUMENT_LENGTH);
    detail::Arguments more;
    EXPECT_EQ(more.array<char*>("array", PTRDIFF_MAX), nullptr);
    EXPECT_EQ(more.failure().rule(), BMCOAUTH_RULE_ARGUMENT_LENGTH);
}

TEST(Arguments, AlignWhatTheyHold)
{
    detail::Arguments in;
    for (std::size_t i = 0; i < 400; ++i)
    {
        ASSERT_EQ(std::string(i, 'x'), in.text("text", std::string(i, 'x')));
        char** const array = in.array<char*>("array", i);
        ASSERT_NE(array, nullptr);
        ASSERT_EQ(std::bit_cast<std::uintptr_t>(array) % alignof(char*), 0U);
        ASSERT_EQ(array[i], nullptr);
    }
}

TEST(Arguments, TellOfExhaustedMemory)
{
    const std::string large(100000, 'x');
    withEachAllocationFailing([&](auto& failure) {
        detail::Arguments in;
        const char* const copy = in.text("large", large);
        const bool failed = failure.reached();
        EXPECT_EQ(copy == nullptr, failed);
        EXPECT_EQ(in.failure().rule(), failed ? BMCOAUTH_RULE_MEMORY_EXHAUSTED : Rule{});
    });
}

// ----------------------------------------------------------------------------- encoding, documents --

TEST(Encoding, TakesAndGivesBytes)
{
    // RFC 4648, section 10; the last row is the one whose alphabets differ.
    EXPECT_EQ(textOf(base64(bytesOf("foobar"))), "Zm9vYmFy");
    EXPECT_EQ(textOf(base64(bytesOf("fo"))), "Zm8=");
    EXPECT_EQ(textOf(base64({})), "");
    EXPECT_EQ(textOf(base64Url(bytesOf("\xfb\xff\xbf"))), "-_-_");
    EXPECT_EQ(textOf(decodeBase64Url("-_-_")), "\xfb\xff\xbf");
    EXPECT_REFUSED("base64.malformed", decodeBase64Url(""));
    EXPECT_REFUSED("argument.zero-byte", decodeBase64Url("Zm9v\0"sv));
}

TEST(Encoding, LooksAtTheBytesOfAText)
{
    const std::string text = "a\0\xff"s;
    const ByteSpan bytes = bytesOf(text);
    EXPECT_TRUE(std::ranges::equal(bytes, std::array<unsigned char, 3>{0x61, 0x00, 0xff}));
    EXPECT_EQ(static_cast<const void*>(bytes.data()), text.data());
    EXPECT_TRUE(bytesOf("").empty());
    EXPECT_TRUE(bytesOf({}).empty());
}

TEST(Random, ComesFromTheDevice)
{
    support::FakeRandom device{"\x01\xff"};
    EXPECT_EQ(textOf(randomHex(2)), "0x01ff");
    EXPECT_REFUSED("argument.range", randomHex(17));
    EXPECT_EQ(textOf(randomToken(3)), "Af8B");
    EXPECT_EQ(lengthOfToken(16), 24U);
    EXPECT_EQ(textOf(randomIv()), "FF01FF01FF01FF01FF01FF01FF01FF01");
    device.failOpening(ENOENT);
    EXPECT_REFUSED("random.device", randomHex(2));
    EXPECT_REFUSED("random.device", randomToken(3));
    EXPECT_REFUSED("random.device", randomIv());
}

TEST(Errors, AreWrittenAsADocument)
{
    EXPECT_EQ(errorText(OAUTH_INVALID_CLIENT), "invalid_client");
    EXPECT_EQ(textOf(errorDocument(OAUTH_INVALID_CLIENT, "unknown")),
              R"({"error":"invalid_client","error_description":"unknown"})");
    EXPECT_REFUSED("argument.zero-byte", errorDocument(OAUTH_INVALID_CLIENT, withZero));
}

TEST(Device, IsMarkedByAFile)
{
    EXPECT_FALSE(deviceIsMarked());
    const support::MarkerFile marker;
    EXPECT_TRUE(deviceIsMarked());
}

TEST(Document, ReadsItsMembers)
{
    const Document document =
        Document::parse(R"({"t":"x", "l":["a",1,"b"], "o":[{"k":1}], "b":true, "n":7})").value();
    EXPECT_EQ(textOf(document.string("t")), "x");
    EXPECT_EQ(linesOf(document.strings("l")), (Lines{"a", "b"}));
    EXPECT_EQ(linesOf(document.objects("o")), (Lines{R"({"k":1})"}));
    EXPECT_TRUE(document.boolean("b").value());
    EXPECT_EQ(document.number("n").value(), 7U);
    EXPECT_REFUSED("json.member-type", document.string("n"));
    EXPECT_REFUSED("json.member-missing", document.boolean("gone"));
    EXPECT_REFUSED("argument.zero-byte", document.string("t\0"sv));
}

TEST(Document, ChangesItsMembers)
{
    Document document = Document::parse(R"({"a":"old"})").value();
    ASSERT_TRUE(document.setString("a", "new"));
    ASSERT_TRUE(document.setStrings("l", std::array{"x"sv, "y"sv}));
    ASSERT_TRUE(document.setStrings("none", {}));
    ASSERT_TRUE(document.merge(R"({"n":1})"));
    EXPECT_EQ(document.view(), R"({"a":"new","l":["x","y"],"n":1,"none":[]})");
    ASSERT_TRUE(document.remove("l"));
    EXPECT_REFUSED("argument.zero-byte", document.setString("a", withZero));
    EXPECT_REFUSED("json.root", document.merge("[]"));
    EXPECT_REFUSED("jwk.kind", document.addPublicKey());
    EXPECT_EQ(document.view(), R"({"a":"new","n":1,"none":[]})");
}

TEST(Document, IsAnObject)
{
    EXPECT_EQ(textOf(Document::parse(" { } ")), "{}");
    EXPECT_REFUSED("json.root", Document::parse("[]"));
    EXPECT_REFUSED("json.syntax", Document::parse(""));
    EXPECT_REFUSED("argument.zero-byte", Document::parse("{}\0"sv));
}

TEST(Document, IsRefusedOnceMovedFrom)
{
    Document document = Document::parse(R"({"a":"b"})").value();
    const Document other{std::move(document)};
    EXPECT_EQ(textOf(other.string("a")), "b");
    // NOLINTNEXTLINE(bugprone-use-after-move): what is left is what this is about.
    EXPECT_REFUSED("json.syntax", document.string("a"));
    EXPECT_REFUSED("argument.null", document.setString("a", "b"));
}

TEST(ReadMember, ReadsEachType)
{
    Json::Value document =
        parseJson(R"({"t":"x","l":["a"],"o":{"k":1},"ol":[{}],"b":false,"n":4294967295})").value();
    EXPECT_EQ(textOf(readString(document, "t")), "x");
    EXPECT_EQ(linesOf(readStrings(document, "l")), (Lines{"a"}));
    EXPECT_EQ(textOf(readObject(document, "o")), R"({"k":1})");
    EXPECT_EQ(linesOf(readObjects(document, "ol")), (Lines{"{}"}));
    EXPECT_FALSE(readBoolean(document, "b").value());
    EXPECT_EQ(readNumber(document, "n").value(), 4294967295U);
    EXPECT_EQ(readLongNumber(document, "n").value(), 4294967295ULL);
    EXPECT_REFUSED("json.member-type", readNumber(document, "t"));
    EXPECT_REFUSED("argument.zero-byte", readString(document, withZero));
}

TEST(ReadMember, RefusesWhatTheLibraryWouldThrowFor)
{
    Json::Value list{Json::arrayValue};
    EXPECT_REFUSED("json.root", readString(list, "t"));
    Json::Value text{"text"};
    EXPECT_REFUSED("json.root", readNumber(text, "t"));
    Json::Value object{Json::objectValue};
    EXPECT_REFUSED("json.root", merge(list, object));
    EXPECT_REFUSED("json.root", merge(object, text));
}

TEST(ReadMember, GoesWithWriting)
{
    Json::Value into = parseJson(R"({"a":1})").value();
    Json::Value from = parseJson(R"({"b":2})").value();
    ASSERT_TRUE(merge(into, from));
    EXPECT_EQ(jsonText(into).value(), R"({"a":1,"b":2})");
    EXPECT_REFUSED("json.syntax", parseJson("no"));
    EXPECT_EQ(linesOf(memberNames(R"({"b":1,"a":2})")), (Lines{"a", "b"}));
    EXPECT_REFUSED("json.root", memberNames("null"));
}

TEST(ParameterList, IsMadeOfSpans)
{
    const std::array<std::string_view, 2> several{"x", "y"};
    const std::array one{"z"sv};
    const std::array parameters{Parameter{"T", several}, Parameter{"V", one}};
    const ParameterList list = ParameterList::of(parameters).value();
    EXPECT_EQ(textOf(list.write()), R"({"T":["x","y"],"V":"z"})");
    EXPECT_EQ(list.value("v").value(), "z");
    EXPECT_EQ(linesOf(list.values("t")), (Lines{"x", "y"}));
    EXPECT_REFUSED("document.parameter-missing", list.value("M"));
    EXPECT_REFUSED("document.parameter-missing", list.values("M"));
    EXPECT_EQ(textOf(list.copy().value().write()), textOf(list.write()));
    EXPECT_REFUSED("argument.null", ParameterList{}.write());
    EXPECT_REFUSED("document.empty", ParameterList::of({}));
    const std::array wrong{Parameter{"T", {}}};
    EXPECT_REFUSED("document.parameter-missing", ParameterList::of(wrong));
    const std::array zero{withZero};
    const std::array cut{Parameter{"T", zero}};
    EXPECT_REFUSED("argument.zero-byte", ParameterList::of(cut));
}

TEST(ParameterList, LeavesNothingWhenMemoryRunsOut)
{
    const std::string large(5000, 'x');
    const std::array<std::string_view, 2> values{"x", large};
    const std::array parameters{Parameter{"T", values}, Parameter{"V", values}};
    withEachAllocationFailing([&](auto& failure) {
        const Expected<ParameterList> list = ParameterList::of(parameters);
        EXPECT_EQ(!list, failure.reached());
    });
}

// ------------------------------------------------------------------------------------------- keys --

TEST(KeyRecord, HoldsItsMembers)
{
    const KeyRecord key = KeyRecord::parse(R"({"kty":"EC","kid":"k","n":1})").value();
    EXPECT_EQ(key.member("kid"), "k");
    EXPECT_EQ(key.member("n"), std::nullopt);
    EXPECT_EQ(key.member("x"), std::nullopt);
    EXPECT_REFUSED("json.root", KeyRecord::parse("[]"));
    EXPECT_EQ(KeyRecord{}.member("kid"), std::nullopt);
}

TEST(KeyRecord, CarriesASecret)
{
    const KeyRecord key = KeyRecord::sharedSecret(bytesOf("secret")).value();
    EXPECT_EQ(key.member("dfs"), "c2VjcmV0");
    EXPECT_EQ(textOf(key.secret()), "secret");
    EXPECT_REFUSED("argument.null", KeyRecord{}.secret());
    const KeyRecord named = KeyRecord::of("T", "id", "m", bytesOf("data")).value();
    EXPECT_EQ(named.member("kty"), "T");
    EXPECT_EQ(named.member("kid"), "id");
    EXPECT_EQ(named.member("m"), "ZGF0YQ==");
    EXPECT_EQ(KeyRecord::of("T", {}, "m", {}).value().member("m"), "");
}

TEST(PrivateKey, IsReadFromAFile)
{
    const support::TemporaryDirectory directory;
    const std::string path = directory / "key.pem";
    ASSERT_TRUE(generateKeyFile(path));
    EXPECT_TRUE(keyFileIsSound(path));
    EXPECT_EQ(textOf(publicPointOfFile(path)).size(), 65U);
    const PrivateKey key = PrivateKey::fromFile(path).value();
    const Expected<Text> signature = sign("text", key);
    ASSERT_TRUE(signature);
    const Expected<Bytes> der = decodeBase64Url(signature->view());
    EXPECT_TRUE(isSignature("text", *der, key));
    EXPECT_REFUSED("token.signature", isSignature("other", *der, key));
    EXPECT_REFUSED("file.unreadable", PrivateKey::fromFile(directory / "none"));
    EXPECT_REFUSED("argument.zero-byte", PrivateKey::fromFile(path + "\0"s));
    EXPECT_REFUSED("argument.zero-byte", keyFileIsSound(path + "\0"s));
    EXPECT_REFUSED("file.unreadable", publicPointOfFile(directory / "none"));
    EXPECT_REFUSED("file.unwritable", generateKeyFile(directory / "none/key.pem"));
}

TEST(PrivateKey, CanSign)
{
    EXPECT_REFUSED("key.encoding", PrivateKey::fromDer(bytesOf("no key")));
    const support::TemporaryDirectory directory;
    const std::string path = directory / "key.pem";
    std::ofstream{path} << issuer::p384Key().privatePem();
    ASSERT_TRUE(keyFileIsSound(path));
    EXPECT_REFUSED("key.curve", PrivateKey::fromFile(path));
    std::ofstream{path} << issuer::p256Key().privatePem();
    EXPECT_TRUE(PrivateKey::fromFile(path));
}

TEST(PrivateKey, IsNeverEmpty)
{
    EXPECT_REFUSED("argument.empty", PrivateKey::fromDer({}));
    // Of a key that is gone the library would make a throwaway one.
    PrivateKey key = newKey();
    const PrivateKey other{std::move(key)};
    ASSERT_TRUE(sign("text", other));
    const TokenPlan plan{.subject = "s", .id = "i", .issuer = "o", .expiresAt = 1};
    ASSERT_TRUE(issueToken(plan, other));
    ASSERT_TRUE(issueTokens({.state = "s"}, other));
    // NOLINTBEGIN(bugprone-use-after-move): what is left is what this is about.
    EXPECT_REFUSED("argument.empty", sign("text", key));
    EXPECT_REFUSED("argument.empty", issueToken(plan, key));
    EXPECT_REFUSED("argument.empty", issueTokens({.state = "s"}, key));
    EXPECT_REFUSED("argument.null", ecKeyOf(key));
    // NOLINTEND(bugprone-use-after-move)
}

TEST(PublicKeys, AreMadeOfTheirNumbers)
{
    // RFC 7515, appendix A.3.1.
    constexpr auto x = "f83OJ3D2xF1Bg8vub9tLe1gHMzV76e8Tus9uPHvRVEU"sv;
    constexpr auto y = "x_FEzRu9m36HLN_tue659LNpXW6pCyStikYjKIWI5a0"sv;
    EXPECT_EQ(textOf(ecPublicKeyPem(x, y, "P-256")).substr(0, 26), "-----BEGIN PUBLIC KEY-----");
    EXPECT_REFUSED("jwk.point", ecPublicKeyPem(y, x, "P-256"));
    EXPECT_EQ(textOf(rsaPublicKeyPem("AQAB", "AQAB")).substr(0, 26), "-----BEGIN PUBLIC KEY-----");
    EXPECT_REFUSED("base64.malformed", rsaPublicKeyPem("", "AQAB"));
}

TEST(CertificateKey, IsMadeOfAChain)
{
    const support::Identity root = support::Identity::root("root");
    const support::Identity device = root.issue({.commonName = "device"});
    const CertificateKey key = certificateOf(device);
    EXPECT_EQ(key.parameters().value("x5c").value(), device.body());
    EXPECT_EQ(textOf(commonName(textOf(key.pem()))), "device");
    EXPECT_TRUE(isCertificate(device.pem(), "DEVICE"));
    EXPECT_REFUSED("certificate.name", isCertificate(device.pem(), "other"));
    EXPECT_EQ(textOf(certificatePem(device.body())) + "\n", device.pem());
    EXPECT_TRUE(readCertificate(device.pem()));
    EXPECT_REFUSED("certificate.encoding", readCertificate("no"));
    EXPECT_TRUE(ecKeyOfCertificate(device.pem()));
    EXPECT_REFUSED("argument.length", CertificateKey::fromPem(""));
    EXPECT_REFUSED("certificate.encoding", commonName("no"));

    support::FakeFiles files;
    EXPECT_REFUSED("chain.root-missing", key.verifyChain());
    files.put("/etc/default/certs/FactorycertProdRoot.pem", root.pem());
    files.put("/etc/default/certs/FactorycertDevRoot.pem",
              support::Identity::root("development root").pem());
    EXPECT_TRUE(key.verifyChain());
    EXPECT_TRUE(key.isValid("device"));
    EXPECT_TRUE(key.isValid());
    EXPECT_REFUSED("certificate.name", key.isValid("other"));
    EXPECT_REFUSED("certificate.missing",
                   CertificateKey::parse(R"({"kty":"EC"})").value().verifyChain());
}

// ----------------------------------------------------------------------------------------- tokens --

struct Tokens : ::testing::Test
{
    FakeClock clock{now};
    PrivateKey key = newKey();
    TokenPlan plan{.subject = "admin",
                   .id = "token-1",
                   .issuer = "controller",
                   .expiresAt = now + 600,
                   .issuedAt = {},
                   .notBefore = {},
                   .scopes = {},
                   .keyId = "k"};
};

TEST_F(Tokens, AreIssuedAndVerified)
{
    const std::array<std::string_view, 2> values{"login", "configure"};
    const std::array scopes{ScopeEntry{"privileges", values}};
    plan.scopes = scopes;
    const Expected<Text> token = issueToken(plan, key);
    ASSERT_TRUE(token);
    const Verdict verdict = validateToken(token->view(), key);
    EXPECT_EQ(verdict.judgement(), Judgement::valid);
    EXPECT_TRUE(verdict.hasTrustedSignature());
    EXPECT_EQ(verdict.refused(), nullptr);
    const VerifiedToken* const good = verdict.verified();
    ASSERT_NE(good, nullptr);
    const Claims claims = good->claims();
    EXPECT_EQ(claims.subject(), "admin");
    EXPECT_EQ(claims.id(), "token-1");
    EXPECT_EQ(claims.issuer(), "controller");
    EXPECT_EQ(claims.issuedAt(), "1700000000");
    EXPECT_EQ(claims.notBefore(), "1700000000");
    EXPECT_EQ(claims.expiresAt(), "1700000600");
    EXPECT_EQ(claims.scopeValue("privileges"), "login");
    EXPECT_EQ(claims.scopeValue("other"), std::nullopt);
    EXPECT_EQ(claims.actor(), std::nullopt);
    EXPECT_EQ(claims.identityProviders(), std::nullopt);
    EXPECT_TRUE(claims.audiences().empty());
    EXPECT_EQ(good->header().keyId(), "k");
    EXPECT_EQ(good->header().algorithm(), "ES256");
    EXPECT_EQ(good->header().type(), "JWT");
}

TEST_F(Tokens, AreTakenOutOfTheirVerdict)
{
    const Text token = issueToken(plan, key).value();
    const Expected<VerifiedToken> taken = validateToken(token, key).takeVerified();
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->claims().subject(), "admin");
    EXPECT_REFUSED("token.signature",
                   validateToken(tampered(std::string{token}), key).takeVerified());
}

TEST_F(Tokens, AreRefusedWithWhatTheySayKeptApart)
{
    const Text token = issueToken(plan, key).value();
    ASSERT_EQ(validateToken(token, key).judgement(), Judgement::valid);
    const Verdict verdict = validateToken(tampered(std::string{token}), key);
    EXPECT_EQ(verdict.judgement(), Judgement::invalid);
    EXPECT_FALSE(verdict.hasTrustedSignature());
    EXPECT_EQ(verdict.verified(), nullptr);
    ASSERT_NE(verdict.refused(), nullptr);
    EXPECT_EQ(verdict.refused()->unverifiedClaims()->subject(), "admin");
    EXPECT_EQ(verdict.refused()->unverifiedHeader().keyId(), "k");
    EXPECT_EQ(validateToken(token, newKey()).judgement(), Judgement::invalid);
}

TEST_F(Tokens, Expire)
{
    const Text token = issueToken(plan, key).value();
    clock.advance(599);
    EXPECT_EQ(validateToken(token, key).judgement(), Judgement::valid);
    clock.advance(1);
    const Verdict verdict = validateToken(token, key);
    EXPECT_EQ(verdict.judgement(), Judgement::expired);
    EXPECT_EQ(verdict.verified(), nullptr);
    ASSERT_NE(verdict.refused(), nullptr);
    EXPECT_FALSE(verdict.refused()->unverifiedClaims());
}

TEST_F(Tokens, AreNotJudgedWithoutAClock)
{
    const Text token = issueToken(plan, key).value();
    clock.failBreakingDown();
    EXPECT_EQ(validateToken(token, key).judgement(), Judgement::failed);
}

TEST_F(Tokens, AreInvalidWithAZeroByte)
{
    const Text token = issueToken(plan, key).value();
    const std::string longer = std::string{token} + '\0' + "more";
    EXPECT_EQ(validateToken(longer, key).judgement(), Judgement::invalid);
    EXPECT_REFUSED("argument.zero-byte", readUnverified(longer));
    plan.subject = withZero;
    EXPECT_REFUSED("argument.zero-byte", issueToken(plan, key));
}

TEST_F(Tokens, AreNotIssuedWithoutAnExpiry)
{
    ASSERT_TRUE(issueToken(plan, key));
    plan.expiresAt = 0;
    EXPECT_REFUSED("argument.range", issueToken(plan, key));
}

TEST_F(Tokens, LeaveNothingBehindThatIsValid)
{
    const Text token = issueToken(plan, key).value();
    const auto expectNothing = [](const Verdict& verdict) {
        EXPECT_EQ(verdict.judgement(), Judgement::failed);
        EXPECT_FALSE(verdict.hasTrustedSignature());
        EXPECT_EQ(verdict.verified(), nullptr);
        ASSERT_NE(verdict.refused(), nullptr);
        EXPECT_FALSE(verdict.refused()->unverifiedClaims());
        EXPECT_EQ(verdict.refused()->unverifiedHeader().keyId(), std::nullopt);
    };
    // NOLINTBEGIN(bugprone-use-after-move): what is left is what this is about.
    Verdict first = validateToken(token, key);
    Verdict second{std::move(first)};
    expectNothing(first);
    EXPECT_EQ(second.judgement(), Judgement::valid);
    EXPECT_TRUE(second.hasTrustedSignature());
    first = std::move(second);
    expectNothing(second);
    ASSERT_NE(first.verified(), nullptr);
    Expected<VerifiedToken> taken = std::move(first).takeVerified();
    expectNothing(first);
    ASSERT_TRUE(taken);
    const VerifiedToken kept{std::move(*taken)};
    EXPECT_EQ(kept.claims().subject(), "admin");
    EXPECT_EQ(taken->claims().subject(), std::nullopt);
    EXPECT_TRUE(taken->claims().scopeEntries().empty());
    EXPECT_EQ(scopePrivileges(*taken), Privileges{});
    // NOLINTEND(bugprone-use-after-move)
}

/** A token that is signed by `key`, of JSON texts that issueToken would not write. */
std::string signedToken(const std::string& header, const std::string& payload,
                        const PrivateKey& key)
{
    const std::string input = issuer::signingInput(header, payload);
    return input + '.' + std::string{sign(input, key).value()};
}

TEST_F(Tokens, AreInvalidWithAZeroByteInAText)
{
    const std::string header = R"({"typ":"JWT","alg":"ES256","kid":"k"})";
    const std::string payload =
        R"({"sub":"admin","jti":"1","iss":"i","iat":"1700000000","nbf":"1700000000",)"
        R"("exp":"1700000600","scope":{"a":["b"]})";
    const auto judged = [&](const std::string& end, const std::string& head) {
        const std::string token = signedToken(head, payload + end, key);
        const Verdict verdict = validateToken(token, key);
        EXPECT_EQ(readUnverified(token).has_value(), verdict.verified() != nullptr);
        return verdict.judgement();
    };
    EXPECT_EQ(judged("}", header), Judgement::valid);
    EXPECT_EQ(judged(R"(,"x":"\\u0000 \\\\u0000 \u0001 \\"})", header), Judgement::valid);
    EXPECT_EQ(judged(R"(,"x":"a\u0000"})", header), Judgement::invalid);
    EXPECT_EQ(judged(R"(,"x":"\\\u0000"})", header), Judgement::invalid);
    EXPECT_EQ(judged(R"(,"x\u0000":1})", header), Judgement::invalid);
    EXPECT_EQ(judged(R"(,"x":[{"y":["\n\u0000"]}]})", header), Judgement::invalid);
    EXPECT_EQ(judged(",\"x\":\"a\0b\"}"s, header), Judgement::invalid);
    EXPECT_EQ(judged("}", R"({"typ":"JWT","alg":"ES256","kid":"k\u0000l"})"), Judgement::invalid);
    EXPECT_REFUSED("argument.zero-byte",
                   readUnverified(signedToken(header, payload + R"(,"x":"\u0000"})", key)));
}

TEST_F(Tokens, AreNeverTakenForWholeWithoutMemory)
{
    // Too long for the stack, so that the copy of the argument takes memory too.
    const std::string large(5000, 'x');
    plan.subject = large;
    const Text token = issueToken(plan, key).value();
    const JWTHeader header{};
    const JWTPayload payload{};
    withEachAllocationFailing([&](FailAllocation& failure) {
        const Expected<void> uncut = detail::requireUncut(token, &header, &payload);
        EXPECT_EQ(uncut.has_value(), !failure.reached());
        EXPECT_TRUE(uncut || uncut.error().rule() == BMCOAUTH_RULE_MEMORY_EXHAUSTED);
    });
}

TEST_F(Tokens, CanBeReadUnverified)
{
    const std::string token = tampered(std::string{issueToken(plan, key).value()});
    const Expected<UnverifiedToken> read = readUnverified(token);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->unverifiedClaims()->issuer(), "controller");
    EXPECT_EQ(read->unverifiedHeader().algorithm(), "ES256");
    EXPECT_REFUSED("base64.malformed", readUnverified("a.b.c"));
    EXPECT_REFUSED("token.parts", readUnverified(""));
}

TEST_F(Tokens, AreJudgedAsFailedWithoutMemory)
{
    // Too long for the stack, so that the copy of the argument is what fails first.
    const std::string large(5000, 'x');
    plan.subject = large;
    const Text token = issueToken(plan, key).value();
    ASSERT_EQ(validateToken(token, key).judgement(), Judgement::valid);
    FailAllocation failure{1};
    const Verdict verdict = validateToken(token, key);
    ASSERT_TRUE(failure.reached());
    EXPECT_EQ(verdict.judgement(), Judgement::failed);
    EXPECT_EQ(verdict.verified(), nullptr);
}

struct DelegatedTokens : ::testing::Test
{
    /** A token of the other party with these claims. */
    [[nodiscard]] static std::string token(const std::string& claims)
    {
        const std::string input = issuer::signingInput(
            R"({"alg":"ES256","kid":"k"})",
            R"({"sub":"alice","exp":1700003600,"nbf":1700000000)" + claims + "}");
        return issuer::token(input,
                             issuer::sideBySide(issuer::p256Key().sign(input, "SHA256"), 32));
    }

    [[nodiscard]] static TrustedKeys trusted(const issuer::Key& key = issuer::p256Key())
    {
        const std::string pem = key.pem();
        const std::array keys{std::string_view{pem}};
        return TrustedKeys::of(keys).value();
    }

    FakeClock clock{now};
};

TEST_F(DelegatedTokens, GrantWhatTheirClaimsStandFor)
{
    const std::array roles{Role{"operator", Privilege::clearLogs | Privilege::testAlerts}};
    const std::array providers{"corp"sv};
    const std::string text = token(
        R"(,"scope":"ravok_login","ravok_roles":["operator"],"xidp":{"corp":["VM"]},"aud":"me")");
    const Verdict verdict =
        validateDelegatedToken(text, trusted(), {.roles = roles, .providers = providers});
    EXPECT_TRUE(verdict.hasTrustedSignature());
    const VerifiedToken* const good = verdict.verified();
    ASSERT_NE(good, nullptr);
    EXPECT_EQ(userPrivileges(*good), Privileges{0x0c9});
    EXPECT_TRUE(userPrivileges(*good)->has(Privilege::accessVirtualMedia));
    EXPECT_FALSE(userPrivileges(*good)->has(Privilege::configure));
    EXPECT_EQ(scopePrivileges(*good), Privileges{Privilege::login});
    EXPECT_EQ(rolePrivileges(*good, roles).value().bits(), 0x088U);
    EXPECT_EQ(rolePrivileges(*good, {}).value().bits(), 0U);
    EXPECT_EQ(providerPrivileges(*good, providers).value().bits(), 0x040U);
    EXPECT_EQ(providerPrivileges(*good, {}).value().bits(), 0U);
    EXPECT_EQ(good->claims().scopeValue("AUTHNZ_USER"), "alice");
    EXPECT_EQ(good->claims().scopeEntries().size(), 3U);
    EXPECT_EQ(shown(good->claims().audiences()), (Lines{"me"}));
    EXPECT_TRUE(good->claims().roles().contains("operator"));
    EXPECT_FALSE(good->claims().roles().contains("oper"));
    EXPECT_EQ(shown(good->claims().scopeNames()), (Lines{"ravok_login"}));
    EXPECT_EQ(good->claims().identityProviders(), R"({"corp":["VM"]})");
}

TEST_F(DelegatedTokens, AreVerifiedByPublishedKeysOnceCompleted)
{
    Document key = Document::parse(R"({"kty":"EC","crv":"P-256","kid":"k"})").value();
    const std::string pem = issuer::p256Key().pem();
    ASSERT_TRUE(key.setString("kest_decoded_key", pem));
    const std::array keys{key.view()};
    EXPECT_EQ(validateDelegatedToken(token(""), TrustedKeys::of(keys).value()).judgement(),
              Judgement::valid);
}

TEST_F(DelegatedTokens, AreRefusedUnderOtherKeys)
{
    EXPECT_EQ(validateDelegatedToken(token(""), trusted()).judgement(), Judgement::valid);
    const Verdict verdict =
        validateDelegatedToken(token(""), trusted(issuer::otherP256Key()), {.skewSeconds = 5});
    EXPECT_EQ(verdict.judgement(), Judgement::invalid);
    EXPECT_FALSE(verdict.hasTrustedSignature());
    EXPECT_EQ(verdict.refused()->unverifiedClaims()->subject(), "alice");
}

TEST_F(DelegatedTokens, AreInvalidWithAZeroByteInAText)
{
    const auto judged = [](const std::string& more) {
        const Verdict verdict = validateDelegatedToken(token(more), trusted());
        EXPECT_EQ(verdict.hasTrustedSignature(), verdict.verified() != nullptr);
        return verdict.judgement();
    };
    EXPECT_EQ(judged(R"(,"ravok_roles":["admin"])"), Judgement::valid);
    EXPECT_EQ(judged(R"(,"ravok_roles":["admin\u0000-not"])"), Judgement::invalid);
    EXPECT_EQ(judged(R"(,"scope":"ravok_login\u0000x")"), Judgement::invalid);
    EXPECT_EQ(judged(R"(,"aud":["me\u0000not"])"), Judgement::invalid);
    EXPECT_EQ(judged(R"(,"xidp":{"corp\u0000":["VM"]})"), Judgement::invalid);
    // Nor is what an expired token says cut.
    clock.advance(3600);
    EXPECT_EQ(validateDelegatedToken(token(""), trusted()).judgement(), Judgement::expired);
    const Verdict late = validateDelegatedToken(token(R"(,"iss":"idp\u0000x")"), trusted());
    EXPECT_EQ(late.judgement(), Judgement::invalid);
    EXPECT_FALSE(late.refused()->unverifiedClaims());
}

TEST_F(DelegatedTokens, HaveATrustedSignatureEvenWhenTheyHaveExpired)
{
    clock.advance(3600);
    const Verdict late = validateDelegatedToken(token(""), trusted());
    EXPECT_EQ(late.judgement(), Judgement::expired);
    EXPECT_TRUE(late.hasTrustedSignature());
    EXPECT_EQ(late.verified(), nullptr);
    EXPECT_EQ(validateDelegatedToken(token(""), trusted(), {.skewSeconds = 1}).judgement(),
              Judgement::valid);
}

TEST_F(DelegatedTokens, CarryAnIssuersOwnScopeUnchanged)
{
    const auto privileges = [](const std::string& number) {
        const std::string text = token(R"(,"scope":{"USER_PRIV":[")" + number + R"("]})");
        const Verdict verdict = validateDelegatedToken(text, trusted());
        return userPrivileges(*verdict.verified());
    };
    EXPECT_EQ(privileges("5"), Privileges{5});
    EXPECT_EQ(privileges("5 "), std::nullopt);
    EXPECT_EQ(privileges("-5"), std::nullopt);
    EXPECT_EQ(privileges(""), std::nullopt);
    EXPECT_EQ(privileges("4294967296"), std::nullopt);
}

TEST(TrustedKeys, AreNeverNone)
{
    EXPECT_REFUSED("argument.empty", TrustedKeys::of({}));
    const std::array keys{"a"sv, "b"sv};
    EXPECT_EQ(linesOf(TrustedKeys::of(keys)), (Lines{"a", "b"}));
    withEachAllocationFailing([&](auto& failure) {
        const Expected<TrustedKeys> copies = TrustedKeys::of(keys);
        EXPECT_EQ(!copies, failure.reached());
    });
}

TEST(Privilege, HasAName)
{
    EXPECT_EQ(nameOf(Privilege::login), "ravok_login");
    EXPECT_EQ(nameOf(Privilege::executeDiagnosticCommands), "ravok_executediagnosticcommands");
}

// ------------------------------------------------------------------- authorization, registration --

TEST(TokenRequest, IsMadeWrittenAndRead)
{
    const std::array policy{Policy{"p", "v"}};
    const TokenRequest request = TokenRequest::of({.clientId = "id",
                                                   .clientSecret = "secret",
                                                   .state = "state",
                                                   .refreshToken = "again",
                                                   .policy = policy})
                                     .value();
    const Text text = request.write().value();
    EXPECT_EQ(
        text.view(),
        R"({"client_id":"id","client_secret":"secret","kest_policy_auth":{"p":"v"},"refresh_token":"again","state":"state"})");
    const TokenRequest read = TokenRequest::parse(text).value();
    EXPECT_EQ(read.clientId(), "id");
    EXPECT_EQ(read.clientSecret(), "secret");
    EXPECT_EQ(read.state(), "state");
    EXPECT_EQ(read.refreshToken(), "again");
    EXPECT_REFUSED("argument.null", read.handshake());
    EXPECT_REFUSED("authorize.grant", TokenRequest::parse("{}"));
    EXPECT_REFUSED("argument.zero-byte", TokenRequest::of({.clientId = withZero}));
}

TEST(TokenRequest, DoesNotThrowForWhatIsMissing)
{
    TokenRequest request =
        TokenRequest::of({.clientId = "i", .clientSecret = "s", .state = "x", .refreshToken = "r"})
            .value();
    ASSERT_TRUE(request.write());
    for (char* AuthorizeRequest::*const mandatory :
         {&AuthorizeRequest::client_id, &AuthorizeRequest::client_secret, &AuthorizeRequest::state})
    {
        char* const kept = std::exchange(request.get()->*mandatory, nullptr);
        EXPECT_REFUSED("document.incomplete", request.write());
        request.get()->*mandatory = kept;
        EXPECT_TRUE(request.write());
    }
    EXPECT_REFUSED("document.incomplete", TokenRequest{}.write());

    // A parameter without values, as parse_handshake_payload makes it.
    TokenRequest other =
        TokenRequest::of({.clientId = "i", .clientSecret = "s", .state = "x", .refreshToken = "r"})
            .value();
    other.get()->handshake = ParameterList::parse(R"({"R":[]})").value().release();
    EXPECT_REFUSED("document.empty", other.write());
}

TEST(TokenRequest, IsWholeOrNotMadeAtAll)
{
    const std::array policy{Policy{"p", "v"}};
    withEachAllocationFailing([&](auto& failure) {
        const Expected<TokenRequest> request = TokenRequest::of({.clientId = "id",
                                                                 .clientSecret = "secret",
                                                                 .state = "state",
                                                                 .refreshToken = "again",
                                                                 .policy = policy});
        EXPECT_EQ(!request, failure.reached());
    });
}

TEST(TokenResponse, IsIssued)
{
    const FakeClock clock{now};
    const PrivateKey key = newKey();
    const std::array values{"login"sv};
    const std::array scopes{ScopeEntry{"privileges", values}};
    const TokenResponse response = issueTokens({.state = "s",
                                                .subject = "admin",
                                                .issuer = "controller",
                                                .lifetimeSeconds = 60,
                                                .scopes = scopes},
                                               key)
                                       .value();
    EXPECT_EQ(response.state(), "s");
    EXPECT_EQ(response.expiresIn(), "60");
    EXPECT_EQ(response.tokenType(), "bearer");
    EXPECT_EQ(response.issuedAt(), "1700000000");
    EXPECT_EQ(response.refreshToken()->size(), 24U);
    const Verdict verdict = validateToken(*response.accessToken(), key);
    ASSERT_NE(verdict.verified(), nullptr);
    EXPECT_EQ(verdict.verified()->claims().subject(), "admin");
    EXPECT_EQ(verdict.verified()->claims().expiresAt(), "1700000060");
    EXPECT_EQ(verdict.verified()->claims().scopeValue("privileges"), "login");

    const TokenResponse read = TokenResponse::parse(textOf(response.write())).value();
    EXPECT_EQ(read.accessToken(), response.accessToken());
    EXPECT_REFUSED("argument.range", issueTokens({.state = "s", .lifetimeSeconds = 0}, key));
    const std::array empty{ScopeEntry{"privileges", {}}};
    EXPECT_REFUSED("authorize.scope", issueTokens({.state = "s", .scopes = empty}, key));
}

TEST(TokenResponse, DoesNotThrowForWhatIsMissing)
{
    TokenResponse response =
        TokenResponse::of(
            {.accessToken = "a", .state = "s", .refreshToken = "r", .expiresIn = "60"})
            .value();
    EXPECT_EQ(
        textOf(response.write()),
        R"({"access_token":"a","expires_in":"60","refresh_token":"r","state":"s","token_type":"bearer"})");
    for (char* AuthorizeResponse::*const mandatory :
         {&AuthorizeResponse::access_token, &AuthorizeResponse::state,
          &AuthorizeResponse::refresh_token, &AuthorizeResponse::expires_in,
          &AuthorizeResponse::token_type})
    {
        char* const kept = std::exchange(response.get()->*mandatory, nullptr);
        EXPECT_REFUSED("document.incomplete", response.write());
        response.get()->*mandatory = kept;
        EXPECT_TRUE(response.write());
    }
    EXPECT_REFUSED("document.incomplete", TokenResponse{}.write());
}

TEST(IssueUnverifiableTokens, AnswersARequest)
{
    EXPECT_TRUE(issueUnverifiableTokens(
        R"({"client_id":"i","client_secret":"s","state":"x","refresh_token":"r"})"));
    EXPECT_REFUSED("authorize.grant", issueUnverifiableTokens("{}"));
}

TEST(Registration, IsRequestedAndAnswered)
{
    const std::array uris{"https://a.example"sv};
    const std::array types{"otp1.0"sv, "software_id_cert-1.0"sv};
    const std::array secrets{KeyRecord::sharedSecret(bytesOf("secret")).value()};
    const KeyList keys = KeyList::of(secrets).value();
    const std::array certificates{certificateOf(support::Identity::root("device"))};
    const CertificateKeyList certificateList = CertificateKeyList::of(certificates).value();
    const RegistrationRequest request = RegistrationRequest::of({.redirectUri = uris,
                                                                 .clientName = "name",
                                                                 .softwareId = "software",
                                                                 .handshakeTypes = types,
                                                                 .keys = &keys,
                                                                 .certificates = &certificateList,
                                                                 .redirectUris = uris,
                                                                 .scope = "all"})
                                            .value();
    const Text text = request.write().value();
    EXPECT_NE(text.view().find(R"("scope":"all")"), std::string_view::npos);
    EXPECT_NE(text.view().find(R"("dfs":[{"dfs":"c2VjcmV0","kty":"DFS"}])"),
              std::string_view::npos);
    const RegistrationRequest read = RegistrationRequest::parse(text).value();
    EXPECT_EQ(read.clientName(), "name");
    EXPECT_EQ(read.softwareId(), "software");
    EXPECT_EQ(shown(read.redirectUri()), (Lines{"https://a.example"}));
    EXPECT_EQ(shown(read.handshakeTypes()), (Lines{"otp1.0", "software_id_cert-1.0"}));
    EXPECT_REFUSED("argument.null", read.challenge());

    const ParameterList challenge = serverChallengeFor(read, Proofs::both).value();
    EXPECT_EQ(linesOf(challenge.values("T")), (Lines{"otp1.0", "software_id_cert-1.0"}));
    EXPECT_REFUSED("argument.null", serverChallengeFor(RegistrationRequest{}, Proofs::both));
    const std::array grants{"authorization_code"sv};
    const RegistrationResponse answer =
        RegistrationResponse::answer(read, {.secretLifetimeSeconds = 86400,
                                            .grantTypes = grants,
                                            .challenge = &challenge,
                                            .sealedCertificate = "sealed"})
            .value();
    EXPECT_EQ(answer.clientId()->size(), 24U);
    EXPECT_EQ(answer.clientSecret()->size(), 24U);
    EXPECT_EQ(answer.secretLifetimeSeconds(), "86400");
    EXPECT_TRUE(answer.issuedAt());
    const Document document = Document::parse(textOf(answer.write())).value();
    EXPECT_EQ(textOf(document.string("client_id")), *answer.clientId());
}

TEST(Registration, GivesTheKeysOfARequestWithoutTheRecord)
{
    const std::array uris{"https://a.example"sv};
    const std::array more{"https://b.example"sv, "https://c.example"sv};
    const std::array keyRecords{KeyRecord::sharedSecret(bytesOf("first")).value(),
                                KeyRecord::sharedSecret(bytesOf("second")).value()};
    const KeyList keys = KeyList::of(keyRecords).value();
    const support::Identity first = support::Identity::root("first");
    const support::Identity second = support::Identity::root("second");
    const std::array certificates{certificateOf(first), certificateOf(second)};
    const CertificateKeyList certificateList = CertificateKeyList::of(certificates).value();
    const RegistrationRequest made = RegistrationRequest::of({.redirectUri = uris,
                                                              .clientName = "name",
                                                              .softwareId = "software",
                                                              .keys = &keys,
                                                              .certificates = &certificateList,
                                                              .redirectUris = more,
                                                              .scope = "all"})
                                         .value();
    EXPECT_EQ(shown(made.redirectUris()), (Lines{"https://b.example", "https://c.example"}));
    EXPECT_EQ(made.scope(), "all");

    const Text text = made.write().value();
    const RegistrationRequest read = RegistrationRequest::parse(text).value();
    EXPECT_TRUE(read.redirectUris().empty());
    EXPECT_EQ(read.scope(), std::nullopt);
    Lines pems;
    for (const Expected<CertificateKey> certificate : read.certificates())
    {
        pems.push_back(textOf(certificate.value().pem()));
    }
    EXPECT_EQ(pems, (Lines{textOf(certificates[0].pem()), textOf(certificates[1].pem())}));
    EXPECT_EQ(read.certificates().size(), 2U);
    EXPECT_EQ(textOf(read.certificate(1).value().pem()), pems.back());
    EXPECT_REFUSED("certificate.missing", read.certificate(2));
    Lines secrets;
    for (const KeyView key : read.keys())
    {
        EXPECT_EQ(key.member("kty"), "DFS");
        EXPECT_EQ(key.member("absent"), std::nullopt);
        const Bytes secret = key.secret().value();
        secrets.emplace_back(secret.view());
    }
    EXPECT_EQ(secrets, (Lines{"first", "second"}));
}

TEST(Registration, HasNoKeysWhereThereIsNoRequest)
{
    const RegistrationRequest nothing;
    EXPECT_TRUE(nothing.certificates().empty());
    EXPECT_REFUSED("certificate.missing", nothing.certificate(0));
    EXPECT_TRUE(nothing.keys().empty());
    EXPECT_EQ(nothing.keys().size(), 0U);
    EXPECT_TRUE(nothing.redirectUris().empty());
    EXPECT_EQ(nothing.scope(), std::nullopt);
    EXPECT_EQ(KeyView{}.member("kty"), std::nullopt);
    EXPECT_REFUSED("argument.null", KeyView{}.secret());
}

TEST(Registration, CopiesACertificateKeyOrSaysWhyNot)
{
    const std::array uris{"https://a.example"sv};
    const std::array certificates{certificateOf(support::Identity::root("device"))};
    const CertificateKeyList list = CertificateKeyList::of(certificates).value();
    const RegistrationRequest request = RegistrationRequest::of({.redirectUri = uris,
                                                                 .clientName = "name",
                                                                 .softwareId = "software",
                                                                 .certificates = &list})
                                            .value();
    withEachAllocationFailing([&](auto& failure) {
        const Expected<CertificateKey> copy = request.certificate(0);
        const bool reached = failure.reached();
        EXPECT_EQ(support::ruleBehind(copy), reached ? "memory.exhausted" : "accepted");
    });
}

TEST(CertificateKey, IsMadeOfAParameterList)
{
    const support::Identity device = support::Identity::root("device");
    const std::array<std::string_view, 1> type{"EC"};
    const std::string body = device.body();
    const std::array<std::string_view, 1> chain{body};
    const std::array parameters{Parameter{"kty", type}, Parameter{"x5c", chain}};
    const CertificateKey key = CertificateKey::of(ParameterList::of(parameters).value()).value();
    EXPECT_EQ(textOf(key.pem()) + "\n", device.pem());
    EXPECT_REFUSED("argument.empty", CertificateKey::of(ParameterList{}));
}

TEST(Registration, DoesNotThrowForWhatIsMissing)
{
    const std::array types{"otp1.0"sv};
    const ParameterList challenge = serverChallenge(types, Proofs::oneTimePassword).value();
    RegistrationResponse response =
        RegistrationResponse::of("secret", "id", {.challenge = &challenge}).value();
    ASSERT_TRUE(response.write());
    for (char* RegisterResponse::*const mandatory :
         {&RegisterResponse::client_id, &RegisterResponse::client_secret,
          &RegisterResponse::client_secret_expires_in})
    {
        char* const kept = std::exchange(response.get()->*mandatory, nullptr);
        EXPECT_REFUSED("document.incomplete", response.write());
        response.get()->*mandatory = kept;
        EXPECT_TRUE(response.write());
    }
    EXPECT_REFUSED("document.incomplete", RegistrationResponse{}.write());
    EXPECT_REFUSED("registration.challenge",
                   RegistrationResponse::of("secret", "id", {}).value().write());
    EXPECT_REFUSED("argument.null", RegistrationRequest{}.write());
}

TEST(Registration, IsWholeOrNotMadeAtAll)
{
    const std::array uris{"https://a.example"sv};
    const std::array types{"otp1.0"sv};
    const ParameterList challenge = serverChallenge(types, Proofs::oneTimePassword).value();
    withEachAllocationFailing([&](auto& failure) {
        const Expected<RegistrationRequest> request =
            RegistrationRequest::of({.redirectUri = uris,
                                     .clientName = "name",
                                     .softwareId = "software",
                                     .handshakeTypes = types,
                                     .challenge = &challenge,
                                     .redirectUris = uris,
                                     .scope = "all"});
        EXPECT_EQ(!request, failure.reached());
    });
    withEachAllocationFailing([&](auto& failure) {
        const Expected<RegistrationResponse> response =
            RegistrationResponse::of("secret", "id",
                                     {.grantTypes = types,
                                      .policiesOffered = types,
                                      .policiesRequired = types,
                                      .challenge = &challenge,
                                      .response = &challenge,
                                      .sealedCertificate = "sealed"});
        EXPECT_EQ(!response, failure.reached());
    });
}

TEST(OidcRegistration, IsRead)
{
    const OidcRegistration answer =
        OidcRegistration::parse(
            R"({"client_id":"i","client_secret":"s","client_secret_expires_at":9,)"
            R"("registration_access_token":"t","registration_client_uri":"u","client_id_issued_at":8})")
            .value();
    EXPECT_EQ(answer.clientId(), "i");
    EXPECT_EQ(answer.clientSecret(), "s");
    EXPECT_EQ(answer.accessToken(), "t");
    EXPECT_EQ(answer.clientUri(), "u");
    EXPECT_EQ(answer.issuedAt(), "8");
    EXPECT_EQ(answer.secretExpiresAt(), "9");
    EXPECT_REFUSED("document.member", OidcRegistration::parse("{}"));
    EXPECT_EQ(OidcRegistration{}.clientId(), std::nullopt);
}

// ------------------------------------------------------------------------------- handshake, ECIES --

struct Handshake : ::testing::Test
{
    support::Identity device = support::Identity::root("device");
    CertificateKey certificate = certificateOf(device);
    PrivateKey key = keyOf(device);
    std::string secrets = R"({"otp1.0":["12345678901234567890"]})";
    std::array<std::string_view, 2> types{"software_id_cert-1.0", "otp1.0"};

    [[nodiscard]] Credentials credentials() const
    {
        return {.secrets = secrets, .certificate = &certificate, .key = &key};
    }
};

TEST_F(Handshake, ProvesWhatIsAskedFor)
{
    for (const Proofs proofs : {Proofs::certificate, Proofs::oneTimePassword, Proofs::both})
    {
        const ParameterList challenge = serverChallenge(types, proofs).value();
        const ParameterList response = respond(challenge, credentials()).value();
        EXPECT_TRUE(isProven(challenge, response, secrets, &certificate));
        const ParameterList another = serverChallenge(types, proofs).value();
        EXPECT_REFUSED("handshake.proof-wrong", isProven(another, response, secrets, &certificate));
    }
    EXPECT_REFUSED("handshake.types", serverChallenge({}, Proofs::certificate));
}

TEST_F(Handshake, WantsEveryProof)
{
    const ParameterList challenge = serverChallenge(types, Proofs::both).value();
    const ParameterList response = respond(challenge, credentials()).value();
    const std::string password = response.value("R").value();
    const std::array proofs{std::string_view{password}};
    const std::array parameters{Parameter{"R", proofs}};
    const ParameterList half = ParameterList::of(parameters).value();
    // What the library takes for enough.
    HandshakePayload* record = certificate.parameters().get();
    EXPECT_TRUE(validateHandshakeResponse(challenge.get(), secrets.data(),
                                          static_cast<unsigned int>(secrets.size()), &record,
                                          half.get()));
    EXPECT_REFUSED("handshake.proof-missing", isProven(challenge, half, secrets, &certificate));
    EXPECT_TRUE(isProven(challenge, response, secrets, &certificate));
}

TEST_F(Handshake, WantsTheCertificateLast)
{
    // A wrong certificate proof in front of a right password would be lost.
    const ParameterList challenge =
        ParameterList::parse(R"({"T":["software_id_cert-1.0","otp1.0"],"M":"1","C":"1","V":"v"})")
            .value();
    // RFC 4226, appendix D, the second value with 8 digits.
    const ParameterList response = ParameterList::parse(R"({"R":["AAAA","94287082"]})").value();
    HandshakePayload* record = certificate.parameters().get();
    EXPECT_TRUE(validateHandshakeResponse(challenge.get(), secrets.data(),
                                          static_cast<unsigned int>(secrets.size()), &record,
                                          response.get()));
    EXPECT_REFUSED("handshake.types", isProven(challenge, response, secrets, &certificate));
}

TEST_F(Handshake, IsMadeByClientsToo)
{
    const ParameterList challenge = clientChallenge(types, 2).value();
    EXPECT_EQ(linesOf(challenge.values("T")), (Lines{"otp1.0", "otp1.0"}));
    EXPECT_REFUSED("handshake.types", clientChallenge({}, 2));
    EXPECT_TRUE(isCertificateType("software_id_cert-1.0"));
    EXPECT_FALSE(isCertificateType("software_id_cert-1.0\0"sv));
    EXPECT_EQ(linesOf(memberNames(textOf(generateSecrets("otp", 2, 1, 16)))),
              (Lines{"otp1.0", "otp2.0"}));
    EXPECT_REFUSED("argument.length", generateSecrets(std::string(60, 'x'), 1, 1, 16));
    EXPECT_REFUSED("handshake.certificate",
                   respond(serverChallenge(types, Proofs::both).value(), {.secrets = secrets}));
}

TEST_F(Handshake, SignsWithACertificatesKey)
{
    const EcKey privateKey = ecKeyOf(key).value();
    const EcKey publicKey = ecKeyOfCertificate(device.pem()).value();
    const Text signature = signProof("text", privateKey).value();
    EXPECT_TRUE(isProof("text", signature, publicKey));
    EXPECT_REFUSED("handshake.proof-wrong", isProof("other", signature, publicKey));
    EXPECT_REFUSED("argument.null", signProof("text", EcKey{}));
}

struct Ecies : ::testing::Test
{
    support::Identity left = support::Identity::root("left");
    support::Identity right = support::Identity::root("right");
    CertificateKey leftCertificate = certificateOf(left);
    CertificateKey rightCertificate = certificateOf(right);
    PrivateKey leftKey = keyOf(left);
    PrivateKey rightKey = keyOf(right);
};

TEST_F(Ecies, ReachesThePeer)
{
    const Envelope envelope = seal("for your eyes", rightCertificate, leftKey).value();
    const Opened opened = open(envelope, leftCertificate, rightKey).value();
    EXPECT_EQ(opened.data(), "for your eyes");
    EXPECT_EQ(opened.whole().size(), 13U + 1U + 16U);
    EXPECT_EQ(opened.whole().substr(0, 14), "for your eyes\n");
    EXPECT_REFUSED("argument.length", seal("", rightCertificate, leftKey));
}

TEST_F(Ecies, IsClosedToOthers)
{
    const Envelope envelope = seal("for your eyes", rightCertificate, leftKey).value();
    ASSERT_TRUE(open(envelope, leftCertificate, rightKey));
    EXPECT_REFUSED("envelope.mac-wrong", open(envelope, leftCertificate, leftKey));
    std::string altered{envelope.ciphertext};
    altered[10] = altered[10] == 'A' ? 'B' : 'A';
    EXPECT_REFUSED("envelope.mac-wrong",
                   open({altered, envelope.mac, envelope.iv}, leftCertificate, rightKey));
    EXPECT_REFUSED("base64.malformed",
                   open({envelope.ciphertext, "", envelope.iv}, leftCertificate, rightKey));
    EXPECT_REFUSED("argument.zero-byte",
                   open({envelope.ciphertext, envelope.mac, withZero}, leftCertificate, rightKey));
}

TEST_F(Ecies, SealsUnderAFreshIvEachTime)
{
    const Envelope first = seal("x", rightCertificate, leftKey).value();
    const Envelope second = seal("x", rightCertificate, leftKey).value();
    EXPECT_NE(first.iv.view(), second.iv.view());
    EXPECT_NE(first.ciphertext.view(), second.ciphertext.view());
}

TEST_F(Ecies, TravelsInAResponse)
{
    const Envelope envelope = seal("certificate", rightCertificate, leftKey).value();
    ParameterList response;
    ASSERT_TRUE(attach(response, envelope));
    EXPECT_EQ(response.value("encrypted_sslcert").value(), envelope.ciphertext.view());
    const std::string mac = response.value("HMAC").value();
    EXPECT_TRUE(
        open({response.value("encrypted_sslcert").value(), mac, response.value("iv").value()},
             leftCertificate, rightKey));
    ParameterList other;
    EXPECT_REFUSED("handshake.iv", attach(other, {"a", "b", "short"}));
    EXPECT_FALSE(other);
}

TEST_F(Ecies, LeavesNothingWhenMemoryRunsOut)
{
    withEachAllocationFailing([&](auto& failure) {
        const Expected<Envelope> envelope = seal("x", rightCertificate, leftKey);
        if (!envelope)
        {
            EXPECT_TRUE(failure.reached());
        }
    });
}

} // namespace

} // namespace bmcoauth
