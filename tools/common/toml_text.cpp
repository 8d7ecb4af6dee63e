// Follows the strings and comments of a document; the rest does not need to be understood.
#include "common/toml_text.h"

#include "common/utf8.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace tools {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kWhiteSpace = " \t\r\n";

void appendUtf8(std::string &text, uint32_t character)
{
    const auto append = [&text](uint32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
        return;
    }
    const unsigned more = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    append((0xFF00U >> (more + 1) & 0xFFU) | character >> 6 * more);
    for (unsigned i = more; i-- > 0;) {
        append(0x80U | (character >> 6 * i & 0x3FU));
    }
}

bool isKeyCharacter(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') || character == '_' || character == '-';
}

/// Removes an escape from the front of @p rest, after its backslash, and appends what it stands for. In a string of several lines,
/// a backslash at the end of a line removes the white space that follows.
void takeEscape(std::string &text, std::string_view &rest)
{
    constexpr std::string_view kLetters = "btnfr\"\\";
    constexpr std::string_view kBytes = "\b\t\n\f\r\"\\";
    const char letter = rest.empty() ? '\0' : rest[0];
    if (const std::size_t at = kLetters.find(letter); at != std::string_view::npos) {
        text += kBytes[at];
        rest.remove_prefix(1);
    } else if (letter == 'u' || letter == 'U') {
        const std::string_view digits = rest.substr(1, letter == 'u' ? 4 : 8);
        uint32_t character = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), character, 16);
        appendUtf8(text, character);
        rest.remove_prefix(1 + digits.size());
    } else {
        rest.remove_prefix(std::min(rest.find_first_not_of(kWhiteSpace), rest.size()));
    }
}

/// Removes a string with its quotes from the front of @p rest. Returns nothing if it is not complete.
std::optional<std::string> takeString(std::string_view &rest)
{
    const char quote = rest[0];
    const std::string three(3, quote);
    const std::string_view end = rest.starts_with(three) ? std::string_view(three) : std::string_view(three).substr(0, 1);
    const bool hasLines = end.size() == three.size();
    rest.remove_prefix(end.size());
    if (hasLines) {  // a line end after the opening quotes does not belong to the string
        rest.remove_prefix(rest.starts_with("\r\n") ? 2 : rest.starts_with('\n') ? 1 : 0);
    }
    std::string text;
    // Up to two quotes may precede the closing ones.
    while (!rest.starts_with(end) || (hasLines && rest.substr(1).starts_with(end))) {
        if (rest.empty() || (rest[0] == '\n' && !hasLines)) {
            return std::nullopt;
        }
        const char next = rest[0];
        rest.remove_prefix(1);
        if (next == '\\' && quote == '"') {
            takeEscape(text, rest);
        } else {
            text += next;
        }
    }
    rest.remove_prefix(end.size());
    return text;
}

/// Copies a document piece by piece.
class Copy {
public:
    Copy(std::string_view toml, const ReplaceString &replace) : rest_(toml), replace_(replace) {}

    std::string run() &&
    {
        while (!rest_.empty() && !isCut_) {
            copyPiece();
        }
        return std::move(copy_);
    }

private:
    void copyPiece()
    {
        const char next = rest_[0];
        if (next == '"' || next == '\'') {
            copyString();
        } else if (isKeyCharacter(next)) {
            const auto *const end = std::find_if_not(rest_.begin(), rest_.end(), isKeyCharacter);
            word_ = std::string(rest_.begin(), end);
            copy(word_.size());
        } else if (next == '#') {
            removeComment();
        } else {
            follow(next);
            copy(1);
        }
    }

    void copy(std::size_t count)
    {
        copy_ += rest_.substr(0, count);
        rest_.remove_prefix(count);
    }

    void copyString()
    {
        const std::string_view original = rest_;
        std::optional<std::string> text = takeString(rest_);
        if (!text) {
            isCut_ = true;
            return;
        }
        const std::string_view after = rest_.substr(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
        const bool isKey = !isInValue_ || after.starts_with('=') || after.starts_with('.');
        const std::optional<std::string> replacement = isKey ? std::nullopt : replace_(key_, *text);
        copy_ += replacement ? tomlQuoted(*replacement) : original.substr(0, original.size() - rest_.size());
        word_ = *std::move(text);
    }

    /// Comments may say anything about a plant.
    void removeComment()
    {
        rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
        copy_.erase(copy_.find_last_not_of(kBlanks) + 1);
        if (copy_.empty() || copy_.ends_with('\n')) {
            rest_.remove_prefix(rest_.empty() ? 0 : 1);  // the line contained nothing else
        }
    }

    /// Notes where a value begins and ends.
    void follow(char next)
    {
        if (next == '=') {
            key_ = std::exchange(word_, {});
            isInValue_ = true;
        } else if (isInValue_ && (next == '[' || next == '{')) {
            ++depth_;
        } else if (depth_ > 0 && (next == ']' || next == '}')) {
            --depth_;
        } else if (next == '\n' && depth_ == 0) {
            isInValue_ = false;
        }
    }

    std::string_view rest_;
    const ReplaceString &replace_;
    std::string copy_;
    std::string word_;  // the last one, which is a key if "=" follows
    std::string key_;
    std::size_t depth_ = 0;  // of lists and inline tables
    bool isInValue_ = false;
    bool isCut_ = false;
};

}  // namespace

std::string tomlQuoted(std::string_view text)
{
    std::string quoted = "\"";
    while (!text.empty()) {
        const Character character = firstCharacter(text).value_or(Character{0xFFFD, 1});
        if (character.value == '"' || character.value == '\\') {
            quoted += '\\';
            quoted += text[0];
        } else if (isPrintable(character.value)) {
            quoted += text.substr(0, character.length);
        } else {
            char escape[sizeof "\\U00000000"];
            std::snprintf(escape, sizeof escape, character.value > 0xFFFF ? "\\U%08X" : "\\u%04X",
                          static_cast<unsigned>(character.value));
            quoted += escape;
        }
        text.remove_prefix(character.length);
    }
    return quoted + '"';
}

std::string replaceStrings(std::string_view toml, const ReplaceString &replace) { return Copy(toml, replace).run(); }

}  // namespace tools
