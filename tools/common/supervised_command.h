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
    struct Options {
        std::string messagePrefix{};  ///< of messages on standard error, such as "kvosim"
        /// Runs in the new process, before it becomes the command. If it throws, the text goes to standard error and the status is
        /// 125.
        std::function<void()> prepare{};
    };

    /// Starts @p command, searching PATH. Calls @p ended on the loop's thread when it has ended.
    SupervisedCommand(EventLoop &loop, const std::vector<std::string> &command, std::function<void()> ended,
                      const Options &options);
    SupervisedCommand(const SupervisedCommand &) = delete;
    SupervisedCommand &operator=(const SupervisedCommand &) = delete;
    /// Ends the processes that the command has left running.
    ~SupervisedCommand();

    /// The status as in a shell: the exit status, 128 + the signal, 127 if not found, 126 if not executable, 125 if it could not
    /// be prepared. Call it only after the command has ended.
    [[nodiscard]] int status() const noexcept { return *status_; }
    /// Sends a signal to the command, if it is still running.
    void signal(int number) const noexcept;

private:
    void react(const signalfd_siginfo &signal);
    void collectEnded();

    std::function<void()> ended_;
    std::optional<int> status_;
    Signals signals_;
    pid_t process_;
};

}  // namespace tools
