// SPDX-License-Identifier: Apache-2.0
#include "cpp/identities.hpp"
#include "support/certificates.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/cpp/ecies.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>

using namespace std::string_literals;

namespace bmcoauth
{

namespace
{

struct Envelopes : ::testing::Test
{
    support::Identity left = support::Identity::root("left");
    support::Identity right = support::Identity::root("right");
    CertificateKey leftCertificate = certificateOf(left);
    CertificateKey rightCertificate = certificateOf(right);
    PrivateKey leftKey = keyOf(left);
    PrivateKey rightKey = keyOf(right);

    [[nodiscard]] Expected<Envelope> sealed(std::string_view data) const
    {
        return seal(data, rightCertificate, leftKey);
    }
    [[nodiscard]] Expected<Opened> opened(const EnvelopeView& envelope) const
    {
        return open(envelope, leftCertificate, rightKey);
    }
    /** What comes back of `data`; nothing if it is not sealed. */
    [[nodiscard]] std::optional<std::string> returned(std::string_view data) const
    {
        const Expected<Envelope> envelope = sealed(data);
        if (!envelope)
        {
            return std::nullopt;
        }
        const Expected<Opened> text = opened(*envelope);
        return text ? std::string{text->data()} : "sealed, and does not open";
    }
    /** The same for bytes. */
    [[nodiscard]] std::optional<std::string> returnedBytes(std::string_view data) const
    {
        const Expected<Envelope> envelope = sealBytes(bytesOf(data), rightCertificate, leftKey);
        if (!envelope)
        {
            return std::nullopt;
        }
        const Expected<Bytes> bytes = openBytes(*envelope, leftCertificate, rightKey);
        return bytes ? std::string{bytes->view()} : "sealed, and does not open";
    }
};

TEST_F(Envelopes, GiveBackTheTextThatWasSealed)
{
    for (const std::string& text : {"x"s, "hello"s, "\n"s, "hello\n"s, "\n\n\n"s, "two\nlines"s,
                                    " "s, "\r\n"s, "\xff\xfe"s, "-----END-----\n"s})
    {
        EXPECT_EQ(returned(text), text);
    }
}

TEST_F(Envelopes, HoldNoTextWithAZeroByte)
{
    for (const std::string& text : {"\0"s, "a\0"s, "\0a"s, "a\0b"s, "a\n\0"s, "a\0\n"s})
    {
        EXPECT_REFUSED("argument.zero-byte", sealed(text));
    }
}

TEST_F(Envelopes, HoldUpTo73710Bytes)
{
    const std::string most(73710, 'x');
    EXPECT_EQ(returned(most), most);
    EXPECT_REFUSED("envelope.length", sealed(most + "x"));
    // The line feed that follows such data counts.
    const std::string line = std::string(73708, 'x') + "\n";
    EXPECT_EQ(returned(line), line);
    EXPECT_REFUSED("envelope.length", sealed("x" + line));
    EXPECT_REFUSED("argument.length", sealed(""));
    EXPECT_EQ(mostSealedBytes, 73710U);
}

TEST_F(Envelopes, HoldAnyBytesInBase64)
{
    for (const std::string& bytes : {"\0"s, "a\0"s, "\n"s, "hello\n"s, "\xff\0\n"s})
    {
        EXPECT_EQ(returnedBytes(bytes), bytes);
    }
    const std::string most(55281, '\0');
    EXPECT_EQ(returnedBytes(most), most);
    EXPECT_REFUSED("envelope.length", sealBytes(bytesOf(most + "x"), rightCertificate, leftKey));
    EXPECT_REFUSED("argument.length", sealBytes({}, rightCertificate, leftKey));
    // What the receiver finds who has no openBytes.
    const Envelope envelope = sealBytes(bytesOf("\0\xff"s), rightCertificate, leftKey).value();
    const Opened text = opened(envelope).value();
    EXPECT_EQ(text.data(), "AP8=");
}

TEST_F(Envelopes, OfTextsHoldNoBytes)
{
    const Envelope envelope = sealed("not Base64!").value();
    ASSERT_TRUE(opened(envelope));
    EXPECT_REFUSED("base64.malformed", openBytes(envelope, leftCertificate, rightKey));
    EXPECT_REFUSED("envelope.mac-wrong", openBytes(envelope, rightCertificate, rightKey));
    EXPECT_REFUSED("argument.zero-byte", openBytes({envelope.ciphertext, envelope.mac, "\0"s},
                                                   leftCertificate, rightKey));
}

TEST_F(Envelopes, EndWithALineFeedOfTheirOwnAnd16Characters)
{
    for (const std::string& text : {"x"s, "x\n"s})
    {
        const Opened whole = opened(sealed(text).value()).value();
        EXPECT_EQ(whole.whole().size(), text.size() + 17);
        EXPECT_EQ(whole.whole().substr(0, text.size() + 1), text + "\n");
    }
}

TEST_F(Envelopes, OfTheCFunctionComeBackWithoutTheLineFeedAtTheirEnd)
{
    // It is the one that belongs to the envelope; which of the two was sealed, nobody can tell.
    for (const std::string& text : {"x"s, "x\n"s})
    {
        const Text iv = randomIv().value();
        HandshakePayload* peer = rightCertificate.parameters().get();
        char* mac = nullptr;
        const Text ciphertext{ecies_encrypt(text.data(), static_cast<unsigned int>(text.size()),
                                            &peer, &mac, leftKey.der().data(),
                                            static_cast<int>(leftKey.der().size()), iv.c_str())};
        const Text macText{mac};
        const Opened whole = opened({ciphertext, macText, iv}).value();
        EXPECT_EQ(whole.data(), "x");
    }
}

TEST_F(Envelopes, GiveBackWhateverTheyTake)
{
    // NOLINTNEXTLINE(cert-msc32-c,cert-msc51-cpp): the same cases each time.
    std::mt19937 random{20260101};
    // A small alphabet, so that what matters is met often, at the end above all.
    constexpr std::string_view alphabet{"\n\0ab\xff=", 6};
    std::size_t taken = 0;
    for (std::size_t size = 0; size < 120; ++size)
    {
        for (int i = 0; i < 4; ++i)
        {
            std::string data(size, ' ');
            for (char& byte : data)
            {
                // Texts in half of the cases.
                const char drawn = alphabet[random() % alphabet.size()];
                byte = i % 2 == 0 && drawn == '\0' ? 'c' : drawn;
            }
            const std::optional<std::string> back = returned(data);
            EXPECT_EQ(back.value_or(data), data);
            EXPECT_EQ(back.has_value(), size != 0 && data.find('\0') == std::string::npos);
            taken += back ? 1U : 0U;
            EXPECT_EQ(returnedBytes(data).value_or(data), data);
        }
    }
    EXPECT_GE(taken, 238U);
    for (std::size_t size = 73700; size < 73730; ++size)
    {
        for (const char last : {'x', '\n'})
        {
            const std::string data = std::string(size - 1, 'x') + last;
            const std::optional<std::string> back = returned(data);
            EXPECT_EQ(back.value_or(data), data);
            EXPECT_EQ(back.has_value(), size <= (last == '\n' ? 73709U : 73710U)) << size;
        }
    }
}

} // namespace

} // namespace bmcoauth
