// Reads lines from standard input without blocking, for a thread that also waits for other descriptors.
#pragma once

#include <optional>
#include <poll.h>
#include <string>
#include <vector>

namespace kvoctl {

struct InputLine {
    std::string text;  ///< only the beginning if the line is too long
    bool tooLong = false;
};

class LineInput {
public:
    /// @p longest  the maximum length of a line in bytes, without the line feed
    explicit LineInput(std::size_t longest) : longest_(longest) {}

    /// The events to poll for; none after the input has ended.
    [[nodiscard]] pollfd pollRequest() const noexcept { return {.fd = hasEnded_ ? -1 : 0, .events = POLLIN, .revents = 0}; }

    /// Reads the available input and returns the lines that are complete. At the end of the input, a last line without a line
    /// feed is complete too.
    std::vector<InputLine> read(const pollfd &polled);

private:
    void add(char byte, std::vector<InputLine> &lines);

    std::size_t longest_;
    std::string partialLine_;
    bool tooLong_ = false;
    bool hasEnded_ = false;
};

}  // namespace kvoctl
