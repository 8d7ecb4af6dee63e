// Scenarios against the simulated service: values that one command sets are shown by others, and missing or refused values are
// reported.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/running_service.h"

#include <ostream>

namespace kvoctl_test {

namespace {

using kvosim_test::RunningService;

constexpr std::string_view kPlant = R"toml(
[service]
focus_hold_ms = 60000

[[client]]
name = "HMI"
value = 1

[[client]]
name = "Logger"
value = 18

[[station]]
address = "10.0.0.5"
name = "Lathe 1"
attr1 = 1
mcp_address = 5
dck_address = 21
kvo_index = 1
priority = "1:3"
startup_active = 2
startup_prio = 4
channel_on_focus = 8
screen_on_focus = "Machine"
t2m2n = "T1 M1"
usb_connectors = "X60:keyboard"
oem_layout = "OP15"
softkey_type = 0x10
keyboard_caps = 0x3F
hardware_caps = 0x0B
dpi = 96
panel_rotation = 1

[[station]]
address = "10.0.0.6"
name = "Lathe 2"
attr1 = 1
mcp_address = 40
backlight = 0
backlight_modes = 1
marovanti = 0
touch = 0
viewer_busy = 1
cks_fixed = 1

[[station]]
address = "10.0.0.7"
name = "Terminal"
attr1 = 1
mcp_address = 40
handheld = 1
)toml";

struct Step {
    Arguments arguments;
    int status;
    std::string out;
    std::string err{};  ///< without the prefix that names the command, and without the line feed
};

struct Scenario {
    std::string name;
    std::vector<Step> steps;
};

std::ostream &operator<<(std::ostream &out, const Scenario &row) { return out << row.name; }

class SimulatedStations : public testing::TestWithParam<Scenario> {};

TEST_P(SimulatedStations, show_values_that_were_set_and_report_missing_ones)
{
    const RunningService service(kPlant);
    for (const Step &step : GetParam().steps) {
        std::string words;
        for (const std::string &argument : step.arguments) {
            words += argument + " ";
        }
        const Ended ended = kvoctl(step.arguments);
        EXPECT_EQ(ended.status, step.status) << words;
        EXPECT_EQ(ended.out, step.out) << words;
        if (step.err.empty()) {
            EXPECT_EQ(ended.err, "") << words;
        } else {
            EXPECT_THAT(ended.err, testing::EndsWith(": " + step.err + "\n")) << words;
        }
    }
}

const std::string kRefused = "the service refused or sent an unknown reply (result -1)";

const Scenario kScenarios[] = {
    {"viewer",
     {{{"viewer", "active", "Lathe 1"}, 1, "no\n"},
      {{"viewer", "server", "Lathe 1"}, 1, "", "no server is shown (result 0)"},
      {{"viewer", "start", "Lathe 1", "nc1", "2", "full"}, 0, ""},
      {{"viewer", "active", "10.0.0.5"}, 0, "yes\n"},
      {{"viewer", "server", "0A000005"}, 0, "server   nc1\ndisplay  2\n"},
      {{"viewer", "start", "Lathe 1", "nc2", "1", "full"}, 1, "", "busy; try again (result 0)"},
      {{"viewer", "stop", "Lathe 1"}, 0, ""},
      {{"viewer", "stop", "Lathe 1"}, 1, "", "the station's viewer is not running (result 0)"},
      {{"viewer", "start-configured", "Lathe 1", "nc3", "7"}, 0, ""},
      {{"viewer", "server", "Lathe 1"}, 0, "server   nc3\ndisplay  7\n"},
      {{"viewer", "stop", "Lathe 1", "--preempt"}, 0, ""},
      {{"viewer", "stop", "Lathe 1", "--no-clean"}, 1, "", "the station's viewer is not running (result 0)"},
      {{"viewer", "start-configured", "Lathe 2", "nc3", "7"}, 1, "", "busy; try again (result 0)"},
      {{"viewer", "status-line", "Lathe 1", "1", "2", "Tool, 7"}, 0, ""},
      {{"viewer", "status-line", "10.0.0.9", "1", "2", "x"}, 4, "", kRefused},
      {{"viewer", "reboot", "Lathe 1"}, 0, ""}}},
    {"focus",
     {{{"viewer", "activate-me", "Lathe 1"}, 0, ""},
      {{"viewer", "activate-me", "Lathe 2"}, 1, "", "busy; try again (result 0)"},
      {{"focus", "priority", "Lathe 1"}, 0, "suspend_lock      1\nsuspend_priority  3\n"},
      {{"focus", "priority", "Lathe 2"}, 0, "suspend_lock      0\nsuspend_priority  1\n"},
      {{"focus", "startup", "Lathe 1"}, 0, "startup_active    2\nstartup_priority  4\n"},
      {{"focus", "channel", "Lathe 1"}, 0, "8\n"},
      {{"focus", "screen", "Lathe 1"}, 0, "Machine\n"},
      {{"focus", "screen", "Lathe 2"}, 0, "\n"},
      {{"focus", "m2n", "Lathe 1"}, 0, "T1 M1\n"}}},
    {"channel_information",
     {{{"channel-info", "get", "Lathe 1"}, 1, "", "the station has no channel information (result 0)"},
      {{"channel-info", "set", "Lathe 1", std::string(230, 'i')}, 0, ""},
      {{"channel-info", "get", "Lathe 1"}, 0, std::string(230, 'i') + "\n"},
      {{"channel-info", "delete", "Lathe 1"}, 0, ""},
      {{"channel-info", "get", "Lathe 1"}, 1, "", "the station has no channel information (result 0)"}}},
    {"panel",
     {{{"panel", "brightness", "Lathe 1", "30"}, 0, ""},
      {{"panel", "brightness-v2", "Lathe 1", "0"}, 0, "30\n"},
      {{"panel", "brightness-v2", "Lathe 1", "1", "40"}, 0, ""},
      {{"panel", "brightness-v2", "Lathe 1", "1"}, 0, "40\n"},
      {{"panel", "brightness-v2", "Lathe 2", "1"}, 1, "", "the station does not know this mode (result 0)"},
      {{"panel", "brightness-v2", "Lathe 2", "1", "4"}, 4, "", "the station does not know this mode (result -5)"},
      {{"panel", "brightness-v2", "Lathe 2", "0", "4"}, 4, "", "the station's backlight is not active (result -6)"},
      {{"panel", "numlock", "Lathe 1"}, 0, "enabled\n"},
      {{"panel", "numlock", "Lathe 1", "disabled"}, 0, ""},
      {{"panel", "numlock", "Lathe 1"}, 0, "disabled\n"},
      {{"panel", "capslock", "Lathe 1", "disabled"}, 0, ""},
      {{"panel", "capslock", "Lathe 1"}, 0, "disabled\n"},
      {{"panel", "sw-capslock", "Lathe 1", "-1"}, 0, ""},
      {{"panel", "sw-capslock", "Lathe 1"}, 0, "-1\n"},
      {{"panel", "type", "Lathe 1"}, 0, "0\n"},
      {{"panel", "marovanti", "Lathe 1"}, 0, "yes\n"},
      {{"panel", "marovanti", "Lathe 2"}, 1, "no\n"},
      {{"panel", "marovanti", "10.0.0.9"}, 4, "", "the panel was not found, or the service failed (result -4)"}}},
    {"handheld_terminal",
     {{{"panel", "rv4-mode", "Terminal"}, 0, "auto\n"},
      {{"panel", "rv4-mode", "Terminal", "individual"}, 0, ""},
      {{"panel", "rv4-mode", "Terminal"}, 0, "individual\n"},
      {{"panel", "rv4-mode", "Lathe 1"}, 1, "", "the station has no handheld terminal of this type (result 0)"}}},
    {"addresses",
     {{{"address", "mcp", "Lathe 1"}, 0, "5\n"},
      {{"address", "mcp", "Lathe 1", "12"}, 0, ""},
      {{"address", "mcp", "Lathe 1", "256"}, 4, "", kRefused},
      {{"address", "mcp", "Lathe 1"}, 0, "12\n"},
      {{"address", "find", "--mcp", "12"}, 0, "10.0.0.5\n"},
      {{"address", "find", "--mcp", "5"}, 1, "", "no station has the MCP address 5 (result 0)"},
      {{"address", "find", "--mcp", "40"}, 4, "", "several stations have the MCP address 40 (result -3)"},
      {{"address", "dck", "Lathe 1"}, 0, "21\n"},
      {{"address", "find", "--dck", "21"}, 0, "10.0.0.5\n"},
      {{"address", "dck-enable", "Lathe 1"}, 0, "off\n"},
      {{"address", "dck-enable", "Lathe 1", "on"}, 0, ""},
      {{"address", "dck-enable", "Lathe 1"}, 0, "on\n"},
      {{"address", "kvo-index", "Lathe 1", "9"}, 0, ""},
      {{"address", "find", "--kvo-index", "9"}, 0, "10.0.0.5\n"},
      {{"address", "cks-index", "Lathe 1", "255"}, 0, ""},
      {{"address", "cks-index", "Lathe 1"}, 0, "255\n"},
      {{"address", "cks-index", "Lathe 2", "1"}, 4, "", kRefused},
      {{"address", "simulate-key", "Lathe 1", "12", "1"}, 0, ""},
      {{"address", "enable-key", "Lathe 1", "12", "1"}, 0, ""},
      {{"address", "enable-key", "10.0.0.9", "12", "1"}, 4, "", kRefused}}},
    {"input_and_touch",
     {{{"input", "devices", "Lathe 1", "--v2"},
       0,
       "keyboards          1\nmice               1\ntouch              1\nvirtual_keyboards  0\n"},
      {{"input", "dpi", "Lathe 1"}, 0, "96\n"},
      {{"input", "dpi", "Lathe 2"}, 4, "", kRefused},
      {{"touch", "calibration", "Lathe 1", "40", "1"}, 0, ""},
      {{"touch", "calibration", "Lathe 1"}, 0, "press_threshold  40\nnonlinear        1\n"},
      {{"touch", "invalidate", "Lathe 1"}, 0, ""},
      {{"touch", "calibration", "Lathe 1"}, 0, "press_threshold  -1\nnonlinear        -1\n"},
      {{"touch", "calibration", "Lathe 2"}, 1, "", "the station has no touch screen (result 0)"},
      {{"touch", "calibration", "Lathe 2", "1", "1"}, 1, "", "the station has no touch screen (result 0)"},
      {{"touch", "invalidate", "Lathe 2"}, 1, "", "the station has no touch screen (result 0)"}}},
    {"usb_connectors",
     {{{"usb", "connectors"}, 0, "10.0.0.5 X60:keyboard\n"},
      {{"usb", "connectors", "Lathe 1"}, 0, "X60:keyboard\n"},
      {{"usb", "connectors", "Lathe 2"}, 1, "", "the list of connectors is empty (result 0)"},
      {{"usb", "connectors", "10.0.0.9"}, 4, "", "the service refused (result -4)"}}},
    {"metrics",
     {{{"metrics", "Lathe 1"},
       0,
       "oem_layout     OP15\nsoftkey_type   16\nkeyboard_caps  0x0000003F\ndpi            96\n"
       "hardware_caps  0x0000000B\nrotation       1\n"},
      {{"metrics", "Lathe 1", "oem-layout"}, 0, "OP15\n"},
      {{"metrics", "Lathe 2", "rotation"}, 4, "", "the station does not report this metric (result -4)"},
      {{"metrics", "Lathe 2"},
       0,
       "oem_layout     -\nsoftkey_type   -\nkeyboard_caps  -\ndpi            -\nhardware_caps  -\n"
       "rotation       -\n"}}},
    {"service",
     {{{"clients"}, 0, "VALUE  NAME\n    1  HMI\n   18  Logger\n2 clients\n"},
      {{"registry", "lock"}, 0, ""},
      {{"registry", "lock"}, 1, "", "the registry is already locked; try again (result 0)"},
      {{"stations", "--current", "--lock-timeout", "0"}, 4, "", "the registry stayed locked for 0 s (result -4)"},
      {{"registry", "unlock"}, 0, ""},
      {{"registry", "unlock"}, 4, "", kRefused}}},
};

INSTANTIATE_TEST_SUITE_P(Scenarios, SimulatedStations, testing::ValuesIn(kScenarios),
                         [](const auto &row) { return row.param.name; });

TEST(SimulatedStation, is_shown_on_one_page)
{
    const RunningService service(kPlant);
    const Ended ended = kvoctl({"panel", "show", "Lathe 2", "--json"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    const Json page = ended.document();
    EXPECT_EQ(page["station"]["address"], "10.0.0.6");
    EXPECT_EQ(page["address"]["mcp"], 40);
    EXPECT_EQ(page["panel"]["marovanti"], false);
    EXPECT_EQ(page["touch"]["nonlinear"], nullptr);
    EXPECT_THAT(page["unavailable"],
                testing::Contains(Json::parse(
                    R"({"key": "panel.brightness_v2_mode_1", "code": 0, "meaning": "the station does not know this mode",
                        "failed": false})")));
}

TEST(SimulatedStation, of_the_built_in_plant_has_a_page_without_failures)
{
    const RunningService service(kvosim::kBuiltInPlant);
    for (const char *station : {"10.0.0.5", "10.0.0.6", "10.0.0.7"}) {
        const Ended ended = kvoctl({"panel", "show", station});
        EXPECT_EQ(ended.status, 0) << station;
        EXPECT_EQ(ended.err, "") << station;
    }
}

TEST(SimulatedStation, accepts_the_usb_lock_that_is_sent_to_it)
{
    const RunningService service(std::string("[service]\nusb_lock_address = \"127.0.0.1:5851\"\n") +
                                 std::string(kPlant.substr(kPlant.find("[[station]]"))));
    const RunConditions loopback{.environment = {"LC_ALL=C.UTF-8", "KVO_PLATFORM_INTERFACE=lo"}};
    const auto lockOf = [](const char *station) { return kvoctl({"usb", "lock", "get", station, "--json"}).document().dump(); };
    const auto becomes = [&lockOf](const char *station, const std::string &lock) {
        // Datagrams have no reply: the service may handle it a moment later.
        for (int attempt = 0; attempt < 100 && lockOf(station) != lock; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return lockOf(station);
    };
    EXPECT_EQ(kvoctl({"usb", "lock", "set", "1", "7", "Lathe 2", "Terminal"}, loopback).status, 0);
    EXPECT_EQ(becomes("Lathe 2", R"({"lock_first":1,"lock_second":7})"), R"({"lock_first":1,"lock_second":7})");
    EXPECT_EQ(becomes("Terminal", R"({"lock_first":1,"lock_second":7})"), R"({"lock_first":1,"lock_second":7})");
    EXPECT_EQ(lockOf("Lathe 1"), R"({"lock_first":0,"lock_second":0})");
    EXPECT_EQ(kvoctl({"usb", "lock", "set", "2", "3", "--all"}, loopback).status, 0);
    EXPECT_EQ(becomes("Lathe 1", R"({"lock_first":2,"lock_second":3})"), R"({"lock_first":2,"lock_second":3})");
}

}  // namespace

}  // namespace kvoctl_test
