// Runs a script of the remote side over the control socket.
#pragma once

#include "common/control_client.h"
#include "kvosim/remote/remote_script.h"

#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace kvosim {

struct ScriptResult {
    std::size_t steps = 0;
    std::size_t replies = 0;      ///< expected replies that came
    std::size_t indications = 0;  ///< expected indications that came
    std::size_t unread = 0;       ///< replies and indications that no line of the script expects
};

/// Sends a request to the simulator and returns the reply, like askSimulator.
using AskSimulator = std::function<tools::Json(const tools::Json &request)>;

/// Runs a script to its end. At the first difference, throws CouldNot. Its text has @p fileName, the line, the expected text
/// and the received one.
ScriptResult runScript(std::span<const ScriptStep> steps, const std::string &fileName, const AskSimulator &ask);

}  // namespace kvosim
