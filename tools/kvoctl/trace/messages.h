// The messages of trace and record on standard error: a reader that stops reading delays neither a program nor the end.
#pragma once

#include "kvoctl/trace/observed_queue.h"
#include "kvoctl/trace/trace_output.h"

#include <optional>
#include <string>

namespace kvoctl {

/// Messages may be added from any thread.
class Messages {
public:
    /// @p prefix  of each message, such as "kvoctl: trace"
    /// @p start   the moment that the times of notes count from
    Messages(std::string prefix, tools::recording::StartTime start);

    /// Starts the thread that writes what was added, and what is added from now on.
    void begin();
    void add(const std::string &text);
    /// Adds lines as they are, without a prefix and the last line feed.
    void addLines(const std::string &lines) { queue_.put(lines); }
    void add(const Note &note) { queue_.put(note); }
    /// Gives the reader 1 s more for what waits.
    void finish();

private:
    std::string prefix_;
    tools::recording::StartTime start_;
    ObservedQueue queue_;
    std::optional<TraceOutput> output_;
};

}  // namespace kvoctl
