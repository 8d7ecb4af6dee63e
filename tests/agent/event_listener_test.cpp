// The listener for the events of embedded stations.
#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "support/failing_allocations.h"
#include "support/holdings.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

namespace {

using support::eventually;
using support::MessagesOn;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;
using testing::Not;

using Clock = std::chrono::steady_clock;
using Event = std::pair<std::string, std::string>;

constexpr const char *kPath = "/tmp/kvo_hws/event_sock";
const std::string kThread = "embKvoEventsThread: ";

/// The events that the host's callback was called with.
class Told {
public:
    static void callback(const char *name, const char *data)
    {
        std::function<void()> then;
        {
            const std::lock_guard guard(lock_);
            events_.emplace_back(name, data);
            then = then_;
        }
        if (then) {
            then();
        }
    }
    static std::vector<Event> events()
    {
        const std::lock_guard guard(lock_);
        return events_;
    }
    static void then(std::function<void()> work)
    {
        const std::lock_guard guard(lock_);
        then_ = std::move(work);
        events_.clear();
    }
    static bool waitFor(std::size_t count)
    {
        return eventually([=] { return events().size() >= count; });
    }

private:
    static inline std::mutex lock_;
    static inline std::vector<Event> events_;
    static inline std::function<void()> then_;
};

/// A service that publishes events.
class EventService {
public:
    EventService() : listener_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        std::filesystem::create_directories("/tmp/kvo_hws");
        unlink(kPath);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, kPath);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
    }
    EventService(const EventService &) = delete;
    EventService &operator=(const EventService &) = delete;
    ~EventService()
    {
        closeAll();
        close(listener_);
        unlink(kPath);
    }

    /// Waits for the listener; events go to the newest connection.
    bool accept(std::chrono::milliseconds within = 10s)
    {
        pollfd waiting{.fd = listener_, .events = POLLIN, .revents = 0};
        if (poll(&waiting, 1, static_cast<int>(within.count())) != 1) {
            return false;
        }
        connections_.push_back(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
        return true;
    }
    void publish(const std::string &bytes) const
    {
        EXPECT_EQ(write(connections_.back(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    void stopSending() const { shutdown(connections_.back(), SHUT_WR); }
    void stopSending(std::size_t connection) const { shutdown(connections_[connection], SHUT_WR); }
    /// Whether the listener has closed a connection.
    [[nodiscard]] bool isClosed(std::size_t connection) const
    {
        char byte = 0;
        return recv(connections_[connection], &byte, 1, MSG_DONTWAIT) == 0;
    }
    void closeAll()
    {
        for (const int connection : std::exchange(connections_, {})) {
            close(connection);
        }
    }

private:
    int listener_;
    std::vector<int> connections_;
};

/// Activates for a scope.
class Listening {
public:
    Listening() { EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(Told::callback), 1); }
    Listening(const Listening &) = delete;
    Listening &operator=(const Listening &) = delete;
    ~Listening() { stop(); }

    int stop() { return std::exchange(stopped_, true) ? 0 : KVO_HWS_deactivateEmbKvoEvents(); }

private:
    bool stopped_ = false;
};

/// Whether a listener could be activated: none is left.
bool isFree()
{
    if (KVO_HWS_activateEmbKvoEvents(Told::callback) != 1) {
        return false;
    }
    KVO_HWS_deactivateEmbKvoEvents();
    return true;
}

class EventListener : public testing::Test {
protected:
    void SetUp() override { Told::then({}); }

    const MessagesOn messages;
};

TEST_F(EventListener, tells_the_host_name_and_data)
{
    EventService service;
    const SyslogCapture capture;
    {
        Listening listening;
        ASSERT_TRUE(service.accept());
        service.publish("panel, 10.0.0.5 on\n");
        service.publish("a,  two blanks\nb,xdata\nc,\nd, \n1234567890123456789, the longest name\n, no name\ne, 1, 2\n");
        ASSERT_TRUE(Told::waitFor(8));
        EXPECT_EQ(listening.stop(), 1);
    }
    EXPECT_THAT(Told::events(), ElementsAre(Event("panel", "10.0.0.5 on"), Event("a", " two blanks"), Event("b", "data"),
                                            Event("c", ""), Event("d", ""), Event("1234567890123456789", "the longest name"),
                                            Event("", "no name"), Event("e", "1, 2")))
        << "the data begins two characters behind the comma, whatever the second is";
    const auto texts = capture.texts();
    ASSERT_GE(texts.size(), 4U);
    EXPECT_EQ(texts[0], kThread + "try connect to pipe '/tmp/kvo_hws/event_sock'");
    EXPECT_EQ(texts[1], kThread + "connected to '/tmp/kvo_hws/event_sock'");
    EXPECT_THAT(texts, Contains(kThread + "Got event: panel, 10.0.0.5 on\n"));
    EXPECT_EQ(texts.back(), "shutdown Emb-KVO events thread - ok");
}

TEST_F(EventListener, drops_keep_alives)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("Alive?\nAlive?, here\nAlive? \nalive?, x\nend, x\n");
    ASSERT_TRUE(Told::waitFor(3));
    EXPECT_THAT(Told::events(), ElementsAre(Event("Alive?", "here"), Event("alive?", "x"), Event("end", "x")));
    EXPECT_THAT(capture.texts(), Contains(kThread + "Got event: Alive?\n"));
}

TEST_F(EventListener, drops_events_without_a_name_that_it_can_tell)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("no comma\n\n12345678901234567890, one too long\nend, x\n");
    ASSERT_TRUE(Told::waitFor(1));
    EXPECT_THAT(Told::events(), ElementsAre(Event("end", "x")));
    EXPECT_EQ(std::ranges::count(capture.texts(),
                                 kThread + "event dropped: a name of at most 19 characters and a comma are expected"),
              3);
}

TEST_F(EventListener, reads_events_of_any_length_and_in_pieces)
{
    EventService service;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    const std::string data(100'000, 'd');
    std::thread writer([&] { service.publish("long, " + data + "\n"); });
    ASSERT_TRUE(Told::waitFor(1));
    writer.join();
    EXPECT_EQ(Told::events().front().second, data);
    service.publish("pie");
    std::this_thread::sleep_for(50ms);
    service.publish("ces, %s%n\n");
    ASSERT_TRUE(Told::waitFor(2));
    EXPECT_EQ(Told::events().back(), Event("pieces", "%s%n"));
}

TEST_F(EventListener, tells_that_nothing_has_come)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    EXPECT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kThread + "select returns 0==> timeout") >= 2; }));
}

