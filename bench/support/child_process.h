// A process that does one thing for as long as its owner lives.
#pragma once

#include <functional>
#include <sys/types.h>

namespace bench {

class ChildProcess {
public:
    /// Runs @p work in a child, which ends with it, with its owner, and with whatever it throws. Throws std::system_error.
    explicit ChildProcess(const std::function<void()> &work);
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;
    ~ChildProcess();

    [[nodiscard]] pid_t id() const { return process_; }

private:
    pid_t process_;
};

}  // namespace bench
