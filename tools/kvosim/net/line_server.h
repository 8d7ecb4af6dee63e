// Serves a socket on which each connection carries one request line and one reply line. A client that sends half a line, does
// not read, or disappears does not delay the others.
#pragma once

#include "common/event_loop.h"
#include "common/listening_socket.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

struct LineServerLimits {
    std::size_t longestLine = 4096;                    ///< bytes before the line end
    std::size_t connections = 256;                     ///< a further one replaces the one that was idle longest
    std::chrono::milliseconds idleTimeout{10'000};     ///< a connection is dropped if no byte moves for this time
    std::chrono::milliseconds requestTimeout{30'000};  ///< for a complete request, even if its bytes keep arriving
    std::chrono::milliseconds lingerTimeout{500};      ///< for a client to close after its reply
    std::chrono::milliseconds shutdownTimeout{1'000};  ///< for replies that are being written when the server ends
};

/// The reply to a request and how it is sent: the normal way, or one of the ways in which a service can fail.
struct Reply {
    enum class Mode {
        whole,
        bytewise,  ///< each byte separately, with a pause before the next
        close,     ///< no reply: the server closes the connection
        silence,   ///< no reply: the connection stays open until the client closes it
        later      ///< the reply follows through the request's Caller
    };

    Reply(Mode replyMode) : mode(replyMode) {}  // NOLINT(google-explicit-constructor): allows "return Reply::Mode::later"
    Reply(std::string line) : text(std::move(line)) {}  // NOLINT(google-explicit-constructor): most replies are just a text

    std::string text;  ///< without its line end
    Mode mode = Mode::whole;
    std::chrono::milliseconds delay{0};  ///< before the reply
    std::chrono::milliseconds pause{0};  ///< between bytes
};

class LineServer {
public:
    /// The client that waits for a reply. Use it on the loop's thread. It stays valid when the client or the server is gone.
    class Caller {
    public:
        Caller(LineServer &server, int fd, uint64_t number) : server_(server), alive_(server.alive_), fd_(fd), number_(number)
        {
        }

        /// Whether the client waits for a Mode::later reply.
        [[nodiscard]] bool isWaiting() const;
        /// Sends the later reply. Does nothing if the client no longer waits.
        void reply(Reply reply) const;

    private:
        LineServer &server_;
        std::weak_ptr<bool> alive_;
        int fd_;
        uint64_t number_;
    };

    /// Returns the reply to a request line. @p line does not include its line end.
    using Answer = std::function<Reply(std::string_view line, const Caller &caller)>;
    /// Called for events other than requests and replies.
    using Report = std::function<void(std::string_view event)>;

    /// @p refusal is the reply to a line that is too long. @p mode is the file mode of the socket. @p loop must outlive the
    /// server.
    LineServer(tools::EventLoop &loop, std::filesystem::path path, Answer answer, std::string refusal, Report report = {},
               LineServerLimits limits = {}, mode_t mode = tools::kForThisUser);
    LineServer(const LineServer &) = delete;
    LineServer &operator=(const LineServer &) = delete;
    ~LineServer();

    /// Removes the socket now, finishes the replies that are being written, then calls @p ended once. @p ended must not destroy
    /// the server.
    void end(std::function<void()> ended);

private:
    struct Connection {
        tools::Descriptor socket;
        uint64_t number;  ///< unique; descriptor numbers are reused
        tools::Clock::time_point since;
        tools::Clock::time_point lastTransfer;
        std::string request{};
        std::string reply{};
        std::size_t written = 0;
        std::optional<std::chrono::milliseconds> pause{};  ///< between bytes that are sent separately
        bool answeredLater = false;
        enum class Stage { reading, waiting, writing, lingering } stage = Stage::reading;
    };
    using Iterator = std::map<int, Connection>::iterator;

    void acceptSome();
    void handleEvents(int fd, uint32_t events);
    void read(Iterator it);
    void reply(Iterator it, Reply reply);
    void startWriting(Iterator it);
    void write(Iterator it);
    Iterator find(int fd, uint64_t number);
    void waitThen(Iterator it, std::chrono::milliseconds time, void (LineServer::*proceed)(Iterator it));
    void linger(Iterator it);
    void drop(Iterator it, std::string_view reason);
    void dropLongestIdle();
    void dropAll(const std::function<bool(const Connection &)> &which);
    void sweep();
    void after(std::chrono::milliseconds delay, std::function<void()> action);
    [[nodiscard]] bool isOverdue(const Connection &connection, tools::Clock::time_point now) const;
    void endIfDone();
    void report(std::string_view event) const;

    tools::EventLoop &loop_;
    std::optional<tools::ListeningSocket> listener_;
    Answer answer_;
    std::string refusal_;
    Report report_;
    LineServerLimits limits_;
    std::map<int, Connection> connections_;
    uint64_t accepted_ = 0;
    std::function<void()> ended_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    bool sweeping_ = false;
};

}  // namespace kvosim
