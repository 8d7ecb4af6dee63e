// The library's listener thread only runs the user's program. The main thread does everything else, and finds out whether the
// listener is connected, which the library does not report.
#include "kvoctl/live/embedded_event_session.h"

#include "kvoctl/live/event_queue.h"
#include "kvoctl/live/poll_loop.h"
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
constexpr auto kCheckPeriod = 500ms;
/// The listener retries every second.
constexpr auto kReconnectTimeout = 2s;

/// The state that the callback uses.
struct SharedEvents {
    EventQueue<Event> queue{};
    std::optional<EventProgram> program{};
};

void handleEvent(const char *name, const char *data)
{
    SharedEvents &shared = neverDestroyed<SharedEvents>();
    const Event event{"", {{"name", {name}}, {"data", {data}}}};
    shared.queue.put(event);
    if (shared.program) {
        // The service does not need the result; the user sees errors on standard error.
        static_cast<void>(shared.program->run(event));
    }
}

/// Whether @p socket is a live connection to the event socket. The library leaves lost connections open.
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
    EmbeddedEventSession(const EmbeddedEventOptions &options, const StopSignals &signals) : options_(options), loop_(signals)
    {
        neverDestroyed<SharedEvents>().program = options.program;
        require(KVO_REQUEST(KVO_HWS_activateEmbKvoEvents)(handleEvent));
    }
    EmbeddedEventSession(const EmbeddedEventSession &) = delete;
    EmbeddedEventSession &operator=(const EmbeddedEventSession &) = delete;

    void run()
    {
        while (!loop_.mustEnd()) {
            pollfd queue{.fd = neverDestroyed<SharedEvents>().queue.descriptor(), .events = POLLIN, .revents = 0};
            loop_.wait({&queue, 1}, kCheckPeriod);
            showEvents();
            showConnection();
        }
        // The result does not matter: a listener without a service keeps retrying until the process ends.
        static_cast<void>(KVO_HWS_deactivateEmbKvoEvents());
        showEvents();
        loop_.drain();
        loop_.check();
    }

private:
    void showEvents()
    {
        for (const Event &event : neverDestroyed<SharedEvents>().queue.take()) {
            loop_.write(options_.format(event));
        }
    }

    void showConnection()
    {
        const auto now = Clock::now();
        if (isConnected()) {
            lastConnected_ = now;
            wasConnected_ = true;
            if (std::exchange(reportedMissing_, false)) {
                printError("listening");
            }
        } else if (!reportedMissing_ && now - lastConnected_ >= kReconnectTimeout) {
            reportedMissing_ = true;
            printError((wasConnected_ ? "no process listens any longer at " : "no process listens yet at ") +
                       std::string(kEventSocket) + "; waiting");
        }
    }

    void printError(const std::string &message) const
    {
        std::fprintf(stderr, "%s: %s\n", options_.messagePrefix.c_str(), message.c_str());
    }

    const EmbeddedEventOptions &options_;
    PollLoop loop_;
    Clock::time_point lastConnected_ = Clock::now();
    bool wasConnected_ = false;
    bool reportedMissing_ = false;
};

}  // namespace

void watchEmbeddedEvents(const EmbeddedEventOptions &options, const StopSignals &signals)
{
    EmbeddedEventSession(options, signals).run();
}

}  // namespace kvoctl
