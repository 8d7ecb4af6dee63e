// Rejects values that the library would misread: it cuts long texts, and treats an invalid address like none.
#include "kvoctl/agent/agent_arguments.h"

#include "common/dotted_address.h"
#include "kvoctl/command_line/station_argument.h"
#include "kvoctl/output/result.h"

#include <kvo_hws/agent.h>

#include <arpa/inet.h>

namespace kvoctl {

namespace {

constexpr std::size_t kLongestName = sizeof(EmbKvoInst::focusKvoName) - 1;
constexpr std::size_t kLongestScreen = sizeof(EmbKvoInst::screenOnFocus) - 1;

std::string checkAddress(const std::string &text)
{
    const auto address = tools::parseDotted(text);
    if (!address) {
        return "\"" + text + "\" is not a dotted IPv4 address";
    }
    return *address == INADDR_ANY ? "0.0.0.0 is not the address of a host" : "";
}

Argument<std::string> addText(CLI::App &command, const std::string &name, const std::string &help, std::size_t longest)
{
    const auto refuse = [longest](const std::string &text) -> std::string {
        if (text.empty()) {
            return "the text is empty";
        }
        return text.size() > longest ? "at most " + std::to_string(longest) + " bytes are allowed" : "";
    };
    auto value = std::make_shared<std::string>();
    return {command.add_option(name, *value, help)->check(oneLine())->check({refuse, ""})->type_name("TEXT"), value};
}

std::string line(const std::string &key, const std::string &value) { return key + "=" + value + "\n"; }

}  // namespace

std::string AgentOptions::parameters() const
{
    return line("remoteKvoHwsIp", remoteAddress) + line("remoteSession", std::to_string(session)) +
           (focusAddress.empty() ? line("focusKvoName", focusName) : line("focusKvoIp", focusAddress)) + otherParameters;
}

Argument<std::string> addAddress(CLI::App &command, const std::string &name, const std::string &help)
{
    auto address = std::make_shared<std::string>();
    return {command.add_option(name, *address, help)->check({checkAddress, ""})->type_name("ADDRESS"), address};
}

Argument<unsigned> addSession(CLI::App &command, const std::string &help)
{
    auto session = Number<unsigned>{"--session", help, 0, kLastSession}.addTo(command);
    session.option->type_name("N");
    return session;
}

AgentArguments AgentArguments::addTo(CLI::App &command)
{
    const auto focus = addAddress(command, "--focus", "The station in focus, by its address");
    const auto name = addText(command, "--focus-name", "The station in focus, by its name", kLongestName);
    focus.option->excludes(name.option);
    completeStations(focus.option, StationForms::address);
    completeStations(name.option, StationForms::name);
    const auto screen = addText(command, "--screen", "The screen on focus that the agent reports", kLongestScreen);
    AgentArguments arguments(focus, name, screen,
                             addFlag(command, "--mcp", "The station in focus has a machine control panel (MCP)"));
    const auto number = [&](const char *option, const char *key, const char *help) {
        const auto value = Number<>{option, help}.addTo(command);
        value.option->type_name("N");
        arguments.numbers_.push_back({key, value});
    };
    number("--kvo-index", "kvoIndex", "The KVO index that the agent reports (default: 1)");
    number("--channel", "channelOnFocus", "The channel on focus that the agent reports (default: 1)");
    number("--suspend-lock", "suspendLock", "The suspend lock that the agent reports (default: 0)");
    number("--suspend-prio", "suspendPrio", "The suspend priority that the agent reports (default: 1)");
    number("--startup-active", "startupActive",
           "Whether the station becomes active at start, as a number that the agent reports (default: 1)");
    number("--startup-prio", "startupPrio", "The station's priority at start that the agent reports (default: 2)");
    return arguments;
}

AgentOptions AgentArguments::options() const
{
    AgentOptions options{.focusAddress = *focus_.value, .focusName = *focusName_.value};
    if (options.focusAddress.empty() && options.focusName.empty()) {
        throw UsageError("give --focus or --focus-name");
    }
    if (controlPanel_->count() > 0) {
        options.otherParameters += line("mcpFlag", "1");
    }
    if (screen_.valueIfGiven()) {
        options.otherParameters += line("screenOnFocus", *screen_.value);
    }
    for (const auto &[key, number] : numbers_) {
        if (number.valueIfGiven()) {
            options.otherParameters += line(key, std::to_string(*number.value));
        }
    }
    return options;
}

}  // namespace kvoctl
