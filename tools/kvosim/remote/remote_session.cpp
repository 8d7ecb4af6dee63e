// Requests to an agent, and which of its lines answers which.
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

constexpr auto kNoneSilence = 200ms;                        // behind a "none" without a line end
constexpr std::size_t kUnwritten = std::size_t{64} * 1024;  // bytes that an agent has not read
constexpr auto kPortRetry = 200ms;
constexpr unsigned kTags = 1000;
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
        throw tools::Refused(
            "the request holds a line end or a zero; give one line without its end, which is added (\"remote run\" can "
            "send any bytes, by \"raw\")");
    }
    if (request.size() > kLongestRequest) {
        throw tools::Refused("the request has " + std::to_string(request.size()) + " bytes; an agent takes at most " +
                             std::to_string(kLongestRequest) + " with the tag, and closes the connection on more");
    }
}

RemoteSession::RemoteSession(EventLoop &loop, RemoteLog &log, unsigned number, uint32_t address, std::function<void()> waits)
    : loop_(loop), log_(log), number_(number), address_(address), waits_(std::move(waits))
{
    listen();
}

void RemoteSession::listen()
{
    listener_ = listenAt("can not serve agents of session " + std::to_string(number_), address_, port());
    acceptor_ = std::make_unique<Acceptor>(loop_, listener_.get(),
                                           [this](tools::Descriptor connection) { connect(std::move(connection)); });
}

