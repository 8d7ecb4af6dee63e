// What an agent is started with, from the command line to the text that the library takes.
#pragma once

#include "kvoctl/command_line/arguments.h"

#include <optional>
#include <string>

namespace kvoctl {

/// The sessions of a remote service, each with a port of its own.
inline constexpr unsigned kLastSession = 9;
inline constexpr unsigned kFirstPort = 5850;

struct AgentPlan {
    std::string focusAddress{};  ///< dotted, or empty
    std::string focusName{};     ///< where there is no address
    std::string remoteAddress{};
    unsigned session = 0;
    std::string otherParameters{};  ///< lines as the library takes them

    [[nodiscard]] std::string parameters() const;
    /// The station in focus as the user has named it.
    [[nodiscard]] std::string focus() const { return focusAddress.empty() ? "\"" + focusName + "\"" : focusAddress; }
    [[nodiscard]] unsigned port() const { return kFirstPort + session; }
};

/// Options of a command that starts an agent.
class AgentArguments {
public:
    static AgentArguments addTo(CLI::App &command);

    /// What was given, but for the remote service. Throws UsageError without a station in focus.
    [[nodiscard]] AgentPlan plan() const;

private:
    struct NumberOption {
        std::string key;
        Given<uint32_t> number;
    };

    AgentArguments(Given<std::string> focus, Given<std::string> focusName, Given<std::string> screen, CLI::Option *controlPanel)
        : focus_(std::move(focus)), focusName_(std::move(focusName)), screen_(std::move(screen)), controlPanel_(controlPanel)
    {
    }

    Given<std::string> focus_;
    Given<std::string> focusName_;
    Given<std::string> screen_;
    CLI::Option *controlPanel_;
    std::vector<NumberOption> numbers_{};
};

/// An option for the IPv4 address of somebody.
Given<std::string> addAddress(CLI::App &command, const std::string &name, const std::string &help);

/// The option --session.
Given<unsigned> addSession(CLI::App &command, const std::string &help);

}  // namespace kvoctl
