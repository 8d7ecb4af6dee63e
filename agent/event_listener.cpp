// The listener for the events of embedded stations: one thread that connects, reads event lines and hands them to the host.
#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "runtime/clock.h"
#include "runtime/log.h"
#include "runtime/notifications.h"
#include "runtime/owners.h"
#include "runtime/shared_word.h"
#include "service/socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

using kvo_hws::debugValues;
using kvo_hws::Descriptor;
using kvo_hws::HeapText;
using kvo_hws::Lock;
using kvo_hws::shared;

constexpr std::string_view kEventSocket = "/tmp/kvo_hws/event_sock";
constexpr std::string_view kKeepAlive = "Alive?";
constexpr auto kStatePeriod = 1s;
constexpr auto kRetryPause = 1s;
constexpr unsigned kStopTime = 1000;   // milliseconds
constexpr unsigned kSignalTime = 100;  // milliseconds; divides kStopTime
constexpr unsigned kSettleTime = 20;   // milliseconds
constexpr auto kLastSteps = 1s;
constexpr std::size_t kNameRoom = 20;
constexpr std::size_t kBehindName = 2;  // the comma and a blank

constexpr std::size_t kLostConnections = 16;

/// Activations and deactivations take turns. Not held while host code runs.
pthread_mutex_t listenerChange = PTHREAD_MUTEX_INITIALIZER;

/// 1 while a listener's thread is there; it may outlive its deactivation.
uint32_t running = 0;
EmbKvoEventCallback eventCallback = nullptr;

/// The record of the listener that is active; whoever looks into a record holds this lock and finds it here, so that a listener
/// that outlives its record leaves it alone. A listener takes its thread out of the record under it before it ends, and is
/// signalled under it: a thread that has ended is never signalled.
pthread_mutex_t recordChange = PTHREAD_MUTEX_INITIALIZER;
Notify *activeRecord = nullptr;

/// Runs @p look on the record while it is the active one. Returns what that returned, else @p otherwise.
template <class Look, class Value>
Value whileActive(Notify *record, Look look, Value otherwise) noexcept
{
    const Lock lock(recordChange);
    return activeRecord == record ? look(*record) : otherwise;
}

void setActive(Notify *record) noexcept
{
    const Lock lock(recordChange);
    activeRecord = record;
}

Notify *active() noexcept
{
    const Lock lock(recordChange);
    return activeRecord;
}

class Listener {
public:
    explicit Listener(Notify *own) noexcept : record_(own)
    {
        shared(running).store(1);
        ActivateNotify();
        whileActive(
            record_,
            [](Notify &record) {
                shared(record.threadWorker).store(pthread_self());
                // A stop that was requested before this thread came so far stays one.
                uint32_t stopped = NOTIFY_STOPPED;
                shared(record.uiState).compare_exchange_strong(stopped, NOTIFY_RUNNING);
                return ++shared(record.uiUsers);
            },
            uint32_t{0});
    }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    ~Listener()
    {
        if (leaveRecord()) {
            Notify pause = {};
            WaitNotify(&pause, kSettleTime);
            whileActive(
                record_,
                [](Notify &record) {
                    shared(record.uiState).store(NOTIFY_STOP_DONE);
                    NotifyThread(shared(record.threadRequester).load());
                    return true;
                },
                false);
        }
        shared(running).store(0);
    }

    void run() noexcept
    {
        while (goesOn()) {
            Descriptor socket = connect();
            debugValues("embKvoEventsThread: connected to '%s'", kEventSocket.data());
            const bool broughtEvent = serve(socket);
            keepOpen(std::move(socket));
            if (!broughtEvent) {
                pauseUnlessStopped();  // a service that accepts and hangs up is not asked as fast as it does
            }
        }
    }

private:
    [[nodiscard]] bool goesOn() const noexcept
    {
        return whileActive(
            record_, [](Notify &record) { return shared(record.uiState).load() == NOTIFY_RUNNING; }, false);
    }

