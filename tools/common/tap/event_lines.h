// Reports the lines of a connection of embedded events, and with begin() the connection itself.
#pragma once

#include "common/event_loop.h"
#include "common/tap/observer.h"

#include <string>
#include <string_view>

namespace tools::tap {

class EventLines {
public:
    /// @p peer  the program that listens
    EventLines(Observer &observer, Clock::time_point start, Peer peer)
        : observer_(observer), start_(start), peer_(std::move(peer))
    {
    }

    /// The program has connected: reports an exchange without an event.
    void begin() { observer_.onExchange(peer_, emptyEvent()); }
    void add(std::string_view bytes)
    {
        pending_ += bytes;
        for (std::size_t end = 0; (end = pending_.find('\n')) != std::string::npos || pending_.size() > kLongestLine;) {
            report(pending_.substr(0, end == std::string::npos ? end : end + 1));
            pending_.erase(0, end == std::string::npos ? end : end + 1);
        }
    }
    /// The connection has ended.
    void end()
    {
        if (!pending_.empty()) {
            report(std::exchange(pending_, {}));
        }
    }

private:
    static constexpr std::size_t kLongestLine = 64UL * 1024;

    [[nodiscard]] recording::Exchange emptyEvent() const
    {
        recording::Exchange event;
        event.at = std::chrono::duration_cast<recording::Microseconds>(Clock::now() - start_);
        event.kind = recording::Kind::event;
        return event;
    }
    void report(const std::string &line)
    {
        recording::Exchange event = emptyEvent();
        event.request.push_back({.pause = {}, .bytes = line});
        event.end = recording::End::open;
        observer_.onExchange(peer_, std::move(event));
    }

    Observer &observer_;
    Clock::time_point start_;
    Peer peer_;
    std::string pending_;
};

}  // namespace tools::tap
