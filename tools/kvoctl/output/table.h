// Rows of cells in columns, as wide as their contents and no wider than the terminal.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace kvoctl {

class Table {
public:
    enum class Column {
        text,
        number,   ///< right-aligned
        elastic,  ///< a text that is cut where the terminal is too narrow; the others never are: half a number is a wrong one
    };

    /// A table without @p header has none: pairs of a key and its value.
    explicit Table(std::vector<Column> columns, std::vector<std::string> header = {});

    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }

    /// @p width in terminal columns.
    void write(std::ostream &out, std::size_t width) const;

private:
    [[nodiscard]] std::vector<std::size_t> widths(std::size_t limit) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace kvoctl
