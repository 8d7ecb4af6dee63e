// Arguments that several subcommands share.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kvoctl {

/// An argument or option of a command. It has its value after the command line has been parsed.
template <class Type>
struct Argument {
    CLI::Option *option;
    std::shared_ptr<Type> value;

    [[nodiscard]] std::optional<Type> valueIfGiven() const
    {
        return option->count() > 0 ? std::optional(*value) : std::nullopt;
    }
};

/// Accepts whole decimal numbers from @p least to @p most. "010" is ten, while the parser itself would read it as octal. The
/// message for other texts is '"TEXT" is MISTAKE'.
CLI::Validator wholeNumber(int64_t least, int64_t most, const std::string &mistake);

/// Words and the numbers for which they stand.
using Words = std::vector<std::pair<std::string, unsigned>>;

/// Replaces a word with its number, and rejects all other words.
CLI::Validator oneOf(const Words &words);

/// Lets shells complete one of @p words.
void completeWords(const CLI::Option *argument, const Words &words);

/// Rejects texts with control characters: a line feed would end the request early.
CLI::Validator oneLine();
bool containsControlCharacter(const std::string &text);

/// Adds a flag. (In C++20, the parser's own function is ambiguous for a string literal.)
CLI::Option *addFlag(CLI::App &command, const std::string &name, const std::string &help);

/// Adds an option that takes whole seconds.
Argument<uint32_t> addSeconds(CLI::App &command, const std::string &name, const std::string &help, uint32_t defaultValue);

/// Adds the option --exec.
Argument<std::string> addProgram(CLI::App &command, const std::string &help);

// ---- Types of request arguments; each adds itself to a command ----

/// A number of the type that the library's request takes.
template <class Type = uint32_t>
struct Number {
    std::string name;
    std::string help;
    Type least = std::numeric_limits<Type>::min();
    Type most = std::numeric_limits<Type>::max();

    [[nodiscard]] Argument<Type> addTo(CLI::App &command) const
    {
        auto value = std::make_shared<Type>();
        auto *option = command.add_option(name, *value, help)->type_name("");
        option->transform(
            wholeNumber(least, most, "not a whole number from " + std::to_string(least) + " to " + std::to_string(most)));
        return {option, value};
    }
};

/// A word that stands for a number.
struct Word {
    std::string name;
    std::string help;
    Words words;

    [[nodiscard]] Argument<uint32_t> addTo(CLI::App &command) const;
};

inline const Word kOnOff{"STATE", "on or off", {{"on", 1}, {"off", 0}}};

/// A text of one line without double quotes: requests put some texts between double quotes, and cannot escape them.
struct Text {
    std::string name;
    std::string help;
    std::size_t longest;  ///< bytes

    [[nodiscard]] Argument<std::string> addTo(CLI::App &command) const;
};

/// Converts a value to the type of the library's parameter.
template <class Type>
Type toParameter(Type value)
{
    return value;
}
inline const char *toParameter(const std::string &text) { return text.c_str(); }

}  // namespace kvoctl
