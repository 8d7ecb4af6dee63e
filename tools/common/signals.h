// Delivers signals as events of the loop.
#pragma once

#include "common/event_loop.h"

#include <csignal>
#include <functional>
#include <initializer_list>
#include <sys/signalfd.h>

namespace tools {

/// Blocks signals for the thread and passes them to a callback. They stay blocked until the process ends, so a late signal
/// cannot interrupt the cleanup.
class Signals {
public:
    using Callback = std::function<void(const signalfd_siginfo &signal)>;

    Signals(EventLoop &loop, std::initializer_list<int> numbers, Callback callback);
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;
    ~Signals();

    /// The signal mask before this object was created, for programs that are started from here.
    [[nodiscard]] const sigset_t &previousMask() const noexcept { return previous_; }

private:
    EventLoop &loop_;
    sigset_t previous_{};
    Descriptor fd_;
};

}  // namespace tools
