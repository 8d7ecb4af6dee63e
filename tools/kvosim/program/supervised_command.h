// One command run beside a service, which ends with it: signals are passed on, nothing that it started stays behind.
#pragma once

#include "kvosim/base/event_loop.h"
#include "kvosim/base/signals.h"

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kvosim {

class SupervisedCommand {
public:
    /// Starts @p command, found by PATH; @p ended is called on the loop when it has ended.
    SupervisedCommand(EventLoop &loop, const std::vector<std::string> &command, std::function<void()> ended);
    SupervisedCommand(const SupervisedCommand &) = delete;
    SupervisedCommand &operator=(const SupervisedCommand &) = delete;
    /// Ends what the command has left running.
    ~SupervisedCommand();

    /// As a shell tells it: the exit status, 128 + the signal, 127 not found, 126 not executable. Once it has ended.
    [[nodiscard]] int status() const noexcept { return *status_; }

private:
    void react(const signalfd_siginfo &signal);
    void collectEnded();

    std::function<void()> ended_;
    std::optional<int> status_;
    Signals signals_;
    pid_t process_;
};

}  // namespace kvosim
