// Rows of test tables. The name of a row is the name of its test case.
#pragma once

#include <ostream>
#include <string>

namespace kvosim_test {

struct NamedRow {
    const char *name;

    friend std::ostream &operator<<(std::ostream &out, const NamedRow &row) { return out << row.name; }
};

/// For INSTANTIATE_TEST_SUITE_P.
inline constexpr auto kNameOfRow = [](const auto &row) -> std::string { return row.param.name; };

}  // namespace kvosim_test
