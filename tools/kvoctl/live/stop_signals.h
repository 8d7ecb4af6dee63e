// The signals that end a command which runs until the user stops it.
#pragma once

#include "common/descriptor.h"

#include <csignal>

namespace kvoctl {

/// Blocks SIGINT, SIGTERM and SIGHUP in this thread and the threads that it starts later, until the process ends: a second
/// Ctrl-C must not interrupt the cleanup after the first one. Blocks SIGPIPE too; a write then fails with an error instead.
class StopSignals {
public:
    StopSignals();

    /// A descriptor that is readable once a signal has arrived.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    /// The previous signal mask, for programs that kvoctl starts.
    [[nodiscard]] const sigset_t &previousMask() const noexcept { return previousMask_; }

private:
    sigset_t previousMask_;
    tools::Descriptor descriptor_;
};

}  // namespace kvoctl
