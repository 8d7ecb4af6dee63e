#include "kvosim/replay/replay.h"

#include "common/tap/activation.h"
#include "kvosim/base/arguments.h"
#include "kvosim/base/exchange_log.h"
#include "kvosim/plant_exchange.h"
#include "kvosim/plant_file/plant_file.h"

#include <cstdio>

namespace kvosim {

namespace {

using tools::recording::End;
using tools::recording::joined;
using tools::recording::Piece;

constexpr LineServerLimits kLimits{.longestLine = kLongestRecordedRequest};
constexpr std::size_t kMostListed = 5;
constexpr std::size_t kMostReported = 100;  // at once, of requests without an answer
constexpr std::chrono::milliseconds kReaderPause{10};
constexpr int kMostReaderPauses = 100;
constexpr std::string_view kRegistryPath = "getregistrypath";

bool deactivatesUsbEvents(std::string_view request) { return request.starts_with("deactivateUSBEvents"); }

ExactReply exactReplyOf(const Exchange &exchange, Speed speed)
{
    ExactReply reply;
    bool isComplete = false;
    for (const Piece &piece : exchange.reply) {
        reply.pieces.push_back({speed.scaled(piece.pause), piece.bytes});
        isComplete = isComplete || piece.bytes.find('\n') != std::string::npos;
    }
    if (exchange.end == End::closed || exchange.end == End::reset) {
        reply.end = exchange.end == End::reset ? ExactReply::End::reset : ExactReply::End::closed;
        reply.endPause = speed.scaled(exchange.endPause);
    } else if (!isComplete) {
        reply.end = ExactReply::End::silence;
    }
    return reply;
}

}  // namespace

Replay::Replay(tools::EventLoop &loop, const Recording &recording, std::optional<Plant> plant, ReplayOptions options)
    : loop_(loop), recording_(recording), options_(std::move(options)), contents_(contentsOf(recording)),
      script_(recording, contents_.requests),
      recordedPlant_(recording.plant().empty()
                         ? nullptr
                         : std::make_unique<Simulated>(parsePlant(recording.plant(), options_.file + " (plant)"))),
      plant_(plant ? std::make_unique<Simulated>(*std::move(plant)) : nullptr),
      commands_(
          loop, options_.socket, [this](std::string_view request, const auto &) { return exchange(request); }, kFailed,
          [this](std::string_view event) { logIfVerbose(event); }, kLimits, options_.socketMode),
      embeddedEvents_(
          loop, options_.eventSocket, std::chrono::seconds(0), [this](std::string_view line) { logIfVerbose(line); },
          options_.socketMode)
{
    contents_.requests = {};  // the script has them
    embeddedEvents_.setOnListener([this](uint64_t number) { addListener(number); });
    counts_.file = options_.file;
    counts_.isStrict = options_.strict;
    counts_.recordedRequests = script_.size();
    counts_.withoutLineEnd = contents_.withoutLineEnd;
    counts_.usbEvents.recorded = contents_.usbEventCount();
    counts_.embeddedEvents.recorded = contents_.embeddedEventCount();
}

void Replay::end(std::function<void()> ended)
{
    hasEnded_ = true;
    usbTimeline_.reset();
    eventTimelines_.clear();
    usbSenders_.clear();
    embeddedEvents_.end();
    commands_.end(std::move(ended));
}

bool Replay::isEmpty() const { return script_.size() + counts_.usbEvents.recorded + counts_.embeddedEvents.recorded == 0; }

Reply Replay::exchange(std::string_view request)
{
    const bool mayAnswer = !options_.strict || script_.hasUnused(request);
    const std::optional<Script::Match> match = mayAnswer ? script_.take(request) : std::nullopt;
    Reply reply = match ? answerAsRecorded(request, *match) : answerUnmatched(request);
    if (tools::tap::activatesUsbEvents(request) && (match || plant_)) {
        beginUsbEvents();
    } else if (deactivatesUsbEvents(request)) {
        usbTimeline_.reset();
    }
    return reply;
}

Reply Replay::answerAsRecorded(std::string_view request, const Script::Match &match)
{
    ++(match.isRepeated ? counts_.repeated : counts_.asRecorded);
    if (match.isOutOfOrder && counts_.outOfOrder++ == 0) {
        counts_.firstOutOfOrder = textAt(match.line);
    }
    Exchange exchange = exchangeAt(match.line);
    if (request == kRegistryPath) {
        replaceRegistryPath(exchange);
    }
    if (options_.verbose) {  // a reply may have megabytes
        logIfVerbose(printable(request) + " -> " + printable(joined(exchange.reply)) + " (line " +
                     std::to_string(recording_.lineNumber(match.line)) + (match.isRepeated ? ", again)" : ")"));
    }
    return exactReplyOf(exchange, options_.speed);
}

Reply Replay::answerUnmatched(std::string_view request)
{
    const std::string text = quotedForReport(request);
    if (plant_) {
        ++counts_.fromPlant;
        // Also after "killDaemon", the replay goes on: the recording may have more.
        return exchangeWithPlant(plant_->context, request, [this](std::string_view line) { logIfVerbose(line); });
    }
    ++counts_.notAnswered;
    const bool isUsedUp = options_.strict && script_.knows(request);
    if (unmatched_.add(request, isUsedUp) && unmatched_.count() - unmatched_.notKept() <= kMostReported) {
        std::fprintf(stderr, "kvosim: %s: %s\n", isUsedUp ? "asked more often than recorded" : "not recorded", text.c_str());
    }
    logIfVerbose(printable(request) + " -> " + kFailed);
    return std::string(kFailed);
}

/// Programs read the files of the registry themselves, so they need a folder of this machine.
void Replay::replaceRegistryPath(Exchange &exchange)
{
    const std::string recorded = joined(exchange.reply);
    if (!recorded.starts_with('/') || !recorded.ends_with('\n')) {
        return;
    }
    const Simulated *simulated = recordedPlant_ ? recordedPlant_.get() : plant_.get();
    if (simulated != nullptr) {
        exchange.reply = {{exchange.reply.front().pause, simulated->registry.path() + '\n'}};
        return;
    }
    const std::string folder = recorded.substr(0, recorded.find_first_of("\r\n"));
    std::error_code ignored;
    if (counts_.notes.empty() && !std::filesystem::is_directory(folder, ignored)) {
        counts_.notes.push_back(
            "the registry " + folder +
            " does not exist here, so programs cannot read its lists: record with \"kvoctl record --capture\", "
            "or give a plant with --plant");
    }
}

void Replay::beginUsbEvents()
{
    usbTimeline_.reset();
    if (activations_ < contents_.usbEvents.size()) {
        usbTimeline_ =
            std::make_unique<Timeline>(loop_, contents_.usbEvents[activations_], options_.speed,
                                       [this](LineIndex line, const std::function<void()> &done) { sendUsbEvent(line, done); });
    }
    ++activations_;
}

void Replay::sendUsbEvent(LineIndex line, const std::function<void()> &done)
{
    const Exchange event = exchangeAt(line);
    const uint64_t number = ++lastSender_;
    usbSenders_[number] = std::make_unique<UsbSender>(loop_, options_.usbSocket, event, options_.speed,
                                                      [this, number, line, event, done](const UsbSender::Result &result) {
                                                          finishUsbEvent(line, event, result);
                                                          const std::function<void()> next = done;
                                                          usbSenders_.erase(number);
                                                          next();
                                                      });
}

void Replay::finishUsbEvent(LineIndex line, const Exchange &event, const UsbSender::Result &result)
{
    const std::string text = requestLineOf(event).value_or(joined(event.request));
    logIfVerbose("USB event " + printable(text) + " -> " +
                 (!result.isSent  ? "not sent: no program listens"
                  : result.answer ? printable(*result.answer)
                                  : "no answer"));
    if (!result.isSent) {
        return;
    }
    ++counts_.usbEvents.sent;
    const std::optional<std::string> recorded = answerOf(event);
    // What the program would have answered after the end of the recording is unknown.
    const bool isUnknown = !recorded && event.end == End::open;
    if (!isUnknown && result.answer != recorded && counts_.answeredDifferently++ < kMostListed) {
        counts_.firstAnsweredDifferently.push_back({recording_.lineNumber(line), text, recorded, result.answer});
    }
}

void Replay::addListener(uint64_t number)
{
    if (listeners_ == 0) {
        play(contents_.sharedEvents, std::nullopt);
    }
    if (listeners_ < contents_.listenerEvents.size()) {
        play(contents_.listenerEvents[listeners_], number);
    }
    ++listeners_;
}

void Replay::play(const EventGroup &group, std::optional<uint64_t> listener)
{
    eventTimelines_.push_back(std::make_unique<Timeline>(loop_, group, options_.speed,
                                                         [this, listener](LineIndex line, const std::function<void()> &done) {
                                                             sendEmbeddedEvent(line, {.listener = listener}, done);
                                                         }));
}

/// With --speed max, a program may not read as fast as the events come. It is then waited for, but not forever.
void Replay::sendEmbeddedEvent(LineIndex line, Target target, const std::function<void()> &done)
{
    if (embeddedEvents_.isBusy(target.listener) && target.retries++ < kMostReaderPauses) {
        loop_.after(kReaderPause, [this, line, target, done, alive = std::weak_ptr(alive_)] {
            if (!alive.expired() && !hasEnded_) {
                sendEmbeddedEvent(line, target, done);
            }
        });
        return;
    }
    const std::string bytes = joined(exchangeAt(line).request);
    const std::size_t count = embeddedEvents_.send(bytes, target.listener);
    counts_.embeddedEvents.sent += count > 0 ? 1 : 0;
    logIfVerbose("event " + printable(bytes) + " -> " + std::to_string(count) + " listeners");
    done();
}

ReplayReport Replay::report() const
{
    ReplayReport report = counts_;
    report.unmatched = unmatched_.list(recording_, script_);
    report.unmatchedNotListed = unmatched_.notKept();
    report.neverAsked = script_.unused();
    for (const LineIndex line : script_.firstUnused(kMostListed)) {
        report.firstNeverAsked.push_back(textAt(line));
    }
    return report;
}

Exchange Replay::exchangeAt(LineIndex line) const { return std::get<Exchange>(recording_.line(line)); }

RecordedText Replay::textAt(LineIndex line) const
{
    return {recording_.lineNumber(line), requestLineOf(exchangeAt(line)).value_or("")};
}

void Replay::logIfVerbose(std::string_view line) const
{
    if (options_.verbose) {
        logLine(line);
    }
}

}  // namespace kvosim
