// Formats an event's fields in their order.
#include "kvoctl/live/event.h"

#include "common/join.h"
#include "kvoctl/output/display_text.h"

#include <cctype>

namespace kvoctl {

namespace {

/// The text in double quotes. A backslash precedes each double quote and each backslash in the text.
std::string quoted(const std::string &text)
{
    std::string escaped;
    for (const char byte : text) {
        escaped += byte == '"' || byte == '\\' ? std::string{'\\', byte} : std::string{byte};
    }
    return '"' + displayText(escaped).text + '"';
}

bool isText(const Value &value) { return value.document.is_string() || value.document.is_array(); }

}  // namespace

std::string textLine(const Event &event)
{
    std::string line = event.word;
    for (const auto &[key, value] : event.fields) {
        tools::appendTo(line, " ", key);
        line.append("=").append(isText(value) ? quoted(value.text()) : value.text());
    }
    return line;
}

std::string jsonLine(const Event &event)
{
    Document line = Document::object();
    if (!event.word.empty()) {
        line["event"] = event.word;
    }
    for (const auto &[key, value] : event.fields) {
        line[key] = value.document;
    }
    return compact(line);
}

LineFormat lineFormat(const CommandLine &commandLine) { return commandLine.json() ? jsonLine : textLine; }

std::vector<std::string> environment(const std::string &prefix, const Event &event)
{
    std::vector<std::string> variables;
    if (!event.word.empty()) {
        variables.push_back(prefix + "EVENT=" + event.word);
    }
    for (const auto &[key, value] : event.fields) {
        std::string name = prefix;
        for (const char letter : key) {
            name += static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
        }
        variables.push_back(name + "=" + value.text());
    }
    return variables;
}

}  // namespace kvoctl
