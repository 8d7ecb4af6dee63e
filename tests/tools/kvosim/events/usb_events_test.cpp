// USB events from the control socket to the receiving program: the bytes and the time of each event, and the reply to the
// client, also if the receiver is slow, silent or gone.
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/usb_receiver.h"

#include "support/own_thread.h"
#include "support/usb_events.h"

#include <kvo_hws/kvo_hws.h>

#include <atomic>
#include <gmock/gmock.h>
#include <vector>

using namespace std::chrono_literals;

namespace {

using tools::Clock;
using kvosim_test::activateUsbEvents;
using kvosim_test::Client;
using kvosim_test::devicesPluggedIn;
using kvosim_test::exchange;
using kvosim_test::kSmallPlant;
using kvosim_test::RunningService;
using kvosim_test::UsbReceiver;
using support::kUsbSocket;
using support::replies;
using support::ScriptedService;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using testing::ThrowsMessage;
using tools::askSimulator;
using tools::Json;

constexpr auto kAnswerTime = 4s;  // how long an event waits for the answer of its receiver

tools::Json ask(const std::string &action, const std::string &station, const tools::Json &more = tools::Json::object())
{
    tools::Json all{{"station", station}};
    all.update(more);
    return kvosim_test::askUsb(action, all);
}

tools::Json plug(const std::string &station, const tools::Json &device = tools::Json::object())
{
    return ask("plug", station, {{"device", device}});
}

// ---- The events ----

TEST(UsbEvents, are_delivered_byte_by_byte)
{
    const UsbReceiver receiver;
    const tools::Json fields{{"ident2", "Portal mill"},
                             {"ident3", "1-1.4"},
                             {"text4", ""},
                             {"no_text5", 1},
                             {"text6", "Fräse"},
                             {"text7", "x"},
                             {"number1", 1},
                             {"number2", "0xABCDEF"},
                             {"id1", 2},
                             {"id2", 3},
                             {"bytes", "0102ff"},
                             {"report", 1},
                             {"text8", "too much"},
                             {"number3", 0x1234}};
    EXPECT_EQ(plug("10.0.0.5", fields)["delivery"], "delivered");
    EXPECT_EQ(ask("state", "Lathe 1", {{"device", "1-1.4"}, {"state", 16}})["delivery"], "delivered");
    EXPECT_EQ(ask("refuse", "192.168.0.7", {{"device", fields}})["delivery"], "delivered");
    EXPECT_EQ(ask("unplug", "10.0.0.5", {{"device", "Portal mill"}})["delivery"], "delivered");

    const std::string empty = "?$?\xA7?eEmMpPtTyY!\xA7!$!";
    std::string zeros;
    for (int i = 0; i < 61; ++i) {
        zeros += "00 ";
    }
    EXPECT_THAT(receiver.requests(), ElementsAre("newUSBdevice*10.0.0.5*Portal mill*1-1.4*" + empty + "*" + empty +
                                                     "*Fräse*x*00000001*00ABCDEF*08000000*0002*0003*01 02 FF " + zeros + "*\n",
                                                 "changeStateUSBdevice*10.0.0.5*Portal mill*1-1.4*00000010*\n",
                                                 "ignoreUSBdevice*192.168.0.7*Portal mill*1-1.4*" + empty + "*" + empty +
                                                     "*too much*00000001*00ABCDEF*1234*\n",
                                                 "removeUSBdevice*10.0.0.5*Portal mill*1-1.4*\n"));
}

TEST(UsbEvents, are_sent_between_activation_and_deactivation)
{
    const RunningService service;
    const ScriptedService receiver({replies("ok")}, kUsbSocket);
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "not activated");
    activateUsbEvents();
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "delivered");
    EXPECT_EQ(exchange("deactivateUSBEvents\n"), "ok\n");
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "not activated");
    EXPECT_EQ(ask("refuse", "10.0.0.5")["delivery"], "not activated");
    EXPECT_THAT(receiver.requests(), ElementsAre(StartsWith("newUSBdevice*10.0.0.5*usb2*1-1.2*")));
    EXPECT_EQ(devicesPluggedIn(), 3U) << "devices are plugged in whether or not the event is delivered";
}

