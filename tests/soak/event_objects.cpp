#include "event_objects.h"

#include <kvo_hws/kvo_hws.hpp>

#include <optional>
#include <poll.h>
#include <string>

using namespace std::chrono_literals;

namespace soak {

namespace {

constexpr auto kShortestUse = 100ms;
constexpr auto kLongestUse = 4000ms;

template <class Value>
int32_t codeOf(const kvo::Result<Value> &result)
{
    return result ? KVO_HWS_OK : result.error().code();
}

/// The handler of an object: complains if it is called after the object was closed.
class UsbHandler {
public:
    UsbHandler(SharedState &shared, HandleUsbEvent handle) : calls_(std::make_shared<Calls>(shared, std::move(handle))) {}

    bool operator()(const kvo::UsbEvent &event) const
    {
        if (calls_->closed) {
            calls_->shared.complaints.add("a closed UsbEvents called its handler");
        }
        const auto *const device = deviceOf(event);
        return device == nullptr || calls_->handle(device->ip_address.c_str()) != -1;
    }
    void setClosed() const { calls_->closed = true; }

private:
    struct Calls {
        Calls(SharedState &sharedState, HandleUsbEvent handleEvent) : shared(sharedState), handle(std::move(handleEvent)) {}
        SharedState &shared;
        HandleUsbEvent handle;
        std::atomic<bool> closed{false};
    };

    static const kvo::UsbDeviceEvent *deviceOf(const kvo::UsbEvent &event)
    {
        return std::visit(
            [](const auto &kind) -> const kvo::UsbDeviceEvent * {
                if constexpr (std::is_base_of_v<kvo::UsbDeviceEvent, std::decay_t<decltype(kind)>>) {
                    return &kind;
                } else {
                    return nullptr;
                }
            },
            event);
    }

    std::shared_ptr<Calls> calls_;
};

/// Runs a loop for a while. Sometimes it stops so long that events are late.
void runLoop(Worker &worker, kvo::Requests &requests)
{
    constexpr auto kStandstill = 4000ms;
    const auto until = Clock::now() + worker.random.between(kShortestUse, kLongestUse);
    if (worker.random.oneIn(8)) {
        worker.pause(kStandstill, kStandstill);
    }
    while (Clock::now() < until && worker.mayContinue()) {
        pollfd ready{.fd = requests.descriptor(), .events = POLLIN, .revents = 0};
        if (poll(&ready, 1, 10) > 0) {
            requests.dispatch();
        }
    }
}

}  // namespace

void useUsbObject(Worker &worker, const HandleUsbEvent &handle)
{
    const UsbHandler handler(worker.shared, handle);
    std::optional<kvo::Requests> requests;
    if (worker.random.oneIn(2)) {
        if (auto created = kvo::Requests::create()) {
            requests.emplace(std::move(*created));
        }
    }
    std::optional<kvo::UsbEvents> events;
    {
        const Call call(worker.watch, "UsbEvents::activate");
        auto activated = requests ? kvo::UsbEvents::activate(*requests, handler) : kvo::UsbEvents::activate(handler);
        worker.figures().usbObjects.add(codeOf(activated));
        if (!activated) {
            return;
        }
        events.emplace(std::move(*activated));
    }
    if (requests) {
        runLoop(worker, *requests);
    } else {
        worker.pause(kShortestUse, kLongestUse);
    }
    if (requests && worker.random.oneIn(2)) {
        requests.reset();  // either may end first
    }
    const Call call(worker.watch, "UsbEvents::close");
    worker.figures().usbObjectCloses.add(codeOf(events->close()));
    handler.setClosed();
    if (requests) {
        requests->dispatch();
    }
}

void useEmbeddedObject(Worker &worker, const std::function<void(const char *name, const char *data)> &handle)
{
    std::optional<kvo::EmbeddedEvents> events;
    {
        const Call call(worker.watch, "EmbeddedEvents::activate");
        auto activated = kvo::EmbeddedEvents::activate(
            [handle](const kvo::EmbeddedEvent &event) { handle(event.name.c_str(), event.data.c_str()); });
        worker.figures().listens.add(codeOf(activated));
        if (!activated) {
            return;
        }
        events.emplace(std::move(*activated));
    }
    worker.pause(50ms, 1500ms);
    const Call call(worker.watch, "EmbeddedEvents::close");
    worker.figures().unlistens.add(codeOf(events->close()));
}

struct AgentObject::State {
    std::optional<kvo::Agent> agent;
};

AgentObject::AgentObject() : state_(std::make_unique<State>()) {}
AgentObject::~AgentObject() = default;

bool AgentObject::isStarted() const { return state_->agent.has_value(); }

int32_t AgentObject::start(SharedState &shared)
{
    kvo::AgentOptions options;
    options.focus = kvo::Address("10.0.0.5");
    options.session = 3;
    options.kvo_index = 5;
    options.mcp_flag = true;
    auto started = kvo::Agent::start(options, [&shared](const kvo::AgentCommand &) {
        const uint64_t number = ++shared.figures.agentCallbacks;
        if (number % 16 == 0) {
            std::this_thread::sleep_for(20ms);
        }
        return static_cast<kvo::AgentAnswer>(static_cast<int32_t>(number % 3) - 1);
    });
    if (started) {
        state_->agent.emplace(std::move(*started));
    }
    return codeOf(started);
}

int32_t AgentObject::close()
{
    const int32_t result = codeOf(state_->agent->close());
    state_->agent.reset();
    return result;
}

}  // namespace soak
