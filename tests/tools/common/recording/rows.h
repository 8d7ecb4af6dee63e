// The rows of recordings.json, which the tests of the Python module also read.
#pragma once

#include "common/recording/line.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace recording_test {

struct Row {
    nlohmann::json row;

    [[nodiscard]] std::string name() const { return row.at("name"); }
    [[nodiscard]] std::string text() const { return row.at("text"); }
    [[nodiscard]] std::string message() const { return row.at("message"); }
    [[nodiscard]] std::vector<std::size_t> lineNumbers() const { return row.at("lines"); }
    [[nodiscard]] tools::recording::Line line() const;
};

inline void PrintTo(const Row &row, std::ostream *out) { *out << row.name(); }

inline std::string nameOf(const testing::TestParamInfo<Row> &row) { return row.param.name(); }

std::vector<Row> rows(const char *table);

}  // namespace recording_test
