// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"

#include <bmcoauth.h>

#include <gtest/gtest.h>
#include <openssl/err.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace support;

namespace
{

constexpr const char* productionPath = "/etc/default/certs/FactorycertProdRoot.pem";
constexpr const char* developmentPath = "/etc/default/certs/FactorycertDevRoot.pem";

int verify(std::initializer_list<std::string> bodies)
{
    return chainVerify(certificateRecord(bodies).get());
}

/** A device with both factory roots. */
struct ChainVerify : testing::Test
{
    ChainVerify()
    {
        files.put(productionPath, production.pem());
        files.put(developmentPath, development.pem());
    }

    Identity production = Identity::root("production root");
    Identity development = Identity::root("development root");
    FakeFiles files;
};

TEST_F(ChainVerify, AcceptsACertificateOfTheProductionRoot)
{
    EXPECT_EQ(verify({production.issue({}).body()}), 1);
}

TEST_F(ChainVerify, RefusesACertificateOfAnotherRoot)
{
    // The same name with another key: the signature alone tells them apart.
    const Identity impostor = Identity::root("production root");
    EXPECT_EQ(verify({production.issue({}).body()}), 1);
    EXPECT_EQ(verify({impostor.issue({}).body()}), 0);
    EXPECT_EQ(verify({Identity::selfSigned({}).body()}), 0);
}

TEST_F(ChainVerify, RefusesATamperedCertificate)
{
    const Identity device = production.issue({});
    std::string der = device.der();
    der[der.size() - 5] ^= 1;
    EXPECT_EQ(verify({base64(der)}), 0);
    der[der.size() - 5] ^= 1;
    EXPECT_EQ(verify({base64(der)}), 1);
}

TEST_F(ChainVerify, AcceptsTheRootItself)
{
    EXPECT_EQ(verify({production.body()}), 1);
    EXPECT_EQ(verify({development.body()}), 0);
}

TEST_F(ChainVerify, VerifiesTheLastValueAndIgnoresTheFirst)
{
    const std::string good = production.issue({}).body();
    const std::string bad = Identity::selfSigned({}).body();
    EXPECT_EQ(verify({bad, good}), 1);
    EXPECT_EQ(verify({good, bad}), 0);
    EXPECT_EQ(verify({"garbage that is no certificate", good}), 1);
    EXPECT_EQ(verify({"", good}), 1);
}

TEST_F(ChainVerify, TakesNoIntermediateFromTheFirstValue)
{
    const Identity intermediate = production.issueAuthority("intermediate");
    const std::string device = intermediate.issue({}).body();
    EXPECT_EQ(verify({intermediate.body(), device}), 0);
    EXPECT_EQ(verify({"", intermediate.body(), device}), 1);
}

TEST_F(ChainVerify, FollowsIntermediatesInAnyOrder)
{
    const Identity first = production.issueAuthority("first");
    const Identity second = first.issueAuthority("second");
    const Identity third = second.issueAuthority("third");
    const std::string device = third.issue({}).body();
    EXPECT_EQ(verify({"", first.body(), second.body(), third.body(), device}), 1);
    EXPECT_EQ(verify({"", third.body(), first.body(), second.body(), device}), 1);
    EXPECT_EQ(verify({"", first.body(), third.body(), device}), 0);
}

TEST_F(ChainVerify, RefusesAnIssuerThatIsNoAuthority)
{
    CertificatePlan plan;
    plan.commonName = "not an authority";
    const Identity user = production.issue(plan);
    EXPECT_EQ(verify({"", user.body(), user.issue({}).body()}), 0);
    plan.authority = true;
    const Identity authority = production.issue(plan);
    EXPECT_EQ(verify({"", authority.body(), authority.issue({}).body()}), 1);
}

TEST_F(ChainVerify, NeverTrustsAnIntermediateThatSignsItself)
{
    const Identity own = Identity::root("own root");
    EXPECT_EQ(verify({"", own.body(), own.issue({}).body()}), 0);
}

TEST_F(ChainVerify, FollowsNinetyIntermediates)
{
    std::vector<std::string> bodies{""};
    Identity issuer = production.issueAuthority("0");
    bodies.push_back(issuer.body());
    for (int i = 1; i < 90; ++i)
    {
        issuer = issuer.issueAuthority(std::to_string(i));
        bodies.push_back(issuer.body());
    }
    bodies.push_back(issuer.issue({}).body());
    std::vector<char*> values;
    values.reserve(bodies.size() + 1);
    for (std::string& body : bodies)
    {
        values.push_back(body.data());
    }
    values.push_back(nullptr);
    std::string name = "x5c";
    std::vector<HandshakePayload> record{{name.data(), values.data()}, {}};
    EXPECT_EQ(chainVerify(record.data()), 1);
}

TEST_F(ChainVerify, AcceptsKeysOfOtherKinds)
{
    for (const char* group : {"RSA", "secp384r1", "secp521r1"})
    {
        SCOPED_TRACE(group);
        CertificatePlan plan;
        plan.commonName = "intermediate";
        plan.authority = true;
        plan.group = group;
        const Identity intermediate = production.issue(plan);
        plan = {};
        plan.group = group;
        EXPECT_EQ(verify({"", intermediate.body(), intermediate.issue(plan).body()}), 1);
    }
}

TEST_F(ChainVerify, JudgesValidityAtTheStartOf2035)
{
    struct Case
    {
        const char* notBefore;
        const char* notAfter;
        int result;
    };
    // A day around the new year each way, whatever the local zone.
    for (const auto& [notBefore, notAfter, result] :
         {Case{"20200101000000Z", "20300101000000Z", 0},
          Case{"20200101000000Z", "20341230000000Z", 0},
          Case{"20200101000000Z", "20350103000000Z", 1},
          Case{"20341230000000Z", "20350103000000Z", 1},
          Case{"20350103000000Z", "20450101000000Z", 0},
          Case{"19700101000000Z", "20500101000000Z", 1},
          Case{"20200101000000Z", "99991231235959Z", 1}})
    {
        SCOPED_TRACE(std::string{notBefore} + " to " + notAfter);
        CertificatePlan plan;
        plan.notBefore = notBefore;
        plan.notAfter = notAfter;
        EXPECT_EQ(verify({production.issue(plan).body()}), result);
    }
}

TEST_F(ChainVerify, JudgesIntermediatesAndRootsAtThatTimeToo)
{
    CertificatePlan plan;
    plan.commonName = "short-lived";
    plan.authority = true;
    plan.notAfter = "20300101000000Z";
    const Identity intermediate = production.issue(plan);
    EXPECT_EQ(verify({"", intermediate.body(), intermediate.issue({}).body()}), 0);
    const Identity root = Identity::selfSigned(plan);
    files.put(productionPath, root.pem());
    EXPECT_EQ(verify({root.issue({}).body()}), 0);
}

TEST_F(ChainVerify, DoesNotDependOnTheClock)
{
    const std::string body = production.issue({}).body();
    for (const std::time_t now : {std::time_t{0}, std::time_t{2145916800}})
    {
        const FakeClock clock{now};
        EXPECT_EQ(verify({body}), 1);
    }
}

TEST_F(ChainVerify, TrustsTheDevelopmentRootOnMarkedDevicesOnly)
{
    const std::string body = development.issue({}).body();
    EXPECT_EQ(verify({body}), 0);
    {
        const MarkerFile marker;
        EXPECT_EQ(verify({body}), 1);
        EXPECT_EQ(verify({production.issue({}).body()}), 1);
    }
    EXPECT_EQ(verify({body}), 0);
}

TEST_F(ChainVerify, ReadsTheRootsAfresh)
{
    const Identity next = Identity::root("production root");
    const std::string body = next.issue({}).body();
    EXPECT_EQ(verify({body}), 0);
    files.put(productionPath, next.pem());
    EXPECT_EQ(verify({body}), 1);
}

TEST_F(ChainVerify, RefusesEverythingWithoutBothRoots)
{
    const std::string body = production.issue({}).body();
    const PayloadPtr empty = certificateRecord({});
    for (const char* path : {productionPath, developmentPath})
    {
        SCOPED_TRACE(path);
        const std::string root = path == productionPath ? production.pem() : development.pem();
        for (const bool marked : {false, true})
        {
            const std::optional<MarkerFile> marker =
                marked ? std::make_optional<MarkerFile>() : std::nullopt;
            EXPECT_EQ(verify({body}), 1);
            files.fail(path, ENOENT);
            EXPECT_EQ(verify({body}), 0);
            // Also before the record is looked at.
            EXPECT_EQ(chainVerify(empty.get()), 0);
            files.fail(path, EACCES);
            EXPECT_EQ(verify({body}), 0);
            files.failReading(path);
            EXPECT_EQ(verify({body}), 0);
            files.put(path, "");
            EXPECT_EQ(verify({body}), 0);
            files.put(path, "not PEM");
            EXPECT_EQ(verify({body}), 0);
            files.put(path, root);
            EXPECT_EQ(verify({body}), 1);
        }
    }
}

TEST_F(ChainVerify, OpensTheRootsCloseOnExecAndClosesThem)
{
    const std::size_t before = openDescriptors();
    EXPECT_EQ(verify({production.issue({}).body()}), 1);
    EXPECT_EQ(openDescriptors(), before);
    const std::vector<Opening> openings = files.openings();
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[0].path, productionPath);
    EXPECT_EQ(openings[1].path, developmentPath);
    for (const Opening& opening : openings)
    {
        EXPECT_TRUE(opening.closeOnExec);
        EXPECT_FALSE(opening.forWriting);
    }
}

