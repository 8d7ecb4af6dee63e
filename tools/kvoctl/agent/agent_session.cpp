// The agent's thread only runs the user's program. The main thread does everything else, and polls the agent's state, because
// the library does not report when it changes.
#include "kvoctl/agent/agent_session.h"

#include "kvoctl/live/line_input.h"
#include "kvoctl/live/poll_loop.h"

#include <array>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

constexpr auto kStatePeriod = 200ms;
/// The library also waits this long between a lost connection and the next attempt.
constexpr int kReconnectSeconds = 5;
/// A line of the protocol has at most 256 bytes; the number takes 4 of them, the line end 2.
constexpr std::size_t kLongestIndication = 250;

class Session {
public:
    Session(const AgentOptions &options, const AgentHost &host, LineFormat format, const StopSignals &signals)
        : options_(options), format_(format), loop_(signals), agent_(options, host)
    {
    }

    bool run()
    {
        show({"started",
              {{"focus", {options_.focusAddress.empty() ? options_.focusName : options_.focusAddress}},
               {"remote", {options_.remoteAddress}},
               {"port", {options_.port()}}}});
        while (!loop_.mustEnd()) {
            wait();
            if (Agent::hasEnded()) {
                loop_.drain();
                agent_.explainEnd();
            }
        }
        const bool ended = agent_.stop();
        showCommands();
        loop_.drain();
        loop_.check();
        return ended;
    }

private:
    void wait()
    {
        std::array sources{pollfd{.fd = Agent::descriptor(), .events = POLLIN, .revents = 0}, input_.pollRequest()};
        if (loop_.hasBacklog()) {
            sources[1].fd = -1;  // read no more lines until the reader of the output has caught up
        }
        loop_.wait(sources, kStatePeriod);
        showConnection();
        showCommands();
        for (const InputLine &line : input_.read(sources[1])) {
            push(line);
        }
    }

    void show(const Event &event) { loop_.write(format_(event)); }

    void showCommands()
    {
        for (const Event &command : Agent::takeCommands()) {
            show(command);
        }
    }

    void showConnection()
    {
        const bool connected = Agent::isConnected();
        if (connected == wasConnected_) {
            return;
        }
        wasConnected_ = connected;
        show(connected ? Event{"connected"} : Event{"connection_lost", {{"next_try_seconds", {kReconnectSeconds}}}});
    }

    void push(const InputLine &line)
    {
        const std::string refusal = refusalOf(line);
        const std::string reason = refusal.empty() ? agent_.push(line.text) : refusal;
        Event event{reason.empty() ? "pushed" : "not_pushed", {{"text", {line.text}}}};
        if (!reason.empty()) {
            event.fields.push_back({"reason", {reason}});
        }
        show(event);
    }

    static std::string refusalOf(const InputLine &line)
    {
        if (line.tooLong) {
            return "the line is longer than " + std::to_string(kLongestIndication) + " bytes";
        }
        if (line.text.empty()) {
            return "the line is empty";
        }
        return containsControlCharacter(line.text) ? "the line contains a control character" : "";
    }

    const AgentOptions &options_;
    LineFormat format_;
    PollLoop loop_;
    LineInput input_{kLongestIndication};
    Agent agent_;
    bool wasConnected_ = false;
};

}  // namespace

bool runAgent(const AgentOptions &options, const AgentHost &host, LineFormat format, const StopSignals &signals)
{
    return Session(options, host, format, signals).run();
}

}  // namespace kvoctl
