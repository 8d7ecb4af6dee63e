// Lays a table out: measure all cells, narrow the elastic column if need be, write.
#include "table.h"

#include "display_text.h"

#include <algorithm>
#include <numeric>

namespace kvoctl {

namespace {

constexpr std::size_t kGap = 2;
/// Below this an elastic column tells nothing any more; lines then run over instead.
constexpr std::size_t kNarrowest = 8;

}  // namespace

Table::Table(std::vector<Column> columns, std::vector<std::string> header) : columns_(std::move(columns))
{
    if (!header.empty()) {
        rows_.push_back(std::move(header));
    }
}

std::vector<std::size_t> Table::widths(std::size_t limit) const
{
    std::vector<std::size_t> widths(columns_.size());
    for (const auto &row : rows_) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], displayText(row[column]).width);
        }
    }
    const std::size_t total = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
    const auto elastic = std::find(columns_.begin(), columns_.end(), Column::elastic);
    if (total > limit && elastic != columns_.end()) {
        std::size_t &width = widths[static_cast<std::size_t>(elastic - columns_.begin())];
        const std::size_t over = total - limit;
        width = std::min(width, std::max(kNarrowest, width - std::min(width, over)));
    }
    return widths;
}

void Table::write(std::ostream &out, std::size_t width) const
{
    const std::vector<std::size_t> limits = widths(width);
    for (const auto &row : rows_) {
        std::string line;
        for (std::size_t column = 0; column < limits.size(); ++column) {
            const DisplayText cell = displayText(row[column], std::max<std::size_t>(limits[column], 1));
            const std::string spaces(limits[column] - cell.width, ' ');
            line.append(column == 0 ? 0 : kGap, ' ');
            line += columns_[column] == Column::number ? spaces + cell.text : cell.text + spaces;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace kvoctl
