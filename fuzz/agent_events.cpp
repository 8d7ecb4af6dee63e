// Fuzzes the listener for the events of embedded stations: however the bytes are split, the host receives the same
// events as from a reference implementation. The listener runs on the fuzzer's thread.
#include "pieces.h"

#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/notifications.h"
#include "service/socket.h"

#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

struct Event {
    std::string name;
    std::string data;
    bool operator==(const Event &) const = default;
};

/// The service: sends its next piece whenever the listener waits, and closes after the last one.
struct Service {
    std::deque<std::string> pieces;
    int ownEnd = -1;          ///< the service's end of the latest connection
    std::vector<int> ends{};  ///< both ends of all connections: the listener leaves its ends open
    int connections = 0;

    void sendNext()
    {
        if (pieces.empty()) {
            shutdown(ownEnd, SHUT_WR);
            return;
        }
        const std::string piece = std::move(pieces.front());
        pieces.pop_front();
        if (send(ownEnd, piece.data(), piece.size(), MSG_NOSIGNAL | MSG_DONTWAIT) != static_cast<ssize_t>(piece.size())) {
            fuzz::fault("cannot send a piece");
        }
    }
};

Service service;
Notify worker;
void *(*listener)(void *record) = nullptr;  // its thread body
std::vector<Event> received;

bool readable(int fd)
{
    pollfd look{.fd = fd, .events = POLLIN, .revents = 0};
    return poll(&look, 1, 0) == 1;
}

void host(const char *name, const char *data)
{
    received.push_back({name, data});
    if (received.size() % 2 == 0) {
        throw std::runtime_error("the host throws");
    }
}

}  // namespace

// ---- Replacements of library functions: sockets connect to the service above, and no threads start ----

namespace kvo_hws {

Descriptor openLocalSocket() noexcept
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        fuzz::fault("cannot create a pair of sockets");
    }
    service.ownEnd = ends[1];
    service.ends.insert(service.ends.end(), {ends[0], ends[1]});
    return Descriptor(ends[0]);
}

/// The listener makes the second connection after everything has been sent; then it has to stop.
bool connectLocal(const Descriptor & /*socket*/, std::string_view /*path*/, AddressLength /*length*/) noexcept
{
    if (++service.connections == 2) {
        worker.uiState = NOTIFY_STOP_REQUESTED;
    }
    return true;
}

int pollReadable(int fd, std::chrono::milliseconds /*timeout*/) noexcept
{
    // Times out once before each piece, as on an idle connection.
    if (readable(fd)) {
        return 1;
    }
    service.sendNext();
    return 0;
}

int waitReadable(int fd, std::chrono::milliseconds /*timeout*/) noexcept
{
    if (!readable(fd)) {
        service.sendNext();
    }
    return 1;
}

int pause(std::chrono::milliseconds /*length*/) noexcept
{
    service.sendNext();
    return 0;
}

void requestStop(Notify & /*record*/) noexcept {}
void debugValues(const char * /*format*/, ...) noexcept {}

}  // namespace kvo_hws

void LOG(int /*priority*/, const char * /*format*/, ...) noexcept {}
void DEBUG(int /*priority*/, const char * /*format*/, ...) noexcept {}
int SendDLLDebugMessage(const char * /*text*/) noexcept { return 1; }
int kvo_hws_EnterCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_lock(section); }
int kvo_hws_LeaveCriticalSection(pthread_mutex_t *section) noexcept { return pthread_mutex_unlock(section); }
int kvo_hws_detach_thread() noexcept { return 1; }
int ActivateNotify() noexcept { return 0; }
void NotifyThread(pthread_t /*thread*/) noexcept {}
int WaitNotify(Notify * /*record*/, unsigned /*milliseconds*/) noexcept { return 0; }
int WaitShutdown(Notify * /*record*/, unsigned /*milliseconds*/) noexcept { return 1; }

int CreateNotify(Notify **record) noexcept
{
    worker = {};
    *record = &worker;
    return 0;
}

int DeleteNotify(Notify **record) noexcept
{
    *record = nullptr;
    return 0;
}

int kvo_hws_CreateThread(void *(*start)(void *), void * /*argument*/) noexcept
{
    listener = start;
    return 1;
}

namespace {

std::vector<Event> readReference(std::string_view bytes)
{
    constexpr std::size_t kLongestName = 19;
    std::vector<Event> events;
    for (std::size_t end = bytes.find('\n'); end != bytes.npos; end = bytes.find('\n')) {
        std::string line(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
        line.resize(line.find_last_not_of('\r') + 1);
        line = line.c_str();  // up to the first zero
        const std::size_t comma = line.find(',');
        if (line != "Alive?" && comma <= kLongestName) {
            events.push_back({line.substr(0, comma), line.size() < comma + 2 ? "" : line.substr(comma + 2)});
        }
    }
    return events;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    service = {.pieces = fuzz::piecesOf(data, size)};
    received.clear();
    const std::vector<Event> wanted = readReference(fuzz::joined(service.pieces));
    if (KVO_HWS_activateEmbKvoEvents(host) != 1) {
        fuzz::fault("cannot activate the listener");
    }
    listener(&worker);
    for (const int end : service.ends) {
        close(end);
    }
    if (received != wanted) {
        std::size_t first = 0;
        while (first < received.size() && first < wanted.size() && received[first] == wanted[first]) {
            ++first;
        }
        fuzz::fault("%zu events, in the reference %zu; event %zu differs", received.size(), wanted.size(), first);
    }
    return 0;
}
