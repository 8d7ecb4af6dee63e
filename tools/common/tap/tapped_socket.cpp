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
constexpr std::size_t kMostLosses = 3;
constexpr std::chrono::seconds kLossPeriod{10};

bool isSocket(const std::filesystem::path &path)
{
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

/// Whether something listens at @p path. If so, sets @p peer to its process.
bool accepts(const std::filesystem::path &path, Peer &peer)
{
    const sockaddr_un address = unixAddress(path);
    const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    if (connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno == EACCES) {
            throw Refused("this user may not connect to " + path.string() +
                          "; run the tap as the user of the service or as root");
        }
        peer = {};
        return errno == EAGAIN;
    }
    peer = peerOf(probe.get());
    return true;
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
    if (needsRepair(path_)) {
        repair(path_);
    }
    const FileId file = fileAt(path_);
    const bool listens =
        isSocket(path_) && (kind_ == Server::service ? accepts(path_, peer_) : listeningAt(file) != Listening::no);
    if (!listens) {
        throw Refused("no service listens at " + path_.string() + "; start it first");
    }
    place_.emplace(path_);
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
    if (!isSocket(path_) || listeningAt(fileAt(path_)) == Listening::no) {
        return;
    }
    try {
        take();
    } catch (const std::exception &error) {
        callbacks_.onNote(error.what());
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
    const FileId file = fileAt(path_);
    if (!isSocket(path_)) {
        return;
    }
    Peer peer;
    const Listening listening = listeningAt(file);
    if (listening == Listening::no) {
        newcomer_ = {};
    }
    if (listening == Listening::no ||
        (listening == Listening::unknown && (kind_ != Server::service || !accepts(path_, peer)))) {
        return lookAgainSoon();
    }
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
    if (place_) {
        place_->giveBack();
    }
    acceptor_.reset();
    watch_.reset();
    place_.reset();
    newcomer_ = {};
}

void TappedSocket::giveBack()
{
    hasLeft_ = true;
    watch_.reset();
    if (place_) {
        place_->giveBack();
    }
}

void TappedSocket::close() { release(); }

std::filesystem::path TappedSocket::serverSocket() const { return place_ && !hasLeft_ ? place_->serviceSocket() : path_; }

}  // namespace tools::tap
