// The agent's thread runs the user's program and leaves the rest to the main thread, which looks at the agent's state from time
// to time: the library does not tell when it changes.
#include "kvoctl/agent/agent_session.h"

#include "kvoctl/live/attention.h"
#include "kvoctl/live/line_input.h"

#include <array>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

constexpr auto kStatePeriod = 200ms;
/// From a lost connection to the next attempt, in the library.
constexpr int kReconnectSeconds = 5;
/// A line of the protocol has 256 bytes; the number takes 4 of them, the line end 2.
constexpr std::size_t kLongestIndication = 250;

class Session {
public:
    Session(const AgentPlan &plan, const AgentHost &host, LineFormat format, const StopSignals &signals)
        : plan_(plan), format_(format), attention_(signals), agent_(plan, host)
    {
    }

    bool run()
    {
        tell({"started",
              {{"focus", {plan_.focusAddress.empty() ? plan_.focusName : plan_.focusAddress}},
               {"remote", {plan_.remoteAddress}},
               {"port", {plan_.port()}}}});
        while (!attention_.mustEnd()) {
            await();
            if (Agent::hasEnded()) {
                attention_.drain();
                agent_.explainEnd();
            }
        }
        const bool ended = agent_.stop();
        tellCommands();
        attention_.drain();
        attention_.check();
        return ended;
    }

private:
    void await()
    {
        std::array sources{pollfd{.fd = Agent::descriptor(), .events = POLLIN, .revents = 0}, input_.wish()};
        if (attention_.isBehind()) {
            sources[1].fd = -1;  // the sender of so many lines is to wait until their outcome is read
        }
        attention_.await(sources, kStatePeriod);
        tellConnection();
        tellCommands();
        for (const InputLine &line : input_.read(sources[1])) {
            push(line);
        }
    }

    void tell(const Event &event) { attention_.write(format_(event)); }

    void tellCommands()
    {
        for (const Event &command : Agent::takeCommands()) {
            tell(command);
        }
    }

    void tellConnection()
    {
        const bool connected = Agent::isConnected();
        if (connected == wasConnected_) {
            return;
        }
        wasConnected_ = connected;
        tell(connected ? Event{"connected"} : Event{"connection_lost", {{"next_try_seconds", {kReconnectSeconds}}}});
    }

    void push(const InputLine &line)
    {
        const std::string refusal = refusalOf(line);
        const std::string reason = refusal.empty() ? agent_.push(line.text) : refusal;
        Event event{reason.empty() ? "pushed" : "not_pushed", {{"text", {line.text}}}};
        if (!reason.empty()) {
            event.fields.push_back({"reason", {reason}});
        }
        tell(event);
    }

    static std::string refusalOf(const InputLine &line)
    {
        if (line.tooLong) {
            return "the line is longer than " + std::to_string(kLongestIndication) + " bytes";
        }
        if (line.text.empty()) {
            return "the line is empty";
        }
        return holdsControlCharacter(line.text) ? "the line holds a control character" : "";
    }

    const AgentPlan &plan_;
    LineFormat format_;
    Attention attention_;
    LineInput input_{kLongestIndication};
    Agent agent_;
    bool wasConnected_ = false;
};

}  // namespace

bool runAgent(const AgentPlan &plan, const AgentHost &host, LineFormat format, const StopSignals &signals)
{
    return Session(plan, host, format, signals).run();
}

}  // namespace kvoctl
