// Answers the requests of the control socket: what the simulator reports of itself, and how it is steered while it runs.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/net/line_server.h"

#include <string_view>

namespace kvosim {

class EmbeddedEvents;
class RemoteSide;
class UsbEvents;

/// What the control socket works on.
struct ControlContext {
    ServiceContext &service;
    UsbEvents &usbEvents;
    RemoteSide &remote;
    EmbeddedEvents &embeddedEvents;
};

/// Answers one request: {"do": "status"}, {"do": "station", "station": ..., "set": {...}}, {"do": "fault.list"}, {"do":
/// "fault.clear"}, {"do": "fault.add", ...}, and those of usb_control.h, remote_control.h and event_control.h. What is refused
/// is answered by {"error": text}, what could not be done by {"could_not": text}.
Reply answerControl(ControlContext control, std::string_view request, const LineServer::Caller &caller);

}  // namespace kvosim
