// "kvosim usb" as users see it: output, exit statuses, and the delivery of events while a program starts and ends.
#include "common/control_protocol.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/running_service.h"

#include "support/scripted_service.h"
#include "support/usb_events.h"

#include <gmock/gmock.h>

#include <csignal>
#include <vector>

using namespace std::chrono_literals;

namespace {

using kvosim_test::exchange;
using kvosim_test::Exited;
using kvosim_test::Program;
using kvosim_test::runKvosim;
using kvosim_test::RunningService;
using support::kUsbSocket;
using support::replies;
using support::ScriptedService;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tools::Json;

struct Row : kvosim_test::NamedRow {
    std::vector<std::string> arguments;
    int status;
    std::string out;
    std::string err;
};

constexpr const char *kPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "Lathe 1"
[[station.usb_device]]

[[station]]
address = "10.0.0.6"
name = "Locked"
usb_lock = "3:0"
)toml";

class UsbCommand : public testing::TestWithParam<Row> {
protected:
    static Exited run()
    {
        std::vector<std::string> arguments = GetParam().arguments;
        arguments.insert(arguments.begin(), "usb");
        return runKvosim(arguments);
    }
};

TEST_P(UsbCommand, prints_the_expected_output)
{
    const RunningService service(kPlant);
    const Exited ended = run();
    EXPECT_EQ(ended.status, GetParam().status);
    EXPECT_THAT(ended.out, HasSubstr(GetParam().out));
    EXPECT_THAT(ended.err, HasSubstr(GetParam().err));
}

const std::string kNotActivated = "; USB events are not activated, so no event was sent\n";

const std::vector<Row> kCalls = {
    {"plug", {"plug", "10.0.0.5"}, 0, "10.0.0.5: \"usb2*1-1.2\" plugged in" + kNotActivated, ""},
    {"plug_by_name", {"plug", "Lathe 1"}, 0, "10.0.0.5: \"usb2*1-1.2\" plugged in" + kNotActivated, ""},
    {"plug_locked",
     {"plug", "Locked"},
     0,
     "10.0.0.6: \"usb1*1-1.1\" refused, because the station's USB lock is 3:0" + kNotActivated,
     ""},
    {"plug_json", {"plug", "10.0.0.5", "--json"}, 0, R"({"event":"plugged","station":"10.0.0.5","name":"Lathe 1",)", ""},
    {"plug_unknown", {"plug", "10.0.0.9"}, 2, "", "kvosim: no station has the address or the name \"10.0.0.9\"\n"},
    {"plug_wrong_text", {"plug", "10.0.0.5", "--text4", "a*b"}, 2, "", "kvosim: text4: contains an asterisk"},
    {"plug_wrong_number", {"plug", "10.0.0.5", "--id1", "65536"}, 2, "", "kvosim: id1: 65536 is out of range"},
    {"plug_not_a_number", {"plug", "10.0.0.5", "--number1", "many"}, 2, "", "kvosim: number1: is not a whole number"},
    {"plug_empty_ident", {"plug", "10.0.0.5", "--ident2", ""}, 2, "", "kvosim: ident2: is empty"},
    {"plug_not_utf8", {"plug", "10.0.0.5", "--ident2", "\xA7"}, 2, "", "kvosim: a text is not UTF-8; write it as UTF-8\n"},
    {"plug_without_station", {"plug"}, 2, "", "STATION is required"},
    {"plug_unknown_option", {"plug", "10.0.0.5", "--text9", "x"}, 2, "", "--text9"},
    {"refuse", {"refuse", "10.0.0.5"}, 0, "10.0.0.5: \"usb2*1-1.2\" refused" + kNotActivated, ""},
    {"unplug", {"unplug", "10.0.0.5", "usb1"}, 0, "10.0.0.5: \"usb1*1-1.1\" removed" + kNotActivated, ""},
    {"unplug_unknown",
     {"unplug", "10.0.0.5", "usb9"},
     2,
     "",
     "kvosim: no device \"usb9\" at 10.0.0.5; plugged in there: \"usb1*1-1.1\"\n"},
    {"unplug_without_device", {"unplug", "10.0.0.5"}, 2, "", "DEVICE is required"},
    {"state", {"state", "10.0.0.5", "1-1.1", "0x10"}, 0, "10.0.0.5: \"usb1*1-1.1\" in state 16" + kNotActivated, ""},
    {"state_wrong",
     {"state", "10.0.0.5", "usb1", "on"},
     2,
     "",
     "kvosim: state: is not a whole number; write 0 to 0xFFFFFFFF\n"},
    {"state_without_value", {"state", "10.0.0.5", "usb1"}, 2, "", "VALUE is required"},
    {"list", {"list"}, 0, "10.0.0.5: \"usb1*1-1.1\" state 0, Simulated device, kvosim, Memory stick\n", ""},
    {"list_without_devices", {"list", "Locked"}, 0, "no USB devices\n", ""},
    {"list_json", {"list", "10.0.0.6", "--json"}, 0, "{\"devices\":[]}\n", ""},
    {"list_unknown", {"list", "10.0.0.9"}, 2, "", "kvosim: no station has"},
    {"storm_not_activated", {"storm", "--count", "3"}, 2, "", "kvosim: USB events are not activated"},
    {"storm_without_count", {"storm"}, 2, "", "--count is required"},
    {"storm_of_zero", {"storm", "--count", "0"}, 2, "", "kvosim: count: 0 is out of range"},
    {"storm_rate", {"storm", "--count", "1", "--rate", "-1"}, 2, "", "--rate"},
    {"without_subcommand", {}, 2, "", "Usage: kvosim usb [OPTIONS] COMMAND\n"},
    {"help", {"--help"}, 0, "Examples:\n  kvosim usb plug", ""},
    {"storm_help", {"storm", "--help"}, 0, "Examples:\n  kvosim usb storm", ""}};

