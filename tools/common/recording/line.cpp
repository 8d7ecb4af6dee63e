#include "common/recording/line.h"

#include "common/recording/escape.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>

namespace tools::recording {

namespace {

using namespace std::chrono_literals;
using std::chrono::duration_cast;
using std::chrono::seconds;

constexpr std::string_view kMagic = "kvo-recording";
constexpr std::string_view kStart = "start";
constexpr std::string_view kProcess = "process";
constexpr std::string_view kPlant = "plant";
constexpr std::string_view kNote = "note";
constexpr std::string_view kEof = "eof";
constexpr std::size_t kFractionDigits = 6;
constexpr std::size_t kMostShown = 40;

// In the order of Kind and of End.
constexpr std::array<std::string_view, 3> kKinds{"ask", "usb", "event"};
constexpr std::array<std::string_view, 4> kEnds{"closed", "left", "reset", "open"};

template <class... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};
template <class... Cases>
Overloaded(Cases...) -> Overloaded<Cases...>;

// ---- Writing ----

std::string secondsText(Microseconds time)
{
    char text[32];
    const auto whole = duration_cast<seconds>(time);
    std::snprintf(text, sizeof text, "%lld.%06lld", static_cast<long long>(whole.count()),
                  static_cast<long long>((time - whole).count()));
    return text;
}

void appendPieces(std::string &line, const std::vector<Piece> &pieces)
{
    for (const Piece &piece : pieces) {
        if (piece.pause != 0us) {
            line += " +" + secondsText(piece.pause);
        }
        line += ' ';
        appendQuoted(line, piece.bytes);
    }
}

std::string format(const Start &start)
{
    const std::time_t time = duration_cast<seconds>(start.time.time_since_epoch()).count();
    const auto fraction = start.time.time_since_epoch() - seconds(time);
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[64];
    std::snprintf(text, sizeof text, "%.*s %04d-%02d-%02dT%02d:%02d:%02d.%06dZ", static_cast<int>(kStart.size()), kStart.data(),
                  utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(fraction.count()));
    return text;
}

std::string format(const Exchange &exchange)
{
    std::string line = secondsText(exchange.at);
    line += ' ';
    line += kKinds.at(static_cast<std::size_t>(exchange.kind));
    line += ' ' + std::to_string(exchange.process) + " >";
    appendPieces(line, exchange.request);
    if (exchange.requestEnded) {
        line += ' ';
        line += kEof;
    }
    line += " <";
    appendPieces(line, exchange.reply);
    if (exchange.end != End::closed || exchange.endPause != 0us) {
        if (exchange.endPause != 0us) {
            line += " +" + secondsText(exchange.endPause);
        }
        line += ' ';
        line += kEnds.at(static_cast<std::size_t>(exchange.end));
    }
    return line;
}

// ---- Reading ----

std::string shown(std::string_view text)
{
    std::string quoted;
    appendQuoted(quoted, text.substr(0, kMostShown));
    return quoted + (text.size() > kMostShown ? "..." : "");
}

/// The words of a line, one after another.
class Words {
public:
    explicit Words(std::string_view text) : rest_(text) { skipBlanks(); }

    [[nodiscard]] bool atEnd() const noexcept { return rest_.empty(); }
    [[nodiscard]] bool atText() const noexcept { return rest_.starts_with('"'); }
    [[nodiscard]] bool atPause() const noexcept { return rest_.starts_with('+'); }

