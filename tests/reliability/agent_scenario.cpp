// The scenario of the agent, from its start to its cleanup.
#include "reliability/scenarios.h"

#include "reliability/fixtures.h"
#include "reliability/healthy_service.h"
#include "support/eventually.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/config.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>

using namespace std::chrono_literals;

namespace reliability {

namespace {

bool agentRuns() { return std::atomic_ref(gEmbKvoInst->running).load() != 0; }

int hostCallback(void *, const char *) { return 1; }

class Agent : public Scenario {
public:
    Agent()
    {
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        setenv("KVO_PLATFORM_CONFIG", "/tmp/kvo_hws/none.conf", 1);
        hws_keywords[0].defaultText = "lo";
    }

    void run(Run &run) override
    {
        void *instance = nullptr;
        const int started = run.step("start", {1, -1, -9}, [&] {
            return KVO_HWS_startupEmbHwsClient("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\nremoteSession=3\n", &instance,
                                               hostCallback);
        });
        if (started == 1) {
            connections_ = 0;
            const bool connected = accept();
            run.note("connected", connected ? "yes" : "no");
            if (connected) {
                exchange(run, instance);
            }
        }
        run.step("clean-up", {1, -7}, [&] { return KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst); });
        reset();
    }

private:
    void exchange(Run &run, void *instance)
    {
        for (const char *request : {"001:ping", "stop-viewer", "get-rv4mode"}) {
            run.note(request, ask(request));
        }
        support::eventually([] { return std::atomic_ref(protocolNegotiated).load() != 0; }, 5s);
        run.step("push", {1, -1}, [&] { return KVO_HWS_sendEmbHwsEvent(instance, "event"); });
        const std::string line = remote_.line(1s);  // the kernel sends a corked line after 200 ms at the latest
        run.note("indication",
                 line.size() == 11 && line.starts_with("I") && line.ends_with(":event\r\n") ? "complete" : "none");
        if (!line.ends_with('\n') && accept()) {
            ask("001:ping");  // so the cleanup begins while the agent is serving
        }
        run.note("connections", std::to_string(connections_));
    }

    /// Waits for a connection while the agent is running.
    bool accept()
    {
        bool accepted = false;
        support::eventually(
            [&] {
                accepted = remote_.accept(1ms);
                return accepted || !agentRuns();
            },
            2s);
        connections_ += accepted ? 1 : 0;
        return accepted;
    }

    /// Returns the reply. Repeats the request on each new connection.
    std::string ask(const char *request)
    {
        constexpr int kMost = 3;
        for (int attempt = 0; attempt < kMost; ++attempt) {
            const std::string answer = remote_.ask(request);
            const bool lost = answer == "(closed)" || (attempt == 0 && answer.empty());
            if (!lost || !accept()) {
                return answer;
            }
        }
        return "none";
    }

    /// Closes connections and clears the configuration, so they do not affect the next run.
    void reset()
    {
        while (remote_.accept(0ms)) {
        }
        remote_.close();
        std::free(sConfData.interface);
        std::free(sConfData.name);
        sConfData = {};
    }

    int connections_ = 0;
    HealthyService service_{support::kCommandSocket, answerTo};
    support::RemoteService remote_{3};
};

}  // namespace

std::unique_ptr<Scenario> makeAgent() { return std::make_unique<Agent>(); }

}  // namespace reliability
