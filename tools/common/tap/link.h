// One connection that passes through a tap: from a program to a server, such as the service.
#pragma once

#include "common/descriptor.h"
#include "common/event_loop.h"
#include "common/tap/observer.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tools::tap {

/// Passes bytes, half-closes and ends on as they come. The program's latest bytes stay in its socket until the server replies: if the
/// server closes its connection without reading them, the program learns of that in the same way as without a tap.
class Link {
public:
    struct Callbacks {
        /// Where the server's socket is now.
        std::function<std::filesystem::path()> server;
        /// The server does not accept connections any more.
        std::function<void()> onNoServer;
        /// The request so far. Its latest bytes are passed on when this returns.
        std::function<void(std::string_view request)> onRequest;
        /// Takes the bytes of the reply. If it is empty, the exchange keeps them.
        std::function<void(std::string_view bytes)> onReply;
        /// Both connections are closed. May destroy the link later, but not in this call.
        std::function<void(Link &link)> onEnd;
    };

    /// @p program  the connection of the program, not blocking
    Link(EventLoop &loop, Descriptor program, recording::Kind kind, Clock::time_point start, Callbacks callbacks);
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;
    ~Link();

    /// Connects to the server. Call it once, after the constructor.
    void begin();
    /// Closes both connections at once.
    void abandon();

    [[nodiscard]] const Peer &peer() const noexcept { return peer_; }
    /// What has passed so far.
    [[nodiscard]] recording::Exchange takeExchange() { return std::move(exchange_); }
    /// Whether a request or a reply is under way, or the program waits for the server to accept its connection.
    [[nodiscard]] bool isBusy() const noexcept { return !hasEnded_ && (hasBytes_ || !server_.socket.valid()); }
    /// Whether bytes were not kept for the report, because the exchange is too long.
    [[nodiscard]] bool isCut() const noexcept { return isCut_; }

private:
    /// One side of the link.
    struct Side {
        Descriptor socket{};
        std::string unsent{};       // bytes from the other side that this one does not take yet
        bool mayHaveBytes = false;  // something has come since it was last read
        bool awaitsRoom = false;    // the loop reports when it takes more bytes
        bool mayHaveEnded = false;  // it has shut down its direction or has closed
        bool isClosed = false;      // it has closed
        bool hasEnded = false;      // its last byte has been read
        bool endPassedOn = false;   // the other side's end was passed on to this one
    };

    void connect();
    void reach();
    void watch(Side &side, uint32_t outgoing);
    void react(Side &side, uint32_t events);
    void pump();
    void readRequest();
    void readReply();
    void consumeHeld();
    void flush(Side &side);
    void passOn(Side &to, std::string_view bytes);
    void passOnEnd(const Side &from, Side &to);
    void settle();
    void finish(recording::End end);
    void keep(std::vector<recording::Piece> &pieces, std::string_view bytes);
    void keepUnread();
    [[nodiscard]] bool hasGivenUp() const;
    [[nodiscard]] recording::Microseconds elapsed() const;

    EventLoop &loop_;
    Clock::time_point start_;
    Callbacks callbacks_;
    Side program_;
    Side server_;
    Peer peer_;
    recording::Exchange exchange_;
    std::string request_;  // until the first line feed
    recording::Microseconds last_{};
    std::size_t kept_ = 0;
    std::size_t held_ = 0;  // the program's bytes that were passed on, but not yet removed from its socket
    std::chrono::milliseconds retryDelay_{1};
    bool hasBytes_ = false;
    bool hasEnded_ = false;
    bool isCut_ = false;
    bool wasReset_ = false;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace tools::tap
