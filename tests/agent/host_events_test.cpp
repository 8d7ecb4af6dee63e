// Events that the host sends to the remote side, and what its callback may do.
#include <kvo_hws/agent.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/runtime.h>

#include "agent/agent_fixture.h"
#include "agent/lifecycle.h"
#include "support/remote_service.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"
#include "support/usb_events.h"

#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

using agent_test::Agent;
using agent_test::expectRefused;
using agent_test::Host;
using agent_test::kSession;
using agent_test::serves;
using support::eventually;
using support::MessagesOn;
using support::RemoteService;
using support::ScriptedService;
using testing::EndsWith;

const std::string kEvent = "KVO_HWS DLL - KVO_HWS_sendEmbHwsEvent - ";

TEST(Events, need_the_handle_of_the_agent_and_a_text)
{
    const MessagesOn messages;
    int other = 0;
    expectRefused([] { return KVO_HWS_sendEmbHwsEvent(nullptr, "event"); }, -7, kEvent + "instance data is NULL");
    expectRefused([&] { return KVO_HWS_sendEmbHwsEvent(&other, "event"); }, -10, kEvent + "instance data is invalid");
    expectRefused([] { return KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, nullptr); }, -7, kEvent + "null pointer received!");
}

TEST(Events, are_refused_before_the_first_known_request)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    EXPECT_EQ(remote.ask("nonsense"), "bad request");
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    EXPECT_EQ(remote.ask("ping"), "pong");
    // The reply is sent just before the protocol counts as negotiated.
    EXPECT_TRUE(eventually([&] { return KVO_HWS_sendEmbHwsEvent(agent.instance, "event") == 1; }));
    EXPECT_EQ(remote.line(), "I01:event\r\n");
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, ""), 1);
    EXPECT_EQ(remote.line(), "I02:\r\n");
}

TEST(Events, are_refused_until_the_next_agent_has_answered_a_request)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    protocolNegotiated = 1;  // left over from an earlier agent
    const Agent agent;
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "too early"), -1);
    ASSERT_TRUE(remote.accept());
    std::atomic<int> inCallback{0};
    Host::setAnswer([&](const std::string &) {
        inCallback = KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "too early");
        return 1;
    });
    EXPECT_EQ(remote.ask("stop-viewer"), "ok");
    EXPECT_EQ(inCallback, -1) << "the first request is not answered yet";
}

TEST(Callback, may_send_events_and_requests_and_close_the_connection)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves({{"getRV4Mode=0500000A", "rv4mode=1"}})});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(remote.ask("ping"), "pong");
    Host::setAnswer([&](const std::string &) {
        uint32_t mode = 0;
        EXPECT_EQ(KVO_HWS_getRV4Mode(gFocusKvoIp, &mode), 1);
        EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(gEmbKvoInst, "from inside"), 1);
        EXPECT_EQ(kvo_hws_detach_thread(), -1) << "its thread is detached, so no thread has to join it";
        hmi_close_x(&gEmbKvoInst->session);
        return 1;
    });
    remote.send("stop-viewer\r\n");
    EXPECT_THAT(remote.line(), EndsWith(":from inside\r\n"));
    EXPECT_EQ(remote.line(), "(closed)");
    EXPECT_TRUE(remote.accept()) << "a new connection is made";
}

TEST(Events, are_lost_without_a_connection)
{
    RemoteService remote(kSession);
    const ScriptedService service({serves()});
    const Agent agent;
    ASSERT_TRUE(remote.accept());
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(remote.ask("ping"), "pong");
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "received"), 1);
    const int first = std::stoi(remote.line().substr(1, 2));
    remote.close();
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() < 0; }));
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "lost"), 1);
    ASSERT_TRUE(remote.accept());
    ASSERT_TRUE(eventually([] { return std::atomic_ref(gEmbKvoInst->session.socket).load() >= 0; }));
    EXPECT_EQ(KVO_HWS_sendEmbHwsEvent(agent.instance, "received"), 1);
    EXPECT_EQ(std::stoi(remote.line().substr(1, 2)), first + 2)
        << "a lost event uses a number, so the remote side sees the gap";
}

}  // namespace
