// The subcommands that call the functions of the library.
#pragma once

#include "tools/kvoctl/support/kvoctl.h"

#include <string>
#include <vector>

namespace kvoctl_test {

struct FunctionCommand {
    std::string name;  ///< the name of the request
    std::string function;
    std::string command;  ///< the subcommand's words
    Arguments arguments{};
    std::string input{};  ///< standard input
};

/// At least one subcommand for each function. Several subcommands may call the same function.
std::vector<FunctionCommand> functionCommands();

}  // namespace kvoctl_test
