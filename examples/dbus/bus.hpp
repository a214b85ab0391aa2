// SPDX-License-Identifier: Apache-2.0
#pragma once

// What both services do on the bus.

#include <bmcoauth.hpp>

#include <systemd/sd-bus.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <system_error>

/** Where an object is on the bus. */
struct Address
{
    const char* name;
    const char* path;
    const char* interface;
};
constexpr Address tokenService{"org.example.Tokens", "/org/example/Tokens", "org.example.Tokens1"};
constexpr Address judgingService{"org.example.Judge", "/org/example/Judge", "org.example.Judge1"};

/** The value, or the end of the program. */
template <typename T>
T required(bmcoauth::Expected<T> result)
{
    return result ? *std::move(result)
                  : throw std::runtime_error{result.error().describe().c_str()};
}

/** The same for functions that give a negative errno. */
inline int required(int result, const char* about)
{
    return result >= 0 ? result : throw std::system_error{-result, std::generic_category(), about};
}

/** Makes a service and offers its methods on the system bus until SIGTERM or SIGINT, or the end of
 *  the bus. Returns the exit status. */
template <typename Make>
int serve(const Address& address, const sd_bus_vtable* methods, const Make& make)
{
    try
    {
        sd_bus* bus = nullptr;
        sd_event* loop = nullptr;
        required(sd_bus_default_system(&bus), "bus");
        required(sd_event_default(&loop), "event loop");
        auto service = make(bus);
        required(sd_bus_add_object_vtable(bus, nullptr, address.path, address.interface, methods,
                                          &service),
                 address.path);
        required(sd_event_set_signal_exit(loop, 1), "signals");
        required(sd_bus_set_exit_on_disconnect(bus, 1), "bus");
        required(sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL), "event loop");
        required(sd_bus_request_name(bus, address.name, 0), address.name);
        sd_notify(0, "READY=1");
        return required(sd_event_loop(loop), "event loop");
    }
    catch (const std::exception& error)
    {
        std::cerr << "cannot go on: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
