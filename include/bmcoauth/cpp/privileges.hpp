// SPDX-License-Identifier: Apache-2.0
#pragma once

/* What a token's subject may do, over <bmcoauth/privileges.h>. */

#include <bmcoauth/cpp/arguments.hpp>
#include <bmcoauth/cpp/expected.hpp>
#include <bmcoauth/cpp/token.hpp>
#include <bmcoauth/privileges.h>

#include <bit>
#include <charconv>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>

namespace bmcoauth
{
inline namespace v1
{

/** The nine privileges of the controller, by their bits. */
enum class Privilege : unsigned int
{
    login = 0x001,
    configure = 0x002,
    configureUsers = 0x004,
    clearLogs = 0x008,
    executeServerControlCommands = 0x010,
    accessConsoleRedirection = 0x020,
    accessVirtualMedia = 0x040,
    testAlerts = 0x080,
    executeDiagnosticCommands = 0x100,
};

/** A set of privileges. */
class Privileges
{
public:
    constexpr Privileges() noexcept = default;
    /** The privileges of a mask. */
    constexpr explicit Privileges(unsigned int bits) noexcept : mask{bits}
    {
    }
    /** A single one. */
    constexpr Privileges(Privilege one) noexcept : mask{static_cast<unsigned int>(one)}
    {
    }

    /** The mask, as the functions of <bmcoauth/privileges.h> give it. */
    [[nodiscard]] constexpr unsigned int bits() const noexcept
    {
        return mask;
    }
    /** Whether `one` is in the set. */
    [[nodiscard]] constexpr bool has(Privilege one) const noexcept
    {
        return (mask & static_cast<unsigned int>(one)) != 0;
    }
    /** What is in either set. */
    [[nodiscard]] friend constexpr Privileges operator|(Privileges left, Privileges right) noexcept
    {
        return Privileges{left.mask | right.mask};
    }
    /** Whether both sets hold the same. */
    [[nodiscard]] constexpr bool operator==(const Privileges& other) const noexcept = default;

private:
    unsigned int mask = 0;
};

/** Both privileges. */
[[nodiscard]] constexpr Privileges operator|(Privilege left, Privilege right) noexcept
{
    return Privileges{left} | Privileges{right};
}

/** The name of a privilege in a "scope" claim: ravok_scope_privileges. */
[[nodiscard]] inline std::string_view nameOf(Privilege privilege) noexcept
{
    return ::ravok_scope_privileges[std::countr_zero(static_cast<unsigned int>(privilege))];
}

/** A role of the service's table, and what it grants. */
struct Role
{
    /** As it stands in a token's "ravok_roles". */
    std::string_view name = {};
    /** What it grants. */
    Privileges privileges = {};
};

namespace detail
{

/** The roles as the library takes them, with a null name behind the last. */
[[nodiscard]] inline userRole_s* roleTable(Arguments& in, std::span<const Role> roles)
{
    auto* const table = in.array<userRole_s>(roles.size());
    for (std::size_t i = 0; table != nullptr && i < roles.size(); ++i)
    {
        table[i] = {in.text(roles[i].name), roles[i].privileges.bits()};
    }
    return table;
}

} // namespace detail

/** What the names in the token's "scope" grant: get_scope_privileges. */
[[nodiscard]] inline Privileges scopePrivileges(const VerifiedToken& token)
{
    return Privileges{::get_scope_privileges(token.payloadRecord())};
}

/** What the token's roles grant: get_roles_privileges. */
[[nodiscard]] inline Expected<Privileges> rolePrivileges(const VerifiedToken& token,
                                                         std::span<const Role> roles)
{
    detail::Arguments in;
    userRole_s* const table = detail::roleTable(in, roles);
    if (in.failure())
    {
        return *in.failure();
    }
    return Privileges{::get_roles_privileges(token.payloadRecord(), table)};
}

/** What the token's codes of these identity providers grant: get_xidp_privileges. */
[[nodiscard]] inline Expected<Privileges> providerPrivileges(const VerifiedToken& token,
                                                             TextSpan providers)
{
    detail::Arguments in;
    const char** const names = in.texts<const char*>(providers);
    if (in.failure())
    {
        return *in.failure();
    }
    return Privileges{::get_xidp_privileges(token.payloadRecord(), names)};
}

/** The privileges in the scope entry "USER_PRIV" of a valid token, where validateDelegatedToken
 *  writes what scope, roles and identity providers grant together; absent if there is no such
 *  entry. NOTE: where "scope" was an object, it is the issuer that wrote the number. */
[[nodiscard]] inline std::optional<Privileges> userPrivileges(const VerifiedToken& token) noexcept
{
    const std::optional<std::string_view> text = token.claims().scopeValue("USER_PRIV");
    unsigned int mask = 0;
    if (!text)
    {
        return std::nullopt;
    }
    const char* const end = text->data() + text->size();
    const std::from_chars_result result = std::from_chars(text->data(), end, mask);
    return result.ec == std::errc{} && result.ptr == end ? std::optional{Privileges{mask}}
                                                         : std::nullopt;
}

} // namespace v1
} // namespace bmcoauth