TEST(UsbEvents, change_the_ports_even_if_no_process_listens)
{
    const RunningService service;
    activateUsbEvents();
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "nobody listens");
    EXPECT_EQ(exchange("getUsbConnectorListOne=0A000005\n"), "usb-connector-list-one=1-1.1:usb1\n");
    support::leaveStaleSocket(kUsbSocket);
    EXPECT_EQ(ask("unplug", "10.0.0.5", {{"device", "usb1"}})["delivery"], "nobody listens");
    EXPECT_EQ(devicesPluggedIn(), 0U);
}

TEST(UsbEvents, are_delivered_whatever_the_receiver_answers)
{
    const UsbReceiver receiver({replies("failed"), replies(""), support::closesAfterRequest(), support::sends("no line end")});
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(plug("10.0.0.5")["delivery"], "delivered");
    }
    EXPECT_EQ(receiver.requests().size(), 4U);
}

TEST(UsbEvents, report_what_happened)
{
    const RunningService service;
    EXPECT_EQ(plug("Lathe 1").dump(),
              R"({"event":"plugged","station":"10.0.0.5","name":"Lathe 1","ident2":"usb1","ident3":"1-1.1","state":0,)"
              R"("delivery":"not activated"})");
    EXPECT_EQ(ask("state", "10.0.0.5", {{"device", "usb1"}, {"state", "0x10"}})["state"], 16);
    EXPECT_EQ(ask("unplug", "10.0.0.5", {{"device", "usb1"}})["event"], "removed");
    EXPECT_EQ(ask("refuse", "10.0.0.5").contains("usb_lock"), false);
}

TEST(UsbEvents, at_a_locked_station_are_refusals)
{
    const UsbReceiver receiver;
    tools::askSimulator({{"do", "station"}, {"station", "10.0.0.6"}, {"set", {{"usb_lock", "1:0"}}}});
    const tools::Json reply = plug("10.0.0.6");
    EXPECT_EQ(reply["event"], "refused");
    EXPECT_EQ(reply["usb_lock"], "1:0");
    EXPECT_EQ(reply["delivery"], "delivered");
    EXPECT_EQ(plug("10.0.0.6", {{"text8", "my own"}})["event"], "refused");
    EXPECT_THAT(receiver.requests(),
                ElementsAre("ignoreUSBdevice*10.0.0.6*usb1*1-1.1*Simulated device*1.00*USB lock*00000000*00000000*0000*\n",
                            "ignoreUSBdevice*10.0.0.6*usb1*1-1.1*Simulated device*1.00*my own*00000000*00000000*0000*\n"));
    EXPECT_EQ(devicesPluggedIn(), 0U);
    EXPECT_EQ(exchange("getUsbConnectorListOne=0A000006\n"), "usb-connector-list-one=\n");
}

TEST(UsbEvents, are_listed_with_all_fields)
{
    const RunningService service;
    plug("10.0.0.6", {{"text4", "a"}, {"bytes", "01"}});
    plug("10.0.0.5", {{"report", 1}, {"state", 3}});
    const tools::Json all = tools::askSimulator({{"do", "usb.list"}})["devices"];
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(
        all[0].dump(),
        R"({"station":"10.0.0.5","name":"Lathe 1","ident2":"usb1","ident3":"1-1.1","text4":"Simulated device",)"
        R"("text5":"1.00","no_text5":0,"text6":"kvosim","text7":"Memory stick","text8":"refused","number1":0,"number2":0,)"
        R"("number3":0,"id1":0,"id2":0,"state":3,"bytes":")" +
            std::string(128, '0') + R"(","report":1})");
    const tools::Json one = tools::askSimulator({{"do", "usb.list"}, {"station", "Fräse"}})["devices"];
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one[0]["text4"], "a");
}

