#include "kvosim/replay/usb_sender.h"

#include "common/tap/unix_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>

namespace kvosim {

namespace {

using namespace std::chrono_literals;
using tools::recording::Piece;

constexpr Microseconds kLongestAnswerTime = 10s;
/// The program's queue of connections is short.
constexpr Microseconds kConnectPause = 10ms;
constexpr std::size_t kMostAttempts = 400;
constexpr std::size_t kLongestAnswer = 65536;

std::optional<std::string> firstLine(const std::string &bytes)
{
    const std::size_t end = bytes.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = bytes.substr(0, end);
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    return line;
}

/// How long the program may take for its answer. That time is not divided by the speed: it is the program's, not the service's.
Microseconds longestWaitFor(const Exchange &event)
{
    if (event.end == tools::recording::End::left && !answerOf(event)) {
        return event.endPause;
    }
    Microseconds recorded{};
    for (const Piece &piece : event.reply) {
        recorded += piece.pause;
    }
    return std::max(kLongestAnswerTime, 2 * recorded);
}

}  // namespace

std::optional<std::string> answerOf(const Exchange &event) { return firstLine(tools::recording::joined(event.reply)); }

UsbSender::UsbSender(tools::EventLoop &loop, const std::filesystem::path &socket, Exchange event, Speed speed, Done done)
    : loop_(loop), socket_(socket), event_(std::move(event)), speed_(speed), done_(std::move(done))
{
    after(0us, &UsbSender::connect);
}

UsbSender::~UsbSender()
{
    if (connection_.valid()) {
        loop_.unwatchClosing(connection_.get());
    }
}

void UsbSender::connect()
{
    const sockaddr_un address = tools::tap::unixAddress(socket_);
    tools::Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!connection.valid() || ::connect(connection.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const bool isBusy = errno == EAGAIN || errno == EMFILE || errno == ENFILE;
        if (isBusy && ++attempts_ < kMostAttempts) {
            after(kConnectPause, &UsbSender::connect);
        } else {
            finish();
        }
        return;
    }
    connection_ = std::move(connection);
    loop_.watch(connection_.get(), EPOLLIN, [this](uint32_t) { receive(); });
    sendPieces();
}

void UsbSender::sendPieces()
{
    const std::string &bytes = event_.request[nextPiece_].bytes;
    // An event has at most a few hundred bytes, which always fit into the socket's buffer.
    if (send(connection_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) {
        finish();
        return;
    }
    if (++nextPiece_ < event_.request.size()) {
        after(speed_.scaled(event_.request[nextPiece_].pause), &UsbSender::sendPieces);
        return;
    }
    if (event_.requestEnded) {
        shutdown(connection_.get(), SHUT_WR);
    }
    isSent_ = true;
    after(longestWaitFor(event_), &UsbSender::finish);
}

void UsbSender::receive()
{
    std::array<char, 4096> bytes{};
    const ssize_t size = recv(connection_.get(), bytes.data(), bytes.size(), 0);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    received_.append(bytes.data(), size < 0 ? 0 : static_cast<std::size_t>(size));
    if (size <= 0 || firstLine(received_) || received_.size() > kLongestAnswer) {
        finish();
    }
}

void UsbSender::finish()
{
    if (connection_.valid()) {
        loop_.unwatchClosing(connection_.get());
        connection_ = tools::Descriptor();
    }
    const Done done = std::move(done_);
    done({.isSent = isSent_, .answer = firstLine(received_)});
}

void UsbSender::after(Microseconds time, void (UsbSender::*step)())
{
    loop_.after(std::chrono::ceil<std::chrono::milliseconds>(time), [this, step, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            (this->*step)();
        }
    });
}

}  // namespace kvosim