TEST_F(ChainVerify, AsksForNoPassPhraseOfAnEncryptedRoot)
{
    std::string pem = production.pem();
    pem.insert(pem.find('\n') + 1, "Proc-Type: 4,ENCRYPTED\n"
                                   "DEK-Info: AES-128-CBC,000102030405060708090A0B0C0D0E0F\n\n");
    files.put(productionPath, pem);
    EXPECT_EQ(verify({production.issue({}).body()}), 0);
    for (const Opening& opening : files.openings())
    {
        EXPECT_NE(opening.path, "/dev/tty");
    }
}

TEST_F(ChainVerify, ReportsAMissingChain)
{
    EXPECT_EQ(chainVerify(nullptr), -1);
    EXPECT_EQ(chainVerify(certificateRecord({}).get()), -1);

    PayloadPtr other = certificateRecord({production.issue({}).body()});
    EXPECT_EQ(chainVerify(other.get()), 1);
    other.get()->name[0] = 'X';
    EXPECT_EQ(chainVerify(other.get()), -1);
}

TEST_F(ChainVerify, LooksForTheChainUpToAParameterWithoutValueArray)
{
    const std::string body = production.issue({}).body();
    TextList chain{body};
    TextList none{};
    TextList garbage{"garbage"};
    std::string x5c = "x5c";
    std::string kty = "kty";
    std::vector<HandshakePayload> record{{kty.data(), garbage}, {x5c.data(), chain}, {}};
    EXPECT_EQ(chainVerify(record.data()), 1);
    record[0].values = none;
    EXPECT_EQ(chainVerify(record.data()), 1);
    record[0].values = nullptr;
    EXPECT_EQ(chainVerify(record.data()), -1);
    // The first "x5c" decides, whatever it holds.
    record[0] = {x5c.data(), none};
    EXPECT_EQ(chainVerify(record.data()), -1);
    record[0] = {x5c.data(), garbage};
    EXPECT_EQ(chainVerify(record.data()), -1);
}

