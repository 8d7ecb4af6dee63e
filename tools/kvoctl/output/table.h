// Tables whose columns are as wide as their contents, but no wider than the terminal.
#pragma once

#include "common/command_line/terminal.h"

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kvoctl {

using tools::command_line::Colour;

struct Cell {
    Cell(std::string cellText, Colour cellColour = Colour::none) : text(std::move(cellText)), colour(cellColour) {}
    Cell(const char *cellText) : text(cellText) {}

    std::string text;
    Colour colour = Colour::none;
};

/// Properties of the output to which a table is written.
struct Layout {
    std::size_t width;  ///< in terminal columns
    bool usesColour = false;
};

class Table {
public:
    enum class Column {
        text,
        number,   ///< right-aligned
        elastic,  ///< a text that is cut if the line then fits. Other columns are never cut: half a number is wrong
    };

    /// A table without @p header contains pairs of a key and a value. A table with a header becomes records if its lines do not
    /// fit.
    explicit Table(std::vector<Column> columns, std::vector<std::string> header = {});

    void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }

    void write(std::ostream &out, const Layout &layout) const;

private:
    using Widths = std::vector<std::size_t>;

    [[nodiscard]] Widths widths() const;
    [[nodiscard]] bool narrow(Widths &widths, std::size_t limit) const;
    void writeLines(std::ostream &out, const Layout &layout, const Widths &widths) const;
    void writeRecord(std::ostream &out, const Layout &layout, const std::vector<Cell> &row) const;

    std::vector<Column> columns_;
    bool hasHeader_;
    std::vector<std::vector<Cell>> rows_;  ///< the header first
};

}  // namespace kvoctl
