// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "cli/openssl.hpp"

#include <array>
#include <ctime>
#include <optional>
#include <string>

namespace bmcoauth::tool
{

/** The paths of the factory roots on a device: both files are needed, and the second one counts
 *  only if the device has its marker file. */
inline constexpr const char* productionRootPath = "/etc/default/certs/FactorycertProdRoot.pem";
inline constexpr const char* developmentRootPath = "/etc/default/certs/FactorycertDevRoot.pem";

/** The marker file of development devices. */
inline constexpr const char* markerPath = "/etc/vorn_fw";

/** A root file, or why there is none. */
struct FactoryRoot
{
    std::string path;
    Certificate certificate;
    std::string problem; /**< empty where there is a certificate */
};

/** Reads the root file @p path as the library does. */
[[nodiscard]] FactoryRoot readRoot(const std::string& path);

/** The instant for which chains are judged: 1 January 2035, local time. */
[[nodiscard]] std::time_t judgedInstant();

/** The subject of @p certificate in one line. */
[[nodiscard]] std::string subjectOf(const X509& certificate);

/** A time of a certificate in one line. */
[[nodiscard]] std::string timeText(const ASN1_TIME* time);

} // namespace bmcoauth::tool
