// SPDX-License-Identifier: Apache-2.0
#include "service/keys.hpp"
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

/** Records how files are changed while it exists, and lets the call of the number `failing` fail. */
struct FileCalls
{
    explicit FileCalls(std::size_t failingCall = SIZE_MAX) : failing{failingCall}
    {
        current = this;
    }
    FileCalls(const FileCalls&) = delete;
    FileCalls& operator=(const FileCalls&) = delete;
    ~FileCalls()
    {
        current = nullptr;
    }

    /** Notes `call`; whether it is to fail. */
    static bool fails(const char* call)
    {
        if (current == nullptr)
        {
            return false;
        }
        current->names.emplace_back(call);
        errno = EIO;
        return current->names.size() == current->failing + 1;
    }

    std::vector<std::string> names;
    std::size_t failing;

private:
    // Other threads go past it.
    static thread_local FileCalls* current;
};

thread_local FileCalls* FileCalls::current = nullptr;

} // namespace

// The headers' calls come here: the program's own definitions are preferred.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved.
extern "C" int fsync(int descriptor)
{
    struct stat status = {};
    const bool isFolder = fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
    return FileCalls::fails(isFolder ? "fsync of the folder" : "fsync of the file")
               ? -1
               : static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int rename(const char* from, const char* to) noexcept
{
    return FileCalls::fails("rename") ? -1 : renameat(AT_FDCWD, from, AT_FDCWD, to);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace bmcoauth
{

namespace
{

using support::contentsOf;
using support::writeFile;

/** The "kid" of each key of a set, in order. */
std::vector<std::string> idsIn(const std::string& jwks)
{
    std::vector<std::string> ids;
    for (const std::string_view key : Document::parse(jwks).value().objects("keys").value())
    {
        const Text id = Document::parse(key).value().string("kid").value();
        ids.emplace_back(id.view());
    }
    return ids;
}

struct KeyFiles : ::testing::Test
{
    support::TemporaryDirectory directory;
    std::string path = directory / "signing.pem";

    [[nodiscard]] SigningKeys load() const
    {
        return SigningKeys::loadOrCreate(path).value();
    }
    [[nodiscard]] std::vector<std::string> ids() const
    {
        return idsIn(load().jwks());
    }
    [[nodiscard]] std::size_t count() const
    {
        const std::filesystem::directory_iterator files{directory / ""};
        return static_cast<std::size_t>(std::distance(begin(files), end(files)));
    }
    /** After a rotation that failed: nothing is lost, here or for the next start, and no file
     *  is left over. `known` is what the keys were. */
    void nothingIsLost(const SigningKeys& keys, const std::vector<std::string>& known) const
    {
        EXPECT_EQ(idsIn(keys.jwks()), known);
        const std::vector<std::string> now = ids();
        for (const std::string& id : known)
        {
            EXPECT_NE(std::find(now.begin(), now.end(), id), now.end()) << id;
        }
        for (const auto& file : std::filesystem::directory_iterator{directory / ""})
        {
            const std::string name = file.path().filename();
            EXPECT_TRUE(name == "signing.pem" || name == "signing.pem.retired" ||
                        name == "signing.pem.next")
                << name;
        }
    }
};

TEST_F(KeyFiles, AreMadeOnce)
{
    const SigningKeys made = load();
    EXPECT_EQ(idsIn(made.jwks()).size(), 1U);
    EXPECT_EQ(load().jwks(), made.jwks());
    EXPECT_EQ(count(), 1U);
}

TEST_F(KeyFiles, StayAsTheyAreIfTheyCannotBeRead)
{
    writeFile(path, "no key");
    EXPECT_REFUSED("key.encoding", SigningKeys::loadOrCreate(path));
    EXPECT_EQ(contentsOf(path), "no key");
    EXPECT_EQ(count(), 1U);
}

TEST_F(KeyFiles, AreRefusedWithRetiredKeysThatCannotBeRead)
{
    const SigningKeys keys = load();
    SigningKeys rotating = keys;
    const std::string key = contentsOf(path);
    for (const char* text : {"", "{}", R"({"keys":[{}]})", R"({"keys":[{"kty":"EC","kid":"1"}]})"})
    {
        writeFile(path + ".retired", text);
        EXPECT_FALSE(SigningKeys::loadOrCreate(path)) << text;
        EXPECT_FALSE(rotating.rotate()) << text;
        EXPECT_EQ(contentsOf(path + ".retired"), text);
    }
    std::filesystem::remove(path + ".retired");
    std::filesystem::create_directory(path + ".retired");
    EXPECT_REFUSED("file.unreadable", SigningKeys::loadOrCreate(path));
    EXPECT_REFUSED("file.unreadable", rotating.rotate());
    EXPECT_EQ(contentsOf(path), key);
}

TEST_F(KeyFiles, RotateAndKeepThePublicKeysBefore)
{
    SigningKeys keys = load();
    const std::string first = ids().front();
    const std::string firstFile = contentsOf(path);
    ASSERT_TRUE(keys.rotate());
    const std::string second = ids().front();
    EXPECT_NE(second, first);
    EXPECT_NE(contentsOf(path), firstFile);
    EXPECT_EQ(idsIn(keys.jwks()), (std::vector{second, first}));
    EXPECT_EQ(ids(), (std::vector{second, first}));
    // Public numbers alone: what is retired signs nothing any more.
    EXPECT_EQ(contentsOf(path + ".retired").find("\"d\""), std::string::npos);
    EXPECT_EQ(count(), 2U);

    ASSERT_TRUE(keys.rotate());
    ASSERT_TRUE(keys.rotate());
    EXPECT_EQ(ids().size(), 3U);
    EXPECT_EQ(ids().at(2), second);
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(KeyFiles, KeepAsManyAsAsked)
{
    SigningKeys keys = load();
    for (int i = 0; i < 4; ++i)
    {
        ASSERT_TRUE(keys.rotate(4));
    }
    ASSERT_EQ(ids().size(), 5U);
    const std::string last = ids().front();
    ASSERT_TRUE(keys.rotate(1));
    ASSERT_EQ(ids().size(), 2U);
    EXPECT_EQ(ids().at(1), last);
    // More would not be read again.
    EXPECT_REFUSED("argument.range", keys.rotate(101));
    EXPECT_TRUE(keys.rotate(100));
}

TEST_F(KeyFiles, AreWithdrawnByKeepingNone)
{
    SigningKeys keys = load();
    ASSERT_TRUE(keys.rotate());
    ASSERT_TRUE(keys.rotate(0));
    EXPECT_EQ(idsIn(keys.jwks()).size(), 1U);
    EXPECT_EQ(load().jwks(), keys.jwks());
    EXPECT_EQ(count(), 1U);
}

TEST_F(KeyFiles, GoOnWithARotationThatWasCutShort)
{
    SigningKeys keys = load();
    // The power failed behind the first step, and then behind the second.
    const std::string next =
        idsIn(SigningKeys::loadOrCreate(path + ".next").value().jwks()).front();
    writeFile(path + ".retired", keys.jwks());
    EXPECT_EQ(ids().size(), 1U);
    ASSERT_TRUE(keys.rotate());
    EXPECT_EQ(ids().front(), next);
    EXPECT_EQ(ids().size(), 2U);
}

TEST_F(KeyFiles, DoNotTakeANextKeyThatMayHaveLeakedWithTheOthers)
{
    SigningKeys keys = load();
    const std::string next =
        idsIn(SigningKeys::loadOrCreate(path + ".next").value().jwks()).front();
    ASSERT_TRUE(keys.rotate(0));
    EXPECT_EQ(ids().size(), 1U);
    EXPECT_NE(ids().front(), next);
}

TEST_F(KeyFiles, StayAsTheyAreIfTheNextKeyCannotBeRead)
{
    SigningKeys keys = load();
    const std::string before = contentsOf(path);
    writeFile(path + ".next", "no key");
    EXPECT_REFUSED("key.encoding", keys.rotate());
    EXPECT_EQ(contentsOf(path + ".next"), "no key");
    EXPECT_EQ(contentsOf(path), before);
    EXPECT_EQ(idsIn(keys.jwks()), ids());
}

TEST_F(KeyFiles, OfAnotherProcessRetireToo)
{
    SigningKeys one = load();
    SigningKeys other = load();
    ASSERT_TRUE(one.rotate());
    ASSERT_TRUE(other.rotate());
    EXPECT_EQ(ids().size(), 3U);
    EXPECT_EQ(ids().at(1), idsIn(one.jwks()).front());
    EXPECT_EQ(idsIn(other.jwks()), ids());
}

TEST_F(KeyFiles, ThatAreGoneAreNotMadeAgainByRotating)
{
    SigningKeys keys = load();
    std::filesystem::remove(path);
    EXPECT_REFUSED("file.unreadable", keys.rotate());
    EXPECT_EQ(count(), 0U);
    SigningKeys elsewhere = SigningKeys::loadOrCreate(directory / "other.pem").value();
    std::filesystem::remove_all(directory / "");
    EXPECT_REFUSED("file.unwritable", elsewhere.rotate());
    std::filesystem::create_directory(directory / "");
}

TEST_F(KeyFiles, AreOnTheMediumBeforeTheNextStep)
{
    SigningKeys keys = load();
    const FileCalls calls;
    ASSERT_TRUE(keys.rotate());
    EXPECT_EQ(calls.names,
              (std::vector<std::string>{// the next key
                                        "fsync of the file", "fsync of the folder",
                                        // the retired keys
                                        "fsync of the file", "rename", "fsync of the folder",
                                        // the key
                                        "rename", "fsync of the folder"}));
}

TEST_F(KeyFiles, SurviveEachStepThatFails)
{
    SigningKeys keys = load();
    ASSERT_TRUE(keys.rotate(20));
    for (std::size_t step = 0; step < 7; ++step)
    {
        SCOPED_TRACE(step);
        const std::vector<std::string> known = idsIn(keys.jwks());
        {
            const FileCalls calls{step};
            EXPECT_REFUSED("file.unwritable", keys.rotate(20));
            EXPECT_EQ(calls.names.size(), step + 1);
        }
        nothingIsLost(keys, known);
        ASSERT_TRUE(keys.rotate(20));
        EXPECT_EQ(idsIn(keys.jwks()), ids());
    }
}

TEST_F(KeyFiles, SurviveEachFileThatCannotBeOpened)
{
    SigningKeys keys = load();
    ASSERT_TRUE(keys.rotate(20));
    bool reached = true;
    unsigned int opened = 0;
    for (; reached; ++opened)
    {
        SCOPED_TRACE(opened);
        const std::vector<std::string> known = idsIn(keys.jwks());
        support::FailCall failure{support::FailCall::opening, EMFILE, opened + 1};
        const bool rotated = keys.rotate(20).has_value();
        reached = failure.reached();
        EXPECT_EQ(rotated, !reached);
        if (reached)
        {
            nothingIsLost(keys, known);
        }
    }
    // The folder, the key, the retired ones before and behind, and those of the next key.
    EXPECT_GE(opened, 6U);
}

TEST_F(KeyFiles, SurviveAFullDisk)
{
    SigningKeys keys = load();
    // Left by a rotation that was cut short, so that the retired keys are the first to be written.
    ASSERT_TRUE(SigningKeys::loadOrCreate(path + ".next"));
    const std::vector<std::string> known = ids();
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit tight = {.rlim_cur = 100, .rlim_max = before.rlim_max};
    auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tight), 0);
    const Expected<void> rotated = keys.rotate();
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    std::signal(SIGXFSZ, handler);
    EXPECT_REFUSED("file.unwritable", rotated);
    EXPECT_EQ(rotated.error().saw(), "No space left on device");
    nothingIsLost(keys, known);
    EXPECT_TRUE(keys.rotate());
}

TEST_F(KeyFiles, SurviveNamesThatBecomeTooLong)
{
    // Room for ".next" and six characters more, but not for ".retired" and six.
    const std::string longPath = directory / std::string(242, 'k');
    SigningKeys keys = SigningKeys::loadOrCreate(longPath).value();
    EXPECT_REFUSED("file.unwritable", keys.rotate());
    EXPECT_EQ(SigningKeys::loadOrCreate(longPath).value().jwks(), keys.jwks());
}

/** A signer of which only the public point counts. */
struct Point
{
    [[nodiscard]] static Expected<Bytes> sign(const Sha256Digest& /*digest*/)
    {
        return Error{BMCOAUTH_RULE_RANDOM_DEVICE};
    }
    [[nodiscard]] Expected<Bytes> publicPoint() const
    {
        return Bytes::copy(bytesOf(bytes));
    }

    std::string bytes;
};

TEST(Signers, ArePublishedByTheirThumbprints)
{
    // The key and the thumbprint of RFC 9449, sections 4.1 and 6.1.
    const std::string x = "l8tFrhx-34tV3hRICRDY9zCkDlpBhF42UQUfWVAWBFs";
    const std::string y = "9VE4jf_Ok_o64zbTTlcuNJajHmt6v9TDVrU0CdvGRDA";
    const Point point{"\x04" + tokens::fromBase64Url(x) + tokens::fromBase64Url(y)};
    EXPECT_EQ(SigningKeys::of(point).value().jwks(),
              R"({"keys":[{"alg":"ES256","crv":"P-256",)"
              R"("kid":"0ZcOCORZNYy-DWpqq30jZyJGHTN0d2HglBV3uiguA4I","kty":"EC","use":"sig",)"
              R"("x":")" +
                  x + R"(","y":")" + y + R"("}]})");
}

