// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

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

/** What chainVerify gives, and the rule by which it does not verify. */
using Judgement = std::pair<int, std::string>;

const Judgement verified{BMCOAUTH_CHAIN_VERIFIED, "accepted"};
const Judgement untrusted{BMCOAUTH_CHAIN_REFUSED, "chain.untrusted"};
const Judgement withoutRoot{BMCOAUTH_CHAIN_REFUSED, "chain.root-missing"};
const Judgement unreadable{BMCOAUTH_CHAIN_FAILED, "certificate.encoding"};
const Judgement missing{BMCOAUTH_CHAIN_FAILED, "certificate.missing"};

Judgement judge(HandshakePayload* record)
{
    Judgement judged;
    judged.second = ruleOf([&] { return judged.first = chainVerify(record); });
    return judged;
}

Judgement verify(std::initializer_list<std::string> bodies)
{
    return judge(certificateRecord(bodies).get());
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
    EXPECT_EQ(verify({production.issue({}).body()}), verified);
}

TEST_F(ChainVerify, RefusesACertificateOfAnotherRoot)
{
    // The same name with another key: the signature alone tells them apart.
    const Identity impostor = Identity::root("production root");
    EXPECT_EQ(verify({production.issue({}).body()}), verified);
    EXPECT_EQ(verify({impostor.issue({}).body()}), untrusted);
    EXPECT_EQ(verify({Identity::selfSigned({}).body()}), untrusted);
}

TEST_F(ChainVerify, RefusesATamperedCertificate)
{
    const Identity device = production.issue({});
    std::string der = device.der();
    der[der.size() - 5] ^= 1;
    EXPECT_EQ(verify({base64(der)}), untrusted);
    der[der.size() - 5] ^= 1;
    EXPECT_EQ(verify({base64(der)}), verified);
}

TEST_F(ChainVerify, JudgesNoCertificateWhoseKeyCannotBeRead)
{
    const Identity device = production.issue({});
    std::string der = device.der();
    const std::size_t point = der.find(publicPoint(device.key()));
    ASSERT_NE(point, std::string::npos);
    der[point] = 9; // no form of a point
    EXPECT_EQ(verify({base64(der)}), unreadable);
    der[point] = 4;
    der[point + 64] ^= 1; // not on the curve
    EXPECT_EQ(verify({base64(der)}), unreadable);
    EXPECT_EQ(verify({"", base64(der), device.body()}), verified);
}

TEST_F(ChainVerify, AcceptsTheRootItself)
{
    EXPECT_EQ(verify({production.body()}), verified);
    EXPECT_EQ(verify({development.body()}), untrusted);
}

TEST_F(ChainVerify, VerifiesTheLastValueAndIgnoresTheFirst)
{
    const std::string good = production.issue({}).body();
    const std::string bad = Identity::selfSigned({}).body();
    EXPECT_EQ(verify({bad, good}), verified);
    EXPECT_EQ(verify({good, bad}), untrusted);
    EXPECT_EQ(verify({"not a certificate", good}), verified);
    EXPECT_EQ(verify({"", good}), verified);
}

TEST_F(ChainVerify, TakesNoIntermediateFromTheFirstValue)
{
    const Identity intermediate = production.issueAuthority("intermediate");
    const std::string device = intermediate.issue({}).body();
    EXPECT_EQ(verify({intermediate.body(), device}), untrusted);
    EXPECT_EQ(verify({"", intermediate.body(), device}), verified);
}

TEST_F(ChainVerify, FollowsIntermediatesInAnyOrder)
{
    const Identity first = production.issueAuthority("first");
    const Identity second = first.issueAuthority("second");
    const Identity third = second.issueAuthority("third");
    const std::string device = third.issue({}).body();
    EXPECT_EQ(verify({"", first.body(), second.body(), third.body(), device}), verified);
    EXPECT_EQ(verify({"", third.body(), first.body(), second.body(), device}), verified);
    EXPECT_EQ(verify({"", first.body(), third.body(), device}), untrusted);
}

TEST_F(ChainVerify, RefusesAnIssuerThatIsNoAuthority)
{
    CertificatePlan plan;
    plan.commonName = "not an authority";
    const Identity user = production.issue(plan);
    EXPECT_EQ(verify({"", user.body(), user.issue({}).body()}), untrusted);
    plan.authority = true;
    const Identity authority = production.issue(plan);
    EXPECT_EQ(verify({"", authority.body(), authority.issue({}).body()}), verified);
}

