#include "kvosim/compare/recorded_requests.h"

#include "kvosim/base/arguments.h"
#include "kvosim/net/line_server.h"
#include "kvosim/net/received_request.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace kvosim {

namespace {

using tools::recording::Exchange;
using tools::recording::Kind;

constexpr std::string_view kOkLine = "ok\n";
constexpr std::string_view kYesLine = "yes\n";

ReceivedRequest asService(const Exchange &exchange) { return receive(exchange, LineServerLimits().longestLine); }

}  // namespace

RecordedRequests::RecordedRequests(const tools::recording::Recording &recording) : recording_(recording)
{
    places_.reserve(recording.size());
    for (std::size_t i = 0; i < recording.size(); ++i) {
        const tools::recording::Line line = recording.line(i);
        const auto *exchange = std::get_if<Exchange>(&line);
        if (exchange == nullptr || exchange->kind != Kind::ask || exchange->request.empty()) {
            continue;
        }
        const ReceivedRequest request = asService(*exchange);
        if (request.state == RequestLine::State::incomplete) {
            ++incomplete_;
            continue;
        }
        Role role = Role::other;
        if (request.text == "isInitComplete" && joined(exchange->reply) == kYesLine) {
            role = Role::initialized;
        } else if (request.text == "killDaemon") {
            const std::string reply = joined(exchange->reply);
            // A service that ends may not complete its reply.
            role = reply.find('\n') == std::string::npos || reply == kOkLine ? Role::end : Role::other;
        }
        places_.push_back({request.completed, static_cast<uint32_t>(i), role});
    }
    std::ranges::stable_sort(places_, {}, &Place::time);
}

RecordedExchange RecordedRequests::exchange(std::size_t index) const
{
    const auto exchange = std::get<Exchange>(recording_.line(places_.at(index).line));
    ReceivedRequest request = asService(exchange);
    return {.isTooLong = request.state == RequestLine::State::tooLong,
            .request = std::move(request.text),
            .reply = joined(exchange.reply)};
}

RecordedRequests::Time RecordedRequests::initialized(std::size_t index) const
{
    for (; index < size(); ++index) {
        if (places_[index].role != Role::other) {
            const bool isReady = places_[index].role == Role::initialized;
            return places_[index].time + Time(isReady ? 0 : 1);
        }
    }
    return places_.empty() ? Time() : places_.back().time + Time(1);
}

}  // namespace kvosim
