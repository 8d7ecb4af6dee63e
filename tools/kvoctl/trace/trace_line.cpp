// Cuts each part of a line so that the whole fits.
#include "kvoctl/trace/trace_line.h"

#include "kvoctl/output/display_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace kvoctl {

namespace {

using namespace std::chrono_literals;
using std::chrono::duration_cast;
using std::chrono::seconds;

constexpr std::size_t kDurationWidth = 8;
constexpr std::size_t kWidestProgram = 17;
/// Of a request or a reply; room for "…".
constexpr std::size_t kNarrowest = 1;

struct Local {
    std::tm time{};
    Microseconds fraction{};

    explicit Local(StartTime moment) : fraction(moment - std::chrono::floor<seconds>(moment))
    {
        const std::time_t number = std::chrono::floor<seconds>(moment).time_since_epoch().count();
        localtime_r(&number, &time);
    }
    /// "+05:30"; without the minutes "+05" if they are 0 and @p isShort.
    [[nodiscard]] std::string offset(bool isShort) const
    {
        const long minutes = std::labs(time.tm_gmtoff) / 60;
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), isShort && minutes % 60 == 0 ? "%c%02ld" : "%c%02ld:%02ld",
                      time.tm_gmtoff < 0 ? '-' : '+', minutes / 60, minutes % 60);
        return text.data();
    }
    [[nodiscard]] std::string format(const char *form) const
    {
        std::array<char, 64> text{};
        return {text.data(), std::strftime(text.data(), text.size(), form, &time)};
    }
};

template <class Number>
std::string formatted(const char *form, Number number)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), form, number);
    return text.data();
}

std::string padded(const DisplayText &text, std::size_t width)
{
    return text.text + std::string(width - std::min(width, text.width), ' ');
}

/// Cuts only the name: half a process id is wrong.
DisplayText programText(const Entry &entry, std::size_t limit)
{
    const std::string program = programOf(entry);
    const std::size_t bracket = program.rfind('[');
    if (bracket == std::string::npos) {
        return displayText(program, limit);
    }
    const std::string id = program.substr(bracket);
    const DisplayText name = displayText(program.substr(0, bracket), limit > id.size() ? limit - id.size() : 1);
    return {name.text + id, name.width + id.size()};
}

std::string furtherLines(std::size_t count)
{
    return count == 0 ? "" : " (+" + std::to_string(count) + (count == 1 ? " line)" : " lines)");
}

/// What follows the request: the reply, or why there is none.
struct Result {
    bool hasReply;
    std::string remark;  ///< never cut
};

Result resultOf(const Entry &entry)
{
    if (entry.replyBytes > 0 && entry.reply.empty() && entry.outcome != Outcome::incomplete) {
        return {true, "(empty)" + furtherLines(entry.furtherReplyLines)};
    }
    switch (entry.outcome) {
    case Outcome::listens: return {false, ""};
    case Outcome::done: return {entry.replyBytes > 0, furtherLines(entry.furtherReplyLines)};
    case Outcome::refused: return {true, furtherLines(entry.furtherReplyLines)};
    default: return {entry.replyBytes > 0, std::string(" (") + wordOf(entry.outcome) + ')'};
    }
}

const char *markOf(Kind kind)
{
    switch (kind) {
    case Kind::ask: return "> ";
    case Kind::usb: return "usb> ";
    case Kind::event: return "event> ";
    }
    return "";
}

