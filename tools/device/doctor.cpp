// SPDX-License-Identifier: Apache-2.0
#include "device/doctor.hpp"

#include "cli/clock.hpp"
#include "cli/documents.hpp"
#include "cli/files.hpp"
#include "cli/refusal.hpp"
#include "device/image.hpp"
#include "device/roots.hpp"

#include <json/version.h>
#include <openssl/crypto.h>

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>

namespace bmcoauth::tool
{

namespace
{

std::string messageOf(int error)
{
    return std::generic_category().message(error);
}

Finding fine(std::string subject, std::string text)
{
    return {Exit::success, std::move(subject), std::move(text)};
}

Finding doubtful(std::string subject, std::string text)
{
    return {Exit::doubtful, std::move(subject), std::move(text)};
}

Finding bad(std::string subject, std::string text)
{
    return {Exit::invalid, std::move(subject), std::move(text)};
}

// --------------------------------------------------------------------------------------- clock

/** The beginning of 2020: a clock before that was never set. */
constexpr std::time_t plausible = 1577836800;

Finding clockFinding(std::time_t now)
{
    const std::string date = dateOf(static_cast<std::uint64_t>(now));
    return now >= plausible ? fine("clock", date) : doubtful("clock", date + ": it was never set");
}

/** The library's clock goes by way of local time. */
Finding libraryClockFinding(std::time_t now)
{
    const std::optional<std::uint64_t> seconds = librarySeconds(now);
    if (!seconds)
    {
        return bad("library clock", "cannot be read: no token can be judged");
    }
    const std::int64_t away = static_cast<std::int64_t>(*seconds) - std::int64_t{now};
    if (away == 0)
    {
        return fine("library clock", "the same");
    }
    return bad("library clock",
               std::to_string(away) +
                   " s from the clock: tokens of others are judged by it, and others judge "
                   "ours by theirs; it is exact where the local zone is UTC");
}

constexpr const char* mustBeUtc = ": the zone must be UTC";

Finding zoneFinding(std::time_t now)
{
    std::tm local{};
    std::array<char, 64> text{};
    if (localtime_r(&now, &local) == nullptr ||
        std::strftime(text.data(), text.size(), "%Z, UTC%z", &local) == 0)
    {
        return bad("time zone", "cannot be read");
    }
    // There is one thread.
    const char* variable = std::getenv("TZ"); // NOLINT(concurrency-mt-unsafe)
    const std::string zone =
        std::string{text.data()} +
        (variable != nullptr ? " by TZ=" + shown(variable) : " by /etc/localtime");
    // By name, too: zones that share the offset of UTC today may have had another in 1970, from
    // which the library counts.
    const bool isUtc = local.tm_gmtoff == 0 && std::string_view{local.tm_zone} == "UTC";
    return isUtc ? fine("time zone", zone) : bad("time zone", zone + mustBeUtc);
}

// --------------------------------------------------------------------------------------- files

Finding rootFinding(const std::string& subject, const std::string& path, bool counts)
{
    const FactoryRoot root = readRoot(path);
    if (!root.certificate)
    {
        return bad(subject, root.path + ": " + root.problem +
                                "; no chain verifies unless both roots are there");
    }
    const ASN1_TIME* end = X509_get0_notAfter(root.certificate.get());
    const ASN1_TIME* begin = X509_get0_notBefore(root.certificate.get());
    const std::string text =
        subjectOf(*root.certificate) + ", valid from " + timeText(begin) + " to " + timeText(end);
    std::time_t instant = judgedInstant();
    if (X509_cmp_time(end, &instant) <= 0 || X509_cmp_time(begin, &instant) > 0)
    {
        const std::string note = text + ": not on 1 January 2035, for which chains are judged";
        return counts ? bad(subject, note) : doubtful(subject, note);
    }
    // A user who may write a root decides which chains verify.
    const std::string risk = openTo(path, 0022);
    return risk.empty() ? fine(subject, text)
                        : bad(subject, text + "; its mode " + modeOf(path) + ' ' + risk);
}

/** The zone of an image: that of its /etc/localtime, without which it is UTC. */
Finding imageZoneFinding(const std::string& path)
{
    std::ifstream file{path, std::ios::binary};
    if (!file)
    {
        return fine("time zone", "UTC: there is no /etc/localtime");
    }
    const std::string zone{std::istreambuf_iterator<char>{file}, {}};
    // The last line of such a file is the zone's rule from now on.
    const std::size_t line = zone.rfind('\n', zone.size() < 2 ? 0 : zone.size() - 2);
    const std::string rule = line == std::string::npos ? "" : zone.substr(line + 1);
    return rule == "UTC0\n" ? fine("time zone", "UTC by /etc/localtime")
                            : bad("time zone", harmless(rule) + " by /etc/localtime" + mustBeUtc);
}

Finding markerFinding(bool marked)
{
    return marked ? doubtful("marker file",
                             std::string{markerPath} +
                                 " is there: the development root counts, and the library opens "
                                 "envelopes without IV or MAC; not for production")
                  : fine("marker file", std::string{markerPath} + " is not there");
}

Finding keyFinding(const std::string& path)
{
    const std::string subject = "key file";
    if (access(path.c_str(), R_OK) != 0)
    {
        return bad(subject, path + ": " + messageOf(errno));
    }
    const Expected<PrivateKey> key =
        keyFileIsSound(path).and_then([&] { return PrivateKey::fromFile(path); });
    if (!key)
    {
        return bad(subject, path + " is refused: " + lineOf(reasonOf(key.error())));
    }
    const std::string risk = openTo(path, 0077);
    return risk.empty() ? fine(subject, path + ", a sound P-256 key")
                        : doubtful(subject, path + "; its mode " + modeOf(path) + ' ' + risk);
}

// ------------------------------------------------------------------------------------- devices

Finding randomFinding()
{
    const std::string subject = "random device";
    const std::string path = "/dev/urandom";
    const Expected<Text> first = randomIv();
    const Expected<Text> second = randomIv();
    if (!first || !second)
    {
        return bad(subject, path + " gives no bytes");
    }
    if (first->view() == second->view())
    {
        return bad(subject, path + " gives the same bytes again");
    }
    struct stat status
    {
    };
    if (stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode))
    {
        return bad(subject, path + " is not a device");
    }
    return fine(subject, path + " gives bytes");
}

Finding journalFinding()
{
    const std::string subject = "journal";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = "/run/systemd/journal/socket";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int connection = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int result =
        connection < 0
            ? -1
            : connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    const int error = errno;
    if (connection >= 0)
    {
        close(connection);
    }
    return result == 0 ? fine(subject, path + " listens")
                       : doubtful(subject, path + ": " + messageOf(error) +
                                               "; the library's error messages are lost");
}

// ------------------------------------------------------------------------------------ libraries

Finding cryptoFinding()
{
    const std::string text = std::string{OpenSSL_version(OPENSSL_FULL_VERSION_STRING)} +
                             ", built with " + OPENSSL_FULL_VERSION_STR + ", " +
                             loadedFrom("libcrypto");
    return OPENSSL_version_major() == OPENSSL_VERSION_MAJOR
               ? fine("OpenSSL", text)
               : bad("OpenSSL", text + ": another major version");
}

/** Of the library that the first logged error loads. */
Finding journalLibraryFinding()
{
    const std::string subject = "libsystemd";
    const std::string built = "built with " + std::string{BMCOAUTH_JOURNAL_VERSIONS} + ", ";
    // Loaded until loadedFrom has seen where it is.
    const std::unique_ptr<void, int (*)(void*)> library{dlopen("libsystemd.so.0", RTLD_NOW),
                                                        dlclose};
    return library == nullptr ? doubtful(subject, built + "not found: errors are not logged")
                              : fine(subject, built + loadedFrom(subject));
}

std::vector<Finding> libraryFindings()
{
    return {
        fine("bmcoauth",
             "built with " + std::string{BMCOAUTH_VERSION} + ", " + loadedFrom("libbmcoauth")),
        cryptoFinding(),
        fine("jsoncpp",
             "built with " + std::string{JSONCPP_VERSION_STRING} + ", " + loadedFrom("libjsoncpp")),
        fine("liboath",
             "built with " + std::string{BMCOAUTH_OATH_VERSION} + ", " + loadedFrom("liboath")),
        journalLibraryFinding(),
        fine("libstrutil", loadedFrom("libstrutil")),
    };
}

} // namespace

