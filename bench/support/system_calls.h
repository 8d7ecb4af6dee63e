// Records the system calls of an operation from outside its process.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Runs the operation twice in a traced child process and returns the names of the second run's system calls in order. The
/// first run also makes the calls that a process makes only once. Throws std::system_error if the kernel forbids tracing.
std::vector<std::string> systemCallsOf(const std::function<void()> &operation);

}  // namespace bench