TEST_F(ChainVerify, NeverTrustsAnIntermediateThatSignsItself)
{
    const Identity own = Identity::root("own root");
    EXPECT_EQ(verify({"", own.body(), own.issue({}).body()}), untrusted);
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
    EXPECT_EQ(judge(record.data()), verified);
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
        EXPECT_EQ(verify({"", intermediate.body(), intermediate.issue(plan).body()}), verified);
    }
}

TEST_F(ChainVerify, JudgesValidityAtTheStartOf2035)
{
    struct Case
    {
        const char* notBefore;
        const char* notAfter;
        Judgement result;
    };
    // A day around the new year each way, whatever the local zone.
    for (const auto& [notBefore, notAfter, result] :
         {Case{"20200101000000Z", "20300101000000Z", untrusted},
          Case{"20200101000000Z", "20341230000000Z", untrusted},
          Case{"20200101000000Z", "20350103000000Z", verified},
          Case{"20341230000000Z", "20350103000000Z", verified},
          Case{"20350103000000Z", "20450101000000Z", untrusted},
          Case{"19700101000000Z", "20500101000000Z", verified},
          Case{"20200101000000Z", "99991231235959Z", verified}})
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
    EXPECT_EQ(verify({"", intermediate.body(), intermediate.issue({}).body()}), untrusted);
    const Identity root = Identity::selfSigned(plan);
    files.put(productionPath, root.pem());
    EXPECT_EQ(verify({root.issue({}).body()}), untrusted);
}

TEST_F(ChainVerify, DoesNotDependOnTheClock)
{
    const std::string body = production.issue({}).body();
    for (const std::time_t now : {std::time_t{0}, std::time_t{2145916800}})
    {
        const FakeClock clock{now};
        EXPECT_EQ(verify({body}), verified);
    }
}

TEST_F(ChainVerify, TrustsTheDevelopmentRootOnMarkedDevicesOnly)
{
    const std::string body = development.issue({}).body();
    EXPECT_EQ(verify({body}), untrusted);
    {
        const MarkerFile marker;
        EXPECT_EQ(verify({body}), verified);
        EXPECT_EQ(verify({production.issue({}).body()}), verified);
    }
    EXPECT_EQ(verify({body}), untrusted);
}

TEST_F(ChainVerify, ReadsTheRootsAfresh)
{
    const Identity next = Identity::root("production root");
    const std::string body = next.issue({}).body();
    EXPECT_EQ(verify({body}), untrusted);
    files.put(productionPath, next.pem());
    EXPECT_EQ(verify({body}), verified);
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
            EXPECT_EQ(verify({body}), verified);
            files.fail(path, ENOENT);
            EXPECT_EQ(verify({body}), withoutRoot);
            // Also before the record is looked at.
            EXPECT_EQ(judge(empty.get()), withoutRoot);
            files.fail(path, EACCES);
            EXPECT_EQ(verify({body}), withoutRoot);
            files.failReading(path);
            EXPECT_EQ(verify({body}), withoutRoot);
            files.put(path, "");
            EXPECT_EQ(verify({body}), withoutRoot);
            files.put(path, "not PEM");
            EXPECT_EQ(verify({body}), withoutRoot);
            files.put(path, root);
            EXPECT_EQ(verify({body}), verified);
        }
    }
}

TEST_F(ChainVerify, OpensTheRootsCloseOnExecAndClosesThem)
{
    const std::size_t before = openDescriptors();
    EXPECT_EQ(verify({production.issue({}).body()}), verified);
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
    EXPECT_EQ(verify({production.issue({}).body()}), withoutRoot);
    for (const Opening& opening : files.openings())
    {
        EXPECT_NE(opening.path, "/dev/tty");
    }
}

TEST_F(ChainVerify, ReportsAMissingChain)
{
    EXPECT_EQ(judge(nullptr), missing);
    EXPECT_EQ(judge(certificateRecord({}).get()), missing);

    PayloadPtr other = certificateRecord({production.issue({}).body()});
    EXPECT_EQ(judge(other.get()), verified);
    other.get()->name[0] = 'X';
    EXPECT_EQ(judge(other.get()), missing);
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
    EXPECT_EQ(judge(record.data()), verified);
    record[0].values = none;
    EXPECT_EQ(judge(record.data()), verified);
    record[0].values = nullptr;
    EXPECT_EQ(judge(record.data()), missing);
    // The first "x5c" decides, whatever it holds.
    record[0] = {x5c.data(), none};
    EXPECT_EQ(judge(record.data()), missing);
    record[0] = {x5c.data(), garbage};
    EXPECT_EQ(judge(record.data()), unreadable);
}

