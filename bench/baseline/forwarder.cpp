// The baseline of a tap: forwards connections with one thread and epoll, and keeps nothing.
#include "baseline.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace baseline {

namespace {

struct Connection;

/// One side of a connection.
struct Side {
    int fd = -1;
    bool hasEnded = false;
    std::string unsent{};  // bytes for this side that its socket does not take yet
    Side *other = nullptr;
    Connection *connection = nullptr;
};

struct Connection {
    Side program;
    Side service;
    std::string name;  // of the program
    bool isClosed = false;
};

sockaddr_un addressOf(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view(path).copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

std::string nameOfPeer(int fd)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return {};
    }
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/comm", peer.pid);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        return {};
    }
    char name[64];
    const ssize_t length = read(file, name, sizeof name);
    close(file);
    return length > 1 ? std::string(name, static_cast<std::size_t>(length) - 1) : std::string();
}

class Forwarder {
public:
    Forwarder(const char *path, const char *service) : service_(addressOf(service))
    {
        const sockaddr_un address = addressOf(path);
        bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        listen(listener_, SOMAXCONN);
        epoll_event event{.events = EPOLLIN, .data = {.ptr = nullptr}};
        epoll_ctl(poll_, EPOLL_CTL_ADD, listener_, &event);
    }

    void run()
    {
        std::array<epoll_event, 64> ready{};
        for (;;) {
            const int count = epoll_wait(poll_, ready.data(), ready.size(), -1);
            if (count < 0 && errno != EINTR) {
                return;
            }
            for (int i = 0; i < count; ++i) {
                handle(ready[static_cast<std::size_t>(i)]);
            }
            closed_.clear();
        }
    }

private:
    void handle(const epoll_event &event)
    {
        auto *const side = static_cast<Side *>(event.data.ptr);
        if (side == nullptr) {
            accept();
            return;
        }
        if (!side->connection->isClosed && (event.events & EPOLLOUT) != 0) {
            flush(*side);
        }
        if (!side->connection->isClosed && (event.events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
            read(*side, (event.events & (EPOLLHUP | EPOLLERR)) != 0);
        }
    }

    void accept()
    {
        const int program = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (program < 0) {
            return;
        }
        const int service = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (connect(service, reinterpret_cast<const sockaddr *>(&service_), sizeof service_) != 0) {
            close(service);
            close(program);
            return;
        }
        auto connection = std::make_unique<Connection>();
        connection->name = nameOfPeer(program);
        connection->program = {.fd = program, .other = &connection->service, .connection = connection.get()};
        connection->service = {.fd = service, .other = &connection->program, .connection = connection.get()};
        watch(EPOLL_CTL_ADD, connection->program, EPOLLIN);
        watch(EPOLL_CTL_ADD, connection->service, EPOLLIN);
        connections_.push_back(std::move(connection));
    }

    void watch(int operation, Side &side, uint32_t events) const
    {
        epoll_event event{.events = events, .data = {.ptr = &side}};
        epoll_ctl(poll_, operation, side.fd, &event);
    }

    /// @p isClosed  whether the side has closed its socket, so that everything it has sent can be read now
    void read(Side &from, bool isClosed)
    {
        do {
            const ssize_t length = recv(from.fd, buffer_.data(), buffer_.size(), 0);
            if (length < 0 && (errno == EAGAIN || errno == EINTR)) {
                return;
            }
            if (length <= 0) {
                end(from, isClosed);
                return;
            }
            send(*from.other, {buffer_.data(), static_cast<std::size_t>(length)});
        } while (isClosed && from.other->unsent.empty());
    }

    void end(Side &from, bool isClosed)
    {
        from.hasEnded = true;
        if (isClosed || from.other->hasEnded) {
            remove(*from.connection);
            return;
        }
        shutdown(from.other->fd, SHUT_WR);
        watch(EPOLL_CTL_MOD, from, 0);
    }

    /// Does not read from the other side while this one does not take its bytes.
    void send(Side &to, std::string_view bytes)
    {
        const ssize_t sent = ::send(to.fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN) {
            return;  // the reader has gone; the other direction may still be in use
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
        if (!bytes.empty()) {
            to.unsent = bytes;
            watch(EPOLL_CTL_MOD, to, (to.hasEnded ? 0U : EPOLLIN) | EPOLLOUT);
            watch(EPOLL_CTL_DEL, *to.other, 0);  // else it would be reported all the time when it has closed
        }
    }

    void flush(Side &to)
    {
        const std::string bytes = std::exchange(to.unsent, {});
        watch(EPOLL_CTL_MOD, to, to.hasEnded ? 0U : EPOLLIN);
        watch(EPOLL_CTL_ADD, *to.other, EPOLLIN);
        send(to, bytes);
    }

    void remove(Connection &connection)
    {
        close(connection.program.fd);
        close(connection.service.fd);
        connection.isClosed = true;
        const auto found = std::ranges::find(connections_, &connection, &std::unique_ptr<Connection>::get);
        closed_.push_back(std::move(*found));  // this round may have another event of it
        connections_.erase(found);
    }

    sockaddr_un service_;
    int poll_ = epoll_create1(EPOLL_CLOEXEC);
    int listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    std::array<char, 64 * 1024> buffer_{};
    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<std::unique_ptr<Connection>> closed_;
};

}  // namespace

void forward(const char *path, const char *service) { std::make_unique<Forwarder>(path, service)->run(); }

}  // namespace baseline
