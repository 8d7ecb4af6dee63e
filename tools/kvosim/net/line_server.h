// Serves a socket on which each connection carries one request line and one reply line. A client that sends half a line,
// does not read, or vanishes holds nobody else up.
#pragma once

#include "common/listening_socket.h"
#include "kvosim/base/event_loop.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

struct LineServerLimits {
    std::size_t longestLine = 4096;                 ///< bytes before the line end
    std::size_t connections = 256;                  ///< one more, and the one that was quiet the longest is dropped
    std::chrono::milliseconds quietTime{10'000};    ///< without a byte in either direction, then the connection is dropped
    std::chrono::milliseconds requestTime{30'000};  ///< for a request to be complete, however it trickles in
    std::chrono::milliseconds lingerTime{500};      ///< for a client to close after its reply
    std::chrono::milliseconds endingTime{1'000};    ///< for the replies that are on their way when the server ends
};

/// What is answered to a request, and in which way: beside the usual one, those in which a service can fail.
struct Reply {
    enum class Way {
        whole,
        bytewise,  ///< each byte by itself, with a pause before the next
        close,     ///< none: the connection is closed
        silence,   ///< none: the connection stays open until the client closes it
        later      ///< as silence, until it is given to the request's Caller
    };

    Reply(Way replyWay) : way(replyWay) {}  // NOLINT(google-explicit-constructor): so that "return Reply::Way::later" reads
    Reply(std::string line) : text(std::move(line)) {}  // NOLINT(google-explicit-constructor): the usual reply is its text

    std::string text;  ///< without line end
    Way way = Way::whole;
    std::chrono::milliseconds delay{0};  ///< before the reply
    std::chrono::milliseconds pause{0};  ///< between bytes
};

class LineServer {
public:
    /// Who waits for a reply. To be used on the loop's thread; also when the client or the server has gone.
    class Caller {
    public:
        Caller(LineServer &server, int fd, uint64_t number) : server_(server), alive_(server.alive_), fd_(fd), number_(number)
        {
        }

        /// Whether the client waits for a reply that comes later.
        [[nodiscard]] bool waits() const;
        /// Gives the reply that was to come later; nothing happens when nobody waits for it.
        void reply(Reply reply) const;

    private:
        LineServer &server_;
        std::weak_ptr<bool> alive_;
        int fd_;
        uint64_t number_;
    };

    /// Gives the reply to a request line, which comes without its line end.
    using Answer = std::function<Reply(std::string_view line, const Caller &caller)>;
    /// Told of what happens beside requests and replies.
    using Report = std::function<void(std::string_view event)>;

    /// @p refusal answers a line that is too long. @p loop must outlive the server. @p mode says who may connect.
    LineServer(EventLoop &loop, std::filesystem::path path, Answer answer, std::string refusal, Report report = {},
               LineServerLimits limits = {}, mode_t mode = tools::kForThisUser);
    LineServer(const LineServer &) = delete;
    LineServer &operator=(const LineServer &) = delete;
    ~LineServer();

    /// Removes the socket now, writes the replies that are on their way, then calls @p ended once, which must not destroy the
    /// server.
    void end(std::function<void()> ended);

private:
    struct Connection {
        tools::Descriptor socket;
        uint64_t number;  ///< its own, unlike the descriptor's, which comes again
        Clock::time_point since;
        Clock::time_point lastMoved;
        std::string request{};
        std::string reply{};
        std::size_t written = 0;
        std::optional<std::chrono::milliseconds> pause{};  ///< between bytes that go one by one
        bool answeredLater = false;
        enum class Stage { reading, holding, writing, lingering } stage = Stage::reading;
    };
    using Place = std::map<int, Connection>::iterator;

    void acceptSome();
    void react(int fd, uint32_t events);
    void read(Place place);
    void reply(Place place, Reply reply);
    void startWriting(Place place);
    void write(Place place);
    Place find(int fd, uint64_t number);
    void hold(Place place, std::chrono::milliseconds time, void (LineServer::*proceed)(Place place));
    void linger(Place place);
    void drop(Place place, std::string_view reason);
    void dropQuietest();
    void dropAll(const std::function<bool(const Connection &)> &which);
    void sweep();
    void after(std::chrono::milliseconds delay, std::function<void()> action);
    [[nodiscard]] bool overdue(const Connection &connection, Clock::time_point now) const;
    void endIfDone();
    void report(std::string_view event) const;

    EventLoop &loop_;
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
