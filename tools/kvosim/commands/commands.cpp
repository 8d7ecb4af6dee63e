// The command table: collects the rows of all families and finds the row for a request.
#include "kvosim/commands/commands.h"

#include "kvosim/base/exchange_log.h"
#include "kvosim/commands/command_table.h"

#include <algorithm>
#include <exception>
#include <unordered_map>

namespace kvosim {

namespace {

using Table = std::unordered_map<std::string_view, const Handler *>;

const Table &table()
{
    static const Table rows = [] {
        Table all;
        for (const auto &family : {serviceCommands(), listCommands(), viewerCommands(), panelCommands(), addressCommands(),
                                   focusCommands(), inputCommands(), usbCommands(), metricCommands()}) {
            for (const Command &row : family) {
                all.emplace(row.keyword, &row.handle);
            }
        }
        return all;
    }();
    return rows;
}

std::size_t endOfKeyword(std::string_view request) { return std::min(request.find_first_of("= "), request.size()); }

bool isCommand(std::string_view keyword)
{
    if (keyword.find_first_of("= ") != std::string_view::npos) {
        return false;
    }
    const std::string word(keyword);
    return table().contains(word) || table().contains(word + '=') || table().contains(word + ' ');
}

}  // namespace

std::string answer(ServiceContext &context, std::string_view request)
{
    const std::string_view keyword = request.substr(0, endOfKeyword(request) + 1);
    const auto row = table().find(keyword);
    return row == table().end() ? kFailed : (*row->second)(context, request.substr(keyword.size()));
}

Outcome carryOut(ServiceContext &context, std::string_view request)
{
    ++context.exchanges;
    Outcome outcome{.reply = kFailed, .fault = context.plant.faults.strike(keywordOf(request))};
    try {
        if (outcome.fault == nullptr || outcome.fault->kind() != FaultKind::failed) {
            outcome.reply = answer(context, request);
        }
    } catch (const std::exception &error) {
        // For example, the disk is full. The next request may succeed, so the service logs the error and goes on.
        logLine(printable(request) + ": " + error.what());
    }
    return outcome;
}

std::string_view keywordOf(std::string_view request) { return request.substr(0, endOfKeyword(request)); }

Fault makeFault(const FaultText &text)
{
    if (text.command != kEveryCommand && !isCommand(text.command)) {
        throw FaultError("command",
                         '"' + text.command + "\" is not a command; write a keyword such as getVersion, or \"*\" for all");
    }
    return Fault(text);
}

std::vector<std::string_view> commandKeywords()
{
    std::vector<std::string_view> keywords;
    for (const auto &row : table()) {
        keywords.push_back(keywordOf(row.first));
    }
    std::sort(keywords.begin(), keywords.end());
    return keywords;
}

}  // namespace kvosim
