// SPDX-License-Identifier: Apache-2.0
#include "cpp/identities.hpp"
#include "support/fake_device.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/cpp/certificates.hpp>

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace bmcoauth
{

namespace
{

/** A device of the factory, and a stranger who knows all its certificates and bears its name. */
struct FactoryChain : ::testing::Test
{
    FactoryChain()
    {
        device.put("/etc/default/certs/FactorycertProdRoot.pem", root.pem());
        device.put("/etc/default/certs/FactorycertDevRoot.pem",
                   support::Identity::root("development root").pem());
    }

    support::FakeFiles device;
    support::Identity root = support::Identity::root("production root");
    support::Identity intermediate = root.issueAuthority("intermediate");
    support::Identity client = intermediate.issue({.commonName = "fwclient"});
    support::Identity stranger = support::Identity::selfSigned({.commonName = "fwclient"});

    [[nodiscard]] static CertificateKey parsed(const std::string& members)
    {
        return CertificateKey::parse("{" + members + "}").value();
    }
    /** The members of a JSON object: `name`, and the bodies as its values. */
    [[nodiscard]] static std::string member(const std::string& name,
                                            std::initializer_list<std::string> bodies)
    {
        std::string text;
        for (const std::string& body : bodies)
        {
            text += (text.empty() ? "\"" : ",\"") + body + "\"";
        }
        return "\"" + name + "\":[" + text + "]";
    }
};

TEST_F(FactoryChain, IsValidForTheDeviceWhoseCertificateIsFirstAndLast)
{
    const CertificateKey key =
        CertificateKey::fromPem(client.pem() + intermediate.pem() + client.pem()).value();
    EXPECT_TRUE(key.isValid("fwclient"));
    EXPECT_TRUE(key.isValid("FWCLIENT"));
    EXPECT_TRUE(key.isValid());
    EXPECT_REFUSED("certificate.name", key.isValid("fwclien"));
    EXPECT_REFUSED("argument.zero-byte", key.isValid(std::string_view{"fwclient\0", 9}));
    const CertificateKey alone = certificateOf(root.issue({.commonName = "fwclient"}));
    EXPECT_TRUE(alone.isValid("fwclient"));
}

TEST_F(FactoryChain, IsNotValidBehindAStrangersCertificate)
{
    const CertificateKey key =
        CertificateKey::fromPem(stranger.pem() + intermediate.pem() + client.pem()).value();
    // What the C function says of it: it asks each question of another certificate.
    EXPECT_TRUE(key.isValidRaw("fwclient"));
    EXPECT_TRUE(key.verifyChain());
    EXPECT_REFUSED("chain.ends", key.isValid("fwclient"));
    EXPECT_REFUSED("chain.ends", key.isValid());
}

TEST_F(FactoryChain, IsNotValidInTheOrderOfTls)
{
    // The intermediate is what is verified here.
    const CertificateKey key = CertificateKey::fromPem(client.pem() + intermediate.pem()).value();
    EXPECT_TRUE(key.isValidRaw("fwclient"));
    EXPECT_REFUSED("chain.ends", key.isValid("fwclient"));
}

TEST_F(FactoryChain, IsJudgedByTheMemberThatTheLibraryReads)
{
    // Parameter names are looked up regardless of case; names, keys and chains take "x5c" alone.
    // The other one comes first in the list.
    const std::string genuine = member("X5C", {client.body(), client.body()});
    const CertificateKey key = parsed(
        genuine + "," + member("x5c", {stranger.body(), intermediate.body(), client.body()}));
    EXPECT_EQ(key.parameters().value("x5c").value(), client.body());
    EXPECT_TRUE(key.isValidRaw("fwclient"));
    EXPECT_REFUSED("chain.ends", key.isValid("fwclient"));
}

TEST_F(FactoryChain, IsNotValidWithoutACertificate)
{
    EXPECT_REFUSED("certificate.missing", parsed(R"("kty":"EC")").isValid());
    EXPECT_REFUSED("certificate.missing", parsed(R"("kty":"EC","x5c":[])").isValid());
    EXPECT_REFUSED("certificate.missing", parsed(R"("x5c":[])").firstIsLast());
    EXPECT_REFUSED("certificate.missing", parsed(R"("kty":"EC")").firstIsLast());
    // One text twice, but no certificate; two texts, and no certificate.
    EXPECT_TRUE(parsed(member("x5c", {"AAAA", "AAAA"})).firstIsLast());
    EXPECT_REFUSED("certificate.encoding", parsed(member("x5c", {"AAAA", "AAAA"})).isValid());
    EXPECT_REFUSED("certificate.encoding", parsed(member("x5c", {"AAAA", "AAAB"})).firstIsLast());
}

TEST_F(FactoryChain, ComparesCertificatesNotTheirTexts)
{
    // A file with CRLF line ends leaves the carriage returns in the text.
    std::string lines = client.body();
    lines.insert(64, "\\r");
    const CertificateKey key = parsed(member("x5c", {lines, intermediate.body(), client.body()}));
    ASSERT_TRUE(key.isValidRaw("fwclient"));
    EXPECT_TRUE(key.isValid("fwclient"));
}

TEST_F(FactoryChain, TellsApartTwoCertificatesOfOneNameAndIssuer)
{
    const support::Identity renewed = intermediate.issue({.commonName = "fwclient"});
    const CertificateKey key =
        CertificateKey::fromPem(renewed.pem() + intermediate.pem() + client.pem()).value();
    ASSERT_TRUE(key.isValidRaw("fwclient"));
    EXPECT_REFUSED("chain.ends", key.isValid("fwclient"));
}

TEST_F(FactoryChain, IsNotValidOnceMovedFrom)
{
    CertificateKey key =
        CertificateKey::fromPem(client.pem() + intermediate.pem() + client.pem()).value();
    ASSERT_TRUE(key.isValid("fwclient"));
    const CertificateKey other{std::move(key)};
    EXPECT_TRUE(other.isValid("fwclient"));
    // NOLINTNEXTLINE(bugprone-use-after-move): what is left is what this is about.
    EXPECT_REFUSED("certificate.missing", key.isValid("fwclient"));
}

} // namespace

} // namespace bmcoauth
