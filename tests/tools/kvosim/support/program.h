// A program as a process of its own, with what it writes.
#pragma once

#include "tools/kvosim/support/temporary_directory.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace kvosim_test {

class Program {
public:
    /// Starts it at once. It puts its temporary files into a directory of its own.
    /// @p withoutNamespaces makes the kernel refuse it every new namespace.
    explicit Program(const std::vector<std::string> &command, bool withoutNamespaces = false);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    /// Kills it if it still runs.
    ~Program();

    void signal(int number) const;
    /// The exit status, or minus the signal; waits 20 s at most, then kills it.
    int wait();
    /// Waits until it has written @p text to standard output; false after 10 s.
    [[nodiscard]] bool hasWritten(const std::string &text) const;

    [[nodiscard]] std::string out() const { return contentsOf(directory_ / "out"); }
    [[nodiscard]] std::string err() const { return contentsOf(directory_ / "err"); }
    /// Names of the temporary files that are there now.
    [[nodiscard]] std::vector<std::string> temporaryFiles() const;

private:
    TemporaryDirectory directory_;
    pid_t process_ = -1;
};

}  // namespace kvosim_test
