// Reads with edge-triggered events, so that a side that has closed does not keep the loop busy while the other side is slow.
#include "common/tap/link.h"

#include "common/tap/peer.h"
#include "common/tap/unix_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace tools::tap {

namespace {

constexpr std::size_t kChunk = 64UL * 1024;
constexpr std::size_t kMostKept = 16UL * 1024 * 1024;
constexpr std::size_t kLongestCommand = 64;
constexpr std::chrono::milliseconds kLongestRetryDelay{16};
/// Most connections are closed right after the reply. A time that no program notices would only make recordings longer.
constexpr std::chrono::milliseconds kShortestEndPause{1};
/// A program waits this long for the service. Then nothing reads the reply any more.
constexpr std::chrono::seconds kLongestWait{5};
constexpr uint32_t kIncoming = EPOLLIN | EPOLLRDHUP | EPOLLET;

std::size_t unreadBytes(int socket)
{
    int unread = 0;
    return ioctl(socket, FIONREAD, &unread) == 0 && unread > 0 ? static_cast<std::size_t>(unread) : 0;
}

bool wouldBlock() { return errno == EAGAIN || errno == EINTR; }

std::array<char, kChunk> &chunk()
{
    thread_local std::array<char, kChunk> buffer;
    return buffer;
}

}  // namespace

Link::Link(EventLoop &loop, Descriptor program, recording::Kind kind, Clock::time_point start, Callbacks callbacks)
    : loop_(loop), start_(start), callbacks_(std::move(callbacks)), peer_(peerOf(program.get()))
{
    program_.socket = std::move(program);
    program_.mayHaveBytes = true;  // most programs have sent their request by now
    exchange_.kind = kind;
    exchange_.at = elapsed();
    last_ = exchange_.at;
}

Link::~Link() { abandon(); }

void Link::begin()
{
    watch(program_, 0);
    connect();
}

void Link::abandon()
{
    if (!std::exchange(hasEnded_, true)) {
        exchange_.end = recording::End::open;
        exchange_.endPause = elapsed() - last_;
    }
    if (program_.socket.valid() && !server_.socket.valid()) {
        keepUnread();
    }
    for (Side *side : {&program_, &server_}) {
        if (side->socket.valid()) {
            loop_.unwatchClosing(side->socket.get());
            side->socket = Descriptor();
        }
    }
}

void Link::connect()
{
    const std::filesystem::path path = callbacks_.server();
    const sockaddr_un address = unixAddress(path);
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.valid() && ::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        server_.socket = std::move(socket);
        watch(server_, 0);
        pump();
        return;
    }
    // Without a tap, the program would wait for room in the server's queue too.
    if (errno == EAGAIN || errno == EMFILE || errno == ENFILE) {
        loop_.after(retryDelay_, [this, alive = std::weak_ptr(alive_)] {
            if (!alive.expired() && !hasEnded_) {
                connect();
            }
        });
        retryDelay_ = std::min(2 * retryDelay_, kLongestRetryDelay);
        settle();
        return;
    }
    callbacks_.onNoServer();
    finish(recording::End::closed);
}

void Link::watch(Side &side, uint32_t outgoing)
{
    loop_.watch(side.socket.get(), kIncoming | outgoing, [this, &side](uint32_t events) { react(side, events); });
}

