// Test cases from the catalogue for the subcommand of each request: its output, its success and each failure.
#include "tools/kvoctl/support/request_rows.h"

#include <kvo_hws/result.h>

#include <set>

namespace kvoctl_test {

namespace {

/// Subcommands that send more than this request, or have their own messages for a failure. other_rows.cpp tests them.
const std::set<std::string> kElsewhere = {"version",         "station",       "stations",     "clients",      "registry lock",
                                          "registry unlock", "usb is-active", "address find", "focus startup"};
/// Subcommands for which "no" is a valid answer.
const std::set<std::string> kQuestions = {"ready", "debug-level", "viewer active", "panel marovanti"};

std::vector<Case> shownRows(const catalogue::Request &request)
{
    if (request.shown().empty()) {
        return {};
    }
    CommandRows rows(request);
    for (const catalogue::Shown &shown : request.shown()) {
        rows.shows(shown.reply, shown.text, shown.document, shown.status);
    }
    return rows.rows();
}

/// One row for each result, with the first reply that leads to it, and one for an unknown reply. For a request that accepts any
/// reply, one row for each reply.
std::vector<Case> resultRows(const catalogue::Request &request)
{
    CommandRows rows(request);
    const bool isQuestion = kQuestions.contains(request.kvoctlWords());
    std::set<int32_t> seen;
    for (const catalogue::Exchange &exchange : request.allExchanges()) {
        const bool answers = exchange.usual && exchange.service == catalogue::Exchange::Service::answers;
        const bool isShown = isQuestion ? exchange.result >= 0 : exchange.result == 1 && request.hasOutputs();
        const bool isFirst = seen.insert(answers ? exchange.result : 1).second;
        if (!answers || isShown || !(isFirst || exchange.name == "unknown_1" || request.takesEverything())) {
            continue;
        }
        if (exchange.result == 1) {
            rows.isDone(exchange.replies.front());
        } else {
            rows.fails(exchange.replies.front(), exchange.result,
                       kvo_hws_result_text(request.function().name().c_str(), exchange.result));
        }
    }
    return rows.missesTheService().rows();
}

}  // namespace

std::vector<Case> catalogueRows()
{
    std::vector<Case> all;
    for (const catalogue::Family &family : catalogue::families()) {
        for (const catalogue::Request &request : family.requests) {
            append(all, shownRows(request));
            if (request.commands().size() == 1 && !request.kvoctlWords().empty() &&
                !kElsewhere.contains(request.kvoctlWords())) {
                append(all, resultRows(request));
            }
        }
    }
    return all;
}

}  // namespace kvoctl_test
