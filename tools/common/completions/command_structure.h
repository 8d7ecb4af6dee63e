// Writes a program's commands and options as data for its manual page: "PROGRAM complete --structure".
#pragma once

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <string>
#include <vector>

namespace tools::completions {

/// Writes the structure as one JSON document if the arguments ask for it. Returns whether they do.
bool writeStructure(const CLI::App &app, const std::vector<std::string> &arguments, std::ostream &out);

}  // namespace tools::completions
