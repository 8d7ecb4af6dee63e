// Storms of USB events: their count, rate and request, and how they end.
#include "tools/kvosim/support/usb_receiver.h"

#include "support/eventually.h"

#include <gmock/gmock.h>

using namespace std::chrono_literals;

namespace {

using tools::Clock;
using kvosim_test::activateUsbEvents;
using kvosim_test::Client;
using kvosim_test::devicesPluggedIn;
using kvosim_test::exchange;
using kvosim_test::RunningService;
using kvosim_test::UsbReceiver;
using support::replies;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;
using tools::askSimulator;
using tools::Json;

tools::Json storm(const tools::Json &request) { return kvosim_test::askUsb("storm", request); }

TEST(UsbStorm, plugs_in_and_removes_at_all_stations_in_turn)
{
    const UsbReceiver receiver;
    const tools::Json sums = storm({{"count", 8}});
    EXPECT_EQ(sums["sent"], 8);
    EXPECT_EQ(sums["delivered"], 8);
    EXPECT_EQ(sums["failed"], 0);
    EXPECT_EQ(sums["end"], "count");
    const double seconds = sums["seconds"];
    EXPECT_GT(seconds, 0);
    EXPECT_NEAR(sums["events_per_second"].get<double>(), 8 / seconds, 0.1);
    std::vector<std::string> beginnings;
    for (const std::string &line : receiver.requests()) {
        beginnings.push_back(line.substr(0, line.find("1-1.1")));
    }
    EXPECT_THAT(beginnings, ElementsAre("newUSBdevice*10.0.0.5*usb1*", "removeUSBdevice*10.0.0.5*usb1*",
                                        "newUSBdevice*10.0.0.6*usb1*", "removeUSBdevice*10.0.0.6*usb1*",
                                        "newUSBdevice*192.168.0.7*usb1*", "removeUSBdevice*192.168.0.7*usb1*",
                                        "newUSBdevice*10.0.0.5*usb1*", "removeUSBdevice*10.0.0.5*usb1*"));
    EXPECT_EQ(devicesPluggedIn(), 0U);
}

TEST(UsbStorm, of_an_odd_count_at_one_station_leaves_a_device)
{
    const UsbReceiver receiver;
    EXPECT_EQ(storm({{"count", 3}, {"station", "Fräse"}})["delivered"], 3);
    EXPECT_THAT(receiver.requests(), ElementsAre(StartsWith("newUSBdevice*10.0.0.6*"), StartsWith("removeUSBdevice*10.0.0.6*"),
                                                 StartsWith("newUSBdevice*10.0.0.6*")));
    EXPECT_EQ(devicesPluggedIn(), 1U);
}

TEST(UsbStorm, keeps_its_rate)
{
    const UsbReceiver receiver;
    const auto began = Clock::now();
    const tools::Json sums = storm({{"count", 11}, {"rate", 20}});
    EXPECT_GE(Clock::now() - began, 500ms) << "ten intervals of 50 ms";
    EXPECT_EQ(sums["delivered"], 11);
    EXPECT_LE(sums["events_per_second"].get<double>(), 22.0);
}

TEST(UsbStorm, does_not_delay_other_clients)
{
    const UsbReceiver receiver;
    const Client client(tools::kControlSocket);
    client.send(R"({"do": "usb.storm", "count": 100000})"
                "\n");
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() > 10; }));
    const auto began = Clock::now();
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
    EXPECT_EQ(tools::askSimulator({{"do", "usb.refuse"}, {"station", "10.0.0.5"}})["delivery"], "delivered");
    EXPECT_LT(Clock::now() - began, 4s);
    EXPECT_LT(receiver.requests().size(), 100'000U) << "the storm should still be running";
}

TEST(UsbStorm, counts_events_that_are_not_delivered)
{
    const RunningService service;
    activateUsbEvents();
    const tools::Json sums = storm({{"count", 3}});
    EXPECT_EQ(sums["sent"], 3);
    EXPECT_EQ(sums["delivered"], 0);
    EXPECT_EQ(sums["failed"], 3);
}

TEST(UsbStorm, needs_activated_events_and_stations)
{
    {
        const RunningService service;
        EXPECT_THAT([] { storm({{"count", 3}}); }, ThrowsMessage<tools::Refused>(StartsWith("USB events are not activated")));
        EXPECT_EQ(devicesPluggedIn(), 0U);
    }
    const RunningService empty("");
    activateUsbEvents();
    EXPECT_THAT([] { storm({{"count", 3}}); }, ThrowsMessage<tools::Refused>(HasSubstr("the plant has no station")));
}

TEST(UsbStorm, ends_when_events_are_deactivated)
{
    const UsbReceiver receiver({replies("ok"), replies("ok"), support::answersWith([](const std::string &) {
                                    return exchange("deactivateUSBEvents\n").substr(0, 2);
                                })});
    const tools::Json sums = storm({{"count", 1000}});
    EXPECT_EQ(sums["sent"], 3);
    EXPECT_EQ(sums["delivered"], 3);
    EXPECT_EQ(sums["end"], "deactivated");
}

TEST(UsbStorm, ends_when_the_client_disconnects)
{
    const UsbReceiver receiver;
    {
        const Client gone(tools::kControlSocket);
        gone.send(R"({"do": "usb.storm", "count": 100000, "rate": 200})"
                  "\n");
        ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() >= 5; }));
    }
    EXPECT_TRUE(receiver.hasNoMoreRequests());
}

TEST(UsbStorm, ends_with_the_service)
{
    UsbReceiver receiver;
    const Client client(tools::kControlSocket);
    client.send(R"({"do": "usb.storm", "count": 100000})"
                "\n");
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() >= 5; }));
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    EXPECT_THAT(client.receiveAll(), testing::AnyOf(HasSubstr("the simulator ends"), HasSubstr("the simulator is ending")));
    receiver.joinService();
}

TEST(UsbStorm, at_a_locked_station_sends_refusals)
{
    const UsbReceiver receiver({replies("ok")}, "[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\nusb_lock = \"1:0\"\n");
    EXPECT_EQ(storm({{"count", 2}})["delivered"], 2);
    EXPECT_THAT(receiver.requests(), ElementsAre(StartsWith("ignoreUSBdevice*"), StartsWith("ignoreUSBdevice*")));
}

TEST(UsbStorm, continues_if_another_client_removes_its_device)
{
    const UsbReceiver receiver({support::answersWith([](const std::string &) {
                                    // Removes the storm's device in the meantime. The test does not wait for this event.
                                    const Client client(tools::kControlSocket);
                                    client.send(R"({"do": "usb.unplug", "station": "10.0.0.5", "device": "usb1"})"
                                                "\n");
                                    std::this_thread::sleep_for(50ms);
                                    return std::string("ok");
                                }),
                                replies("ok")});
    EXPECT_EQ(storm({{"count", 2}, {"station", "10.0.0.5"}})["delivered"], 2);
    EXPECT_EQ(devicesPluggedIn(), 1U) << "the second event is a new device again";
}

TEST(UsbStorm, ends_at_a_station_that_reboots)
{
    const UsbReceiver receiver({replies("ok")}, "[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\nreboot_time_ms = 60000\n");
    EXPECT_EQ(exchange("reboot=0A000005\n"), "ok\n");
    const tools::Json sums = storm({{"count", 2}});
    EXPECT_EQ(sums["sent"], 0);
    EXPECT_THAT(sums["end"].get<std::string>(), StartsWith("10.0.0.5 is rebooting"));
}

}  // namespace
