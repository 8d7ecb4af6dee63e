// Sends many USB events: plugs in and removes devices in turn, at a given rate.
#pragma once

#include "kvosim/events/usb_events.h"
#include "kvosim/net/line_server.h"

#include <cstdint>
#include <optional>

namespace kvosim {

struct StormParameters {
    uint32_t count = 0;                 ///< number of events
    uint32_t rate = 0;                  ///< events per second; 0 is as fast as the receiver accepts them
    std::optional<uint32_t> station{};  ///< without a value: each station in turn
};

/// Begins a storm, and sends the totals to @p caller at its end. The storm ends early if @p caller no longer waits, or if
/// events are deactivated. Throws Refused if it cannot begin.
void beginUsbStorm(UsbEvents &events, const StormParameters &parameters, const LineServer::Caller &caller);

}  // namespace kvosim
