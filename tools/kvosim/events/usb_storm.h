// Many USB events in a row: devices are plugged in and removed in turn, at a given rate.
#pragma once

#include "kvosim/events/usb_events.h"
#include "kvosim/net/line_server.h"

#include <cstdint>
#include <optional>

namespace kvosim {

struct StormOrder {
    uint32_t count = 0;                 ///< events
    uint32_t rate = 0;                  ///< events a second; 0 is as fast as they are taken
    std::optional<uint32_t> station{};  ///< none: all in turn
};

/// Begins a storm, whose sums are told to @p caller at its end. It ends early when nobody waits for them any more, and when
/// events are deactivated. Throws Refused where it can not begin.
void beginUsbStorm(UsbEvents &events, const StormOrder &order, const LineServer::Caller &caller);

}  // namespace kvosim
