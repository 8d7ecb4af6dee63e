#include "reliability/table.h"

#include "common/join.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace reliability {

namespace {

std::string beginMark(const std::string &name) { return "<!-- " + name + ": written by its test -->\n"; }
constexpr const char *kEndMark = "<!-- end -->\n";

std::string readPage()
{
    std::stringstream page;
    page << std::ifstream(KVO_RELIABILITY_PAGE).rdbuf();
    return page.str();
}

/// The position of a section in the page. Its length is npos if the page does not contain it.
struct Place {
    std::size_t begin = 0;
    std::size_t length = std::string::npos;
};

Place placeOf(const std::string &page, const std::string &name)
{
    const std::string mark = beginMark(name);
    const auto found = page.find(mark);
    if (found == std::string::npos) {
        return {};
    }
    const auto begin = found + mark.size();
    const auto end = page.find(kEndMark, begin);
    return {begin, end == std::string::npos ? end : end - begin};
}

/// Formats consecutive numbers as ranges: "1, 3-5".
std::string ranges(const std::set<int> &numbers)
{
    std::string text;
    for (auto first = numbers.begin(); first != numbers.end();) {
        auto last = first;
        while (std::next(last) != numbers.end() && *std::next(last) == *last + 1) {
            ++last;
        }
        tools::appendTo(text, ", ", std::to_string(*first));
        if (first != last) {
            text.append("-").append(std::to_string(*last));
        }
        first = std::next(last);
    }
    return text;
}

/// Escapes the characters that would end a cell or a row.
std::string cell(const std::string &text)
{
    std::string safe;
    for (const char character : text) {
        safe += character == '|' ? "\\|" : character == '\n' ? "\\n" : std::string(1, character);
    }
    return safe;
}

constexpr const char *kOnlyStep = "result";  // in a scenario with a single call

/// The thread of a call and, for allocations on the caller's thread, the step.
std::string placeOf(const ScenarioKind &scenario, const Site &site)
{
    const std::size_t thread = std::min(site.thread, scenario.threads.size() - 1);
    const bool named = !site.step.empty() && site.step != kOnlyStep;
    return scenario.threads[thread] + (named ? ", " + site.step : "");
}

struct Row {
    Call call;
    std::string place;
    std::string result;
    std::string messages;
    std::map<int, std::vector<std::string>> errors;  ///< errors by the number of the call
};

/// Groups calls of one function with the same effect, in the order of the table.
std::vector<Row> rowsOf(const ScenarioKind &scenario, const std::vector<Record> &records)
{
    std::vector<Row> rows;
    for (const Record &record : records) {
        const Site &site = record.fault.site;
        const std::string place = placeOf(scenario, site);
        auto row = std::ranges::find_if(rows, [&](const Row &other) {
            return other.call == site.call && other.place == place && other.result == record.result &&
                   other.messages == record.messages;
        });
        if (row == rows.end()) {
            row = rows.insert(rows.end(), Row{site.call, place, record.result, record.messages, {}});
        }
        row->errors[site.number].emplace_back(nameOf(record.fault.error));
    }
    return rows;
}

/// The number of pauses depends on timing, and the number of allocations on the C library.
bool isCounted(const Record &record)
{
    return record.fault.site.call != Call::memory && record.fault.site.call != Call::clockNanosleep;
}

bool isWithoutEffect(const Row &row) { return row.result.empty() && row.messages.empty(); }

/// The errors of a row, each list with the numbers of its calls.
std::vector<std::pair<std::string, std::string>> errorsAndNumbers(const Row &row)
{
    std::vector<std::pair<std::string, std::set<int>>> lists;
    for (const auto &[number, errors] : row.errors) {
        const std::string list = tools::join(errors, ", ");
        auto same = std::ranges::find(lists, list, &std::pair<std::string, std::set<int>>::first);
        if (same == lists.end()) {
            same = lists.insert(lists.end(), {list, {}});
        }
        same->second.insert(number);
    }
    std::vector<std::pair<std::string, std::string>> all;
    for (const auto &[list, numbers] : lists) {
        all.emplace_back(list, ranges(numbers));
    }
    return all;
}

std::string errorsOf(const Row &row)
{
    if (row.call == Call::memory) {
        return "used up";  // the number of allocations depends on the C library
    }
    std::string text;
    for (const auto &[list, numbers] : errorsAndNumbers(row)) {
        tools::appendTo(text, "; ", numbers + ": " + list);
    }
    return text;
}

std::string lineOf(const Row &row)
{
    return "| " + std::string(nameOf(row.call)) + " | " + row.place + " | " + errorsOf(row) + " | " +
           (row.result.empty() ? "nothing" : cell(row.result)) + " | " + cell(row.messages) + " |\n";
}

}  // namespace

std::string tableOf(const ScenarioKind &scenario, const Outcome &usual, const std::vector<Record> &records)
{
    std::string text = "\n### " + std::string(scenario.title) + "\n\nWithout a fault: `";
    for (std::size_t step = 0; step < usual.steps.size(); ++step) {
        text += (step == 0 ? "" : ", ") + usual.steps[step].first + ": " + usual.steps[step].second;
    }
    text += "`.\n\n| call | thread | call numbers: errors | what changes | new messages |\n| --- | --- | --- | --- | --- |\n";
    for (const Row &row : rowsOf(scenario, records)) {
        text += isWithoutEffect(row) ? "" : lineOf(row);
    }
    const auto calls = std::ranges::count_if(records, isCounted);
    return text + "\nThe test injects " + std::to_string(calls) +
           " faults into the calls of this scenario. Faults that are not in the table change nothing.\n\n";
}

std::string tableOfErrors()
{
    std::string text = "\n| call | errors |\n| --- | --- |\n";
    for (std::size_t call = 0; call < static_cast<std::size_t>(Call::count); ++call) {
        std::vector<std::string> names;
        for (const Error &error : errorsOf(static_cast<Call>(call))) {
            names.emplace_back(nameOf(error));
        }
        text += "| " + std::string(nameOf(static_cast<Call>(call))) + " | " + tools::join(names, ", ") + " |\n";
    }
    return text + "\n";
}

std::string withoutMemory(const std::string &part)
{
    std::istringstream lines(part);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(std::string("| ") + nameOf(Call::memory))) {
            kept += line + '\n';
        }
    }
    return kept;
}

std::string readSection(const std::string &name)
{
    const std::string page = readPage();
    const Place place = placeOf(page, name);
    return place.length == std::string::npos ? "(not in the page)" : page.substr(place.begin, place.length);
}

void writeSection(const std::string &name, const std::string &part)
{
    std::string page = readPage();
    const Place place = placeOf(page, name);
    if (place.length == std::string::npos) {
        page.append("\n").append(beginMark(name)).append(part).append(kEndMark);
    } else {
        page.replace(place.begin, place.length, part);
    }
    std::ofstream(KVO_RELIABILITY_PAGE) << page;
}

}  // namespace reliability
