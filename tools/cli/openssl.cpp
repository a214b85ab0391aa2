// SPDX-License-Identifier: Apache-2.0
#include "cli/openssl.hpp"

#include <climits>

#include <new>

namespace bmcoauth::tool
{

int noPassPhrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*user*/)
{
    return -1;
}

BioPtr readerOf(std::string_view text)
{
    // Nothing that is longer is a key or a certificate.
    const auto length = static_cast<int>(text.size() > INT_MAX ? 0 : text.size());
    BioPtr reader{BIO_new_mem_buf(text.data(), length)};
    if (!reader)
    {
        throw std::bad_alloc();
    }
    return reader;
}

std::string contents(const BioPtr& memory)
{
    char* data = nullptr;
    const long length = memory ? BIO_get_mem_data(memory.get(), &data) : 0;
    return length > 0 ? std::string{data, static_cast<std::size_t>(length)} : std::string{};
}

} // namespace bmcoauth::tool
