// The library's agent, which runs from construction until stop().
#pragma once

#include "kvoctl/agent/agent_answers.h"
#include "kvoctl/agent/agent_arguments.h"
#include "kvoctl/live/event_program.h"
#include "kvoctl/live/event_queue.h"

#include <optional>
#include <string>

namespace kvoctl {

/// The host of the agent, which answers the commands that the agent cannot carry out itself.
struct AgentHost {
    AgentAnswers answers{};
    std::optional<EventProgram> program{};  ///< if set, its exit status is the answer
};

/// The prefix of the environment variables of a program that answers a command.
inline constexpr const char *kAgentVariablePrefix = "KVO_AGENT_";

/// A process can have one agent at a time. It can start the next one only after stop() of the previous one returned true.
class Agent {
public:
    /// Throws Failure if the library does not start the agent.
    Agent(const AgentOptions &options, const AgentHost &host);
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent() { stop(); }

    /// Whether the agent has ended by itself. It does so if it cannot read the station in focus.
    [[nodiscard]] static bool hasEnded();
    /// Always throws Failure. Its text says why the agent has ended by itself.
    [[noreturn]] void explainEnd();

    [[nodiscard]] static bool isConnected();

    /// Returns the commands that were answered since the last call.
    [[nodiscard]] static std::vector<Event> takeCommands();
    /// A descriptor that is readable while commands wait for takeCommands().
    [[nodiscard]] static int descriptor();

    /// Sends an indication. Returns an empty text, or the reason why the indication was not sent.
    [[nodiscard]] std::string push(const std::string &text) const;

    /// Stops the agent. Takes at most 7 s, and returns false if the agent has not ended by then.
    bool stop();

private:
    AgentOptions options_;
    void *instance_ = nullptr;
};

}  // namespace kvoctl
