#include "kvosim/compare/comparison_text.h"

#include "common/recording/escape.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

namespace kvosim {

namespace {

constexpr std::size_t kMostShown = 100;
constexpr std::size_t kShownBefore = 30;  ///< bytes before the first one that differs
constexpr std::string_view kTotal = "total";

/// Rounded down, so that "100.0" means that all replies are the same.
std::string percentText(const Figures &figures)
{
    if (figures.compared() == 0) {
        return "-";
    }
    const std::size_t tenths = figures.same * 1000 / figures.compared();
    return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10);
}

using Row = std::array<std::string, 6>;

Row rowOf(std::string_view name, const Figures &figures)
{
    return {std::string(name),
            std::to_string(figures.requests()),
            std::to_string(figures.same),
            std::to_string(figures.different),
            std::to_string(figures.unanswered),
            percentText(figures)};
}

/// The first column is for names, the others are for numbers.
void appendRow(std::string &text, const Row &row, const std::array<std::size_t, 6> &widths)
{
    text += row[0] + std::string(widths[0] - row[0].size(), ' ');
    for (std::size_t i = 1; i < row.size(); ++i) {
        text += std::string(2 + widths.at(i) - row.at(i).size(), ' ') + row.at(i);
    }
    text += '\n';
}

std::string tableOf(const Comparison &comparison)
{
    std::vector<Row> rows{{"command", "requests", "same", "different", "unanswered", "percent"}};
    for (const auto &[name, command] : comparison.commands) {
        rows.push_back(rowOf(name, command.figures));
    }
    rows.push_back(rowOf(kTotal, comparison.total));
    std::array<std::size_t, 6> widths{};
    for (const Row &row : rows) {
        std::ranges::transform(row, widths, widths.begin(),
                               [](const std::string &cell, std::size_t width) { return std::max(cell.size(), width); });
    }
    std::string text;
    for (const Row &row : rows) {
        appendRow(text, row, widths);
    }
    return text;
}

/// The part of @p bytes from @p from.
std::string excerpt(std::string_view bytes, std::size_t from = 0)
{
    std::string text(from > 0 ? "..." : "");
    bytes.remove_prefix(std::min(from, bytes.size()));
    tools::recording::appendQuoted(text, bytes.substr(0, kMostShown));
    return text + (bytes.size() > kMostShown ? "..." : "");
}

std::string textOf(const Difference &difference)
{
    std::array<char, 64> place{};
    std::snprintf(place.data(), place.size(), "  line %zu, at %.6f s: ", difference.lineNumber,
                  std::chrono::duration<double>(difference.time).count());
    const std::string &recorded = difference.recorded;
    const std::string simulated = difference.simulated.value_or("");
    const auto firstDifferent = static_cast<std::size_t>(std::ranges::mismatch(recorded, simulated).in1 - recorded.begin());
    const std::size_t from = firstDifferent < kMostShown ? 0 : firstDifferent - kShownBefore;
    return place.data() + excerpt(difference.request) + "\n    recorded   " + excerpt(recorded, from) + "\n    simulated  " +
           (difference.simulated ? excerpt(simulated, from) : "no reply") + '\n';
}

std::string counted(std::size_t count, const char *one, const char *several)
{
    return std::to_string(count) + ' ' + (count == 1 ? one : several);
}

tools::Json jsonOf(const Figures &figures)
{
    tools::Json json{{"requests", figures.requests()},
                     {"same", figures.same},
                     {"different", figures.different},
                     {"unanswered", figures.unanswered},
                     {"percent", nullptr}};
    if (figures.compared() > 0) {
        json["percent"] = 100.0 * static_cast<double>(figures.same) / static_cast<double>(figures.compared());
    }
    return json;
}

tools::Json jsonOf(const Difference &difference)
{
    return {{"line", difference.lineNumber},
            {"offset", std::chrono::duration<double>(difference.time).count()},
            {"request", difference.request},
            {"recorded", difference.recorded},
            {"simulated", difference.simulated ? tools::Json(*difference.simulated) : tools::Json()}};
}

}  // namespace

std::string textOf(const Comparison &comparison)
{
    std::string text = tableOf(comparison);
    for (const auto &[name, command] : comparison.commands) {
        if (command.figures.different > 0) {
            text += '\n' + name + ": " + counted(command.figures.different, "reply differs", "replies differ") + '\n';
            for (const Difference &difference : command.differences) {
                text += textOf(difference);
            }
        }
    }
    if (comparison.incomplete > 0) {
        text += '\n' + counted(comparison.incomplete, "request is", "requests are") + " not complete and not compared\n";
    }
    if (comparison.commands.contains("getregistrypath")) {
        text += "\nof getregistrypath only the form is compared: a path with \"/\" at its end\n";
    }
    return text;
}

tools::Json jsonOf(const Comparison &comparison)
{
    tools::Json json{
        {"total", jsonOf(comparison.total)}, {"incomplete", comparison.incomplete}, {"commands", tools::Json::object()}};
    for (const auto &[name, command] : comparison.commands) {
        tools::Json &entry = json["commands"][name] = jsonOf(command.figures);
        entry["differences"] = tools::Json::array();
        for (const Difference &difference : command.differences) {
            entry["differences"].push_back(jsonOf(difference));
        }
    }
    return json;
}

}  // namespace kvosim