/// An agent that comes anew is the one that counts: of its earlier connection, a pulled cable may have left the half that is
/// seen here.
void RemoteSession::connect(tools::Descriptor connection)
{
    const std::string peer = peerOf(connection);
    if (stream_) {
        disconnect("the agent at " + peer + " takes its place");
    }
    const int on = 1;
    setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(connection.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    peer_ = peer;
    stream_ =
        std::make_unique<Stream>(loop_, std::move(connection), kUnwritten,
                                 Stream::Reactions{[this](std::string_view piece) { receive(piece); },
                                                   [this](const std::string &reason) { disconnect(std::string(reason)); }});
    record(RemoteRecord::Kind::connected, "from " + peer);
}

void RemoteSession::disconnect(const std::string &reason)
{
    if (lines_.holdsNone()) {
        take(lines_.takeNone());
    }
    lines_ = {};
    stream_.reset();
    const std::string peer = *std::exchange(peer_, std::nullopt);
    record(RemoteRecord::Kind::closed, reason);
    for (const Question &question : std::exchange(questions_, {})) {
        if (question.answered) {
            question.answered(
                {std::nullopt, "the connection of the agent at " + peer + " was lost before its reply: " + reason});
        }
    }
}

void RemoteSession::receive(std::string_view piece)
{
    heard_ = Clock::now();
    lines_.add(piece);
    while (!lines_.overlong()) {
        const auto line = lines_.next(unendedReply());
        if (!line) {
            if (lines_.holdsNone()) {
                waits_();
            }
            return;
        }
        take(*line);
    }
    disconnect("the agent has sent a line longer than " + std::to_string(kLongestAgentLine) + " bytes");
}

void RemoteSession::take(const AgentLine &line)
{
    if (!indicationOf(line.text).empty()) {
        record(RemoteRecord::Kind::indication, line.text);
        return;
    }
    takeReply(line);
}

/// An agent answers in order. Requests before the one that a reply belongs to have not been answered.
void RemoteSession::takeReply(const AgentLine &line)
{
    const std::string_view tag = tagOf(line.text);
    const auto tagged = [](std::string_view wanted) { return [wanted](const Question &q) { return q.tag == wanted; }; };
    auto place = std::find_if(questions_.begin(), questions_.end(), tagged(tag));
    if (place == questions_.end()) {
        place = std::find_if(questions_.begin(), questions_.end(), tagged(""));  // the text of a reply may begin like a tag
    }
    const bool asked = place != questions_.end();
    std::string note = line.ended ? "" : "without a line end";
    if (!asked || place->late) {
        tools::appendTo(note, ", ", asked ? "too late" : "not asked for");
    }
    record(RemoteRecord::Kind::reply, line.text, note);
    if (!asked) {
        return;
    }
    const Question question = *place;
    for (auto earlier = questions_.begin(); earlier != place; ++earlier) {
        if (earlier->answered) {
            earlier->answered({std::nullopt, kAnsweredAnother});
        }
    }
    questions_.erase(questions_.begin(), std::next(place));
    if (question.answered) {
        question.answered({line.text.substr(question.strip ? question.tag.size() : 0), {}});
    }
}

std::string RemoteSession::unendedReply() const
{
    return questions_.empty() || !questions_.front().unendedReply ? "" : questions_.front().tag + "none";
}

void RemoteSession::ask(std::string_view request, Tagging tagging, std::chrono::milliseconds patience, Answered answered)
{
    Question question{.until = Clock::now() + patience,
                      .answered = [answered = std::move(answered), patience](const Answer &answer) {
                          const bool timeout = !answer.reply && answer.failure.empty();
                          answered(timeout ? Answer{{}, "no reply within " + seconds(patience)} : answer);
                      }};
    std::string line(request);
    if (tagging == Tagging::itself && tagOf(request).empty() && request.size() + kTagBytes <= kLongestRequest) {
        question.strip = true;
        line = nextTag() + line;
    }
    put(line, std::move(question));
    waits_();
}

void RemoteSession::send(std::string_view request) { put(request, {}); }

void RemoteSession::put(std::string_view request, Question question)
{
    checkRequest(request);
    static_cast<void>(agent());
    makeRoom();
    question.tag = tagOf(request);
    question.unendedReply = mayAnswerUnended(request.substr(question.tag.size()));
    write(std::string(request) + "\r\n");
    questions_.push_back(std::move(question));
    record(RemoteRecord::Kind::request, std::string(request));
}

void RemoteSession::sendRaw(std::string_view bytes)
{
    write(bytes);
    record(RemoteRecord::Kind::request, std::string(bytes), "raw");
}

void RemoteSession::write(std::string_view bytes)
{
    if (!agent().write(bytes)) {
        throw tools::CouldNot("the agent of session " + std::to_string(number_) +
                              " does not read: what was sent to it before still waits, or it is closing");
    }
}

/// Gives up the oldest requests that nobody waits for any more.
void RemoteSession::makeRoom()
{
    while (questions_.size() >= kMostUnanswered) {
        const auto given = std::find_if(questions_.begin(), questions_.end(), [](const Question &q) { return !q.answered; });
        if (given == questions_.end()) {
            throw tools::CouldNot(std::to_string(kMostUnanswered) + " requests wait for a reply of the agent of session " +
                                  std::to_string(number_) + " already; wait for them");
        }
        questions_.erase(given);
    }
}

void RemoteSession::close(Ending ending)
{
    if (ending == Ending::reset) {
        agent().resetWhenClosed();
    }
    static_cast<void>(agent());
    disconnect(ending == Ending::reset ? "this side has reset it, as it was told to"
                                       : "this side has closed it, as it was told to");
}

void RemoteSession::goAway(Ending ending, std::chrono::milliseconds time)
{
    acceptor_.reset();
    listener_ = tools::Descriptor();  // first, so that the agent cannot connect again at once
    if (stream_) {
        close(ending);
    }
    away_ = Clock::now() + time;
    waits_();
}

void RemoteSession::sweep(Clock::time_point now)
{
    if (away_ && *away_ <= now) {
        comeBack();
    }
    if (lines_.holdsNone() && now - heard_ >= kNoneSilence) {
        take(lines_.takeNone());
    }
    for (Question &question : questions_) {
        if (question.answered && question.until <= now) {
            question.late = true;
            std::exchange(question.answered, {})({});
        }
    }
}

void RemoteSession::comeBack()
{
    try {
        listen();
        away_.reset();
    } catch (const std::runtime_error &) {
        *away_ += kPortRetry;  // somebody else has taken the port
    }
}

bool RemoteSession::waiting() const
{
    return away_ || (stream_ && lines_.holdsNone()) ||
           std::any_of(questions_.begin(), questions_.end(), [](const Question &q) { return q.answered != nullptr; });
}

void RemoteSession::record(RemoteRecord::Kind kind, std::string text, std::string note)
{
    log_.add({.session = number_, .kind = kind, .text = std::move(text), .note = std::move(note)});
}

std::string RemoteSession::nextTag()
{
    std::array<char, 8> tag{};
    do {
        tags_ = (tags_ + 1) % kTags;
        std::snprintf(tag.data(), tag.size(), "%03u:", tags_);
    } while (std::any_of(questions_.begin(), questions_.end(), [&](const Question &q) { return q.tag == tag.data(); }));
    return tag.data();
}

Stream &RemoteSession::agent()
{
    if (!stream_) {
        throw tools::CouldNot("no agent is connected in session " + std::to_string(number_) + " (port " +
                              std::to_string(port()) + ")");
    }
    return *stream_;
}

}  // namespace kvosim
