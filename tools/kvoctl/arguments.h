// Arguments that several subcommands share.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace kvoctl {

/// Replaces a word by its number, and refuses all other words.
CLI::Validator oneOf(std::initializer_list<std::pair<std::string, unsigned>> words);

/// A flag; the option tells whether it was given. (The parser's own call is ambiguous for a literal in C++20.)
CLI::Option *addFlag(CLI::App &command, const std::string &name, const std::string &help);

/// "on" or "off", as 1 or 0.
std::shared_ptr<unsigned> addOnOff(CLI::App &command);

/// An option of whole seconds; the option itself tells whether it was given.
struct Seconds {
    CLI::Option *option;
    std::shared_ptr<uint32_t> value;
};
Seconds addSeconds(CLI::App &command, const std::string &name, const std::string &help, uint32_t otherwise);

/// Refuses texts that the protocol can not carry: a line feed would end the request early.
CLI::Validator oneLine();

}  // namespace kvoctl
