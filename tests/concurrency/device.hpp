// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "calls.hpp"
#include "support/fake_device.hpp"

#include <ctime>

namespace calls
{

/** A device with its factory roots, whose clock stands still. */
struct Device
{
    Device()
    {
        files.put("/etc/default/certs/FactorycertProdRoot.pem", world.root.pem());
        files.put("/etc/default/certs/FactorycertDevRoot.pem", world.root.pem());
    }

    support::FakeClock clock{static_cast<std::time_t>(now)};
    support::FakeFiles files;
    support::MarkerFile marker;
    World world;
};

} // namespace calls