// ---- Refusals ----

struct Refusal : kvosim_test::NamedRow {
    std::string request;
    std::string error;
};

class UsbRefuses : public testing::TestWithParam<Refusal> {};

TEST_P(UsbRefuses, the_request_and_changes_nothing)
{
    const UsbReceiver receiver({replies("ok")}, R"toml(
[[station]]
address = "10.0.0.5"
name = "A"
[[station.usb_device]]
)toml");
    const tools::Json before = tools::askSimulator({{"do", "usb.list"}});
    const tools::Json reply = tools::Json::parse(exchange(GetParam().request + '\n', tools::kControlSocket));
    EXPECT_THAT(reply.at("error").get<std::string>(), HasSubstr(GetParam().error));
    EXPECT_EQ(tools::askSimulator({{"do", "usb.list"}}), before);
    EXPECT_THAT(receiver.requests(), IsEmpty());
}

const std::string kPlugAt5 = R"({"do": "usb.plug", "station": "10.0.0.5", "device": )";

const std::vector<Refusal> kRefusals = {
    {"unknown_action", R"({"do": "usb.eject"})", "usb.plug, usb.refuse, usb.unplug, usb.state, usb.list, usb.storm"},
    {"no_station", R"({"do": "usb.plug"})", "'station' not found"},
    {"unknown_station", R"({"do": "usb.plug", "station": "10.0.0.9"})", "no station has the address or the name \"10.0.0.9\""},
    {"unknown_station_list", R"({"do": "usb.list", "station": "B"})", "no station has"},
    {"unknown_field", kPlugAt5 + R"({"ipAddress": "1.2.3.4"}})", "ipAddress: is not a field of a USB device"},
    {"wrong_field", kPlugAt5 + R"({"text4": "a*b"}})", "text4: contains an asterisk"},
    {"wrong_number", kPlugAt5 + R"({"id1": 65536}})", "id1: 65536 is out of range"},
    {"value_is_not_a_number", kPlugAt5 + R"({"id1": true}})", "id1: is not a whole number"},
    {"device_is_not_an_object", kPlugAt5 + "5}", "device: is not an object"},
    {"plugged_already", kPlugAt5 + R"({"ident2": "usb1", "ident3": "1-1.1"}})", "is already plugged in at 10.0.0.5"},
    {"refuse_wrong_field", R"({"do": "usb.refuse", "station": "A", "device": {"number3": -1}})", "number3: -1 is out"},
    {"unplug_unknown", R"({"do": "usb.unplug", "station": "A", "device": "usb7"})", "no device \"usb7\" at 10.0.0.5"},
    {"unplug_without_device", R"({"do": "usb.unplug", "station": "A"})", "'device' not found"},
    {"state_unknown", R"({"do": "usb.state", "station": "A", "device": "x", "state": 1})", "no device \"x\""},
    {"state_without_value", R"({"do": "usb.state", "station": "A", "device": "usb1"})", "'state' not found"},
    {"state_large", R"({"do": "usb.state", "station": "A", "device": "usb1", "state": "0x100000000"})",
     "state: 4294967296 is out of range; write 0 to 0xFFFFFFFF"},
    {"storm_without_events", R"({"do": "usb.storm"})", "count: 0 is out of range"},
    {"storm_rate", R"({"do": "usb.storm", "count": 1, "rate": 1000001})", "rate: 1000001 is out of range"},
    {"storm_station", R"({"do": "usb.storm", "count": 1, "station": "B"})", "no station has"}};

INSTANTIATE_TEST_SUITE_P(Table, UsbRefuses, testing::ValuesIn(kRefusals), kvosim_test::kNameOfRow);

// ---- Slow receivers ----

