// The listener for events of embedded stations: which events it passes to the host, and how.
#include <kvo_hws/agent.h>
#include <kvo_hws/runtime.h>

#include "agent/event_listener_fixture.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"
#include "support/usb_events.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

using agent_test::Event;
using agent_test::EventListener;
using agent_test::EventService;
using agent_test::isFree;
using agent_test::kThread;
using agent_test::Listening;
using agent_test::ReceivedEvents;
using support::eventually;
using support::SyslogCapture;
using support::WithSystemCalls;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(EventListener, passes_name_and_data_to_the_host)
{
    EventService service;
    const SyslogCapture capture;
    {
        Listening listening;
        ASSERT_TRUE(service.accept());
        service.publish("panel, 10.0.0.5 on\n");
        service.publish("a,  two blanks\nb,xdata\nc,\nd, \n1234567890123456789, the longest name\n, no name\ne, 1, 2\n");
        ASSERT_TRUE(ReceivedEvents::waitFor(8));
        EXPECT_EQ(listening.stop(), 1);
    }
    EXPECT_THAT(ReceivedEvents::events(),
                ElementsAre(Event("panel", "10.0.0.5 on"), Event("a", " two blanks"), Event("b", "data"), Event("c", ""),
                            Event("d", ""), Event("1234567890123456789", "the longest name"), Event("", "no name"),
                            Event("e", "1, 2")))
        << "the data begins two characters after the comma, whatever the second one is";
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
    ASSERT_TRUE(ReceivedEvents::waitFor(3));
    EXPECT_THAT(ReceivedEvents::events(), ElementsAre(Event("Alive?", "here"), Event("alive?", "x"), Event("end", "x")));
    EXPECT_THAT(capture.texts(), Contains(kThread + "Got event: Alive?\n"));
}

TEST_F(EventListener, drops_events_without_a_recognizable_name)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("no comma\n\n12345678901234567890, one too long\nend, x\n");
    ASSERT_TRUE(ReceivedEvents::waitFor(1));
    EXPECT_THAT(ReceivedEvents::events(), ElementsAre(Event("end", "x")));
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
    ASSERT_TRUE(ReceivedEvents::waitFor(1));
    writer.join();
    EXPECT_EQ(ReceivedEvents::events().front().second, data);
    service.publish("pie");
    std::this_thread::sleep_for(50ms);
    service.publish("ces, %s%n\n");
    ASSERT_TRUE(ReceivedEvents::waitFor(2));
    EXPECT_EQ(ReceivedEvents::events().back(), Event("pieces", "%s%n"));
}

TEST_F(EventListener, logs_each_wait_in_which_nothing_is_received)
{
    EventService service;
    const SyslogCapture capture;
    const Listening listening;
    ASSERT_TRUE(service.accept());
    EXPECT_TRUE(eventually([&] { return std::ranges::count(capture.texts(), kThread + "select returns 0==> timeout") >= 2; }));
}

TEST_F(EventListener, connects_with_the_size_of_the_whole_address_structure)
{
    EventService service;
    std::atomic<socklen_t> length{0};
    const WithSystemCalls calls{{.connect = [&](int, const sockaddr *, socklen_t seen) {
        length = seen;
        return support::kPassThrough;
    }}};
    const Listening listening;
    ASSERT_TRUE(service.accept());
    EXPECT_EQ(length, sizeof(sockaddr_un));
}

TEST_F(EventListener, does_not_call_the_host_after_a_stop)
{
    EventService service;
    Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("half a ");
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(listening.stop(), 1);
    service.publish("line, x\n");
    EXPECT_TRUE(eventually([&] { return service.isClosed(0); }));
    EXPECT_THAT(ReceivedEvents::events(), IsEmpty());
}

TEST_F(EventListener, calls_the_host_on_a_detached_thread)
{
    EventService service;
    std::atomic<int> result{0};
    ReceivedEvents::onEvent([&] { result = kvo_hws_detach_thread(); });
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("one, x\n");
    ASSERT_TRUE(eventually([&] { return result != 0; }));
    EXPECT_EQ(result, -1);
}

TEST_F(EventListener, continues_when_the_host_throws)
{
    EventService service;
    ReceivedEvents::onEvent([] { throw 1; });
    const Listening listening;
    ASSERT_TRUE(service.accept());
    service.publish("one, x\ntwo, x\n");
    EXPECT_TRUE(ReceivedEvents::waitFor(2));
}

TEST_F(EventListener, may_be_stopped_by_its_callback)
{
    EventService service;
    std::atomic<int> result{0};
    ReceivedEvents::onEvent([&] { result = KVO_HWS_deactivateEmbKvoEvents(); });
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_activateEmbKvoEvents(ReceivedEvents::callback), 1);
    ASSERT_TRUE(service.accept());
    service.publish("one, x\ntwo, x\n");
    ASSERT_TRUE(eventually([&] { return result != 0; }));
    EXPECT_EQ(result, 1);
    ReceivedEvents::onEvent({});
    EXPECT_TRUE(eventually(isFree));
    EXPECT_THAT(ReceivedEvents::events(), IsEmpty()) << "not even events that were already received";
}

}  // namespace
