#include "kvosim/program/service_arguments.h"

#include "common/command_line/progress_line.h"
#include "common/completions/completion.h"
#include "common/dotted_address.h"
#include "kvosim/base/arguments.h"
#include "kvosim/plant_file/plant_file.h"

#include <stdexcept>
#include <unistd.h>

namespace kvosim {

namespace {

constexpr uint32_t kLongestAlive = 86'400;  // seconds

std::string mistakeInMode(const std::string &text)
{
    const auto mode = number<mode_t>(text, 8);
    return mode && *mode <= tools::kForAllUsers ? std::string() : "write an octal number such as 0600, 0660 or 0666";
}

std::string mistakeInSessions(const std::string &text)
{
    try {
        parseSessions(text);
        return {};
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
}

std::vector<CLI::Option *> addRemoteOptions(CLI::App &command, ServiceArguments &arguments)
{
    CLI::Option *sessions =
        command
            .add_option(
                "--remote", arguments.remote,
                "Act as the remote hardware service of the agents of these sessions: SESSION[,SESSION...], 0 to 9. Session N "
                "uses port 5850 + N (default: the plant's sessions, else none)")
            ->check(mistakeInSessions);
    CLI::Option *address =
        command
            .add_option("--remote-address", arguments.remoteAddress,
                        "IPv4 address to which agents connect (default: the plant's address, else 127.0.0.1, for this machine "
                        "only). 0.0.0.0 opens the ports on every network of this machine: every client that reaches them is "
                        "accepted as an agent, without a password")
            ->check([](const std::string &text) {
                return tools::parseDotted(text)
                           ? std::string()
                           : '"' + text + "\" is not an IPv4 address; write one such as 127.0.0.1 or 0.0.0.0";
            });
    CLI::Option *alive =
        command.add_option("--alive", arguments.alive, "Seconds between \"Alive?\" events, 0 for none (default: 10)")
            ->check(CLI::Range(0U, kLongestAlive));
    return {sessions, address, alive};
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

}  // namespace

std::vector<CLI::Option *> addServiceOptions(CLI::App &command, ServiceArguments &arguments)
{
    std::vector<CLI::Option *> options = addRemoteOptions(command, arguments);
    options.push_back(
        command.add_option("--registry", arguments.registry,
                           "Directory that keeps the registry lists for the next start (default: a temporary directory)"));
    tools::completions::completeDirectories(options.back());
    options.push_back(
        command
            .add_option(
                "--usb-lock-address", arguments.usbLockAddress,
                "Address at which to receive datagrams of the USB lock: ADDRESS[:PORT], or none. Port 0 means any free port "
                "(default: the plant's address, else 127.0.0.1:5851)")
            ->check([](const std::string &text) {
                return isEndpointOrNone(text) ? std::string() : "write " + std::string(kEndpointForm);
            }));
    addVerboseOption(command, arguments);
    return options;
}

CLI::Option *addVerboseOption(CLI::App &command, ServiceArguments &arguments)
{
    return command.add_flag("--verbose", arguments.verbose, "Log each exchange on standard error");
}

CLI::Option *addSocketModeOption(CLI::App &command, ServiceArguments &arguments)
{
    return command
        .add_option("--socket-mode", arguments.socketMode,
                    "File mode of the service's sockets. It decides which programs may connect: 0600 only those of this user, "
                    "0660 also those of the user's group, 0666 all (default: 0600)")
        ->check(mistakeInMode);
}

ServiceOptions serviceOptions(const ServiceArguments &arguments)
{
    ServiceOptions service{.verbose = arguments.verbose, .usbLockDefault = kDefaultUsbLockAddress};
    if (!arguments.registry.empty()) {
        service.registry = arguments.registry;
    }
    if (!arguments.usbLockAddress.empty()) {
        service.usbLockAddress = arguments.usbLockAddress;
    }
    if (!arguments.socketMode.empty()) {
        service.socketMode = *number<mode_t>(arguments.socketMode, 8);
    }
    if (!arguments.remote.empty()) {
        service.remoteSessions = parseSessions(arguments.remote);
    }
    if (!arguments.remoteAddress.empty()) {
        service.remoteAddress = arguments.remoteAddress;
    }
    service.alive = std::chrono::seconds(arguments.alive);
    return service;
}

Plant loadWithProgress(const std::string &file)
{
    tools::command_line::ProgressLine line(STDERR_FILENO);
    return loadPlant(file, [&line](std::size_t done, std::size_t all) {
        if (line.isDue()) {
            const std::string count = all == 0 ? "" : ": " + grouped(done) + " of " + grouped(all) + " stations";
            line.write("kvosim: reading the plant" + count);
        }
    });
}

}  // namespace kvosim
