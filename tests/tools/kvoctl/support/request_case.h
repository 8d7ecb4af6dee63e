// A test case: a subcommand against a service with given replies.
#pragma once

#include "tools/kvoctl/support/kvoctl.h"

#include <string>
#include <vector>

namespace kvoctl_test {

struct Case {
    std::string name;
    Arguments arguments;
    std::vector<std::string> replies;   ///< none: no service runs
    std::vector<std::string> requests;  ///< the requests that the service receives
    int status;
    std::string out;       ///< standard output without --json
    std::string document;  ///< standard output with --json
    std::string err{};     ///< standard error, with and without --json
};

inline const std::string kRefusal = "the service refused or sent an unknown reply (result -1)\n";
inline const std::string kRefusalDocument =
    R"({"error": {"code": -1, "meaning": "the service refused or sent an unknown reply"}})";
inline const std::string kMissing = "no service answers at /tmp/kvo_hws/cmd_sock (result -2)\n" + kNoServiceHint;
inline const std::string kMissingDocument =
    R"({"error": {"code": -2, "meaning": "no service answers at /tmp/kvo_hws/cmd_sock"}})";

/// The subcommands of the catalogue's requests: output, success and each failure.
std::vector<Case> catalogueRows();
/// Subcommands that send several requests or have their own messages.
std::vector<Case> otherRows();
/// Arguments in other forms, and kvoctl's own messages.
std::vector<Case> writtenRows();

}  // namespace kvoctl_test
