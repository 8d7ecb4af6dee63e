// Requests of the control socket for USB devices.
#pragma once

#include "common/control_protocol.h"
#include "kvosim/events/usb_events.h"
#include "kvosim/net/line_server.h"

#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

/// Carries out "usb.plug", "usb.refuse", "usb.unplug", "usb.state", "usb.list" and "usb.storm". Returns nothing for any other
/// request. Throws if the request cannot be carried out.
std::optional<Reply> answerUsbControl(UsbEvents &events, const tools::Json &request, const LineServer::Caller &caller);

/// The names of these requests, for messages.
extern const std::string_view kUsbActions;

}  // namespace kvosim
