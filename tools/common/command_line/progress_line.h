// One line on a terminal that shows the progress of an operation until it ends.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace tools::command_line {

class ProgressLine {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// A shorter operation shows no progress.
    static constexpr std::chrono::milliseconds kDelay{500};
    static constexpr std::chrono::milliseconds kInterval{100};

    /// Writes only if @p descriptor is a terminal whose lines can be rewritten. @p now returns the current time.
    explicit ProgressLine(int descriptor, std::function<Time()> now = std::chrono::steady_clock::now);
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;
    /// Erases the text, if any was written.
    ~ProgressLine();

    /// Whether it is time to write: kDelay after construction, then every kInterval. Fast enough to be called at every step.
    [[nodiscard]] bool isDue() const { return canRewrite_ && now_() >= due_; }
    /// Replaces the previous text with @p text, which is printable ASCII, and cuts it at the terminal's width.
    void write(const std::string &text);

private:
    int descriptor_;
    std::function<Time()> now_;
    bool canRewrite_;
    bool written_ = false;
    Time due_;
};

}  // namespace tools::command_line
