#include "loop_requests.h"

#include <kvo_hws/kvo_hws.hpp>

#include <optional>
#include <poll.h>
#include <string>

using namespace std::chrono_literals;

namespace soak {

namespace {

constexpr std::size_t kCapacity = 32;
constexpr uint32_t kLargestBatch = 12;
constexpr auto kLongestDeadline = 2s;

kvo::Result<std::string> ask(kvo::Station station, uint32_t choice)
{
    const auto numberOf = [](const auto &result) {
        return result ? kvo::Result<std::string>(std::to_string(*result)) : kvo::Result<std::string>(result.error());
    };
    switch (choice) {
    case 0: return numberOf(station.mcp_address());
    case 1: return numberOf(station.index());
    case 2: return numberOf(station.disable_caps_lock());
    case 3: return station.screen_on_focus();
    default: return numberOf(kvo::Service::is_init_complete());
    }
}
constexpr uint32_t kChoices = 5;

}  // namespace

struct LoopRequests::State {
    State(SharedState &sharedState, const std::vector<uint32_t> &all) : shared(sharedState), stations(all) {}

    void create();
    void submit(Random &random);
    void finish(uint64_t place, Clock::time_point deadline, const kvo::Result<std::string> &result);
    void cancel(Random &random);
    void wait(Random &random);
    void end(Worker &worker, bool waits);

    SharedState &shared;
    const std::vector<uint32_t> &stations;
    std::optional<kvo::Requests> requests{};
    kvo::Requests::Id last = 0;
    uint64_t lastDone = 0;  // the place of the last completion without a timeout
    uint64_t submitted = 0;
    uint64_t ended = 0;  // completed or cancelled
};

void LoopRequests::State::create()
{
    auto created = kvo::Requests::create(kCapacity);
    if (!created) {
        shared.complaints.add("Requests::create: " + created.error().message());
        std::this_thread::sleep_for(1s);  // limits the number of complaints
        return;
    }
    requests.emplace(*std::move(created));
    lastDone = submitted = ended = 0;
}

void LoopRequests::State::submit(Random &random)
{
    for (uint32_t left = random.below(kLargestBatch); left > 0; --left) {
        const auto most = random.between(10ms, kLongestDeadline);
        const uint64_t place = submitted + 1;
        const auto id = requests->submit([station = kvo::Station(kvo::Address(random.oneOf(stations))),
                                          choice = random.below(kChoices)] { return ask(station, choice); },
                                         [this, place, deadline = Clock::now() + most](const kvo::Result<std::string> &result) {
                                             finish(place, deadline, result);
                                         },
                                         most);
        if (id) {
            last = *id;
            ++submitted;
            ++shared.figures.loopRequests;
        } else if (id.error().meaning() != kvo::Errc::full || requests->pending() < kCapacity) {
            shared.complaints.add("Requests::submit: " + id.error().message());
        } else {
            ++shared.figures.loopRefused;
        }
    }
}

void LoopRequests::State::finish(uint64_t place, Clock::time_point deadline, const kvo::Result<std::string> &result)
{
    ++ended;
    if (!result && result.error().meaning() == kvo::Errc::timeout) {
        ++shared.figures.loopTimeouts;
        if (Clock::now() < deadline) {
            shared.complaints.add("a request ran out of time before its deadline");
        }
        return;
    }
    ++shared.figures.loopAnswers;
    if (place <= lastDone) {
        shared.complaints.add("completion " + std::to_string(place) + " came after completion " + std::to_string(lastDone));
    }
    lastDone = place;
}

void LoopRequests::State::cancel(Random &random)
{
    // Among the last requests: some wait, one is being asked, some are done, and some do not exist.
    const auto back = random.below(static_cast<uint32_t>(kCapacity));
    if (requests->cancel(last - std::min<kvo::Requests::Id>(back, last))) {
        ++ended;
        ++shared.figures.loopCancelled;
    }
}

void LoopRequests::State::wait(Random &random)
{
    pollfd waiting{.fd = requests->descriptor(), .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, static_cast<int>(random.below(50))) == 1) {
        requests->dispatch();
    }
}

void LoopRequests::State::end(Worker &worker, bool waits)
{
    if (!requests) {
        return;
    }
    const uint64_t pending = requests->pending();
    shared.figures.loopDropped += pending;
    if (ended + pending != submitted) {
        worker.complain("of " + std::to_string(submitted) + " requests of a loop, " + std::to_string(ended) + " ended and " +
                        std::to_string(pending) + " are pending");
    }
    const Call call(worker.watch, waits ? "Requests::close" : "Requests::~Requests");
    if (waits) {
        requests->close();
    }
    requests.reset();
}

LoopRequests::LoopRequests(SharedState &shared, const std::vector<uint32_t> &stations)
    : state_(std::make_unique<State>(shared, stations))
{
}

LoopRequests::~LoopRequests() = default;

void LoopRequests::step(Worker &worker)
{
    if (!state_->requests) {
        state_->create();
        return;
    }
    {
        const Call call(worker.watch, "Requests of a loop");
        state_->submit(worker.random);
        state_->cancel(worker.random);
        state_->wait(worker.random);
    }
    worker.pause(0ms, 10ms);
    if (worker.random.oneIn(50)) {
        state_->end(worker, worker.random.oneIn(2));
    }
}

void LoopRequests::cleanUp(Worker &worker) { state_->end(worker, /*waits=*/true); }

}  // namespace soak
