// Reads when poll reports input, and stores at most the allowed length of a line.
#include "kvoctl/live/line_input.h"

#include <array>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace kvoctl {

std::vector<InputLine> LineInput::read(const pollfd &polled)
{
    std::vector<InputLine> lines;
    if (polled.revents == 0) {
        return lines;
    }
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    for (ssize_t i = 0; i < count; ++i) {
        add(bytes[static_cast<std::size_t>(i)], lines);
    }
    hasEnded_ = count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN);
    if (hasEnded_ && (!partialLine_.empty() || tooLong_)) {
        add('\n', lines);
    }
    return lines;
}

void LineInput::add(char byte, std::vector<InputLine> &lines)
{
    if (byte == '\n') {
        lines.push_back({std::exchange(partialLine_, {}), std::exchange(tooLong_, false)});
    } else if (partialLine_.size() < longest_) {
        partialLine_ += byte;
    } else {
        tooLong_ = true;
    }
}

}  // namespace kvoctl