    /// Sleeps for as long as between two attempts to connect. The signal of a stop ends the sleep.
    void pauseUnlessStopped() const noexcept
    {
        const auto end = Clock::now() + kRetryPause;
        Notify sleep = {};
        for (std::chrono::milliseconds left = kRetryPause; goesOn() && left > 0ms;
             left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())) {
            if (WaitNotify(&sleep, static_cast<unsigned>(left.count())) == 0) {
                return;
            }
        }
    }

    /// Takes the thread out of the record: it is not signalled from here on, and is one user less. Whether it was the last one and
    /// its end was asked for.
    [[nodiscard]] bool leaveRecord() const noexcept
    {
        return whileActive(
            record_,
            [](Notify &record) {
                pthread_t self = pthread_self();
                shared(record.threadWorker).compare_exchange_strong(self, pthread_t{});
                const auto users = shared(record.uiUsers);
                if (users.load() != 0 && --users != 0) {
                    return false;
                }
                if (shared(record.uiState).load() == NOTIFY_STOP_REQUESTED) {
                    return true;
                }
                shared(record.uiState).store(NOTIFY_STOPPED);
                return false;
            },
            false);
    }

    /// A lost connection stays open while the listener is active: the service takes one that closes for a station that has
    /// gone. Only so many, though, that a service can not use up the process's descriptors.
    void keepOpen(Descriptor socket) noexcept { lost_[nextLost_++ % lost_.size()] = std::move(socket); }

    /// A connection, however long that takes: the stop is not looked at meanwhile, and services count on the attempts.
    static Descriptor connect() noexcept
    {
        debugValues("embKvoEventsThread: try connect to pipe '%s'", kEventSocket.data());
        for (;;) {
            Descriptor socket = kvo_hws::openLocalSocket();
            if (socket.valid()) {
                if (kvo_hws::connectLocal(socket, kEventSocket, kvo_hws::AddressLength::whole)) {
                    return socket;
                }
                debugValues("embKvoEventsThread: oops: all instances used '%s'", kEventSocket.data());
                socket.close();
            }
            kvo_hws::pause(kRetryPause);
        }
    }

    /// Hands events on until the connection is lost, or the stop is requested. Whether it brought one.
    [[nodiscard]] bool serve(const Descriptor &socket) const noexcept
    {
        bool broughtEvent = false;
        while (goesOn()) {
            const int ready = kvo_hws::pollReadable(socket.get(), kStatePeriod);
            if (ready == 0) {
                debugValues("embKvoEventsThread: select returns 0==> timeout");
            } else if (ready < 0 && errno != EINTR) {
                debugValues("embKvoEventsThread: select returns %d==> timeout",
                            errno);  // the words of the time-out, for log searches
                break;
            } else if (ready > 0 && !readEvent(socket, broughtEvent)) {
                break;
            }
        }
        return broughtEvent;
    }

    /// False where the connection is lost.
    bool readEvent(const Descriptor &socket, bool &broughtEvent) const noexcept
    {
        DynBuffer line = {};
        const int result = ReadSocketDyn(socket.get(), &line);
        const HeapText text(line.pcData);
        if (result != 1) {
            debugValues("embKvoEventsThread: ReadSocketDyn returns %d", result);
            return false;
        }
        debugValues("embKvoEventsThread: Got event: %s\n", text.get());
        if (text.get() != kKeepAlive && goesOn()) {
            broughtEvent = tell(text.get()) || broughtEvent;
        }
        return true;
    }

    /// Whether the text was an event.
    static bool tell(std::string_view event) noexcept
    {
        const auto comma = event.find(',');
        if (comma == std::string_view::npos || comma >= kNameRoom) {
            debugValues("embKvoEventsThread: event dropped: a name of at most 19 characters and a comma are expected");
            return false;
        }
        char name[kNameRoom];
        name[event.copy(name, comma)] = '\0';
        const std::size_t data = std::min(comma + kBehindName, event.size());
        try {
            if (const EmbKvoEventCallback callback = shared(eventCallback).load()) {
                callback(name, event.data() + data);  // the text is terminated
            }
        } catch (...) {
            // There is nobody to tell.
        }
        return true;
    }

    Notify *record_;
    std::array<Descriptor, kLostConnections> lost_{};
    std::size_t nextLost_ = 0;
};

