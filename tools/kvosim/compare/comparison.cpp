#include "kvosim/compare/comparison.h"

#include "kvosim/base/arguments.h"
#include "kvosim/compare/recorded_requests.h"
#include "kvosim/compare/simulated_service.h"

#include <algorithm>
#include <cctype>
#include <memory>
#include <utility>

namespace kvosim {

namespace {

constexpr std::size_t kLongestKeyword = 40;

std::string commandOf(std::string_view request)
{
    const std::string_view keyword = keywordOf(request);
    const bool isWord =
        !keyword.empty() && keyword.size() <= kLongestKeyword &&
        std::ranges::all_of(keyword, [](unsigned char character) { return std::isalnum(character) != 0 || character == '_'; });
    return isWord ? std::string(keyword) : kOtherRequests;
}

bool isFolder(std::string_view reply) { return reply.starts_with('/') && reply.ends_with('/'); }

bool isSame(const std::string &request, const std::string &recorded, const std::optional<std::string> &simulated)
{
    if (!simulated) {
        return false;
    }
    // Each service has a folder of its own, so only the form of the reply can be the same.
    return recorded == *simulated || (request == "getregistrypath" && isFolder(recorded) && isFolder(*simulated));
}

/// The reply without its line end. Bytes after the line stay, with the line end before them.
std::string withoutLineEnd(std::string reply)
{
    if (reply.find('\n') == reply.size() - 1) {
        reply.pop_back();
    }
    return reply;
}

}  // namespace

Comparison compare(const tools::recording::Recording &recording, const Plant &plant, const CompareOptions &options)
{
    const RecordedRequests requests(recording);
    Comparison comparison;
    comparison.incomplete = requests.incomplete();
    std::unique_ptr<SimulatedService> service;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        options.progress(i, requests.size());
        if (!service) {
            service = std::make_unique<SimulatedService>(plant, requests.initialized(i));
        }
        RecordedExchange exchange = requests.exchange(i);
        auto simulated = exchange.isTooLong ? kFailed : service->ask(exchange.request, requests.time(i));
        CommandComparison &command = comparison.commands[commandOf(exchange.request)];
        if (!exchange.isAnswered()) {
            ++command.figures.unanswered;
        } else if (std::string recorded = withoutLineEnd(std::move(exchange.reply));
                   isSame(exchange.request, recorded, simulated)) {
            ++command.figures.same;
        } else {
            ++command.figures.different;
            if (command.differences.size() < options.mostDifferences) {
                command.differences.push_back({requests.time(i), requests.lineNumber(i), std::move(exchange.request),
                                               std::move(recorded), std::move(simulated)});
            }
        }
        if (requests.endsService(i)) {
            service.reset();
        }
    }
    for (const auto &[name, command] : comparison.commands) {
        comparison.total.same += command.figures.same;
        comparison.total.different += command.figures.different;
        comparison.total.unanswered += command.figures.unanswered;
    }
    return comparison;
}

}  // namespace kvosim
