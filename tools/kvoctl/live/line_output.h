// Writes lines to standard output or standard error without blocking, for a thread that also waits for other descriptors.
#pragma once

#include <cstddef>
#include <deque>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace kvoctl {

/// Queues lines until the output accepts them: a reader that stops reading delays only its own lines. The queue has no limit,
/// because people plug in devices too slowly to fill the memory.
class LineOutput {
public:
    explicit LineOutput(int descriptor = STDOUT_FILENO) noexcept : descriptor_(descriptor) {}

    /// @p line  without its line feed
    void add(const std::string &line) { lines_.push_back(line + '\n'); }

    /// The events to poll for. If no line waits, this is only the closing of the output by its reader.
    [[nodiscard]] pollfd pollRequest() const noexcept;
    /// Writes at most one line, or the beginning of a long one, if @p polled says that the output accepts it.
    void handle(const pollfd &polled);
    /// Writes the remaining lines as far as the output takes them without blocking.
    void drain();

    /// Whether no line waits.
    [[nodiscard]] bool isEmpty() const noexcept { return lines_.empty(); }
    /// Whether so many lines wait that callers should stop adding lines for now, if they can.
    [[nodiscard]] bool hasBacklog() const noexcept { return lines_.size() > kManyLines; }
    /// Whether the output can no longer be written.
    [[nodiscard]] bool hasEnded() const noexcept { return error_ != 0; }
    /// Throws std::runtime_error if lines were lost, unless the reader has closed the output.
    void check() const;

private:
    static constexpr std::size_t kManyLines = 100;

    void writeFirst();

    int descriptor_;
    std::deque<std::string> lines_;
    std::size_t written_ = 0;  ///< bytes of the first line
    int error_ = 0;
};

}  // namespace kvoctl