TEST(Signers, HaveAPointOfP256)
{
    EXPECT_REFUSED("key.point", SigningKeys::of(TestSigner{"P-384"}));
    EXPECT_REFUSED("key.point", SigningKeys::of(Point{std::string(65, '\x02')}));
    EXPECT_REFUSED("jwk.point", SigningKeys::of(Point{std::string(65, '\x04')}));
}

TEST(Signers, TakeOverTheKeysBefore)
{
    const SigningKeys before = SigningKeys::of(TestSigner{}).value();
    SigningKeys keys = SigningKeys::of(TestSigner{}, before.jwks()).value();
    EXPECT_EQ(idsIn(keys.jwks()).size(), 2U);
    EXPECT_EQ(idsIn(keys.jwks()).at(1), idsIn(before.jwks()).front());
    EXPECT_REFUSED("json.member-missing", SigningKeys::of(TestSigner{}, "{}"));
    // There is no file to rotate.
    EXPECT_REFUSED("argument.empty", keys.rotate());
}

TEST(Signers, BringAnIdOfTheirOwn)
{
    const TestSigner signer;
    const SigningKeys keys = SigningKeys::of(signer, {}, "tpm:0x81000001").value();
    EXPECT_EQ(idsIn(keys.jwks()), std::vector<std::string>{"tpm:0x81000001"});
    const TestClock clock;
    const TokenIssuer issuer =
        TokenIssuer::of(keys, {.issuer = "here", .audience = ignored}, clock).value();
    const IssuedToken token = issuer.issue("admin", Privilege::login).value();
    const UnverifiedToken read = readUnverified(token.token).value();
    EXPECT_EQ(read.unverifiedHeader().keyId(), "tpm:0x81000001");

    // Started again, it is one key; another key of that id could not be told from it.
    EXPECT_EQ(SigningKeys::of(signer, keys.jwks(), "tpm:0x81000001").value().jwks(), keys.jwks());
    EXPECT_REFUSED("policy.key-id", SigningKeys::of(TestSigner{}, keys.jwks(), "tpm:0x81000001"));
    EXPECT_EQ(idsIn(SigningKeys::of(TestSigner{}, keys.jwks(), "2").value().jwks()),
              (std::vector<std::string>{"2", "tpm:0x81000001"}));
}

