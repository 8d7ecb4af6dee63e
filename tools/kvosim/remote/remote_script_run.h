// A script of the remote side carried out, over the control socket.
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
    std::size_t replies = 0;      ///< as they were expected
    std::size_t indications = 0;  ///< likewise
    std::size_t unread = 0;       ///< replies and indications that no line has asked for
};

/// Sends a request to the simulator, as askSimulator does.
using AskSimulator = std::function<tools::Json(const tools::Json &request)>;

/// Carries a script out to its end, or throws CouldNot about the first difference, with @p fileName, the line, what was
/// expected and what has come.
ScriptResult runScript(std::span<const ScriptStep> steps, const std::string &fileName, const AskSimulator &ask);

}  // namespace kvosim
