// Parses answers: words, or the numbers for which they stand.
#include "kvoctl/agent/agent_answers.h"

#include "common/completions/completion.h"
#include "common/join.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

namespace kvoctl {

namespace {

constexpr std::array<std::string_view, 7> kKeywords{"stop-viewer",   "stop-viewer-preempt", "stop-viewer-noclean",
                                                    "activate-me",   "show-viewer-active",  "set-darken",
                                                    "set-statusline"};

struct AnswerWord {
    std::string_view word;
    int number;
};

constexpr std::array<AnswerWord, 6> kWords{
    {{"done", 1}, {"yes", 1}, {"no", 0}, {"not-running", 0}, {"busy", 0}, {"failed", -1}}};

std::optional<int> parseAnswer(std::string_view text)
{
    const auto *const known = std::find_if(kWords.begin(), kWords.end(), [text](const auto &row) { return row.word == text; });
    if (known != kWords.end()) {
        return known->number;
    }
    int number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    return parsed.ec == std::errc{} && parsed.ptr == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

template <class Rows, class Word>
tools::completions::Candidates toCandidates(const Rows &rows, Word word)
{
    tools::completions::Candidates candidates;
    for (const auto &row : rows) {
        candidates.push_back({word(row)});
    }
    return candidates;
}

std::string checkAnswer(const std::string &text)
{
    return parseAnswer(text)
               ? ""
               : "\"" + text + "\" is neither a whole number nor one of " + tools::join(kWords, ", ", &AnswerWord::word);
}

std::string checkPair(const std::string &text)
{
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
        return "\"" + text + "\" is not of the form COMMAND=ANSWER";
    }
    const std::string keyword = text.substr(0, equals);
    if (std::find(kKeywords.begin(), kKeywords.end(), keyword) == kKeywords.end()) {
        return "\"" + keyword + "\" is not one of " + tools::join(kKeywords, ", ");
    }
    return checkAnswer(text.substr(equals + 1));
}

}  // namespace

HostCommand::HostCommand(const std::string &text) : keyword(text.substr(0, text.find('=')))
{
    hasArgument = keyword.size() < text.size();
    argument = hasArgument ? text.substr(keyword.size() + 1) : "";
}

int AgentAnswers::answerTo(const std::string &keyword) const
{
    const auto found = byKeyword_.find(keyword);
    return found != byKeyword_.end() ? found->second : others_;
}

std::shared_ptr<const AgentAnswers> AgentAnswers::addTo(CLI::App &command)
{
    auto answers = std::make_shared<AgentAnswers>();
    auto *own = command.add_option_function<std::vector<std::string>>(
        kAnswerOption,
        [answers](const std::vector<std::string> &pairs) {
            for (const std::string &pair : pairs) {
                const std::size_t equals = pair.find('=');
                answers->byKeyword_[pair.substr(0, equals)] = parseAnswer(pair.substr(equals + 1)).value_or(0);
            }
        },
        "The answer to one command, such as stop-viewer=not-running; can be repeated. ANSWER is 1 (done, yes), 0 (no, "
        "not-running, busy) or -1 (failed); any other number also means failure. COMMAND is one of " +
            tools::join(kKeywords, ", "));
    own->check({checkPair, ""})
        ->type_name("COMMAND=ANSWER")
        ->type_size(1)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    auto *all = command.add_option_function<std::string>(
        kAnswerAllOption, [answers](const std::string &answer) { answers->others_ = parseAnswer(answer).value_or(0); },
        "The answer to all other commands (default: 1)");
    all->check({checkAnswer, ""})->type_name("ANSWER");
    tools::completions::completeFrom(
        own, [] { return toCandidates(kKeywords, [](std::string_view keyword) { return std::string(keyword) + '='; }); });
    tools::completions::completeFrom(
        all, [] { return toCandidates(kWords, [](const AnswerWord &row) { return std::string(row.word); }); });
    return answers;
}

}  // namespace kvoctl
