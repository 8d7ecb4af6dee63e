// Parses the lines of a script.
#include "kvosim/remote/remote_script.h"

#include "common/refused.h"
#include "kvosim/base/arguments.h"
#include "kvosim/remote/remote_session.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

namespace kvosim {

namespace {

using namespace std::chrono_literals;

constexpr auto kUsualWait = 10s;
constexpr uint32_t kLongestWait = 600;       // seconds
constexpr uint32_t kLongestPause = 600'000;  // milliseconds
constexpr std::string_view kBlanks = " \t";

/// Requests go to the simulator as JSON, which must be UTF-8.
void checkUtf8(std::string_view request)
{
    try {
        static_cast<void>(nlohmann::json(request).dump());
    } catch (const nlohmann::json::type_error &) {
        throw tools::Refused("the request is not valid UTF-8; send other bytes with \"raw\"");
    }
}

/// Replaces the escapes of a text by the bytes that they mean.
std::string unescaped(std::string_view text)
{
    constexpr std::string_view kNames = "rnt0\\";
    constexpr std::string_view kBytes("\r\n\t\0\\", 5);
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            bytes += text[i];
            continue;
        }
        const std::string_view escape = text.substr(i + 1);
        const auto byte =
            escape.starts_with('x') && escape.size() > 2 ? number<uint8_t>(escape.substr(1, 2), 16) : std::nullopt;
        const std::size_t name = escape.empty() ? std::string_view::npos : kNames.find(escape[0]);
        if (!byte && name == std::string_view::npos) {
            throw tools::Refused("\"" + std::string(text.substr(i, 2)) + R"(" is not an escape; write \r \n \t \0 \\ or \x1F)");
        }
        bytes += byte ? static_cast<char>(*byte) : kBytes[name];
        i += byte ? 3 : 1;
    }
    return bytes;
}

class Parser {
public:
    std::vector<ScriptStep> parse(std::string_view text)
    {
        while (!text.empty()) {
            ++line_;
            std::string_view line = text.substr(0, text.find('\n'));
            text.remove_prefix(std::min(line.size() + 1, text.size()));
            if (line.ends_with('\r')) {
                line.remove_suffix(1);
            }
            line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
            if (!line.empty() && !line.starts_with('#')) {
                parseLine(line);
            }
        }
        return std::move(steps_);
    }

    [[nodiscard]] std::size_t line() const noexcept { return line_; }

private:
    struct Word {
        std::string_view name;
        void (Parser::*parse)(std::string_view rest);
    };

    void parseLine(std::string_view line)
    {
        static constexpr Word kWords[] = {
            {"session", &Parser::session},
            {">", &Parser::send},
            {"raw", &Parser::raw},
            {"<", &Parser::reply},
            {"<~", &Parser::replyPattern},
            {"!", &Parser::indication},
            {"!~", &Parser::indicationPattern},
            {"wait-connected", &Parser::waitConnected},
            {"wait-closed", &Parser::waitClosed},
            {"close", &Parser::close},
            {"reset", &Parser::reset},
            {"away", &Parser::away},
            {"pause", &Parser::pause},
            {"timeout", &Parser::timeout},
        };
        const auto [word, rest] = split(line, ' ');
        const auto *const found =
            std::find_if(std::begin(kWords), std::end(kWords), [&, name = word](const Word &w) { return w.name == name; });
        if (found == std::end(kWords)) {
            throw tools::Refused(
                '"' + std::string(word) +
                "\" is not a script word; a line begins with #, session, >, <, <~, !, !~, raw, wait-connected, "
                "wait-closed, close, reset, away, pause or timeout, followed by a blank");
        }
        (this->*found->parse)(rest);
    }

    ScriptStep &add(ScriptStep::Kind kind, std::string text = {})
    {
        if (!session_) {
            throw tools::Refused("no session is selected; write a line such as \"session 3\" first");
        }
        ScriptStep &step = steps_.emplace_back();
        step.kind = kind;
        step.line = line_;
        step.session = *session_;
        step.text = std::move(text);
        step.time = wait_;
        return step;
    }

