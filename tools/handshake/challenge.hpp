// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/documents.hpp"

#include <optional>
#include <string>

namespace bmcoauth::tool
{

/** The member of a register response that holds the server's challenge. */
constexpr const char* challengeMember = "handshake_challenge";

/** The member of an authorize request that holds the client's response. */
constexpr const char* responseMember = "handshake_response";

/** The server's challenge for a client that supports @p types, or a stop. */
[[nodiscard]] ParameterList challengeFor(TextSpan types, std::uint32_t mode);

/** The result of @p read for the file @p path; nothing without one, since not every challenge asks for
 *  everything. */
template <typename Material>
[[nodiscard]] std::optional<Material> ifGiven(const std::string& path,
                                              Material (*read)(const std::string&))
{
    return path.empty() ? std::nullopt : std::optional<Material>{read(path)};
}

template <typename Material>
[[nodiscard]] const Material* pointerTo(const std::optional<Material>& material)
{
    return material ? &*material : nullptr;
}

} // namespace bmcoauth::tool
