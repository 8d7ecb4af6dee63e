// Recorded events come again, at their times after the activation or the connection.
#include "support/eventually.h"
#include "support/scripted_service.h"
#include "support/time_of.h"
#include "tools/kvosim/replay/running_replay.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/usb_receiver.h"

#include <chrono>
#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::activateUsbEvents;
using kvosim_test::atSpeed;
using kvosim_test::Client;
using kvosim_test::exchange;
using kvosim_test::RunningReplay;
using support::eventually;
using support::replies;
using support::ScriptedService;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kEventSocket = "/tmp/kvo_hws/event_sock";

std::string activation(const std::string &at) { return at + " ask 1 > \"activateUSBEvents\\n\" < \"ok\\n\"\n"; }
std::string usb(const std::string &at, const std::string &text, const std::string &answer = R"("ok\n")")
{
    return at + " usb 1 > \"" + text + "\\n\" < " + answer + '\n';
}
const std::string kDeactivation = "9.0 ask 1 > \"deactivateUSBEvents\\n\" < \"ok\\n\"\n";

/// A program that receives USB events.
class Receiver : public ScriptedService {
public:
    explicit Receiver(std::vector<support::Script> scripts = {replies("ok")})
        : ScriptedService(std::move(scripts), support::kUsbSocket)
    {
    }
    [[nodiscard]] bool hasReceived(std::size_t count) const
    {
        return eventually([&] { return requests().size() >= count; });
    }
};

TEST(ReplayedUsbEvents, follow_their_activation)
{
    RunningReplay replay(activation("1.0") + usb("1.1", "a") + usb("1.2", "b") + activation("2.0") + usb("2.1", "c"));
    const Receiver receiver;
    EXPECT_TRUE(receiver.hasNoMoreRequests());
    EXPECT_THAT(receiver.requests(), IsEmpty()) << "not before the activation";
    EXPECT_GE(support::timeOf([&] {
                  activateUsbEvents();
                  EXPECT_TRUE(receiver.hasReceived(2));
              }),
              200ms);
    EXPECT_THAT(receiver.requests(), ElementsAre("a\n", "b\n"));
    activateUsbEvents();
    EXPECT_TRUE(receiver.hasReceived(3));
    activateUsbEvents();  // one more than was recorded
    EXPECT_TRUE(receiver.hasNoMoreRequests());
    EXPECT_THAT(receiver.requests(), ElementsAre("a\n", "b\n", "c\n"));
    const auto report = replay.stop();
    EXPECT_EQ(report.usbEvents.sent, 3U);
    EXPECT_EQ(report.usbEvents.recorded, 3U);
    EXPECT_EQ(report.answeredDifferently, 0U);
}

TEST(ReplayedUsbEvents, come_at_the_speed)
{
    const RunningReplay replay(activation("1.0") + usb("3.0", "a"), atSpeed("10"));
    const Receiver receiver;
    const auto time = support::timeOf([&] {
        activateUsbEvents();
        EXPECT_TRUE(receiver.hasReceived(1));
    });
    EXPECT_GE(time, 200ms);
    EXPECT_LT(time, 1500ms);
}

TEST(ReplayedUsbEvents, come_in_their_order_at_the_highest_speed)
{
    std::string lines = activation("1.0");
    std::vector<std::string> events;
    for (int i = 0; i < 100; ++i) {
        lines += usb(std::to_string(10 + i) + ".0", "event" + std::to_string(i));
        events.push_back("event" + std::to_string(i) + '\n');
    }
    const RunningReplay replay(lines, atSpeed("max"));
    const Receiver receiver;
    activateUsbEvents();
    EXPECT_TRUE(receiver.hasReceived(100));
    EXPECT_EQ(receiver.requests(), events);
}

