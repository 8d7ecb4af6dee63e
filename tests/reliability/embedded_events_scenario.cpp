// The scenario of embedded events, from their activation to their end.
#include "reliability/scenarios.h"

#include "reliability/fixtures.h"
#include "reliability/healthy_service.h"
#include "support/eventually.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include <atomic>
#include <chrono>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace reliability {

namespace {

class EmbeddedEvents : public Scenario {
public:
    void run(Run &run) override
    {
        received_ = 0;
        const int activated = run.step("activate", {1, -1}, [] { return KVO_HWS_activateEmbKvoEvents(callback); });
        if (activated != 1) {
            return;
        }
        const int first = listener_.accept(2000);
        const int second = first < 0 ? -1 : publishUntilReceived(first);
        run.note("callback called", received_ == 0 ? "no" : "yes");
        run.note("connections", first < 0 ? "0" : second < 0 ? "1" : "2");
        run.step("deactivate", {1, -1}, [] { return KVO_HWS_deactivateEmbKvoEvents(); });
        awaitEnd();
        for (const int connection : {first, second}) {
            if (connection >= 0) {
                close(connection);
            }
        }
        for (int unused = listener_.accept(0); unused >= 0; unused = listener_.accept(0)) {
            close(unused);
        }
    }

private:
    static void callback(const char *, const char *) { received_ = 1; }

    /// Publishes an event, again on a second connection if the first one is lost. Returns the second connection, or -1.
    int publishUntilReceived(int connection)
    {
        const auto publish = [](int to) {
            constexpr std::string_view kEvent = "panel, 10.0.0.5 on\n";
            send(to, kEvent.data(), kEvent.size(), MSG_NOSIGNAL);
        };
        publish(connection);
        int second = -1;
        support::eventually(
            [&] {
                if (received_ == 0 && second < 0) {
                    second = listener_.accept(0);
                    if (second >= 0) {
                        publish(second);
                    }
                }
                return received_ != 0;
            },
            3s);
        return second;
    }

    /// Waits until another listener can be activated.
    void awaitEnd()
    {
        const auto isFree = [] { return KVO_HWS_activateEmbKvoEvents(nullptr) == KVO_HWS_NULL_POINTER; };
        EXPECT_TRUE(support::eventually(isFree, 3s)) << "the listener does not end";
    }

    static inline std::atomic<int> received_{0};
    LocalListener listener_{"/tmp/kvo_hws/event_sock"};
};

}  // namespace

std::unique_ptr<Scenario> makeEmbeddedEvents() { return std::make_unique<EmbeddedEvents>(); }

}  // namespace reliability
