// Asks a running simulator over its control socket.
#pragma once

#include "common/control_protocol.h"
#include "common/refused.h"

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace tools {

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

}  // namespace tools
