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

namespace
{

using namespace bmcoauth;

/** The public keys that the token service has now; "" if it does not answer. */
std::string publishedKeys(sd_bus* bus)
{
    sd_bus_message* reply = nullptr;
    const char* jwks = "";
    sd_bus_call_method(bus, tokenService.name, tokenService.path, tokenService.interface, "Keys",
                       nullptr, &reply, "");
    const bool isRead = reply != nullptr && sd_bus_message_read(reply, "s", &jwks) > 0;
    std::string keys = isRead ? jwks : "";
    sd_bus_message_unref(reply);
    return keys;
}

/** Not moved: the bus knows where it is. */
struct Judge
{
    sd_bus* bus = nullptr;
    VerificationKeys keys = required(VerificationKeys::of(publishedKeys(bus)));
    TokenRules rules{.issuer = tokenService.name,
                     .audience = tokenService.name,
                     .longestLifetime = std::chrono::hours{1},
                     .revoked = ignored};
    TokenValidator validator = required(TokenValidator::of(keys, rules, systemClock()));
    std::chrono::steady_clock::time_point loaded = {};
    int match = required(sd_bus_match_signal(bus, nullptr, tokenService.name, tokenService.path,
                                             tokenService.interface, "KeysChanged", load, this),
                         "KeysChanged");

    static int load(sd_bus_message* /*signal*/, void* userdata, sd_bus_error* /*error*/)
    {
        Judge& judge = *static_cast<Judge*>(userdata);
        static_cast<void>(judge.keys.replace(publishedKeys(judge.bus)));
        judge.loaded = std::chrono::steady_clock::now();
        return 0;
    }
};

int answer(sd_bus_message* message, void* userdata, sd_bus_error* error)
{
    const Judge& judge = *static_cast<Judge*>(userdata);
    const char* token = nullptr;
    if (const int read = sd_bus_message_read(message, "s", &token); read < 0)
    {
        return read;
    }
    Expected<ValidToken> valid = judge.validator.validate(token);
    // Anybody can write a token with an unknown key: one look a second is enough.
    if (!valid && valid.error().rule() == BMCOAUTH_RULE_POLICY_KEY_UNKNOWN &&
        std::chrono::steady_clock::now() >= judge.loaded + std::chrono::seconds{1})
    {
        Judge::load(message, userdata, error);
        valid = judge.validator.validate(token);
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
    SD_BUS_METHOD_WITH_ARGS("Judge", SD_BUS_ARGS("s", token), SD_BUS_RESULT("s", subject, "u", privileges), answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};
// NOLINTEND(cppcoreguidelines-pro-type-const-cast)
// clang-format on

} // namespace

int main()
{
    return serve(judgingService, table, [](sd_bus* bus) { return Judge{bus}; });
}