std::vector<Finding> examineDevice(const std::vector<std::string>& keys)
{
    const std::time_t now = std::time(nullptr);
    const bool marked = deviceIsMarked();
    std::vector<Finding> findings{
        clockFinding(now),
        libraryClockFinding(now),
        zoneFinding(now),
        rootFinding("production root", productionRootPath, true),
        rootFinding("development root", developmentRootPath, marked),
        markerFinding(marked),
    };
    std::ranges::transform(keys, std::back_inserter(findings), keyFinding);
    findings.push_back(randomFinding());
    findings.push_back(journalFinding());
    std::ranges::move(libraryFindings(), std::back_inserter(findings));
    return findings;
}

std::vector<Finding> examineImage(const std::string& root, const std::vector<std::string>& keys)
{
    const bool marked = access(pathInImage(root, markerPath).c_str(), F_OK) == 0;
    std::vector<Finding> findings{
        imageZoneFinding(pathInImage(root, "/etc/localtime")),
        rootFinding("production root", pathInImage(root, productionRootPath), true),
        rootFinding("development root", pathInImage(root, developmentRootPath), marked),
        markerFinding(marked),
    };
    for (const std::string& key : keys)
    {
        findings.push_back(keyFinding(pathInImage(root, key)));
    }
    return findings;
}

Exit worstOf(const std::vector<Finding>& findings)
{
    const auto has = [&](Exit level) {
        return std::ranges::any_of(findings,
                                   [&](const Finding& finding) { return finding.level == level; });
    };
    if (has(Exit::invalid))
    {
        return Exit::invalid;
    }
    return has(Exit::doubtful) ? Exit::doubtful : Exit::success;
}

} // namespace bmcoauth::tool
