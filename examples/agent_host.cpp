// A host program of the remote agent, in C++. It carries out the commands that the agent passes to it.
//
// The program also reads its input: it pushes each line as an event, and ends when the input ends.
#include <kvo_hws/kvo_hws.hpp>

#include <atomic>
#include <iostream>

namespace {

using kvo::AgentAnswer;

// One function for each command. They run on the agent's thread, one at a time. The remote side waits for the answer.
class Host {
public:
    AgentAnswer operator()(const kvo::ShowViewerActive & /*command*/)
    {
        return asked("show-viewer-active", viewer_runs_ ? AgentAnswer::yes : AgentAnswer::no);
    }
    AgentAnswer operator()(const kvo::StopViewer & /*command*/) { return stop("stop-viewer"); }
    AgentAnswer operator()(const kvo::StopViewerPreempt & /*command*/) { return stop("stop-viewer-preempt"); }
    AgentAnswer operator()(const kvo::StopViewerNoClean & /*command*/) { return stop("stop-viewer-noclean"); }
    AgentAnswer operator()(const kvo::ActivateMe & /*command*/) { return asked("activate-me", AgentAnswer::no); }  // busy
    AgentAnswer operator()(const kvo::SetStatusline &line)
    {
        return asked("set-statusline=" + line.argument, AgentAnswer::yes);
    }
    AgentAnswer operator()(const kvo::SetDarken &darken) { return asked("set-darken=" + darken.argument, AgentAnswer::failed); }

private:
    AgentAnswer stop(const std::string &command)
    {
        return asked(command, viewer_runs_.exchange(false) ? AgentAnswer::yes : AgentAnswer::no);  // no: it was not running
    }
    static AgentAnswer asked(const std::string &command, AgentAnswer answer)
    {
        std::cout << "asked: " << command << std::endl;
        return answer;
    }

    std::atomic<bool> viewer_runs_{true};
};

}  // namespace

int main()
{
    try {
        kvo::AgentOptions options;
        options.focus = kvo::Address("10.0.0.5");
        options.remote = kvo::Address("127.0.0.1");
        options.session = 3;
        options.kvo_index = 5;

        Host host;
        auto agent =
            kvo::Agent::start(options, [&](const kvo::AgentCommand &command) { return std::visit(host, command); }).value();
        for (std::string event; std::getline(std::cin, event);) {
            if (const auto sent = agent.send_event(event); !sent) {
                std::cout << "not sent: " << event << ": " << sent.error().reason() << std::endl;
            }
        }
        agent.close().value();  // before the host is destroyed
    } catch (const kvo::Exception &failure) {
        std::cerr << "the agent: " << failure.what() << '\n';
        return 1;
    }
}
