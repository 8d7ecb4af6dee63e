#include "agent/line_writer.h"

#include <kvo_hws/runtime.h>

#include "agent/instance.h"
#include "runtime/owners.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>

using namespace std::chrono_literals;

pthread_mutex_t sGCriticalSectionEventSocket = PTHREAD_MUTEX_INITIALIZER;

namespace {

using kvo_hws::shared;

constexpr unsigned kIndications = 99;
constexpr auto kStallTime = 4s;  // the same as the timeout of local peers

// ---- The following code runs, and its variables are used, only with sGCriticalSectionEventSocket locked ----

unsigned indications = 0;

/// The socket for which TCP_NODELAY is set, so that a line is sent as soon as it is uncorked.
int noDelaySocket = -1;

void setOption(int socket, int option, int value) noexcept { setsockopt(socket, IPPROTO_TCP, option, &value, sizeof value); }

/// Waits until a socket accepts more bytes. Returns false after the timeout or if the agent must end: the remote side must not
/// block a caller forever.
bool waitWritable(int socket) noexcept
{
    pollfd waiting{.fd = socket, .events = POLLOUT, .revents = 0};
    const auto deadline = std::chrono::steady_clock::now() + kStallTime;  // signals must not shorten the wait
    while (std::chrono::steady_clock::now() < deadline) {
        const int ready = poll(&waiting, 1, static_cast<int>(kvo_hws::agent::kStopPeriod.count()));
        if (ready > 0) {
            return true;
        }
        if ((ready < 0 && errno != EINTR) || kvo_hws::agent::mustStop()) {
            return false;
        }
    }
    return false;
}

/// Returns false if the part could not be sent completely.
bool sendPart(int socket, std::string_view part) noexcept
{
    while (!part.empty()) {
        const ssize_t sent = send(socket, part.data(), part.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0) {
            part.remove_prefix(static_cast<std::size_t>(sent));
        } else if (errno == EAGAIN ? !waitWritable(socket) : errno != EINTR) {
            return false;
        }
    }
    return true;
}

/// A line that is written in parts. The socket is corked, so that the line is sent as one segment.
class Line {
public:
    explicit Line(int socket) noexcept : socket_(socket)
    {
        if (socket_ != noDelaySocket) {
            // Without TCP_NODELAY an uncorked line waits for the acknowledgement of the previous line.
            setOption(socket_, TCP_NODELAY, 1);
            noDelaySocket = socket_;
        }
        setOption(socket_, TCP_CORK, 1);
    }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;
    ~Line()
    {
        setOption(socket_, TCP_CORK, 0);
        if (!whole_) {
            // The next line must not continue a partial line: the thread that reads this socket finds it closed.
            shutdown(socket_, SHUT_RDWR);
        }
    }

    void part(std::string_view text) noexcept { whole_ = whole_ && sendPart(socket_, text); }

    /// Writes the parts; a null pointer ends the list.
    void parts(const char *first, va_list others) noexcept
    {
        for (const char *text = first; text != nullptr; text = va_arg(others, const char *)) {
            part(text);
        }
    }

private:
    int socket_;
    bool whole_ = true;
};

using Prefix = std::array<char, 4>;

/// "I", the number as two digits, and a colon. Formatted without snprintf, because other writers wait meanwhile.
Prefix nextPrefix() noexcept
{
    indications = indications >= kIndications ? 1 : indications + 1;
    return {'I', static_cast<char>('0' + indications / 10), static_cast<char>('0' + indications % 10), ':'};
}

std::string_view textOf(const Prefix &prefix) noexcept { return {prefix.data(), prefix.size()}; }

bool mayIndicate() noexcept { return shared(protocolNegotiated).load() != 0; }

/// Locks the socket for a writer and disables cancellation.
class Writing {
    const kvo_hws::NoCancellation wholeLine_;
    const kvo_hws::Lock lock_{sGCriticalSectionEventSocket};
};

}  // namespace

void hmiconn_reply(int socket, const char *tag, const char *text, ...) noexcept
{
    const Writing writing;
    va_list others;
    va_start(others, text);
    {
        Line line(socket);
        if (tag != nullptr) {
            line.part(tag);
        }
        line.parts(text, others);
    }
    va_end(others);
}

int hmiconn_indication(int socket, const char *text, ...) noexcept
{
    const Writing writing;
    if (!mayIndicate()) {
        return -1;
    }
    va_list others;
    va_start(others, text);
    {
        Line line(socket);
        line.part(textOf(nextPrefix()));
        line.parts(text, others);
    }
    va_end(others);
    return 1;
}

int kvo_hws::agent::pushIndication(HmiSession &session, const char *text) noexcept
{
    const std::string_view event = text;
    const Writing writing;
    // The state and the socket are checked under the lock: a clean-up may have run while this thread waited, and the
    // descriptor may have been reused.
    if (!mayIndicate()) {
        return -1;
    }
    const Prefix prefix = nextPrefix();
    if (const int socket = socketOf(session); socket >= 0) {
        Line line(socket);
        line.part(textOf(prefix));
        line.part(event);
        line.part("\r\n");
    }
    return 1;
}

void kvo_hws::agent::closeSocket(HmiSession &session) noexcept
{
    const Writing writing;
    const Descriptor closed(shared(session.socket).exchange(-1));
}

void kvo_hws::agent::openSocket(HmiSession &session, int socket) noexcept
{
    const Writing writing;
    noDelaySocket = -1;  // the new socket may have the number of an old one
    shared(session.socket).store(socket);
}
