// Runs the real program as a process and returns its output and exit status.
#pragma once

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl_test {

using Arguments = std::vector<std::string>;
using Json = nlohmann::ordered_json;

/// The environment in which the program runs.
struct RunConditions {
    std::optional<unsigned short> terminal{};  ///< standard output is a terminal with this number of columns; 0: unknown
    std::vector<std::string> environment{"LC_ALL=C.UTF-8"};  ///< in addition to the test's own; later ones take precedence
    const char *outputFile = nullptr;                        ///< standard output is this file
    const char *inputFile = "/dev/null";                     ///< standard input
    bool errorsToTerminal = false;                           ///< standard error is the terminal too
};

struct Ended {
    int status;  ///< the exit status, or minus the signal
    std::string out;
    std::string err;

    /// The document on standard output. Throws unless it is exactly one.
    [[nodiscard]] Json document() const { return Json::parse(out); }
};

Ended kvoctl(const Arguments &arguments, const RunConditions &conditions = {});

inline const std::string kNoServiceHint = "The socket: No such file or directory. Is the hardware service running? "
                                          "For a simulated one: kvosim run -- kvoctl ...\n";

}  // namespace kvoctl_test
