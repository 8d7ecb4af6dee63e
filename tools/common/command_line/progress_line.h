// One line on a terminal that shows how far something is, for as long as it takes.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace command_line {

class ProgressLine {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// What takes less than this shows no progress.
    static constexpr std::chrono::milliseconds kPatience{500};
    static constexpr std::chrono::milliseconds kInterval{100};

    /// Nothing is written where @p descriptor is no terminal whose lines can be rewritten. @p now is the clock.
    explicit ProgressLine(int descriptor, std::function<Time()> now = std::chrono::steady_clock::now);
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;
    /// Leaves an empty line where one was written.
    ~ProgressLine();

    /// Whether it is time to write: kPatience after the beginning, then every kInterval. Cheap enough to ask at every step.
    [[nodiscard]] bool isDue() const { return rewrites_ && now_() >= due_; }
    /// Shows @p text, printable ASCII, in place of the text before; what does not fit the terminal is cut off.
    void write(const std::string &text);

private:
    int descriptor_;
    std::function<Time()> now_;
    bool rewrites_;
    bool written_ = false;
    Time due_;
};

}  // namespace command_line
