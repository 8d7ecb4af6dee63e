// Which system calls an operation makes, seen from outside.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Runs the operation twice in a traced child and names the system calls of the second time, in order; the first time pays for
/// what is done only once in a process. Throws std::system_error when the kernel forbids tracing.
std::vector<std::string> systemCallsOf(const std::function<void()> &operation);

}  // namespace bench
