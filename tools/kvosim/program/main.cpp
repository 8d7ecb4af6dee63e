// kvosim: simulates the hardware service of a plant, to develop and test programs without a panel.
#include "common/command_line/help.h"
#include "common/command_line/mistake.h"
#include "common/command_line/progress_line.h"
#include "common/completions/command_structure.h"
#include "common/completions/completion.h"
#include "common/control_client.h"
#include "common/dotted_address.h"
#include "common/signals.h"
#include "common/supervised_command.h"
#include "kvosim/base/arguments.h"
#include "kvosim/plant_file/plant_file.h"
#include "kvosim/plant_file/plant_generator.h"
#include "kvosim/program/compare_command.h"
#include "kvosim/program/control_commands.h"
#include "kvosim/program/run_directory.h"
#include "kvosim/service.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sys/epoll.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoSimulator = 3;
constexpr uint32_t kLongestAlive = 86'400;  // seconds

constexpr const char *kMainExamples = R"(Examples:
  kvosim serve --plant examples/plant.toml --verbose
  kvosim run -- ctest --output-on-failure
  kvosim generate 10000 > large.toml
  kvosim compare fault.rec
  kvosim station 10.0.0.5 --set backlight=0
  kvosim fault add delay --delay-ms 3000
  kvosim usb plug 10.0.0.5
  kvosim remote ask 3 get-kvoindex
  kvosim event "key, F1"

"kvosim COMMAND --help" shows the help of a command. Exit status: 0 success, 1 failure, 2 wrong usage or an invalid plant
file or recording, 3 no simulator is running, 4 replies differ ("compare").
)";

constexpr const char *kServeExamples =
    R"(Serves at /tmp/kvo_hws/cmd_sock until SIGINT, SIGTERM or a client's "killDaemon". Does not start if a service is
already running. Receives the datagrams that set the USB lock at 127.0.0.1:5851. The library sends them to this address if
KVO_PLATFORM_INTERFACE is "lo". With --usb-lock-address 0.0.0.0, kvosim also receives datagrams from the network.

Examples:
  kvosim serve --plant examples/plant.toml
  kvosim serve --plant plant.toml --registry /var/tmp/registry --verbose
  kvosim serve --plant plant.toml --remote 0,3 --remote-address 0.0.0.0
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

constexpr const char *kGenerateExamples = R"(Examples:
  kvosim generate 10000 > large.toml
  kvosim generate 250 --seed 7 > other.toml
)";

struct Options {
    std::string plant;
    std::string registry;
    std::string usbLockAddress;
    std::string socketMode;
    std::string remote;
    std::string remoteAddress;
    uint32_t alive = 10;  // seconds
    bool verbose = false;
    bool untilInputEnds = false;
    bool shared = false;
    uint32_t count = 0;
    uint64_t seed = 1;
    std::vector<std::string> command;
};

kvosim::ServiceOptions serviceOptions(const Options &options)
{
    kvosim::ServiceOptions service{.verbose = options.verbose, .usbLockDefault = kvosim::kDefaultUsbLockAddress};
    if (!options.registry.empty()) {
        service.registry = options.registry;
    }
    if (!options.usbLockAddress.empty()) {
        service.usbLockAddress = options.usbLockAddress;
    }
    if (!options.socketMode.empty()) {
        service.socketMode = *kvosim::number<mode_t>(options.socketMode, 8);
    }
    if (!options.remote.empty()) {
        service.remoteSessions = kvosim::parseSessions(options.remote);
    }
    if (!options.remoteAddress.empty()) {
        service.remoteAddress = options.remoteAddress;
    }
    service.alive = std::chrono::seconds(options.alive);
    return service;
}

std::string mistakeInMode(const std::string &text)
{
    const auto mode = kvosim::number<mode_t>(text, 8);
    return mode && *mode <= tools::kForAllUsers ? std::string() : "write an octal number such as 0600, 0660 or 0666";
}

std::string mistakeInSessions(const std::string &text)
{
    try {
        kvosim::parseSessions(text);
        return {};
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
}

void addRemoteOptions(CLI::App &command, Options &options)
{
    command
        .add_option(
            "--remote", options.remote,
            "Act as the remote hardware service of the agents of these sessions: SESSION[,SESSION...], 0 to 9. Session N "
            "uses port 5850 + N (default: the plant's sessions, else none)")
        ->check(mistakeInSessions);
    command
        .add_option("--remote-address", options.remoteAddress,
                    "IPv4 address to which agents connect (default: the plant's address, else 127.0.0.1, for this machine "
                    "only). 0.0.0.0 opens the ports on every network of this machine: every client that reaches them is "
                    "accepted as an agent, without a password")
        ->check([](const std::string &text) {
            return tools::parseDotted(text) ? std::string()
                                            : '"' + text + "\" is not an IPv4 address; write one such as 127.0.0.1 or 0.0.0.0";
        });
    command.add_option("--alive", options.alive, "Seconds between \"Alive?\" events, 0 for none (default: 10)")
        ->check(CLI::Range(0U, kLongestAlive));
}

/// Ends the service at the end of standard input: the process at the other end of the pipe has closed it, or has ended.
void endWithInput(tools::EventLoop &loop, kvosim::Service &service)
{
    const auto read = [&](uint32_t /*events*/) {
        std::array<char, 512> ignored{};
        if (::read(STDIN_FILENO, ignored.data(), ignored.size()) <= 0) {
            loop.unwatch(STDIN_FILENO);
            service.end();
        }
    };
    try {
        loop.watch(STDIN_FILENO, EPOLLIN, read);
    } catch (const std::system_error &) {
        throw tools::Refused(
            "--until-input-ends: standard input is not a pipe, socket or terminal, so its end cannot be detected");
    }
}

/// Groups digits: 41 000.
std::string grouped(std::size_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3; at -= 3) {
        text.insert(at - 3, 1, ' ');
    }
    return text;
}

