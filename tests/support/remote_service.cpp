#include "support/remote_service.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

namespace support {

namespace {
constexpr unsigned kFirstPort = 5850;
}

RemoteService::RemoteService(unsigned session) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(kFirstPort + session));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 || listen(listener_, 8) != 0) {
        throw std::runtime_error(std::string("cannot listen for the agent: ") + std::strerror(errno));
    }
}

RemoteService::~RemoteService()
{
    close();
    ::close(listener_);
}

bool RemoteService::accept(std::chrono::milliseconds within)
{
    pollfd waiting{.fd = listener_, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, static_cast<int>(within.count())) != 1) {
        return false;
    }
    close();
    connection_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    setsockopt(connection_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    received_.clear();
    closed_ = false;
    return connection_ >= 0;
}

void RemoteService::send(const std::string &bytes) const
{
    // Uses sendmsg: a test may have replaced the calls that the library uses.
    iovec all{const_cast<char *>(bytes.data()), bytes.size()};
    msghdr message{};
    message.msg_iov = &all;
    message.msg_iovlen = 1;
    sendmsg(connection_, &message, MSG_NOSIGNAL);
}

bool RemoteService::readMore(std::chrono::milliseconds within)
{
    pollfd waiting{.fd = connection_, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, static_cast<int>(within.count())) != 1) {
        return false;
    }
    char piece[4096];
    const ssize_t count = read(connection_, piece, sizeof piece);
    closed_ = count <= 0;
    received_.append(piece, closed_ ? 0 : static_cast<std::size_t>(count));
    return !closed_;
}

std::string RemoteService::line(std::chrono::milliseconds within)
{
    const auto deadline = std::chrono::steady_clock::now() + within;
    auto end = received_.find('\n');
    while (end == std::string::npos) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !readMore(left)) {
            return closed_ && received_.empty() ? "(closed)" : std::exchange(received_, {});
        }
        end = received_.find('\n');
    }
    std::string line = received_.substr(0, end + 1);
    received_.erase(0, end + 1);
    return line;
}

std::string RemoteService::ask(const std::string &request)
{
    send(request + "\r\n");
    std::string answer = line();
    if (answer.ends_with("\r\n")) {
        answer.resize(answer.size() - 2);
    }
    return answer;
}

std::string RemoteService::bytes(std::chrono::milliseconds within)
{
    const auto deadline = std::chrono::steady_clock::now() + within;
    for (auto now = std::chrono::steady_clock::now(); now < deadline && !closed_; now = std::chrono::steady_clock::now()) {
        readMore(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now) + std::chrono::milliseconds(1));
    }
    return std::exchange(received_, {});
}

void RemoteService::close(bool reset)
{
    if (connection_ < 0) {
        return;
    }
    if (reset) {
        const linger now{.l_onoff = 1, .l_linger = 0};
        setsockopt(connection_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }
    ::close(std::exchange(connection_, -1));
}

}  // namespace support
