// kvoctl: the library from the command line, for people and scripts.
#include "kvoctl/command_line/command_line.h"
#include "kvoctl/doctor/doctor.h"
#include "kvoctl/families/families.h"
#include "kvoctl/output/display_text.h"

#include <kvo_hws/runtime.h>

#include <cstdio>

namespace kvoctl {

namespace {

int status(Exit exit) { return static_cast<int>(exit); }

/// Reports on standard error, and where JSON is asked for on standard output too: scripts always get one document.
int fail(const CommandLine &commandLine, Exit exit, std::optional<int32_t> result, const std::string &meaning,
         const std::string &hint)
{
    const std::string code = result ? " (result " + std::to_string(*result) + ")" : "";
    std::fprintf(stderr, "%s: %s%s\n", commandLine.prefix().c_str(), displayText(meaning).text.c_str(), code.c_str());
    if (!hint.empty()) {
        std::fprintf(stderr, "%s\n", hint.c_str());
    }
    if (commandLine.json()) {
        writeError(result, meaning);
    }
    return status(exit);
}

int run(CommandLine &commandLine, std::vector<std::string> arguments)
{
    if (commandLine.answersShell(arguments)) {
        return status(Exit::done);
    }
    try {
        commandLine.parse(std::move(arguments));
    } catch (const CLI::ParseError &error) {
        commandLine.help(error);
        return status(Exit::done);
    }
    if (commandLine.debug()) {
        KVO_HWS_activateDebugDLL();
    }
    const Report report = commandLine.run();
    write(report, commandLine.json());
    return status(report.exit);
}

int runReporting(CommandLine &commandLine, std::vector<std::string> arguments)
{
    try {
        return run(commandLine, std::move(arguments));
    } catch (const Failure &failure) {
        return fail(commandLine, exitOf(failure), failure.result(), failure.what(), hintOf(failure));
    } catch (const UsageError &error) {
        return fail(commandLine, Exit::usage, std::nullopt, error.what(), "\"" + commandLine.helpCall() + "\" tells how.");
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
        return kvoctl::runReporting(commandLine, {argv + 1, argv + argc});
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kvoctl: %s\n", error.what());
        return static_cast<int>(kvoctl::Exit::ownFailure);
    }
}
