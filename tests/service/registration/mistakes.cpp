// SPDX-License-Identifier: Apache-2.0
//
// Compiled as it is, this is right; with one of the macros, it is a mistake that must not compile.
// mistakes.py reads their names here, and what the compiler says to each.
#include <bmcoauth/service.hpp>

#include <optional>
#include <string_view>
#include <utility>

using namespace bmcoauth;

namespace
{

/** A store without removal. */
struct HalfAStore
{
    Expected<std::optional<ClientRecord>> find(std::string_view id);
};

[[maybe_unused]] bool isProvenBy(const ParameterList& challenge, const ParameterList& response,
                                 CertificateKey key)
{
#ifdef CERTIFICATE_FOR_A_DEVICE // invalid initialization
    return checkProofs(challenge, response, "", key).has_value();
#endif
#ifdef DEVICE_WITHOUT_A_NAME // no matching function
    return DeviceIdentity::of(std::move(key)).has_value();
#endif
#ifdef DEVICE_OUT_OF_NOTHING // private
    const DeviceIdentity made{std::move(key)};
#endif
#ifdef CHAIN_OF_A_DEVICE_THAT_IS_GONE // deleted
    return DeviceIdentity::of(std::move(key), "device").value().certificate().isValid().has_value();
#endif
    const Expected<DeviceIdentity> device = DeviceIdentity::of(std::move(key), "device");
    return device && isProven(challenge, response, "", &device->certificate()).has_value();
}

} // namespace

int main()
{
    MemoryStore store;
    Expected<Registrar<MemoryStore>> registrar = Registrar<MemoryStore>::of(store, {});
#ifdef REGISTRAR_WITHOUT_RULES // no matching function
    static_cast<void>(Registrar<MemoryStore>::of(store));
#endif
#ifdef STORE_OF_SOMETHING_ELSE // constraint
    static_cast<void>(Registrar<HalfAStore>::of);
#endif
#ifdef REQUEST_WITHOUT_A_SENDER // no matching function
    static_cast<void>(registrar->answer("{}"));
#endif
#ifdef IGNORED_ANSWER // nodiscard
    registrar->answer("{}", "sender");
#endif
#ifdef REFUSAL_FOR_AN_ERROR // conversion from
    const Expected<Text, Refusal> answer = Error{BMCOAUTH_RULE_CLIENT_UNKNOWN};
#endif
    return registrar ? 1 : 0;
}
