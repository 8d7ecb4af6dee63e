// Formats a table: measures all cells, narrows the elastic column if that makes the lines fit, and writes lines or records.
#include "kvoctl/output/table.h"

#include "kvoctl/output/display_text.h"

#include <algorithm>
#include <numeric>

namespace kvoctl {

namespace {

constexpr std::size_t kGap = 2;
/// The elastic column does not get narrower: a shorter part of a name is useless.
constexpr std::size_t kNarrowest = 8;
/// In uncut output, columns get no wider than this, so one very long text moves the cells of only its own row.
constexpr std::size_t kWidestPadding = 40;
/// The indentation of a record's lines after the first.
constexpr std::size_t kRecordIndent = 2;

std::string colouredText(const std::string &text, const Cell &cell, const Layout &layout)
{
    return coloured(text, layout.usesColour ? cell.colour : Colour::none);
}

}  // namespace

Table::Table(std::vector<Column> columns, std::vector<std::string> header)
    : columns_(std::move(columns)), hasHeader_(!header.empty())
{
    if (hasHeader_) {
        rows_.emplace_back(header.begin(), header.end());
    }
}

/// The width of each column without cutting.
Table::Widths Table::widths() const
{
    Widths widths(columns_.size());
    for (const auto &row : rows_) {
        for (std::size_t column = 0; column < widths.size(); ++column) {
            widths[column] = std::max(widths[column], displayText(row[column].text).width);
        }
    }
    return widths;
}

/// Narrows the elastic column so that the lines fit. Returns false and changes nothing if they cannot fit.
bool Table::narrow(Widths &widths, std::size_t limit) const
{
    const std::size_t total = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
    if (total <= limit) {
        return true;
    }
    const auto elastic = std::find(columns_.begin(), columns_.end(), Column::elastic);
    if (elastic == columns_.end()) {
        return false;
    }
    std::size_t &width = widths[static_cast<std::size_t>(elastic - columns_.begin())];
    if (width < total - limit + kNarrowest) {
        return false;
    }
    width -= total - limit;
    return true;
}

void Table::writeLines(std::ostream &out, const Layout &layout, const Widths &widths) const
{
    for (const auto &row : rows_) {
        std::string line;
        for (std::size_t column = 0; column < widths.size(); ++column) {
            const bool cut = layout.width != kUnlimited && columns_[column] == Column::elastic;
            const DisplayText cell = displayText(row[column].text, cut ? std::max<std::size_t>(widths[column], 1) : kUnlimited);
            const std::string spaces(widths[column] - std::min(widths[column], cell.width), ' ');
            const std::string text = colouredText(cell.text, row[column], layout);
            line.append(column == 0 ? 0 : kGap, ' ');
            line += columns_[column] == Column::number ? spaces + text : text + spaces;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
    }
}

/// Writes the cells up to the elastic column on the first line. The other cells follow below, each after its heading, as many
/// on a line as fit.
void Table::writeRecord(std::ostream &out, const Layout &layout, const std::vector<Cell> &row) const
{
    const auto elastic = std::find(columns_.begin(), columns_.end(), Column::elastic);
    const auto named = elastic == columns_.end() ? 1 : static_cast<std::size_t>(elastic - columns_.begin()) + 1;
    std::size_t used = 0;
    for (std::size_t column = 0; column < named; ++column) {
        const bool cut = columns_[column] == Column::elastic && used + kNarrowest <= layout.width;
        const DisplayText cell = displayText(row[column].text, cut ? layout.width - used : kUnlimited);
        out << colouredText(cell.text, row[column], layout) << (column + 1 < named ? std::string(kGap, ' ') : "");
        used += cell.width + kGap;
    }
    used = layout.width;  // the other cells begin on a new line
    for (std::size_t column = named; column < row.size(); ++column) {
        const DisplayText cell = displayText(row[column].text);
        const std::string &heading = rows_.front()[column].text;
        const std::size_t width = heading.size() + 1 + cell.width;
        if (cell.width == 0) {
            continue;
        }
        const bool fits = used + kGap + width <= layout.width;
        out << (fits ? std::string(kGap, ' ') : '\n' + std::string(kRecordIndent, ' ')) << heading << ' '
            << colouredText(cell.text, row[column], layout);
        used = width + (fits ? used + kGap : kRecordIndent);
    }
    out << '\n';
}

void Table::write(std::ostream &out, const Layout &layout) const
{
    Widths widths = this->widths();
    if (layout.width == kUnlimited) {
        for (std::size_t &width : widths) {
            width = std::min(width, kWidestPadding);  // numbers never get so wide
        }
    } else if (!narrow(widths, layout.width) && hasHeader_) {
        std::for_each(rows_.begin() + 1, rows_.end(), [&](const auto &row) { writeRecord(out, layout, row); });
        return;
    }
    writeLines(out, layout, widths);
}

}  // namespace kvoctl
