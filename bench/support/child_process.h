// A child process that does one task until its owner is destroyed.
#pragma once

#include <functional>
#include <sys/types.h>

namespace bench {

class ChildProcess {
public:
    /// Runs @p work in a child process. The child ends when @p work returns or throws, and when the owner is destroyed or its
    /// process ends. Throws std::system_error.
    explicit ChildProcess(const std::function<void()> &work);
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;
    ~ChildProcess();

    [[nodiscard]] pid_t id() const { return process_; }

private:
    pid_t process_;
};

}  // namespace bench
