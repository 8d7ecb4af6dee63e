// Decides when the tap may have the place of a socket.
#include "common/tap/tapped_socket.h"

#include "common/refused.h"
#include "common/tap/listening.h"
#include "common/tap/peer.h"
#include "common/tap/unix_address.h"

#include <algorithm>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>

namespace tools::tap {

namespace {

/// A server that has just started may still examine its own file.
constexpr std::chrono::milliseconds kSettlingTime{50};
constexpr std::chrono::milliseconds kSoon{20};
constexpr std::chrono::seconds kRetryPause{1};
constexpr int kMostAttempts = 10;
constexpr std::size_t kMostLosses = 3;
constexpr std::chrono::seconds kLossPeriod{10};

bool isSocket(const std::filesystem::path &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

/// The process that listens at @p path. Throws Refused if there is none, or if this user may not connect.
Peer serverAt(const std::filesystem::path &path)
{
    const sockaddr_un address = unixAddress(path);
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        return peerOf(probe.get());
    }
    switch (errno) {
    case EAGAIN: return {};  // its queue is full
    case EACCES:
        throw Refused("this user may not connect to " + path.string() + "; run the tap as the user of the service or as root");
    default: throw Refused("no service listens at " + path.string() + "; start it first");
    }
}

std::string described(const Peer &peer)
{
    if (peer.pid == 0) {
        return "";
    }
    return " (" + (peer.name.empty() ? "" : peer.name + ", ") + "process " + std::to_string(peer.pid) + ")";
}

}  // namespace

TappedSocket::TappedSocket(EventLoop &loop, std::filesystem::path path, Server server, Callbacks callbacks)
    : loop_(loop), path_(std::move(path)), kind_(server), callbacks_(std::move(callbacks))
{
}

TappedSocket::~TappedSocket() = default;

void TappedSocket::take()
{
    repairFirst();
    take(SocketPlace::Wait::yes);
}

/// A tap that was killed may have left its own socket at the path, at which nothing listens.
void TappedSocket::repairFirst() const
{
    if (needsRepair(path_)) {
        repair(path_);
    }
}

void TappedSocket::take(SocketPlace::Wait wait)
{
    FileId file;
    // The place may change hands before the tap has it: the service starts again, or another tap ends.
    for (int attempt = 0; !place_; ++attempt) {
        file = fileAt(path_);
        if (kind_ == Server::service) {
            peer_ = serverAt(path_);
        }
        place_.emplace(path_, wait);
        if (fileAt(place_->serviceSocket()) != file) {
            place_.reset();
            if (attempt == kMostAttempts) {
                throw Refused("the socket at " + path_.string() + " changes again and again; try again later");
            }
        }
    }
    watch_.emplace(loop_, file, static_cast<pid_t>(peer_.pid), [this] { serverEnded(); });
    acceptor_.emplace(loop_, place_->listener(),
                      [this](Descriptor connection) { callbacks_.onConnection(std::move(connection)); });
}

void TappedSocket::takeAgain()
{
    if (hasLeft_ || isTaken()) {
        return;
    }
    release();
    try {
        repairFirst();
        if (!isSocket(path_) || !isServed(path_)) {
            return;
        }
        take(SocketPlace::Wait::no);
        failure_.clear();
    } catch (const std::exception &error) {
        // Each attempt changes the folder, which calls look().
        notBefore_ = Clock::now() + kRetryPause;
        if (std::exchange(failure_, error.what()) != error.what()) {
            callbacks_.onNote(error.what());
        }
    }
}

void TappedSocket::look()
{
    if (hasLeft_ || isTaken()) {
        return;
    }
    if (place_) {
        placeLost();
        if (hasLeft_) {
            return;
        }
    }
    if (Clock::now() < notBefore_ || !isSocket(path_)) {
        return;
    }
    if (!isServed(path_)) {
        newcomer_ = {};
        return lookAgainSoon();
    }
    const FileId file = fileAt(path_);
    if (file != newcomer_) {
        newcomer_ = file;
        newcomerSince_ = Clock::now();
    }
    if (Clock::now() - newcomerSince_ < kSettlingTime) {
        return lookAgainSoon();
    }
    takeAgain();
    if (isTaken() && kind_ == Server::service) {
        callbacks_.onNote("The service runs again" + described(peer_) + ".");
    }
}

void TappedSocket::lookAgainSoon()
{
    if (std::exchange(looksSoon_, true)) {
        return;
    }
    loop_.after(kSoon, [this, alive = std::weak_ptr(alive_)] {
        if (!alive.expired()) {
            looksSoon_ = false;
            look();
        }
    });
}

void TappedSocket::placeLost()
{
    release();
    if (kind_ != Server::service) {
        return;  // a program that takes the events over
    }
    const auto now = Clock::now();
    losses_.push_back(now);
    std::erase_if(losses_, [now](Clock::time_point loss) { return now - loss > kLossPeriod; });
    if (losses_.size() >= kMostLosses) {
        hasLeft_ = true;
        callbacks_.onGivenUp("the service has taken its place at " + path_.string() + " back " + std::to_string(kMostLosses) +
                             " times within " + std::to_string(kLossPeriod.count()) +
                             " s; use \"kvoctl trace -- PROGRAM\" instead, which leaves that place alone");
    }
}

void TappedSocket::serverEnded()
{
    if (hasLeft_ || !place_) {
        return;
    }
    release();
    if (kind_ == Server::service) {
        callbacks_.onNote("The service" + described(peer_) + " has ended.");
    }
    look();
}

/// From now on, programs find what the server has left at the path. Connections that wait for the tap are closed.
void TappedSocket::release()
{
    putBack();
    acceptor_.reset();
    watch_.reset();
    place_.reset();
    newcomer_ = {};
}

void TappedSocket::giveBack()
{
    hasLeft_ = true;
    watch_.reset();
    putBack();
}

void TappedSocket::putBack()
{
    if (place_ && !place_->giveBack()) {
        callbacks_.onNote("The service's socket could not be put back at " + path_.string() +
                          "; use \"kvoctl trace --repair\".");
    }
}

void TappedSocket::close() { release(); }

std::filesystem::path TappedSocket::serverSocket() const { return place_ && !hasLeft_ ? place_->serviceSocket() : path_; }

}  // namespace tools::tap
