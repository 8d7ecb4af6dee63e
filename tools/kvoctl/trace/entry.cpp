// Joins the pieces of an exchange, and judges the reply.
#include "kvoctl/trace/entry.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

namespace kvoctl {

namespace {

using namespace std::chrono_literals;
using tools::recording::End;
using tools::recording::Piece;

struct Lines {
    std::string first;
    std::size_t further = 0;
    std::size_t bytes = 0;
    bool isComplete = false;
};

Lines linesOf(const std::vector<Piece> &pieces, std::size_t longest)
{
    Lines lines;
    bool endsWithLineFeed = true;
    for (const Piece &piece : pieces) {
        std::string_view rest = piece.bytes;
        lines.bytes += rest.size();
        if (!lines.isComplete) {
            const std::size_t end = rest.find('\n');
            lines.first += rest.substr(0, std::min(end, longest - lines.first.size()));
            lines.isComplete = end != std::string_view::npos;
            rest.remove_prefix(lines.isComplete ? end + 1 : rest.size());
        }
        lines.further += static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '\n'));
        endsWithLineFeed = rest.empty() ? endsWithLineFeed : rest.ends_with('\n');
    }
    lines.further += endsWithLineFeed ? 0 : 1;
    if (lines.isComplete && lines.first.ends_with('\r')) {
        lines.first.pop_back();
    }
    return lines;
}

Microseconds pausesOf(const std::vector<Piece> &pieces)
{
    Microseconds sum{};
    for (const Piece &piece : pieces) {
        sum += piece.pause;
    }
    return sum;
}

template <class Texts>
bool contains(const Texts &texts, std::string_view text)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

/// Whether the reply says that the service has not carried the request out. "no", "none" and "not active" answer a question.
bool refusesRequest(std::string_view command, std::string_view reply)
{
    static constexpr std::array kRefusals{std::string_view("failed"),         std::string_view("bad request"),
                                          std::string_view("busy"),           std::string_view("not running"),
                                          std::string_view("not found"),      std::string_view("no_touchscreen"),
                                          std::string_view("not_a_rv4"),      std::string_view("no_mcp_address"),
                                          std::string_view("no_dck_address"), std::string_view("no_kvo_index")};
    // Any text is a valid reply to these, also an empty one.
    static constexpr std::array kAnyText{std::string_view("getVersion"), std::string_view("getKVOt2m2n")};
    if (reply.empty()) {
        return !contains(kAnyText, command);
    }
    return contains(kRefusals, reply) || reply.starts_with("more_than_one_") ||
           (reply == "not active" && command == "setBacklightBrightnessV2");
}

bool refusesEvent(std::string_view answer) { return answer.empty() || answer == "failed" || answer == "unknown request"; }

Outcome outcomeWithout(End end, bool hasReply)
{
    switch (end) {
    case End::open: return Outcome::open;
    case End::reset: return Outcome::reset;
    default: break;
    }
    if (hasReply) {
        return Outcome::incomplete;
    }
    return end == End::left ? Outcome::silent : Outcome::closed;
}

Outcome outcomeOf(const Entry &entry, bool replyIsComplete, End end)
{
    if (entry.kind == Kind::event && entry.requestBytes == 0) {
        return Outcome::listens;
    }
    if (entry.kind == Kind::event || (entry.requestBytes == 0 && entry.replyBytes == 0)) {
        return end == End::reset ? Outcome::reset : Outcome::done;
    }
    if (!replyIsComplete) {
        return outcomeWithout(end, entry.replyBytes > 0);
    }
    const bool refused = entry.kind == Kind::usb ? refusesEvent(entry.reply) : refusesRequest(commandOf(entry), entry.reply);
    return refused ? Outcome::refused : Outcome::done;
}

}  // namespace

const char *wordOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::done: return "done";
    case Outcome::refused: return "refused";
    case Outcome::silent: return "no reply";
    case Outcome::closed: return "closed";
    case Outcome::incomplete: return "incomplete";
    case Outcome::reset: return "reset";
    case Outcome::open: return "still open";
    case Outcome::listens: return "listens";
    }
    return "";
}

bool isFailure(Outcome outcome) { return outcome != Outcome::done && outcome != Outcome::open && outcome != Outcome::listens; }

Entry entryOf(Peer peer, const Exchange &exchange, std::size_t longest)
{
    Lines request = linesOf(exchange.request, longest);
    Lines reply = linesOf(exchange.reply, longest);
    Entry entry{.at = exchange.at, .kind = exchange.kind, .peer = std::move(peer)};
    entry.request = std::move(request.first);
    entry.reply = std::move(reply.first);
    entry.furtherRequestLines = request.further;
    entry.furtherReplyLines = reply.further;
    entry.requestBytes = request.bytes;
    entry.replyBytes = reply.bytes;
    entry.outcome = outcomeOf(entry, reply.isComplete, exchange.end);
    entry.duration = pausesOf(exchange.request) + pausesOf(exchange.reply);
    entry.duration -= exchange.request.empty() ? 0us : exchange.request.front().pause;
    entry.duration += reply.isComplete ? 0us : exchange.endPause;
    return entry;
}

std::string commandOf(const Entry &entry)
{
    switch (entry.kind) {
    case Kind::ask: return entry.request.substr(0, entry.request.find_first_of("= "));
    case Kind::usb: return entry.request.substr(0, entry.request.find('*'));
    case Kind::event: return entry.request.substr(0, entry.request.find(','));
    }
    return {};
}

std::string programOf(const Entry &entry)
{
    const auto &[pid, name] = entry.peer;
    if (pid == 0 && name.empty()) {
        return entry.kind == Kind::event ? "(this trace)" : "(other namespace)";
    }
    return (name.empty() ? "(ended)" : name) + '[' + (pid == 0 ? "?" : std::to_string(pid)) + ']';
}

}  // namespace kvoctl
