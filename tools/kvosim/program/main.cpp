// kvosim: simulates the hardware service of a plant, to develop and test programs without a panel.
#include "common/command_line/help.h"
#include "common/command_line/mistake.h"
#include "common/completions/command_structure.h"
#include "common/completions/completion.h"
#include "common/control_client.h"
#include "common/refused.h"
#include "kvosim/plant_file/plant_file.h"
#include "kvosim/plant_file/plant_generator.h"
#include "kvosim/program/compare_command.h"
#include "kvosim/program/control_commands.h"
#include "kvosim/program/replay_command.h"
#include "kvosim/program/service_arguments.h"
#include "kvosim/program/serving.h"
#include "kvosim/service.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoSimulator = 3;

constexpr const char *kMainExamples = R"(Examples:
  kvosim serve --plant examples/plant.toml --verbose
  kvosim run -- ctest --output-on-failure
  kvosim replay plant.rec -- ./panel
  kvosim generate 10000 > large.toml
  kvosim compare fault.rec
  kvosim station 10.0.0.5 --set backlight=0
  kvosim fault add delay --delay-ms 3000
  kvosim usb plug 10.0.0.5
  kvosim remote ask 3 get-kvoindex
  kvosim event "key, F1"

"kvosim COMMAND --help" shows the help of a command. Exit status: 0 success, 1 failure, 2 wrong usage or an invalid plant
file or recording, 3 no simulator is running, 4 replies differ ("compare") or requests were not recorded ("replay").
)";

constexpr const char *kServeExamples =
    R"(Serves at /tmp/kvo_hws/cmd_sock until SIGINT, SIGTERM or a client's "killDaemon". Does not start if a service is
already running. Receives the datagrams that set the USB lock at 127.0.0.1:5851. The library sends them to this address if
KVO_PLATFORM_INTERFACE is "lo". With --usb-lock-address 0.0.0.0, kvosim also receives datagrams from the network.

With --replay, see also "kvosim replay --help". A client's "killDaemon" then does not end kvosim.

Examples:
  kvosim serve --plant examples/plant.toml
  kvosim serve --plant plant.toml --registry /var/tmp/registry --verbose
  kvosim serve --plant plant.toml --remote 0,3 --remote-address 0.0.0.0
  kvosim serve --replay plant.rec --speed 10
)";

constexpr const char *kRunExamples =
    R"(The service and COMMAND have their own private /tmp/kvo_hws, so any number of runs work at the same time. COMMAND
starts when the service is ready. kvosim forwards SIGINT and SIGTERM to COMMAND. After COMMAND has ended, kvosim ends the
processes that COMMAND left running. The exit status is that of COMMAND: 128 + the signal if a signal ended it, 127 if it was
not found, 126 if it cannot be executed.

The network is not private. If another simulator already receives the USB lock's datagrams, this one prints a warning and
continues without them. COMMAND gets KVO_PLATFORM_INTERFACE=lo unless the variable is set. Its datagrams then reach only this
machine.

A private /tmp/kvo_hws needs root or the permission to create user namespaces. Many containers do not grant this permission.
With --shared, the service uses the machine's own /tmp/kvo_hws instead, one run at a time: each run waits for the end of the
run before it. The last run removes the folder /tmp/kvo_hws if a run created it.

Examples:
  kvosim run -- ./panel-tests
  kvosim run --plant examples/plant.toml --verbose -- sh -c './panel-tests && ./display-tests'
  kvosim run --shared -- ./panel-tests
)";

constexpr const char *kReplayExamples =
    R"(Programs get the recorded replies to their requests, with the recorded pauses, silences and closed connections. For each
request text, the replies come in the recorded order, and then the last one again. The recorded events come at their times
after the program activates them or listens. With COMMAND, everything else is as with "kvosim run": the private
/tmp/kvo_hws, the signals, and the exit status. Without COMMAND, kvosim serves the programs of this machine until SIGINT or
SIGTERM.

A request that was not recorded gets the reply "failed", unless --plant is given. The report at the end, on standard error,
names such requests, the nearest recorded ones and what differs. The exit status is 4 if there were such requests, or if
--strict was not met, and COMMAND itself has succeeded.

--strict is met if every recorded request was asked once and in the recorded order, no other request was asked, and every USB
event was sent and answered as it was recorded.

Examples:
  kvosim replay plant.rec -- ./panel
  kvosim replay plant.rec --speed max -- kvoctl stations
  kvosim replay plant.rec --plant plant.toml --report report.json -- ./panel-tests
  kvosim replay plant.rec
)";

constexpr const char *kGenerateExamples = R"(Examples:
  kvosim generate 10000 > large.toml
  kvosim generate 250 --seed 7 > other.toml
)";

struct Options {
    kvosim::ServiceArguments service;
    kvosim::ReplayArguments replay;
    bool untilInputEnds = false;
    bool shared = false;
    uint32_t count = 0;
    uint64_t seed = 1;
    std::optional<std::vector<std::string>> command;  ///< the words after "--"
};

