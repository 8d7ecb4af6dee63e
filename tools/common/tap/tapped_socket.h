// The socket of a server with a tap in its place. Follows the server: gives the place up when the server ends, and takes it again
// when the server has started again.
#pragma once

#include "common/acceptor.h"
#include "common/tap/observer.h"
#include "common/tap/server_watch.h"
#include "common/tap/socket_place.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tools::tap {

class TappedSocket {
public:
    struct Callbacks {
        std::function<void(Descriptor connection)> onConnection;
        std::function<void(const std::string &text)> onNote;
        /// The server has taken its place back so often that the tap leaves it alone now.
        std::function<void(const std::string &reason)> onGivenUp;
    };

    /// Who listens at the socket, and how the tap may find out.
    enum class Server {
        service,    ///< the service accepts connections that ask nothing: the tap makes one to learn which process it is
        usbEvents,  ///< the program that receives USB events; a connection would be an event to it, so the tap makes none
    };

    TappedSocket(EventLoop &loop, std::filesystem::path path, Server server, Callbacks callbacks);
    TappedSocket(const TappedSocket &) = delete;
    TappedSocket &operator=(const TappedSocket &) = delete;
    ~TappedSocket();

    /// Takes the place now. Throws Refused if no server listens, or as SocketPlace does.
    void take();
    /// Takes the place now, if a server listens and another socket has the place. A failure becomes a note.
    void takeAgain();
    /// Looks whether the server has ended, has started again, or has taken its place back.
    void look();
    /// The server does not accept connections any more.
    void serverEnded();
    /// Gives the place back for good. Connections that wait there are still accepted until close().
    void giveBack();
    void close();

    [[nodiscard]] bool isTaken() const { return place_ && place_->isTaken(); }
    /// Where the server can be reached.
    [[nodiscard]] std::filesystem::path serverSocket() const;
    /// The server's process; unknown for Server::usbEvents.
    [[nodiscard]] const Peer &server() const noexcept { return peer_; }

private:
    void repairFirst() const;
    void take(SocketPlace::Wait wait);
    void putBack();
    void release();
    void placeLost();
    void lookAgainSoon();

    EventLoop &loop_;
    std::filesystem::path path_;
    Server kind_;
    Callbacks callbacks_;
    Peer peer_;
    std::optional<SocketPlace> place_;
    std::optional<Acceptor> acceptor_;
    std::optional<ServerWatch> watch_;
    FileId newcomer_;  // a server's socket that was first seen listening at newcomerSince_
    Clock::time_point newcomerSince_;
    std::vector<Clock::time_point> losses_;
    std::string failure_;  // the latest note about a place that could not be taken
    Clock::time_point notBefore_{};
    bool hasLeft_ = false;  // the tap does not take the place any more
    bool looksSoon_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools::tap
