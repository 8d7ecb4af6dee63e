// The connections of a line server. Each is in one of four stages: reading its request, waiting to send its reply, writing the
// reply, and lingering until the client closes.
#include "kvosim/net/line_server.h"

#include "kvosim/net/request_line.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace kvosim {

namespace {

// Clients read 1024 bytes at a time. They pause if they get less and the line is incomplete. Pieces of whole KiB avoid the
// pause.
constexpr std::size_t kPiece = std::size_t{32} * 1024;
// The buffer has space for several pieces, so a piece is written completely or not at all. The kernel may grant less.
constexpr int kSendBuffer = 1024 * 1024;
constexpr std::chrono::milliseconds kSweepInterval{50};
// After this many, existing connections are served, so a flood of new connections does not replace them.
constexpr int kMaxNewConnectionsAtOnce = 16;

bool wouldBlock() noexcept { return errno == EAGAIN || errno == EWOULDBLOCK; }

}  // namespace

LineServer::LineServer(tools::EventLoop &loop, std::filesystem::path path, Answer answer, std::string refusal, Report report,
                       LineServerLimits limits, mode_t mode)
    : loop_(loop), answer_(std::move(answer)), refusal_(std::move(refusal)), report_(std::move(report)), limits_(limits)
{
    listener_.emplace(std::move(path), mode);
    loop_.watch(listener_->get(), EPOLLIN, [this](uint32_t) { acceptSome(); });
}

LineServer::~LineServer()
{
    for (const auto &[fd, connection] : connections_) {
        loop_.unwatch(fd);
    }
    if (listener_) {
        loop_.unwatch(listener_->get());
    }
}

void LineServer::end(std::function<void()> ended)
{
    if (ended_) {
        return;
    }
    ended_ = std::move(ended);
    // Clients that have read their last reply must not connect again to a service that is about to end, so remove the socket
    // now.
    loop_.unwatch(listener_->get());
    listener_.reset();
    // Later, because this call may come from the request that ends the service, which still needs its reply.
    after({}, [this] { dropAll([](const Connection &connection) { return connection.stage != Connection::Stage::writing; }); });
    after(limits_.shutdownTimeout, [this] { dropAll([](const Connection &) { return true; }); });
}