    /// The next word, which stays.
    [[nodiscard]] std::string_view peek() const noexcept { return rest_.substr(0, rest_.find_first_of(" \t")); }
    std::string_view word()
    {
        const std::string_view next = peek();
        rest_.remove_prefix(next.size());
        skipBlanks();
        return next;
    }
    bool take(std::string_view wanted)
    {
        if (peek() != wanted) {
            return false;
        }
        word();
        return true;
    }
    void require(std::string_view wanted)
    {
        if (!take(wanted)) {
            fail('"' + std::string(wanted) + '"');
        }
    }
    std::string text()
    {
        const std::string_view before = rest_;
        std::optional<std::string> bytes = takeQuoted(rest_);
        if (!bytes) {
            throw LineError(before.starts_with('"')
                                ? "the quoted text " + shown(before) + " is not complete, or has an escape other than " +
                                      R"(\n, \r, \t, \", \\ and \xNN)"
                                : "expected a text in double quotes, found " + shown(before));
        }
        if (!atEnd() && rest_[0] != ' ' && rest_[0] != '\t') {
            fail("a blank after the quoted text");
        }
        skipBlanks();
        return *std::move(bytes);
    }
    void requireEnd() const
    {
        if (!atEnd()) {
            fail("the end of the line");
        }
    }
    [[noreturn]] void fail(const std::string &wanted) const
    {
        throw LineError("expected " + wanted + ", found " + (atEnd() ? "the end of the line" : shown(rest_)));
    }

private:
    void skipBlanks() noexcept { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t"), rest_.size())); }

    std::string_view rest_;
};

template <class Number>
std::optional<Number> number(std::string_view digits)
{
    Number value{};
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return error == std::errc() && end == digits.data() + digits.size() && !digits.starts_with('-') ? std::optional(value)
                                                                                                    : std::nullopt;
}

template <class Number>
Number takeNumber(Words &words, const std::string &wanted)
{
    const std::optional<Number> value = number<Number>(words.peek());
    if (!value) {
        words.fail(wanted);
    }
    words.word();
    return *value;
}

/// Seconds with up to six decimals.
std::optional<Microseconds> time(std::string_view text)
{
    constexpr int64_t kMostSeconds = 1'000'000'000'000;
    const std::size_t point = text.find('.');
    const std::optional<int64_t> whole = number<int64_t>(text.substr(0, point));
    if (!whole || *whole > kMostSeconds) {
        return std::nullopt;
    }
    Microseconds result = seconds(*whole);
    if (point == std::string_view::npos) {
        return result;
    }
    std::string fraction(text.substr(point + 1));
    if (fraction.empty() || fraction.size() > kFractionDigits) {
        return std::nullopt;
    }
    fraction.resize(kFractionDigits, '0');
    const std::optional<int32_t> microseconds = number<int32_t>(fraction);
    return microseconds ? std::optional(result + Microseconds(*microseconds)) : std::nullopt;
}

Microseconds takeTime(Words &words, std::string_view prefix = "")
{
    const std::optional<Microseconds> value = time(words.peek().substr(prefix.size()));
    if (!value) {
        words.fail("seconds with up to six decimals, such as " + std::string(prefix) + "1.250000");
    }
    words.word();
    return *value;
}

Microseconds takePause(Words &words) { return words.atPause() ? takeTime(words, "+") : 0us; }

template <class Value, std::size_t kCount>
Value takeName(Words &words, const std::array<std::string_view, kCount> &names, const std::string &wanted)
{
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (words.take(names.at(i))) {
            return static_cast<Value>(i);
        }
    }
    words.fail(wanted);
}

/// The rest of the line of a newer version has an unknown form, and is skipped.
Version parseVersion(Words &words)
{
    constexpr const char *kWanted = "the version of the format, such as 1";
    if (words.peek() == "0") {
        words.fail(kWanted);
    }
    const Version version{takeNumber<unsigned>(words, kWanted)};
    while (version.number > kVersion && !words.atEnd()) {
        words.word();
    }
    return version;
}

/// Whether @p text has a digit wherever @p pattern has a zero, and is the same elsewhere.
bool matches(std::string_view text, std::string_view pattern)
{
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(), [](char character, char wanted) {
        return wanted == '0' ? character >= '0' && character <= '9' : character == wanted;
    });
}

std::optional<StartTime> startTime(std::string_view text)
{
    constexpr std::string_view kMinutes = "0000-00-00T00:00:";
    if (!matches(text.substr(0, kMinutes.size()), kMinutes) || !text.ends_with('Z')) {
        return std::nullopt;
    }
    const auto part = [&](std::size_t at, std::size_t length) { return number<unsigned>(text.substr(at, length)).value_or(0); };
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(part(0, 4))), std::chrono::month(part(5, 2)),
                                           std::chrono::day(part(8, 2))};
    const std::chrono::hours hour(part(11, 2));
    const std::chrono::minutes minute(part(14, 2));
    text.remove_prefix(kMinutes.size());
    text.remove_suffix(1);
    const std::optional<Microseconds> rest = time(text);
    if (!date.ok() || date.year() < std::chrono::year(1970) || hour > std::chrono::hours(23) ||
        minute > std::chrono::minutes(59) || !rest || *rest >= 60s) {
        return std::nullopt;
    }
    return std::chrono::sys_days(date) + hour + minute + *rest;
}

