// The simulator's own socket beside the service's: what it tells of itself, and how it is steered while it runs. A request
// and its reply are one line of JSON each.
#pragma once

#include "kvosim/base/refused.h"
#include "kvosim/commands/commands.h"
#include "kvosim/net/line_server.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace kvosim {

inline constexpr const char *kControlSocket = "/tmp/kvo_hws/kvosim_ctl";

/// Keys stay in the order in which they were told.
using Json = nlohmann::ordered_json;

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

/// No simulator runs.
struct NoSimulator : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// How long an answer may take; none for as long as the simulator runs.
using Patience = std::optional<std::chrono::seconds>;
inline constexpr Patience kUsualPatience = std::chrono::seconds(5);

/// Sends a request to the simulator at @p socket. Throws NoSimulator, Refused, CouldNot, or std::runtime_error where the
/// exchange broke.
Json askSimulator(const Json &request, const std::filesystem::path &socket = kControlSocket,
                  Patience patience = kUsualPatience);

}  // namespace kvosim
