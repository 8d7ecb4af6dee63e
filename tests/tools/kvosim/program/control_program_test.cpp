// The subcommands that control a running simulator, as users see them.
#include "common/control_client.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/program.h"
#include "tools/kvosim/support/run_kvosim.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

using kvosim_test::exchange;
using kvosim_test::Exited;
using kvosim_test::Program;
using kvosim_test::runKvosim;
using kvosim_test::RunningService;
using testing::HasSubstr;
using tools::Json;

struct Row : kvosim_test::NamedRow {
    std::vector<std::string> arguments;
    int status;
    std::string out;
    std::string err;
};

class ControlCommand : public testing::TestWithParam<Row> {};

TEST_P(ControlCommand, prints_the_expected_output)
{
    const RunningService service;
    const Exited ended = runKvosim(GetParam().arguments);
    EXPECT_EQ(ended.status, GetParam().status);
    EXPECT_THAT(ended.out, HasSubstr(GetParam().out));
    EXPECT_THAT(ended.err, HasSubstr(GetParam().err));
}

const std::vector<Row> kCalls = {
    {"status", {"status"}, 0, "\nstations                    3\n", ""},
    {"status_json", {"status", "--json"}, 0, R"("registry_locked":false,"focus":"none")", ""},
    {"station_by_address", {"station", "10.0.0.5"}, 0, "name                        Lathe 1\n", ""},
    {"station_by_name", {"station", "Fräse"}, 0, "address                     10.0.0.6\n", ""},
    {"station_json", {"station", "10.0.0.6", "--json"}, 0, R"({"address":"10.0.0.6","name":"Fräse","ext":[0,0,)", ""},
    {"station_set", {"station", "10.0.0.5", "--set", "dpi=96", "t2m2n=a=b"}, 0, "t2m2n                       a=b\n", ""},
    {"station_unknown", {"station", "10.0.0.9"}, 2, "", "kvosim: no station has the address or the name \"10.0.0.9\"\n"},
    {"station_set_wrong",
     {"station", "10.0.0.5", "--set", "dpi=-1"},
     2,
     "",
     "kvosim: dpi: -1 is out of range; write 0 to 2147483647, or \"none\"\n"},
    {"set_without_value", {"station", "10.0.0.5", "--set", "dpi"}, 2, "", "\"dpi\" is not a setting; write KEY=VALUE\n"},
    {"station_missing", {"station"}, 2, "", "STATION is required"},
    {"fault_list", {"fault", "list"}, 0, "no faults\n", ""},
    {"fault_add",
     {"fault", "add", "delay", "--command", "getVersion", "--after", "2", "--times", "3", "--delay-ms", "7"},
     0,
     "delay getVersion, 7 ms, after 2, 3 times, affected 0\n",
     ""},
    {"fault_add_shortest", {"fault", "add", "close"}, 0, "close *, after 0, unlimited, affected 0\n", ""},
    {"fault_add_json",
     {"fault", "add", "split", "--json"},
     0,
     R"({"faults":[{"command":"*","kind":"split","after":0,"times":0,"struck":0,"delay_ms":5}]})",
     ""},
    {"fault_add_unknown", {"fault", "add", "late"}, 2, "", "kvosim: kind: \"late\" is not a fault; write delay, close"},
    {"fault_add_negative", {"fault", "add", "close", "--times", "-1"}, 2, "", "--times"},
    {"fault_clear", {"fault", "clear", "--json"}, 0, "{\"faults\":[]}\n", ""},
    {"fault_without_subcommand", {"fault"}, 2, "", "Usage: kvosim fault [OPTIONS] COMMAND\n"},
    {"fault_help", {"fault", "--help"}, 0, "Examples:\n  kvosim fault add", ""},
    {"station_help", {"station", "--help"}, 0, "Examples:\n  kvosim station", ""}};

INSTANTIATE_TEST_SUITE_P(Table, ControlCommand, testing::ValuesIn(kCalls), kvosim_test::kNameOfRow);

class WithoutASimulator : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WithoutASimulator, has_a_separate_exit_status)
{
    const Exited ended = runKvosim(GetParam());
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "kvosim: no simulator is running (no process listens at /tmp/kvo_hws/kvosim_ctl); start one with "
                         "\"kvosim serve\", or work inside \"kvosim run\"\n");
}

const std::vector<std::vector<std::string>> kCommands = {
    std::vector<std::string>{"status"}, std::vector<std::string>{"station", "10.0.0.5"},
    std::vector<std::string>{"fault", "add", "close"}, std::vector<std::string>{"fault", "clear", "--json"}};

INSTANTIATE_TEST_SUITE_P(Table, WithoutASimulator, testing::ValuesIn(kCommands));

