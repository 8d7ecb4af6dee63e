#include "kvosim/net/request_line.h"

#include <algorithm>

namespace kvosim {

RequestLine firstLine(std::string_view received, std::size_t longest)
{
    const std::size_t end = received.find('\n');
    if (std::min(end, received.size()) > longest) {
        return {RequestLine::State::tooLong};
    }
    if (end == std::string_view::npos) {
        return {RequestLine::State::incomplete};
    }
    std::string_view line = received.substr(0, end);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return {RequestLine::State::complete, line};
}

}  // namespace kvosim
