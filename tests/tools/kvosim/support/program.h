// A program that runs in a separate process, and its output.
#pragma once

#include "tools/kvosim/support/temporary_directory.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace kvosim_test {

class Program {
public:
    /// Starts the program at once, with a separate directory for temporary files.
    /// @param withoutNamespaces  makes the kernel refuse it every new namespace
    explicit Program(const std::vector<std::string> &command, bool withoutNamespaces = false);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    /// Kills the program if it is still running.
    ~Program();

    [[nodiscard]] pid_t id() const noexcept { return process_; }
    void signal(int number) const;
    /// Waits up to 20 s, then kills the program. Returns the exit status, or the negated signal number.
    int wait();
    /// Waits until the program has written @p text to standard output. Returns false after 10 s.
    [[nodiscard]] bool hasWritten(const std::string &text) const;

    [[nodiscard]] std::string out() const { return contentsOf(directory_ / "out"); }
    [[nodiscard]] std::string err() const { return contentsOf(directory_ / "err"); }
    /// The names of the current temporary files.
    [[nodiscard]] std::vector<std::string> temporaryFiles() const;

private:
    TemporaryDirectory directory_;
    pid_t process_ = -1;
};

}  // namespace kvosim_test
