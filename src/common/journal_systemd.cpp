// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/journal.hpp"

#include <systemd/sd-journal.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

namespace bmcoauth::internal
{

namespace
{

/** The id that ties together the entries of one thread's bus call. Without sdbusplus no bus call
 *  sets one, and then it is made from the time and the thread, once for each thread. */
std::uint64_t transactionId()
{
    thread_local const std::uint64_t id =
        std::hash<std::thread::id>{}(std::this_thread::get_id()) ^
        std::hash<std::chrono::steady_clock::rep>{}(
            std::chrono::steady_clock::now().time_since_epoch().count());
    return id;
}

} // namespace

void logError(const char* message) noexcept
{
    const ErrnoKeeper keeper;
    // The location is that of the logging helper, as in every entry of the other services.
    sd_journal_send_with_location("CODE_FILE=phosphor-logging/log.hpp", "CODE_LINE=77",
                                  "helper_log", "MESSAGE=%s", message, "PRIORITY=%d", 3,
                                  "TRANSACTION_ID=%llu",
                                  static_cast<unsigned long long>(transactionId()), nullptr);
}

} // namespace bmcoauth::internal
