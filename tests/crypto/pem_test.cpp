// SPDX-License-Identifier: Apache-2.0
#include "support/certificates.hpp"
#include "support/fake_device.hpp"
#include "support/owners.hpp"
#include "support/refusals.hpp"

#include <bmcoauth/x509.h>

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/pem.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

using support::Identity;
using support::X509Ptr;

// A block in the usual form is decoded without OpenSSL's PEM reader, but that reader still decides
// what is right: here both read the same texts. A certificate shows what was read.

namespace
{

/** Refuses to give a pass phrase. */
int refuse(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return -1;
}

X509Ptr readByOpenSsl(const std::string& pem)
{
    using Bio = std::unique_ptr<BIO, support::Releaser<BIO_free_all>>;
    const Bio text{BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()))};
    return X509Ptr{PEM_read_bio_X509(text.get(), nullptr, refuse, nullptr)};
}

/** Reads @p pem both ways; whether a certificate came out. */
bool sameAsOpenSsl(const std::string& pem)
{
    SCOPED_TRACE(testing::PrintToString(pem));
    const X509Ptr expected = readByOpenSsl(pem);
    X509Ptr certificate;
    const std::string rule = support::ruleOf([&] {
        certificate.reset(getX509Cert(pem.c_str()));
        return certificate.get();
    });
    EXPECT_EQ(rule, expected ? "accepted" : "certificate.encoding");
    if (!certificate || !expected)
    {
        return false;
    }
    EXPECT_EQ(X509_cmp(certificate.get(), expected.get()), 0);
    return true;
}

/** Certificates whose last lines are of every length that one can have. */
std::vector<std::string> certificates()
{
    std::vector<std::string> all;
    for (std::string name = "a"; name.size() <= 49; name += 'a')
    {
        all.push_back(Identity::selfSigned({.commonName = name}).pem());
    }
    return all;
}

const std::string& certificate()
{
    static const std::string pem = Identity::selfSigned({.commonName = "device"}).pem();
    return pem;
}

constexpr std::string_view beginMark = "-----BEGIN CERTIFICATE-----\n";
constexpr std::string_view endMark = "-----END CERTIFICATE-----\n";

/** The digits between the marks of @p pem, in one line. */
std::string digitsOf(const std::string& pem)
{
    std::string digits = pem.substr(beginMark.size(), pem.find("-----END") - beginMark.size());
    std::erase(digits, '\n');
    return digits;
}

/** @p digits in lines of @p width, between the marks. */
std::string block(const std::string& digits, std::size_t width)
{
    std::string pem{beginMark};
    for (std::size_t at = 0; at < digits.size(); at += width)
    {
        pem += digits.substr(at, width) + '\n';
    }
    return pem.append(endMark);
}

std::string replaced(std::string text, std::string_view part, std::string_view by)
{
    text.replace(text.find(part), part.size(), by);
    return text;
}

TEST(GetX509Cert, ReadsLastLinesOfEveryLength)
{
    for (const std::string& pem : certificates())
    {
        EXPECT_TRUE(sameAsOpenSsl(pem));
        EXPECT_TRUE(sameAsOpenSsl(pem.substr(0, pem.size() - 1))) << "without a line feed";
    }
}

TEST(GetX509Cert, ReadsLinesOfAnyWidthAsOpenSslDoes)
{
    const std::string digits = digitsOf(certificate());
    EXPECT_TRUE(sameAsOpenSsl(block(digits, 64)));
    for (const std::size_t width : {1U, 4U, 60U, 63U, 65U, 68U, 76U, 128U, 253U, 254U, 255U, 2000U})
    {
        sameAsOpenSsl(block(digits, width));
    }
}

