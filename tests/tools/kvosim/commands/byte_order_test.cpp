// Every command about stations finds a station by its address in either byte order.
#include "kvosim/commands/commands.h"
#include "kvosim/plant_file/plant_file.h"
#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The first two stations distinguish the orders. The addresses of the other two are each other's in reverse byte order.
constexpr std::string_view kPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "Lathe 1"
handheld = 1
attr1 = 1
viewer = ""
usb_connectors = "X60:keyboard"
usb_lock = "1:2"

[[station]]
address = "10.0.0.6"
name = "Lathe 2"
viewer = "nc1:3"

[[station]]
address = "1.2.3.4"
name = "Plain"
kvo_index = 1

[[station]]
address = "4.3.2.1"
name = "Turned"
kvo_index = 2
)toml";

class Simulation {
public:
    std::string ask(std::string_view request) { return kvosim::answer(context_, request); }
    kvosim::Plant &plant() { return plant_; }

private:
    kvosim::Plant plant_ = kvosim::parsePlant(kPlant, "plant");
    kvosim::Registry registry_{std::nullopt};
    kvosim::ServiceContext context_{.plant = plant_, .registry = registry_};
};

/// A request with "@" for the station, and a request whose reply shows the effect; empty if the first reply shows it.
struct Row : kvosim_test::NamedRow {
    std::string request;
    std::string check;
};

std::string at(std::string request, std::string_view station)
{
    request.replace(request.find('@'), 1, station);
    return request;
}

class InEitherOrder : public testing::TestWithParam<Row> {};

TEST_P(InEitherOrder, the_station_is_found)
{
    Simulation plain;
    Simulation turned;
    const std::string reply = plain.ask(at(GetParam().request, "0A000005"));
    EXPECT_THAT(reply, Not(AnyOf("failed", "not found")));
    EXPECT_EQ(turned.ask(at(GetParam().request, "0500000A")), reply);
    EXPECT_EQ(plain.ask(at(GetParam().request, "0500000B")), GetParam().name == std::string("make") ? "not found" : "failed");
    if (!GetParam().check.empty()) {
        const std::string untouched = Simulation().ask(at(GetParam().check, "0A000005"));
        const std::string changed = plain.ask(at(GetParam().check, "0A000005"));
        EXPECT_NE(changed, untouched);
        EXPECT_EQ(turned.ask(at(GetParam().check, "0A000005")), changed);
    }
}

const std::vector<Row> kViewerRequests = {{"start", "startViewer=\"a:b:c\" @", "getCurServer=@"},
                                          {"start_configured", "startConfiguredViewer=\"a:1\" @", "getCurServer=@"},
                                          {"stop", "stopViewer=@", ""},
                                          {"stop_preempt", "stopViewerPreempt=@", ""},
                                          {"stop_no_clean", "stopViewerNoClean=@", ""},
                                          {"active", "isViewerActive=@", ""},
                                          {"server", "getCurServer=@", ""},
                                          {"activate", "activateMe=@", ""},
                                          {"reboot", "reboot=@", ""},
                                          {"status_line", "setStatusline=@,1,2,text", ""}};

INSTANTIATE_TEST_SUITE_P(Viewer, InEitherOrder, testing::ValuesIn(kViewerRequests), kvosim_test::kNameOfRow);

const std::vector<Row> kPanelRequests = {{"brightness", "setBrightness=0 @", ""},
                                         {"backlight", "setBacklightBrightness=40 @", "getBacklightBrightnessV2=0 @"},
                                         {"backlight_v2", "setBacklightBrightnessV2=40 1 @", "getBacklightBrightnessV2=1 @"},
                                         {"num_lock", "setDisableNumLock=1 @", "getDisableNumLock=@"},
                                         {"caps_lock", "setDisableCapsLock=1 @", "getDisableCapsLock=@"},
                                         {"type", "getStationType=@", ""},
                                         {"sw_caps_lock", "setSwCapsLock=1 @", "getSwCapsLock=@"},
                                         {"rv4", "setRV4Mode=\"1\" @", "getRV4Mode=@"}};

INSTANTIATE_TEST_SUITE_P(Panel, InEitherOrder, testing::ValuesIn(kPanelRequests), kvosim_test::kNameOfRow);

const std::vector<Row> kNumberRequests = {{"mcp", "setMCPAddress=\"12\" @", "getMCPAddress=@"},
                                          {"index", "setKVOIndex=\"7\" @", "getKVOIndex=@"},
                                          {"dck", "setDCKEnable=\"1\" @", "getDCKEnable=@"},
                                          {"dck_address", "getDCKAddress=@", ""},
                                          {"cks", "setKVOCksIndex=\"9\" @", "getKVOCksIndex=@"},
                                          {"simulate", "simulateMCPKey=\"1:2\" @", ""},
                                          {"enable", "enableMCPKey=\"1:2\" @", ""}};

