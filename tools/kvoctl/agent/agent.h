// The library's agent, from its start to its end.
#pragma once

#include "kvoctl/agent/agent_answers.h"
#include "kvoctl/agent/agent_arguments.h"
#include "kvoctl/live/event_program.h"
#include "kvoctl/live/inbox.h"

#include <optional>
#include <string>

namespace kvoctl {

/// What answers the commands that only the host can carry out.
struct AgentHost {
    AgentAnswers answers{};
    std::optional<EventProgram> program{};  ///< answers instead, by its exit status
};

/// How the variables of a program that answers a command begin.
inline constexpr const char *kAgentEnvironment = "KVO_AGENT_";

/// One at a time in a process, and one after the other only where stop() was told that the one before has ended.
class Agent {
public:
    /// Throws Failure where the library does not start it.
    Agent(const AgentPlan &plan, const AgentHost &host);
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent() { stop(); }

    /// Whether it has ended by itself, which it does where it can not read the station in focus.
    [[nodiscard]] static bool hasEnded();
    /// Why it has: throws Failure in every case.
    [[noreturn]] void explainEnd();

    [[nodiscard]] static bool isConnected();

    /// The commands that were answered since the last time, as they are shown.
    [[nodiscard]] static std::vector<Event> takeCommands();
    /// Readable while there are some.
    [[nodiscard]] static int descriptor();

    /// Pushes an indication. Empty when it is written; else why not.
    [[nodiscard]] std::string push(const std::string &text) const;

    /// Ends it, which takes 7 s at most. False where it has not ended by then.
    bool stop();

private:
    AgentPlan plan_;
    void *instance_ = nullptr;
};

}  // namespace kvoctl