TEST_F(EventListener, connects_with_the_whole_address)
{
    EventService service;
    std::atomic<socklen_t> length{0};
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *, socklen_t seen) {
        length = seen;
        return support::kPass;
    }}};
    const Listening listening;
    ASSERT_TRUE(service.accept());
    EXPECT_EQ(length, sizeof(sockaddr_un));
}

TEST_F(EventListener, needs_a_callback_and_no_other_listener)
{
    EventService service;
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(nullptr), -7);
    Listening listening;
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(Told::callback), -8);
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(nullptr), -8) << "that comes first";
    ASSERT_TRUE(service.accept());
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, that_is_not_active_cannot_be_stopped)
{
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST_F(EventListener, without_a_thread_is_not_active)
{
    {
        const WithSystemCalls calls{{.pthreadCreate = [] { return EAGAIN; }}};
        EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(Told::callback), -1);
    }
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1);
    EventService service;
    const Listening listening;
    EXPECT_TRUE(service.accept()) << "the next one works";
}

TEST_F(EventListener, is_woken_by_its_stop)
{
    EventService service;
    Listening listening;
    ASSERT_TRUE(service.accept());
    std::this_thread::sleep_for(100ms);
    const auto began = Clock::now();
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_LE(Clock::now() - began, 500ms) << "well before its wait of a second is over";
}

TEST_F(EventListener, is_woken_by_a_stop_that_comes_just_before_its_wait)
{
    EventService service;
    std::atomic<bool> isAboutToWait{false};
    const WithSystemCalls calls{{.poll = [&](pollfd *, nfds_t, int milliseconds) {
        if (milliseconds == 1000 && !isAboutToWait.exchange(true)) {
            std::this_thread::sleep_for(60ms);  // the stop's first signal is over when this returns
        }
        return support::kPass;
    }}};
    Listening listening;
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return isAboutToWait.load(); }));
    const auto began = Clock::now();
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_LE(Clock::now() - began, 500ms) << "well before its wait of a second is over";
    EXPECT_TRUE(isFree());
}

/// A thread that has ended is no thread to signal: its number may be another's.
class SignalledListener : public EventListener, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(Signal, SignalledListener, testing::Values(1, 2));

