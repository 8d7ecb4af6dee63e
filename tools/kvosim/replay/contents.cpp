#include "kvosim/replay/contents.h"

#include "common/tap/activation.h"
#include "kvosim/net/received_request.h"

#include <algorithm>
#include <map>
#include <set>

namespace kvosim {

namespace {

using tools::recording::Kind;

/// Sent by a program that takes the USB events over.
constexpr std::string_view kTakeover = "suicide";

struct Moment {
    Microseconds at;
    unsigned process;
    LineIndex line;
};

template <class Each>
void sortByTime(std::vector<Each> &all, Microseconds Each::*time)
{
    std::stable_sort(all.begin(), all.end(), [time](const Each &a, const Each &b) { return a.*time < b.*time; });
}

/// Collects what belongs together while the recording is read, in the order of the file.
class Collector {
public:
    explicit Collector(const Recording &recording) : recording_(recording) {}

    void add(const Exchange &exchange, LineIndex line);
    Contents finish();

private:
    void addRequest(const Exchange &exchange, LineIndex line);
    [[nodiscard]] bool isFromOutside(const Moment &takeover) const;
    void groupUsbEvents();
    void groupEmbeddedEvents();

    const Recording &recording_;
    Contents contents_;
    std::set<int64_t> asking_;  // the process ids of the programs whose requests were recorded
    std::vector<Moment> activations_;
    std::vector<Moment> usbEvents_;
    std::vector<Moment> takeovers_;
    std::vector<Moment> listeners_;
    std::vector<Moment> embeddedEvents_;
};

void Collector::add(const Exchange &exchange, LineIndex line)
{
    const Moment moment{exchange.at, exchange.process, line};
    switch (exchange.kind) {
    case Kind::ask: addRequest(exchange, line); break;
    case Kind::usb:
        if (!exchange.request.empty()) {
            (requestLineOf(exchange) == kTakeover ? takeovers_ : usbEvents_).push_back(moment);
        }
        break;
    case Kind::event: (exchange.request.empty() ? listeners_ : embeddedEvents_).push_back(moment); break;
    }
}

void Collector::addRequest(const Exchange &exchange, LineIndex line)
{
    const ReceivedRequest request = receive(exchange, kLongestRecordedRequest);
    if (request.state != RequestLine::State::complete) {
        contents_.withoutLineEnd += exchange.request.empty() ? 0 : 1;
        return;
    }
    contents_.requests.push_back({request.completed, hashOf(request.text), line});
    if (tools::tap::activatesUsbEvents(request.text)) {
        activations_.push_back({request.completed, exchange.process, line});
    }
    if (const auto process = recording_.processes().find(exchange.process); process != recording_.processes().end()) {
        asking_.insert(process->second.pid);
    }
}

/// Whether a program has taken the USB events over whose requests are not in the recording, so that it takes no part in the replay.
/// The programs of the replay do this themselves.
bool Collector::isFromOutside(const Moment &takeover) const
{
    const auto process = recording_.processes().find(takeover.process);
    return process != recording_.processes().end() && process->second.pid != 0 && !asking_.contains(process->second.pid);
}

void Collector::groupUsbEvents()
{
    std::copy_if(takeovers_.begin(), takeovers_.end(), std::back_inserter(usbEvents_),
                 [this](const Moment &takeover) { return isFromOutside(takeover); });
    sortByTime(activations_, &Moment::at);
    contents_.usbEvents.resize(activations_.empty() && !usbEvents_.empty() ? 1 : activations_.size());
    for (const Moment &event : usbEvents_) {
        const auto after = std::upper_bound(activations_.begin(), activations_.end(), event.at,
                                            [](Microseconds at, const Moment &activation) { return at < activation.at; });
        const auto number = static_cast<std::size_t>(after - activations_.begin());
        const Microseconds begin = number == 0 ? Microseconds(0) : activations_[number - 1].at;
        contents_.usbEvents[number == 0 ? 0 : number - 1].push_back({event.at - begin, event.line});
    }
}

void Collector::groupEmbeddedEvents()
{
    sortByTime(listeners_, &Moment::at);
    contents_.listenerEvents.resize(listeners_.size());
    std::map<unsigned, std::vector<std::size_t>> ofProcess;
    for (std::size_t i = 0; i < listeners_.size(); ++i) {
        ofProcess[listeners_[i].process].push_back(i);
    }
    for (const Moment &event : embeddedEvents_) {
        const std::vector<std::size_t> &own = ofProcess[event.process];
        const auto after = std::upper_bound(own.begin(), own.end(), event.at,
                                            [this](Microseconds at, std::size_t i) { return at < listeners_[i].at; });
        if (after == own.begin()) {
            contents_.sharedEvents.push_back({event.at, event.line});
        } else {
            const std::size_t listener = *std::prev(after);
            contents_.listenerEvents[listener].push_back({event.at - listeners_[listener].at, event.line});
        }
    }
}

Contents Collector::finish()
{
    groupUsbEvents();
    groupEmbeddedEvents();
    sortByTime(contents_.requests, &RecordedRequest::completed);
    for (std::vector<EventGroup> *groups : {&contents_.usbEvents, &contents_.listenerEvents}) {
        for (EventGroup &group : *groups) {
            sortByTime(group, &RecordedEvent::offset);
        }
    }
    sortByTime(contents_.sharedEvents, &RecordedEvent::offset);
    return std::move(contents_);
}

std::size_t countOf(const std::vector<EventGroup> &groups)
{
    std::size_t count = 0;
    for (const EventGroup &group : groups) {
        count += group.size();
    }
    return count;
}

}  // namespace

std::optional<std::string> requestLineOf(const Exchange &exchange)
{
    ReceivedRequest request = receive(exchange, kLongestRecordedRequest);
    return request.state == RequestLine::State::complete ? std::optional(std::move(request.text)) : std::nullopt;
}

// FNV-1a. std::hash has only 32 bits on some machines, so that different requests of a large recording would share a hash.
uint64_t hashOf(std::string_view request)
{
    constexpr uint64_t kBasis = 0xcbf29ce484222325;
    constexpr uint64_t kPrime = 0x100000001b3;
    uint64_t hash = kBasis;
    for (const char byte : request) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * kPrime;
    }
    return hash;
}

std::size_t Contents::usbEventCount() const { return countOf(usbEvents); }

std::size_t Contents::embeddedEventCount() const { return countOf(listenerEvents) + sharedEvents.size(); }

Contents contentsOf(const Recording &recording)
{
    Collector collector(recording);
    for (std::size_t i = 0; i < recording.size(); ++i) {
        const tools::recording::Line line = recording.line(i);
        if (const auto *exchange = std::get_if<Exchange>(&line)) {
            collector.add(*exchange, static_cast<LineIndex>(i));
        }
    }
    return collector.finish();
}

}  // namespace kvosim
