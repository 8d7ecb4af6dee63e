// What a remote agent sends, cut into its lines: replies, which may carry a tag ("042:kvoindex=1"), and indications
// ("I07:text").
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

/// The longest request, with its tag and without its line end, in bytes: an agent closes a connection on a longer one.
inline constexpr std::size_t kLongestRequest = 254;
/// The longest line that is taken from an agent. Its replies have a few hundred bytes.
inline constexpr std::size_t kLongestAgentLine = 4096;

/// "042:" where a line begins with such; else empty.
std::string_view tagOf(std::string_view line);
/// "I07:" where a line begins with such; else empty.
std::string_view indicationOf(std::string_view line);
/// Whether the agent's reply to a request may be the word "none" without a line end; @p request comes without its tag.
bool mayReplyUnterminated(std::string_view request);

/// One line of an agent.
struct AgentLine {
    std::string text;
    bool terminated = true;  ///< false: the word "none", which has come without a line end
};

class AgentLines {
public:
    void add(std::string_view piece);
    /// The next line; nothing where none is complete. @p unterminated is what the next reply may be without a line end, "none" or
    /// "042:none"; empty where it may not.
    std::optional<AgentLine> next(std::string_view unterminated = {});
    /// What has come is a "none" without a line end, with a tag or without. It is complete when nothing follows.
    [[nodiscard]] bool hasUnterminatedNone() const;
    /// Takes it.
    AgentLine takeUnterminatedNone();
    /// The line that is coming in, or next, is longer than a line may be.
    [[nodiscard]] bool isTooLong() const;

private:
    [[nodiscard]] std::string_view remaining() const { return std::string_view(received_).substr(taken_); }
    std::string take(std::size_t size);

    std::string received_;
    std::size_t taken_ = 0;  // of it; the rest is still to come out
};

}  // namespace kvosim
