// Several requests to the stations of one plant: values that were set can be read back, and change no other station.
#include "support/eventually.h"
#include "tools/kvosim/commands/simulation.h"
#include "tools/kvosim/support/named_row.h"

#include <chrono>
#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace {

using kvosim_test::plantWith;
using kvosim_test::Simulation;
using testing::Eq;

struct SequenceRow : kvosim_test::NamedRow {
    std::string keys;
    std::vector<std::pair<std::string, std::string>> exchanges;
};

class Sequence : public testing::TestWithParam<SequenceRow> {};

TEST_P(Sequence, is_answered)
{
    Simulation simulation(plantWith(GetParam().keys));
    for (const auto &[request, reply] : GetParam().exchanges) {
        EXPECT_THAT(simulation.ask(request), Eq(reply)) << request;
    }
}

const std::vector<SequenceRow> kSequences = {
    {"viewer",
     "",
     {{"startViewer=\"nc1:3:shared\" 0A000005", "ok"},
      {"isViewerActive=0A000005", "active"},
      {"isViewerActive=0A000006", "not active"},
      {"getCurServer=0A000005", "vncserver=nc1:3"},
      {"startConfiguredViewer=\"nc2:1\" 0A000005", "busy"},
      {"getCurServer=0A000005", "vncserver=nc1:3"},
      {"stopViewerPreempt=0A000005", "ok"},
      {"stopViewer=0A000005", "not running"},
      {"getCurServer=0A000005", "none"},
      {"startConfiguredViewer=\"nc2:1\" 0A000005", "ok"},
      {"getCurServer=0A000005", "vncserver=nc2:1"}}},
    {"refused_start_starts_nothing",
     "",
     {{"startViewer=\":3:x\" 0A000005", "failed"}, {"isViewerActive=0A000005", "not active"}}},
    {"reboot_without_time",
     "viewer = \"nc1:3\"\nsw_caps_lock = 1\nmcp_address = 5\nbacklight_brightness = 40",
     {{"reboot=0A000005", "ok"},
      {"isViewerActive=0A000005", "not active"},
      {"getSwCapsLock=0A000005", "swcapslock 0"},
      {"getMCPAddress=0A000005", "mcpaddr=5"},
      {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=40"}}},
    {"away_while_it_reboots",
     "reboot_time_ms = 60000\nmcp_address = 5\nusb_connectors = \"X60:free\"",
     {{"reboot=0A000005", "ok"},
      {"getMCPAddress=0A000005", "failed"},
      {"setMCPAddress=\"6\" 0A000005", "failed"},
      {"setStatusline=0A000005,1,2,x", "failed"},
      {"reboot=0A000005", "failed"},
      {"getExDescByIP 0A000005", "not found"},
      {"getExDescByName A", "not found"},
      {"isMarovantiPanel 0A000005", "not found"},
      {"getIPbyMCPAddress=00000005", "no_mcp_address"},
      {"getUsbConnectorList", "usb-connector-list="},
      {"getCountElemDL", "2"},
      {"getMCPAddress=0A000006", "mcpaddr=0"}}},
    {"brightness",
     "",
     {{"setBacklightBrightness=10 0A000005", "ok"},
      {"setBacklightBrightnessV2=20 1 0A000005", "ok"},
      {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=10"},
      {"getBacklightBrightnessV2=1 0A000005", "backlight-brightness-v2=20"},
      {"setBacklightBrightnessV2=30 0 0A000005", "ok"},
      {"getBacklightBrightnessV2=0 0A000005", "backlight-brightness-v2=30"},
      {"getBacklightBrightnessV2=0 0A000006", "backlight-brightness-v2=100"}}},
    {"key_locks",
     "",
     {{"setDisableNumLock=1 0A000005", "ok"},
      {"getDisableNumLock=0A000005", "disable numlock 1"},
      {"getDisableCapsLock=0A000005", "diable capslock 0"},
      {"setDisableCapsLock=1 0A000005", "ok"},
      {"getDisableCapsLock=0A000005", "diable capslock 1"},
      {"setSwCapsLock=-1 0A000005", "ok"},
      {"getSwCapsLock=0A000005", "swcapslock -1"},
      {"getSwCapsLock=0A000006", "swcapslock 0"}}},
    {"handheld", "handheld = 1", {{"setRV4Mode=\"1\" 0A000005", "ok"}, {"getRV4Mode=0A000005", "rv4mode=1"}}},
    {"lookups",
     "",
     {{"setMCPAddress=\"5\" 0A000006", "ok"},
      {"getMCPAddress=0A000006", "mcpaddr=5"},
      {"getIPbyMCPAddress=00000005", "ipaddr=0A000006"},
      {"setMCPAddress=\"5\" 0A000005", "ok"},
      {"getIPbyMCPAddress=00000005", "more_than_one_mcp"},
      {"setKVOIndex=\"9\" 0A000005", "ok"},
      {"getKVOIndex=0A000005", "kvoindex=9"},
      {"getIPbyKVOIndex=00000009", "ipaddr=0A000005"},
      {"setKVOIndex=\"9\" 0A000006", "ok"},
      {"getIPbyKVOIndex=00000009", "more_than_one_kvo_index"},
      {"setKVOIndex=\"256\" 0A000006", "failed"},
      {"getKVOIndex=0A000006", "kvoindex=9"}}},
    {"dck",
     "",
     {{"setDCKEnable=\"1\" 0A000005", "ok"},
      {"getDCKEnable=0A000005", "dckenable=1"},
      {"getDCKEnable=0A000006", "dckenable=0"},
      {"setKVOCksIndex=\"200\" 0A000005", "ok"},
      {"setKVOCksIndex=\"256\" 0A000005", "bad request"},
      {"getKVOCksIndex=0A000005", "cksindex=200"}}},
    {"channel_info",
     "",
     {{"setChannelInfo=\"says \"hi\" 0A000006\" 0A000005", "ok"},
      {"getChannelInfo=0A000005", "channel-info=says \"hi\" 0A000006"},
      {"getChannelInfo=0A000006", "channel-info="},
      {"deleteChannelInfo=0A000005", "ok"},
      {"getChannelInfo=0A000005", "channel-info="}}},
    {"calibration",
     "",
     {{"setCalibParam=\"30:1\" 0A000005", "ok"},
      {"getCalibParam=0A000005", "press_thresh=30 nonlinear=1"},
      {"setCalibParam=\"30:2\" 0A000005", "failed"},
      {"getCalibParam=0A000005", "press_thresh=30 nonlinear=1"},
      {"invalidateTouch=0A000005", "ok"},
      {"getCalibParam=0A000005", "press_thresh=-1 nonlinear=-1"}}},
    {"focus_that_is_not_held",
     "",
     {{"activateMe=0A000005", "ok"}, {"activateMe=0A000006", "ok"}, {"activateMe=0A000005", "ok"}}}};

INSTANTIATE_TEST_SUITE_P(Table, Sequence, testing::ValuesIn(kSequences), kvosim_test::kNameOfRow);

TEST(StationCommands, two_stations_with_one_dck_address_are_not_distinguished)
{
    Simulation simulation(plantWith("dck_address = 3") + "dck_address = 3\n");
    EXPECT_EQ(simulation.ask("getIPbyDCKAddress=00000003"), "more_than_one_dck");
}

TEST(StationCommands, connectors_of_several_stations_follow_their_addresses)
{
    Simulation simulation(plantWith("usb_connectors = \"X60:free\"") + "usb_connectors = \"X1:mouse X2:free\"\n");
    EXPECT_EQ(simulation.ask("getUsbConnectorList"), "usb-connector-list=10.0.0.5 X60:free;10.0.0.6 X1:mouse X2:free");
}

TEST(StationCommands, focus_is_kept_for_its_time)
{
    Simulation simulation("[service]\nfocus_hold_ms = 60000\n" + plantWith(""));
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "busy");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok") << "the owner may request it again";
    simulation.context.plant.focus.since -= std::chrono::seconds(59);
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "busy");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok") << "a repeated request does not extend the time";
    simulation.context.plant.focus.since -= std::chrono::seconds(1);
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "busy");
    EXPECT_EQ(simulation.ask("reboot=0A000006"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok") << "a rebooting station loses the focus";
}

TEST(StationCommands, station_is_back_after_its_reboot)
{
    Simulation simulation(plantWith("reboot_time_ms = 1500"));
    EXPECT_EQ(simulation.ask("reboot=0A000005"), "ok");
    EXPECT_EQ(simulation.ask("isViewerActive=0A000005"), "failed");
    EXPECT_TRUE(support::eventually([&] { return simulation.ask("isViewerActive=0A000005") == "not active"; }));
}

TEST(StationCommands, clock_of_the_plant_can_be_set)
{
    using std::chrono::milliseconds;
    Simulation simulation("[service]\nfocus_hold_ms = 60000\n" + plantWith("reboot_time_ms = 1500\nmcp_address = 7"));
    const auto setClock = [&](int time) {
        simulation.context.plant.clock.set(kvosim::PlantClock::TimePoint(milliseconds(time)));
    };
    setClock(1'000);
    EXPECT_EQ(simulation.ask("reboot=0A000005"), "ok");
    EXPECT_EQ(simulation.ask("activateMe=0A000006"), "ok");
    setClock(2'499);
    EXPECT_EQ(simulation.ask("isViewerActive=0A000005"), "failed");
    EXPECT_EQ(simulation.ask("getIPbyMCPAddress=00000007"), "no_mcp_address");
    setClock(2'500);
    EXPECT_EQ(simulation.ask("isViewerActive=0A000005"), "not active");
    EXPECT_EQ(simulation.ask("getIPbyMCPAddress=00000007"), "ipaddr=0A000005");
    setClock(60'999);
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "busy");
    setClock(61'000);
    EXPECT_EQ(simulation.ask("activateMe=0A000005"), "ok");
}

TEST(StationCommands, cleaning_up_removes_the_status_line)
{
    Simulation simulation(plantWith("viewer = \"nc1:3\""));
    const kvosim::Panel &panel = *simulation.context.plant.findPanel(0x0A000005);
    simulation.ask("setStatusline=0A000005,7,8,Hello, you");
    EXPECT_EQ(panel.statusLine, "Hello, you");
    EXPECT_EQ(panel.statusValue1, 7);
    EXPECT_EQ(panel.statusValue2, 8);
    simulation.ask("stopViewerNoClean=0A000005");
    EXPECT_EQ(panel.statusLine, "Hello, you");
    simulation.ask("startViewer=\"a:b:c\" 0A000005");
    simulation.ask("stopViewer=0A000005");
    EXPECT_EQ(panel.statusLine, "");
}

TEST(StationCommands, keys_of_the_machine_control_panel_are_kept)
{
    Simulation simulation(plantWith(""));
    const kvosim::Panel &panel = *simulation.context.plant.findPanel(0x0A000005);
    simulation.ask("simulateMCPKey=\"12:1\" 0A000005");
    simulation.ask("enableMCPKey=\"13:0\" 0A000005");
    EXPECT_EQ(panel.simulatedMcpKey, "12:1");
    EXPECT_EQ(panel.enabledMcpKey, "13:0");
    simulation.ask("reboot=0A000005");
    EXPECT_EQ(panel.simulatedMcpKey, "");
    EXPECT_EQ(panel.enabledMcpKey, "13:0");
}

}  // namespace
