// The library's listener runs the user's program and leaves the rest to the main thread. That also finds out whether the
// listener is connected, which the library keeps to itself.
#include "kvoctl/live/embedded_event_session.h"

#include "kvoctl/live/attention.h"
#include "kvoctl/live/inbox.h"
#include "kvoctl/output/result.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>

using namespace std::chrono_literals;

namespace kvoctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kEventSocket = "/tmp/kvo_hws/event_sock";
constexpr auto kLookPeriod = 500ms;
/// The listener tries again each second.
constexpr auto kConnectPatience = 2s;

/// What the callback knows.
struct SharedEvents {
    Inbox<Event> inbox{};
    std::optional<EventProgram> program{};
};

void take(const char *name, const char *data)
{
    SharedEvents &here = lasting<SharedEvents>();
    const Event event{"", {{"name", {name}}, {"data", {data}}}};
    here.inbox.put(event);
    if (here.program) {
        // Nobody asks how it went; whoever watches reads it on standard error.
        static_cast<void>(here.program->run(event));
    }
}

/// Whether @p socket is one end of a connection to the event socket whose other end is still there: the library leaves lost
/// ones open.
bool isEventConnection(int socket)
{
    sockaddr_un peer{};
    socklen_t length = sizeof peer;
    pollfd state{.fd = socket, .events = 0, .revents = 0};
    return getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &length) == 0 && peer.sun_family == AF_UNIX &&
           std::string_view(peer.sun_path, strnlen(peer.sun_path, sizeof peer.sun_path)) == kEventSocket &&
           poll(&state, 1, 0) == 0;
}

bool isConnected()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::any_of(begin(all), end(all), [](const std::filesystem::directory_entry &entry) {
        return isEventConnection(std::stoi(entry.path().filename().string()));
    });
}

class EmbeddedEventSession {
public:
    EmbeddedEventSession(const EmbeddedEventPlan &plan, const StopSignals &signals) : plan_(plan), attention_(signals)
    {
        lasting<SharedEvents>().program = plan.program;
        require(KVO_REQUEST(KVO_HWS_activateEmbKvoEvents)(take));
    }
    EmbeddedEventSession(const EmbeddedEventSession &) = delete;
    EmbeddedEventSession &operator=(const EmbeddedEventSession &) = delete;

    void run()
    {
        while (!attention_.mustEnd()) {
            pollfd inbox{.fd = lasting<SharedEvents>().inbox.descriptor(), .events = POLLIN, .revents = 0};
            attention_.await({&inbox, 1}, kLookPeriod);
            tellEvents();
            tellConnection();
        }
        // What it says is of no interest: a listener without a service goes on trying until the process ends.
        static_cast<void>(KVO_HWS_deactivateEmbKvoEvents());
        tellEvents();
        attention_.drain();
        attention_.check();
    }

private:
    void tellEvents()
    {
        for (const Event &event : lasting<SharedEvents>().inbox.take()) {
            attention_.write(plan_.format(event));
        }
    }

    void tellConnection()
    {
        const auto now = Clock::now();
        if (isConnected()) {
            lastConnected_ = now;
            wasConnected_ = true;
            if (std::exchange(toldMissing_, false)) {
                complain("listening");
            }
        } else if (!toldMissing_ && now - lastConnected_ >= kConnectPatience) {
            toldMissing_ = true;
            complain("nothing listens at " + std::string(kEventSocket) +
                     (wasConnected_ ? " any more; waiting" : " yet; waiting"));
        }
    }

    void complain(const std::string &words) const { std::fprintf(stderr, "%s: %s\n", plan_.complaint.c_str(), words.c_str()); }

    const EmbeddedEventPlan &plan_;
    Attention attention_;
    Clock::time_point lastConnected_ = Clock::now();
    bool wasConnected_ = false;
    bool toldMissing_ = false;
};

}  // namespace

void watchEmbeddedEvents(const EmbeddedEventPlan &plan, const StopSignals &signals)
{
    EmbeddedEventSession(plan, signals).run();
}

}  // namespace kvoctl
