// What the main thread of a command that runs until it is told to end sees to, whatever else it waits for: signals and output.
#pragma once

#include "kvoctl/live/line_output.h"
#include "kvoctl/live/stop_signals.h"

#include <chrono>
#include <optional>
#include <span>
#include <string>

namespace kvoctl {

class Attention {
public:
    /// A reader of the output that goes away ends the command, unless nothing is written before the end.
    explicit Attention(const StopSignals &signals, bool writes = true) : signals_(signals), writes_(writes) {}

    void write(const std::string &line) { output_.add(line); }

    /// Waits until one of @p sources is ready, which it marks, until there is an output or an end to see to, or for so long at
    /// most; nothing: for ever. False where none of the sources is.
    bool await(std::span<pollfd> sources, std::optional<std::chrono::milliseconds> time);

    /// Whether a signal has come, or nothing can be written any more.
    [[nodiscard]] bool mustEnd() const noexcept { return stopped_ || output_.hasEnded(); }
    /// Whether the reader is so slow that nothing should be added for now.
    [[nodiscard]] bool isBehind() const noexcept { return output_.isBehind(); }

    /// Writes what is left, as long as the output takes it without waiting.
    void drain() { output_.drain(); }
    /// Throws std::runtime_error where lines were lost and no reader has gone away, who would not miss them.
    void check() const { output_.check(); }

private:
    const StopSignals &signals_;
    bool writes_;
    LineOutput output_;
    bool stopped_ = false;
};

}  // namespace kvoctl
