// What the agent, its configuration, the focused station, and the listener for events of embedded stations log.
#include "library/log_texts/collector.h"
#include "support/leak_suppressions.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <kvo_hws/kvo_hws.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/eventfd.h>
#include <thread>

namespace {

using log_texts::Collector;
using log_texts::kAll;
using log_texts::kMessagesOnly;
using support::ScriptedService;

void collectConfiguration(Collector &collector)
{
    collector.run("configuration", kAll, [] {
        char text[300];
        uint32_t word = 0;
        uint16_t port = 0;
        for (int round = 0; round < 2; ++round) {
            GetInterfaceIP(text, &word);
            GetPortNumber(&port);
            GetSessionNumber(&word);
            GetRHZName(text);
            GetBacklightMode(&word);
            GetBrightnessMode(&word);
            GetBacklightBrightnessMode(&word);
            GetRegistryPath(text);
            hws_keywords[0].defaultText = "none";
            hws_keywords[1].defaultText = "panel";
            ReadConfFile();
        }
    });
}

void collectFocusStation(Collector &collector)
{
    const std::string station =
        "0A000005 00000001 00000002 00000003 00000001 x 00000001 00000002 00000003 00000004 00000005 00000006 "
        "00000007 ";
    collector.run("station in focus", kMessagesOnly, [&] {
        gFocusKvoIp = 0x0500000A;
        init_fb();
        {
            const ScriptedService service({support::replies(station), support::replies("failed")});
            init_fb();
        }
        gFocusKvoIp = 0;
        std::strcpy(gFocusName, "panel");
        init_fb();
    });
}

/// Runs an agent for a scope.
class Agent {
public:
    Agent() { start(); }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;
    ~Agent() { KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst); }

    static void start()
    {
        void *instance = nullptr;
        KVO_HWS_startupEmbHwsClient("focusKvoIp=10.0.0.5\nremoteKvoHwsIp=127.0.0.1\n", &instance,
                                    [](void *, const char *) { return 1; });
    }
};

int32_t agentSocket() { return std::atomic_ref(gEmbKvoInst->session.socket).load(); }

void collectRefusedCalls()
{
    int other = 0;
    KVO_HWS_startupEmbHwsClient(nullptr, nullptr, nullptr);
    void *instance = nullptr;
    KVO_HWS_startupEmbHwsClient("", &instance, [](void *, const char *) { return 1; });
    KVO_HWS_cleanupEmbHwsClient(gEmbKvoInst);
    KVO_HWS_sendEmbHwsEvent(nullptr, "");
    KVO_HWS_sendEmbHwsEvent(&other, "");
    KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, nullptr);
    const support::WithSystemCalls calls{{.pthreadCreate = [] {
        errno = EAGAIN;
        return EAGAIN;
    }}};
    const Agent agent;
    KVO_HWS_cleanupEmbHwsClient(nullptr);
    KVO_HWS_cleanupEmbHwsClient(&other);
    Agent::start();
}

/// A connection that the remote side closes, and one whose poll fails.
void collectConnections()
{
    support::RemoteService remote;
    {
        const Agent agent;
        (void)remote.accept();
        (void)remote.ask("ping");
        remote.close();
        support::eventually([] { return agentSocket() < 0; });
    }
    {
        const Agent agent;
        (void)remote.accept();
        (void)remote.ask("ping");
        std::this_thread::sleep_for(std::chrono::milliseconds(1300));  // longer than one wait of the agent
    }
    std::atomic<int> failing{-1};
    const support::WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t, int) {
        if (descriptors->fd != failing) {
            return support::kPassThrough;
        }
        failing = -1;
        errno = ENOMEM;
        return -1;
    }}};
    const Agent agent;
    (void)remote.accept();
    (void)remote.ask("ping");
    failing = agentSocket();
    support::eventually([] { return agentSocket() < 0; });
}

/// Without a remote side: connects that fail, and a socket that is left open.
void collectFailedConnects()
{
    std::atomic<int> rounds{0};
    const support::WithSystemCalls calls{{.socket = [&](int domain) {
        if (domain != AF_INET || rounds++ != 0) {
            return support::kPassThrough;
        }
        errno = EMFILE;
        return -1;
    }}};
    const Agent agent;
    support::eventually([&] { return rounds == 2; });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::atomic_ref(gEmbKvoInst->session.socket).store(eventfd(0, EFD_CLOEXEC));
    support::eventually([] { return agentSocket() < 0; });
}

void collectAgent(Collector &collector)
{
    setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
    collector.run("agent", kMessagesOnly, collectRefusedCalls);
    const std::string station =
        "0500000A 00000001 00000002 00000003 00000001 x 00000001 00000002 00000003 00000004 00000005 00000006 "
        "00000007 ";
    const ScriptedService service({support::answersWith(
        [&](const std::string &request) { return request.starts_with("getExDescByIP") ? station : std::string("t2m2n"); })});
    collector.run("agent", kMessagesOnly, collectConnections);
    collector.run("agent", kMessagesOnly, collectFailedConnects);
}

void collectEventListener(Collector &collector)
{
    constexpr const char *kEvents = "/tmp/kvo_hws/event_sock";
    const auto activate = [] { KVO_HWS_activateEmbKvoEvents([](const char *, const char *) {}); };
    using Kind = support::Step::Kind;
    collector.run("embedded events", kMessagesOnly, [&] {
        {
            const ScriptedService service({{{.kind = Kind::write, .bytes = "Alive?\nname, data\nno comma\n"},
                                            {.kind = Kind::pause, .pause = std::chrono::milliseconds(1500)}}},
                                          kEvents);
            activate();
            std::this_thread::sleep_for(std::chrono::milliseconds(2000));
            KVO_HWS_deactivateEmbKvoEvents();
        }
        activate();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        KVO_HWS_deactivateEmbKvoEvents();  // during its pause between two connects
        KVO_HWS_deactivateEmbKvoEvents();
        const ScriptedService service({support::closesAtOnce()}, kEvents);
        support::eventually([&] { return KVO_HWS_activateEmbKvoEvents(nullptr) == -7; });
    });
}

TEST(LogTexts, of_the_configuration_are_as_listed)
{
    Collector collector;
    collectConfiguration(collector);
    collector.expectSeen("configuration");
}

TEST(LogTexts, of_the_station_in_focus_are_as_listed)
{
    Collector collector;
    collectFocusStation(collector);
    collector.expectSeen("focus_station");
}

TEST(LogTexts, of_the_agent_are_as_listed)
{
    Collector collector;
    collectAgent(collector);
    collector.expectSeen("agent");
}

TEST(LogTexts, of_the_embedded_events_are_as_listed)
{
    Collector collector;
    collectEventListener(collector);
    collector.expectSeen("embedded_events");
}

}  // namespace
