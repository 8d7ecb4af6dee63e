// The interface between the executable and the plugin of the test of shared objects: C++ objects go across.
#pragma once

#include <kvo_hws/kvo_hws.hpp>

#include <memory>

namespace cpp_events_test {

/// What one shared object does with the C++ interface. Its functions are compiled into that object.
struct Side {
    kvo::Result<kvo::UsbEvents> (*activateUsb)(kvo::UsbEvents::Handler handler);
    kvo::Result<kvo::EmbeddedEvents> (*activateEmbedded)(kvo::EmbeddedEvents::Handler handler);
    kvo::Result<kvo::Agent> (*startAgent)(const kvo::AgentOptions &options, kvo::Agent::Handler handler);
    /// Takes the object over, and destroys it.
    bool (*closeUsb)(kvo::UsbEvents events);
    bool (*closeEmbedded)(kvo::EmbeddedEvents events);
    bool (*closeAgent)(kvo::Agent agent);
};

inline __attribute__((visibility("hidden"))) const Side &thisSide()
{
    static const Side side = {
        [](kvo::UsbEvents::Handler handler) { return kvo::UsbEvents::activate(std::move(handler)); },
        [](kvo::EmbeddedEvents::Handler handler) { return kvo::EmbeddedEvents::activate(std::move(handler)); },
        [](const kvo::AgentOptions &options, kvo::Agent::Handler handler) {
            return kvo::Agent::start(options, std::move(handler));
        },
        [](kvo::UsbEvents events) { return kvo::UsbEvents(std::move(events)).close().has_value(); },
        [](kvo::EmbeddedEvents events) { return kvo::EmbeddedEvents(std::move(events)).close().has_value(); },
        [](kvo::Agent agent) { return kvo::Agent(std::move(agent)).close().has_value(); },
    };
    return side;
}

}  // namespace cpp_events_test
