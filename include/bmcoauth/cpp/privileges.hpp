// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The privileges of a token's subject, over <bmcoauth/privileges.h>. */

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

/** A set of privileges: `for (Privilege one : set)` goes through it. */
class Privileges
{
public:
    /** Goes from privilege to privilege, in the order of their bits. */
    class Iterator
    {
    public:
        /** What `*` gives. */
        using value_type = Privilege;
        /** What algorithms of the standard library ask for. */
        using difference_type = std::ptrdiff_t;

        constexpr Iterator() noexcept = default;
        /** Begins with the lowest bit of `bits`. */
        constexpr explicit Iterator(unsigned int bits) noexcept : rest{bits}
        {
        }
        /** The privilege here. */
        [[nodiscard]] constexpr Privilege operator*() const noexcept
        {
            return Privilege{1U << std::countr_zero(rest)};
        }
        /** Goes on to the next privilege. */
        constexpr Iterator& operator++() noexcept
        {
            rest &= rest - 1;
            return *this;
        }
        /** Goes on to the next privilege, and gives where it was. */
        // NOLINTNEXTLINE(cert-dcl21-cpp): an iterator must be assignable.
        constexpr Iterator operator++(int) noexcept
        {
            const Iterator before = *this;
            ++*this;
            return before;
        }
        /** Whether both are at the same place. */
        [[nodiscard]] constexpr bool operator==(const Iterator& other) const noexcept = default;

    private:
        unsigned int rest = 0;
    };

    constexpr Privileges() noexcept = default;
    /** The privileges of a mask. */
    constexpr explicit Privileges(unsigned int bits) noexcept : mask{bits}
    {
    }
    /** A single one. */
    constexpr Privileges(Privilege one) noexcept : mask{static_cast<unsigned int>(one)}
    {
    }

    /** All nine. */
    [[nodiscard]] static constexpr Privileges all() noexcept
    {
        return Privileges{0x1ff};
    }

    /** The first privilege of the set. */
    [[nodiscard]] constexpr Iterator begin() const noexcept
    {
        // The other bits of a mask have no meaning.
        return Iterator{mask & all().mask};
    }
    /** Behind the last privilege. */
    [[nodiscard]] static constexpr Iterator end() noexcept
    {
        return Iterator{};
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
    /** The privileges of both sets together. */
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

/** The name of a privilege in a "scope" claim, such as "ravok_login": ravok_scope_privileges. ""
 *  for a number that is not one of the nine. */
[[nodiscard]] inline std::string_view nameOf(Privilege privilege) noexcept
{
    for (const Privilege one : Privileges::all())
    {
        if (one == privilege)
        {
            return ::ravok_scope_privileges[std::countr_zero(static_cast<unsigned int>(one))];
        }
    }
    return "";
}

/** The privilege of that name, case included; absent if there is none. */
[[nodiscard]] inline std::optional<Privilege> privilegeNamed(std::string_view name) noexcept
{
    for (const Privilege one : Privileges::all())
    {
        if (nameOf(one) == name)
        {
            return one;
        }
    }
    return std::nullopt;
}

/** A role of the service's table, and what it grants. */
struct Role
{
    /** The name, as in a token's "ravok_roles". */
    std::string_view name = {};
    /** The privileges that it grants. */
    Privileges privileges = {};
};

namespace detail
{

/** The scope entry whose value is a mask of privileges, in decimal. */
inline constexpr std::string_view privilegesEntry = "USER_PRIV";

/** The roles as the library takes them, with a null name behind the last. */
[[nodiscard]] inline userRole_s* roleTable(Arguments& in, std::span<const Role> roles)
{
    auto* const table = in.array<userRole_s>("roles", roles.size());
    for (std::size_t i = 0; table != nullptr && i < roles.size(); ++i)
    {
        table[i] = {in.text("roles", roles[i].name, static_cast<int>(i)),
                    roles[i].privileges.bits()};
    }
    return table;
}

} // namespace detail

/** The privileges of the names in the token's "scope": get_scope_privileges. */
[[nodiscard]] inline Privileges scopePrivileges(const VerifiedToken& token)
{
    return Privileges{::get_scope_privileges(token.payloadRecord())};
}

/** The privileges of the token's roles: get_roles_privileges. */
[[nodiscard]] inline Expected<Privileges> rolePrivileges(const VerifiedToken& token,
                                                         std::span<const Role> roles)
{
    detail::Arguments in;
    userRole_s* const table = detail::roleTable(in, roles);
    if (in.failed())
    {
        return in.failure();
    }
    return Privileges{::get_roles_privileges(token.payloadRecord(), table)};
}

/** The privileges of the token's codes for these identity providers: get_xidp_privileges. */
[[nodiscard]] inline Expected<Privileges> providerPrivileges(const VerifiedToken& token,
                                                             TextSpan providers)
{
    detail::Arguments in;
    const char** const names = in.texts<const char*>("providers", providers);
    if (in.failed())
    {
        return in.failure();
    }
    return Privileges{::get_xidp_privileges(token.payloadRecord(), names)};
}

/** The privileges in the scope entry "USER_PRIV" of a valid token; absent if there is no such
 *  entry. In a token of one's own, they are those of its TokenGrant or TokenPlan. In a token of
 *  another issuer, validateDelegatedToken computes them from scope, roles and identity
 *  providers. NOTE: if "scope" was an object, the issuer wrote the number. */
[[nodiscard]] inline std::optional<Privileges> userPrivileges(const VerifiedToken& token) noexcept
{
    const std::optional<std::string_view> text = token.claims().scopeValue(detail::privilegesEntry);
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
