// Splits the data of an agent into lines. The word "none" may come without a line end.
#include "kvosim/remote/agent_lines.h"

#include <algorithm>
#include <cctype>
#include <strings.h>

namespace kvosim {

namespace {

constexpr std::string_view kNone = "none";

constexpr std::size_t kTagSize = 4;

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

bool sameWord(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace

std::string_view tagOf(std::string_view line)
{
    const bool tagged = line.size() >= kTagSize && isDigit(line[0]) && isDigit(line[1]) && isDigit(line[2]) && line[3] == ':';
    return tagged ? line.substr(0, kTagSize) : std::string_view();
}

std::string_view indicationOf(std::string_view line)
{
    const bool numbered = line.size() >= kTagSize && line[0] == 'I' && isDigit(line[1]) && isDigit(line[2]) && line[3] == ':';
    return numbered ? line.substr(0, kTagSize) : std::string_view();
}

bool mayReplyUnterminated(std::string_view request)
{
    // The metrics of a station: the agent replies "none" if the station does not report a metric.
    constexpr std::string_view kMetrics[] = {"get-softkey-type", "get-keyboard-caps", "get-hardware-caps",
                                             "get-panel-oem-layout", "get-panel-rotation"};
    return std::any_of(std::begin(kMetrics), std::end(kMetrics), [&](auto metric) { return sameWord(metric, request); });
}

void AgentLines::add(std::string_view piece)
{
    received_.erase(0, taken_);
    taken_ = 0;
    received_ += piece;
}

std::optional<AgentLine> AgentLines::next(std::string_view unterminated)
{
    const std::string_view text = remaining();
    if (!unterminated.empty() && text.starts_with(unterminated)) {
        const std::string_view rest = text.substr(unterminated.size());
        if (rest.empty() || rest == "\r") {
            return std::nullopt;  // it depends on the next bytes
        }
        if (!rest.starts_with('\n') && !rest.starts_with("\r\n")) {
            return AgentLine{take(unterminated.size()), false};
        }
    }
    const std::size_t end = text.find('\n');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string line = take(end + 1);
    line.pop_back();
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return AgentLine{std::move(line)};
}

bool AgentLines::hasUnterminatedNone() const { return remaining().substr(tagOf(remaining()).size()) == kNone; }

AgentLine AgentLines::takeUnterminatedNone() { return {take(remaining().size()), false}; }

bool AgentLines::isTooLong() const { return std::min(remaining().find('\n'), remaining().size()) > kLongestAgentLine; }

std::string AgentLines::take(std::size_t size)
{
    std::string text(remaining().substr(0, size));
    taken_ += size;
    return text;
}

}  // namespace kvosim
