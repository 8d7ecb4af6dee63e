// What a command has to say, and how it reaches standard output: for people, or as exactly one JSON document.
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
    Document document{};  ///< null: what there was to say has been written already
    std::optional<Table> table{};
    std::optional<std::string> line{};  ///< behind the table
    Exit exit = Exit::done;
    std::string complaint{};  ///< for standard error, after the rest
};

/// What a command reports that only had something done, with @p result; throws like require.
Report done(const Result &result);

/// Throws std::runtime_error where standard output does not take it, as all below.
void write(const Report &report, bool json);

void flushOutput();

/// A document on one line, without a line feed. Bytes that are no UTF-8 come as U+FFFD.
std::string compact(const Document &document);

/// On one line, so that it may also end a stream of lines. @p result is null where the library was not asked.
void writeError(std::optional<int32_t> result, const std::string &meaning);

}  // namespace kvoctl
