// Runs a service until it ends, alone or for one command.
#pragma once

#include "common/event_loop.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kvosim {

/// A service on a loop, which must not run yet.
struct StartedService {
    std::shared_ptr<void> service;  ///< the owner
    std::function<void()> end;      ///< finishes the replies that are being written, then stops the loop
    std::string readyLine;          ///< for standard output, when it serves every program of the machine
    /// Called when the loop has ended and the service still exists. Returns the exit status, for a command that ended with
    /// @p status.
    std::function<int(int status)> finish = [](int status) { return status; };
};

/// Creates the service. Throws if it cannot start.
using StartService = std::function<StartedService(tools::EventLoop &loop)>;

/// Serves until SIGINT, SIGTERM or the service's own end, and with @p untilInputEnds until the end of standard input. Returns the
/// exit status.
int serveUntilEnded(const StartService &start, bool untilInputEnds);

/// Serves one command, in a private directory for the sockets or with @p shared in that of the machine. Returns the exit status.
int serveCommand(const StartService &start, const std::vector<std::string> &command, bool shared);

}  // namespace kvosim
