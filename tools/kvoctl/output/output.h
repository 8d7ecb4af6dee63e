// The report of a command, and how it is written to standard output: as text, or as exactly one JSON document.
#pragma once

#include "common/station/property.h"
#include "kvoctl/output/result.h"
#include "kvoctl/output/table.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace kvoctl {

using tools::Document;

struct Report {
    Document document{};  ///< null: the command has already written its output
    std::optional<Table> table{};
    std::optional<std::string> line{};  ///< follows the table
    Exit exit = Exit::done;
    std::string errorMessage{};  ///< written to standard error after the rest
};

/// Reports that a command without output has succeeded. Throws Failure unless @p result is 1.
Report reportDone(const Result &result);

/// Throws std::runtime_error if it cannot write to standard output, like all functions below.
void write(const Report &report, bool json);

void flushOutput();

/// Of standard output or standard error. Files and pipes get uncut texts without colour.
Layout layoutOf(int descriptor);

/// The document as several lines without the last line feed. Bytes that are not UTF-8 become U+FFFD.
std::string indented(const Document &document);

/// The document as one line without a line feed. Bytes that are not UTF-8 become U+FFFD.
std::string compact(const Document &document);

/// Writes an error as one JSON line, also after other lines. @p result has no value if no function of the library was called.
void writeError(std::optional<int32_t> result, const std::string &message);

}  // namespace kvoctl