TEST(GetX509Cert, ReadsWhatSurroundsABlockAsOpenSslDoes)
{
    const std::string& pem = certificate();
    for (const char* text :
         {"\n", " ", "subject=device\n", "subject: -----BEGIN\n", "-----BEGIN X-----\n", "-",
          "-----BEGIN CERTIFICATE-----\n", "\xef\xbb\xbf", "\t\n", "-----END CERTIFICATE-----\n"})
    {
        sameAsOpenSsl(text + pem);
        sameAsOpenSsl(pem + text);
        sameAsOpenSsl(pem.substr(0, pem.size() - 1) + text);
        sameAsOpenSsl(text + pem + pem);
    }
}

constexpr const char* encrypted = "-----BEGIN CERTIFICATE-----\nProc-Type: 4,ENCRYPTED\n"
                                  "DEK-Info: AES-128-CBC,00000000000000000000000000000000\n\n";

TEST(GetX509Cert, ReadsOddMarksAsOpenSslDoes)
{
    const std::string& pem = certificate();
    for (const char* name : {"X509 CERTIFICATE", "TRUSTED CERTIFICATE", "CERTIFICATE REQUEST",
                             "CERTIFICATES", "CERTIFICAT", "certificate", "", "CMS"})
    {
        const std::string begin = std::string{"-----BEGIN "} + name + "-----\n";
        const std::string end = std::string{"-----END "} + name + "-----\n";
        sameAsOpenSsl(replaced(pem, beginMark, begin));
        sameAsOpenSsl(replaced(pem, endMark, end));
        sameAsOpenSsl(replaced(replaced(pem, beginMark, begin), endMark, end));
    }
    for (const char* mark : {"-----BEGIN CERTIFICATE-----\r\n", "-----BEGIN CERTIFICATE----- \n",
                             "-----BEGIN CERTIFICATE----\n", "----BEGIN CERTIFICATE-----\n",
                             "-----BEGIN CERTIFICATE-----", "-----BEGIN CERTIFICATE-----\n\n",
                             "-----BEGIN CERTIFICATE-----\nProc-Type: 4,CLEAR\n\n", encrypted})
    {
        sameAsOpenSsl(replaced(pem, beginMark, mark));
    }
    for (const char* mark :
         {"-----END CERTIFICATE-----\r\n", "-----END CERTIFICATE----- \n", "-----END CERTIFICATE",
          "-----END CERTIFICATE-----x\n", "\n-----END CERTIFICATE-----\n", "-----END", "", "-",
          "=\n-----END CERTIFICATE-----\n", "A\n-----END CERTIFICATE-----\n",
          "AAAA\n-----END CERTIFICATE-----\n", "====\n-----END CERTIFICATE-----\n"})
    {
        sameAsOpenSsl(replaced(pem, endMark, mark));
    }
}

TEST(GetX509Cert, ReadsBlocksThatAreHardlyOneAsOpenSslDoes)
{
    for (const char* body : {"", "\n", "\n\n", "=\n", "====\n", "A\n", "AA==\n", "AAAA\n", "MIIB\n",
                             "MIIB", "_-_-\n", " \n", "MAA=\n", "MAA=\nMAA=\n"})
    {
        sameAsOpenSsl(std::string{beginMark}.append(body).append(endMark));
    }
}

TEST(GetX509Cert, ReadsChangedCharactersAsOpenSslDoes)
{
    const std::string& pem = certificate();
    constexpr std::string_view changes = "-_=\n \r*A";
    for (std::size_t at = 0; at < pem.size(); at += support::faultStep())
    {
        // The middle lines are all alike.
        if (at >= 200 && at + 200 < pem.size())
        {
            continue;
        }
        for (const char change : changes)
        {
            std::string changed = pem;
            changed[at] = change;
            sameAsOpenSsl(changed);
            sameAsOpenSsl(pem.substr(0, at) + change + pem.substr(at));
            ASSERT_FALSE(HasFailure());
        }
        sameAsOpenSsl(pem.substr(0, at) + pem.substr(at + 1));
        sameAsOpenSsl(pem.substr(0, at));
        ASSERT_FALSE(HasFailure());
    }
}

} // namespace
