// SPDX-License-Identifier: Apache-2.0
#include "device/roots.hpp"

#include "cli/documents.hpp"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace bmcoauth::tool
{

FactoryRoot readRoot(const std::string& path)
{
    FactoryRoot root{path, nullptr, ""};
    const FilePtr file{std::fopen(path.c_str(), "re")};
    if (!file)
    {
        root.problem = std::generic_category().message(errno);
        return root;
    }
    ERR_set_mark();
    root.certificate.reset(PEM_read_X509(file.get(), nullptr, noPassPhrase, nullptr));
    ERR_pop_to_mark();
    if (!root.certificate)
    {
        root.problem = "holds no certificate in PEM form";
    }
    return root;
}

std::time_t judgedInstant()
{
    std::tm date{};
    date.tm_year = 2035 - 1900;
    date.tm_mday = 1;
    date.tm_isdst = -1;
    return std::mktime(&date);
}

std::string subjectOf(const X509& certificate)
{
    const BioPtr memory{BIO_new(BIO_s_mem())};
    if (memory)
    {
        X509_NAME_print_ex(memory.get(), X509_get_subject_name(&certificate), 0,
                           XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
    }
    return harmless(contents(memory));
}

std::string timeText(const ASN1_TIME* time)
{
    const BioPtr memory{BIO_new(BIO_s_mem())};
    if (memory)
    {
        ASN1_TIME_print_ex(memory.get(), time, ASN1_DTFLGS_ISO8601);
    }
    return harmless(contents(memory));
}

} // namespace bmcoauth::tool