/// @p onEnd  called when the service has ended
kvosim::StartService simulationOf(const Options &options, kvosim::Plant plant, std::function<void(tools::EventLoop &)> onEnd)
{
    const auto loaded = std::make_shared<kvosim::Plant>(std::move(plant));
    return [options = kvosim::serviceOptions(options.service), loaded, onEnd = std::move(onEnd)](tools::EventLoop &loop) {
        const auto service =
            std::make_shared<kvosim::Service>(loop, std::move(*loaded), options, [onEnd, &loop] { onEnd(loop); });
        return kvosim::StartedService{.service = service,
                                      .end = [ended = std::weak_ptr(service)] { ended.lock()->end(); },
                                      .readyLine = "kvosim: serving " + std::to_string(service->plant().stations().size()) +
                                                   " stations at " + options.socket.string()};
    };
}

int serve(const Options &options)
{
    if (!options.replay.recording.empty()) {
        return serveUntilEnded(kvosim::replayOf(options.replay, options.service), options.untilInputEnds);
    }
    return serveUntilEnded(
        simulationOf(options, kvosim::loadWithProgress(options.service.plant), [](tools::EventLoop &loop) { loop.stop(); }),
        options.untilInputEnds);
}

int reportMissingCommand(const std::string &example)
{
    std::fprintf(stderr, "kvosim %s: give the command to run after \"--\", as in: kvosim %s -- ./panel-tests\n",
                 example.substr(0, example.find(' ')).c_str(), example.c_str());
    return kExitUsage;
}

int run(const Options &options)
{
    if (options.command.value_or(std::vector<std::string>()).empty()) {
        return reportMissingCommand("run");
    }
    const std::string &file = options.service.plant;
    kvosim::Plant plant =
        file.empty() ? kvosim::parsePlant(kvosim::kBuiltInPlant, "built-in plant") : kvosim::loadWithProgress(file);
    // If a client ends the service, the command continues.
    return serveCommand(simulationOf(options, std::move(plant), [](tools::EventLoop &) {}), *options.command, options.shared);
}

int replay(const Options &options)
{
    if (options.command && options.command->empty()) {
        return reportMissingCommand("replay plant.rec");
    }
    const kvosim::StartService start = kvosim::replayOf(options.replay, options.service);
    return options.command ? serveCommand(start, *options.command, options.shared) : serveUntilEnded(start, false);
}

int generate(const Options &options)
{
    kvosim::generatePlant(std::cout, options.count, options.seed);
    std::cout.flush();
    return std::cout ? kExitSuccess : kExitFailure;
}

/// Removes "--" and the words after it from the arguments of "run" and "replay", and returns these words: they are the command, and
/// are not parsed here.
std::optional<std::vector<std::string>> extractCommand(std::vector<std::string> &arguments)
{
    if (arguments.empty() || (arguments.front() != "run" && arguments.front() != "replay")) {
        return std::nullopt;
    }
    const auto mark = std::find(arguments.begin(), arguments.end(), "--");
    if (mark == arguments.end()) {
        return std::nullopt;
    }
    std::vector<std::string> command(mark + 1, arguments.end());
    arguments.erase(mark, arguments.end());
    return command;
}

/// Prints the help or the version if the user asked for it, else the mistake. Returns the exit status.
int handleParseError(const CLI::App &app, const std::vector<std::string> &arguments, const CLI::ParseError &error)
{
    const auto mistake = tools::command_line::findMistake(app, arguments, error);
    if (!mistake) {
        return app.exit(error);
    }
    tools::command_line::printError(app, *mistake);
    return kExitUsage;
}

void addSharedOption(CLI::App &command, Options &options)
{
    command.add_flag("--shared", options.shared,
                     "Use the machine's own /tmp/kvo_hws, one run at a time, if namespaces are not permitted");
}

CLI::App *addServe(CLI::App &app, Options &options)
{
    CLI::App *command = app.add_subcommand("serve", "Serve a plant or a recording to the programs of this machine");
    tools::completions::completeFiles(
        command->add_option("--plant", options.service.plant, "Plant file, kvo-plant(5). Required without --replay")
            ->type_name("FILE"));
    const std::vector<CLI::Option *> ofPlant = kvosim::addServiceOptions(*command, options.service);
    kvosim::addSocketModeOption(*command, options.service);
    command->add_flag("--until-input-ends", options.untilInputEnds,
                      "End when standard input ends. If standard input is a pipe, kvosim ends when the program at its other "
                      "end ends, even if that program crashes");
    CLI::Option *recording =
        command
            ->add_option("--replay", options.replay.recording,
                         "Answer as this recording says, kvo-recording(5). The plant answers only what was not recorded")
            ->type_name("FILE");
    tools::completions::completeFiles(recording);
    const std::vector<CLI::Option *> ofReplay = kvosim::addReplayOptions(*command, options.replay);
    for (CLI::Option *option : ofReplay) {
        option->group("With --replay");
    }
    command->callback([&options, ofPlant, ofReplay] {
        const bool isReplay = !options.replay.recording.empty();
        if (options.service.plant.empty() && !isReplay) {
            throw CLI::RequiredError("give a plant with --plant FILE, or a recording with --replay FILE",
                                     CLI::ExitCodes::RequiredError);
        }
        for (const CLI::Option *option : isReplay ? ofPlant : ofReplay) {
            if (option->count() > 0) {
                throw CLI::ValidationError(option->get_name(), isReplay ? "not possible with --replay" : "needs --replay");
            }
        }
    });
    command->footer(kServeExamples);
    return command;
}