Start parseStart(Words &words)
{
    const std::optional<StartTime> time = startTime(words.peek());
    if (!time) {
        words.fail("a time in UTC, such as 2026-11-22T14:00:00.000000Z");
    }
    words.word();
    return {*time};
}

Process parseProcess(Words &words)
{
    Process process;
    process.number = takeNumber<unsigned>(words, "the number of the program");
    process.pid = takeNumber<int64_t>(words, "a process id, or 0 if it is unknown");
    process.name = words.text();
    return process;
}

/// @p pause is a pause that was read already, before the text that it belongs to.
std::vector<Piece> takePieces(Words &words, Microseconds &pause)
{
    std::vector<Piece> pieces;
    for (pause = takePause(words); words.atText(); pause = takePause(words)) {
        pieces.push_back({pause, words.text()});
    }
    return pieces;
}

Exchange parseExchange(Words &words, Microseconds at)
{
    Exchange exchange;
    exchange.at = at;
    exchange.kind = takeName<Kind>(words, kKinds, "\"ask\", \"usb\", \"event\" or \"note\"");
    exchange.process = takeNumber<unsigned>(words, "the number of a program, or 0");
    words.require(">");
    Microseconds pause{};
    exchange.request = takePieces(words, pause);
    exchange.requestEnded = pause == 0us && words.take(kEof);
    if (pause != 0us) {
        words.fail("a text in double quotes after the pause");
    }
    words.require("<");
    exchange.reply = takePieces(words, pause);
    exchange.endPause = pause;
    if (pause != 0us || !words.atEnd()) {
        exchange.end = takeName<End>(words, kEnds, R"("closed", "left", "reset" or "open")");
    }
    return exchange;
}

Line parseWords(Words &words)
{
    if (words.take(kMagic)) {
        return parseVersion(words);
    }
    if (words.take(kStart)) {
        return parseStart(words);
    }
    if (words.take(kProcess)) {
        return parseProcess(words);
    }
    if (words.take(kPlant)) {
        return PlantLine{words.text()};
    }
    if (!time(words.peek())) {
        words.fail(R"(an offset in seconds, "start", "process" or "plant")");
    }
    const Microseconds at = takeTime(words);
    if (words.take(kNote)) {
        return Note{at, words.text()};
    }
    return parseExchange(words, at);
}

}  // namespace

std::string format(const Line &line)
{
    return std::visit(
        Overloaded{[](const Nothing &) { return std::string(); },
                   [](const Version &version) { return std::string(kMagic) + ' ' + std::to_string(version.number); },
                   [](const Start &start) { return format(start); },
                   [](const Process &process) {
                       std::string text = std::string(kProcess) + ' ' + std::to_string(process.number) + ' ' +
                                          std::to_string(process.pid) + ' ';
                       appendQuoted(text, process.name);
                       return text;
                   },
                   [](const PlantLine &plant) {
                       std::string text = std::string(kPlant) + ' ';
                       appendQuoted(text, plant.text);
                       return text;
                   },
                   [](const Exchange &exchange) { return format(exchange); },
                   [](const Note &note) {
                       std::string text = secondsText(note.at) + ' ' + std::string(kNote) + ' ';
                       appendQuoted(text, note.text);
                       return text;
                   }},
        line);
}

Line parse(std::string_view text)
{
    if (text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    Words words(text);
    if (words.atEnd() || words.peek().starts_with('#')) {
        return Nothing{};
    }
    Line line = parseWords(words);
    words.requireEnd();
    return line;
}

std::string joined(const std::vector<Piece> &pieces)
{
    std::string bytes;
    for (const Piece &piece : pieces) {
        bytes += piece.bytes;
    }
    return bytes;
}

}  // namespace tools::recording
