#include "kvosim/compare/recorded_requests.h"

#include "kvosim/base/arguments.h"
#include "kvosim/net/line_server.h"
#include "kvosim/net/request_line.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace kvosim {

namespace {

using tools::recording::Exchange;
using tools::recording::Kind;
using tools::recording::Piece;

constexpr std::string_view kOkLine = "ok\n";
constexpr std::string_view kYesLine = "yes\n";

struct Received {
    RequestLine::State state = RequestLine::State::incomplete;
    std::string text{};
    RecordedRequests::Time time{};
};

/// Receives the pieces of a request until it is complete, as the service does.
Received receive(const Exchange &exchange)
{
    Received received{.time = exchange.at};
    std::string bytes;
    for (const Piece &piece : exchange.request) {
        received.time += piece.pause;
        bytes += piece.bytes;
        const RequestLine line = firstLine(bytes, LineServerLimits().longestLine);
        if (line.state != RequestLine::State::incomplete) {
            received.state = line.state;
            received.text = line.state == RequestLine::State::complete ? line.text : bytes;
            break;
        }
    }
    return received;
}

}  // namespace

RecordedRequests::RecordedRequests(const tools::recording::Recording &recording) : recording_(recording)
{
    places_.reserve(recording.size());
    for (std::size_t i = 0; i < recording.size(); ++i) {
        const tools::recording::Line line = recording.line(i);
        const auto *exchange = std::get_if<Exchange>(&line);
        if (exchange == nullptr || exchange->kind != Kind::ask) {
            continue;
        }
        const Received request = receive(*exchange);
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
        places_.push_back({request.time, static_cast<uint32_t>(i), role});
    }
    std::ranges::stable_sort(places_, {}, &Place::time);
}

RecordedExchange RecordedRequests::exchange(std::size_t index) const
{
    const auto exchange = std::get<Exchange>(recording_.line(places_.at(index).line));
    Received request = receive(exchange);
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