INSTANTIATE_TEST_SUITE_P(Numbers, InEitherOrder, testing::ValuesIn(kNumberRequests), kvosim_test::kNameOfRow);

const std::vector<Row> kFocusRequests = {
    {"priority", "getKVOPriority=@", ""},    {"active", "getKVOStartupActive=@", ""},
    {"prio", "getKVOStartupPrio=@", ""},     {"channel", "getKVOChannelOnFocus=@", ""},
    {"screen", "getKVOScreenOnFocus=@", ""}, {"info", "setChannelInfo=\"x\" @", "getChannelInfo=@"},
    {"no_info", "deleteChannelInfo=@", ""}};

INSTANTIATE_TEST_SUITE_P(Focus, InEitherOrder, testing::ValuesIn(kFocusRequests), kvosim_test::kNameOfRow);

const std::vector<Row> kInputRequests = {{"devices", "showInputDevice=@", ""},
                                         {"calibration", "setCalibParam=\"5:1\" @", "getCalibParam=@"},
                                         {"no_calibration", "invalidateTouch=@", ""},
                                         {"dpi", "showDPI=@", ""}};

INSTANTIATE_TEST_SUITE_P(Input, InEitherOrder, testing::ValuesIn(kInputRequests), kvosim_test::kNameOfRow);

const std::vector<Row> kUsbRequests = {{"lock", "getUsbLock=@", ""}, {"connectors", "getUsbConnectorListOne=@", ""}};

INSTANTIATE_TEST_SUITE_P(Usb, InEitherOrder, testing::ValuesIn(kUsbRequests), kvosim_test::kNameOfRow);

const std::vector<Row> kMetricsRequests = {{"layout", "getPaneOemLayout=@", ""},   {"softkeys", "getSoftkeyType=@", ""},
                                           {"keyboard", "getKeyBoardCaps=@", ""},  {"hardware", "getHardwareCaps=@", ""},
                                           {"rotation", "getPanelRotation=@", ""}, {"make", "isMarovantiPanel @", ""}};

INSTANTIATE_TEST_SUITE_P(Metrics, InEitherOrder, testing::ValuesIn(kMetricsRequests), kvosim_test::kNameOfRow);

TEST(ByteOrder, normal_byte_order_has_precedence_if_both_orders_match)
{
    Simulation simulation;
    EXPECT_EQ(simulation.ask("getKVOIndex=01020304"), "kvoindex=1");
    EXPECT_EQ(simulation.ask("getKVOIndex=04030201"), "kvoindex=2");
}

TEST(ByteOrder, a_rebooting_station_is_not_searched_in_the_other_order)
{
    Simulation simulation;
    simulation.plant().findStation(0x01020304)->panel.rebootsUntil = simulation.plant().clock.now() + std::chrono::hours(1);
    EXPECT_EQ(simulation.ask("getKVOIndex=01020304"), "failed");
    EXPECT_EQ(simulation.ask("getKVOIndex=04030201"), "kvoindex=2");
}

// The agent uses the address of the description from then on.
TEST(ByteOrder, a_description_contains_the_address_in_the_requested_order)
{
    Simulation simulation;
    const std::string plain = simulation.ask("getExDescByIP 0A000005");
    const std::string turned = simulation.ask("getExDescByIP 0500000A");
    EXPECT_THAT(plain, HasSubstr("0A000005"));
    EXPECT_THAT(turned, HasSubstr("0500000A"));
    EXPECT_THAT(turned, Not(HasSubstr("0A000005")));
    EXPECT_EQ(plain.size(), turned.size());
    EXPECT_EQ(simulation.ask("getExDescByName Lathe 1"), plain);
    EXPECT_EQ(simulation.ask("getExDescByIP 0500000B"), "not found");
}

TEST(ByteOrder, a_lock_can_be_set_by_an_address_in_either_order)
{
    for (const char *host : {"10.0.0.5", "5.0.0.10"}) {
        Simulation simulation;
        EXPECT_TRUE(applyUsbLock(simulation.plant(), "setUsbLock=\"3:4\" " + std::string(host) + '\n')) << host;
        EXPECT_EQ(simulation.ask("getUsbLock=0A000005"), "usb-lock=3:4") << host;
        EXPECT_EQ(simulation.ask("getUsbLock=0A000006"), Simulation().ask("getUsbLock=0A000006")) << host;
    }
}

}  // namespace
