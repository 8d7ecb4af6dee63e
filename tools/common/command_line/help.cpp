// The parser's own help, wrapped at the terminal's width. The parts of the help are the same in all versions of the parser from
// 2.1 on, but their order differs, so this file assembles them.
#include "common/command_line/help.h"

#include "common/command_line/terminal.h"
#include "common/completions/completion.h"

#include <algorithm>
#include <memory>
#include <sstream>
#include <string_view>

namespace tools::command_line {

namespace {

constexpr const char *kHelpWord = "help";
/// On a narrower terminal the lines are too long. That is better than one word a line.
constexpr std::size_t kNarrowest = 24;
/// The column in which the descriptions of options and commands begin.
constexpr std::size_t kColumn = 30;
/// On a narrower terminal a description begins on its own line, in column kOwnLine.
constexpr std::size_t kTwoColumns = 64;
constexpr std::size_t kIndent = 2;
constexpr std::size_t kOwnLine = 6;

std::size_t columns(std::string_view text)
{
    const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins));
}

/// Appends the words of @p text to @p line and wraps. Each line after the first begins with @p hanging spaces.
std::string filled(const std::string &line, const std::string &text, std::size_t hanging, std::size_t width)
{
    std::string all = line;
    std::size_t used = columns(line);
    bool isFirst = true;
    std::istringstream words(text);
    for (std::string word; words >> word; isFirst = false) {
        if (!isFirst && used + 1 + columns(word) > width) {
            all += '\n' + std::string(hanging, ' ') + word;
            used = hanging + columns(word);
        } else {
            all += (isFirst ? "" : " ") + word;
            used += columns(word) + (isFirst ? 0 : 1);
        }
    }
    return all;
}

/// The position at which the second column of an indented line begins; npos if there is only one column.
std::size_t secondColumn(const std::string &line)
{
    const std::size_t word = line.find_first_not_of(' ');
    const std::size_t gap = word == std::string::npos ? word : line.find("  ", word);
    return gap == std::string::npos ? gap : line.find_first_not_of(' ', gap);
}

std::string wrappedLine(const std::string &line, std::size_t width)
{
    const std::size_t second = secondColumn(line);
    if (columns(line) <= width || second == std::string::npos) {
        return line;
    }
    return filled(line.substr(0, second), line.substr(second), second, width);
}

/// A name and its description.
std::string row(const std::string &name, const std::string &description, std::size_t width)
{
    const std::string indented = std::string(kIndent, ' ') + name;
    if (description.empty()) {
        return indented + '\n';
    }
    const std::size_t column = width < kTwoColumns ? kOwnLine : kColumn;
    if (columns(indented) + kIndent <= column) {
        return filled(indented + std::string(column - columns(indented), ' '), description, column, width) + '\n';
    }
    return filled(std::string(kIndent, ' '), name, kOwnLine, width) + '\n' +
           filled(std::string(column, ' '), description, column, width) + '\n';
}

class Help : public CLI::Formatter {
public:
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override
    {
        return make_description(app) + make_usage(app, std::move(name)) + make_positionals(app) + make_groups(app, mode) +
               make_subcommands(app, mode) + "\n" + make_footer(app);
    }

    std::string make_description(const CLI::App *app) const override
    {
        return filled("", app->get_description(), 0, width()) + '\n';
    }

    std::string make_usage(const CLI::App *app, std::string name) const override
    {
        const std::string usage = CLI::Formatter::make_usage(app, std::move(name));
        const std::string command = tools::completions::requiresCommand(app) ? " -- COMMAND [ARGUMENT...]"
                                    : tools::completions::takesCommand(app)  ? " [-- COMMAND [ARGUMENT...]]"
                                                                             : "";
        // The versions of the parser differ in the line breaks around the usage.
        return filled("", usage + command, kOwnLine, width()) + '\n';
    }

    std::string make_option(const CLI::Option *option, bool isPositional) const override
    {
        const std::string name = make_option_name(option, isPositional) + make_option_opts(option);
        return row(name, make_option_desc(option), width());
    }

    std::string make_subcommand(const CLI::App *command) const override
    {
        return row(command->get_name(), command->get_description(), width());
    }

    std::string make_footer(const CLI::App *app) const override { return wrapped(app->get_footer(), width()); }

private:
    static std::size_t width() { return std::max(helpWidth(), kNarrowest); }
};

}  // namespace

std::string wrapped(const std::string &text, std::size_t width)
{
    std::string all;
    std::string paragraph;
    const auto endParagraph = [&] {
        all += paragraph.empty() ? "" : filled("", paragraph, 0, width) + '\n';
        paragraph.clear();
    };
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.front() != ' ') {
            paragraph += line + ' ';
            continue;
        }
        endParagraph();
        all += wrappedLine(line, width) + '\n';
    }
    endParagraph();
    return all;
}

void wrapHelp(CLI::App &app)
{
    const auto help = std::make_shared<Help>();
    help->label("SUBCOMMAND", "COMMAND");
    app.formatter(help);
}

CLI::App *addHelpCommand(CLI::App &app)
{
    CLI::App *command = app.add_subcommand(kHelpWord, "Show this help, or the help of a command");
    command->footer("");
    // For help and completion only: replaceHelpCommand replaces the command before the parser sees it.
    CLI::Option *argument = command->add_option("COMMAND", "The words of the command")->type_name("");
    argument->expected(0, CLI::detail::expected_max_vector_size);
    tools::completions::completeFrom(argument, [&app] {
        tools::completions::Candidates candidates;
        for (const CLI::App *known : app.get_subcommands([](const CLI::App *one) { return one->get_name() != kHelpWord; })) {
            candidates.push_back({known->get_name(), known->get_description()});
        }
        return candidates;
    });
    return command;
}

std::vector<std::string> replaceHelpCommand(std::vector<std::string> arguments)
{
    const auto command = std::find_if(arguments.begin(), arguments.end(),
                                      [](const std::string &word) { return !word.starts_with('-') || word == "--"; });
    if (command != arguments.end() && *command == kHelpWord) {
        arguments.erase(command);
        arguments.emplace_back("--help");
    }
    return arguments;
}

}  // namespace tools::command_line
