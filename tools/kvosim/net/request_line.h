// The request line at the beginning of what a client sends.
#pragma once

#include <cstddef>
#include <string_view>

namespace kvosim {

struct RequestLine {
    enum class State {
        incomplete,
        tooLong,  ///< the service refuses it
        complete
    };

    State state;
    std::string_view text{};  ///< of a complete line, without its line end
};

/// @p longest is the most bytes before the line end.
RequestLine firstLine(std::string_view received, std::size_t longest);

}  // namespace kvosim
