// kvoctl: the library's functions on the command line, for users and scripts.
#include "common/command_line/mistake.h"
#include "kvoctl/capture/capture_command.h"
#include "kvoctl/command_line/command_line.h"
#include "kvoctl/doctor/doctor.h"
#include "kvoctl/families/families.h"
#include "kvoctl/output/display_text.h"
#include "kvoctl/recording/anonymize.h"
#include "kvoctl/report/report_command.h"
#include "kvoctl/trace/trace_commands.h"

#include <kvo_hws/runtime.h>

#include <optional>

namespace kvoctl {

namespace {

int status(Exit exit) { return static_cast<int>(exit); }

/// Reports a failure on standard error, and with --json also on standard output: scripts always get one document.
int fail(const CommandLine &commandLine, const Failure &failure)
{
    const std::string code = " (result " + std::to_string(failure.result()) + ")";
    tools::command_line::printError(commandLine.prefix(), displayText(failure.what()).text + code, hintOf(failure));
    if (commandLine.json()) {
        writeError(failure.result(), failure.what());
    }
    return status(exitOf(failure));
}

int refuse(const CommandLine &commandLine, tools::command_line::Mistake mistake)
{
    const std::string message = mistake.message;
    mistake.message = displayText(message).text;
    tools::command_line::printError(commandLine.app(), mistake);
    if (commandLine.json()) {
        writeError(std::nullopt, message);
    }
    return status(Exit::usage);
}

int run(CommandLine &commandLine, const std::vector<std::string> &arguments)
{
    if (commandLine.answerShell(arguments)) {
        return status(Exit::done);
    }
    try {
        commandLine.parse(arguments);
    } catch (const CLI::ParseError &error) {
        if (const auto mistake = tools::command_line::findMistake(commandLine.app(), arguments, error)) {
            return refuse(commandLine, *mistake);
        }
        commandLine.help(error);
        return status(Exit::done);
    }
    if (commandLine.debug()) {
        KVO_HWS_activateDebugDLL();
    }
    const Report report = commandLine.run();
    write(report, commandLine.json());
    if (!report.errorMessage.empty()) {
        tools::command_line::printError(commandLine.prefix(), displayText(report.errorMessage).text);
    }
    return status(report.exit);
}

int runReporting(CommandLine &commandLine, const std::vector<std::string> &arguments)
{
    try {
        return run(commandLine, arguments);
    } catch (const Failure &failure) {
        return fail(commandLine, failure);
    } catch (const UsageError &error) {
        return refuse(commandLine, {error.what()});
    }
}

}  // namespace

}  // namespace kvoctl

int main(int argc, char **argv)
{
    try {
        kvoctl::useUtf8();
        kvoctl::CommandLine commandLine;
        kvoctl::addStationCommands(commandLine);
        kvoctl::addPanelCommands(commandLine);
        kvoctl::addViewerCommands(commandLine);
        kvoctl::addAddressCommands(commandLine);
        kvoctl::addFocusCommands(commandLine);
        kvoctl::addInputCommands(commandLine);
        kvoctl::addUsbCommands(commandLine);
        kvoctl::addMetricCommands(commandLine);
        kvoctl::addAgentCommands(commandLine);
        kvoctl::addEventCommands(commandLine);
        kvoctl::addServiceCommands(commandLine);
        kvoctl::addDoctor(commandLine);
        kvoctl::addReport(commandLine);
        kvoctl::addAnonymize(commandLine);
        kvoctl::addTraceCommands(commandLine);
        kvoctl::addCapture(commandLine);
        commandLine.addHelp();
        return kvoctl::runReporting(commandLine, {argv + 1, argv + argc});
    } catch (const std::exception &error) {
        tools::command_line::printError("kvoctl", error.what());
        return static_cast<int>(kvoctl::Exit::ownFailure);
    }
}
