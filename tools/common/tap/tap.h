// A tap between the programs and the hardware service of this machine: passes all bytes on unchanged, and reports them.
#pragma once

#include "common/event_loop.h"
#include "common/tap/observer.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace tools::tap {

class Tap {
public:
    Tap() = default;
    Tap(const Tap &) = delete;
    Tap &operator=(const Tap &) = delete;
    /// Gives the places back and closes all connections at once. Reports those that were still open.
    virtual ~Tap() = default;

    /// Gives the places back, accepts connections that wait there for 1 s more, completes the exchanges in progress, and then
    /// calls @p ended.
    virtual void end(std::function<void()> ended) = 0;
};

/// Taps the programs that run on this machine now and later. Throws Refused with a sentence that says what to do if another tap is
/// running, no service runs, a right is missing, or the file system cannot exchange two names.
/// @p start  the moment that all offsets count from
std::unique_ptr<Tap> attach(EventLoop &loop, Observer &observer, Clock::time_point start);

/// A tap for one program, in a private place that leads to the service of this machine.
struct ProgramTap {
    std::unique_ptr<Tap> tap;
    /// Moves the calling process into the private place. Call it in the process of the program, before it executes the program.
    /// Throws NamespaceRefused, or std::runtime_error whose text says which step failed.
    std::function<void()> enter;
};

ProgramTap tapOfProgram(EventLoop &loop, Observer &observer, Clock::time_point start);

/// Puts the sockets back that a tap has left aside when it was killed together with its guardian. Returns their paths. Throws
/// Refused if a tap is running, or if the right to do it is missing.
std::vector<std::filesystem::path> repair();

/// Whether programs do not reach a server until repair() puts its socket back.
bool needsRepair();

/// Whether a tap has the place of the service's socket now.
bool isAttached();

}  // namespace tools::tap