TEST(ReplayedUsbEvents, end_with_the_deactivation)
{
    RunningReplay replay(activation("1.0") + usb("1.0", "a") + usb("1.6", "b") + kDeactivation);
    const Receiver receiver;
    activateUsbEvents();
    EXPECT_TRUE(receiver.hasReceived(1));
    EXPECT_EQ(exchange("deactivateUSBEvents\n"), "ok\n");
    std::this_thread::sleep_for(800ms);
    EXPECT_THAT(receiver.requests(), ElementsAre("a\n"));
    EXPECT_EQ(replay.stop().usbEvents.sent, 1U);
}

TEST(ReplayedUsbEvents, do_not_follow_a_refused_activation)
{
    RunningReplay replay(usb("1.0", "a"), atSpeed("max"));
    const Receiver receiver;
    EXPECT_EQ(exchange("activateUSBEvents\n"), "failed\n");
    EXPECT_TRUE(receiver.hasNoMoreRequests());
    EXPECT_THAT(receiver.requests(), IsEmpty());
}

TEST(ReplayedUsbEvents, follow_an_activation_that_a_plant_answers)
{
    const RunningReplay replay(usb("1.0", "a"), atSpeed("max"), std::string(kvosim::kBuiltInPlant));
    const Receiver receiver;
    activateUsbEvents();
    EXPECT_TRUE(receiver.hasReceived(1));
}

TEST(ReplayedUsbEvents, are_not_sent_if_no_program_listens)
{
    RunningReplay replay(activation("1.0") + usb("1.0", "a") + usb("1.1", "b"), atSpeed("max"));
    activateUsbEvents();
    std::this_thread::sleep_for(200ms);
    const auto report = replay.stop();
    EXPECT_EQ(report.usbEvents.sent, 0U);
    EXPECT_EQ(report.usbEvents.recorded, 2U);
}

TEST(ReplayedUsbEvents, are_compared_with_the_recorded_answers)
{
    RunningReplay replay(activation("1.0") + usb("1.0", "same") + usb("1.1", "other") + usb("1.2", "none", "+0.3 left") +
                             usb("1.3", "unknown", "open") + usb("1.4", "closed"),
                         atSpeed("max"));
    const Receiver receiver({replies("ok"), replies("failed"), replies("ok"), replies("ok"), support::closesAfterRequest()});
    activateUsbEvents();
    EXPECT_TRUE(receiver.hasReceived(5));
    std::this_thread::sleep_for(100ms);
    const auto report = replay.stop();
    EXPECT_EQ(report.usbEvents.sent, 5U);
    EXPECT_EQ(report.answeredDifferently, 3U);
    ASSERT_EQ(report.firstAnsweredDifferently.size(), 3U);
    const auto &first = report.firstAnsweredDifferently[0];
    EXPECT_EQ(first.event, "other");
    EXPECT_EQ(first.number, 6U);
    EXPECT_EQ(first.recorded, "ok");
    EXPECT_EQ(first.given, "failed");
    EXPECT_EQ(report.firstAnsweredDifferently[1].event, "none");
    EXPECT_EQ(report.firstAnsweredDifferently[1].recorded, std::nullopt);
    EXPECT_EQ(report.firstAnsweredDifferently[2].event, "closed");
    EXPECT_EQ(report.firstAnsweredDifferently[2].given, std::nullopt);
}

TEST(ReplayedUsbEvents, give_a_silent_program_the_recorded_time)
{
    RunningReplay replay(activation("1.0") + usb("1.0", "a", "+0.3 left"), atSpeed("max"));
    const Receiver receiver({support::staysSilent(5s)});
    activateUsbEvents();
    EXPECT_TRUE(receiver.hasReceived(1));
    std::this_thread::sleep_for(1s);
    const auto report = replay.stop();
    EXPECT_EQ(report.usbEvents.sent, 1U) << "the replay has given up";
    EXPECT_EQ(report.answeredDifferently, 0U);
}

