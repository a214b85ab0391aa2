// SPDX-License-Identifier: Apache-2.0
#include "service_support.hpp"

#include <chrono>
#include <string>

using namespace std::chrono_literals;

namespace bmcoauth
{

namespace
{

struct RegistrarOfDevices : TestService
{
    Factory factory;
    support::Identity device = factory.intermediate.issue({.commonName = "device"});

    [[nodiscard]] static RegistrationRules both()
    {
        return {.redirectUris = {"https://client.example/", "https://other.example/"}};
    }
    [[nodiscard]] TestClient client() const
    {
        return {.softwareId = "device", .identity = &device, .chain = factory.chainOf(device)};
    }
};

TEST_F(RegistrarOfDevices, AsksForBothProofsUnlessToldOtherwise)
{
    TestClient client = this->client();
    client.keep(registrar(both()).answer(client.registration(), "sender").value());
    const Texts types = client.challenge.values("T").value();
    EXPECT_TRUE(types.range().contains("otp1.0"));
    EXPECT_TRUE(types.range().contains("software_id_cert-1.0"));

    const ClientRecord kept = store.find(client.id).value().value();
    EXPECT_EQ(kept.secret, SecretDigest::of(client.secret));
    EXPECT_EQ(kept.softwareId, "device");
    EXPECT_EQ(kept.deviceName, "device");
    EXPECT_EQ(kept.sender, "sender");
    EXPECT_EQ(kept.expiresAt, time.now() + 300s);
    EXPECT_EQ(kept.endsAt, time.now() + std::chrono::days{90});
    EXPECT_FALSE(kept.refresh);
}

TEST_F(RegistrarOfDevices, TellsTheClientWhenItEnds)
{
    const Text answer = registrar().answer(TestClient{}.registration(), "").value();
    // 90 days.
    EXPECT_NE(answer.view().find(R"("client_secret_expires_in":"7776000")"),
              std::string_view::npos);
}

TEST_F(RegistrarOfDevices, KnowsADeviceByItsCertificateAlone)
{
    // Somebody else's certificate, one that the factory did not make, one before a genuine chain.
    TestClient client = this->client();
    client.softwareId = "other";
    EXPECT_REFUSED("certificate.name", registrar(both()).answer(client.registration(), ""));
    client = this->client();
    const support::Identity stranger = support::Identity::selfSigned({.commonName = "device"});
    client.chain = certificateOf(stranger);
    EXPECT_REFUSED("chain.untrusted", registrar(both()).answer(client.registration(), ""));
    client.chain =
        CertificateKey::fromPem(stranger.pem() + factory.intermediate.pem() + device.pem()).value();
    EXPECT_REFUSED("chain.ends", registrar(both()).answer(client.registration(), ""));
    client.chain.reset();
    EXPECT_REFUSED("certificate.missing", registrar(both()).answer(client.registration(), ""));
}

TEST_F(RegistrarOfDevices, MayAskForAnotherName)
{
    RegistrationRules rules = both();
    rules.certificateName = [](const RegistrationRequest& request) {
        return request.clientName() == "client" ? "device" : "nobody";
    };
    TestClient client = this->client();
    client.softwareId = "anything";
    EXPECT_TRUE(registrar(rules).answer(client.registration(), ""));
    rules.certificateName = [](const RegistrationRequest&) {
        return "nobody";
    };
    EXPECT_REFUSED("certificate.name", registrar(rules).answer(client.registration(), ""));
}

TEST_F(RegistrarOfDevices, TakesRedirectUrisByteByByte)
{
    const TestClient client = this->client();
    for (const char* uri : {"https://client.example/", "https://other.example/"})
    {
        EXPECT_TRUE(registrar(both()).answer(client.registration(uri), "")) << uri;
    }
    for (const char* uri :
         {"https://client.example", "https://client.example/?", "https://CLIENT.example/",
          "https://client.example/a", "http://client.example/", "https://client.example//", "*"})
    {
        const Expected<Text, Refusal> answer =
            registrar(both()).answer(client.registration(uri), "");
        EXPECT_REFUSED("client.redirect-uri", answer) << uri;
        EXPECT_EQ(answer.error().code(), OAUTH_INVALID_REQUEST);
    }
}

TEST_F(RegistrarOfDevices, NamesTheUriThatIsNotAllowed)
{
    const Expected<Text, Refusal> answer = registrar(both()).answer(
        R"({"client_name":"c","software_id":"s",)"
        R"("redirect_uri":["https://client.example/","https://elsewhere.example/"]})",
        "");
    EXPECT_REFUSED("client.redirect-uri", answer);
    EXPECT_EQ(answer.error().index(), 1);
}

TEST_F(RegistrarOfDevices, ReadsNothingThatIsTooLong)
{
    const std::string request = TestClient{}.registration();
    RegistrationRules rules = passwords();
    rules.maximumBytes = request.size();
    EXPECT_TRUE(registrar(rules).answer(request, ""));
    rules.maximumBytes = request.size() - 1;
    EXPECT_REFUSED("argument.length", registrar(rules).answer(request, ""));
    EXPECT_REFUSED("json.nesting", registrar().answer(std::string(16384, '['), ""));
    EXPECT_REFUSED("argument.length", registrar().answer(std::string(16385, '['), ""));
}

TEST_F(RegistrarOfDevices, TellsThePeerNothingOfTheReason)
{
    const Refusal refusal = registrar().answer("{", "").error();
    const Text document = refusal.document().value();
    EXPECT_EQ(document.view(), R"({"error":"invalid_request"})");
}

TEST_F(RegistrarOfDevices, KeepsNobodyWhomItHasRefused)
{
    // No type for one-time passwords.
    EXPECT_REFUSED("handshake.types",
                   registrar().answer(R"({"client_name":"c","software_id":"s",)"
                                      R"("handshake_types":["software_id_cert-1.0"],)"
                                      R"("redirect_uri":["https://client.example/"]})",
                                      ""));
    support::FakeRandom random;
    random.failOpening(EACCES);
    const Expected<Text, Refusal> answer = registrar().answer(TestClient{}.registration(), "");
    EXPECT_REFUSED("random.device", answer);
    EXPECT_EQ(answer.error().code(), OAUTH_SERVER_ERROR);
}

TEST_F(RegistrarOfDevices, LetsSilentRegistrationsShutNobodyOut)
{
    const TestClient honest = registered("honest");
    for (int i = 0; i < 300; ++i)
    {
        static_cast<void>(registered("silent"));
    }
    const TestClient late = registered("late");
    EXPECT_TRUE(endpoint().answer(honest.proof(), "honest"));
    EXPECT_TRUE(endpoint().answer(late.proof(), "late"));
}

TEST_F(RegistrarOfDevices, IsNotMadeOfRulesWithoutAMeaning)
{
    using Made = Registrar<MemoryStore>;
    EXPECT_REFUSED("argument.empty", Made::of(store, {}));
    EXPECT_REFUSED("argument.empty", Made::of(store, passwords(), Clock{}));
    RegistrationRules rules = passwords();
    rules.challengeLifetime = 0s;
    EXPECT_REFUSED("argument.range", Made::of(store, rules));
    rules = passwords();
    rules.clientLifetime = 299s;
    EXPECT_REFUSED("argument.range", Made::of(store, rules));
    rules.clientLifetime = std::chrono::seconds{0x100000000};
    EXPECT_REFUSED("argument.range", Made::of(store, rules));
    // Nobody could prove himself, or not for long.
    for (const ClientLimits limits :
         {ClientLimits{.pending = 0, .proven = 1}, ClientLimits{.pending = 1, .proven = 0}})
    {
        rules = passwords();
        rules.limits = limits;
        EXPECT_REFUSED("argument.range", Made::of(store, rules));
    }
    EXPECT_TRUE(Made::of(store, passwords()));
}

} // namespace

} // namespace bmcoauth