void Link::react(Side &side, uint32_t events)
{
    side.mayHaveBytes = true;
    side.mayHaveEnded = side.mayHaveEnded || (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
    side.isClosed = side.isClosed || (events & (EPOLLHUP | EPOLLERR)) != 0;
    pump();
}

void Link::pump()
{
    if (hasEnded_) {
        return;
    }
    if (server_.socket.valid()) {
        flush(server_);
        flush(program_);
        readRequest();
        readReply();
    }
    settle();
}

void Link::readRequest()
{
    while (program_.mayHaveBytes && !program_.hasEnded && server_.unsent.empty() && !wasReset_) {
        if (held_ > 0 && !program_.mayHaveEnded && unreadBytes(program_.socket.get()) <= held_) {
            program_.mayHaveBytes = false;
            return;
        }
        consumeHeld();
        const ssize_t size = recv(program_.socket.get(), chunk().data(), chunk().size(), MSG_PEEK);
        if (size < 0 && wouldBlock()) {
            program_.mayHaveBytes = false;
            return;
        }
        if (size <= 0) {
            program_.hasEnded = true;
            program_.isClosed = program_.isClosed || size < 0;
            return;
        }
        const std::string_view bytes(chunk().data(), static_cast<std::size_t>(size));
        held_ = bytes.size();
        keep(exchange_.request, bytes);
        if (request_.size() <= kLongestCommand) {
            request_.append(bytes.substr(0, kLongestCommand));
            callbacks_.onRequest(request_);
        }
        passOn(server_, bytes);
        program_.mayHaveBytes = program_.mayHaveEnded || bytes.size() == chunk().size();
    }
}

void Link::readReply()
{
    while (server_.mayHaveBytes && !server_.hasEnded && program_.unsent.empty()) {
        const ssize_t size = recv(server_.socket.get(), chunk().data(), chunk().size(), 0);
        if (size < 0 && wouldBlock()) {
            server_.mayHaveBytes = false;
            return;
        }
        if (size <= 0) {
            server_.hasEnded = true;
            wasReset_ = size < 0;
            server_.isClosed = server_.isClosed || wasReset_;
            return;
        }
        consumeHeld();
        const std::string_view bytes(chunk().data(), static_cast<std::size_t>(size));
        if (callbacks_.onReply) {
            callbacks_.onReply(bytes);
        } else {
            keep(exchange_.reply, bytes);
        }
        passOn(program_, bytes);
        server_.mayHaveBytes = server_.mayHaveEnded || bytes.size() == chunk().size();
    }
}

void Link::consumeHeld()
{
    thread_local std::array<char, 4096> ignored;
    while (held_ > 0) {
        const ssize_t size = recv(program_.socket.get(), ignored.data(), std::min(held_, ignored.size()), 0);
        if (size <= 0) {
            held_ = 0;
            return;
        }
        held_ -= static_cast<std::size_t>(size);
    }
}

void Link::flush(Side &side)
{
    if (side.unsent.empty()) {
        return;
    }
    const std::string bytes = std::exchange(side.unsent, {});
    passOn(side, bytes);
    if (side.unsent.empty()) {
        side.awaitsRoom = false;
        loop_.setEvents(side.socket.get(), kIncoming);
    }
}

void Link::passOn(Side &to, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t size = send(to.socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (size >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno == EAGAIN) {
            to.unsent = bytes;
            // Only once: each change reports what is pending again, such as the end of the other direction.
            if (!std::exchange(to.awaitsRoom, true)) {
                loop_.setEvents(to.socket.get(), kIncoming | EPOLLOUT);
            }
            return;
        } else if (errno != EINTR) {
            return;  // it does not read any more; its own bytes may still come
        }
    }
}

void Link::passOnEnd(const Side &from, Side &to)
{
    if (from.hasEnded && to.unsent.empty() && !std::exchange(to.endPassedOn, true)) {
        shutdown(to.socket.get(), SHUT_WR);
    }
}

/// Ends the link when one side has closed and all of its bytes were passed on. Passes a half-close on.
void Link::settle()
{
    if (!server_.socket.valid()) {
        if (hasGivenUp()) {
            finish(recording::End::left);
        }
        return;
    }
    if (server_.hasEnded && server_.isClosed && program_.unsent.empty()) {
        finish(wasReset_ ? recording::End::reset : recording::End::closed);
        return;
    }
    if (program_.hasEnded && program_.isClosed && server_.unsent.empty()) {
        finish(server_.hasEnded ? recording::End::closed : recording::End::left);
        return;
    }
    exchange_.requestEnded = program_.hasEnded;
    passOnEnd(program_, server_);
    passOnEnd(server_, program_);
}

void Link::finish(recording::End end)
{
    if (!wasReset_) {
        consumeHeld();
    }
    exchange_.end = end;
    exchange_.endPause = elapsed() - last_;
    if (exchange_.endPause < kShortestEndPause) {
        exchange_.endPause = {};
    }
    hasEnded_ = true;
    abandon();
    callbacks_.onEnd(*this);
}

void Link::keep(std::vector<recording::Piece> &pieces, std::string_view bytes)
{
    const recording::Microseconds now = elapsed();
    if (!std::exchange(hasBytes_, true)) {
        exchange_.at = now;
        last_ = now;
    }
    if (kept_ + bytes.size() > kMostKept) {
        isCut_ = true;
        return;
    }
    kept_ += bytes.size();
    pieces.push_back({.pause = now - last_, .bytes = std::string(bytes)});
    last_ = now;
}

/// The server has not accepted the connection, so the request was not read. It is still what the program asked.
void Link::keepUnread()
{
    const ssize_t size = recv(program_.socket.get(), chunk().data(), chunk().size(), MSG_PEEK | MSG_DONTWAIT);
    if (size > 0) {
        exchange_.request.push_back({.pause = {}, .bytes = std::string(chunk().data(), static_cast<std::size_t>(size))});
    }
}

/// Whether the program has closed before the server accepted the connection, and has left no request.
bool Link::hasGivenUp() const
{
    return program_.isClosed && (unreadBytes(program_.socket.get()) == 0 || elapsed() - exchange_.at > kLongestWait);
}

recording::Microseconds Link::elapsed() const
{
    return std::chrono::duration_cast<recording::Microseconds>(Clock::now() - start_);
}

}  // namespace tools::tap