std::string hexadecimal(const std::string &bytes)
{
    std::string text;
    for (const char byte : bytes) {
        text += formatted("%02x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    }
    return text;
}

/// @p text  without the last line end
void addText(Document &document, const std::string &key, std::string text)
{
    const std::string bytes = text;
    for (const char end : {'\n', '\r'}) {
        if (text.ends_with(end)) {
            text.pop_back();
        }
    }
    document[key] = text;
    try {
        static_cast<void>(Document(text).dump());
    } catch (const Document::type_error &) {  // not UTF-8: the text gets U+FFFD, which loses bytes
        document[key + "_hex"] = hexadecimal(bytes);
    }
}

const char *keyOf(Kind kind)
{
    switch (kind) {
    case Kind::ask: return "request";
    case Kind::usb: return "usb";
    case Kind::event: return "event";
    }
    return "";
}

std::string keyOf(Outcome outcome)
{
    std::string key = wordOf(outcome);
    std::replace(key.begin(), key.end(), ' ', '_');
    return key;
}

double milliseconds(Microseconds duration) { return static_cast<double>(duration.count()) / 1000; }

}  // namespace

std::string clockTime(StartTime time)
{
    const Local local(time);
    return local.format("%H:%M:%S") + formatted(".%03d", static_cast<int>(local.fraction.count() / 1000)) + local.offset(true);
}

std::string fullTime(StartTime time)
{
    const Local local(time);
    return local.format("%Y-%m-%dT%H:%M:%S") + formatted(".%06d", static_cast<int>(local.fraction.count())) +
           local.offset(false);
}

std::string durationText(Microseconds duration)
{
    constexpr double kFine = 10;
    constexpr double kMost = 999.9;
    const double time = milliseconds(duration);
    if (time < kFine) {
        return formatted("%.2f ms", time);
    }
    return time < kMost ? formatted("%.1f ms", time) : formatted("%.3f s", time / 1000);
}

std::string secondsText(Microseconds time) { return formatted("%.1f s", milliseconds(time) / 1000); }

std::string TraceLines::format(const Entry &entry, const Layout &layout)
{
    const bool isUncut = layout.width == kUnlimited;
    const DisplayText program = programText(entry, isUncut ? kUnlimited : kWidestProgram);
    programWidth_ = std::max(programWidth_, std::min(program.width, kWidestProgram));
    const std::string duration = entry.kind == Kind::event ? "" : durationText(entry.duration);
    std::string line = clockTime(start_ + entry.at) + ' ' + padded(program, programWidth_) + ' ' +
                       std::string(kDurationWidth - std::min(kDurationWidth, duration.size()), ' ') + duration + ' ' +
                       markOf(entry.kind);
    const auto [hasReply, remark] = resultOf(entry);
    const std::string afterRequest = furtherLines(entry.furtherRequestLines);
    const std::string beforeReply = hasReply ? " < " : "";
    const std::size_t used = displayText(line).width + afterRequest.size() + beforeReply.size() + remark.size();
    const std::string requestLine = entry.outcome == Outcome::listens ? "(listens)"
                                    : entry.requestBytes == 0         ? "(nothing sent)"
                                                                      : entry.request;
    DisplayText request = displayText(requestLine);
    DisplayText reply = displayText(entry.reply);
    if (!isUncut && used + request.width + reply.width > layout.width) {
        const std::size_t room = layout.width > used + 2 * kNarrowest ? layout.width - used : 2 * kNarrowest;
        const std::size_t ofReply = std::min(reply.width, std::max(room / 2, room - std::min(room, request.width)));
        request = displayText(requestLine, room - ofReply);
        reply = displayText(entry.reply, std::max<std::size_t>(ofReply, 1));
    }
    const std::string result = beforeReply + reply.text + remark;
    const bool isBad = layout.usesColour && isFailure(entry.outcome);
    return line + request.text + afterRequest + (isBad ? coloured(result, Colour::bad) : result);
}

Document traceDocument(StartTime start, const Peer &peer, const Exchange &exchange)
{
    const Entry entry = entryOf(peer, exchange, kEnoughToJudge);
    Document document{{"kind", keyOf(exchange.kind)},
                      {"time", fullTime(start + exchange.at)},
                      {"pid", peer.pid == 0 ? Document(nullptr) : Document(peer.pid)},
                      {"program", peer.name.empty() ? Document(nullptr) : Document(peer.name)}};
    addText(document, "request", joined(exchange.request));
    if (entry.replyBytes > 0) {
        addText(document, "reply", joined(exchange.reply));
    } else {
        document["reply"] = nullptr;
    }
    document["outcome"] = keyOf(entry.outcome);
    document["failed"] = isFailure(entry.outcome);
    document["duration_ms"] = exchange.kind == Kind::event ? Document(nullptr) : Document(milliseconds(entry.duration));
    return document;
}

Document traceDocument(StartTime start, const Note &note)
{
    return {{"kind", "note"}, {"time", fullTime(start + note.at)}, {"text", note.text}};
}

}  // namespace kvoctl