TEST_F(ChainVerify, ReportsCertificatesThatCannotBeRead)
{
    const std::string good = production.issue({}).body();
    for (const std::string& bad : {std::string{}, std::string{"AAAA"}, std::string{"!"},
                                   good.substr(0, good.size() / 2), std::string(100000, 'A')})
    {
        SCOPED_TRACE(bad.substr(0, 20));
        EXPECT_EQ(verify({bad}), -1);
        EXPECT_EQ(verify({good, bad}), -1);
        EXPECT_EQ(verify({"", bad, good}), -1);
        EXPECT_EQ(verify({bad, good, good}), 1);
    }
}

TEST_F(ChainVerify, LeavesTheErrorQueueAndErrnoAlone)
{
    ERR_clear_error();
    errno = 1234;
    EXPECT_EQ(verify({Identity::selfSigned({}).body()}), 0);
    EXPECT_EQ(errno, 1234);
    EXPECT_EQ(verify({"garbage"}), -1);
    files.fail(productionPath, ENOENT);
    EXPECT_EQ(verify({"garbage"}), 0);
    EXPECT_EQ(errno, 1234);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST_F(ChainVerify, VerifiesNothingWhenMemoryRunsOut)
{
    const Identity intermediate = production.issueAuthority("intermediate");
    const PayloadPtr good =
        certificateRecord({"", intermediate.body(), intermediate.issue({}).body()});
    const PayloadPtr bad = certificateRecord({Identity::selfSigned({}).body()});
    // Once, so that what libcrypto loads on first use is there.
    EXPECT_EQ(chainVerify(good.get()), 1);
    EXPECT_EQ(chainVerify(bad.get()), 0);
    for (unsigned int nth = 1; nth < 40; ++nth)
    {
        FailAllocation exhausted{nth, FailAllocation::fromThenOn};
        const int afterExhaustion = chainVerify(good.get());
        ASSERT_TRUE(exhausted.reached());
        EXPECT_LE(afterExhaustion, 0);
    }
    for (unsigned int nth = 1; nth < 200; ++nth)
    {
        FailAllocation failure{nth};
        const int afterFailure = chainVerify(bad.get());
        ASSERT_TRUE(failure.reached());
        EXPECT_LE(afterFailure, 0);
    }
}

TEST(ValidateKestRootCert, NeverAccepts)
{
    const Identity root = Identity::root("root");
    FakeFiles files;
    files.put(productionPath, root.pem());
    files.put(developmentPath, root.pem());
    const PayloadPtr record = certificateRecord({root.body()});
    EXPECT_EQ(chainVerify(record.get()), 1);
    EXPECT_EQ(validateKestRootCert(record.get()), 0);
    EXPECT_EQ(validateKestRootCert(certificateRecord({}).get()), 0);
    EXPECT_EQ(validateKestRootCert(nullptr), 0);
}

} // namespace
