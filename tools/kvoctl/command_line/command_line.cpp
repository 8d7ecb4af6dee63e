// Configures the parser and stores the action of the chosen subcommand.
#include "kvoctl/command_line/command_line.h"

#include "common/command_line/help.h"
#include "common/completions/command_structure.h"
#include "common/completions/completion.h"

#include <kvo_hws/service.h>

#include <algorithm>
#include <array>
#include <iostream>

namespace kvoctl {

namespace {

constexpr const char *kFooter = R"(Examples:
  kvoctl stations
  kvoctl --json station 10.0.0.5
  kvoctl panel show "Portal mill"
  kvoctl address mcp 10.0.0.5 12
  kvoctl doctor
  kvoctl ready --wait 30 && kvoctl backlight on
  kvoctl trace --failures
  kvosim run -- kvoctl stations

"kvoctl COMMAND --help" shows the help of a command. Exit status: 0 done or yes, 1 the service's "no", 2 wrong usage,
3 no service, 4 the service refused or failed, 5 kvoctl itself failed (for example, it cannot write its output),
10 to 20 faults that "kvoctl doctor" finds.
)";

std::string libraryVersion()
{
    std::array<char, 64> library{};
    unsigned size = library.size();
    require(KVO_REQUEST(KVO_HWS_getDLLVersion)(library.data(), &size));
    return library.data();
}

std::string versionLine() { return "kvoctl " KVOCTL_VERSION " (library " + libraryVersion() + ")\n" + explainLibraryVersion(); }

std::string examplesText(const std::string &call, const std::vector<std::string> &examples)
{
    std::string text = "Examples:\n";
    for (const std::string &example : examples) {
        text.append("  kvoctl ").append(call).append(example.empty() ? "" : " ").append(example).append("\n");
    }
    return text;
}

}  // namespace

std::string explainLibraryVersion()
{
    return "The library reports \"" + libraryVersion() +
           "\" in every version, because programs compare the whole text. This is " KVOCTL_VERSION ".";
}

CommandLine::CommandLine() : app_("Send requests to the hardware service of an operator panel.", "kvoctl")
{
    tools::command_line::wrapHelp(app_);
    app_.footer(kFooter);
    app_.require_subcommand(1);
    app_.fallthrough();  // global options may also follow the subcommand
    app_.set_version_flag("--version", versionLine);
    app_.add_flag("--json", json_, "Write exactly one JSON document to standard output");
    app_.add_flag("--debug", debug_, "Write the library's debug messages to standard error");
}

void CommandLine::addHelp() { tools::command_line::addHelpCommand(app_)->group("Help"); }

void CommandLine::parse(std::vector<std::string> arguments)
{
    arguments = tools::command_line::replaceHelpCommand(std::move(arguments));
    // Errors are reported as JSON even if the parser fails before it reaches this option.
    const auto optionsEnd = std::find(arguments.begin(), arguments.end(), "--");
    json_ = std::find(arguments.begin(), optionsEnd, "--json") != optionsEnd;
    extractProgram(arguments);
    std::reverse(arguments.begin(), arguments.end());  // the parser takes them in reverse order
    app_.parse(std::move(arguments));
}

/// Removes the command line of another program: its words are not parsed here.
void CommandLine::extractProgram(std::vector<std::string> &arguments)
{
    const auto command =
        std::find_if(arguments.begin(), arguments.end(), [](const std::string &word) { return !word.starts_with('-'); });
    const auto takes = [&](const CLI::App *known) {
        return known->check_name(*command) && tools::completions::takesCommand(known);
    };
    if (command == arguments.end() || app_.get_subcommands(takes).empty()) {
        return;
    }
    const auto mark = std::find(command, arguments.end(), "--");
    if (mark != arguments.end()) {
        program_.emplace(mark + 1, arguments.end());
        arguments.erase(mark, arguments.end());
    }
}

bool CommandLine::answerShell(const std::vector<std::string> &arguments) const
{
    return tools::completions::answerShell(app_, arguments, std::cout) ||
           tools::completions::writeStructure(app_, arguments, std::cout);
}

void CommandLine::help(const CLI::ParseError &request) const
{
    app_.exit(request, std::cout, std::cerr);
    flushOutput();
}

Family::Family(CommandLine &commandLine, CLI::App &parent, const std::string &heading, const std::string &path,
               const std::string &word, const std::string &summary)
    : commandLine_(commandLine), parent_(*parent.add_subcommand(word, summary)), heading_("Commands"), path_(path + " ")
{
    parent_.group(heading);
    parent_.require_subcommand(1);
    parent_.footer("\"kvoctl " + path_ + "COMMAND --help\" shows the help of a command.\n");
}

void Family::add(const std::string &name, const std::string &summary, const std::vector<std::string> &examples,
                 const CommandSetup &setUp)
{
    CLI::App &command = *parent_.add_subcommand(name, summary);
    command.group(heading_);
    command.footer(examplesText(path_ + name, examples));
    command.callback([line = &commandLine_, action = setUp(command)] { line->action_ = action; });
}

}  // namespace kvoctl
