// Completes a command line in the making, from the parser's own structure: what a shell asks for when its user presses Tab.
// The scripts beside this file ask by "PROGRAM complete -- WORD...", the last word being the one that is begun.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <vector>

namespace completions {

struct Candidate {
    std::string word;
    std::string meaning{};  ///< shown beside it, where the shell can
};
using Candidates = std::vector<Candidate>;

/// Finds candidates; those that do not begin as the word does are left out afterwards.
using Source = std::function<Candidates()>;

/// What can stand in an argument's place. A candidate that ends in "=" is the beginning of a word.
void offer(const CLI::Option *argument, Source source);
void offerWords(const CLI::Option *argument, std::initializer_list<const char *> words);
void offerFiles(const CLI::Option *argument);
void offerDirectories(const CLI::Option *argument);
/// Another program's command line stands behind "--".
void offerCommand(const CLI::App *subcommand);
bool takesCommand(const CLI::App *subcommand);

/// Whether the arguments are a shell's question; then it is answered: "words", "files", "directories" or "command" on a line
/// of its own, and behind it a line for each candidate, with a tab before its meaning. What can not be found out is left out.
bool answered(const CLI::App &app, const std::vector<std::string> &arguments, std::ostream &out);

}  // namespace completions
