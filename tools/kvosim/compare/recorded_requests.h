// The requests of a recording, in the order in which the service received them.
#pragma once

#include "common/recording/recording.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvosim {

/// A request that the service has received, and the reply.
struct RecordedExchange {
    bool isTooLong = false;
    std::string request;  ///< without its line end
    std::string reply;    ///< all bytes

    /// Whether the reply has a line end. Without one, the client got nothing that it could use.
    [[nodiscard]] bool isAnswered() const { return reply.find('\n') != std::string::npos; }
};

class RecordedRequests {
public:
    using Time = tools::recording::Microseconds;

    /// @p recording must outlive this object.
    explicit RecordedRequests(const tools::recording::Recording &recording);

    [[nodiscard]] std::size_t size() const noexcept { return places_.size(); }
    /// When the request was complete.
    [[nodiscard]] Time time(std::size_t index) const { return places_.at(index).time; }
    [[nodiscard]] RecordedExchange exchange(std::size_t index) const;
    /// The number of the request's line in the file.
    [[nodiscard]] std::size_t lineNumber(std::size_t index) const { return recording_.lineNumber(places_.at(index).line); }
    /// Whether the service ended after this request.
    [[nodiscard]] bool endsService(std::size_t index) const { return places_.at(index).role == Role::end; }
    /// When a service that answers its first request at @p index had initialized itself: at its first recorded "yes", or after its
    /// last request.
    [[nodiscard]] Time initialized(std::size_t index) const;
    /// The number of requests that never became complete.
    [[nodiscard]] std::size_t incomplete() const noexcept { return incomplete_; }

private:
    enum class Role : uint8_t {
        other,
        initialized,  ///< the service said that it was ready
        end
    };
    /// A recording has millions of requests, so they are decoded when they are needed.
    struct Place {
        Time time;
        uint32_t line;
        Role role;
    };

    const tools::recording::Recording &recording_;
    std::vector<Place> places_;
    std::size_t incomplete_ = 0;
};

}  // namespace kvosim
