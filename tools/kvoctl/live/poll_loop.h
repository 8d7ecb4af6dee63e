// The poll loop of a command that runs until the user stops it. In addition to the command's descriptors, it handles signals and
// output.
#pragma once

#include "kvoctl/live/line_output.h"
#include "kvoctl/live/stop_signals.h"

#include <chrono>
#include <optional>
#include <span>
#include <string>

namespace kvoctl {

class PollLoop {
public:
    /// @p writes is false for a command that writes only at its end. Any other command ends when the reader of the output
    /// closes it.
    explicit PollLoop(const StopSignals &signals, bool writes = true) : signals_(signals), writes_(writes) {}

    void write(const std::string &line) { output_.add(line); }

    /// Waits until one of @p sources is ready, a signal arrives, the output can be written, or @p time has passed. Without
    /// @p time, waits forever. Sets the field revents of @p sources. Returns false if none of them is ready.
    bool wait(std::span<pollfd> sources, std::optional<std::chrono::milliseconds> time);

    /// Whether a signal has arrived, or the output can no longer be written.
    [[nodiscard]] bool mustEnd() const noexcept { return stopped_ || output_.hasEnded(); }
    /// Whether so many lines wait that callers should stop adding lines for now.
    [[nodiscard]] bool hasBacklog() const noexcept { return output_.hasBacklog(); }

    /// Writes the remaining lines as far as the output takes them without blocking.
    void drain() { output_.drain(); }
    /// Throws std::runtime_error if lines were lost, unless the reader has closed the output.
    void check() const { output_.check(); }

private:
    const StopSignals &signals_;
    bool writes_;
    LineOutput output_;
    bool stopped_ = false;
};

}  // namespace kvoctl
