// SPDX-License-Identifier: Apache-2.0
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/cpp/authorize.hpp>
#include <bmcoauth/cpp/issuing.hpp>
#include <bmcoauth/cpp/privileges.hpp>
#include <bmcoauth/cpp/validation.hpp>

#include <gtest/gtest.h>

#include <array>
#include <ctime>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace std::string_view_literals;

namespace bmcoauth
{

namespace
{

constexpr std::time_t now = 1700000000;

/** Each privilege with its bit and its name. */
constexpr std::array<std::pair<Privilege, std::string_view>, 9> names{{
    {Privilege{0x001}, "ravok_login"},
    {Privilege{0x002}, "ravok_configure"},
    {Privilege{0x004}, "ravok_configureusers"},
    {Privilege{0x008}, "ravok_clearlogs"},
    {Privilege{0x010}, "ravok_executeservercontrolcommands"},
    {Privilege{0x020}, "ravok_accessconsoleredirection"},
    {Privilege{0x040}, "ravok_accessvirtualmedia"},
    {Privilege{0x080}, "ravok_testalerts"},
    {Privilege{0x100}, "ravok_executediagnosticcommands"},
}};

std::vector<unsigned int> walked(Privileges set)
{
    std::vector<unsigned int> bits;
    for (const Privilege one : set)
    {
        bits.push_back(static_cast<unsigned int>(one));
    }
    return bits;
}

using Bits = std::vector<unsigned int>;

static_assert(std::forward_iterator<Privileges::Iterator>);

TEST(Privileges, AreWalkedInTheOrderOfTheirBits)
{
    EXPECT_EQ(walked({}), Bits{});
    EXPECT_EQ(walked(Privilege::testAlerts | Privilege::login), (Bits{0x001, 0x080}));
    EXPECT_EQ(walked(Privileges{0x1ff}),
              (Bits{0x001, 0x002, 0x004, 0x008, 0x010, 0x020, 0x040, 0x080, 0x100}));
    EXPECT_EQ(Privileges::all(), Privileges{0x1ff});
    // Bits that stand for nothing.
    EXPECT_EQ(walked(Privileges{0xfffffe00}), Bits{});
    EXPECT_EQ(walked(Privileges{0x80000100}), Bits{0x100});
}

TEST(Privileges, HaveNamesBothWays)
{
    for (const auto& [privilege, name] : names)
    {
        EXPECT_EQ(nameOf(privilege), name);
        EXPECT_EQ(privilegeNamed(name), privilege);
    }
    for (const std::string_view name : {"", "login", "RAVOK_LOGIN", "ravok_login ", "ravok_logi"})
    {
        EXPECT_EQ(privilegeNamed(name), std::nullopt) << name;
    }
    EXPECT_EQ(privilegeNamed("ravok_login\0"sv), std::nullopt);
}

TEST(Privileges, HaveNoNameForOtherNumbers)
{
    for (const unsigned int number : {0U, 3U, 0x200U, 0x80000000U})
    {
        EXPECT_EQ(nameOf(static_cast<Privilege>(number)), "") << number;
    }
}

struct Granted : ::testing::Test
{
    const support::FakeClock clock{now};
    PrivateKey key = std::move(KeyPair::generate().value().privateKey);
    std::array<std::string_view, 1> value{"value"};
    std::array<ScopeEntry, 1> entries{ScopeEntry{"entry", value}};
    std::array<ScopeEntry, 1> own{ScopeEntry{"USER_PRIV", value}};

    [[nodiscard]] Expected<TokenResponse> issued(const TokenGrant& grant) const
    {
        return issueTokens(grant, key);
    }
    [[nodiscard]] Expected<Text> token(std::optional<Privileges> privileges,
                                       std::span<const ScopeEntry> scopes = {}) const
    {
        return issueToken({.subject = "s",
                           .id = "i",
                           .issuer = "o",
                           .expiresAt = now + 60,
                           .scopes = scopes,
                           .privileges = privileges},
                          key);
    }
    [[nodiscard]] VerifiedToken verified(std::string_view text) const
    {
        return validateToken(text, key).takeVerified().value();
    }
};

TEST_F(Granted, ArePrivilegesThatTheTokenCarries)
{
    const TokenResponse response =
        issued({.scopes = entries, .privileges = Privilege::login | Privilege::configureUsers})
            .value();
    const VerifiedToken valid = verified(*response.accessToken());
    EXPECT_EQ(valid.claims().scopeValue("USER_PRIV"), "5");
    EXPECT_EQ(valid.claims().scopeValue("entry"), "value");
    EXPECT_EQ(valid.claims().scopeEntries().size(), 2U);
    EXPECT_EQ(userPrivileges(valid), Privileges{5});
}

TEST_F(Granted, AreNoneByAnEmptySetAndUnknownWithoutOne)
{
    const TokenResponse none = issued({.privileges = Privileges{}}).value();
    EXPECT_EQ(userPrivileges(verified(*none.accessToken())), Privileges{});
    const TokenResponse unknown = issued({.scopes = entries}).value();
    EXPECT_EQ(userPrivileges(verified(*unknown.accessToken())), std::nullopt);
    EXPECT_EQ(userPrivileges(verified(*issued({}).value().accessToken())), std::nullopt);
}

TEST_F(Granted, AreCarriedBySingleTokensToo)
{
    const Text all = token(Privileges::all()).value();
    EXPECT_EQ(userPrivileges(verified(all)), Privileges{511});
    const Text none = token({}, own).value();
    EXPECT_EQ(userPrivileges(verified(none)), std::nullopt);
    EXPECT_REFUSED("argument.conflict", token(Privileges{}, own));
}

TEST_F(Granted, AreNotSaidTwice)
{
    EXPECT_TRUE(issued({.scopes = own}));
    EXPECT_REFUSED("argument.conflict", issued({.scopes = own, .privileges = Privileges{}}));
}

TEST_F(Granted, LeaveNothingWhenMemoryRunsOut)
{
    const std::string large(2000, 'x');
    std::array<std::string_view, 1> values{large};
    const std::array scopes{ScopeEntry{"entry", values}};
    for (unsigned int nth = 1; nth <= 10; ++nth)
    {
        support::FailAllocation failure{nth};
        const Expected<TokenResponse> response =
            issued({.state = large, .scopes = scopes, .privileges = Privilege::login});
        ASSERT_TRUE(failure.reached());
        ASSERT_FALSE(response) << nth;
    }
}

} // namespace

} // namespace bmcoauth
