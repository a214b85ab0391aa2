// SPDX-License-Identifier: Apache-2.0
#pragma once

// What both services do on the bus.

#include <bmcoauth.hpp>

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

/** The value, or the end of the service. */
template <typename T>
T required(bmcoauth::Expected<T> result, const std::string& about)
{
    if (!result)
    {
        throw std::runtime_error{about + ": " + std::string{result.error().describe().view()}};
    }
    return *std::move(result);
}

/** The same for functions that give a negative errno. */
inline void required(int result, const char* about)
{
    if (result < 0)
    {
        throw std::system_error{-result, std::generic_category(), about};
    }
}

using Bus = std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)>;

/** The session's bus if there is one, as in a test. On a controller, services meet on the system bus. */
inline Bus openBus()
{
    sd_bus* bus = nullptr;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread.
    const bool isSession = std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr;
    required(isSession ? sd_bus_open_user(&bus) : sd_bus_open_system(&bus), "bus");
    return {bus, sd_bus_flush_close_unref};
}

/** Offers the bus name `name` until SIGTERM or SIGINT, or the end of the bus. */
inline void serve(sd_bus* bus, const char* name)
{
    sd_event* event = nullptr;
    required(sd_event_default(&event), "event loop");
    const std::unique_ptr<sd_event, decltype(&sd_event_unref)> loop{event, sd_event_unref};
    sigset_t ends;
    sigemptyset(&ends);
    for (const int signal : {SIGTERM, SIGINT})
    {
        sigaddset(&ends, signal);
    }
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    required(sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr), "SIGTERM");
    required(sd_event_add_signal(event, nullptr, SIGINT, nullptr, nullptr), "SIGINT");
    required(sd_bus_set_exit_on_disconnect(bus, 1), "bus");
    required(sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL), "event loop");
    required(sd_bus_request_name(bus, name, 0), name);
    std::cout << "ready" << std::endl;
    sd_notify(0, "READY=1");
    required(sd_event_loop(event), "event loop");
}

/** Runs a service; its exit status. */
template <typename Run>
int status(const Run& run)
{
    try
    {
        run();
        return EXIT_SUCCESS;
    }
    catch (const std::exception& error)
    {
        std::cerr << "cannot go on: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
