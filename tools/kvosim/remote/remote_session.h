// One session of the remote side: the port to which an agent connects, and the requests that wait for its replies.
#pragma once

#include "common/acceptor.h"
#include "kvosim/net/stream.h"
#include "kvosim/remote/agent_lines.h"
#include "kvosim/remote/remote_log.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

/// Agents of session 0 connect to this port, those of session N to this port + N.
inline constexpr uint16_t kFirstRemotePort = 5850;
inline constexpr unsigned kHighestSession = 9;

/// The largest number of raw bytes in one request or one line of a script.
inline constexpr std::size_t kLongestRaw = 4096;

/// Throws Refused if an agent would not accept the request as one line.
void checkRequest(std::string_view request);

class RemoteSession {
public:
    static constexpr std::size_t kMaxUnanswered = 32;

    /// The reply, or the reason why none came.
    struct Answer {
        std::optional<std::string> reply{};
        std::string failure{};
    };
    using AnswerCallback = std::function<void(const Answer &answer)>;

    enum class Tagging { automatic, none };

    /// Listens at @p address. Calls @p onSweepNeeded when the owner must begin to call sweep() regularly, until needsSweep()
    /// returns false. Throws std::runtime_error if the port cannot be opened. @p loop and @p log must outlive this object.
    RemoteSession(tools::EventLoop &loop, RemoteLog &log, unsigned number, uint32_t address,
                  std::function<void()> onSweepNeeded);

    [[nodiscard]] unsigned number() const noexcept { return number_; }
    [[nodiscard]] uint16_t port() const noexcept { return static_cast<uint16_t>(kFirstRemotePort + number_); }
    /// The address of the connected agent, if any.
    [[nodiscard]] const std::optional<std::string> &peer() const noexcept { return peer_; }

    /// Sends a request, and calls @p onAnswer once, later. A tag that this function adds is removed from the reply; a tag in
    /// @p request stays. Throws Refused or CouldNot.
    void ask(std::string_view request, Tagging tagging, std::chrono::milliseconds timeout, AnswerCallback onAnswer);
    /// Sends a request without waiting for the reply. Throws as ask does.
    void send(std::string_view request);
    /// Sends raw bytes. Throws CouldNot.
    void sendRaw(std::string_view bytes);
    enum class CloseMode { orderly, reset };
    /// Closes the connection. Throws CouldNot if no agent is connected.
    void close(CloseMode mode);
    /// Closes the connection, if any, and closes the port for @p time. Until then, connection attempts are refused.
    void closePort(CloseMode mode, std::chrono::milliseconds time);
    [[nodiscard]] bool portClosed() const noexcept { return portClosedUntil_.has_value(); }

    /// Handles timeouts: answers requests that have waited too long, accepts a "none" after which no data came, and reopens the
    /// port after closePort().
    void sweep(tools::Clock::time_point now);
    /// Whether sweep() must be called again.
    [[nodiscard]] bool needsSweep() const;

private:
    /// A request without a reply yet. It stays in the queue after its timeout, because its reply may still come, before the
    /// replies to later requests.
    struct PendingRequest {
        std::string tag{};
        bool unterminatedReply = false;
        bool timedOut = false;
        tools::Clock::time_point until{};
        AnswerCallback onAnswer{};
        bool stripTag = false;
    };

    void listen();
    void reopenPort();
    void connect(tools::Descriptor connection);
    void disconnect(const std::string &reason);
    void receive(std::string_view piece);
    void handleLine(const AgentLine &line);
    void handleReply(const AgentLine &line);
    [[nodiscard]] std::string unterminatedReply() const;
    void sendRequest(std::string_view request, PendingRequest pending);
    void write(std::string_view bytes);
    void discardAbandonedRequests();
    void record(RemoteRecord::Kind kind, std::string text, std::string note = {});
    [[nodiscard]] std::string nextTag();
    [[nodiscard]] Stream &connectedAgent();

    tools::EventLoop &loop_;
    RemoteLog &log_;
    unsigned number_;
    uint32_t address_;
    std::function<void()> onSweepNeeded_;
    tools::Descriptor listener_;
    std::unique_ptr<tools::Acceptor> acceptor_;
    std::optional<tools::Clock::time_point> portClosedUntil_;  ///< until then no agent can connect
    std::unique_ptr<Stream> stream_;
    std::optional<std::string> peer_;
    AgentLines lines_;
    tools::Clock::time_point lastReceived_{};
    std::deque<PendingRequest> pending_;
    unsigned lastTag_ = 0;
};

}  // namespace kvosim
