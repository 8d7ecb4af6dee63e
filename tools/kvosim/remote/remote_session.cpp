// Sends requests to an agent, and matches its replies to them.
#include "kvosim/remote/remote_session.h"

#include "common/join.h"
#include "common/refused.h"
#include "kvosim/base/exchange_log.h"
#include "kvosim/net/tcp_socket.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

namespace kvosim {

namespace {

using namespace std::chrono_literals;

constexpr auto kNoneTimeout = 200ms;                           // after a "none" without a line end
constexpr std::size_t kMaxUnwritten = std::size_t{64} * 1024;  // bytes that an agent has not read
constexpr auto kPortRetryDelay = 200ms;
constexpr unsigned kTagCount = 1000;
constexpr std::size_t kTagBytes = 4;

constexpr const char *kAnsweredAnother = "the agent has answered a later request, but not this one";

std::string seconds(std::chrono::milliseconds time)
{
    return std::to_string(time.count() / 1000) + (time.count() % 1000 == 0 ? "" : '.' + std::to_string(time.count() % 1000)) +
           " s";
}

}  // namespace

void checkRequest(std::string_view request)
{
    if (request.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) {
        throw tools::Refused("the request contains a line end or a zero byte; write one line without a line end, which is "
                             "added automatically (\"remote run\" can send any bytes with \"raw\")");
    }
    if (request.size() > kLongestRequest) {
        throw tools::Refused("the request has " + std::to_string(request.size()) + " bytes; an agent accepts at most " +
                             std::to_string(kLongestRequest) +
                             " including the tag, and closes the connection if there are more");
    }
}

RemoteSession::RemoteSession(tools::EventLoop &loop, RemoteLog &log, unsigned number, uint32_t address,
                             std::function<void()> onSweepNeeded)
    : loop_(loop), log_(log), number_(number), address_(address), onSweepNeeded_(std::move(onSweepNeeded))
{
    listen();
}

void RemoteSession::listen()
{
    listener_ = listenAt("cannot serve agents of session " + std::to_string(number_), address_, port());
    acceptor_ = std::make_unique<tools::Acceptor>(loop_, listener_.get(),
                                                  [this](tools::Descriptor connection) { connect(std::move(connection)); });
}

/// A new connection replaces the existing one: after a pulled cable, the existing one may be only half open.
void RemoteSession::connect(tools::Descriptor connection)
{
    const std::string peer = peerOf(connection);
    if (stream_) {
        disconnect("replaced by the agent at " + peer);
    }
    const int on = 1;
    setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(connection.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    peer_ = peer;
    stream_ =
        std::make_unique<Stream>(loop_, std::move(connection), kMaxUnwritten,
                                 Stream::Callbacks{[this](std::string_view piece) { receive(piece); },
                                                   [this](const std::string &reason) { disconnect(std::string(reason)); }});
    record(RemoteRecord::Kind::connected, "from " + peer);
}

void RemoteSession::disconnect(const std::string &reason)
{
    if (lines_.hasUnterminatedNone()) {
        handleLine(lines_.takeUnterminatedNone());
    }
    lines_ = {};
    stream_.reset();
    const std::string peer = *std::exchange(peer_, std::nullopt);
    record(RemoteRecord::Kind::closed, reason);
    for (const PendingRequest &pending : std::exchange(pending_, {})) {
        if (pending.onAnswer) {
            pending.onAnswer(
                {std::nullopt, "the connection of the agent at " + peer + " was lost before its reply: " + reason});
        }
    }
}

void RemoteSession::receive(std::string_view piece)
{
    lastReceived_ = tools::Clock::now();
    lines_.add(piece);
    while (!lines_.isTooLong()) {
        const auto line = lines_.next(unterminatedReply());
        if (!line) {
            if (lines_.hasUnterminatedNone()) {
                onSweepNeeded_();
            }
            return;
        }
        handleLine(*line);
    }
    disconnect("the agent has sent a line longer than " + std::to_string(kLongestAgentLine) + " bytes");
}

void RemoteSession::handleLine(const AgentLine &line)
{
    if (!indicationOf(line.text).empty()) {
        record(RemoteRecord::Kind::indication, line.text);
        return;
    }
    handleReply(line);
}

/// An agent replies in order: when a reply comes, all earlier requests without a reply have failed.
void RemoteSession::handleReply(const AgentLine &line)
{
    const std::string_view tag = tagOf(line.text);
    const auto tagged = [](std::string_view wanted) { return [wanted](const PendingRequest &r) { return r.tag == wanted; }; };
    auto place = std::find_if(pending_.begin(), pending_.end(), tagged(tag));
    if (place == pending_.end()) {
        place = std::find_if(pending_.begin(), pending_.end(),
                             tagged(""));  // a reply without a tag may begin with a text that looks like one
    }
    const bool asked = place != pending_.end();
    std::string note = line.terminated ? "" : "without a line end";
    if (!asked || place->timedOut) {
        tools::appendTo(note, ", ", asked ? "too late" : "not requested");
    }
    record(RemoteRecord::Kind::reply, line.text, note);
    if (!asked) {
        return;
    }
    const PendingRequest pending = *place;
    for (auto earlier = pending_.begin(); earlier != place; ++earlier) {
        if (earlier->onAnswer) {
            earlier->onAnswer({std::nullopt, kAnsweredAnother});
        }
    }
    pending_.erase(pending_.begin(), std::next(place));
    if (pending.onAnswer) {
        pending.onAnswer({line.text.substr(pending.stripTag ? pending.tag.size() : 0), {}});
    }
}

std::string RemoteSession::unterminatedReply() const
{
    return pending_.empty() || !pending_.front().unterminatedReply ? "" : pending_.front().tag + "none";
}

void RemoteSession::ask(std::string_view request, Tagging tagging, std::chrono::milliseconds timeout, AnswerCallback onAnswer)
{
    PendingRequest pending{.until = tools::Clock::now() + timeout,
                           .onAnswer = [onAnswer = std::move(onAnswer), timeout](const Answer &answer) {
                               const bool isTimeout = !answer.reply && answer.failure.empty();
                               onAnswer(isTimeout ? Answer{{}, "no reply within " + seconds(timeout)} : answer);
                           }};
    std::string line(request);
    if (tagging == Tagging::automatic && tagOf(request).empty() && request.size() + kTagBytes <= kLongestRequest) {
        pending.stripTag = true;
        line = nextTag() + line;
    }
    sendRequest(line, std::move(pending));
    onSweepNeeded_();
}

void RemoteSession::send(std::string_view request) { sendRequest(request, {}); }

void RemoteSession::sendRequest(std::string_view request, PendingRequest pending)
{
    checkRequest(request);
    static_cast<void>(connectedAgent());
    discardAbandonedRequests();
    pending.tag = tagOf(request);
    pending.unterminatedReply = mayReplyUnterminated(request.substr(pending.tag.size()));
    write(std::string(request) + "\r\n");
    pending_.push_back(std::move(pending));
    record(RemoteRecord::Kind::request, std::string(request));
}

void RemoteSession::sendRaw(std::string_view bytes)
{
    write(bytes);
    record(RemoteRecord::Kind::request, std::string(bytes), "raw");
}

void RemoteSession::write(std::string_view bytes)
{
    if (!connectedAgent().write(bytes)) {
        throw tools::CouldNot("the agent of session " + std::to_string(number_) +
                              " does not read: earlier data is still waiting, or the connection is closing");
    }
}

/// If the queue is full, removes the oldest requests that no caller waits for.
void RemoteSession::discardAbandonedRequests()
{
    while (pending_.size() >= kMaxUnanswered) {
        const auto abandoned =
            std::find_if(pending_.begin(), pending_.end(), [](const PendingRequest &r) { return !r.onAnswer; });
        if (abandoned == pending_.end()) {
            throw tools::CouldNot(std::to_string(kMaxUnanswered) +
                                  " requests already wait for a reply from the agent of session " + std::to_string(number_) +
                                  "; wait for these replies");
        }
        pending_.erase(abandoned);
    }
}

void RemoteSession::close(CloseMode mode)
{
    if (mode == CloseMode::reset) {
        connectedAgent().resetWhenClosed();
    }
    static_cast<void>(connectedAgent());
    disconnect(mode == CloseMode::reset ? "this side reset it on request" : "this side closed it on request");
}

void RemoteSession::closePort(CloseMode mode, std::chrono::milliseconds time)
{
    acceptor_.reset();
    listener_ = tools::Descriptor();  // before the connection closes, because the agent may connect again at once
    if (stream_) {
        close(mode);
    }
    portClosedUntil_ = tools::Clock::now() + time;
    onSweepNeeded_();
}

void RemoteSession::sweep(tools::Clock::time_point now)
{
    if (portClosedUntil_ && *portClosedUntil_ <= now) {
        reopenPort();
    }
    if (lines_.hasUnterminatedNone() && now - lastReceived_ >= kNoneTimeout) {
        handleLine(lines_.takeUnterminatedNone());
    }
    for (PendingRequest &pending : pending_) {
        if (pending.onAnswer && pending.until <= now) {
            pending.timedOut = true;
            std::exchange(pending.onAnswer, {})({});
        }
    }
}

void RemoteSession::reopenPort()
{
    try {
        listen();
        portClosedUntil_.reset();
    } catch (const std::runtime_error &) {
        *portClosedUntil_ += kPortRetryDelay;  // another process uses the port
    }
}

bool RemoteSession::needsSweep() const
{
    return portClosedUntil_ || (stream_ && lines_.hasUnterminatedNone()) ||
           std::any_of(pending_.begin(), pending_.end(), [](const PendingRequest &r) { return r.onAnswer != nullptr; });
}

void RemoteSession::record(RemoteRecord::Kind kind, std::string text, std::string note)
{
    log_.add({.session = number_, .kind = kind, .text = std::move(text), .note = std::move(note)});
}

std::string RemoteSession::nextTag()
{
    std::array<char, 8> tag{};
    do {
        lastTag_ = (lastTag_ + 1) % kTagCount;
        std::snprintf(tag.data(), tag.size(), "%03u:", lastTag_);
    } while (std::any_of(pending_.begin(), pending_.end(), [&](const PendingRequest &r) { return r.tag == tag.data(); }));
    return tag.data();
}

Stream &RemoteSession::connectedAgent()
{
    if (!stream_) {
        throw tools::CouldNot("no agent is connected in session " + std::to_string(number_) + " (port " +
                              std::to_string(port()) + ")");
    }
    return *stream_;
}

}  // namespace kvosim