INSTANTIATE_TEST_SUITE_P(Table, UsbCommand, testing::ValuesIn(kCalls), kvosim_test::kNameOfRow);

TEST(UsbCommands, have_a_separate_exit_status_without_a_simulator)
{
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"usb", "plug", "10.0.0.5"}, {"usb", "list"}, {"usb", "storm", "--count", "1"}}) {
        EXPECT_EQ(runKvosim(arguments).status, 3);
    }
}

TEST(UsbCommands, accept_every_field)
{
    const RunningService service;
    const Exited plugged =
        runKvosim({"usb",       "plug",    "10.0.0.5",   "--ident2", "stick",     "--ident3", "3-1",   "--text4", "t4",
                   "--text5",   "t5",      "--no-text5", "--text6",  "t6",        "--text7",  "t7",    "--text8", "t8",
                   "--number1", "1",       "--number2",  "0x2",      "--number3", "3",        "--id1", "4",       "--id2",
                   "5",         "--state", "6",          "--bytes",  "0a",        "--report"});
    EXPECT_EQ(plugged.err, "");
    const tools::Json device = tools::Json::parse(runKvosim({"usb", "list", "--json"}).out)["devices"][0];
    const tools::Json wanted{{"station", "10.0.0.5"},
                             {"name", "Lathe 1"},
                             {"ident2", "stick"},
                             {"ident3", "3-1"},
                             {"text4", "t4"},
                             {"text5", "t5"},
                             {"no_text5", 1},
                             {"text6", "t6"},
                             {"text7", "t7"},
                             {"text8", "t8"},
                             {"number1", 1},
                             {"number2", 2},
                             {"number3", 3},
                             {"id1", 4},
                             {"id2", 5},
                             {"state", 6},
                             {"bytes", "0A" + std::string(126, '0')},
                             {"report", 1}};
    EXPECT_EQ(device.dump(), wanted.dump());
}

TEST(UsbCommands, report_whether_the_event_was_delivered)
{
    const RunningService service;
    exchange("activateUSBEvents\n");
    EXPECT_EQ(runKvosim({"usb", "plug", "10.0.0.5"}).out,
              "10.0.0.5: \"usb1*1-1.1\" plugged in; the event was not delivered: nobody listens\n");
    const ScriptedService receiver({replies("ok")}, kUsbSocket);
    EXPECT_EQ(runKvosim({"usb", "unplug", "10.0.0.5", "usb1"}).out,
              "10.0.0.5: \"usb1*1-1.1\" removed; the event was delivered\n");
    EXPECT_THAT(receiver.requests(), ElementsAre("removeUSBdevice*10.0.0.5*usb1*1-1.1*\n"));
}

TEST(UsbCommands, wait_longer_for_a_silent_receiver)
{
    const RunningService service;
    exchange("activateUSBEvents\n");
    const ScriptedService receiver({support::staysSilent(6s)}, kUsbSocket);
    Program first({KVOSIM_PROGRAM, "usb", "refuse", "10.0.0.5"});
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() == 1; }));
    const Exited second = runKvosim({"usb", "refuse", "10.0.0.5"});
    EXPECT_EQ(second.err, "");
    EXPECT_THAT(second.out, HasSubstr("refused; the event was"));
    EXPECT_EQ(first.wait(), 0);
}

