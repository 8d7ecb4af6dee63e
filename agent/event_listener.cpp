// The listener for the events of embedded stations: one thread that connects, reads event lines and passes them to the host.
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
constexpr auto kThreadEndTime = 1s;
constexpr std::size_t kNameSize = 20;
constexpr std::size_t kNameSeparator = 2;  // length of the comma and a blank

constexpr std::size_t kLostConnections = 16;

/// Only one activation or deactivation runs at a time. Not locked while the host's callback runs.
pthread_mutex_t listenerChange = PTHREAD_MUTEX_INITIALIZER;

/// 1 while the listener's thread exists; the thread may outlive its deactivation.
uint32_t running = 0;
EmbKvoEventCallback eventCallback = nullptr;

/// Protects the record of the active listener. A listener may outlive its record: a thread accesses a record only while it
/// holds this lock and the record is the active one. A listener removes its thread from the record before it ends, and signals
/// are sent to the thread in the record, both under this lock: a thread that has ended is never signalled.
pthread_mutex_t recordChange = PTHREAD_MUTEX_INITIALIZER;
Notify *activeRecord = nullptr;

/// Runs @p access on the record if it is the active one, and returns its result; otherwise returns @p otherwise.
template <class Access, class Value>
Value ifActive(Notify *record, Access access, Value otherwise) noexcept
{
    const Lock lock(recordChange);
    return activeRecord == record ? access(*record) : otherwise;
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
        ifActive(
            record_,
            [](Notify &record) {
                shared(record.threadWorker).store(pthread_self());
                // Does not overwrite a stop that was requested before this point.
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
            ifActive(
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
        while (keepsRunning()) {
            Descriptor socket = connect();
            debugValues("embKvoEventsThread: connected to '%s'", kEventSocket.data());
            const bool deliveredEvent = serve(socket);
            keepOpen(std::move(socket));
            if (!deliveredEvent) {
                pauseUnlessStopped();  // avoids a busy loop with a service that accepts connections and closes them
            }
        }
    }

private:
    [[nodiscard]] bool keepsRunning() const noexcept
    {
        return ifActive(
            record_, [](Notify &record) { return shared(record.uiState).load() == NOTIFY_RUNNING; }, false);
    }

    /// Sleeps for the time between two attempts to connect. The signal of a stop interrupts the sleep.
    void pauseUnlessStopped() const noexcept
    {
        const auto end = Clock::now() + kRetryPause;
        Notify sleep = {};
        for (std::chrono::milliseconds left = kRetryPause; keepsRunning() && left > 0ms;
             left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())) {
            if (WaitNotify(&sleep, static_cast<unsigned>(left.count())) == 0) {
                return;
            }
        }
    }

    /// Removes the thread from the record: the thread is no longer signalled, and the record has one user fewer. Returns true
    /// if the thread was the last user and a stop was requested.
    [[nodiscard]] bool leaveRecord() const noexcept
    {
        return ifActive(
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

    /// A lost connection stays open while the listener is active: the service treats a closed connection as a station that has
    /// left. The number is limited, so that a service cannot exhaust the process's descriptors.
    void keepOpen(Descriptor socket) noexcept { lost_[nextLost_++ % lost_.size()] = std::move(socket); }

    /// Connects, without a time limit and without checking for a stop: services rely on the attempts.
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

    /// Passes events to the host until the connection is lost or a stop is requested. Returns true if the connection delivered
    /// an event.
    [[nodiscard]] bool serve(const Descriptor &socket) const noexcept
    {
        bool deliveredEvent = false;
        while (keepsRunning()) {
            const int ready = kvo_hws::pollReadable(socket.get(), kStatePeriod);
            if (ready == 0) {
                debugValues("embKvoEventsThread: select returns 0==> timeout");
            } else if (ready < 0 && errno != EINTR) {
                debugValues("embKvoEventsThread: select returns %d==> timeout",
                            errno);  // the words of the timeout message: log searches rely on them
                break;
            } else if (ready > 0 && !readEvent(socket, deliveredEvent)) {
                break;
            }
        }
        return deliveredEvent;
    }

    /// Returns false if the connection is lost.
    bool readEvent(const Descriptor &socket, bool &deliveredEvent) const noexcept
    {
        DynBuffer line = {};
        const int result = ReadSocketDyn(socket.get(), &line);
        const HeapText text(line.pcData);
        if (result != 1) {
            debugValues("embKvoEventsThread: ReadSocketDyn returns %d", result);
            return false;
        }
        debugValues("embKvoEventsThread: Got event: %s\n", text.get());
        if (text.get() != kKeepAlive && keepsRunning()) {
            deliveredEvent = deliver(text.get()) || deliveredEvent;
        }
        return true;
    }

    /// Passes an event to the host. Returns false if the text is not an event.
    static bool deliver(std::string_view event) noexcept
    {
        const auto comma = event.find(',');
        if (comma == std::string_view::npos || comma >= kNameSize) {
            debugValues("embKvoEventsThread: event dropped: a name of at most 19 characters and a comma are expected");
            return false;
        }
        char name[kNameSize];
        name[event.copy(name, comma)] = '\0';
        const std::size_t data = std::min(comma + kNameSeparator, event.size());
        try {
            if (const EmbKvoEventCallback callback = shared(eventCallback).load()) {
                callback(name, event.data() + data);  // the text is terminated
            }
        } catch (...) {
            // Exceptions of the host are ignored.
        }
        return true;
    }

    Notify *record_;
    std::array<Descriptor, kLostConnections> lost_{};
    std::size_t nextLost_ = 0;
};

/// Runs a listener on a record that is already the active one.
void *listenOnActive(void *record) noexcept
{
    const kvo_hws::NoCancellation wholeLife;
    kvo_hws_detach_thread();
    Listener(static_cast<Notify *>(record)).run();
    return nullptr;
}

/// Requests the end and waits for it. The listener misses a signal that arrives between its check of the state and its wait.
/// Its wait takes as long as this one; therefore the signal is sent repeatedly.
int stopListener(Notify &record) noexcept
{
    const auto underLock = [](auto step) {
        const Lock lock(recordChange);
        step();
    };
    const auto wait = [&record] {
        // WaitShutdown tests errno if the time has passed and the listener has ended: the result must be 1 then.
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

/// Waits for the end of a thread that is certain to end, so that the listener can be activated again at once.
void awaitThreadEnd() noexcept
{
    for (auto waited = 0ms; waited < kThreadEndTime && shared(running).load() != 0; waited += 1ms) {
        kvo_hws::pause(1ms);
    }
}

const char *textOf(int shutdownResult) noexcept
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
    debugValues("shutdown %s thread - %s", "Emb-KVO events", textOf(result));
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
        awaitThreadEnd();
    }
    return KVO_HWS_OK;
}

void *embKvoEventsThread(void *record) noexcept
{
    setActive(static_cast<Notify *>(record));
    return listenOnActive(record);
}
