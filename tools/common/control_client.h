// Sends requests to a running simulator over its control socket.
#pragma once

#include "common/control_protocol.h"
#include "common/refused.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace tools {

/// No simulator is running.
struct NoSimulator : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// How long to wait for a reply. Without a value: as long as the simulator runs.
using Timeout = std::optional<std::chrono::seconds>;
inline constexpr Timeout kDefaultTimeout = std::chrono::seconds(5);

/// Sends a request to the simulator at @p socket and returns the reply. Throws NoSimulator, Refused, CouldNot, or
/// std::runtime_error if the connection fails.
Json askSimulator(const Json &request, const std::filesystem::path &socket = kControlSocket, Timeout timeout = kDefaultTimeout);

}  // namespace tools