TEST(UsbCommands, storm_prints_its_totals)
{
    const RunningService service;
    exchange("activateUSBEvents\n");
    const ScriptedService receiver({replies("ok")}, kUsbSocket);
    EXPECT_THAT(runKvosim({"usb", "storm", "--count", "20", "--rate", "200"}).out,
                ContainsRegex("^sent 20, delivered 20, failed 0, [0-9]\\.[0-9]{3} s, [0-9]+\\.[0-9] events per second\n$"));
    EXPECT_EQ(receiver.requests().size(), 20U);
    EXPECT_EQ(tools::Json::parse(runKvosim({"usb", "storm", "--count", "2", "--json"}).out)["delivered"], 2);
}

TEST(UsbCommands, storm_ends_on_interrupt)
{
    const RunningService service;
    exchange("activateUSBEvents\n");
    const ScriptedService receiver({replies("ok")}, kUsbSocket);
    Program storm({KVOSIM_PROGRAM, "usb", "storm", "--count", "100000", "--rate", "100"});
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() >= 3; }));
    storm.signal(SIGINT);
    EXPECT_EQ(storm.wait(), -SIGINT);
    EXPECT_TRUE(receiver.hasNoMoreRequests());
}

// ---- The service's process ----

Program servingWith(const std::vector<std::string> &more = {})
{
    std::vector<std::string> command{KVOSIM_PROGRAM, "serve", "--plant", EXAMPLE_PLANT, "--usb-lock-address", "none"};
    command.insert(command.end(), more.begin(), more.end());
    return Program(command);
}

TEST(UsbService, ends_on_a_signal_while_a_receiver_is_silent)
{
    Program service = servingWith();
    ASSERT_TRUE(service.hasWritten("kvosim: serving")) << service.err();
    const ScriptedService receiver({support::staysSilent(10s)}, kUsbSocket);
    exchange("activateUSBEvents\n");
    Program plug({KVOSIM_PROGRAM, "usb", "plug", "10.0.0.5"});
    ASSERT_TRUE(support::eventually([&] { return receiver.requests().size() == 1; }));
    const auto began = tools::Clock::now();
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
    EXPECT_LT(tools::Clock::now() - began, 8s);
    EXPECT_EQ(plug.wait(), 0);
    EXPECT_THAT(plug.out(), HasSubstr("plugged in; the event was not delivered: the simulator ends\n"));
    EXPECT_THAT(service.temporaryFiles(), IsEmpty());
    EXPECT_EQ(service.err(), "");
}

TEST(UsbService, forwards_signals_after_a_delivery)
{
    // The thread of a delivery must not handle signals.
    Program run({KVOSIM_PROGRAM, "run", "--usb-lock-address", "none", "--", "sh", "-c",
                 ASK_PROGRAM " activateUSBEvents && " KVOSIM_PROGRAM
                             " usb plug 10.0.0.5 && trap 'exit 7' TERM && echo ready && while :; do sleep 0.01; done"});
    ASSERT_TRUE(run.hasWritten("ready\n")) << run.err();
    run.signal(SIGTERM);
    EXPECT_EQ(run.wait(), 7);
}

TEST(UsbService, logs_events_when_verbose)
{
    Program service = servingWith({"--verbose"});
    ASSERT_TRUE(service.hasWritten("kvosim: serving")) << service.err();
    runKvosim({"usb", "refuse", "10.0.0.5"});
    exchange("activateUSBEvents\n");
    runKvosim({"usb", "plug", "10.0.0.5"});
    runKvosim({"usb", "state", "10.0.0.5", "usb1", "3"});
    service.signal(SIGTERM);
    service.wait();
    EXPECT_THAT(service.err(), HasSubstr(" USB event ignoreUSBdevice*10.0.0.5*usb1*1-1.1*Simulated device*1.00*refused*"));
    EXPECT_THAT(service.err(), HasSubstr(" -> not activated\n"));
    EXPECT_THAT(service.err(), HasSubstr(" activateUSBEvents -> ok\n"));
    EXPECT_THAT(service.err(), HasSubstr(" USB event changeStateUSBdevice*10.0.0.5*usb1*1-1.1*00000003* -> nobody listens\n"));
}

}  // namespace