TEST_P(SignalledListener, does_not_end_while_it_is_signalled)
{
    EventService service;
    std::atomic<bool> hasEnded{false};
    std::atomic<int> signals{0};
    const auto holdUp = [&, own = std::this_thread::get_id()](pthread_t) {
        if (std::this_thread::get_id() != own || ++signals > GetParam()) {
            return support::kPass;
        }
        if (signals < GetParam()) {
            return 0;  // lost on it
        }
        // It is woken by something else, and sees the stop.
        service.publish("Alive?\n");
        std::this_thread::sleep_for(200ms);
        EXPECT_FALSE(hasEnded);
        return support::kPass;
    };
    const auto noteEnd = [&hasEnded](std::function<void *()> work) {
        return std::function<void *()>([&hasEnded, work] {
            void *const result = work();
            hasEnded = true;
            return result;
        });
    };
    const WithSystemCalls calls{{.pthreadKill = holdUp, .threadWork = noteEnd}};
    Listening listening;
    ASSERT_TRUE(service.accept());
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_GE(signals, GetParam());
    EXPECT_TRUE(eventually([&] { return hasEnded.load(); }));
}

TEST_F(EventListener, takes_its_thread_out_of_its_record_when_it_ends)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    EXPECT_NE(std::atomic_ref(record->threadWorker).load(), pthread_t{});
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_DONE);
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_STOPPED; }));
    EXPECT_EQ(std::atomic_ref(record->threadWorker).load(), pthread_t{});
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, is_waited_for_in_ten_parts_of_a_second)
{
    EventService service;
    std::atomic<bool> goOn{false};
    Told::then([&] {
        while (!goOn) {
            std::this_thread::sleep_for(1ms);
        }
    });
    Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("event, x\n");
    ASSERT_TRUE(Told::waitFor(1));
    std::vector<timeval> waits;
    {
        const WithSystemCalls calls{{.select = [&, own = std::this_thread::get_id()](timeval *time) {
            if (std::this_thread::get_id() != own) {
                return support::kPass;
            }
            waits.push_back(*time);
            return 0;  // the time is over
        }}};
        listening.stop();
    }
    EXPECT_EQ(waits.size(), 10U);
    for (const timeval &wait : waits) {
        EXPECT_EQ(wait.tv_sec * 1'000'000 + wait.tv_usec, 100'000);
    }
    goOn = true;
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, may_be_activated_again_at_once)
{
    EventService service;
    for (int round = 0; round < 5; ++round) {
        Listening listening;
        ASSERT_TRUE(service.accept());
        EXPECT_EQ(listening.stop(), 1);
    }
}

TEST_F(EventListener, tries_to_connect_every_second)
{
    std::mutex lock;
    std::vector<Clock::time_point> tries;
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *, socklen_t) {
        const std::lock_guard guard(lock);
        tries.push_back(Clock::now());
        return support::kPass;
    }}};
    const SyslogCapture capture;
    Listening listening;
    ASSERT_TRUE(eventually([&] {
        const std::lock_guard guard(lock);
        return tries.size() >= 3;
    }));
    {
        const std::lock_guard guard(lock);
        for (std::size_t next = 1; next < 3; ++next) {
            EXPECT_THAT(tries[next] - tries[next - 1], AllOf(Ge(1s), Lt(3s)));
        }
    }
    EXPECT_THAT(capture.texts(), Contains(kThread + "oops: all instances used '/tmp/kvo_hws/event_sock'"));

    // Also after its stop was asked for: it ends when a service is there.
    const auto began = Clock::now();
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(1s), Lt(3s)));
    EXPECT_THAT(capture.texts(), Contains("shutdown Emb-KVO events thread - timeout"));
    const auto so_far = [&] {
        const std::lock_guard guard(lock);
        return tries.size();
    };
    const std::size_t before = so_far();
    EXPECT_TRUE(eventually([&] { return so_far() >= before + 2; })) << "it still tries";
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(Told::callback), -8);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1) << "its record has gone";
    EXPECT_EQ(capture.texts().back(), "KVO_HWS_deactivateEmbKvoEvents: is still running");
    EventService service;
    ASSERT_TRUE(service.accept());
    EXPECT_TRUE(eventually(isFree));
    EXPECT_THAT(Told::events(), IsEmpty());
}

TEST_F(EventListener, tries_again_where_there_is_no_socket)
{
    EventService service;
    std::atomic<int> rounds{0};
    const WithSystemCalls calls{{.socket = [&](int) {
        if (rounds++ == 0) {
            errno = EMFILE;
            return -1;
        }
        return support::kPass;
    }}};
    const auto began = Clock::now();
    const Listening listening;
    ASSERT_TRUE(service.accept());
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(1s), Lt(3s)));
}

