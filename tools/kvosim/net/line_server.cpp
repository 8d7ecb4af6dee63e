// The connections of a line server, each in one of four stages: reading its request, holding its reply back, writing it,
// lingering until the client has closed.
#include "kvosim/net/line_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace kvosim {

namespace {

// Clients look at 1024 bytes at a time and pause when they find less of an unfinished line: whole KiB spare them that.
constexpr std::size_t kPiece = std::size_t{32} * 1024;
// Holds several pieces, so that one is taken whole or not at all; the kernel grants what it allows.
constexpr int kSendBuffer = 1024 * 1024;
constexpr std::chrono::milliseconds kSweepInterval{50};
// Then those that are connected have their turn, and a flood of new ones takes nobody's place.
constexpr int kConnectionsAtOnce = 16;

bool wouldBlock() noexcept { return errno == EAGAIN || errno == EWOULDBLOCK; }

}  // namespace

LineServer::LineServer(EventLoop &loop, std::filesystem::path path, Answer answer, std::string refusal, Report report,
                       LineServerLimits limits, mode_t mode)
    : loop_(loop), answer_(std::move(answer)), refusal_(std::move(refusal)), report_(std::move(report)), limits_(limits)
{
    listener_.emplace(std::move(path), mode);
    loop_.watch(listener_->get(), EPOLLIN, [this](uint32_t) { acceptSome(); });
}

LineServer::~LineServer()
{
    for (const auto &[fd, connection] : connections_) {
        loop_.forget(fd);
    }
    if (listener_) {
        loop_.forget(listener_->get());
    }
}

void LineServer::end(std::function<void()> ended)
{
    if (ended_) {
        return;
    }
    ended_ = std::move(ended);
    // Gone before a client has read its last reply, so that it never finds a service that is about to end.
    loop_.forget(listener_->get());
    listener_.reset();
    // Later, as the request that is being answered may be the one that ends the service.
    after({}, [this] { dropAll([](const Connection &connection) { return connection.stage != Connection::Stage::writing; }); });
    after(limits_.endingTime, [this] { dropAll([](const Connection &) { return true; }); });
}

