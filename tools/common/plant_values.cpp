#include "common/plant_values.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <utility>

namespace tools {

namespace {

constexpr std::size_t kLongestText = 255;
constexpr std::size_t kLongestLayout = 7;

std::pair<std::string_view, std::string_view> split(std::string_view text, char separator)
{
    const std::size_t at = text.find(separator);
    return {text.substr(0, at), at == std::string_view::npos ? std::string_view() : text.substr(at + 1)};
}

bool isNumber(std::string_view text)
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

bool isConnector(std::string_view text)
{
    const auto word = [](std::string_view part) {
        return !part.empty() && std::all_of(part.begin(), part.end(), isConnectorCharacter);
    };
    const auto [name, device] = split(text, ':');
    return word(name) && word(device);
}

}  // namespace

bool hasControlCharacter(std::string_view text)
{
    return std::any_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool isConnectorCharacter(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0 ||
           std::string_view("_.-").find(character) != std::string_view::npos;
}

std::string mistakeInName(std::string_view name)
{
    if (name.empty()) {
        return "is empty; a name has 1 to " + std::to_string(kLongestName) + " bytes";
    }
    if (name.size() > kLongestName) {
        return "has " + std::to_string(name.size()) + " bytes; a name has 1 to " + std::to_string(kLongestName);
    }
    if (hasControlCharacter(name)) {
        return "contains a control character; the protocol sends names as one line, so remove it";
    }
    if (name.find('"') != std::string_view::npos) {
        return "contains a double quote, which ends a name in the registry files; use another character";
    }
    if (name.starts_with(' ')) {
        return "begins with a space, which is lost in the registry files; begin with another character";
    }
    return {};
}

bool isVersion(std::string_view text) { return !text.empty() && text.size() <= kLongestVersion && !hasControlCharacter(text); }

bool isLine(std::string_view text) { return text.size() <= kLongestText && !hasControlCharacter(text); }

/// "failed" is not allowed: on the wire a client could not distinguish the text from a refusal.
bool isReplyText(std::string_view text) { return isLine(text) && text != "failed"; }

bool isChannelInfo(std::string_view text) { return text.size() <= kLongestChannelInfo && !hasControlCharacter(text); }

bool isPair(std::string_view text)
{
    const auto [first, second] = split(text, ':');
    return isNumber(first) && isNumber(second);
}

/// A client uses the text before the first colon as the server, so the server must not be empty.
bool isViewer(std::string_view text)
{
    return text.empty() || (isLine(text) && text.find(':') != std::string_view::npos && !text.starts_with(':'));
}

bool isPriority(std::string_view text)
{
    constexpr std::array<std::string_view, 3> kLocks{"", "0", "1"};
    constexpr std::array<std::string_view, 11> kPriorities{"", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10"};
    const auto [lock, priority] = split(text, ':');
    const auto isOneOf = [](const auto &valid, std::string_view part) {
        return std::find(valid.begin(), valid.end(), part) != valid.end();
    };
    return text.empty() ||
           (text.find(':') != std::string_view::npos && isOneOf(kLocks, lock) && isOneOf(kPriorities, priority));
}

bool areConnectors(std::string_view text)
{
    if (text.size() > kLongestText || text.ends_with(' ')) {
        return false;
    }
    while (!text.empty()) {
        const auto [connector, rest] = split(text, ' ');
        if (!isConnector(connector)) {
            return false;
        }
        text = rest;
    }
    return true;
}

bool isLayout(std::string_view text) { return text.size() <= kLongestLayout && !hasControlCharacter(text) && text != kNoValue; }

}  // namespace tools
