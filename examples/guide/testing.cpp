// SPDX-License-Identifier: Apache-2.0
//
// guide-testing ROOTS CHAIN NAME: tests a service on a device whose clock, roots and marker it sets.
// Linked with libbmcoauth-testing instead of libbmcoauth.
#include <bmcoauth.hpp>
#include <bmcoauth/testing.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <string_view>

using bmcoauth::CertificateKey;
using bmcoauth::Expected;
using bmcoauth::Judgement;
using bmcoauth::PrivateKey;
using bmcoauth::TokenResponse;

namespace
{

// What is tested: two functions of a service.

Expected<TokenResponse> logIn(const PrivateKey& key)
{
    return bmcoauth::issueTokens({.state = "s", .subject = "admin", .lifetimeSeconds = 600}, key);
}

bool isOurs(const std::string& pem, std::string_view name)
{
    const Expected<CertificateKey> key = CertificateKey::fromPem(pem);
    return key && key->isValid(name);
}

std::string contentsOf(const char* path)
{
    std::ifstream file{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

void expect(bool condition, std::string_view what)
{
    std::cout << (condition ? "ok: " : "NOT OK: ") << what << '\n';
    if (!condition)
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): this program has one thread.
        std::exit(EXIT_FAILURE);
    }
}

// [expiry]
void testExpiry(const PrivateKey& key)
{
    bmcoauth_testing_set_clock(1700000000);
    const Expected<TokenResponse> response = logIn(key);
    const std::string_view token = response ? *response->accessToken() : "";
    expect(validateToken(token, key).judgement() == Judgement::valid, "a new token is valid");
    bmcoauth_testing_set_clock(1700000600);
    expect(validateToken(token, key).judgement() == Judgement::expired,
           "after ten minutes it is not");
}
// [expiry]

// [random]
/** The random device of this test: zeros, or a failure while the flag is set. */
int zeros(void* context, unsigned char* bytes, std::size_t count)
{
    std::fill_n(bytes, count, static_cast<unsigned char>(0));
    return *static_cast<const bool*>(context) ? 0 : 1;
}

void testRandom(const PrivateKey& key)
{
    bool failing = false;
    bmcoauth_testing_set_random(zeros, &failing);
    const Expected<TokenResponse> response = logIn(key);
    expect(response && response->refreshToken() == "AAAAAAAAAAAAAAAAAAAAAA==",
           "a known refresh token");
    failing = true;
    expect(!logIn(key), "no token of a broken random device");
    bmcoauth_testing_set_random(nullptr, nullptr);
}
// [random]

// [chain]
void testChain(const char* roots, const std::string& chain, std::string_view name)
{
    expect(bmcoauth_testing_set_roots(roots) == 1 && isOurs(chain, name),
           "a device of our factory");
    bmcoauth_testing_set_roots("/nonexistent");
    expect(!isOurs(chain, name), "no device of our factory without its roots");
}
// [chain]

// [marker]
void testMarker()
{
    bmcoauth_testing_set_marker(1);
    expect(isDeviceVorn() == 1, "a development device");
    bmcoauth_testing_set_marker(0);
    expect(isDeviceVorn() == 0, "a device as it is sold");
}
// [marker]

} // namespace

int main(int argc, char** argv)
{
    const auto keys = bmcoauth::KeyPair::generate();
    if (argc != 4 || !keys)
    {
        return EXIT_FAILURE;
    }
    testExpiry(keys->privateKey);
    testRandom(keys->privateKey);
    testChain(argv[1], contentsOf(argv[2]), argv[3]);
    testMarker();
    bmcoauth_testing_reset();
    return EXIT_SUCCESS;
}
