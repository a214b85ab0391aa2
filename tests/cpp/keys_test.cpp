// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/machine.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/cpp/keys.hpp>

#include <gtest/gtest.h>
#include <openssl/pem.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <barrier>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace
{

/** Records the calls to the file system while it exists; calls named `failing` fail. */
struct Recorder
{
    Recorder()
    {
        current = this;
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
    ~Recorder()
    {
        current = nullptr;
    }

    /** Notes `call`; whether it is to go on. */
    static bool note(const std::string& call)
    {
        if (current == nullptr)
        {
            return true;
        }
        current->calls.push_back(call);
        return call != current->failing;
    }

    std::vector<std::string> calls;
    std::string failing;

private:
    // Other threads go past it.
    static thread_local Recorder* current;
};

thread_local Recorder* Recorder::current = nullptr;

bool isFolder(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

// The headers' calls come here: the program's own definitions are preferred.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved.
extern "C" int fsync(int descriptor)
{
    if (!Recorder::note(isFolder(descriptor) ? "fsync of the folder" : "fsync of the file"))
    {
        errno = EIO;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int link(const char* from, const char* to) noexcept
{
    if (!Recorder::note("link"))
    {
        errno = EPERM;
        return -1;
    }
    return linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace bmcoauth
{

namespace
{

using support::FailCall;

std::vector<std::string> namesIn(const support::TemporaryDirectory& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator{directory / ""})
    {
        names.push_back(entry.path().filename());
    }
    std::ranges::sort(names);
    return names;
}

using Names = std::vector<std::string>;

unsigned int modeOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

std::string pemOf(EVP_PKEY& key, const EVP_CIPHER* cipher)
{
    const std::unique_ptr<BIO, support::Releaser<BIO_free_all>> text{BIO_new(BIO_s_mem())};
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): OpenSSL takes it so, and reads it.
    char* const phrase = cipher == nullptr ? nullptr : const_cast<char*>("phrase");
    PEM_write_bio_PKCS8PrivateKey(text.get(), &key, cipher, phrase, cipher == nullptr ? 0 : 6,
                                  nullptr, nullptr);
    char* data = nullptr;
    const auto size = static_cast<std::size_t>(BIO_get_mem_data(text.get(), &data));
    return {data, size};
}

struct LoadOrCreate : ::testing::Test
{
    support::TemporaryDirectory directory;
    std::string path = directory / "key.pem";

    /** Whether the file with these contents is refused by @p rule, and stays what it is. */
    void refuses(const std::string& rule, const std::string& contents) const
    {
        SCOPED_TRACE(contents);
        support::writeFile(path, contents);
        EXPECT_REFUSED(rule, PrivateKey::loadOrCreate(path));
        EXPECT_EQ(support::contentsOf(path), contents);
        EXPECT_EQ(namesIn(directory), Names{"key.pem"});
    }
    /** Whether nothing comes of it where no file is. */
    void makesNothing() const
    {
        EXPECT_REFUSED("file.unwritable", PrivateKey::loadOrCreate(path));
        EXPECT_EQ(namesIn(directory), Names{});
    }
};

TEST_F(LoadOrCreate, MakesAKeyOnceAndReadsItFromThenOn)
{
    const mode_t previous = umask(0);
    const Expected<PrivateKey> made = PrivateKey::loadOrCreate(path);
    umask(previous);
    ASSERT_TRUE(made);
    EXPECT_TRUE(keyFileIsSound(path));
    EXPECT_EQ(modeOf(path), 0600U);
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
    const std::string contents = support::contentsOf(path);
    const Expected<PrivateKey> read = PrivateKey::loadOrCreate(path);
    ASSERT_TRUE(read);
    EXPECT_TRUE(std::ranges::equal(read->der(), made->der()));
    const PrivateKey inFile = PrivateKey::fromFile(path).value();
    EXPECT_TRUE(std::ranges::equal(inFile.der(), made->der()));
    EXPECT_EQ(support::contentsOf(path), contents);
}

TEST_F(LoadOrCreate, ReadsTheKeyThatIsThere)
{
    ASSERT_TRUE(generateKeyFile(path));
    const std::string contents = support::contentsOf(path);
    const Recorder recorder;
    EXPECT_TRUE(PrivateKey::loadOrCreate(path));
    EXPECT_EQ(recorder.calls, Names{});
    EXPECT_EQ(support::contentsOf(path), contents);
}

TEST_F(LoadOrCreate, NeverWritesToAFileThatHoldsNoKey)
{
    refuses("key.encoding", "");
    refuses("key.encoding", "no key");
    refuses("key.kind", pemOf(*support::makeKey("RSA"), nullptr));
    const support::PkeyPtr key = support::makeKey("prime256v1");
    const std::string pem = pemOf(*key, nullptr);
    refuses("key.encoding", pemOf(*key, EVP_aes_128_cbc()));
    refuses("key.encoding", pem.substr(0, pem.size() / 2));
    // As it is, it is read.
    support::writeFile(path, pem);
    EXPECT_TRUE(PrivateKey::loadOrCreate(path));
}

TEST_F(LoadOrCreate, NeverWritesToAFileThatCannotBeReadForTheMoment)
{
    ASSERT_TRUE(generateKeyFile(path));
    const std::string contents = support::contentsOf(path);
    for (const int error : {EACCES, EMFILE, EIO, ENOTDIR, ELOOP})
    {
        support::FakeFiles device;
        device.fail(path, error);
        EXPECT_REFUSED("file.unreadable", PrivateKey::loadOrCreate(path)) << error;
    }
    {
        FailCall failure{FailCall::opening, EMFILE, 1};
        EXPECT_REFUSED("file.unreadable", PrivateKey::loadOrCreate(path));
    }
    EXPECT_EQ(support::contentsOf(path), contents);
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
    EXPECT_TRUE(PrivateKey::loadOrCreate(path));
}

TEST_F(LoadOrCreate, LeavesWhatIsNoFile)
{
    std::filesystem::create_directory(path);
    EXPECT_REFUSED("file.unreadable", PrivateKey::loadOrCreate(path));
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
    // Nor does it make what a link misses: a medium may not be mounted.
    const std::string link = directory / "link.pem";
    std::filesystem::create_symlink(directory / "elsewhere.pem", link);
    EXPECT_REFUSED("file.unreadable", PrivateKey::loadOrCreate(link));
    EXPECT_EQ(namesIn(directory), (Names{"key.pem", "link.pem"}));
}

TEST_F(LoadOrCreate, TakesTheKeyOfAProcessThatIsFaster)
{
    ASSERT_TRUE(generateKeyFile(path));
    const std::string contents = support::contentsOf(path);
    // There was no file when it looked.
    FailCall failure{FailCall::asking, ENOENT, 1};
    const Expected<PrivateKey> key = PrivateKey::loadOrCreate(path);
    ASSERT_TRUE(failure.reached());
    ASSERT_TRUE(key);
    const PrivateKey inFile = PrivateKey::fromFile(path).value();
    EXPECT_TRUE(std::ranges::equal(key->der(), inFile.der()));
    EXPECT_EQ(support::contentsOf(path), contents);
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
}

TEST_F(LoadOrCreate, GivesOneKeyToAllWhoStartAtOnce)
{
    constexpr std::size_t starters = 8;
    std::barrier start{static_cast<std::ptrdiff_t>(starters)};
    std::vector<std::string> keys(starters);
    {
        std::vector<std::jthread> threads;
        threads.reserve(starters);
        for (std::string& key : keys)
        {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                const Expected<PrivateKey> loaded = PrivateKey::loadOrCreate(path);
                key = loaded ? std::string{loaded->der().begin(), loaded->der().end()} : "";
            });
        }
    }
    EXPECT_NE(keys.front(), "");
    EXPECT_EQ(keys, std::vector<std::string>(starters, keys.front()));
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
}

TEST_F(LoadOrCreate, HasTheKeyOnTheMediumBeforeItHasItsName)
{
    Recorder recorder;
    ASSERT_TRUE(PrivateKey::loadOrCreate(path));
    EXPECT_EQ(recorder.calls, (Names{"fsync of the file", "link", "fsync of the folder"}));
}

TEST_F(LoadOrCreate, MakesNothingThatMayNotLast)
{
    for (const char* const call : {"fsync of the file", "link"})
    {
        SCOPED_TRACE(call);
        Recorder recorder;
        recorder.failing = call;
        makesNothing();
        EXPECT_EQ(recorder.calls.back(), call);
    }
    // The file is there, whole: the next start may find it, or make another one.
    Recorder recorder;
    recorder.failing = "fsync of the folder";
    EXPECT_REFUSED("file.unwritable", PrivateKey::loadOrCreate(path));
    EXPECT_TRUE(keyFileIsSound(path));
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
}

TEST_F(LoadOrCreate, MakesNothingWhereNoKeyCanBeMade)
{
    EXPECT_REFUSED("file.unwritable", PrivateKey::loadOrCreate(directory / "none/key.pem"));
    EXPECT_REFUSED("file.unwritable", PrivateKey::loadOrCreate("/proc/key.pem"));
    EXPECT_REFUSED("file.unwritable", PrivateKey::loadOrCreate(""));
    EXPECT_REFUSED("argument.zero-byte",
                   PrivateKey::loadOrCreate(std::string_view{"key\0.pem", 8}));
    // The library's own opening of the new file: the folder is opened before it.
    FailCall failure{FailCall::opening, EMFILE, 2};
    makesNothing();
    EXPECT_TRUE(failure.reached());
}

TEST_F(LoadOrCreate, TakesAPathWithoutAFolder)
{
    EXPECT_EQ(support::exitStatusOf([&] {
                  std::filesystem::current_path(directory / "");
                  _exit(PrivateKey::loadOrCreate("key.pem") ? 5 : 6);
              }),
              5);
    EXPECT_TRUE(keyFileIsSound(path));
    EXPECT_EQ(namesIn(directory), Names{"key.pem"});
}

TEST_F(LoadOrCreate, LeavesNoDescriptorOpen)
{
    ASSERT_TRUE(PrivateKey::loadOrCreate(path));
    const std::size_t before = support::openDescriptors();
    ASSERT_TRUE(PrivateKey::loadOrCreate(directory / "other.pem"));
    EXPECT_EQ(support::openDescriptors(), before);
}

TEST_F(LoadOrCreate, LeavesAWholeKeyOrNothingWhenMemoryRunsOut)
{
    // Too long for the copies' room on the stack.
    const std::string longPath = directory / (std::string(2000, '/') + "key.pem");
    for (unsigned int nth = 1; nth <= 40; ++nth)
    {
        support::FailAllocation failure{nth};
        const Expected<PrivateKey> key = PrivateKey::loadOrCreate(longPath);
        ASSERT_TRUE(failure.reached());
        ASSERT_EQ(namesIn(directory), keyFileIsSound(path) ? Names{"key.pem"} : Names{});
        std::filesystem::remove(path);
    }
}

TEST(PublicPoints, AreThoseOfTheKeys)
{
    const KeyPair pair = KeyPair::generate().value();
    const std::string_view expected = pair.publicPoint.view();
    const Bytes point = publicPointOf(pair.privateKey).value();
    EXPECT_EQ(point.view(), expected);

    // A key whose file holds the short form of the point.
    const EcKey key = ecKeyOf(pair.privateKey).value();
    EC_KEY_set_conv_form(key.get(), POINT_CONVERSION_COMPRESSED);
    std::array<unsigned char, 128> der{};
    unsigned char* behind = der.data();
    const int length = i2d_ECPrivateKey(key.get(), &behind);
    ASSERT_GT(length, 0);
    const PrivateKey shorter =
        PrivateKey::fromDer(ByteSpan{der}.first(static_cast<std::size_t>(length))).value();
    ASSERT_LT(shorter.der().size(), pair.privateKey.der().size());
    const Bytes same = publicPointOf(shorter).value();
    EXPECT_EQ(same.view(), expected);
}

} // namespace

} // namespace bmcoauth