TEST_F(EventListener, connects_anew_where_the_connection_ends)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.stopSending();
    ASSERT_TRUE(service.accept());
    service.publish("again, x\n");
    ASSERT_TRUE(Told::waitFor(1));
    EXPECT_FALSE(service.isClosed(0)) << "the service takes a closed connection for a station that has gone";
    EXPECT_EQ(
        std::ranges::count_if(capture.texts(),
                              [](const std::string &text) { return text.starts_with(kThread + "ReadSocketDyn returns "); }),
        1);
    EXPECT_EQ(std::ranges::count(capture.texts(), kThread + "try connect to pipe '/tmp/kvo_hws/event_sock'"), 2);
}

TEST_F(EventListener, connects_again_at_once_after_a_connection_that_brought_an_event)
{
    EventService service;
    Listening listening;
    const auto began = Clock::now();
    for (int connection = 1; connection <= 8; ++connection) {
        ASSERT_TRUE(service.accept());
        service.publish("event, x\nno comma\n");
        service.stopSending();
    }
    EXPECT_LT(Clock::now() - began, 4s) << "without seven pauses of a second";
    EXPECT_TRUE(Told::waitFor(8));
}

/// However long it lasted, and whatever else came.
TEST_F(EventListener, pauses_after_a_connection_that_brought_no_event)
{
    EventService service;
    Listening listening;
    ASSERT_TRUE(service.accept());
    std::this_thread::sleep_for(1100ms);
    service.publish("Alive?\nno comma\na name that is too long, x\n");
    std::this_thread::sleep_for(50ms);
    const auto ends = Clock::now();
    service.stopSending();
    ASSERT_TRUE(service.accept());
    EXPECT_GE(Clock::now() - ends, 900ms);
    EXPECT_THAT(Told::events(), IsEmpty());
}

TEST_F(EventListener, is_stopped_while_it_pauses)
{
    EventService service;
    Listening listening;
    std::atomic<bool> pauses{false};
    const WithSystemCalls calls{{.select = [&, own = std::this_thread::get_id()](timeval *time) {
        pauses = pauses || (std::this_thread::get_id() != own && time->tv_sec + time->tv_usec >= 1);
        return support::kPass;
    }}};
    ASSERT_TRUE(service.accept());
    service.stopSending();
    ASSERT_TRUE(eventually([&] { return pauses.load(); }));
    std::this_thread::sleep_for(50ms);
    const auto began = Clock::now();
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_LE(Clock::now() - began, 800ms) << "before its pause of a second is over";
}

TEST_F(EventListener, pauses_for_its_time_through_signals)
{
    EventService service;
    std::atomic<pthread_t> thread{};
    std::mutex lock;
    std::vector<long> asked;
    const WithSystemCalls calls{{.select =
                                     [&](timeval *time) {
                                         if (pthread_equal(pthread_self(), thread.load()) != 0) {
                                             const std::lock_guard guard(lock);
                                             asked.push_back(time->tv_sec * 1000 + time->tv_usec / 1000);
                                         }
                                         return support::kPass;
                                     },
                                 .threadWork =
                                     [&](std::function<void *()> work) {
                                         return std::function<void *()>([&thread, work] {
                                             thread = pthread_self();
                                             return work();
                                         });
                                     }}};
    Listening listening;
    ASSERT_TRUE(service.accept());
    const auto ends = Clock::now();
    service.stopSending();
    for (int signals = 0; signals < 5; ++signals) {
        std::this_thread::sleep_for(50ms);
        pthread_kill(thread.load(), SIGUSR1);
    }
    ASSERT_TRUE(service.accept());
    EXPECT_GE(Clock::now() - ends, 900ms);
    const std::lock_guard guard(lock);
    ASSERT_GE(asked.size(), 2U);
    EXPECT_TRUE(std::ranges::is_sorted(asked, std::greater())) << "each for what is left";
    EXPECT_LT(asked.back(), 990) << "a signal does not prolong it";
}

/// A service that hangs up must use up neither the processor nor the descriptors of the program.
TEST_F(EventListener, does_not_run_after_a_service_that_hangs_up)
{
    EventService service;
    std::atomic<int> connects{0};
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *, socklen_t) {
        ++connects;
        return support::kPass;
    }}};
    Listening listening;
    const auto until = Clock::now() + 2500ms;
    while (Clock::now() < until) {
        if (service.accept(50ms)) {
            service.closeAll();
        }
    }
    EXPECT_GE(connects, 2);
    EXPECT_LE(connects, 4) << "one a second";
    listening.stop();
}

