// Answers the requests of the control socket, which report the state of the running simulator and change it.
#pragma once

#include "kvosim/commands/commands.h"
#include "kvosim/net/line_server.h"

#include <string_view>

namespace kvosim {

class EmbeddedEvents;
class RemoteSide;
class UsbEvents;

/// The parts of the service that requests of the control socket use.
struct ControlContext {
    ServiceContext &service;
    UsbEvents &usbEvents;
    RemoteSide &remote;
    EmbeddedEvents &embeddedEvents;
};

/// Answers one request: {"do": "status"}, {"do": "stations"}, {"do": "station", "station": ..., "set": {...}},
/// {"do": "fault.list"}, {"do": "fault.clear"}, {"do": "fault.add", ...}, and those of usb_control.h, remote_control.h and
/// event_control.h. The reply to an invalid request is {"error": text}; if a valid request failed, it is {"could_not": text}.
Reply answerControl(ControlContext control, std::string_view request, const LineServer::Caller &caller);

}  // namespace kvosim