TEST(ControlCommand, changes_persist_between_calls)
{
    const RunningService service;
    EXPECT_EQ(runKvosim({"station", "Lathe 1", "--set", "backlight=0", "dpi=0x60"}).status, 0);
    EXPECT_EQ(tools::Json::parse(runKvosim({"station", "Lathe 1", "--json"}).out)["backlight"], 0);
    EXPECT_EQ(exchange("showDPI=0A000005\n"), "dpi=96\n");
    EXPECT_EQ(runKvosim({"fault", "add", "failed", "--command", "showDPI"}).status, 0);
    EXPECT_EQ(exchange("showDPI=0A000005\n"), "failed\n");
    EXPECT_EQ(runKvosim({"fault", "clear"}).out, "no faults\n");
    EXPECT_EQ(exchange("showDPI=0A000005\n"), "dpi=96\n");
}

TEST(ControlCommand, reaches_the_simulator_of_kvosim_run)
{
    Program run({KVOSIM_PROGRAM, "run", "--usb-lock-address", "127.0.0.1:0", "--", "sh", "-c",
                 KVOSIM_PROGRAM " station 'Panel 1' --set kvo_index=7 --json && " ASK_PROGRAM
                                " getKVOIndex=0A000005 && " KVOSIM_PROGRAM " status"});
    EXPECT_EQ(run.wait(), 0) << run.err();
    EXPECT_THAT(run.out(), HasSubstr("kvoindex=7\n"));
    EXPECT_THAT(run.out(), HasSubstr("usb_lock_address            127.0.0.1:"));
    EXPECT_EQ(run.err(), "");
}

TEST(ControlCommand, verbose_service_logs_faults_and_datagrams)
{
    Program service({KVOSIM_PROGRAM, "serve", "--plant", EXAMPLE_PLANT, "--verbose", "--usb-lock-address", "127.0.0.1:0"});
    ASSERT_TRUE(service.hasWritten("kvosim: serving")) << service.err();
    tools::askSimulator({{"do", "fault.add"}, {"kind", "garbage"}, {"times", 1}});
    EXPECT_EQ(exchange("getVersion\n"), "#?V04.07.01.12\n");
    const auto address = *kvosim::parseEndpoint(tools::askSimulator({{"do", "status"}})["usb_lock_address"].get<std::string>());
    const tools::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    for (const std::string datagram : {"setUsbLock=\"1:2\" 10.0.0.5\n", "hello"}) {
        sendto(socket.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    while (exchange("getUsbLock=0A000005\n") != "usb-lock=1:2\n") {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 0);
    EXPECT_THAT(service.err(), HasSubstr(" getVersion -> V04.07.01.12 (fault: garbage)\n"));
    EXPECT_THAT(service.err(), HasSubstr(" datagram setUsbLock=\"1:2\" 10.0.0.5\\x0A\n"));
    EXPECT_THAT(service.err(), HasSubstr(" datagram hello (ignored)\n"));
}

// ---- The address of the USB lock ----

TEST(UsbLockAddress, in_use_is_an_error_if_given)
{
    const RunningService service("", {.usbLockAddress = "127.0.0.1:0"});
    const std::string taken = service.usbLockAddress();
    Program run({KVOSIM_PROGRAM, "run", "--usb-lock-address", taken, "--", "true"});
    EXPECT_EQ(run.wait(), 1);
    EXPECT_EQ(run.err(), "kvosim: cannot receive the USB lock's datagrams at " + taken +
                             ": the port is in use, perhaps by another simulator\n");
}

TEST(UsbLockAddress, in_use_is_a_warning_if_it_is_the_default)
{
    // The port is in use, either by this test or by another one.
    tools::EventLoop loop;
    std::unique_ptr<kvosim::UdpSocket> mine;
    try {
        mine = std::make_unique<kvosim::UdpSocket>(loop, kvosim::kDefaultUsbLockAddress, [](std::string_view) {});
    } catch (const std::exception &error) {
        std::puts(error.what());
    }
    Program run({KVOSIM_PROGRAM, "run", "--", "sh", "-c", "exit 7"});
    EXPECT_EQ(run.wait(), 7);
    if (mine) {
        EXPECT_THAT(run.err(),
                    HasSubstr("warning: cannot receive the USB lock's datagrams at 127.0.0.1:5851: the port is in use"));
    }
}

TEST(UsbLockAddress, malformed_is_a_usage_error)
{
    const Exited ended = runKvosim({"run", "--usb-lock-address", "localhost", "--", "true"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.err, HasSubstr("--usb-lock-address: write ADDRESS or ADDRESS:PORT"));
}

TEST(Run, receives_datagrams_only_from_this_machine)
{
    const std::vector<std::string> run{"run", "--usb-lock-address", "none", "--", "sh", "-c", "echo $KVO_PLATFORM_INTERFACE"};
    unsetenv("KVO_PLATFORM_INTERFACE");
    EXPECT_EQ(runKvosim(run).out, "lo\n");
    setenv("KVO_PLATFORM_INTERFACE", "eth7", 1);
    EXPECT_EQ(runKvosim(run).out, "eth7\n");
}

}  // namespace
