// The step that stops a USB event server.
#include <kvo_hws/service.h>

#include "support/counted_pauses.h"
#include "support/failing_allocations.h"
#include "support/own_thread.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/usb_events.h"
#include "usbevents/usb_channel_fixture.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <thread>

using namespace std::chrono_literals;

namespace {

using support::eventually;
using support::kUsbSocket;
using support::MessagesOn;
using support::onOwnThread;
using support::ScriptedService;
using support::serverState;
using support::setServerState;
using support::SyslogCapture;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Lt;
using usbevents_test::Timed;
using usbevents_test::timed;
using KillServer = usbevents_test::UsbChannel;

TEST_F(KillServer, reaches_any_listening_server)
{
    const ScriptedService server({support::replies("ok")}, kUsbSocket);
    const support::CountedPauses pauses(100ms);
    EXPECT_EQ(timed(KillUsbServer).result, 1);
    EXPECT_EQ(pauses.count(), 0) << "no server of this process had to be waited for";
    EXPECT_THAT(server.requests(), ElementsAre("suicide\n"));
}

TEST_F(KillServer, returns_minus_2_without_a_listener)
{
    EXPECT_EQ(timed(KillUsbServer).result, -2);
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(KillServer, waits_until_the_own_server_has_stopped)
{
    for (const uint32_t stopped : {0U, 2U}) {
        const ScriptedService other({support::replies("ok")}, kUsbSocket);
        setServerState(3);
        std::atomic<uint32_t> stateSeen{0};
        std::thread ownServer([&] {
            EXPECT_TRUE(eventually([] { return serverState() != 3; }));
            std::this_thread::sleep_for(150ms);
            stateSeen = serverState();
            setServerState(stopped);
        });
        const Timed killed = timed(KillUsbServer);
        ownServer.join();
        EXPECT_EQ(stateSeen, 1U);
        EXPECT_EQ(killed.result, 1);
        EXPECT_THAT(killed.taken, AllOf(Ge(190ms), Lt(1900ms)));
        EXPECT_EQ(serverState(), 0U);
        EXPECT_THAT(other.requests(), ElementsAre("suicide\n"));
    }
}

TEST_F(KillServer, gives_up_after_2_s_on_a_server_that_never_ends)
{
    const ScriptedService other({support::replies("ok")}, kUsbSocket);
    setServerState(3);
    const Timed killed = timed(KillUsbServer);
    EXPECT_EQ(killed.result, -1);
    EXPECT_THAT(killed.taken, AllOf(Ge(1990ms), Lt(4s)));
    EXPECT_EQ(serverState(), 0U);
    EXPECT_THAT(other.requests(), ElementsAre("suicide\n")) << "the message is sent anyway";
}

TEST_F(KillServer, returns_minus_2_without_a_listener_even_if_the_own_server_never_ends)
{
    setServerState(1);
    EXPECT_EQ(timed(KillUsbServer).result, -2);
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(KillServer, accepts_a_server_that_has_stopped_already)
{
    const ScriptedService other({support::replies("ok")}, kUsbSocket);
    setServerState(2);
    EXPECT_EQ(timed(KillUsbServer).result, 1);
    EXPECT_EQ(serverState(), 0U);
}

TEST_F(KillServer, returns_minus_2_and_sends_nothing_without_memory)
{
    if (const char *reason = support::FailingAllocations::unavailable()) {
        GTEST_SKIP() << reason;
    }
    const ScriptedService other({support::replies("ok")}, kUsbSocket);
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(onOwnThread([] {
                  const support::FailingAllocations noMemory;
                  return KillUsbServer();
              }),
              -2);
    // The missing blank is part of the log text.
    EXPECT_THAT(capture.texts(), ElementsAre("kill servernot enough memory"));
    EXPECT_THAT(other.requests(), IsEmpty());
}

}  // namespace
