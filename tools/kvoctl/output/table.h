// Rows of cells in columns, as wide as their contents and no wider than the terminal.
#pragma once

#include "common/command_line/terminal.h"

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace kvoctl {

using tools::command_line::Colour;

struct Cell {
    Cell(std::string words, Colour shade = Colour::none) : text(std::move(words)), colour(shade) {}
    Cell(const char *words) : text(words) {}

    std::string text;
    Colour colour = Colour::none;
};

/// What a table is written to.
struct Paper {
    std::size_t width;  ///< in terminal columns
    bool takesColour = false;
};

class Table {
public:
    enum class Column {
        text,
        number,   ///< right-aligned
        elastic,  ///< a text that is cut where that makes the line fit; the others never are: half a number is a wrong one
    };

    /// A table without @p header has none: pairs of a key and its value. One with a header becomes records where its lines do
    /// not fit.
    explicit Table(std::vector<Column> columns, std::vector<std::string> header = {});

    void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }

    void write(std::ostream &out, const Paper &paper) const;

private:
    using Widths = std::vector<std::size_t>;

    [[nodiscard]] Widths widths() const;
    [[nodiscard]] bool narrow(Widths &widths, std::size_t limit) const;
    void writeLines(std::ostream &out, const Paper &paper, const Widths &widths) const;
    void writeRecord(std::ostream &out, const Paper &paper, const std::vector<Cell> &row) const;

    std::vector<Column> columns_;
    bool hasHeader_;
    std::vector<std::vector<Cell>> rows_;  ///< the header first
};

}  // namespace kvoctl