TEST(Signers, HaveIdsThatNeedNoEscape)
{
    const TestSigner signer;
    for (const std::string& id :
         {std::string{}, std::string{"a b"}, std::string{"a\"b"}, std::string{"a\\b"},
          std::string{"\xc3\xa4"}, std::string{"a\0b", 3}, std::string(256, 'a')})
    {
        EXPECT_REFUSED("policy.key-id", SigningKeys::of(signer, {}, id)) << id;
    }
    EXPECT_TRUE(SigningKeys::of(signer, {}, std::string(255, 'a')));
}

TEST(VerificationKeySets, AreES256KeysThatCanBeToldApart)
{
    const issuer::Key& key = issuer::p256Key();
    const issuer::Key& other = issuer::otherP256Key();
    const auto of = [](const std::string& keys) {
        return VerificationKeys::of(jwks(keys));
    };
    EXPECT_TRUE(of(ecJwk(key)));
    EXPECT_TRUE(of(ecJwk(key, {{"kid", "\"1\""}}) + "," + ecJwk(other, {{"kid", "\"2\""}})));
    EXPECT_REFUSED("policy.key-id", of(ecJwk(key, {{"kid", "\"1\""}}) + "," + ecJwk(other)));
    EXPECT_REFUSED("policy.key-id",
                   of(ecJwk(key, {{"kid", "\"1\""}}) + "," + ecJwk(other, {{"kid", "\"1\""}})));
    EXPECT_REFUSED("policy.key-unusable", of(rsaJwk(issuer::rsaKey())));
    EXPECT_REFUSED("policy.key-unusable", of(ecJwk(key, {{"use", "\"enc\""}})));
    EXPECT_REFUSED("policy.key-unusable", of(ecJwk(key, {{"key_ops", "[\"sign\"]"}})));
    EXPECT_REFUSED("policy.key-unusable", of(ecJwk(key, {{"key_ops", "\"verify\""}})));
    EXPECT_REFUSED("policy.key-unusable", of(ecJwk(key, {{"d", "\"AQ\""}})));
    EXPECT_REFUSED("policy.key-unusable", of(ecJwk(key, {{"alg", "\"ES384\""}})));
    EXPECT_REFUSED("policy.key-unusable", of(ecJwk(key, {{"crv", "\"P-384\""}})));
    EXPECT_REFUSED("json.member-type", of(ecJwk(key, {{"kid", "1"}})));
    EXPECT_REFUSED("argument.zero-byte", of(ecJwk(key, {{"kid", R"("1\u0000")"}})));
    EXPECT_REFUSED("json.syntax", VerificationKeys::of("keys"));
}

