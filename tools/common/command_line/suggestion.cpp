// Counts edits: missing, extra and wrong characters, and swapped neighbours.
#include "common/command_line/suggestion.h"

#include <algorithm>
#include <limits>
#include <string_view>

namespace tools::command_line {

namespace {

constexpr std::size_t kMostSuggestions = 3;
constexpr std::size_t kCharactersPerEdit = 3;
/// A shorter text is the beginning of too many words.
constexpr std::size_t kShortestBeginning = 3;
constexpr std::size_t kFar = std::numeric_limits<std::size_t>::max();

/// One element for each UTF-8 character, with ASCII letters in lower case.
std::u32string characters(std::string_view text)
{
    std::u32string all;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        if ((value & 0xC0U) == 0x80U && !all.empty()) {
            all.back() = all.back() << 6U | (value & 0x3FU);
        } else {
            all.push_back(value >= 'A' && value <= 'Z' ? value - 'A' + 'a' : value);
        }
    }
    return all;
}

/// The number of edits from @p from to @p to; kFar if there are more than @p most.
std::size_t distance(const std::u32string &from, const std::u32string &to, std::size_t most)
{
    if (std::max(from.size(), to.size()) - std::min(from.size(), to.size()) > most) {
        return kFar;
    }
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(to.size() + 1);
    std::vector<std::size_t> row(to.size() + 1);
    for (std::size_t j = 0; j <= to.size(); ++j) {
        last[j] = j;
    }
    for (std::size_t i = 1; i <= from.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= to.size(); ++j) {
            const std::size_t wrong = last[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
            row[j] = std::min({wrong, last[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1]) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        if (*std::min_element(row.begin(), row.end()) > most) {
            return kFar;
        }
        beforeLast = last;
        std::swap(last, row);
    }
    return last.back() > most ? kFar : last.back();
}

}  // namespace

std::vector<std::string> nearest(const std::string &typed, const std::vector<std::string> &known)
{
    const std::u32string word = characters(typed);
    std::size_t best = std::max<std::size_t>(1, word.size() / kCharactersPerEdit);
    std::vector<std::string> words;
    for (const std::string &candidate : known) {
        const std::u32string other = characters(candidate);
        const bool begins = word.size() >= kShortestBeginning && other.starts_with(word);
        const std::size_t edits = std::min<std::size_t>(distance(word, other, best), begins ? 1 : kFar);
        if (word.size() < 2 || edits > best) {
            continue;
        }
        if (edits < best) {
            best = edits;
            words.clear();
        }
        if (words.size() < kMostSuggestions && std::find(words.begin(), words.end(), candidate) == words.end()) {
            words.push_back(candidate);
        }
    }
    return words;
}

std::string didYouMean(const std::vector<std::string> &words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool isLast = i + 1 == words.size();
        text.append(i == 0 ? "; did you mean \"" : isLast ? " or \"" : ", \"").append(words[i]).append("\"");
    }
    return text.empty() ? "" : text + "?";
}

}  // namespace tools::command_line
