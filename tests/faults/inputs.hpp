// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/certificates.hpp"
#include "support/fake_device.hpp"

#include <bmcoauth.h>

#include <string>

/** What the rows pass to functions: keys, certificates and files, made once. */
namespace faults
{

[[nodiscard]] const support::Identity& productionRoot();
[[nodiscard]] const support::Identity& developmentRoot();
/** An authority of the production root's. */
[[nodiscard]] const support::Identity& intermediate();
/** A device's certificate of the production root's, named "device". */
[[nodiscard]] const support::Identity& device();
/** One that no root knows. */
[[nodiscard]] const support::Identity& stranger();
/** One on P-384. */
[[nodiscard]] const support::Identity& largerCurve();

/** Bytes as functions take them. */
struct Der
{
    std::string bytes;

    [[nodiscard]] const unsigned char* data() const
    {
        return reinterpret_cast<const unsigned char*>(bytes.data());
    }
    [[nodiscard]] int size() const
    {
        return static_cast<int>(bytes.size());
    }
    [[nodiscard]] unsigned int length() const
    {
        return static_cast<unsigned int>(bytes.size());
    }
};

/** The private key of device(). */
[[nodiscard]] const Der& deviceKey();
/** The same without its public part, and also without the name of its curve. */
[[nodiscard]] const Der& keyWithoutPoint();
[[nodiscard]] const Der& keyWithoutCurve();

constexpr const char* keyPath = "/keys/service.pem";

/** The files of a device: both factory roots, and the key of device() at keyPath. */
class DeviceFiles
{
public:
    DeviceFiles();

private:
    support::FakeFiles files;
};

constexpr const char* someIv = "000102030405060708090a0b0c0d0e0f";

} // namespace faults