TEST_F(ChainVerify, ReportsCertificatesThatCannotBeRead)
{
    const std::string good = production.issue({}).body();
    for (const std::string& bad : {std::string{}, std::string{"AAAA"}, std::string{"!"},
                                   good.substr(0, good.size() / 2), std::string(100000, 'A')})
    {
        SCOPED_TRACE(bad.substr(0, 20));
        EXPECT_EQ(verify({bad}), unreadable);
        EXPECT_EQ(verify({good, bad}), unreadable);
        EXPECT_EQ(verify({"", bad, good}), unreadable);
        EXPECT_EQ(verify({bad, good, good}), verified);
    }
}

TEST_F(ChainVerify, NamesTheRootThatIsMissingAndWhy)
{
    const auto expect = [&](const char* subject, const char* saw, const char* wanted) {
        EXPECT_EQ(verify({production.body()}), withoutRoot);
        EXPECT_STREQ(lastRefusal().subject, subject);
        EXPECT_STREQ(lastRefusal().saw, saw);
        EXPECT_STREQ(lastRefusal().wanted, wanted);
    };
    // Of a long path the end is kept.
    files.put(developmentPath, "not PEM");
    expect("...ts/FactorycertDevRoot.pem", "", "a certificate in PEM");
    files.fail(developmentPath, EACCES);
    expect("...ts/FactorycertDevRoot.pem", "Permission denied", "");
    files.fail(productionPath, ENOENT);
    expect("...s/FactorycertProdRoot.pem", "No such file or directory", "");
}

TEST_F(ChainVerify, TellsWhereAnUntrustedChainEndsAndWhy)
{
    const auto expect = [](std::initializer_list<std::string> bodies, int index, const char* saw) {
        EXPECT_EQ(verify(bodies), untrusted);
        EXPECT_EQ(lastRefusal().index, index);
        EXPECT_STREQ(lastRefusal().saw, saw);
    };
    constexpr const char* noIssuer = "unable to get local issuer certificate";
    const Identity foreign = Identity::root("foreign root");
    const Identity first = foreign.issueAuthority("first");
    const Identity second = first.issueAuthority("second");
    const std::string device = second.issue({}).body();
    expect({Identity::selfSigned({}).body()}, 0, "self-signed certificate");
    expect({foreign.issue({}).body()}, 0, noIssuer);
    expect({"", device}, 1, noIssuer);
    expect({"", second.body(), device}, 1, noIssuer);
    expect({"", first.body(), second.body(), device}, 1, noIssuer);
    expect({"", second.body(), first.body(), device}, 2, noIssuer);
    expect({"", second.body(), first.body(), foreign.body(), device}, 3,
           "self-signed certificate in certificate chain");
    CertificatePlan plan;
    plan.commonName = "short-lived";
    plan.authority = true;
    plan.notAfter = "20300101000000Z";
    const Identity expired = production.issue(plan);
    expect({"", first.body(), expired.body(), expired.issue({}).body()}, 2,
           "certificate has expired");
    // Of a root there is no place.
    const Identity root = Identity::selfSigned(plan);
    files.put(productionPath, root.pem());
    expect({root.issue({}).body()}, -1, "certificate has expired");
}

TEST_F(ChainVerify, TellsWhichCertificateCannotBeRead)
{
    const std::string good = production.issue({}).body();
    EXPECT_EQ(verify({good, good, "AAAA", good}), unreadable);
    EXPECT_EQ(lastRefusal().index, 2);
    EXPECT_EQ(verify({good, good, "AAAA"}), unreadable);
    EXPECT_EQ(lastRefusal().index, 2);
    EXPECT_EQ(verify({}), missing);
    EXPECT_EQ(lastRefusal().index, -1);
    EXPECT_STREQ(lastRefusal().subject, "x5c");
}

TEST_F(ChainVerify, LeavesTheErrorQueueAndErrnoAlone)
{
    ERR_clear_error();
    errno = 1234;
    EXPECT_EQ(verify({Identity::selfSigned({}).body()}), untrusted);
    EXPECT_EQ(errno, 1234);
    EXPECT_EQ(verify({"garbage"}), unreadable);
    files.fail(productionPath, ENOENT);
    EXPECT_EQ(verify({"garbage"}), withoutRoot);
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
    EXPECT_EQ(judge(good.get()), verified);
    EXPECT_EQ(judge(bad.get()), untrusted);
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
    EXPECT_EQ(judge(record.get()), verified);
    EXPECT_REFUSED("chain.unsupported", validateKestRootCert(record.get()));
    EXPECT_REFUSED("chain.unsupported", validateKestRootCert(certificateRecord({}).get()));
    EXPECT_REFUSED("chain.unsupported", validateKestRootCert(nullptr));
}

} // namespace