/// A listener on a record that its activation has made the active one.
void *listenOnActive(void *record) noexcept
{
    const kvo_hws::NoCancellation wholeLife;
    kvo_hws_detach_thread();
    Listener(static_cast<Notify *>(record)).run();
    return nullptr;
}

/// Asks for the end and waits for it. A signal that comes between the listener's look at its state and its wait is lost on it,
/// and that wait lasts as long as this one: therefore it is sent again.
int stopListener(Notify &record) noexcept
{
    const auto underLock = [](auto step) {
        const Lock lock(recordChange);
        step();
    };
    const auto wait = [&record] {
        // Decides the one case that the wait leaves to it: the listener has ended, and its signal came too early.
        errno = EINTR;
        return WaitShutdown(&record, kSignalTime);
    };
    underLock([&] { kvo_hws::requestStop(record); });
    int result = wait();
    for (unsigned waited = kSignalTime; result == -2 && waited < kStopTime; waited += kSignalTime) {
        underLock([&] { NotifyThread(shared(record.threadWorker).load()); });
        result = wait();
    }
    return result;
}

/// Waits for the last steps of a listener whose end is certain, so that it may be activated again at once.
void awaitLastSteps() noexcept
{
    for (auto waited = 0ms; waited < kLastSteps && shared(running).load() != 0; waited += 1ms) {
        kvo_hws::pause(1ms);
    }
}

const char *wordFor(int shutdownResult) noexcept
{
    switch (shutdownResult) {
    case 1: return "ok";
    case -1: return "error";
    case -2: return "timeout";
    default: return "unknown error";
    }
}

}  // namespace

int KVO_HWS_activateEmbKvoEvents(EmbKvoEventCallback callback) noexcept
{
    const Lock lock(listenerChange);
    if (shared(running).load() != 0) {
        return KVO_HWS_ALREADY_RUNNING;
    }
    if (callback == nullptr) {
        return KVO_HWS_NULL_POINTER;
    }
    Notify *record = nullptr;
    if (CreateNotify(&record) != 0) {
        return KVO_HWS_FAILED;
    }
    shared(eventCallback).store(callback);
    setActive(record);
    shared(running).store(1);
    if (kvo_hws_CreateThread(listenOnActive, record) != 1) {
        shared(running).store(0);
        setActive(nullptr);
        DeleteNotify(&record);
        return KVO_HWS_FAILED;
    }
    return KVO_HWS_OK;
}

int KVO_HWS_deactivateEmbKvoEvents() noexcept
{
    const Lock lock(listenerChange);
    if (shared(running).load() == 0) {
        return KVO_HWS_FAILED;
    }
    Notify *record = active();
    const int result = record != nullptr ? stopListener(*record) : -2;
    debugValues("shutdown %s thread - %s", "Emb-KVO events", wordFor(result));
    const bool stillRuns = record == nullptr || shared(record->uiState).load() == NOTIFY_RUNNING;
    setActive(nullptr);
    if (record != nullptr) {
        DeleteNotify(&record);
    }
    if (stillRuns) {
        SendDLLDebugMessage("KVO_HWS_deactivateEmbKvoEvents: is still running");
        return KVO_HWS_FAILED;
    }
    if (result == 1) {
        awaitLastSteps();
    }
    return KVO_HWS_OK;
}

void *embKvoEventsThread(void *record) noexcept
{
    setActive(static_cast<Notify *>(record));
    return listenOnActive(record);
}
