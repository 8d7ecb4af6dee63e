// Which subcommand reaches which function of the library.
#pragma once

#include "tools/kvoctl/support/kvoctl.h"

#include <string>
#include <vector>

namespace kvoctl_test {

struct Journey {
    std::string name;  ///< of the request
    std::string function;
    std::string command;  ///< the subcommand's words
    Arguments arguments{};
    std::string input{};  ///< on standard input
};

/// One journey for each function at least; a function may be reached by several subcommands.
std::vector<Journey> journeys();

}  // namespace kvoctl_test
