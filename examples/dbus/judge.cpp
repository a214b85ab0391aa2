// SPDX-License-Identifier: Apache-2.0
//
// A service on D-Bus that judges access tokens, with public keys alone: token-judge
//
// Its method Judge(token) -> (subject, privileges) stands for whatever a service does for the
// holder of a token. The keys come from the token service: at the start, when that has new ones, and
// when a token names a key that is not known. A token of a client that has been removed counts until
// it ends, which is 10 minutes; who cannot wait asks the token service (Introspect).
#include <bmcoauth/service.hpp>

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>

namespace
{

using bmcoauth::Expected;
using bmcoauth::ValidToken;

constexpr const char* issuer = "org.example.Tokens";
constexpr const char* issuerPath = "/org/example/Tokens";
constexpr const char* issuerInterface = "org.example.Tokens1";

using Bus = std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)>;

/** The public keys that the token service has now; "" if it does not answer. */
std::string publishedKeys(sd_bus* bus)
{
    sd_bus_message* reply = nullptr;
    const char* jwks = "";
    sd_bus_call_method(bus, issuer, issuerPath, issuerInterface, "Keys", nullptr, &reply, "");
    const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owned{
        reply, sd_bus_message_unref};
    return reply != nullptr && sd_bus_message_read(reply, "s", &jwks) > 0 ? jwks : "";
}

struct Judge
{
    bmcoauth::VerificationKeys keys;
    bmcoauth::TokenValidator validator;
    std::chrono::steady_clock::time_point loaded = {};

    void load(sd_bus* bus)
    {
        loaded = std::chrono::steady_clock::now();
        static_cast<void>(keys.replace(publishedKeys(bus)));
    }
    Expected<ValidToken> validate(sd_bus* bus, const char* token)
    {
        Expected<ValidToken> valid = validator.validate(token);
        // Anybody can write a token with an unknown key: once a second is enough.
        if (valid || valid.error().rule() != BMCOAUTH_RULE_POLICY_KEY_UNKNOWN ||
            std::chrono::steady_clock::now() < loaded + std::chrono::seconds{1})
        {
            return valid;
        }
        load(bus);
        return validator.validate(token);
    }
};

int judge(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/)
{
    const char* token = nullptr;
    if (const int read = sd_bus_message_read(message, "s", &token); read < 0)
    {
        return read;
    }
    const Expected<ValidToken> valid =
        static_cast<Judge*>(userdata)->validate(sd_bus_message_get_bus(message), token);
    if (!valid)
    {
        std::cerr << "token-judge: " << valid.error().describe().view() << std::endl;
        return sd_bus_reply_method_errorf(message, SD_BUS_ERROR_ACCESS_DENIED, "invalid_token");
    }
    const std::string subject{valid->claims().subject().value_or("")};
    return sd_bus_reply_method_return(message, "su", subject.c_str(), valid->privileges().bits());
}

int loadKeys(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/)
{
    static_cast<Judge*>(userdata)->load(sd_bus_message_get_bus(message));
    return 0;
}

Expected<bmcoauth::TokenValidator> validatorOf(const bmcoauth::VerificationKeys& keys)
{
    return bmcoauth::TokenValidator::of(keys,
                                        {.issuer = issuer,
                                         .audience = issuer,
                                         .longestLifetime = std::chrono::hours{1},
                                         .revoked = bmcoauth::ignored},
                                        bmcoauth::systemClock());
}

// NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast): the macros are C.
constexpr std::array table{
    sd_bus_vtable SD_BUS_VTABLE_START(0),
    sd_bus_vtable SD_BUS_METHOD_WITH_NAMES("Judge", "s", SD_BUS_PARAM(token), "su",
                                           SD_BUS_PARAM(subject) SD_BUS_PARAM(privileges), judge,
                                           SD_BUS_VTABLE_UNPRIVILEGED),
    sd_bus_vtable SD_BUS_VTABLE_END,
};
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)

} // namespace

int main()
{
    sd_bus* raw = nullptr;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread.
    const bool isSession = std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr;
    const int opened = isSession ? sd_bus_open_user(&raw) : sd_bus_open_system(&raw);
    const Bus bus{raw, sd_bus_flush_close_unref};
    const auto keys = bmcoauth::VerificationKeys::of(opened < 0 ? "" : publishedKeys(raw));
    auto made = keys.and_then(validatorOf);
    if (!made)
    {
        std::cerr << "token-judge: no keys: " << made.error().describe().view() << '\n';
        return EXIT_FAILURE;
    }
    Judge judge{*keys, *std::move(made)};
    if (sd_bus_match_signal(raw, nullptr, issuer, issuerPath, issuerInterface, "KeysChanged",
                            loadKeys, &judge) < 0 ||
        sd_bus_add_object_vtable(raw, nullptr, "/org/example/Judge", "org.example.Judge1",
                                 table.data(), &judge) < 0 ||
        sd_bus_request_name(raw, "org.example.Judge", 0) < 0)
    {
        return EXIT_FAILURE;
    }
    sd_notify(0, "READY=1");
    // Until SIGTERM, or the end of the bus: there is nothing to tidy up.
    int done = 0;
    while (done >= 0)
    {
        done = sd_bus_process(raw, nullptr);
        done = done == 0 ? sd_bus_wait(raw, UINT64_MAX) : done;
    }
    return EXIT_FAILURE;
}
