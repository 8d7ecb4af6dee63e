// Parses shared arguments, and rejects values that the service cannot accept.
#include "kvoctl/command_line/arguments.h"

#include "common/completions/completion.h"
#include "common/join.h"

#include <algorithm>
#include <charconv>

namespace kvoctl {

namespace {

/// A message about the rejected text. CLI11 puts the argument's name before it.
std::string refusal(const std::string &text, const std::string &mistake) { return "\"" + text + "\" is " + mistake; }

}  // namespace

CLI::Validator wholeNumber(int64_t least, int64_t most, const std::string &mistake)
{
    const auto read = [=](std::string &text) -> std::string {
        int64_t number = 0;
        const char *const end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data(), end, number);
        if (parsed.ec != std::errc{} || parsed.ptr != end || number < least || number > most) {
            return refusal(text, mistake);
        }
        // The parser itself would read a number with a leading zero as octal.
        text = std::to_string(number);
        return {};
    };
    return {read, ""};
}

CLI::Validator oneOf(const Words &words)
{
    const auto replace = [words](std::string &text) -> std::string {
        for (const auto &[word, number] : words) {
            if (text == word) {
                text = std::to_string(number);
                return {};
            }
        }
        return refusal(text, "not one of " + tools::join(words, ", ", &Words::value_type::first));
    };
    return {replace, ""};
}

void completeWords(const CLI::Option *argument, const Words &words)
{
    tools::completions::Candidates candidates;
    for (const auto &[word, number] : words) {
        candidates.push_back({word});
    }
    tools::completions::completeFrom(argument, [candidates] { return candidates; });
}

CLI::Option *addFlag(CLI::App &command, const std::string &name, const std::string &help)
{
    return command.add_flag(name, help);
}

Argument<uint32_t> addSeconds(CLI::App &command, const std::string &name, const std::string &help, uint32_t defaultValue)
{
    auto seconds = std::make_shared<uint32_t>(defaultValue);
    const CLI::Validator whole = wholeNumber(0, std::numeric_limits<uint32_t>::max(), "not a whole number of seconds");
    return {command.add_option(name, *seconds, help)->transform(whole)->type_name("SECONDS"), seconds};
}

Argument<std::string> addProgram(CLI::App &command, const std::string &help)
{
    auto program = std::make_shared<std::string>();
    auto *option = command.add_option("--exec", *program, help)->type_name("PROGRAM");
    tools::completions::completeFiles(option);
    return {option, program};
}

bool containsControlCharacter(const std::string &text)
{
    return std::any_of(text.begin(), text.end(), [](char byte) {
        const auto value = static_cast<unsigned char>(byte);
        return value < 0x20 || value == 0x7F;
    });
}

CLI::Validator oneLine()
{
    const auto refuse = [](const std::string &text) -> std::string {
        return containsControlCharacter(text) ? "\"" + text + "\" contains a control character" : "";
    };
    return {refuse, ""};
}

Argument<uint32_t> Word::addTo(CLI::App &command) const
{
    auto value = std::make_shared<uint32_t>();
    auto *option = command.add_option(name, *value, help)->transform(oneOf(words))->type_name("");
    completeWords(option, words);
    return {option, value};
}

Argument<std::string> Text::addTo(CLI::App &command) const
{
    const auto refuse = [most = longest](const std::string &text) -> std::string {
        if (text.find('"') != std::string::npos) {
            return "a double quote cannot be sent";
        }
        return text.size() > most ? "at most " + std::to_string(most) + " bytes can be sent" : "";
    };
    auto value = std::make_shared<std::string>();
    auto *option = command.add_option(name, *value, help)->check(oneLine())->check({refuse, ""})->type_name("");
    return {option, value};
}

}  // namespace kvoctl
