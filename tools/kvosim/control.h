// The simulator's own socket beside the service's: what it tells of itself, and how it is steered while it runs. A request
// and its reply are one line of JSON each.
#pragma once

#include "commands.h"
#include "line_server.h"
#include "refused.h"

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

class UsbEvents;

/// What the control socket works on.
struct ControlContext {
    ServiceContext &service;
    UsbEvents &usbEvents;
};

/// Answers one request: {"do": "status"}, {"do": "station", "station": ..., "set": {...}}, {"do": "fault.list"},
/// {"do": "fault.clear"}, {"do": "fault.add", ...}, and those of usb_control.h. What can not be done is answered by
/// {"error": text}.
Reply answerControl(ControlContext control, std::string_view request, const LineServer::Caller &caller);

/// No simulator runs.
struct NoSimulator : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// How long an answer may take; none for as long as the simulator runs.
using Patience = std::optional<std::chrono::seconds>;
inline constexpr Patience kUsualPatience = std::chrono::seconds(5);

/// Sends a request to the simulator at @p socket. Throws NoSimulator, Refused, or std::runtime_error where the exchange broke.
Json askSimulator(const Json &request, const std::filesystem::path &socket = kControlSocket,
                  Patience patience = kUsualPatience);

}  // namespace kvosim
