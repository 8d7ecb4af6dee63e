// A command that runs together with a service. Forwards signals to it. When it ends, ends all processes that it started.
#pragma once

#include "common/event_loop.h"
#include "common/signals.h"

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace tools {

class SupervisedCommand {
public:
    /// Starts @p command, searching PATH. Calls @p ended on the loop's thread when it has ended.
    SupervisedCommand(EventLoop &loop, const std::vector<std::string> &command, std::function<void()> ended);
    SupervisedCommand(const SupervisedCommand &) = delete;
    SupervisedCommand &operator=(const SupervisedCommand &) = delete;
    /// Ends the processes that the command has left running.
    ~SupervisedCommand();

    /// The status as in a shell: the exit status, 128 + the signal, 127 if not found, 126 if not executable. Call it only after
    /// the command has ended.
    [[nodiscard]] int status() const noexcept { return *status_; }

private:
    void react(const signalfd_siginfo &signal);
    void collectEnded();

    std::function<void()> ended_;
    std::optional<int> status_;
    Signals signals_;
    pid_t process_;
};

}  // namespace tools
