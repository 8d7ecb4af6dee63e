// The control socket: what it shows, changes and refuses, and which users may connect.
#include "common/control_client.h"

#include "kvosim/plant/station_keys.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

namespace {

using kvosim_test::exchange;
using kvosim_test::RunningService;
using testing::HasSubstr;
using testing::ThrowsMessage;
using tools::askSimulator;
using tools::Json;

tools::Json askFor(const std::string &station, const tools::Json &settings)
{
    return tools::askSimulator({{"do", "station"}, {"station", station}, {"set", settings}});
}

TEST(Control, shows_the_simulators_status)
{
    const RunningService service;
    exchange("getVersion\n");
    exchange("lockKVORegData\n");
    exchange("activateMe=0A000005\n");
    tools::askSimulator({{"do", "fault.add"}, {"kind", "close"}});
    const tools::Json status = tools::askSimulator({{"do", "status"}});
    EXPECT_EQ(status["process"], getpid());
    EXPECT_GE(status["uptime_ms"], 0);
    EXPECT_EQ(status["stations"], 3);
    EXPECT_EQ(status["exchanges"], 3) << "only those of the command socket";
    EXPECT_TRUE(std::filesystem::exists(status["registry"].get<std::string>() + "kvo_hws/currkvos.reg"));
    EXPECT_EQ(status["registry_locked"], true);
    EXPECT_EQ(status["focus"], "10.0.0.5 Lathe 1");
    EXPECT_EQ(status["usb_lock_address"], "none");
    EXPECT_EQ(status["faults"], 1);
    EXPECT_EQ(status["usb_events_activated"], false);
    EXPECT_EQ(status["usb_devices"], 0);
    EXPECT_EQ(status["event_listeners"], 0);
    EXPECT_EQ(status["remote_sessions"], 0);
    exchange("activateUSBEvents\n");
    EXPECT_EQ(tools::askSimulator({{"do", "status"}})["usb_events_activated"], true);
}

TEST(Control, shows_every_key_of_a_station)
{
    const RunningService service;
    const tools::Json station = tools::askSimulator({{"do", "station"}, {"station", "10.0.0.5"}});
    EXPECT_EQ(station["address"], "10.0.0.5");
    EXPECT_EQ(station["name"], "Lathe 1");
    EXPECT_EQ(station["ext"].dump(), "[11,12,13,14,15,16,17]");
    EXPECT_EQ(station["attr2"], 2);
    EXPECT_EQ(station["dpi"], "none");
    EXPECT_EQ(station["rebooting"], false);
    EXPECT_EQ(station.size(), kvosim::stationKeys().size() + 4);
    EXPECT_EQ(tools::askSimulator({{"do", "station"}, {"station", "Fräse"}})["address"], "10.0.0.6");
}

TEST(Control, changes_the_replies_to_clients)
{
    const RunningService service;
    EXPECT_EQ(askFor("Lathe 1", {{"mcp_address", "0x0C"}, {"viewer", "nc1:3"}, {"attr1", "4294967295"}})["mcp_address"], 12);
    EXPECT_EQ(exchange("getMCPAddress=0A000005\n"), "mcpaddr=12\n");
    EXPECT_EQ(exchange("getCurServer=0A000005\n"), "vncserver=nc1:3\n");
    EXPECT_THAT(exchange("getDLV2 3\n"), HasSubstr("0A000005 FFFFFFFF 00000002"));
    std::string path = exchange("getregistrypath\n");
    path.pop_back();
    EXPECT_THAT(kvosim_test::contentsOf(path + "kvo_hws/currkvos.reg"), HasSubstr("\"Lathe 1\" 10.0.0.5 -1x2:3"));
}

TEST(Control, accepts_every_value_that_it_shows)
{
    const RunningService service;
    tools::Json station = tools::askSimulator({{"do", "station"}, {"station", "10.0.0.5"}});
    for (const char *fixed : {"address", "name", "ext", "rebooting"}) {
        station.erase(fixed);
    }
    const tools::Json again = askFor("10.0.0.5", station);
    for (const auto &[key, value] : station.items()) {
        EXPECT_EQ(again[key], value) << key;
    }
}

TEST(Control, sets_all_values_or_none)
{
    const RunningService service;
    EXPECT_THAT(
        [] {
            askFor("10.0.0.5", {{"mcp_address", 9}, {"attr1", 9}, {"backlight", 2}});
        },
        ThrowsMessage<tools::Refused>("backlight: 2 is out of range; write 0 to 1"));
    const tools::Json station = tools::askSimulator({{"do", "station"}, {"station", "10.0.0.5"}});
    EXPECT_EQ(station["mcp_address"], 0);
    EXPECT_EQ(station["attr1"], 1);
}

struct Refusal : kvosim_test::NamedRow {
    std::string request;
    std::string error;
};

class ControlRefuses : public testing::TestWithParam<Refusal> {};

TEST_P(ControlRefuses, the_request_and_says_why)
{
    const RunningService service;
    const tools::Json reply = tools::Json::parse(exchange(GetParam().request + '\n', tools::kControlSocket));
    EXPECT_THAT(reply.at("error").get<std::string>(), HasSubstr(GetParam().error));
    EXPECT_EQ(tools::askSimulator({{"do", "fault.list"}}).dump(), "{\"faults\":[]}");
}

const std::string kSetOf5 = R"({"do": "station", "station": "10.0.0.5", "set": )";

const std::vector<Refusal> kRefusals = {
    {"not_json", "status", "parse error"},
    {"empty", "", "parse error"},
    {"not_an_object", "[1]", "type"},
    {"without_action", "{}", "'do' not found"},
    {"unknown", R"({"do": "stop"})", "\"do\": \"stop\" is not one of"},
    {"station_missing", R"({"do": "station"})", "'station' not found"},
    {"station_unknown", R"({"do": "station", "station": "10.0.0.9"})", "no station has the address or the name \"10.0.0.9\""},
    {"key_unknown", kSetOf5 + R"({"brihgtness": 1}})", "brihgtness: is not a key that can be set"},
    {"key_fixed", kSetOf5 + R"({"name": "B"}})", "address, name and ext cannot change"},
    {"number_wanted", kSetOf5 + R"({"dpi": "many"}})", "dpi: is not a whole number; write 0 to 2147483647, or \"none\""},
    {"number_empty", kSetOf5 + R"({"dpi": ""}})", "dpi: is not a whole number"},
    {"number_negative_hex", kSetOf5 + R"({"nonlinear": "0x-1"}})", "nonlinear: is not a whole number"},
    {"text_wanted", kSetOf5 + R"({"viewer": 1}})", "viewer: is not a text"},
    {"fault_kind_missing", R"({"do": "fault.add"})", "'kind' not found"},
    {"fault_kind", R"({"do": "fault.add", "kind": "late"})", "kind: \"late\" is not a fault"},
    {"fault_command", R"({"do": "fault.add", "kind": "close", "command": "reboot="})", "command: \"reboot=\" is not a command"},
    {"fault_negative", R"({"do": "fault.add", "kind": "close", "times": -1})", "times: is not a whole number"},
    {"fault_text", R"({"do": "fault.add", "kind": "close", "after": "1"})", "after: is not a whole number"}};

INSTANTIATE_TEST_SUITE_P(Table, ControlRefuses, testing::ValuesIn(kRefusals), kvosim_test::kNameOfRow);

TEST(Control, adds_lists_and_clears_faults)
{
    const RunningService service;
    tools::askSimulator({{"do", "fault.add"}, {"kind", "failed"}, {"command", "getVersion"}, {"after", 1}, {"times", 1}});
    tools::askSimulator({{"do", "fault.add"}, {"kind", "delay"}, {"command", "reboot"}});
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
    EXPECT_EQ(exchange("getVersion\n"), "failed\n");
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
    EXPECT_EQ(tools::askSimulator({{"do", "fault.list"}}).dump(),
              R"({"faults":[{"command":"getVersion","kind":"failed","after":1,"times":1,"struck":1},)"
              R"({"command":"reboot","kind":"delay","after":0,"times":0,"struck":0,"delay_ms":1000}]})");
    EXPECT_EQ(tools::askSimulator({{"do", "fault.clear"}}).dump(), R"({"faults":[]})");
}

TEST(Control, is_not_affected_by_faults)
{
    const RunningService service;
    tools::askSimulator({{"do", "fault.add"}, {"kind", "silent"}});
    EXPECT_EQ(tools::askSimulator({{"do", "status"}})["faults"], 1);
}

TEST(Control, is_accessible_only_to_its_user)
{
    const RunningService service;
    struct stat status {};
    ASSERT_EQ(stat(tools::kControlSocket, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    ASSERT_EQ(stat(kvosim_test::kCommandSocket, &status), 0);
    EXPECT_NE(status.st_mode & 0200U, 0U);
}

/// The permissions of a socket.
mode_t modeOf(const char *path)
{
    struct stat status {};
    EXPECT_EQ(stat(path, &status), 0) << path;
    return status.st_mode & 07777U;
}

TEST(Control, gives_the_other_sockets_the_requested_mode)
{
    for (const mode_t mode : {mode_t{0600}, mode_t{0660}, mode_t{0666}}) {
        const mode_t before = umask(022);
        const RunningService service(kvosim_test::kSmallPlant, {.socketMode = mode});
        umask(before);
        EXPECT_EQ(modeOf(kvosim_test::kCommandSocket), mode);
        EXPECT_EQ(modeOf("/tmp/kvo_hws/event_sock"), mode);
        EXPECT_EQ(modeOf(tools::kControlSocket), mode_t{0600});
    }
}

TEST(Control, makes_the_other_sockets_private_without_a_mode)
{
    for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
        const mode_t before = umask(mask);
        const RunningService service;
        umask(before);
        EXPECT_EQ(modeOf(kvosim_test::kCommandSocket), mode_t{0600});
        EXPECT_EQ(modeOf("/tmp/kvo_hws/event_sock"), mode_t{0600});
        EXPECT_EQ(modeOf(tools::kControlSocket), mode_t{0600});
    }
}

TEST(Control, is_removed_when_the_service_ends)
{
    RunningService service;
    exchange("killDaemon\n");
    service.join();
    EXPECT_FALSE(std::filesystem::exists(tools::kControlSocket));
    EXPECT_THROW(tools::askSimulator({{"do", "status"}}), tools::NoSimulator);
}

TEST(Control, is_not_found_without_a_listener)
{
    EXPECT_THROW(tools::askSimulator({{"do", "status"}}), tools::NoSimulator);
    const kvosim_test::TemporaryDirectory directory;
    const std::string path = directory / "stale";
    {
        const tools::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    EXPECT_THAT(
        [&] {
            tools::askSimulator({{"do", "status"}}, path);
        },
        ThrowsMessage<tools::NoSimulator>(HasSubstr("no process listens at " + path)));
}

TEST(Control, shows_names_that_are_not_utf8)
{
    const RunningService service;
    exchange("setStatusline=0A000005,1,2,\xFF\n");
    EXPECT_EQ(tools::askSimulator({{"do", "station"}, {"station", "10.0.0.5"}})["status_line"], "\uFFFD");
}

}  // namespace
