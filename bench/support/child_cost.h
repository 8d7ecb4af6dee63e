// The time and the memory that a process takes from its start to its end.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace bench {

struct ChildCost {
    double seconds;
    uint64_t mostResidentKilobytes;
};

/// Runs @p work in a child process. Throws std::runtime_error if it throws.
ChildCost costOf(const std::function<void()> &work);

/// Runs a program without its output. Throws std::runtime_error if its exit status is not 0.
ChildCost costOfProgram(const std::vector<std::string> &command);

}  // namespace bench