void LineServer::acceptSome()
{
    for (int accepted = 0; accepted < kConnectionsAtOnce; ++accepted) {
        tools::Descriptor socket(accept4(listener_->get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.valid()) {
            const bool outOfDescriptors = errno == EMFILE || errno == ENFILE;
            if (outOfDescriptors && !connections_.empty()) {
                dropQuietest();
                continue;
            }
            return;
        }
        if (connections_.size() >= limits_.connections) {
            dropQuietest();
        }
        const int fd = socket.get();
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
        const auto now = Clock::now();
        connections_.insert_or_assign(
            fd, Connection{.socket = std::move(socket), .number = ++accepted_, .since = now, .lastMoved = now});
        loop_.watch(fd, EPOLLIN, [this, fd](uint32_t events) { react(fd, events); });
        sweep();
    }
}

void LineServer::react(int fd, uint32_t events)
{
    const Place place = connections_.find(fd);
    if ((events & EPOLLERR) != 0) {
        drop(place, "the client vanished");
        return;
    }
    switch (place->second.stage) {
    case Connection::Stage::reading: read(place); break;
    case Connection::Stage::holding: drop(place, "the client closed before its reply was written"); break;
    case Connection::Stage::writing: write(place); break;
    case Connection::Stage::lingering: linger(place); break;
    }
}

void LineServer::read(Place place)
{
    Connection &connection = place->second;
    std::array<char, 4096> piece{};
    const ssize_t count = recv(connection.socket.get(), piece.data(), piece.size(), 0);
    if (count <= 0) {
        if (count == 0 || !wouldBlock()) {
            drop(place, connection.request.empty() ? "closed without a request" : "closed inside its request");
        }
        return;
    }
    connection.lastMoved = Clock::now();
    connection.request.append(piece.data(), static_cast<std::size_t>(count));

    const std::size_t end = connection.request.find('\n');
    if (std::min(end, connection.request.size()) > limits_.longestLine) {
        report("a request longer than " + std::to_string(limits_.longestLine) + " bytes is refused");
        reply(place, refusal_);
        return;
    }
    if (end == std::string::npos) {
        return;
    }
    std::string_view line(connection.request.data(), end);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    reply(place, answer_(line, Caller(*this, place->first, connection.number)));
}

void LineServer::reply(Place place, Reply reply)
{
    Connection &connection = place->second;
    if (reply.way == Reply::Way::close) {
        drop(place, "closed without a reply, on purpose");
        return;
    }
    connection.reply = std::move(reply.text);
    connection.reply += '\n';
    if (reply.way == Reply::Way::bytewise) {
        connection.pause = reply.pause;
    }
    connection.answeredLater = reply.way == Reply::Way::later;
    if (reply.way == Reply::Way::silence || connection.answeredLater) {
        connection.stage = Connection::Stage::holding;
        loop_.change(connection.socket.get(), 0);
    } else if (reply.delay.count() > 0) {
        hold(place, reply.delay, &LineServer::startWriting);
    } else {
        startWriting(place);
    }
}

void LineServer::startWriting(Place place)
{
    loop_.change(place->first, EPOLLOUT);
    write(place);
}

/// Waits for nothing but the client's end until the time is over; a client that has only closed its side may still read.
void LineServer::hold(Place place, std::chrono::milliseconds time, void (LineServer::*proceed)(Place place))
{
    place->second.stage = Connection::Stage::holding;
    loop_.change(place->first, 0);
    after(time, [this, proceed, fd = place->first, number = place->second.number] {
        const Place held = find(fd, number);
        if (held != connections_.end()) {
            (this->*proceed)(held);
        }
    });
}

/// The end where the connection has gone.
LineServer::Place LineServer::find(int fd, uint64_t number)
{
    const Place place = connections_.find(fd);
    return place != connections_.end() && place->second.number == number ? place : connections_.end();
}

bool LineServer::Caller::waits() const
{
    if (alive_.expired()) {
        return false;
    }
    const Place place = server_.find(fd_, number_);
    return place != server_.connections_.end() && place->second.answeredLater;
}

void LineServer::Caller::reply(Reply reply) const
{
    if (waits()) {
        server_.reply(server_.find(fd_, number_), std::move(reply));
    }
}

void LineServer::write(Place place)
{
    Connection &connection = place->second;
    connection.stage = Connection::Stage::writing;
    while (connection.written < connection.reply.size()) {
        const std::string_view left = std::string_view(connection.reply).substr(connection.written);
        const std::string_view piece = left.substr(0, connection.pause ? 1 : kPiece);
        const ssize_t count = send(connection.socket.get(), piece.data(), piece.size(), MSG_NOSIGNAL);
        if (count < 0) {
            if (!wouldBlock()) {
                drop(place, "the client vanished before its reply was written");
            }
            return;
        }
        connection.written += static_cast<std::size_t>(count);
        connection.lastMoved = Clock::now();
        if (connection.pause && connection.written < connection.reply.size()) {
            hold(place, *connection.pause, &LineServer::startWriting);
            return;
        }
    }
    shutdown(connection.socket.get(), SHUT_WR);
    connection.stage = Connection::Stage::lingering;
    loop_.change(connection.socket.get(), EPOLLIN);
    if (ended_) {
        drop(place, {});
        return;
    }
    linger(place);
}

/// Reads what the client still sends: a close with bytes unread would take the reply away from it.
void LineServer::linger(Place place)
{
    std::array<char, 4096> unwanted{};
    const ssize_t count = recv(place->second.socket.get(), unwanted.data(), unwanted.size(), 0);
    if (count == 0 || (count < 0 && !wouldBlock())) {
        drop(place, {});
    }
}

void LineServer::drop(Place place, std::string_view reason)
{
    if (!reason.empty()) {
        report(reason);
    }
    loop_.forget(place->first);
    connections_.erase(place);
    endIfDone();
}

void LineServer::dropQuietest()
{
    const Place quietest = std::min_element(connections_.begin(), connections_.end(), [](const auto &a, const auto &b) {
        return a.second.lastMoved < b.second.lastMoved;
    });
    drop(quietest, "dropped for a newer connection");
}

/// Drops what is overdue, now and for as long as there are connections.
void LineServer::sweep()
{
    if (sweeping_) {
        return;
    }
    dropAll([this, now = Clock::now()](const Connection &connection) { return overdue(connection, now); });
    if (connections_.empty()) {
        return;
    }
    sweeping_ = true;
    after(kSweepInterval, [this] {
        sweeping_ = false;
        sweep();
    });
}

void LineServer::dropAll(const std::function<bool(const Connection &)> &which)
{
    for (auto place = connections_.begin(); place != connections_.end();) {
        const auto next = std::next(place);
        if (which(place->second)) {
            drop(place, place->second.stage == Connection::Stage::lingering ? "" : "dropped unfinished");
        }
        place = next;
    }
    endIfDone();
}

/// As the loop's, but forgotten when the server has gone.
void LineServer::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    loop_.after(delay, [action = std::move(action), alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            action();
        }
    });
}

bool LineServer::overdue(const Connection &connection, Clock::time_point now) const
{
    if (connection.stage == Connection::Stage::holding) {
        return false;
    }
    if (connection.stage == Connection::Stage::lingering) {
        return now - connection.lastMoved > limits_.lingerTime;
    }
    return now - connection.lastMoved > limits_.quietTime ||
           (connection.stage == Connection::Stage::reading && now - connection.since > limits_.requestTime);
}

void LineServer::endIfDone()
{
    if (ended_ && connections_.empty()) {
        std::exchange(ended_, [] {})();
    }
}

void LineServer::report(std::string_view event) const
{
    if (report_) {
        report_(event);
    }
}

}  // namespace kvosim