CLI::App *addRun(CLI::App &app, Options &options)
{
    CLI::App *command =
        app.add_subcommand("run", "Serve a plant to one command only: kvosim run [OPTIONS] -- COMMAND [ARGUMENT...]");
    tools::completions::completeFiles(command->add_option("--plant", options.service.plant,
                                                          "Plant file (default: a small built-in plant of three stations)"));
    tools::completions::completeCommand(command);
    addSharedOption(*command, options);
    kvosim::addServiceOptions(*command, options.service);
    command->footer(kRunExamples);
    return command;
}

CLI::App *addReplay(CLI::App &app, Options &options)
{
    CLI::App *command = app.add_subcommand(
        "replay", "Answer programs as a recording says: kvosim replay [OPTIONS] FILE [-- COMMAND [ARGUMENT...]]");
    tools::completions::completeFiles(
        command->add_option("FILE", options.replay.recording, "Recording, kvo-recording(5)")->type_name("")->required());
    tools::completions::completeFiles(
        command->add_option("--plant", options.service.plant, "Plant file that answers what was not recorded")
            ->type_name("FILE"));
    kvosim::addReplayOptions(*command, options.replay);
    tools::completions::completeOptionalCommand(command);
    addSharedOption(*command, options);
    kvosim::addVerboseOption(*command, options.service);
    command->callback([&options] {
        if (options.shared && !options.command) {
            throw CLI::ValidationError("--shared", "needs a command after \"--\"");
        }
    });
    command->footer(kReplayExamples);
    return command;
}

int runMain(const std::vector<std::string> &arguments)
{
    Options options;
    CLI::App app("Simulate the hardware service of a plant.", "kvosim");
    tools::command_line::wrapHelp(app);
    app.set_version_flag("--version", "kvosim " KVOSIM_VERSION);
    app.footer(kMainExamples);
    app.require_subcommand(1);

    CLI::App *serveCommand = addServe(app, options);
    CLI::App *runCommand = addRun(app, options);
    CLI::App *replayCommand = addReplay(app, options);

    CLI::App *generateCommand = app.add_subcommand("generate", "Write a plant file of many stations to standard output");
    generateCommand->add_option("COUNT", options.count, "Number of stations, at most 100000")
        ->required()
        ->check(CLI::Range(0U, kvosim::kMaxGenerated));
    generateCommand->add_option("--seed", options.seed,
                                "Seed of the random values; each seed gives a different plant (default: 1)");
    generateCommand->footer(kGenerateExamples);

    const kvosim::CompareCommand compareCommand(app);
    const kvosim::ControlCommands controlCommands(app);
    tools::command_line::addHelpCommand(app);

    if (tools::completions::answerShell(app, arguments, std::cout) ||
        tools::completions::writeStructure(app, arguments, std::cout)) {
        return kExitSuccess;
    }
    try {
        std::vector<std::string> remaining = tools::command_line::replaceHelpCommand(arguments);
        options.command = extractCommand(remaining);
        std::reverse(remaining.begin(), remaining.end());  // CLI11 expects them in reverse order
        app.parse(remaining);
    } catch (const CLI::ParseError &error) {
        return handleParseError(app, arguments, error);
    }
    if (controlCommands.carryOut()) {
        return kExitSuccess;
    }
    if (compareCommand.parsed()) {
        return compareCommand.carryOut();
    }
    if (serveCommand->parsed()) {
        return serve(options);
    }
    if (replayCommand->parsed()) {
        return replay(options);
    }
    return runCommand->parsed() ? run(options) : generate(options);
}

int reportError(const std::exception &error, int status)
{
    tools::command_line::printError("kvosim", error.what());
    return status;
}

}  // namespace

int main(int argc, char **argv)
{
    try {
        return runMain({argv + 1, argv + argc});
    } catch (const kvosim::PlantFileError &error) {
        return reportError(error, kExitUsage);
    } catch (const tools::Refused &error) {
        return reportError(error, kExitUsage);
    } catch (const tools::NoSimulator &error) {
        return reportError(error, kExitNoSimulator);
    } catch (const std::exception &error) {
        return reportError(error, kExitFailure);
    }
}
