// Starts and stops the agent, and answers its commands as its host.
#include "kvoctl/agent/agent.h"

#include "common/station/readers.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>

#include <arpa/inet.h>
#include <atomic>
#include <utility>

namespace kvoctl {

namespace {

constexpr int kHostDone = 1;
constexpr int kHostNo = 0;
constexpr int kHostFailed = -1;

/// The exit status by which a program answers no; 0 means yes.
constexpr int kProgramNo = 1;

/// The state that the callback uses.
struct Shared {
    EventQueue<Event> commands{};
    AgentHost host{};
};

Event toEvent(const HostCommand &command)
{
    Event event{"command", {{"keyword", {command.keyword}}}};
    if (command.hasArgument) {
        event.fields.push_back({"argument", {command.argument}});
    }
    return event;
}

int answerByProgram(const EventProgram &program, const Event &command)
{
    const std::optional<int> status = program.run(command, kProgramNo);
    if (!status) {
        return kHostFailed;
    }
    return *status == kProgramNo ? kHostNo : kHostDone;
}

int answer(void * /*instance*/, const char *text)
{
    Shared &shared = neverDestroyed<Shared>();
    const HostCommand command(text);
    Event event = toEvent(command);
    const int answer =
        shared.host.program ? answerByProgram(*shared.host.program, event) : shared.host.answers.answerTo(command.keyword);
    event.fields.push_back({"answer", {answer}});
    shared.commands.put(std::move(event));
    return answer;
}

/// Reads a variable of the agent that the agent's thread writes.
template <class Variable>
Variable load(Variable &variable)
{
    return std::atomic_ref<Variable>(variable).load();
}

void setFocusName(const std::string &name) { gFocusName[name.copy(gFocusName, sizeof gFocusName - 1)] = '\0'; }

/// Sends the same request as the agent.
Result describe(const AgentOptions &options, KvoDescriptionEx &station)
{
    const uint32_t address = options.focusAddress.empty() ? 0 : inet_addr(options.focusAddress.c_str());
    return KVO_REQUEST(KVO_HWS_getDescriptionEx)(address, options.focusName.c_str(), &station);
}

}  // namespace

Agent::Agent(const AgentOptions &options, const AgentHost &host) : options_(options)
{
    neverDestroyed<Shared>().host = host;
    setFocusName(options.focusName);
    require(KVO_REQUEST(KVO_HWS_startupEmbHwsClient)(options.parameters().c_str(), &instance_, answer));
}

bool Agent::hasEnded() { return load(gEmbKvoInst->running) == 0; }

bool Agent::isConnected() { return load(gEmbKvoInst->session.socket) >= 0; }

std::vector<Event> Agent::takeCommands() { return neverDestroyed<Shared>().commands.take(); }

int Agent::descriptor() { return neverDestroyed<Shared>().commands.descriptor(); }

/// The library reports that the agent has ended, but not why. Sending the same requests again shows the reason.
void Agent::explainEnd()
{
    stop();
    const std::string subject = "cannot read the station in focus, " + options_.focus() + ": ";
    KvoDescriptionEx station{};
    const auto explain = [&subject](const Result &result) {
        if (result.code != KVO_HWS_OK) {
            const char *const hint =
                result.code == KVO_HWS_NO ? "; \"kvoctl stations\" lists the stations that the service knows" : "";
            throw Failure(result.code, subject + meaningOf(result) + hint);
        }
    };
    explain(describe(options_, station));
    explain(tools::unsizedText(KVO_REQUEST(KVO_HWS_getKVOT2M2N))(station.address).result);
    throw Failure(KVO_HWS_FAILED, subject + "the service did not answer in time, but answers now; try again");
}

std::string Agent::push(const std::string &text) const
{
    // The library reports success for a push without a connection.
    const bool wasConnected = isConnected();
    const Result result = KVO_REQUEST(KVO_HWS_sendEmbHwsEvent)(instance_, text.c_str());
    if (result.code != KVO_HWS_OK) {
        return meaningOf(result);
    }
    return wasConnected ? "" : "the agent is not connected at the moment";
}

bool Agent::stop()
{
    return instance_ == nullptr || KVO_HWS_cleanupEmbHwsClient(std::exchange(instance_, nullptr)) == KVO_HWS_OK;
}

}  // namespace kvoctl
