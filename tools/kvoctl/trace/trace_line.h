// The lines of a trace: for people in the columns of a terminal, for programs as JSON.
#pragma once

#include "kvoctl/output/output.h"
#include "kvoctl/trace/entry.h"

#include <string>

namespace kvoctl {

using tools::recording::StartTime;

/// The local time with the offset from UTC that holds then: "14:03:22.123+01".
std::string clockTime(StartTime time);
/// The same with the date and microseconds: "2026-11-22T14:03:22.123456+01:00".
std::string fullTime(StartTime time);

/// "0.42 ms", "12.3 ms" or "4.003 s".
std::string durationText(Microseconds duration);
/// "60.0 s".
std::string secondsText(Microseconds time);

class TraceLines {
public:
    /// @p start  the moment that the offsets of entries count from
    explicit TraceLines(StartTime start) : start_(start) {}

    /// One line without its line feed. It fits a width of at least 80 columns: the name of the program, the request and the reply
    /// are cut. Later lines are aligned with it.
    std::string format(const Entry &entry, const Layout &layout);

private:
    StartTime start_;
    std::size_t programWidth_ = 0;
};

/// The objects for programs; docs/kvoctl.md lists their keys.
Document traceDocument(StartTime start, const Peer &peer, const Exchange &exchange);
Document traceDocument(StartTime start, const Note &note);

}  // namespace kvoctl