    void addPattern(ScriptStep::Kind kind, std::string_view text)
    {
        try {
            const std::regex pattern{std::string(text)};
            ScriptStep &step = add(kind, std::string(text));
            step.isPattern = true;
            step.pattern = pattern;
        } catch (const std::regex_error &error) {
            throw tools::Refused('"' + std::string(text) + "\" is not a regular expression: " + error.what());
        }
    }

    static void nothing(std::string_view rest)
    {
        if (rest.find_first_not_of(kBlanks) != std::string_view::npos) {
            throw tools::Refused('"' + std::string(rest) + "\" is not allowed here; this word takes no arguments");
        }
    }

    static uint32_t count(std::string_view rest, uint32_t lowest, uint32_t highest)
    {
        const auto value = decimal(rest.substr(0, rest.find_last_not_of(kBlanks) + 1), lowest, highest);
        if (!value) {
            throw tools::Refused('"' + std::string(rest) + "\" is out of range; write " + std::to_string(lowest) + " to " +
                                 std::to_string(highest));
        }
        return *value;
    }

    void session(std::string_view rest) { session_ = count(rest, 0, kHighestSession); }
    void send(std::string_view rest)
    {
        checkRequest(rest);
        checkUtf8(rest);
        add(ScriptStep::Kind::send, std::string(rest));
    }
    void raw(std::string_view rest)
    {
        std::string bytes = unescaped(rest);
        if (bytes.size() > kLongestRaw) {
            throw tools::Refused("the line has " + std::to_string(bytes.size()) + " bytes; write at most " +
                                 std::to_string(kLongestRaw) + " on a line");
        }
        add(ScriptStep::Kind::raw, std::move(bytes));
    }
    void reply(std::string_view rest) { add(ScriptStep::Kind::reply, std::string(rest)); }
    void replyPattern(std::string_view rest) { addPattern(ScriptStep::Kind::reply, rest); }
    void indication(std::string_view rest) { add(ScriptStep::Kind::indication, std::string(rest)); }
    void indicationPattern(std::string_view rest) { addPattern(ScriptStep::Kind::indication, rest); }
    void waitConnected(std::string_view rest) { addWait(ScriptStep::Kind::waitConnected, rest); }
    void waitClosed(std::string_view rest) { addWait(ScriptStep::Kind::waitClosed, rest); }
    void addWait(ScriptStep::Kind kind, std::string_view rest)
    {
        const auto time = rest.empty() ? wait_ : std::chrono::seconds(count(rest, 1, kLongestWait));
        add(kind).time = time;
    }
    void close(std::string_view rest)
    {
        nothing(rest);
        add(ScriptStep::Kind::close);
    }
    void reset(std::string_view rest)
    {
        nothing(rest);
        add(ScriptStep::Kind::reset);
    }
    void away(std::string_view rest)
    {
        const std::chrono::seconds time(count(rest, 1, kLongestWait));
        add(ScriptStep::Kind::away).time = time;
    }
    void pause(std::string_view rest)
    {
        const std::chrono::milliseconds time(count(rest, 1, kLongestPause));
        add(ScriptStep::Kind::pause).time = time;
    }
    void timeout(std::string_view rest) { wait_ = std::chrono::seconds(count(rest, 1, kLongestWait)); }

    std::vector<ScriptStep> steps_;
    std::size_t line_ = 0;
    std::optional<unsigned> session_;
    std::chrono::seconds wait_ = kUsualWait;
};

}  // namespace

std::vector<ScriptStep> parseScript(std::string_view text, const std::string &fileName)
{
    Parser parser;
    try {
        return parser.parse(text);
    } catch (const tools::Refused &error) {
        throw tools::Refused(fileName + ':' + std::to_string(parser.line()) + ": " + error.what());
    }
}

std::vector<ScriptStep> loadScript(const std::string &fileName)
{
    std::ifstream in(fileName, std::ios::binary);
    std::ostringstream text;
    if (std::filesystem::is_directory(fileName) || !in || (in.peek() != EOF && !(text << in.rdbuf()))) {
        throw tools::Refused(fileName + ": cannot be read; give the path of a script (docs/remote-side.md)");
    }
    return parseScript(text.str(), fileName);
}

}  // namespace kvosim
