// Builds messages from the words that the parser did not accept, because the parser's own messages rarely name them.
#include "common/command_line/mistake.h"

#include "common/command_line/suggestion.h"
#include "common/command_line/terminal.h"
#include "common/completions/completion.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string_view>
#include <unistd.h>

namespace tools::command_line {

namespace {

using Words = std::vector<std::string>;

std::string quoted(const std::string &word) { return '"' + word + '"'; }

bool hasExitCode(const CLI::ParseError &error, CLI::ExitCodes kind) { return error.get_exit_code() == static_cast<int>(kind); }

bool isDashed(const std::string &word) { return word.size() > 1 && word.front() == '-'; }

std::vector<const CLI::App *> commandsOf(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *) { return true; });
}

/// The words of @p command, without the program's name.
std::string commandPath(const CLI::App &command)
{
    std::string words;
    for (const CLI::App *app = &command; app->get_parent() != nullptr; app = app->get_parent()) {
        words.insert(0, app->get_name() + (words.empty() ? "" : " "));
    }
    return words;
}

const CLI::App &outermostCommand(const CLI::App &command)
{
    const CLI::App *app = &command;
    while (app->get_parent() != nullptr) {
        app = app->get_parent();
    }
    return *app;
}

/// Finds all commands of this name, at any level.
void findByName(const CLI::App &app, const std::string &name, Words &found)
{
    for (const CLI::App *command : commandsOf(app)) {
        if (command->get_name() == name) {
            found.push_back(commandPath(*command));
        }
        findByName(*command, name, found);
    }
}

Mistake unknownCommand(const CLI::App &family, const std::string &word)
{
    // A word without a mistake, at the wrong level, is more likely than a mistyped one.
    Words meant;
    findByName(outermostCommand(family), word, meant);
    if (meant.empty()) {
        Words names;
        for (const CLI::App *command : commandsOf(family)) {
            names.push_back(command->get_name());
        }
        meant = nearest(word, names);
    }
    return {quoted(word) + " is not a command" + didYouMean(meant)};
}

Mistake unknownOption(const CLI::App &command, const std::string &word)
{
    Words names;
    for (const CLI::App *app = &command; app != nullptr; app = app->get_fallthrough() ? app->get_parent() : nullptr) {
        for (const CLI::Option *option : app->get_options()) {
            for (const std::string &name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    const std::string name = word.substr(0, word.find('='));
    return {quoted(name) + " is not an option" + didYouMean(nearest(name, names))};
}

/// A word, quoted for a shell where necessary.
std::string quotedForShell(const std::string &word)
{
    const auto isPlain = [](unsigned char byte) {
        return std::isalnum(byte) != 0 ||
               std::string_view("_-./=:,@%+").find(static_cast<char>(byte)) != std::string_view::npos;
    };
    if (!word.empty() && std::all_of(word.begin(), word.end(), isPlain)) {
        return word;
    }
    std::string text = "'";
    for (const char byte : word) {
        text += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
    }
    return text + '\'';
}

/// The last position in @p arguments from which all words of @p unexpected follow in their order.
Words::const_iterator firstUnexpected(const Words &unexpected, const Words &arguments)
{
    auto word = unexpected.rbegin();
    auto position = arguments.end();
    while (position != arguments.begin() && word != unexpected.rend()) {
        --position;
        word += *position == *word ? 1 : 0;
    }
    return position;
}

Mistake forgottenDashes(const CLI::App &app, const Words &arguments, const Words &command)
{
    std::string call = app.get_name();
    const auto begin = firstUnexpected(command, arguments);
    for (auto word = arguments.begin(); word != arguments.end(); ++word) {
        call += (word == begin ? " -- " : " ") + quotedForShell(*word);
    }
    return {"the command to run goes after \"--\": " + call};
}

}  // namespace

const CLI::App &innermostCommand(const CLI::App &app)
{
    const CLI::App *command = &app;
    for (auto chosen = command->get_subcommands(); !chosen.empty(); chosen = command->get_subcommands()) {
        command = chosen.front();
    }
    return *command;
}

std::optional<Mistake> findMistake(const CLI::App &app, const Words &arguments, const CLI::ParseError &error)
{
    const CLI::App &command = innermostCommand(app);
    const bool isFamily = !commandsOf(command).empty();
    const bool isRequest = hasExitCode(error, CLI::ExitCodes::Success);
    const bool isWrongValue =
        !isRequest && !hasExitCode(error, CLI::ExitCodes::RequiredError) && !hasExitCode(error, CLI::ExitCodes::ExtrasError);
    const Words unexpected = app.remaining(true);
    const std::string first = unexpected.empty() ? "" : unexpected.front();
    if (isWrongValue || (isRequest && unexpected.empty())) {
        return isRequest ? std::nullopt : std::optional(Mistake{error.what()});
    }
    if (unexpected.empty()) {
        return isFamily ? Mistake{"a command is missing", true} : Mistake{error.what()};
    }
    if (isFamily && !isDashed(first)) {
        return unknownCommand(command, first);  // also with --help
    }
    const bool hasDashes = std::find(arguments.begin(), arguments.end(), "--") != arguments.end();
    if (tools::completions::takesCommand(&command) && !isDashed(first) && !hasDashes) {
        return forgottenDashes(app, arguments, unexpected);
    }
    if (isRequest) {
        return std::nullopt;
    }
    return isDashed(first) ? unknownOption(command, first) : Mistake{"unexpected argument " + quoted(first)};
}

std::string messagePrefix(const CLI::App &app)
{
    const std::string words = commandPath(innermostCommand(app));
    return app.get_name() + (words.empty() ? "" : ": ") + words;
}

std::string helpCommandLine(const CLI::App &app)
{
    const std::string words = commandPath(innermostCommand(app));
    return app.get_name() + (words.empty() ? "" : " ") + words + " --help";
}

void printError(const std::string &prefix, const std::string &message, const std::string &hint)
{
    const Colour colour = usesColour(STDERR_FILENO) ? Colour::bad : Colour::none;
    std::fprintf(stderr, "%s %s\n", coloured(prefix + ":", colour).c_str(), message.c_str());
    if (!hint.empty()) {
        std::fprintf(stderr, "%s\n", hint.c_str());
    }
}

void printError(const CLI::App &app, const Mistake &mistake)
{
    if (mistake.isIncomplete) {
        std::fputs(app.help().c_str(), stderr);
    } else {
        printError(messagePrefix(app), mistake.message, "See " + quoted(helpCommandLine(app)) + ".");
    }
}

}  // namespace tools::command_line