/// Runs kvosim and the library in one process. The library's server receives the events.
class Activated {
public:
    explicit Activated(SendUsbEventV2 callback)
    {
        EXPECT_EQ(support::onOwnThread([callback] { return KVO_HWS_activateUSBEventsV2(callback); }), 1);
        EXPECT_TRUE(support::eventually([] { return KVO_HWS_isUSBEventsActivated() == 1; }));
    }
    Activated(const Activated &) = delete;
    Activated &operator=(const Activated &) = delete;
    ~Activated()
    {
        EXPECT_EQ(support::onOwnThread([] { return KVO_HWS_closeUSBEvents(); }), 1);
    }
};

TEST(UsbEvents, are_accepted_by_a_callback_that_makes_requests)
{
    const RunningService service;
    const support::EventRecorder recorder([](const support::RecordedEvent &event) {
        uint32_t address = 77;
        return event.code != USB_EVENT_NEW_DEVICE || (KVO_HWS_getMCPAddress(0x0A000005, &address) == 1 && address == 0) ? 0
                                                                                                                        : -1;
    });
    const Activated activated(support::EventRecorder::newer);
    ASSERT_TRUE(recorder.waitFor(2))
        << "the service delivers right after it accepts the activation; the callback is activated a moment later";
    const auto began = Clock::now();
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "delivered");
    EXPECT_LT(Clock::now() - began, 3500ms) << "the service should answer during the delivery";
    EXPECT_THAT(recorder.codes(), ElementsAre(USB_EVENT_BEGIN, USB_EVENT_ACTIVATED, USB_EVENT_NEW_DEVICE));
}

TEST(UsbEvents, do_not_delay_clients_while_the_receiver_is_silent)
{
    const UsbReceiver receiver({support::staysSilent(6s)});
    const auto began = Clock::now();
    const Client waiting(tools::kControlSocket);
    waiting.send(R"({"do": "usb.plug", "station": "10.0.0.5"})"
                 "\n");
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() == 1; }));
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
    EXPECT_EQ(devicesPluggedIn(), 1U);
    EXPECT_LT(Clock::now() - began, 3500ms);
    EXPECT_THAT(waiting.receiveAll(20s), HasSubstr(R"("delivery":"delivered")")) << "a lost answer is not a failure";
    EXPECT_GE(Clock::now() - began, kAnswerTime - 200ms);
}

TEST(UsbEvents, are_refused_if_too_many_are_pending)
{
    const UsbReceiver receiver({support::staysSilent(6s)});
    std::vector<Client> waiting;
    for (std::size_t i = 0; i < kvosim::Deliveries::kMaxPending; ++i) {
        waiting.emplace_back(tools::kControlSocket);
        waiting.back().send(R"({"do": "usb.plug", "station": "10.0.0.5"})"
                            "\n");
    }
    ASSERT_TRUE(support::eventually([] { return devicesPluggedIn() == kvosim::Deliveries::kMaxPending; }));
    EXPECT_THAT([] { plug("10.0.0.6"); }, ThrowsMessage<tools::Refused>(StartsWith("32 USB events already wait")));
    EXPECT_EQ(devicesPluggedIn(), kvosim::Deliveries::kMaxPending) << "a refused device is not plugged in";
    EXPECT_THAT(
        [] {
            tools::askSimulator({{"do", "usb.storm"}, {"count", 1}});
        },
        ThrowsMessage<tools::Refused>(StartsWith("32 USB events")));
    EXPECT_EQ(exchange("deactivateUSBEvents\n"), "ok\n");
    EXPECT_EQ(plug("10.0.0.6")["delivery"], "not activated") << "an event that is not sent needs no space in the queue";
}

