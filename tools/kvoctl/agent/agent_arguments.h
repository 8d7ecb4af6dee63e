// The parameters of an agent: parses them from the command line, and writes them in the format of the library.
#pragma once

#include "kvoctl/command_line/arguments.h"

#include <optional>
#include <string>

namespace kvoctl {

/// A remote service has sessions from 0 to kLastSession. The port of session N is kFirstPort + N.
inline constexpr unsigned kLastSession = 9;
inline constexpr unsigned kFirstPort = 5850;

struct AgentOptions {
    std::string focusAddress{};  ///< dotted, or empty
    std::string focusName{};     ///< used if the address is empty
    std::string remoteAddress{};
    unsigned session = 0;
    std::string otherParameters{};  ///< lines in the library's format

    /// The text for the library.
    [[nodiscard]] std::string parameters() const;
    /// The station in focus for messages: its address or its quoted name, as the user gave it.
    [[nodiscard]] std::string focus() const { return focusAddress.empty() ? "\"" + focusName + "\"" : focusAddress; }
    [[nodiscard]] unsigned port() const { return kFirstPort + session; }
};

/// Options of a command that starts an agent.
class AgentArguments {
public:
    static AgentArguments addTo(CLI::App &command);

    /// The values of the options. The caller sets the remote service. Throws UsageError if no station in focus was given.
    [[nodiscard]] AgentOptions options() const;

private:
    struct NumberOption {
        std::string key;
        Argument<uint32_t> number;
    };

    AgentArguments(Argument<std::string> focus, Argument<std::string> focusName, Argument<std::string> screen,
                   CLI::Option *controlPanel)
        : focus_(std::move(focus)), focusName_(std::move(focusName)), screen_(std::move(screen)), controlPanel_(controlPanel)
    {
    }

    Argument<std::string> focus_;
    Argument<std::string> focusName_;
    Argument<std::string> screen_;
    CLI::Option *controlPanel_;
    std::vector<NumberOption> numbers_{};
};

/// Adds an option that takes an IPv4 address.
Argument<std::string> addAddress(CLI::App &command, const std::string &name, const std::string &help);

/// Adds the option --session.
Argument<unsigned> addSession(CLI::App &command, const std::string &help);

}  // namespace kvoctl