TEST(ReplayedUsbEvents, have_the_recorded_bytes)
{
    const RunningReplay replay(activation("1.0") + "1.0 usb 1 > \"new\" +0.2 \"\\x00\\xA7\\r\" \"\\n\" < \"ok\\n\"\n");
    const Receiver receiver;
    EXPECT_GE(support::timeOf([&] {
                  activateUsbEvents();
                  EXPECT_TRUE(receiver.hasReceived(1));
              }),
              200ms);
    EXPECT_THAT(receiver.requests(), ElementsAre(std::string("new\0\xA7\r\n", 7)));
}

// ---- Embedded events ----

std::string event(const std::string &at, int process, const std::string &text)
{
    return at + " event " + std::to_string(process) + " > \"" + text + "\\n\" <\n";
}
std::string listener(const std::string &at, int process) { return at + " event " + std::to_string(process) + " > <\n"; }

TEST(ReplayedEmbeddedEvents, follow_the_connection_of_their_listener)
{
    RunningReplay replay(listener("1.0", 1) + event("1.2", 1, "a, 1") + "process 2 4712 \"other\"\n" + listener("2.0", 2) +
                         event("2.0", 2, "b, 2"));
    const auto begin = std::chrono::steady_clock::now();
    const Client first(kEventSocket);
    EXPECT_EQ(first.receive(5), "a, 1\n");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 200ms);
    const Client second(kEventSocket);
    EXPECT_EQ(second.receive(5), "b, 2\n");
    EXPECT_EQ(first.receiveAll(200ms), "(nothing more came)") << "each listener gets its own events";
    const Client third(kEventSocket);
    EXPECT_EQ(third.receiveAll(200ms), "(nothing more came)");
    const auto report = replay.stop();
    EXPECT_EQ(report.embeddedEvents.sent, 2U);
    EXPECT_EQ(report.embeddedEvents.recorded, 2U);
}

TEST(ReplayedEmbeddedEvents, go_to_all_listeners_if_none_was_recorded)
{
    RunningReplay replay(event("0.2", 0, "Alive?") + event("0.5", 0, "key, F1"));
    std::this_thread::sleep_for(300ms);  // they begin with the first listener
    const Client first(kEventSocket);
    const Client second(kEventSocket);
    for (const Client *client : {&first, &second}) {
        EXPECT_EQ(client->receive(15), "Alive?\nkey, F1\n");
    }
    EXPECT_EQ(replay.stop().embeddedEvents.sent, 2U);
}

TEST(ReplayedEmbeddedEvents, have_the_recorded_bytes)
{
    const RunningReplay replay("1.0 event 0 > \"key, \\x00F1\" < open\n", atSpeed("max"));
    const Client client(kEventSocket);
    EXPECT_EQ(client.receiveAll(300ms), std::string("key, \0F1", 8) + "(nothing more came)");
}

TEST(ReplayedEmbeddedEvents, are_not_sent_without_a_listener)
{
    RunningReplay replay(listener("1.0", 1) + event("1.1", 1, "a") + event("2.0", 1, "b"));
    {
        const Client client(kEventSocket);
        EXPECT_EQ(client.receive(2), "a\n");
    }
    std::this_thread::sleep_for(1200ms);
    const auto report = replay.stop();
    EXPECT_EQ(report.embeddedEvents.sent, 1U);
    EXPECT_EQ(report.embeddedEvents.recorded, 2U);
}

TEST(ReplayedEmbeddedEvents, wait_for_a_slow_listener_at_the_highest_speed)
{
    constexpr std::size_t kCount = 200'000;
    std::string lines = listener("1.0", 1);
    for (std::size_t i = 0; i < kCount; ++i) {
        lines += event("2.0", 1, "key, F1");
    }
    RunningReplay replay(lines, atSpeed("max"));
    const Client client(kEventSocket);
    std::this_thread::sleep_for(300ms);
    EXPECT_EQ(client.receive(kCount * 8).size(), kCount * 8);
    EXPECT_EQ(replay.stop().embeddedEvents.sent, kCount);
}

}  // namespace