TEST(UsbEvents, end_with_the_service_while_the_receiver_is_silent)
{
    UsbReceiver receiver({support::staysSilent(6s)});
    std::vector<Client> waiting;
    for (int i = 0; i < 2; ++i) {
        waiting.emplace_back(tools::kControlSocket);
        waiting.back().send(R"({"do": "usb.plug", "station": "10.0.0.5"})"
                            "\n");
    }
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() == 1 && devicesPluggedIn() == 2; }));
    const auto began = Clock::now();
    EXPECT_EQ(exchange("killDaemon\n"), "ok\n");
    for (const Client &client : waiting) {
        EXPECT_THAT(client.receiveAll(), HasSubstr(R"("delivery":"the simulator ends")"));
    }
    receiver.joinService();
    EXPECT_LT(Clock::now() - began, 5s);
}

TEST(UsbEvents, that_are_pending_are_not_sent_after_a_deactivation)
{
    std::atomic<bool> deactivated{false};
    const UsbReceiver receiver({support::answersWith([&](const std::string &) {
        EXPECT_TRUE(support::eventually([&] { return deactivated.load(); }, 3s)) << "kvosim waits 4 s for the reply";
        return std::string("ok");
    })});
    std::vector<Client> waiting;
    for (int i = 0; i < 3; ++i) {
        waiting.emplace_back(tools::kControlSocket);
        waiting.back().send(R"({"do": "usb.plug", "station": "10.0.0.5"})"
                            "\n");
    }
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() == 1 && devicesPluggedIn() == 3; }));
    EXPECT_EQ(exchange("deactivateUSBEvents\n"), "ok\n");
    deactivated = true;
    EXPECT_THAT(waiting[0].receiveAll(), HasSubstr(R"("delivery":"delivered")"));
    EXPECT_THAT(waiting[1].receiveAll(), HasSubstr(R"("delivery":"not activated")"));
    EXPECT_THAT(waiting[2].receiveAll(), HasSubstr(R"("delivery":"not activated")"));
    EXPECT_EQ(receiver.requests().size(), 1U);
    activateUsbEvents();
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "delivered") << "no events remain for the next activation";
}

TEST(UsbEvents, are_still_sent_if_the_client_disconnects)
{
    const UsbReceiver receiver({support::answersWith([](const std::string &) {
        std::this_thread::sleep_for(200ms);
        return std::string("ok");
    })});
    {
        const Client gone(tools::kControlSocket);
        gone.send(R"({"do": "usb.plug", "station": "10.0.0.5"})"
                  "\n");
        ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() == 1; }));
    }
    EXPECT_EQ(plug("10.0.0.5")["delivery"], "delivered");
    EXPECT_EQ(receiver.requests().size(), 2U);
}

// ---- Faults ----

TEST(UsbEvents, commands_are_affected_by_faults)
{
    const RunningService service;
    for (const char *command : {"activateUSBEvents", "deactivateUSBEvents", "isUSBEventsActivated"}) {
        tools::askSimulator({{"do", "fault.add"}, {"kind", "failed"}, {"command", command}, {"times", 1}});
        EXPECT_EQ(exchange(std::string(command) + '\n'), "failed\n");
    }
    EXPECT_EQ(exchange("isUSBEventsActivated\n"), "no\n") << "a failed request is not executed";
    tools::askSimulator({{"do", "fault.add"}, {"kind", "close"}, {"command", "activateUSBEvents"}, {"times", 1}});
    EXPECT_EQ(exchange("activateUSBEvents\n"), "");
    EXPECT_EQ(exchange("isUSBEventsActivated\n"), "yes\n");
}

TEST(UsbEvents, fault_makes_an_activation_fail)
{
    const RunningService service;
    tools::askSimulator({{"do", "fault.add"}, {"kind", "failed"}, {"command", "activateUSBEvents"}});
    const support::EventRecorder recorder;
    EXPECT_EQ(support::onOwnThread([] { return KVO_HWS_activateUSBEventsV2(support::EventRecorder::newer); }), 1);
    ASSERT_TRUE(recorder.waitFor(2));
    EXPECT_THAT(recorder.codes(), ElementsAre(USB_EVENT_BEGIN, USB_EVENT_REFUSED));
}

}  // namespace
