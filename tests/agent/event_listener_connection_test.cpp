// The listener for events of embedded stations: how it connects, pauses and reconnects.
#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "agent/event_listener_fixture.h"
#include "support/resource_usage.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

using agent_test::Clock;
using agent_test::EventListener;
using agent_test::EventService;
using agent_test::isFree;
using agent_test::kThread;
using agent_test::Listening;
using agent_test::ReceivedEvents;
using support::eventually;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::AllOf;
using testing::Contains;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;

TEST_F(EventListener, tries_to_connect_every_second)
{
    std::mutex lock;
    std::vector<Clock::time_point> tries;
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *, socklen_t) {
        const std::lock_guard guard(lock);
        tries.push_back(Clock::now());
        return support::kPassThrough;
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

    // After a stop request the listener still tries to connect: it ends only when it reaches a service.
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
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback), -8);
    EXPECT_EQ(KVO_HWS_deactivateEmbKvoEvents(), -1) << "its record is gone";
    EXPECT_EQ(capture.texts().back(), "KVO_HWS_deactivateEmbKvoEvents: is still running");
    EventService service;
    ASSERT_TRUE(service.accept());
    EXPECT_TRUE(eventually(isFree));
    EXPECT_THAT(ReceivedEvents::events(), IsEmpty());
}

TEST_F(EventListener, tries_again_after_socket_fails)
{
    EventService service;
    std::atomic<int> rounds{0};
    const WithSystemCalls calls{{.socket = [&](int) {
        if (rounds++ == 0) {
            errno = EMFILE;
            return -1;
        }
        return support::kPassThrough;
    }}};
    const auto began = Clock::now();
    const Listening listening;
    ASSERT_TRUE(service.accept());
    EXPECT_THAT(Clock::now() - began, AllOf(Ge(1s), Lt(3s)));
}

TEST_F(EventListener, reconnects_after_a_connection_ends)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.stopSending();
    ASSERT_TRUE(service.accept());
    service.publish("again, x\n");
    ASSERT_TRUE(ReceivedEvents::waitFor(1));
    EXPECT_FALSE(service.isClosed(0)) << "the service takes a closed connection for a station that is gone";
    EXPECT_EQ(
        std::ranges::count_if(capture.texts(),
                              [](const std::string &text) { return text.starts_with(kThread + "ReadSocketDyn returns "); }),
        1);
    EXPECT_EQ(std::ranges::count(capture.texts(), kThread + "try connect to pipe '/tmp/kvo_hws/event_sock'"), 2);
}

TEST_F(EventListener, reconnects_at_once_after_a_connection_with_an_event)
{
    EventService service;
    Listening listening;
    const auto began = Clock::now();
    for (int connection = 1; connection <= 8; ++connection) {
        ASSERT_TRUE(service.accept());
        service.publish("event, x\nno comma\n");
        service.stopSending();
    }
    EXPECT_LT(Clock::now() - began, 4s) << "without seven pauses of one second";
    EXPECT_TRUE(ReceivedEvents::waitFor(8));
}

/// The pause depends neither on how long the connection lasted nor on other lines that were received.
TEST_F(EventListener, pauses_after_a_connection_without_an_event)
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
    EXPECT_THAT(ReceivedEvents::events(), IsEmpty());
}

TEST_F(EventListener, stops_while_it_pauses)
{
    EventService service;
    Listening listening;
    std::atomic<bool> pauses{false};
    const WithSystemCalls calls{{.select = [&, own = std::this_thread::get_id()](timeval *time) {
        if (std::this_thread::get_id() != own && time->tv_sec * 1'000'000 + time->tv_usec > 500'000) {
            pauses = true;
            time->tv_sec = 60;
        }
        return support::kPassThrough;
    }}};
    ASSERT_TRUE(service.accept());
    service.stopSending();
    ASSERT_TRUE(eventually([&] { return pauses.load(); }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(listening.stop(), 1);
    EXPECT_TRUE(eventually(isFree)) << "it still pauses";
}

TEST_F(EventListener, pauses_for_the_full_time_despite_signals)
{
    EventService service;
    std::atomic<pthread_t> thread{};
    std::mutex lock;
    std::vector<long> waits;
    const WithSystemCalls calls{{.select =
                                     [&](timeval *time) {
                                         if (pthread_equal(pthread_self(), thread.load()) != 0) {
                                             const std::lock_guard guard(lock);
                                             waits.push_back(time->tv_sec * 1000 + time->tv_usec / 1000);
                                         }
                                         return support::kPassThrough;
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
    ASSERT_GE(waits.size(), 2U);
    EXPECT_TRUE(std::ranges::is_sorted(waits, std::greater())) << "each wait is for the remaining time";
    EXPECT_LT(waits.back(), 990) << "a signal does not prolong the pause";
}

/// A service that closes every connection must not use up the program's processor time or descriptors.
TEST_F(EventListener, limits_connects_to_a_service_that_closes_at_once)
{
    EventService service;
    std::atomic<int> connects{0};
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *, socklen_t) {
        ++connects;
        return support::kPassThrough;
    }}};
    Listening listening;
    const auto began = Clock::now();
    while (Clock::now() < began + 2500ms) {
        if (service.accept(50ms)) {
            service.closeAll();
        }
    }
    EXPECT_GE(connects, 2);
    EXPECT_LE(connects, 2 + (Clock::now() - began) / 1s) << "one per second";
    listening.stop();
}

TEST_F(EventListener, closes_its_connections_when_it_stops)
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

TEST_F(EventListener, keeps_at_most_16_lost_connections)
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

TEST_F(EventListener, reconnects_when_polling_fails)
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
                return support::kPassThrough;
            }
            errno = error == EINTR ? error.exchange(ENOMEM) : error.exchange(0);
            return -1;
        }}};
        service.publish("one, x\n");
        ASSERT_TRUE(service.accept());
    }
    service.publish("two, x\n");
    ASSERT_TRUE(eventually([] { return !ReceivedEvents::events().empty() && ReceivedEvents::events().back().first == "two"; }));
    EXPECT_EQ(std::ranges::count(capture.texts(), kThread + "select returns " + std::to_string(ENOMEM) + "==> timeout"), 1)
        << "with the message of a timeout";
    EXPECT_EQ(std::ranges::count(capture.texts(), kThread + "select returns " + std::to_string(EINTR) + "==> timeout"), 0);
}

}  // namespace
