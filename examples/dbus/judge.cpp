// SPDX-License-Identifier: Apache-2.0
//
// A service on D-Bus that judges access tokens, with public keys alone: token-judge
//
// Its method Judge(token) -> (subject, privileges) stands for whatever a service does for the
// holder of a token. The keys come from the token service: at the start, when that has new ones, and
// when a token names a key that is not known. A token of a client that has been removed counts until
// it ends, which is 10 minutes; who cannot wait asks the token service (Introspect).
#include "bus.hpp"

#include <bmcoauth/service.hpp>

#include <chrono>
#include <iostream>
#include <string>
#include <utility>

namespace
{

using namespace bmcoauth;

constexpr const char* name = "org.example.Judge";
constexpr const char* issuer = "org.example.Tokens";
constexpr const char* issuerPath = "/org/example/Tokens";
constexpr const char* issuerInterface = "org.example.Tokens1";

/** The public keys that the token service has now; "" if it does not answer. */
std::string publishedKeys(sd_bus* bus)
{
    sd_bus_message* reply = nullptr;
    const char* jwks = "";
    sd_bus_call_method(bus, issuer, issuerPath, issuerInterface, "Keys", nullptr, &reply, "");
    const bool isRead = reply != nullptr && sd_bus_message_read(reply, "s", &jwks) > 0;
    std::string keys = isRead ? jwks : "";
    sd_bus_message_unref(reply);
    return keys;
}

struct Judge
{
    VerificationKeys keys;
    TokenValidator validator;
    std::chrono::steady_clock::time_point loaded = {};
};

int loadKeys(sd_bus_message* message, void* judge, sd_bus_error* /*error*/)
{
    auto& [keys, validator, loaded] = *static_cast<Judge*>(judge);
    static_cast<void>(keys.replace(publishedKeys(sd_bus_message_get_bus(message))));
    loaded = std::chrono::steady_clock::now();
    return 0;
}

int judge(sd_bus_message* message, void* userdata, sd_bus_error* error)
{
    const auto& [keys, validator, loaded] = *static_cast<Judge*>(userdata);
    const char* token = nullptr;
    if (const int read = sd_bus_message_read(message, "s", &token); read < 0)
    {
        return read;
    }
    Expected<ValidToken> valid = validator.validate(token);
    // Anybody can write a token with an unknown key: one look a second is enough.
    if (!valid && valid.error().rule() == BMCOAUTH_RULE_POLICY_KEY_UNKNOWN &&
        std::chrono::steady_clock::now() >= loaded + std::chrono::seconds{1})
    {
        loadKeys(message, userdata, error);
        valid = validator.validate(token);
    }
    if (!valid)
    {
        std::cerr << "token-judge: " << valid.error().describe().view() << std::endl;
        return sd_bus_reply_method_errorf(message, SD_BUS_ERROR_ACCESS_DENIED, "invalid_token");
    }
    const std::string subject{valid->claims().subject().value_or("")};
    return sd_bus_reply_method_return(message, "su", subject.c_str(), valid->privileges().bits());
}

// clang-format off
// NOLINTBEGIN(cppcoreguidelines-pro-type-const-cast): the macros are C.
constexpr sd_bus_vtable table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Judge", SD_BUS_ARGS("s", token), SD_BUS_RESULT("s", subject, "u", privileges), judge, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)
// clang-format on

void run()
{
    const Bus bus = openBus();
    const VerificationKeys keys = required(VerificationKeys::of(publishedKeys(bus.get())), "keys");
    TokenRules rules{.issuer = issuer,
                     .audience = issuer,
                     .longestLifetime = std::chrono::hours{1},
                     .revoked = ignored};
    Judge judge{keys, required(TokenValidator::of(keys, std::move(rules), systemClock()), "rules")};
    required(sd_bus_match_signal(bus.get(), nullptr, issuer, issuerPath, issuerInterface,
                                 "KeysChanged", loadKeys, &judge),
             issuer);
    required(sd_bus_add_object_vtable(bus.get(), nullptr, "/org/example/Judge",
                                      "org.example.Judge1", table, &judge),
             name);
    serve(bus.get(), name);
}

} // namespace

int main()
{
    return status(run);
}