TEST(VerificationKeySets, IgnoreAKeyThatCameAlongInPem)
{
    const issuer::Key& other = issuer::otherP256Key();
    EXPECT_REFUSED("jwk.number",
                   VerificationKeys::of(jwks(R"({"kty":"EC","crv":"P-256","kest_decoded_key":")" +
                                             other.pem().substr(0, 26) + R"("})")));
}

TEST(VerificationKeySets, StayIfTheNextOnesAreRefused)
{
    const SigningKeys keys = SigningKeys::of(TestSigner{}).value();
    const TestClock clock;
    const TokenIssuer issuer =
        TokenIssuer::of(keys, {.issuer = "here", .audience = ignored}, clock).value();
    VerificationKeys verification = VerificationKeys::of(keys.jwks()).value();
    const TokenValidator validator = TokenValidator::of(verification,
                                                        {.issuer = ignored,
                                                         .audience = ignored,
                                                         .longestLifetime = ignored,
                                                         .revoked = ignored},
                                                        clock)
                                         .value();
    const IssuedToken token = issuer.issue("admin", Privilege::login).value();
    EXPECT_REFUSED("json.syntax", verification.replace("rubbish"));
    EXPECT_TRUE(validator.validate(token.token));
    ASSERT_TRUE(verification.replace(SigningKeys::of(TestSigner{}).value().jwks()));
    EXPECT_REFUSED("policy.key-unknown", validator.validate(token.token));
}

} // namespace

} // namespace bmcoauth
