#include "service/socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

using namespace std::chrono_literals;

namespace kvo_hws {

namespace {

/// A path as a socket address. With AddressLength::path the length includes the family and the path without its terminator.
class LocalAddress {
public:
    explicit LocalAddress(std::string_view path, AddressLength length = AddressLength::path) noexcept
        : length_(length == AddressLength::whole ? socklen_t{sizeof(sockaddr_un)}
                                                 : static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size()))
    {
        address_.sun_family = AF_UNIX;
        std::memcpy(address_.sun_path, path.data(), path.size());
    }

    [[nodiscard]] const char *path() const noexcept { return address_.sun_path; }
    [[nodiscard]] const sockaddr *name() const noexcept { return reinterpret_cast<const sockaddr *>(&address_); }
    [[nodiscard]] socklen_t length() const noexcept { return length_; }

private:
    sockaddr_un address_{};
    socklen_t length_;
};

void setSendTimeout(const Descriptor &socket, std::chrono::microseconds timeout) noexcept
{
    const timeval time{.tv_sec = static_cast<time_t>(timeout.count() / 1'000'000),
                       .tv_usec = static_cast<suseconds_t>(timeout.count() % 1'000'000)};
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
}

/// The time of a clock that is cheap to read and has a resolution of a few milliseconds. Every request reads it, but uses the
/// value only after a signal.
std::chrono::microseconds coarseNow() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::microseconds(now.tv_nsec / 1000);
}

}  // namespace

Descriptor openLocalSocket() noexcept
{
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.valid()) {
        // Also limits connect, which would wait forever if the queue is full. The socket is blocking, because poll cannot wait
        // for the connect of a non-blocking Unix socket.
        setSendTimeout(socket, kPeerTimeout);
    }
    return socket;
}

bool connectLocal(const Descriptor &socket, std::string_view path, AddressLength length) noexcept
{
    const LocalAddress address(path, length);
    const auto deadline = coarseNow() + kPeerTimeout;
    while (connect(socket.get(), address.name(), address.length()) != 0) {
        if (errno != EINTR) {
            return false;
        }
        // After a signal the connect is tried again, but only for the rest of the four seconds.
        const auto left = deadline - coarseNow();
        if (left <= 0us) {
            errno = EAGAIN;
            return false;
        }
        setSendTimeout(socket, left);
    }
    return true;
}

bool bindLocal(const Descriptor &socket, std::string_view path) noexcept
{
    const LocalAddress address(path);
    unlink(address.path());
    return bind(socket.get(), address.name(), address.length()) == 0;
}

OutgoingLine::OutgoingLine(std::string_view text) noexcept : length_(text.size() + 1), line_(buffer_.data())
{
    if (length_ > buffer_.size()) {
        allocated_.reset(static_cast<char *>(std::malloc(length_)));
        line_ = allocated_.get();
    }
    if (line_ != nullptr) {
        std::memcpy(line_, text.data(), text.size());
        line_[text.size()] = '\n';
    }
}

bool OutgoingLine::write(const Descriptor &socket) const noexcept
{
    ssize_t written = 0;
    do {
        written = send(socket.get(), line_, length_, MSG_NOSIGNAL);
    } while (written < 0 && errno == EINTR);
    return written >= 0 && static_cast<std::size_t>(written) == length_;
}

int waitReadable(int fd, std::chrono::milliseconds timeout) noexcept
{
    int ready = 0;
    do {
        ready = pollReadable(fd, timeout);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

int pollReadable(int fd, std::chrono::milliseconds timeout) noexcept
{
    if (fd < 0) {
        // poll() ignores a negative descriptor; callers expect an error.
        errno = EBADF;
        return -1;
    }
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    const auto milliseconds = static_cast<int>(std::min<std::chrono::milliseconds::rep>(timeout.count(), INT_MAX));
    const int ready = poll(&waiting, 1, milliseconds);
    if (ready > 0 && (waiting.revents & POLLNVAL) != 0) {
        errno = EBADF;
        return -1;
    }
    return ready;
}

}  // namespace kvo_hws
