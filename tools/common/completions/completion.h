// Completes an unfinished command line from the parser's own structure when the user of a shell presses Tab.
// The scripts in this folder call "PROGRAM complete -- WORD..."; the last word is the unfinished one.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <string>
#include <vector>

namespace tools::completions {

struct Candidate {
    std::string word;
    std::string description{};  ///< shown next to the word if the shell supports it
};
using Candidates = std::vector<Candidate>;

/// Returns all candidates. answerShell() removes those that do not begin with the unfinished word.
using Source = std::function<Candidates()>;

/// Sets the source of candidates for an argument. A candidate that ends in "=" is only the beginning of a word: the shell adds
/// no space after it.
void completeFrom(const CLI::Option *argument, Source source);
void completeWords(const CLI::Option *argument, std::initializer_list<const char *> words);
void completeFiles(const CLI::Option *argument);
void completeDirectories(const CLI::Option *argument);
/// Declares that another program's command line follows "--".
void completeCommand(const CLI::App *subcommand);
/// Declares that another program's command line may follow "--".
void completeOptionalCommand(const CLI::App *subcommand);
bool takesCommand(const CLI::App *subcommand);
bool requiresCommand(const CLI::App *subcommand);

/// Answers @p arguments if they are the request of a shell, and returns whether they are. The first line of the answer is
/// "words", "files", "directories" or "command" (the command line of another program). One line for each candidate follows,
/// with a tab before its meaning. Candidates that cannot be determined are left out.
bool answerShell(const CLI::App &app, const std::vector<std::string> &arguments, std::ostream &out);

}  // namespace tools::completions
