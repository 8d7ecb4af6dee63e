// A subcommand against a service that gives certain answers, as a row of a table.
#pragma once

#include "tools/kvoctl/support/kvoctl.h"

#include <string>
#include <vector>

namespace kvoctl_test {

struct Case {
    std::string name;
    Arguments arguments;
    std::vector<std::string> replies;   ///< none: no service is there
    std::vector<std::string> requests;  ///< what the service hears
    int status;
    std::string out;       ///< standard output without --json
    std::string document;  ///< standard output with --json
    std::string err{};     ///< standard error, either way
};

inline const std::string kRefusal = "the service refused or answered something unknown (result -1)\n";
inline const std::string kRefusalDocument =
    R"({"error": {"code": -1, "meaning": "the service refused or answered something unknown"}})";
inline const std::string kMissing = "no service answers at /tmp/kvo_hws/cmd_sock (result -2)\n" + kNoServiceHint;
inline const std::string kMissingDocument =
    R"({"error": {"code": -2, "meaning": "no service answers at /tmp/kvo_hws/cmd_sock"}})";

/// The subcommands of the catalogue's requests: what is shown, what is done, and each failure.
std::vector<Case> catalogueRows();
/// Subcommands that ask for something.
std::vector<Case> questionRows();
/// Arguments that are written in other ways, and answers in words of its own.
std::vector<Case> writtenRows();

}  // namespace kvoctl_test
