// SPDX-License-Identifier: Apache-2.0
#include "common/machine.hpp"

#include <bmcoauth/testing.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

namespace bmcoauth::internal::machine
{

namespace
{

constexpr const char* machineRoots = "/etc/default/certs";
constexpr std::string_view productionName = "/FactorycertProdRoot.pem";
constexpr std::string_view developmentName = "/FactorycertDevRoot.pem";

constexpr Path joined(std::string_view directory, std::string_view name)
{
    Path path{};
    std::copy(name.begin(), name.end(),
              std::copy(directory.begin(), directory.end(), path.text.begin()));
    return path;
}

/** The values of the machine itself, until a test sets something else. */
struct State
{
    std::optional<std::time_t> clock;
    const char* marker = "/etc/vorn_fw";
    Path production = joined(machineRoots, productionName);
    Path development = joined(machineRoots, developmentName);
};

struct Random
{
    bmcoauth_testing_fill fill = nullptr;
    void* context = nullptr;
};

/** A value that threads read and change. */
template <typename Value>
class Shared
{
public:
    template <typename Use>
    auto use(Use user)
    {
        const std::lock_guard<std::mutex> lock{mutex};
        return user(value);
    }

private:
    std::mutex mutex;
    Value value;
};

Shared<State>& state()
{
    static constinit Shared<State> shared;
    return shared;
}

/** Has a lock of its own: a test's function runs under it. */
Shared<Random>& source()
{
    static constinit Shared<Random> shared;
    return shared;
}

} // namespace

std::time_t now() noexcept
{
    const auto set = state().use([](const State& current) { return current.clock; });
    return set ? *set : std::time(nullptr);
}

ssize_t readRandom(int device, void* bytes, std::size_t size) noexcept
{
    return source().use([=](const Random& current) -> ssize_t {
        if (current.fill == nullptr)
        {
            return read(device, bytes, size);
        }
        if (current.fill(current.context, static_cast<unsigned char*>(bytes), size) != 1)
        {
            errno = EIO;
            return -1;
        }
        return static_cast<ssize_t>(size);
    });
}

const char* marker() noexcept
{
    return state().use([](const State& current) { return current.marker; });
}

Path productionRoot() noexcept
{
    return state().use([](const State& current) { return current.production; });
}

Path developmentRoot() noexcept
{
    return state().use([](const State& current) { return current.development; });
}

} // namespace bmcoauth::internal::machine

using namespace bmcoauth::internal::machine;

extern "C" int bmcoauth_testing_set_clock(std::int64_t seconds)
{
    if (!std::in_range<std::time_t>(seconds))
    {
        return 0;
    }
    state().use([=](State& current) { current.clock = static_cast<std::time_t>(seconds); });
    return 1;
}

extern "C" void bmcoauth_testing_set_random(bmcoauth_testing_fill fill, void* context)
{
    source().use([=](Random& current) { current = {fill, context}; });
}

extern "C" int bmcoauth_testing_set_roots(const char* directory)
{
    // The end of a path needs a place, too.
    constexpr std::size_t room =
        PATH_MAX - 1 - std::max(productionName.size(), developmentName.size());
    const std::string_view given{directory == nullptr ? machineRoots : directory};
    if (given.empty() || given.size() > room)
    {
        return 0;
    }
    state().use([=](State& current) {
        current.production = joined(given, productionName);
        current.development = joined(given, developmentName);
    });
    return 1;
}

extern "C" void bmcoauth_testing_set_marker(int exists)
{
    // Two paths of which that is true everywhere.
    state().use([=](State& current) { current.marker = exists != 0 ? "/" : ""; });
}

extern "C" void bmcoauth_testing_reset(void)
{
    state().use([](State& current) { current = State{}; });
    bmcoauth_testing_set_random(nullptr, nullptr);
}