/// Loads a plant. If that takes long, shows the progress on the terminal.
kvosim::Plant load(const std::string &file)
{
    tools::command_line::ProgressLine line(STDERR_FILENO);
    return kvosim::loadPlant(file, [&line](std::size_t done, std::size_t all) {
        if (line.isDue()) {
            const std::string count = all == 0 ? "" : ": " + grouped(done) + " of " + grouped(all) + " stations";
            line.write("kvosim: reading the plant" + count);
        }
    });
}

int serve(const Options &options)
{
    tools::EventLoop loop;
    std::optional<kvosim::Service> service;
    const tools::Signals signals(loop, {SIGINT, SIGTERM}, [&service](const auto &) { service->end(); });
    service.emplace(loop, load(options.plant), serviceOptions(options), [&loop] { loop.stop(); });
    if (options.untilInputEnds) {
        endWithInput(loop, *service);
    }
    std::printf("kvosim: serving %zu stations at %s\n", service->plant().stations().size(),
                serviceOptions(options).socket.c_str());
    std::fflush(stdout);
    loop.run();
    return kExitSuccess;
}

int run(const Options &options)
{
    if (options.command.empty()) {
        std::fputs("kvosim run: give the command to run after \"--\", as in: kvosim run -- ./panel-tests\n", stderr);
        return kExitUsage;
    }
    kvosim::Plant plant =
        options.plant.empty() ? kvosim::parsePlant(kvosim::kBuiltInPlant, "built-in plant") : load(options.plant);
    const kvosim::RunDirectory place(options.shared);
    tools::EventLoop loop;
    // If a client ends the service, the command continues.
    const kvosim::Service service(loop, std::move(plant), serviceOptions(options), [] {});
    setenv("KVO_PLATFORM_INTERFACE", "lo", 0);
    const tools::SupervisedCommand command(loop, options.command, [&loop] { loop.stop(); }, {.messagePrefix = "kvosim"});
    loop.run();
    return command.status();
}

int generate(const Options &options)
{
    kvosim::generatePlant(std::cout, options.count, options.seed);
    std::cout.flush();
    return std::cout ? kExitSuccess : kExitFailure;
}

void addServiceOptions(CLI::App &command, Options &options)
{
    tools::completions::completeDirectories(
        command.add_option("--registry", options.registry,
                           "Directory that keeps the registry lists for the next start (default: a temporary directory)"));
    command
        .add_option(
            "--usb-lock-address", options.usbLockAddress,
            "Address at which to receive datagrams of the USB lock: ADDRESS[:PORT], or none. Port 0 means any free port "
            "(default: the plant's address, else 127.0.0.1:5851)")
        ->check([](const std::string &text) {
            return kvosim::isEndpointOrNone(text) ? std::string() : "write " + std::string(kvosim::kEndpointForm);
        });
    addRemoteOptions(command, options);
    command.add_flag("--verbose", options.verbose, "Log each exchange on standard error");
}

/// Removes the words after "--" from the arguments of "run" and returns them: they are the command, and are not parsed here.
std::vector<std::string> extractCommand(std::vector<std::string> &arguments)
{
    if (arguments.empty() || arguments.front() != "run") {
        return {};
    }
    const auto mark = std::find(arguments.begin(), arguments.end(), "--");
    std::vector<std::string> command(mark == arguments.end() ? mark : mark + 1, arguments.end());
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

int runMain(const std::vector<std::string> &arguments)
{
    Options options;
    CLI::App app("Simulate the hardware service of a plant.", "kvosim");
    tools::command_line::wrapHelp(app);
    app.set_version_flag("--version", "kvosim " KVOSIM_VERSION);
    app.footer(kMainExamples);
    app.require_subcommand(1);

    CLI::App *serveCommand = app.add_subcommand("serve", "Serve a plant to the programs of this machine");
    tools::completions::completeFiles(
        serveCommand->add_option("--plant", options.plant, "Plant file, kvo-plant(5)")->type_name("FILE")->required());
    addServiceOptions(*serveCommand, options);
    serveCommand
        ->add_option("--socket-mode", options.socketMode,
                     "File mode of the service's sockets. It decides which programs may connect: 0600 only those of this user, "
                     "0660 also those of the user's group, 0666 all (default: 0600)")
        ->check(mistakeInMode);
    serveCommand->add_flag(
        "--until-input-ends", options.untilInputEnds,
        "End when standard input ends. If standard input is a pipe, kvosim ends when the program at its other "
        "end ends, even if that program crashes");
    serveCommand->footer(kServeExamples);

    CLI::App *runCommand =
        app.add_subcommand("run", "Serve a plant to one command only: kvosim run [OPTIONS] -- COMMAND [ARGUMENT...]");
    tools::completions::completeFiles(
        runCommand->add_option("--plant", options.plant, "Plant file (default: a small built-in plant of three stations)"));
    tools::completions::completeCommand(runCommand);
    runCommand->add_flag("--shared", options.shared,
                         "Use the machine's own /tmp/kvo_hws, one run at a time, if namespaces are not permitted");
    addServiceOptions(*runCommand, options);
    runCommand->footer(kRunExamples);

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
