// Splits the data of a remote agent into lines: replies, which may have a tag ("042:kvoindex=1"), and indications ("I07:text").
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

/// The longest request in bytes, with its tag and without its line end. An agent closes the connection on a longer one.
inline constexpr std::size_t kLongestRequest = 254;
/// The longest line that is accepted from an agent. Its replies have a few hundred bytes.
inline constexpr std::size_t kLongestAgentLine = 4096;

/// The tag that a line begins with, such as "042:"; empty if it has none.
std::string_view tagOf(std::string_view line);
/// The number that an indication begins with, such as "I07:"; empty if the line is not an indication.
std::string_view indicationOf(std::string_view line);
/// Whether the agent's reply to @p request may be the word "none" without a line end. @p request has no tag.
bool mayReplyUnterminated(std::string_view request);

/// One line of an agent.
struct AgentLine {
    std::string text;
    bool terminated = true;  ///< false for the word "none" without a line end
};

class AgentLines {
public:
    void add(std::string_view piece);
    /// The next complete line, or nothing. @p unterminated is the only text that needs no line end: "none" or "042:none". It is
    /// empty if the next reply must have a line end.
    std::optional<AgentLine> next(std::string_view unterminated = {});
    /// Whether the remaining data is "none" without a line end, with or without a tag. It is complete if no more data follows.
    [[nodiscard]] bool hasUnterminatedNone() const;
    /// Removes and returns that "none".
    AgentLine takeUnterminatedNone();
    /// Whether the next line, complete or not, is longer than kLongestAgentLine.
    [[nodiscard]] bool isTooLong() const;

private:
    [[nodiscard]] std::string_view remaining() const { return std::string_view(received_).substr(taken_); }
    std::string take(std::size_t size);

    std::string received_;
    std::size_t taken_ = 0;  // bytes of received_ that next() has already returned
};

}  // namespace kvosim
