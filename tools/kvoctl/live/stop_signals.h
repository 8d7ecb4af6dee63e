// The signals that end a command which runs until it is told to end.
#pragma once

#include "common/descriptor.h"

#include <csignal>

namespace kvoctl {

/// Takes SIGINT, SIGTERM and SIGHUP off this thread and the threads that it starts from here on, for as long as the process
/// lives: a second Ctrl-C must not interrupt the tidying up after the first. SIGPIPE is kept off too; writing tells it by an
/// error.
class StopSignals {
public:
    StopSignals();

    /// Readable once a signal has come.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_.get(); }
    /// What the signals were before, for programs that are started.
    [[nodiscard]] const sigset_t &before() const noexcept { return before_; }

private:
    sigset_t before_;
    tools::Descriptor descriptor_;
};

}  // namespace kvoctl
