// A process that outlives another one and then cleans up what that one has left, even if it was killed.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <functional>
#include <vector>

namespace tools {

/// The side of the guardian: the process that it guards.
class GuardedProcess {
public:
    GuardedProcess(int connection, int process) : connection_(connection), process_(process) {}

    /// Returns when the guarded process has ended, or has called Guardian::finish(). A program that executes another one has not
    /// ended.
    void waitForEnd() const;
    /// Ends the wait of Guardian::finish().
    void release() noexcept;

private:
    Descriptor connection_;
    Descriptor process_;  // a pidfd
};

class Guardian {
public:
    /// The program of the guardian; its process ends when this returns. It keeps only the descriptors that were given to start(),
    /// which now have the numbers 0, 1 and so on, so it keeps no terminal, pipe or file of the guarded process open.
    using Work = std::function<void(GuardedProcess &guarded)>;

    Guardian() noexcept = default;
    /// Starts a guardian of this process. It is not a child of this process, which may wait for all of its children or kill them,
    /// and it does not receive the terminal's signals. The guardian stays in the namespaces of this process. If it cannot be
    /// started, isRunning() is false. @p name  of the process, at most 15 bytes
    static Guardian start(const char *name, const std::vector<int> &descriptors, const Work &work);

    [[nodiscard]] bool isRunning() const noexcept { return connection_.valid(); }
    /// Becomes readable when the guardian has ended.
    [[nodiscard]] int descriptor() const noexcept { return connection_.get(); }
    /// Lets the guardian do its work now, and returns when it has called release() or has ended, at the latest after @p timeout.
    void finish(std::chrono::milliseconds timeout) const;

private:
    Descriptor connection_;
};

}  // namespace tools
