// SPDX-License-Identifier: Apache-2.0
#include "cpp/identities.hpp"
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <bmcoauth.hpp>

#include <gtest/gtest.h>

#include <array>
#include <concepts>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>

using namespace std::string_literals;
using namespace std::string_view_literals;

namespace bmcoauth
{

namespace
{

constexpr auto withZero = "te\0xt"sv;

// Returned by value everywhere: without memory of the heap, and without exceptions.
static_assert(sizeof(Error) == sizeof(bmcoauth_refusal));
static_assert(std::is_trivially_copyable_v<Error>);
static_assert(std::is_nothrow_move_constructible_v<Expected<Text>>);
static_assert(std::is_nothrow_move_constructible_v<Expected<void>>);
static_assert(!std::default_initializable<Error>);
// A rule is a number in C, and must not pass for the value of a call.
static_assert(!std::convertible_to<Rule, Error>);

template <typename T>
concept HasSubject = requires
{
    std::declval<T>().subject();
};
template <typename T>
concept HasRefusal = requires
{
    std::declval<T>().refusal();
};
static_assert(HasSubject<const Error&> && !HasSubject<Error>);
static_assert(HasRefusal<const Verdict&> && !HasRefusal<Verdict>);

/** One line for logs. */
std::string lineOf(const Error& error)
{
    return std::string{error.describe()};
}

struct CallErrors : ::testing::Test
{
    PrivateKey key = keyOf(support::Identity::root("device"));
};

TEST_F(CallErrors, CarryWhatTheLibraryRefused)
{
    const Expected<bool> member = Document::parse("{}").value().boolean("gone");
    ASSERT_FALSE(member);
    EXPECT_EQ(member.error().rule(), BMCOAUTH_RULE_JSON_MEMBER_MISSING);
    EXPECT_EQ(member.error().name(), "json.member-missing");
    EXPECT_EQ(member.error().subject(), "gone");
    EXPECT_EQ(member.error().index(), -1);
    EXPECT_EQ(member.error().saw(), "");
    EXPECT_EQ(member.error().wanted(), "");
    EXPECT_EQ(lineOf(member.error()), "json.member-missing: gone");
}

TEST_F(CallErrors, StayWhatTheyAreWhenLaterCallsFail)
{
    const Document document = Document::parse("{}").value();
    const Expected<bool> first = document.boolean("first");
    static_cast<void>(document.boolean("second"));
    EXPECT_EQ(first.error().subject(), "first");
    EXPECT_EQ(Error::last().rule(), BMCOAUTH_RULE_JSON_MEMBER_MISSING);
    EXPECT_EQ(lineOf(Error::last()), "json.member-missing: second");
}

TEST_F(CallErrors, AreNotThoseOfEarlierCallsWhereTheLibraryIsNotAsked)
{
    TokenPlan plan{.subject = "s", .id = "i", .issuer = withZero, .expiresAt = 1};
    // Each plants a refusal of the library first.
    EXPECT_REFUSED("argument.zero-byte", issueToken(plan, key));
    EXPECT_REFUSED("argument.range", randomHex(17));
    EXPECT_REFUSED("argument.empty", TrustedKeys::of({}));
    EXPECT_REFUSED("document.incomplete", TokenResponse{}.write());
    EXPECT_REFUSED("argument.zero-byte", validateToken(withZero, key));
    EXPECT_REFUSED("argument.zero-byte", keyFileIsSound(withZero));
    EXPECT_TRUE(support::isPlantedRefusal());
}

TEST_F(CallErrors, NameTheArgument)
{
    TokenPlan plan{.subject = "s", .id = "i", .issuer = withZero, .expiresAt = 1};
    EXPECT_EQ(lineOf(issueToken(plan, key).error()), "argument.zero-byte: issuer");
    const std::array texts{"one"sv, "two"sv, withZero};
    EXPECT_EQ(lineOf(TrustedKeys::of(texts).error()), "argument.zero-byte: keys[2]");
    const std::array parameters{Parameter{"T", {}}, Parameter{withZero, {}}};
    EXPECT_EQ(lineOf(ParameterList::of(parameters).error()), "argument.zero-byte: parameters[1]");
    EXPECT_EQ(lineOf(rsaPublicKeyPem("AQAB", withZero).error()), "argument.zero-byte: e");
    EXPECT_EQ(lineOf(TokenResponse{}.write().error()), "document.incomplete: access_token");
}

TEST_F(CallErrors, AreWrittenInOneLine)
{
    const Rule rule = BMCOAUTH_RULE_HANDSHAKE_PROOF_WRONG;
    EXPECT_EQ(lineOf(Error{rule}), "handshake.proof-wrong");
    EXPECT_EQ(lineOf(Error{rule, "R"}), "handshake.proof-wrong: R");
    EXPECT_EQ(lineOf(Error{rule, "R", 0}), "handshake.proof-wrong: R[0]");
    EXPECT_EQ(lineOf(Error{rule, "", 2147483647}), "handshake.proof-wrong: [2147483647]");
    const Description line = Error{rule, "R"}.describe();
    EXPECT_STREQ(line.c_str(), "handshake.proof-wrong: R");
    EXPECT_EQ(line.view(), "handshake.proof-wrong: R");
}

TEST_F(CallErrors, AreUnknownWhereNothingWasRefused)
{
    std::thread([] {
        EXPECT_EQ(Error::last().rule(), 0);
        EXPECT_EQ(lineOf(Error::last()), "unknown");
    }).join();
}

TEST_F(CallErrors, ArePrintableAndCutToFit)
{
    const Rule rule = BMCOAUTH_RULE_FILE_UNREADABLE;
    EXPECT_EQ(lineOf(Error{rule, "a\x01\n\x7f\xc3z"}), "file.unreadable: "s + "a????z");
    // Of a path the end is kept.
    const std::string path = "/0123456789/0123456789/0123456789/key.pem";
    EXPECT_EQ(lineOf(Error{rule, path}), "file.unreadable: "s + "...123456789/0123456789/key.pem");
    const std::string name(40, 'x');
    EXPECT_EQ(lineOf(Error{rule, name}), "file.unreadable: "s + std::string(31, 'x'));
}

TEST_F(CallErrors, TellWhatTheSystemSays)
{
    const support::TemporaryDirectory directory;
    const std::string path = directory / "none/key.pem";
    const Expected<PrivateKey> made = PrivateKey::loadOrCreate(path);
    EXPECT_EQ(made.error().rule(), BMCOAUTH_RULE_FILE_UNWRITABLE);
    EXPECT_EQ(made.error().subject(),
              path.size() > 31 ? "..." + path.substr(path.size() - 28) : path);
    EXPECT_EQ(made.error().saw(), "No such file or directory");
    EXPECT_TRUE(
        made.error().describe().view().ends_with("none/key.pem: saw No such file or directory"));
}

TEST_F(CallErrors, AreDescribedWithoutMemory)
{
    const std::string text = "text";
    support::FailAllocation failure{1};
    const Expected<Text> copy = Text::copy(text);
    ASSERT_TRUE(failure.reached());
    support::FailAllocation another{1};
    const Description line = copy.error().describe();
    ASSERT_FALSE(another.reached());
    EXPECT_STREQ(line.c_str(), "memory.exhausted");
}

struct Refusals : CallErrors
{
    support::FakeClock clock{1700000000};
    TokenPlan plan{.subject = "s", .id = "i", .issuer = "c", .expiresAt = 1700000600};
};

TEST_F(Refusals, BelongToTheVerdict)
{
    const Text token = issueToken(plan, key).value();
    const Verdict good = validateToken(token, key);
    EXPECT_EQ(good.refusal(), nullptr);
    clock.advance(600);
    Verdict late = validateToken(token, key);
    ASSERT_NE(late.refusal(), nullptr);
    EXPECT_EQ(lineOf(*late.refusal()),
              "token.expired: exp: saw 1700000600, wanted above 1700000600");
    EXPECT_REFUSED("token.expired", validateToken(token, key).takeVerified());
    // NOLINTBEGIN(bugprone-use-after-move): what is left is what this is about.
    const Verdict moved{std::move(late)};
    EXPECT_EQ(moved.refusal()->rule(), BMCOAUTH_RULE_TOKEN_EXPIRED);
    EXPECT_EQ(lineOf(*late.refusal()), "argument.empty: verdict");
    // NOLINTEND(bugprone-use-after-move)
}

TEST_F(Refusals, AreGoneWithAVerdictThatIsAssignedTo)
{
    const Text token = issueToken(plan, key).value();
    Verdict verdict = validateToken("a.b.c", key);
    ASSERT_NE(verdict.refusal(), nullptr);
    verdict = validateToken(token, key);
    EXPECT_EQ(verdict.refusal(), nullptr);
    EXPECT_NE(verdict.verified(), nullptr);
}

TEST_F(Refusals, TellOfPrivilegesThatAreGivenTwice)
{
    const std::array values{"1"sv};
    const std::array scopes{ScopeEntry{"names", values}, ScopeEntry{"USER_PRIV", values}};
    plan.scopes = scopes;
    plan.privileges = Privileges{Privilege::login};
    EXPECT_EQ(lineOf(issueToken(plan, key).error()), "argument.conflict: scopes[1]");
}

TEST_F(Refusals, TellWhyAListIsNotKept)
{
    // A parameter without values is read and written, but never copied.
    const ParameterList empty = ParameterList::parse(R"({"T":[]})").value();
    EXPECT_EQ(lineOf(empty.copy().error()), "document.parameter-missing: T");
    EXPECT_EQ(lineOf(RegistrationResponse::of("s", "i", {.challenge = &empty}).error()),
              "document.parameter-missing: T");
    EXPECT_EQ(lineOf(RegistrationResponse::of("s", "i", {.response = &empty}).error()),
              "document.parameter-missing: T");
    EXPECT_EQ(lineOf(RegistrationRequest::of({.challenge = &empty}).error()),
              "document.parameter-missing: T");
}

/** What isProven says of an answer with these proofs to a challenge for one password. */
std::string proofError(std::string_view proofs)
{
    const ParameterList challenge =
        ParameterList::parse(R"({"T":["otp1.0"],"M":"1","C":"1","V":"v"})").value();
    const ParameterList response =
        ParameterList::parse("{\"R\":" + std::string{proofs} + "}").value();
    return lineOf(
        isProven(challenge, response, R"({"otp1.0":["12345678901234567890"]})", nullptr).error());
}

TEST_F(Refusals, CountTheProofs)
{
    // RFC 4226, appendix D, the second value with 8 digits.
    EXPECT_EQ(proofError(R"(["94287082","94287082"])"), "handshake.proof-wrong: R[1]");
    const ParameterList two =
        ParameterList::parse(R"({"T":["otp1.0","otp2.0"],"M":"1","C":"1","V":"v"})").value();
    const ParameterList one = ParameterList::parse(R"({"R":["94287082"]})").value();
    EXPECT_EQ(lineOf(isProven(two, one, "{}", nullptr).error()), "handshake.proof-missing: R[1]");
    const ParameterList first =
        ParameterList::parse(R"({"T":["software_id_cert-1.0","otp1.0"],"M":"1","C":"1","V":"v"})")
            .value();
    const ParameterList both = ParameterList::parse(R"({"R":["AAAA","94287082"]})").value();
    EXPECT_EQ(lineOf(isProven(first, both, "{}", nullptr).error()), "handshake.types: T[0]");
}

} // namespace

} // namespace bmcoauth