TEST_F(EventListener, closes_its_connections_when_it_is_stopped)
{
    EventService service;
    support::threadsRunning();
    const std::size_t before = support::descriptorsOpen();
    Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("event, x\n");
    service.stopSending();
    ASSERT_TRUE(service.accept());
    EXPECT_FALSE(service.isClosed(0));
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_TRUE(eventually([&] { return service.isClosed(0) && service.isClosed(1); }));
    service.closeAll();
    EXPECT_EQ(support::descriptorsOpen(), before);
}

TEST_F(EventListener, holds_no_more_than_16_lost_connections)
{
    EventService service;
    Listening listening;
    for (int connection = 0; connection < 20; ++connection) {
        ASSERT_TRUE(service.accept());
        service.publish("event, x\n");
        service.stopSending();
    }
    ASSERT_TRUE(service.accept());
    EXPECT_TRUE(eventually([&] { return service.isClosed(3); }));
    EXPECT_FALSE(service.isClosed(5));
}

TEST_F(EventListener, tells_nothing_once_it_is_stopped)
{
    EventService service;
    Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("half a ");
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(listening.stop(), 1);
    service.publish("line, x\n");
    EXPECT_TRUE(eventually([&] { return service.isClosed(0); }));
    EXPECT_THAT(Told::events(), IsEmpty());
}

TEST_F(EventListener, calls_the_host_on_a_thread_that_nobody_joins)
{
    EventService service;
    std::atomic<int> result{0};
    Told::then([&] { result = kvo_hws_detach_thread(); });
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("one, x\n");
    ASSERT_TRUE(eventually([&] { return result != 0; }));
    EXPECT_EQ(result, -1);
}

TEST_F(EventListener, without_memory_is_not_active)
{
    if (const char *const reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    int result = 0;
    {
        const support::FailingAllocations none;
        result = KVO_HWS_activateEmbKvoEvents(Told::callback);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1);
}

TEST_F(EventListener, connects_anew_where_it_cannot_wait)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    std::this_thread::sleep_for(50ms);
    std::atomic<int> error{EINTR};
    {
        const WithSystemCalls calls{{.poll = [&, own = std::this_thread::get_id()](pollfd *, nfds_t, int milliseconds) {
            if (std::this_thread::get_id() == own || milliseconds != 1000 || error == 0) {
                return support::kPass;
            }
            errno = error == EINTR ? error.exchange(ENOMEM) : error.exchange(0);
            return -1;
        }}};
        service.publish("one, x\n");
        ASSERT_TRUE(service.accept());
    }
    service.publish("two, x\n");
    ASSERT_TRUE(eventually([] { return !Told::events().empty() && Told::events().back().first == "two"; }));
    EXPECT_EQ(std::ranges::count(capture.texts(), kThread + "select returns " + std::to_string(ENOMEM) + "==> timeout"), 1)
        << "in the words of a time-out";
    EXPECT_EQ(std::ranges::count(capture.texts(), kThread + "select returns " + std::to_string(EINTR) + "==> timeout"), 0);
}

TEST_F(EventListener, goes_on_where_the_host_throws)
{
    EventService service;
    Told::then([] { throw 1; });
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("one, x\ntwo, x\n");
    EXPECT_TRUE(Told::waitFor(2));
}

TEST_F(EventListener, may_be_stopped_by_its_callback)
{
    EventService service;
    std::atomic<int> result{0};
    Told::then([&] { result = KVO_HWS_deactivateEmbKvoEvents(); });
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(Told::callback), 1);
    ASSERT_TRUE(service.accept());
    service.publish("one, x\ntwo, x\n");
    ASSERT_TRUE(eventually([&] { return result != 0; }));
    EXPECT_EQ(result, 1);
    Told::then({});
    EXPECT_TRUE(eventually(isFree));
    EXPECT_THAT(Told::events(), IsEmpty()) << "not even what had come already";
}

