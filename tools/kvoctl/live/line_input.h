// Lines from standard input as they come, for one thread that also has other things to wait for.
#pragma once

#include <optional>
#include <poll.h>
#include <string>
#include <vector>

namespace kvoctl {

struct InputLine {
    std::string text;      ///< of a line that is too long, its beginning
    bool tooLong = false;  ///< longer than was asked for
};

class LineInput {
public:
    /// @p longest  bytes of a line, without its line feed
    explicit LineInput(std::size_t longest) : longest_(longest) {}

    /// What to wait for; nothing once the input has ended.
    [[nodiscard]] pollfd wish() const noexcept { return {.fd = hasEnded_ ? -1 : 0, .events = POLLIN, .revents = 0}; }

    /// The lines that are whole with what is there to read; at the input's end also a last one without a line feed.
    std::vector<InputLine> read(const pollfd &happened);

private:
    void add(char byte, std::vector<InputLine> &lines);

    std::size_t longest_;
    std::string begun_;
    bool tooLong_ = false;
    bool hasEnded_ = false;
};

}  // namespace kvoctl
