// The simulator's own socket beside the service's: what it tells of itself, and how it is steered while it runs. A request
// and its reply are one line of JSON each.
#pragma once

#include "commands.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace kvosim {

inline constexpr const char *kControlSocket = "/tmp/kvo_hws/kvosim_ctl";

/// Keys stay in the order in which they were told.
using Json = nlohmann::ordered_json;

/// Answers one request: {"do": "status"}, {"do": "station", "station": ..., "set": {...}}, {"do": "fault.list"},
/// {"do": "fault.clear"}, {"do": "fault.add", ...}. What can not be done is answered by {"error": text}.
std::string answerControl(ServiceContext &context, std::string_view request);

/// No simulator runs.
struct NoSimulator : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The simulator has refused a request. The text says why.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Sends a request to the simulator at @p socket. Throws NoSimulator, Refused, or std::runtime_error where the exchange broke.
Json askSimulator(const Json &request, const std::filesystem::path &socket = kControlSocket);

}  // namespace kvosim
