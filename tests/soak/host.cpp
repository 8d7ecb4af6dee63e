#include "host.h"

#include "event_objects.h"
#include "loop_requests.h"
#include "requests.h"
#include "support/leak_suppressions.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include <array>
#include <cstdlib>
#include <string_view>

using namespace std::chrono_literals;

namespace soak {

namespace {

constexpr int kRequesters = 8;
constexpr int kLoops = 2;
constexpr int kPushers = 2;
constexpr uint32_t kBurst = 100;  // requests without a pause
constexpr auto kAgentLifeShortest = 60s;
constexpr auto kAgentLifeLongest = 180s;

/// For the callbacks, which have no context argument.
SharedState *gShared = nullptr;

// ---- Requests ----

void request(Worker &worker, const std::vector<uint32_t> &stations)
{
    const std::vector<RequestRow> &rows = requestRows();
    const std::size_t number = worker.random.below(static_cast<uint32_t>(rows.size()));
    const RequestRow &row = rows[number];
    int32_t result = 0;
    {
        const Call call(worker.watch, row.name.c_str());
        result = row.ask(worker, worker.random.oneOf(stations));
        raise(worker.figures().longestRequest, call.milliseconds());
    }
    worker.figures().requests[number].add(result);
    if (!contains(row.results, result)) {
        worker.complain(row.name + " returned " + std::to_string(result) + ", an undocumented result");
    }
    if (worker.random.oneIn(kBurst)) {
        worker.pause(0ms, 200ms);
    }
}

// ---- The agent ----

bool agentRuns() { return std::atomic_ref(gEmbKvoInst->running).load() != 0; }

int onCommand(void *instance, const char *)
{
    const uint64_t number = ++gShared->figures.agentCallbacks;
    if (number % 16 == 0) {
        std::this_thread::sleep_for(20ms);
    }
    if (number % 5 == 0) {
        gShared->figures.indications.add(KVO_HWS_sendEmbHwsEvent(instance, "from the callback"));
        KVO_HWS_isInitComplete();
    }
    return static_cast<int>(number % 3) - 1;
}

/// Runs one agent after the other, each for a minute or more: every start reads the configuration file and keeps some bytes.
class AgentRunner {
public:
    void step(Worker &worker)
    {
        if (!started_) {
            start(worker);
        } else if (!agentRuns() || Clock::now() > end_) {
            cleanUp(worker);
        }
        worker.pause(100ms, 500ms);
    }

    void cleanUp(Worker &worker)
    {
        if (!started_) {
            return;
        }
        {
            const Call call(worker.watch, "cleanupEmbHwsClient");
            worker.figures().agentCleanups.add(object_.isStarted() ? object_.close()
                                                                   : KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst));
        }
        started_ = false;
        // After the result -1, the agent ends when the service has answered its current request.
        const Call call(worker.watch, "the agent's end");
        while (agentRuns()) {
            std::this_thread::sleep_for(10ms);
        }
    }

private:
    void start(Worker &worker)
    {
        const Call call(worker.watch, "startupEmbHwsClient");
        const int result = worker.random.oneIn(2) ? object_.start(worker.shared) : startFlat();
        worker.figures().agentStarts.add(result);
        started_ = result == 1;
        end_ = Clock::now() + worker.random.between(kAgentLifeShortest, kAgentLifeLongest);
    }

    static int startFlat()
    {
        void *instance = nullptr;
        return KVO_HWS_startupEmbHwsClient(
            "focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\nremoteSession=3\nkvoIndex=5\nmcpFlag=1\n", &instance, onCommand);
    }

    AgentObject object_;
    bool started_ = false;
    Clock::time_point end_;
};

void push(Worker &worker)
{
    int result = 0;
    {
        const Call call(worker.watch, "sendEmbHwsEvent");
        result = KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, std::string(worker.random.below(200), 'i').c_str());
    }
    worker.figures().indications.add(result);
    if (result != 1 && result != -1) {
        worker.complain("sendEmbHwsEvent returned " + std::to_string(result));
    }
    worker.pause(5ms, 40ms);
}

// ---- The listener ----

/// An event has the name "n<number>" and the number as its data.
void onEvent(const char *name, const char *data)
{
    ++gShared->figures.eventsReceived;
    if (std::string_view(name) != "n" + std::string(data)) {
        gShared->complaints.add(std::string("received the event \"") + name + "\" with \"" + data + '"');
    }
}

void listenOnce(Worker &worker)
{
    if (worker.random.oneIn(2)) {
        useEmbeddedObject(worker, onEvent);
        return;
    }
    int result = 0;
    {
        const Call call(worker.watch, "activateEmbKvoEvents");
        result = KVO_HWS_activateEmbKvoEvents(onEvent);
    }
    worker.figures().listens.add(result);
    worker.pause(50ms, 1500ms);
    if (result == 1) {
        const Call call(worker.watch, "deactivateEmbKvoEvents");
        worker.figures().unlistens.add(KVO_HWS_deactivateEmbKvoEvents());
    }
}

}  // namespace

void runHost(SharedState &shared, uint64_t seed)
{
    gShared = &shared;
    const std::vector<uint32_t> stations = knownStations();
    if (stations.empty()) {
        shared.complaints.add("the service has no stations");
        return;
    }
    std::array<LoopRequests, kLoops> loops{LoopRequests(shared, stations), LoopRequests(shared, stations)};
    Workers workers(shared, kHost, seed);
    for (int i = 0; i < kRequesters; ++i) {
        workers.add("requests", [&stations](Worker &worker) { request(worker, stations); });
    }
    AgentRunner agent;
    workers.add(
        "agent", [&agent](Worker &worker) { agent.step(worker); },
        [&agent](Worker &worker) {
            agent.cleanUp(worker);
            // The system log uses a descriptor while it is open.
            KVO_HWS_deactivateDebugDLL();
            CloseLogMessages();
        });
    for (int i = 0; i < kPushers; ++i) {
        workers.add("indications", push);
    }
    workers.add("embedded events", listenOnce);
    for (LoopRequests &loop : loops) {
        workers.add(
            "loop", [&loop](Worker &worker) { loop.step(worker); }, [&loop](Worker &worker) { loop.cleanUp(worker); });
    }
    workers.measureCheckpoints();
}

}  // namespace soak
