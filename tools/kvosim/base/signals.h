// Signals as events of the loop.
#pragma once

#include "kvosim/base/event_loop.h"

#include <csignal>
#include <functional>
#include <initializer_list>
#include <sys/signalfd.h>

namespace kvosim {

/// Blocks signals for the thread and hands them to a reaction instead. They stay blocked to the end of the process: one that
/// comes late must not cut the tidying up short.
class Signals {
public:
    using Reaction = std::function<void(const signalfd_siginfo &signal)>;

    Signals(EventLoop &loop, std::initializer_list<int> numbers, Reaction reaction);
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;
    ~Signals();

    /// What was blocked before: for a program that is started from here.
    [[nodiscard]] const sigset_t &previousMask() const noexcept { return previous_; }

private:
    EventLoop &loop_;
    sigset_t previous_{};
    tools::Descriptor fd_;
};

}  // namespace kvosim
