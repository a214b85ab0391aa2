// SPDX-License-Identifier: Apache-2.0
#include "common/guard.hpp"
#include "common/journal.hpp"

#include <systemd/sd-journal.h>

#include <dlfcn.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

// Null unless the process holds libsystemd anyway, as one that speaks to the bus does.
#pragma weak sd_journal_send_with_location

namespace bmcoauth::internal
{

namespace
{

using Send = decltype(sd_journal_send_with_location);

/** What sends an entry; null if libsystemd is not installed or there is no memory for it. It is
 *  loaded by the first message, which few processes ever send: with what it needs itself, libsystemd
 *  is a fifth of what loading this library costs. Later messages find it loaded. */
Send* findSend()
{
    if (sd_journal_send_with_location != nullptr)
    {
        return sd_journal_send_with_location;
    }
    void* const systemd = dlopen("libsystemd.so.0", RTLD_NOW);
    return systemd == nullptr
               ? nullptr
               : reinterpret_cast<Send*>(dlsym(systemd, "sd_journal_send_with_location"));
}

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
    Send* const send = findSend();
    if (send == nullptr)
    {
        return;
    }
    // The location is that of the logging helper, as in every entry of the other services.
    send("CODE_FILE=phosphor-logging/log.hpp", "CODE_LINE=77", "helper_log", "MESSAGE=%s", message,
         "PRIORITY=%d", 3, "TRANSACTION_ID=%llu", static_cast<unsigned long long>(transactionId()),
         nullptr);
}

} // namespace bmcoauth::internal
