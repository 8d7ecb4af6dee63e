// Writes the lines of a trace, or messages about it, in a thread of its own: a slow reader delays no program.
#pragma once

#include "kvoctl/live/line_output.h"
#include "kvoctl/trace/observed_queue.h"
#include "kvoctl/trace/worker_thread.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unistd.h>

namespace kvoctl {

class TraceOutput {
public:
    /// The line of an exchange or a note; nothing if it has none. Called in the thread.
    using Format = std::function<std::optional<std::string>(const Observed &observed)>;

    /// @p descriptor  standard output or standard error
    TraceOutput(ObservedQueue &queue, Format format, int descriptor = STDOUT_FILENO);

    /// Becomes readable when the reader has closed the output, or when it cannot be written.
    [[nodiscard]] int endedDescriptor() const noexcept { return thread_.endedDescriptor(); }

    /// Adds a last line, if any, and gives the reader 1 s more for what waits. Returns how many exchanges were not shown because the
    /// reader was too slow.
    uint64_t finish(const std::optional<std::string> &lastLine = {});
    /// Throws std::runtime_error if lines were lost, unless the reader has closed the output. Call it after finish().
    void check() const { output_.check(); }

private:
    void write(int abort);
    void fill();

    ObservedQueue &queue_;
    Format format_;
    LineOutput output_;
    uint64_t lost_ = 0;  ///< waited when the thread was ended
    WorkerThread thread_;
};

}  // namespace kvoctl
