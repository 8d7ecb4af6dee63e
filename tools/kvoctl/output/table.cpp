// Lays a table out: measure all cells, narrow the elastic column if need be, write.
#include "kvoctl/output/table.h"

#include "kvoctl/output/display_text.h"

#include <algorithm>
#include <numeric>

namespace kvoctl {

namespace {

constexpr std::size_t kGap = 2;
/// Below this an elastic column tells nothing any more; lines then run over instead.
constexpr std::size_t kNarrowest = 8;
/// Where nothing is cut, one very long text must not move the columns of all other rows: a longer cell overflows its own row.
constexpr std::size_t kWidestPadding = 40;

}  // namespace

Table::Table(std::vector<Column> columns, std::vector<std::string> header) : columns_(std::move(columns))
{
    if (!header.empty()) {
        rows_.push_back(std::move(header));
    }
}

/// How wide each column is padded.
std::vector<std::size_t> Table::widths(std::size_t limit) const
{
    std::vector<std::size_t> widths(columns_.size());
    for (const auto &row : rows_) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], displayText(row[column]).width);
        }
    }
    if (limit == kUnlimited) {
        for (std::size_t &width : widths) {
            width = std::min(width, kWidestPadding);  // numbers never get so wide
        }
        return widths;
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
    const std::vector<std::size_t> padded = widths(width);
    for (const auto &row : rows_) {
        std::string line;
        for (std::size_t column = 0; column < padded.size(); ++column) {
            const bool cut = width != kUnlimited && columns_[column] == Column::elastic;
            const DisplayText cell = displayText(row[column], cut ? std::max<std::size_t>(padded[column], 1) : kUnlimited);
            const std::string spaces(padded[column] - std::min(padded[column], cell.width), ' ');
            line.append(column == 0 ? 0 : kGap, ' ');
            line += columns_[column] == Column::number ? spaces + cell.text : cell.text + spaces;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

}  // namespace kvoctl
