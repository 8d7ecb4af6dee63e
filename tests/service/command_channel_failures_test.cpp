// Failures of the exchange with the hardware service: results, messages, and timeouts.
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>

#include "service/exchange.h"
#include "support/alarms.h"
#include "support/no_descriptors.h"
#include "support/resource_usage.h"
#include "support/scripted_service.h"
#include "support/syslog_capture.h"

#include <chrono>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

using service_test::Exchange;
using support::descriptorsOpen;
using support::MessagesOn;
using support::ScriptedService;
using support::SyslogCapture;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Lt;

TEST(CommandChannel, logs_a_failure_after_it_releases_the_lock_and_closes_the_socket)
{
    const ScriptedService service({support::closesAfterRequest()});
    const MessagesOn messages;
    const std::size_t descriptors = descriptorsOpen();
    bool lockFree = false;
    std::size_t descriptorsThen = 0;
    const SyslogCapture capture([&] {
        lockFree = pthread_mutex_trylock(&sGCriticalSectionCmdPipe) == 0;
        if (lockFree) {
            pthread_mutex_unlock(&sGCriticalSectionCmdPipe);
        }
        descriptorsThen = descriptorsOpen();
    });
    EXPECT_EQ(Exchange("getVersion").result, -1);
    EXPECT_TRUE(lockFree);
    EXPECT_LE(descriptorsThen, descriptors + 1) << "the service's end may still be open";
}

TEST(CommandChannel, reports_a_missing_service_after_one_attempt)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_EQ(exchange.text(), "(null)");
    EXPECT_LT(exchange.taken, 3s);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not connect to socket"));
}

TEST(CommandChannel, reports_a_socket_file_without_a_listener)
{
    support::leaveStaleSocket(support::kCommandSocket);
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(Exchange("getVersion").result, -2);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not connect to socket"));
}

struct Fault {
    const char *name;
    support::Script script;
    const char *message;
};

class CommandChannelFault : public testing::TestWithParam<Fault> {};

TEST_P(CommandChannelFault, returns_a_failure_and_logs_its_message)
{
    const ScriptedService service({GetParam().script});
    const MessagesOn messages;
    const SyslogCapture capture;
    const std::size_t descriptors = descriptorsOpen();
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -1);
    EXPECT_EQ(exchange.reply.pcData, nullptr);
    EXPECT_EQ(exchange.reply.uiLength, 0U);
    EXPECT_THAT(capture.texts(), ElementsAre(GetParam().message));
    EXPECT_LE(descriptorsOpen(), descriptors + 1) << "the service's end may still be open";
}

const std::vector<Fault> kFaults = {
    {"closes_after_the_request", support::closesAfterRequest(), "command socket - can not read from socket"},
    {"closes_inside_the_reply", support::closesInsideReply("half a re"), "command socket - can not read from socket"},
    {"silent_for_4_s", support::staysSilent(6s), "command socket - can not read from socket"}};

INSTANTIATE_TEST_SUITE_P(Table, CommandChannelFault, testing::ValuesIn(kFaults),
                         [](const auto &row) { return row.param.name; });

TEST(CommandChannel, survives_a_peer_that_closes_before_the_request)
{
    // Timing decides whether the write or the read finds the connection closed. Both fail, and neither raises a signal.
    const ScriptedService service({support::closesAtOnce()});
    const MessagesOn messages;
    for (int round = 0; round < 50; ++round) {
        const SyslogCapture capture;
        const Exchange exchange("getVersion");
        EXPECT_EQ(exchange.result, -1);
        EXPECT_THAT(capture.texts(), ElementsAre(testing::AnyOf("command socket - can not write to socket",
                                                                "command socket - can not read from socket")));
    }
}

TEST(CommandChannel, a_write_to_a_closed_connection_fails_without_a_signal)
{
    const ScriptedService service({support::closesAtOnce()});
    const MessagesOn messages;
    const SyslogCapture capture;
    // More than a socket buffers, so that the write certainly finds the connection closed.
    const std::string command(5'000'000, 'c');
    EXPECT_EQ(Exchange(command.c_str()).result, -1);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not write to socket"));
}

TEST(CommandChannel, a_peer_that_does_not_read_blocks_a_write_for_at_most_4_s)
{
    const ScriptedService service({{{.kind = support::Step::Kind::pause, .pause = 20s}}});
    const MessagesOn messages;
    const SyslogCapture capture;
    const std::string command(5'000'000, 'c');
    const Exchange exchange(command.c_str());
    EXPECT_EQ(exchange.result, -1);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(9s)));
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not write to socket"));
}

TEST(CommandChannel, a_full_queue_counts_as_no_connection_after_4_s)
{
    const support::FullQueue service;
    const MessagesOn messages;
    const SyslogCapture capture;
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(6s)));
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not connect to socket"));
}

TEST(CommandChannel, signals_neither_shorten_nor_prolong_the_wait_for_a_full_queue)
{
    const support::FullQueue service;
    const support::Alarms alarms(20ms, 20ms);
    const Exchange exchange("getVersion");
    EXPECT_EQ(exchange.result, -2);
    EXPECT_THAT(exchange.taken, AllOf(Ge(3900ms), Lt(5500ms)));
}

TEST(CommandChannel, reports_that_no_descriptors_are_left)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    DynBuffer reply{nullptr, 0};
    int result = 0;
    {
        const support::NoDescriptors none;
        result = SendCommand2ServiceDyn("getVersion", &reply);
    }
    EXPECT_EQ(result, -1);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - error creating socket"));
}

TEST(CommandChannel, a_null_reply_record_is_a_read_failure)
{
    const ScriptedService service({support::replies("ok")});
    const MessagesOn messages;
    const SyslogCapture capture;
    EXPECT_EQ(SendCommand2ServiceDyn("getVersion", nullptr), -1);
    EXPECT_THAT(capture.texts(), ElementsAre("command socket - can not read from socket"));
}

TEST(CommandChannel, always_releases_the_lock_and_closes_its_descriptors)
{
    const auto inOrder = [] {
        EXPECT_EQ(pthread_mutex_trylock(&sGCriticalSectionCmdPipe), 0);
        pthread_mutex_unlock(&sGCriticalSectionCmdPipe);
    };
    const std::size_t descriptors = descriptorsOpen();
    EXPECT_EQ(Exchange("a").result, -2);
    inOrder();
    EXPECT_EQ(descriptorsOpen(), descriptors);
    {
        const ScriptedService service({support::closesAfterRequest(), support::closesAtOnce(), support::replies("ok")});
        EXPECT_EQ(Exchange("a").result, -1);
        inOrder();
        EXPECT_EQ(Exchange("a").result, -1);
        inOrder();
        EXPECT_EQ(Exchange("a").result, 1);
        inOrder();
    }
    EXPECT_EQ(descriptorsOpen(), descriptors);
}

}  // namespace
