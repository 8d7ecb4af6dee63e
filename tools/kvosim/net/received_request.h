// A recorded request as a service receives it.
#pragma once

#include "common/recording/line.h"
#include "kvosim/net/request_line.h"

#include <string>

namespace kvosim {

struct ReceivedRequest {
    RequestLine::State state = RequestLine::State::incomplete;
    std::string text{};                          ///< a complete line without its line end; all bytes of one that is too long
    tools::recording::Microseconds completed{};  ///< when its last byte came
};

/// Receives the pieces of a request until it is complete. @p longest is the most bytes before the line end.
ReceivedRequest receive(const tools::recording::Exchange &exchange, std::size_t longest);

}  // namespace kvosim
