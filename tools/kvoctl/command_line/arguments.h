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

/// A declared argument or option: whether it was given, and its value once the command line has been read.
template <class Type>
struct Given {
    CLI::Option *option;
    std::shared_ptr<Type> value;

    /// The value where it was given.
    [[nodiscard]] std::optional<Type> given() const { return option->count() > 0 ? std::optional(*value) : std::nullopt; }
};

/// Accepts whole decimal numbers of a range, in any notation but none of the parser's: "010" is ten.
CLI::Validator wholeNumber(int64_t least, int64_t most, const std::string &complaint);

/// Words and what they stand for.
using Words = std::vector<std::pair<std::string, unsigned>>;

/// Replaces a word by its number, and refuses all other words.
CLI::Validator oneOf(const Words &words);

/// Lets shells complete such a word.
void completeWords(const CLI::Option *argument, const Words &words);

/// Refuses texts that the protocol can not carry: a line feed would end the request early.
CLI::Validator oneLine();
bool holdsControlCharacter(const std::string &text);

/// A flag; the option tells whether it was given. (The parser's own call is ambiguous for a literal in C++20.)
CLI::Option *addFlag(CLI::App &command, const std::string &name, const std::string &help);

/// An option of whole seconds.
Given<uint32_t> addSeconds(CLI::App &command, const std::string &name, const std::string &help, uint32_t otherwise);

/// The option --exec.
Given<std::string> addProgram(CLI::App &command, const std::string &help);

// ---- What an argument of a request is; each declares itself ----

/// A number, as the library's request takes it.
template <class Type = uint32_t>
struct Number {
    std::string name;
    std::string help;
    Type least = std::numeric_limits<Type>::min();
    Type most = std::numeric_limits<Type>::max();

    [[nodiscard]] Given<Type> addTo(CLI::App &command) const
    {
        auto value = std::make_shared<Type>();
        auto *option = command.add_option(name, *value, help)->type_name("");
        option->transform(
            wholeNumber(least, most, "no whole number from " + std::to_string(least) + " to " + std::to_string(most)));
        return {option, value};
    }
};

/// A word that stands for a number.
struct Word {
    std::string name;
    std::string help;
    Words words;

    [[nodiscard]] Given<uint32_t> addTo(CLI::App &command) const;
};

inline const Word kOnOff{"STATE", "on or off", {{"on", 1}, {"off", 0}}};

/// A text of one line. Requests put some of them between double quotes, which they can not escape.
struct Text {
    std::string name;
    std::string help;
    std::size_t longest;  ///< bytes

    [[nodiscard]] Given<std::string> addTo(CLI::App &command) const;
};

/// A value in the form in which the library takes it.
template <class Type>
Type passed(Type value)
{
    return value;
}
inline const char *passed(const std::string &text) { return text.c_str(); }

}  // namespace kvoctl
