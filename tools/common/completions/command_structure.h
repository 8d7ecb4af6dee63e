// A program's commands and options as data, for its manual page: "PROGRAM complete --structure".
#pragma once

#include <CLI/CLI.hpp>
#include <iosfwd>
#include <string>
#include <vector>

namespace completions {

/// Whether the arguments ask for the structure; then it is written as one JSON document.
bool structureWritten(const CLI::App &app, const std::vector<std::string> &arguments, std::ostream &out);

}  // namespace completions