TEST_F(EventListener, is_activated_and_stopped_by_several_threads)
{
    EventService service;
    std::atomic<bool> ending{false};
    std::thread acceptor([&] {
        while (!ending) {
            service.accept(50ms);
        }
    });
    const auto until = Clock::now() + 3s;
    std::atomic<int> started{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            while (Clock::now() < until) {
                const int result = KVO_HWS_activateEmbKvoEvents(Told::callback);
                EXPECT_TRUE(result == 1 || result == -8) << result;
                started += result == 1 ? 1 : 0;
                KVO_HWS_deactivateEmbKvoEvents();
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_GE(started, 3);
    EXPECT_TRUE(eventually(isFree));
    ending = true;
    acceptor.join();
}

TEST_F(EventListener, may_be_several_threads_of_which_the_last_tells_that_they_have_ended)
{
    EventService service;
    // Only what comes ends a wait, so that it is seen which thread it ends.
    std::atomic<int> waiting = 0;
    const WithSystemCalls calls{{.poll = [&](pollfd *descriptors, nfds_t count, int) {
        if (!support::calledByLibrary()) {
            return support::kPass;
        }
        ++waiting;
        return ppoll(descriptors, count, nullptr, nullptr);
    }}};
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiUsers).load() == 2; }));
    const pthread_t second = std::atomic_ref(record->threadWorker).load();
    ASSERT_TRUE(eventually([&] { return waiting == 2; })) << "a listener that does not wait yet would see the stop by itself";
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_REQUESTED);
    service.stopSending(0);
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiUsers).load() == 1; }));
    EXPECT_TRUE(pthread_equal(std::atomic_ref(record->threadWorker).load(), second)) << "the one that goes on is still woken";
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(std::atomic_ref(record->uiState).load(), NOTIFY_STOP_REQUESTED) << "one goes on";
    service.closeAll();
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_STOP_DONE; }));
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, installs_the_handler_of_the_signal_that_wakes_it)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    signal(SIGUSR1, SIG_IGN);  // a program that has put its own in the place since
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGUSR1, nullptr, &action), 0);
    EXPECT_NE(action.sa_handler, SIG_IGN);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), 1);
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, waits_a_moment_at_its_end_and_wakes_whoever_waits_for_it)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);  // this thread is the one that waits
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    std::this_thread::sleep_for(100ms);
    std::atomic<bool> paused{false};
    const WithSystemCalls calls{{.select = [&, own = std::this_thread::get_id()](timeval *time) {
        paused = paused || (std::this_thread::get_id() != own && time->tv_sec == 0 && time->tv_usec == 20'000);
        return support::kPass;
    }}};
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_REQUESTED);
    const auto began = Clock::now();
    EXPECT_EQ(WaitShutdown(record, 8000), 1);
    EXPECT_LE(Clock::now() - began, 3s) << "woken: its own wait is over after 8 s alone";
    EXPECT_EQ(std::atomic_ref(record->uiState).load(), NOTIFY_STOP_DONE) << "written ahead of the signal";
    EXPECT_TRUE(paused);
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, that_cannot_be_waited_for_is_told)
{
    EventService service;
    const SyslogCapture capture;
    Listening listening;
    ASSERT_TRUE(service.accept());
    {
        const WithSystemCalls calls{{.select = [own = std::this_thread::get_id()](timeval *) {
            if (std::this_thread::get_id() != own) {
                return support::kPass;
            }
            errno = EINVAL;
            return -1;
        }}};
        EXPECT_EQ(listening.stop(), 1);
    }
    EXPECT_THAT(capture.texts(), Contains("shutdown Emb-KVO events thread - error"));
    EXPECT_TRUE(eventually(isFree));
}

TEST_F(EventListener, that_ends_without_being_asked_leaves_its_record_stopped)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    ASSERT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    std::atomic_ref(record->uiState).store(NOTIFY_STOP_DONE);  // as a program's own thread would end it
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_STOPPED; }));
    EXPECT_TRUE(eventually(isFree));
    DeleteNotify(&record);
}

TEST_F(EventListener, is_a_thread_that_a_program_may_start_itself)
{
    EventService service;
    Notify *record = nullptr;
    ASSERT_EQ(CreateNotify(&record), 0);
    ASSERT_EQ(kvo_hws_CreateThread(embKvoEventsThread, record), 1);
    ASSERT_TRUE(service.accept());
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(Told::callback), -8);
    EXPECT_TRUE(eventually([&] { return std::atomic_ref(record->uiState).load() == NOTIFY_RUNNING; }));
    EXPECT_EQ(std::atomic_ref(record->uiUsers).load(), 1U);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), 1);
    EXPECT_TRUE(eventually(isFree));
}

}  // namespace