void LineServer::acceptSome()
{
    for (int accepted = 0; accepted < kMaxNewConnectionsAtOnce; ++accepted) {
        tools::Descriptor socket(accept4(listener_->get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.valid()) {
            const bool outOfDescriptors = errno == EMFILE || errno == ENFILE;
            if (outOfDescriptors && !connections_.empty()) {
                dropLongestIdle();
                continue;
            }
            return;
        }
        if (connections_.size() >= limits_.connections) {
            dropLongestIdle();
        }
        const int fd = socket.get();
        setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
        const auto now = tools::Clock::now();
        connections_.insert_or_assign(
            fd, Connection{.socket = std::move(socket), .number = ++accepted_, .since = now, .lastTransfer = now});
        loop_.watch(fd, EPOLLIN, [this, fd](uint32_t events) { handleEvents(fd, events); });
        sweep();
    }
}

void LineServer::handleEvents(int fd, uint32_t events)
{
    const Iterator it = connections_.find(fd);
    if ((events & EPOLLERR) != 0) {
        drop(it, "the connection was lost");
        return;
    }
    switch (it->second.stage) {
    case Connection::Stage::reading: read(it); break;
    case Connection::Stage::waiting: drop(it, "the client closed before its reply was written"); break;
    case Connection::Stage::writing: proceed(it); break;
    case Connection::Stage::lingering: linger(it); break;
    }
}

void LineServer::read(Iterator it)
{
    Connection &connection = it->second;
    std::array<char, 4096> piece{};
    // The bytes stay in the socket for now: a client sees a reset only if the server closes with unread bytes.
    const ssize_t count = recv(connection.socket.get(), piece.data(), piece.size(), MSG_PEEK);
    if (count <= 0) {
        if (count == 0 || !wouldBlock()) {
            drop(it, connection.request.empty() ? "the client closed without a request"
                                                : "the client closed in the middle of its request");
        }
        return;
    }
    connection.unread = static_cast<std::size_t>(count);
    connection.lastTransfer = tools::Clock::now();
    connection.request.append(piece.data(), static_cast<std::size_t>(count));

    const RequestLine line = firstLine(connection.request, limits_.longestLine);
    switch (line.state) {
    case RequestLine::State::incomplete: consume(connection); break;
    case RequestLine::State::tooLong:
        report("a request longer than " + std::to_string(limits_.longestLine) + " bytes is refused");
        reply(it, refusal_);
        break;
    case RequestLine::State::complete: reply(it, answer_(line.text, Caller(*this, it->first, connection.number))); break;
    }
}

void LineServer::consume(Connection &connection)
{
    std::array<char, 4096> ignored{};
    recv(connection.socket.get(), ignored.data(), std::min(connection.unread, ignored.size()), 0);
    connection.unread = 0;
}

void LineServer::reply(Iterator it, Reply reply)
{
    Connection &connection = it->second;
    connection.answeredLater = reply.mode == Reply::Mode::later;
    plan(connection, std::move(reply));
    if (connection.end != ExactReply::End::reset) {
        consume(connection);
    }
    if (connection.answeredLater) {
        hold(it);
    } else {
        proceed(it);
    }
}

/// Divides a reply into parts.
void LineServer::plan(Connection &connection, Reply reply)
{
    using Mode = Reply::Mode;
    if (reply.mode == Mode::exact) {
        for (const ExactReply::Piece &piece : reply.exact.pieces) {
            connection.reply += piece.bytes;
            connection.parts.push_back({connection.reply.size(), piece.pause});
        }
        connection.end = reply.exact.end;
        connection.endPause = reply.exact.endPause;
    } else if (reply.mode == Mode::silence) {
        connection.end = ExactReply::End::silence;
    } else if (reply.mode == Mode::whole || reply.mode == Mode::bytewise) {
        connection.reply = std::move(reply.text);
        connection.reply += '\n';
        const std::size_t size = connection.reply.size();
        connection.parts.push_back({reply.mode == Mode::whole ? size : 1, reply.delay});
        while (connection.parts.back().end < size) {
            connection.parts.push_back({connection.parts.back().end + 1, reply.pause});
        }
    }
}

/// Sends the parts until one needs a pause or the client does not read.
void LineServer::proceed(Iterator it)
{
    while (write(it)) {
        const std::chrono::milliseconds pause = pauseBeforeNext(it->second);
        if (pause.count() > 0) {
            waitThen(it, pause, &LineServer::releaseNext);
            return;
        }
        if (!release(it)) {
            return;
        }
    }
}

/// The loop's timers count milliseconds. What a pause lacks to a whole one is added to the next pause.
std::chrono::milliseconds LineServer::pauseBeforeNext(Connection &connection)
{
    const bool isLast = connection.nextPart == connection.parts.size();
    connection.overdue += isLast ? connection.endPause : connection.parts[connection.nextPart].pause;
    const auto whole = std::chrono::floor<std::chrono::milliseconds>(connection.overdue);
    connection.overdue -= whole;
    return whole;
}

void LineServer::releaseNext(Iterator it)
{
    if (release(it)) {
        proceed(it);
    }
}

/// Allows the next part to be sent. Without a next part, ends the reply and returns false.
bool LineServer::release(Iterator it)
{
    Connection &connection = it->second;
    if (connection.nextPart == connection.parts.size()) {
        finish(it);
        return false;
    }
    connection.released = connection.parts[connection.nextPart++].end;
    connection.stage = Connection::Stage::writing;
    loop_.setEvents(it->first, EPOLLOUT);
    return true;
}

/// Keeps the connection open until the client closes it or a later reply comes.
void LineServer::hold(Iterator it)
{
    it->second.stage = Connection::Stage::waiting;
    loop_.setEvents(it->first, 0);
}

/// Waits for @p time, then calls @p next. If the client closes its connection meanwhile, drops it. A client that has shut
/// down only its sending side may still read.
void LineServer::waitThen(Iterator it, std::chrono::milliseconds time, void (LineServer::*next)(Iterator it))
{
    hold(it);
    after(time, [this, next, fd = it->first, number = it->second.number] {
        const Iterator held = find(fd, number);
        if (held != connections_.end()) {
            (this->*next)(held);
        }
    });
}

/// Returns the end iterator if the connection no longer exists.
LineServer::Iterator LineServer::find(int fd, uint64_t number)
{
    const Iterator it = connections_.find(fd);
    return it != connections_.end() && it->second.number == number ? it : connections_.end();
}

bool LineServer::Caller::isWaiting() const
{
    if (alive_.expired()) {
        return false;
    }
    const Iterator it = server_.find(fd_, number_);
    return it != server_.connections_.end() && it->second.answeredLater;
}

void LineServer::Caller::reply(Reply reply) const
{
    if (isWaiting()) {
        server_.reply(server_.find(fd_, number_), std::move(reply));
    }
}

/// Sends what was released. Returns whether the client has taken all of it.
bool LineServer::write(Iterator it)
{
    Connection &connection = it->second;
    while (connection.written < connection.released) {
        const std::size_t size = std::min(connection.released - connection.written, kPiece);
        const ssize_t count = send(connection.socket.get(), connection.reply.data() + connection.written, size, MSG_NOSIGNAL);
        if (count < 0) {
            if (!wouldBlock()) {
                drop(it, "the connection was lost before the reply was written");
            }
            return false;
        }
        connection.written += static_cast<std::size_t>(count);
        connection.lastTransfer = tools::Clock::now();
    }
    return true;
}

void LineServer::finish(Iterator it)
{
    Connection &connection = it->second;
    if (connection.end == ExactReply::End::silence) {
        hold(it);
        return;
    }
    if (connection.end == ExactReply::End::reset || connection.reply.empty()) {
        drop(it, connection.end == ExactReply::End::reset ? "reset intentionally" : "closed intentionally without a reply");
        return;
    }
    shutdown(connection.socket.get(), SHUT_WR);
    connection.stage = Connection::Stage::lingering;
    loop_.setEvents(connection.socket.get(), EPOLLIN);
    if (ended_) {
        drop(it, {});
        return;
    }
    linger(it);
}

/// Reads what the client still sends: if the server closed with unread bytes, the client would lose the reply.
void LineServer::linger(Iterator it)
{
    std::array<char, 4096> unwanted{};
    const ssize_t count = recv(it->second.socket.get(), unwanted.data(), unwanted.size(), 0);
    if (count == 0 || (count < 0 && !wouldBlock())) {
        drop(it, {});
    }
}

void LineServer::drop(Iterator it, std::string_view reason)
{
    if (!reason.empty()) {
        report(reason);
    }
    loop_.unwatch(it->first);
    connections_.erase(it);
    endIfDone();
}

void LineServer::dropLongestIdle()
{
    const Iterator longestIdle = std::min_element(connections_.begin(), connections_.end(), [](const auto &a, const auto &b) {
        return a.second.lastTransfer < b.second.lastTransfer;
    });
    drop(longestIdle, "dropped in favour of a newer connection");
}

/// Drops overdue connections, now and regularly while connections exist.
void LineServer::sweep()
{
    if (sweeping_) {
        return;
    }
    dropAll([this, now = tools::Clock::now()](const Connection &connection) { return isOverdue(connection, now); });
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
    for (auto it = connections_.begin(); it != connections_.end();) {
        const auto next = std::next(it);
        if (which(it->second)) {
            drop(it, it->second.stage == Connection::Stage::lingering ? "" : "dropped before it was complete");
        }
        it = next;
    }
    endIfDone();
}

/// Like tools::EventLoop::after, but does nothing if the server has been destroyed.
void LineServer::after(std::chrono::milliseconds delay, std::function<void()> action)
{
    loop_.after(delay, [action = std::move(action), alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            action();
        }
    });
}

bool LineServer::isOverdue(const Connection &connection, tools::Clock::time_point now) const
{
    if (connection.stage == Connection::Stage::waiting) {
        return false;
    }
    if (connection.stage == Connection::Stage::lingering) {
        return now - connection.lastTransfer > limits_.lingerTimeout;
    }
    return now - connection.lastTransfer > limits_.idleTimeout ||
           (connection.stage == Connection::Stage::reading && now - connection.since > limits_.requestTimeout);
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
