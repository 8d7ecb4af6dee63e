#include "service/socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace kvo_hws {

namespace {

constexpr std::size_t kUsualLine = 1028;  // every command and event text fits; only a caller's own commands may be longer

}  // namespace

Descriptor openLocalSocket() noexcept
{
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.valid()) {
        // A blocking connect to a full queue would wait for ever; a non-blocking one on a Unix socket cannot be waited for.
        const timeval bound{.tv_sec = kPeerTimeout.count(), .tv_usec = 0};
        setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
    }
    return socket;
}

bool connectLocal(const Descriptor &socket, std::string_view path) noexcept
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    // The family and the path without its terminator.
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const auto *const name = reinterpret_cast<const sockaddr *>(&address);

    if (connect(socket.get(), name, length) == 0) {
        return true;
    }
    // Signals must not turn a busy service into a missing one, nor a missing answer into an endless wait.
    const auto deadline = std::chrono::steady_clock::now() + kPeerTimeout;
    while (errno == EINTR && std::chrono::steady_clock::now() < deadline) {
        if (connect(socket.get(), name, length) == 0) {
            return true;
        }
    }
    return false;
}

bool writeLine(const Descriptor &socket, std::string_view text) noexcept
{
    std::array<char, kUsualLine> usual;
    HeapText unusual;
    char *line = usual.data();
    if (text.size() + 1 > usual.size()) {
        unusual.reset(static_cast<char *>(std::malloc(text.size() + 1)));
        line = unusual.get();
    }
    if (line == nullptr) {
        return false;
    }
    std::memcpy(line, text.data(), text.size());
    line[text.size()] = '\n';
    ssize_t written = 0;
    do {
        written = send(socket.get(), line, text.size() + 1, MSG_NOSIGNAL);
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(text.size() + 1);
}

int waitReadable(int fd, std::chrono::milliseconds timeout) noexcept
{
    if (fd < 0) {
        // poll() passes over a negative descriptor; callers expect to hear that it is none.
        errno = EBADF;
        return -1;
    }
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    const auto milliseconds = static_cast<int>(std::min<std::chrono::milliseconds::rep>(timeout.count(), INT_MAX));
    int ready = 0;
    do {
        ready = poll(&waiting, 1, milliseconds);
    } while (ready < 0 && errno == EINTR);
    if (ready > 0 && (waiting.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    return ready;
}

}  // namespace kvo_hws
