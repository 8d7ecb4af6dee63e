// Runs kvosim until it exits.
#pragma once

#include "tools/kvosim/support/program.h"

#include <string>
#include <vector>

namespace kvosim_test {

struct Exited {
    int status;
    std::string out;
    std::string err;
};

inline Exited runKvosim(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), KVOSIM_PROGRAM);
    Program program(arguments);
    const int status = program.wait();
    return {status, program.out(), program.err()};
}

}  // namespace kvosim_test
