// The run of a tap: from the moment it takes its place until the user, a time limit or the traced program ends it.
#pragma once

#include "common/tap/tap.h"
#include "kvoctl/trace/trace_line.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl {

struct SessionOptions {
    std::optional<std::chrono::seconds> length{};
    std::vector<std::string> command{};  ///< empty: the tap attaches to the programs that run on this machine
    std::string messagePrefix{};
};

/// What the output of a session does. The tap is in its place when these are called.
struct SessionOutput {
    /// Called first. If it throws, the tap completes the requests in progress, and no program has been started.
    std::function<void()> open{};
    /// Called when the program, if any, has been started, so it may start a thread. Returns a descriptor that becomes readable when
    /// the output takes no more.
    std::function<int()> start{};
};

class Session {
public:
    explicit Session(SessionOptions options);

    /// Returns the status of the program, or 0 without one. Everything has been reported to @p observer when it returns. Throws
    /// tools::Refused if the tap cannot take its place.
    [[nodiscard]] int run(tools::tap::Observer &observer, const SessionOutput &output);

    /// Why the tap has left its place before it was to end; empty if it has not.
    [[nodiscard]] const std::string &givenUpReason() const noexcept { return givenUpReason_; }

    /// The moment that all offsets count from.
    [[nodiscard]] StartTime startTime() const noexcept { return startTime_; }
    /// The time since then.
    [[nodiscard]] Microseconds elapsed() const;

private:
    void attach(tools::tap::Observer &observer, const SessionOutput &output);
    [[nodiscard]] int runProgram(tools::tap::Observer &observer, const SessionOutput &output);

    SessionOptions options_;
    tools::Clock::time_point start_;
    StartTime startTime_;
    std::string givenUpReason_;
};

}  // namespace kvoctl
