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
#include <vector>

namespace kvosim {

struct LineServerLimits {
    std::size_t longestLine = 4096;                    ///< bytes before the line end
    std::size_t connections = 256;                     ///< a further one replaces the one that was idle longest
    std::chrono::milliseconds idleTimeout{10'000};     ///< a connection is dropped if no byte moves for this time
    std::chrono::milliseconds requestTimeout{30'000};  ///< for a complete request, even if its bytes keep arriving
    std::chrono::milliseconds lingerTimeout{500};      ///< for a client to close after its reply
    std::chrono::milliseconds shutdownTimeout{1'000};  ///< for replies that are being written when the server ends
};

/// A reply whose every byte and pause is given, with or without line ends.
struct ExactReply {
    struct Piece {
        std::chrono::microseconds pause;  ///< before the bytes
        std::string bytes;
    };
    enum class End {
        closed,   ///< the server ends the connection in an orderly way
        reset,    ///< the client sees a connection reset
        silence,  ///< the connection stays open until the client closes it
    };

    std::vector<Piece> pieces{};
    End end = End::closed;
    std::chrono::microseconds endPause{0};  ///< before the end; not used for silence
};

/// The reply to a request and how it is sent: the normal way, or one of the ways in which a service can fail.
struct Reply {
    enum class Mode {
        whole,
        bytewise,  ///< each byte separately, with a pause before the next
        close,     ///< no reply: the server closes the connection
        silence,   ///< no reply: the connection stays open until the client closes it
        exact,     ///< as Reply::exact says; the other members are not used
        later      ///< the reply follows through the request's Caller
    };

    Reply(Mode replyMode) : mode(replyMode) {}  // NOLINT(google-explicit-constructor): allows "return Reply::Mode::later"
    Reply(ExactReply reply) : mode(Mode::exact), exact(std::move(reply)) {}  // NOLINT(google-explicit-constructor)
    Reply(std::string line) : text(std::move(line)) {}  // NOLINT(google-explicit-constructor): most replies are just a text

    std::string text;  ///< without its line end
    Mode mode = Mode::whole;
    std::chrono::milliseconds delay{0};  ///< before the reply
    std::chrono::milliseconds pause{0};  ///< between bytes
    ExactReply exact{};
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
    /// A part of a reply that is sent at once, after a pause.
    struct Part {
        std::size_t end;  ///< of its bytes in the reply
        std::chrono::microseconds pause;
    };
    struct Connection {
        tools::Descriptor socket;
        uint64_t number;  ///< unique; descriptor numbers are reused
        tools::Clock::time_point since;
        tools::Clock::time_point lastTransfer;
        std::string request{};
        std::size_t unread = 0;  ///< bytes of the request that are still in the socket
        std::string reply{};
        std::vector<Part> parts{};
        std::size_t nextPart = 0;
        std::size_t released = 0;  ///< bytes of the reply that may be sent now
        std::size_t written = 0;
        ExactReply::End end = ExactReply::End::closed;
        std::chrono::microseconds endPause{0};
        std::chrono::microseconds overdue{0};  ///< the rest of pauses that were not whole milliseconds
        bool answeredLater = false;
        enum class Stage { reading, waiting, writing, lingering } stage = Stage::reading;
    };
    using Iterator = std::map<int, Connection>::iterator;

    void acceptSome();
    void handleEvents(int fd, uint32_t events);
    void read(Iterator it);
    static void consume(Connection &connection);
    void reply(Iterator it, Reply reply);
    static void plan(Connection &connection, Reply reply);
    void proceed(Iterator it);
    static std::chrono::milliseconds pauseBeforeNext(Connection &connection);
    void releaseNext(Iterator it);
    bool release(Iterator it);
    bool write(Iterator it);
    void finish(Iterator it);
    void hold(Iterator it);
    Iterator find(int fd, uint64_t number);
    void waitThen(Iterator it, std::chrono::milliseconds time, void (LineServer::*next)(Iterator it));
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
