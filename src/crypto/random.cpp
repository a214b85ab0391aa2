// SPDX-License-Identifier: Apache-2.0
#include "crypto/random.hpp"

#include "common/guard.hpp"
#include "common/hex.hpp"
#include "common/machine.hpp"
#include "crypto/base64.hpp"

#include <bmcoauth/encoding.h>

#include <climits>

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace bmcoauth::internal::crypto
{

bool fillRandom(std::span<unsigned char> bytes) noexcept
{
    constexpr const char* path = "/dev/urandom";
    const int device = open(path, O_RDONLY | O_CLOEXEC);
    if (device < 0)
    {
        return refuse(BMCOAUTH_RULE_RANDOM_DEVICE).about(path).sawErrno();
    }
    const ssize_t received = machine::readRandom(device, bytes.data(), bytes.size());
    const bool filled = received >= 0 && static_cast<std::size_t>(received) == bytes.size();
    if (received < 0)
    {
        refuse(BMCOAUTH_RULE_RANDOM_DEVICE).about(path).sawErrno();
    }
    else if (!filled)
    {
        refuse(BMCOAUTH_RULE_RANDOM_DEVICE).about(path).saw("a short read");
    }
    close(device);
    return filled;
}

SecretText randomToken(unsigned int count) noexcept
{
    // More than that has no Base64 text here, and on 32 bits count + 1 could wrap.
    if (count > INT_MAX)
    {
        return refuse(BMCOAUTH_RULE_BASE64_LENGTH);
    }
    const SecretBlock bytes = secretBlock(std::size_t{count} + 1);
    if (!bytes || !fillRandom({bytes.get(), count}))
    {
        return nullptr;
    }
    return secretText(encodeBase64(asText({bytes.get(), count})));
}

} // namespace bmcoauth::internal::crypto

using namespace bmcoauth::internal;

extern "C" int issueRandomBytesInHex(char* out, int count)
{
    SecretBytes<16> bytes;
    if (refusesNull("out", out))
    {
        return refused();
    }
    if (count > static_cast<int>(bytes.size()))
    {
        return refuseCall(BMCOAUTH_RULE_ARGUMENT_LENGTH, "count");
    }
    if (count < 0)
    {
        // A length that no caller may pass: going on would read past the buffer.
        std::abort(); // GCOVR_EXCL_LINE: the process ends, its counters too
    }
    const ErrnoKeeper keeper;
    const std::span<unsigned char> drawn =
        std::span<unsigned char>{bytes}.first(static_cast<std::size_t>(count));
    if (!crypto::fillRandom(drawn))
    {
        publishRefusal();
        return 0;
    }
    out[0] = '0';
    out[1] = 'x';
    *writeHex(drawn, lowerCaseDigits, out + 2) = '\0';
    return 1;
}

extern "C" void issueRandomToken(char** out, unsigned int count)
{
    if (refusesNull("out", out))
    {
        return;
    }
    const ErrnoKeeper keeper;
    SecretText token = crypto::randomToken(count);
    if (!token)
    {
        publishRefusal();
        return;
    }
    *out = token.release();
}
