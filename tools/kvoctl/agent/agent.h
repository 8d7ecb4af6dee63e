// The library's agent, which runs from construction until stop().
#pragma once

#include "kvoctl/agent/agent_answers.h"
#include "kvoctl/agent/agent_arguments.h"
#include "kvoctl/live/event_program.h"
#include "kvoctl/live/event_queue.h"

#include <optional>
#include <string>

namespace kvoctl {

/// The host: answers the commands that only a host can carry out.
struct AgentHost {
    AgentAnswers answers{};
    std::optional<EventProgram> program{};  ///< if set, its exit status is the answer
};

/// The prefix of the environment variables of a program that answers a command.
inline constexpr const char *kAgentVariablePrefix = "KVO_AGENT_";

/// A process can have one agent at a time, and a new one only after stop() of the previous one returned true.
class Agent {
public:
    /// Throws Failure if the library does not start it.
    Agent(const AgentOptions &options, const AgentHost &host);
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent() { stop(); }

    /// Whether it has ended by itself, which it does if it cannot read the station in focus.
    [[nodiscard]] static bool hasEnded();
    /// Always throws a Failure that says why it has ended by itself.
    [[noreturn]] void explainEnd();

    [[nodiscard]] static bool isConnected();

    /// Returns the commands that were answered since the last call.
    [[nodiscard]] static std::vector<Event> takeCommands();
    /// A descriptor that is readable while takeCommands() would return some.
    [[nodiscard]] static int descriptor();

    /// Pushes an indication. Returns an empty text if it was written, otherwise the reason why not.
    [[nodiscard]] std::string push(const std::string &text) const;

    /// Stops the agent, which takes at most 7 s. Returns false if it has not ended by then.
    bool stop();

private:
    AgentOptions options_;
    void *instance_ = nullptr;
};

}  // namespace kvoctl
