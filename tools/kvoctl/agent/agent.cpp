// Starts and stops the agent, and is its host.
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

/// Programs say yes by 0 and no by 1, as all programs do.
constexpr int kProgramNo = 1;

/// What the callback knows.
struct Shared {
    Inbox<Event> commands{};
    AgentHost host{};
};

Event shown(const HostCommand &command)
{
    Event event{"command", {{"keyword", {command.keyword}}}};
    if (command.hasArgument) {
        event.fields.push_back({"argument", {command.argument}});
    }
    return event;
}

int answerOf(const EventProgram &program, const Event &command)
{
    const std::optional<int> status = program.run(command, kProgramNo);
    if (!status) {
        return kHostFailed;
    }
    return *status == kProgramNo ? kHostNo : kHostDone;
}

int answer(void * /*instance*/, const char *text)
{
    Shared &here = lasting<Shared>();
    const HostCommand command(text);
    Event event = shown(command);
    const int said = here.host.program ? answerOf(*here.host.program, event) : here.host.answers.answerTo(command.keyword);
    event.fields.push_back({"answer", {said}});
    here.commands.put(std::move(event));
    return said;
}

/// A word of the agent's that its thread writes.
template <class Word>
Word current(Word &word)
{
    return std::atomic_ref<Word>(word).load();
}

void setFocusName(const std::string &name) { gFocusName[name.copy(gFocusName, sizeof gFocusName - 1)] = '\0'; }

/// As the agent asks for it.
Result describe(const AgentPlan &plan, KvoDescriptionEx &station)
{
    const uint32_t address = plan.focusAddress.empty() ? 0 : inet_addr(plan.focusAddress.c_str());
    return KVO_REQUEST(KVO_HWS_getDescriptionEx)(address, plan.focusName.c_str(), &station);
}

}  // namespace

Agent::Agent(const AgentPlan &plan, const AgentHost &host) : plan_(plan)
{
    lasting<Shared>().host = host;
    setFocusName(plan.focusName);
    require(KVO_REQUEST(KVO_HWS_startupEmbHwsClient)(plan.parameters().c_str(), &instance_, answer));
}

bool Agent::hasEnded() { return current(gEmbKvoInst->running) == 0; }

bool Agent::isConnected() { return current(gEmbKvoInst->session.socket) >= 0; }

std::vector<Event> Agent::takeCommands() { return lasting<Shared>().commands.take(); }

int Agent::descriptor() { return lasting<Shared>().commands.descriptor(); }

/// The library tells that it has ended, but not why; the same questions asked again do.
void Agent::explainEnd()
{
    stop();
    const std::string subject = "the station in focus, " + plan_.focus() + ", can not be read: ";
    KvoDescriptionEx station{};
    const auto explain = [&subject](const Result &result) {
        if (result.code != KVO_HWS_OK) {
            const char *const hint =
                result.code == KVO_HWS_NO ? "; \"kvoctl stations\" lists those that the service knows" : "";
            throw Failure(result.code, subject + words(result) + hint);
        }
    };
    explain(describe(plan_, station));
    explain(tools::unsizedText(KVO_REQUEST(KVO_HWS_getKVOT2M2N))(station.address).result);
    throw Failure(KVO_HWS_FAILED, subject + "the service did not answer in time, but does now; try again");
}

std::string Agent::push(const std::string &text) const
{
    // The library takes a push without a connection for one that is done.
    const bool wasConnected = isConnected();
    const Result result = KVO_REQUEST(KVO_HWS_sendEmbHwsEvent)(instance_, text.c_str());
    if (result.code != KVO_HWS_OK) {
        return words(result);
    }
    return wasConnected ? "" : "there is no connection at the moment";
}

bool Agent::stop()
{
    return instance_ == nullptr || KVO_HWS_cleanupEmbHwsClient(std::exchange(instance_, nullptr)) == KVO_HWS_OK;
}

}  // namespace kvoctl
