// Lines on standard output as they come, from one thread that also has other things to wait for.
#pragma once

#include <cstddef>
#include <deque>
#include <poll.h>
#include <string>

namespace kvoctl {

/// Keeps lines until the output takes them, so that a reader which has stopped reading holds nothing up but its own lines. They
/// are as many as there are events, of which a person's hands make few.
class LineOutput {
public:
    /// @p line  without its line feed
    void add(const std::string &line) { lines_.push_back(line + '\n'); }

    /// What to wait for; with no line to write, that the reader goes away.
    [[nodiscard]] pollfd wish() const noexcept;
    /// Writes one line at most, or the beginning of a long one, as far as @p happened says that the output takes it.
    void serve(const pollfd &happened);
    /// Writes what is left, as long as the output takes it without waiting.
    void drain();

    /// Whether so many lines wait that whoever can should add no more for now.
    [[nodiscard]] bool isBehind() const noexcept { return lines_.size() > kManyLines; }
    /// Whether nothing can be written any more.
    [[nodiscard]] bool hasEnded() const noexcept { return error_ != 0; }
    /// Throws std::runtime_error where lines were lost and no reader has gone away, who would not miss them.
    void check() const;

private:
    static constexpr std::size_t kManyLines = 100;

    void writeFirst();

    std::deque<std::string> lines_;
    int error_ = 0;
};

}  // namespace kvoctl
