// SPDX-License-Identifier: Apache-2.0
#include "service_support.hpp"

#include <array>
#include <string>

namespace bmcoauth
{

namespace
{

struct DeviceOfTheFactory : ::testing::Test
{
    /** The identity of this certificate, if it is one of the device `name`. */
    [[nodiscard]] Expected<DeviceIdentity> identified(const support::Identity& one,
                                                      std::string_view name) const
    {
        return DeviceIdentity::of(factory.chainOf(one), name);
    }

    Factory factory;
    support::Identity device = factory.intermediate.issue({.commonName = "device"});
};

TEST_F(DeviceOfTheFactory, IsIdentifiedByItsName)
{
    const DeviceIdentity identity = identified(device, "device").value();
    const Text pem = identity.certificate().pem().value();
    EXPECT_EQ(std::string{pem.view()} + "\n", device.pem());
}

TEST_F(DeviceOfTheFactory, IsNotAnother)
{
    EXPECT_REFUSED("certificate.name", identified(device, "devic"));
    EXPECT_REFUSED("certificate.name", identified(device, "device2"));
    // The library takes it for the same.
    EXPECT_TRUE(factory.chainOf(device).isValid("DEVICE"));
    EXPECT_REFUSED("certificate.name", identified(device, "DEVICE"));
    EXPECT_REFUSED("argument.empty", identified(device, ""));
}

TEST_F(DeviceOfTheFactory, IsToldFromOneWhoseNameBeginsAlike)
{
    // The library compares 17 bytes.
    const support::Identity longName =
        factory.intermediate.issue({.commonName = "server-rack-01-slot-01"});
    EXPECT_TRUE(factory.chainOf(longName).isValid("server-rack-01-sl"));
    EXPECT_REFUSED("certificate.name", identified(longName, "server-rack-01-sl"));
    EXPECT_REFUSED("certificate.name", identified(longName, "server-rack-01-slot-02"));
    EXPECT_TRUE(identified(longName, "server-rack-01-slot-01"));
}

TEST_F(DeviceOfTheFactory, HasANameWithoutZeroBytes)
{
    const support::Identity cut =
        factory.intermediate.issue({.commonName = std::string("device\0x", 8)});
    EXPECT_REFUSED("certificate.name", identified(cut, "device"));
    EXPECT_REFUSED("certificate.name", identified(cut, std::string("device\0x", 8)));
    const support::Identity nameless = factory.intermediate.issue({.commonName = std::nullopt});
    EXPECT_REFUSED("certificate.name", identified(nameless, "device"));
}

TEST_F(DeviceOfTheFactory, HasAKeyThatProofsAreMadeWith)
{
    const support::Identity curve =
        factory.intermediate.issue({.commonName = "device", .group = "secp384r1"});
    EXPECT_REFUSED("key.curve", identified(curve, "device"));
    const support::Identity rsa =
        factory.intermediate.issue({.commonName = "device", .group = "RSA"});
    EXPECT_REFUSED("key.kind", identified(rsa, "device"));
}

TEST_F(DeviceOfTheFactory, IsNotAStrangerInFrontOfItsChain)
{
    const support::Identity stranger = support::Identity::selfSigned({.commonName = "device"});
    const CertificateKey attack =
        CertificateKey::fromPem(stranger.pem() + factory.intermediate.pem() + device.pem()).value();
    EXPECT_REFUSED("chain.ends",
                   DeviceIdentity::of(
                       attack.parameters().copy().and_then(CertificateKey::of).value(), "device"));
    EXPECT_REFUSED("chain.untrusted", identified(stranger, "device"));
    EXPECT_REFUSED("certificate.missing",
                   DeviceIdentity::of(CertificateKey::parse(R"({"kty":"EC"})").value(), "device"));
}

TEST_F(DeviceOfTheFactory, LeavesNoErrorsForTheNextUserOfOpenSsl)
{
    ERR_clear_error();
    EXPECT_REFUSED("key.curve",
                   identified(factory.intermediate.issue({.group = "secp384r1"}), "device"));
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST_F(DeviceOfTheFactory, IsWhatProofsAreCheckedFor)
{
    const CertificateKey chain = factory.chainOf(device);
    const PrivateKey key = keyOf(device);
    const std::array<std::string_view, 1> types{"software_id_cert-1.0"};
    const ParameterList challenge = serverChallenge(types, Proofs::certificate).value();
    const ParameterList response = respond(challenge, {.certificate = &chain, .key = &key}).value();
    std::optional<DeviceIdentity> identity = identified(device, "device").value();
    EXPECT_TRUE(checkProofs(challenge, response, "", identity));
    EXPECT_REFUSED("handshake.certificate", checkProofs(challenge, response, "", {}));
    // A certificate with the same name, but with another key.
    identity = identified(factory.intermediate.issue({.commonName = "device"}), "device").value();
    EXPECT_REFUSED("handshake.proof-wrong", checkProofs(challenge, response, "", identity));
}

} // namespace

} // namespace bmcoauth
