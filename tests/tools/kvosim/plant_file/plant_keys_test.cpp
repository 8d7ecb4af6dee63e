// The keys of plant files besides a station's name and address: ranges, forms and defaults, and one row for each mistake.
#include "kvosim/plant_file/plant_file.h"

#include "kvosim/plant/station_keys.h"
#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <vector>

namespace {

using kvosim::parsePlant;
using kvosim::PlantFileError;
using kvosim::Value;
using testing::HasSubstr;
using testing::ThrowsMessage;

const std::string kMinimal = "[[station]]\naddress = \"10.0.0.5\"\nname = \"A\"\n";

std::string written(const Value &value)
{
    if (const auto *number = std::get_if<int64_t>(&value)) {
        return std::to_string(*number);
    }
    return "'" + std::get<std::string>(value) + "'";
}

Value readBack(const std::string &key, const std::string &value)
{
    kvosim::Plant plant = parsePlant(kMinimal + key + " = " + value + '\n', "p");
    return read(kvosim::stationKey(key), *plant.findStation(0x0A000005));
}

// ---- Ranges and forms ----

struct Range : kvosim_test::NamedRow {
    std::vector<std::string> taken;
    std::vector<std::string> refused;
};

class StationKeyRange : public testing::TestWithParam<Range> {};

TEST_P(StationKeyRange, matches_the_key)
{
    for (const std::string &value : GetParam().taken) {
        EXPECT_EQ(written(readBack(GetParam().name, value)), value);
    }
    for (const std::string &value : GetParam().refused) {
        EXPECT_THAT([&] { readBack(GetParam().name, value); },
                    ThrowsMessage<PlantFileError>(HasSubstr(std::string("p:4: station.") + GetParam().name + ": ")))
            << value;
    }
}

const std::vector<std::string> kNoSwitch = {"-1", "2", "true", "'1'"};
const std::vector<std::string> kNoLine = {"\"a\\nb\"", "\"\\u007F\"", "'" + std::string(256, 'x') + "'", "1"};
const std::vector<std::string> kPairs = {"'0:0'", "'4294967295:4294967295'"};
const std::vector<std::string> kNoDevices = {"-1", "100", "'many'"};
const std::vector<std::string> kNoBits = {"-1", "4294967295", "'none '"};

const std::vector<Range> kRanges = {
    {"attr1", {"0", "4294967295"}, {"-1", "4294967296", "'1'"}},
    {"attr2", {"0", "4294967295"}, {"-1", "4294967296"}},
    {"attr3", {"0", "4294967295"}, {"-1", "4294967296"}},
    {"brightness", {"0", "1"}, kNoSwitch},
    {"backlight", {"0", "1"}, kNoSwitch},
    {"backlight_modes", {"0", "1", "2"}, {"-1", "3"}},
    {"backlight_brightness", {"0", "100"}, {"-1", "101"}},
    {"backlight_brightness_mode1", {"0", "100"}, {"-1", "101"}},
    {"disable_num_lock", {"0", "1"}, kNoSwitch},
    {"disable_caps_lock", {"0", "1"}, kNoSwitch},
    {"sw_caps_lock", {"-1", "0", "1"}, {"-2", "2"}},
    {"station_type", {"-1", "0", "1"}, {"-2", "2"}},
    {"handheld", {"0", "1"}, kNoSwitch},
    {"rv4_mode", {"0", "1"}, kNoSwitch},
    {"marovanti", {"0", "1"}, kNoSwitch},
    {"mcp_address", {"0", "255"}, {"-1", "256"}},
    {"dck_address", {"0", "255"}, {"-1", "256"}},
    {"kvo_index", {"0", "255"}, {"-1", "256"}},
    {"dck_enable", {"0", "1"}, kNoSwitch},
    {"cks_index", {"0", "4294967295"}, {"-1", "4294967296"}},
    {"cks_fixed", {"0", "1"}, kNoSwitch},
    {"simulated_mcp_key", {"''", "'12:1'"}, {"'12'", "'12:'", "':1'", "'1:2:3'", "'-1:1'"}},
    {"enabled_mcp_key", {"''", "'12:1'"}, {"'12'"}},
    {"viewer", {"''", "'nc1:3'", "'nc1:'", "'nc1:a:b'"}, {"'nc1'", "':3'", "\"nc1:\\n\""}},
    {"viewer_busy", {"0", "1"}, kNoSwitch},
    {"status_line", {"''", "'" + std::string(255, 'x') + "'"}, kNoLine},
    {"status_value1", {"0", "4294967295"}, {"-1", "4294967296"}},
    {"status_value2", {"0", "4294967295"}, {"-1", "4294967296"}},
    {"reboot_time_ms", {"0", "3600000"}, {"-1", "3600001"}},
    {"focus_busy", {"0", "1"}, kNoSwitch},
    {"priority",
     {"''", "':'", "'0:'", "'1:'", "':1'", "':10'", "'0:1'", "'1:10'"},
     {"'1'", "'2:'", "'01:'", "':0'", "':11'", "':01'", "'1:x'", "'::'", "'1:5 '", "1"}},
    {"startup_active", {"0", "1", "2"}, {"-1", "3"}},
    {"startup_prio", {"0", "4294967295"}, {"-1"}},
    {"channel_on_focus", {"1", "8"}, {"0", "9"}},
    {"screen_on_focus", {"''", "'Main 1'"}, kNoLine},
    {"t2m2n", {"''", "'T1 M2'"}, {"'failed'", "\"a\\nb\""}},
    {"channel_info", {"''", "'" + std::string(230, 'x') + "'"}, {"'" + std::string(231, 'x') + "'", "\"a\\nb\""}},
    {"kbd", {"0", "99", "'none'"}, kNoDevices},
    {"mouse", {"0", "99", "'none'"}, kNoDevices},
    {"touch", {"0", "99", "'none'"}, kNoDevices},
    {"multitouch", {"0", "99", "'none'"}, kNoDevices},
    {"maxcontacts", {"0", "99", "'none'"}, kNoDevices},
    {"vkbd", {"0", "99", "'none'"}, kNoDevices},
    {"press_thresh", {"-1", "2147483647"}, {"-2", "2147483648"}},
    {"nonlinear", {"-1", "1"}, {"-2", "2"}},
    {"usb_lock", kPairs, {"''", "'1'", "'-1:0'", "'4294967296:0'", "'1:2 '"}},
    {"usb_connectors",
     {"''", "'X60:free'", "'X60:key_board-1.0 X61:free'"},
     {"'X60'", "'X60:'", "':free'", "'X60:a:b'", "'X60:free '", "' X60:free'", "'X60:free  X61:free'", "'X60:free;X61:free'"}},
    {"usb_scanning", {"0", "1"}, kNoSwitch},
    {"oem_layout", {"''", "'OP15BLK'"}, {"'OP15BLKX'", "'none'", "\"a\\nb\""}},
    {"softkey_type", {"0", "4294967294", "'none'"}, {"1", "4294967295", "-2"}},
    {"keyboard_caps", {"0", "4294967294", "'none'"}, kNoBits},
    {"dpi", {"0", "2147483647", "'none'"}, {"-1", "2147483648", "''"}},
    {"hardware_caps", {"0", "4294967294", "'none'"}, kNoBits},
    {"panel_rotation", {"1", "4", "'none'"}, {"0", "5"}},
};

INSTANTIATE_TEST_SUITE_P(Table, StationKeyRange, testing::ValuesIn(kRanges), kvosim_test::kNameOfRow);

TEST(StationKeys, are_all_tested_above)
{
    std::set<std::string_view> rows;
    for (const Range &row : kRanges) {
        rows.insert(row.name);
    }
    for (const kvosim::StationKey &key : kvosim::stationKeys()) {
        EXPECT_EQ(rows.count(key.name), 1U) << key.name;
    }
    EXPECT_EQ(rows.size(), kvosim::stationKeys().size());
}

TEST(StationKeys, each_change_a_different_value)
{
    for (const kvosim::StationKey &changed : kvosim::stationKeys()) {
        ConnectionEntry entry{};
        kvosim::Panel panel;
        const kvosim::Station station{entry, panel};
        std::vector<Value> before;
        for (const kvosim::StationKey &key : kvosim::stationKeys()) {
            before.push_back(read(key, station));
        }
        const auto &taken =
            std::find_if(kRanges.begin(), kRanges.end(), [&](const Range &row) { return row.name == changed.name; })->taken;
        for (const std::string &value : taken) {
            const std::string bare = value.starts_with('\'') ? value.substr(1, value.size() - 2) : value;
            ASSERT_EQ(assign(changed, station, parseTyped(changed, bare)), "") << changed.name;
            for (std::size_t i = 0; i < before.size(); ++i) {
                const kvosim::StationKey &key = kvosim::stationKeys()[i];
                if (&key != &changed) {
                    EXPECT_EQ(read(key, station), before[i]) << changed.name << " changes " << key.name;
                }
            }
        }
    }
}

TEST(StationKeys, accept_hexadecimal_numbers)
{
    const kvosim::StationKey &key = kvosim::stationKey("hardware_caps");
    EXPECT_EQ(kvosim::parseTyped(key, "0x1F"), Value(int64_t{31}));
    EXPECT_EQ(kvosim::parseTyped(key, "31"), Value(int64_t{31}));
    EXPECT_EQ(kvosim::parseTyped(key, "1F"), Value(std::string("1F")));
    EXPECT_EQ(kvosim::parseTyped(key, "none"), Value(std::string("none")));
    EXPECT_THROW(kvosim::stationKey("colour"), std::invalid_argument);
}

// ---- The service, its clients and faults ----

TEST(PlantKeys, service_clients_and_faults_are_read)
{
    const kvosim::Plant plant =
        parsePlant("[service]\nfocus_hold_ms = 250\nusb_lock_address = \"0.0.0.0\"\n"
                   "[[client]]\nname = \"HMI\"\nvalue = 0xFFFFFFFF\n[[client]]\nname = \"HMI\"\n"
                   "[[faults]]\nkind = \"split\"\n"
                   "[[faults]]\ncommand = \"reboot\"\nkind = \"delay\"\nafter = 1\ntimes = 2\ndelay_ms = 0\n",
                   "p");
    EXPECT_EQ(plant.service.focusHold.count(), 250);
    EXPECT_EQ(plant.service.usbLockAddress, "0.0.0.0");
    ASSERT_EQ(plant.clients.size(), 2U) << "clients may have the same name";
    EXPECT_STREQ(plant.clients[0].name, "HMI");
    EXPECT_EQ(plant.clients[0].value, 0xFFFFFFFFU);
    EXPECT_EQ(plant.clients[1].value, 0U);
    ASSERT_EQ(plant.faults.list().size(), 2U);
    const kvosim::FaultText &first = plant.faults.list()[0].text();
    EXPECT_EQ(first.command, "*");
    EXPECT_EQ(first.times, 0U);
    EXPECT_EQ(first.delay, 5U);
    const kvosim::FaultText &second = plant.faults.list()[1].text();
    EXPECT_EQ(second.command, "reboot");
    EXPECT_EQ(second.after, 1U);
    EXPECT_EQ(second.times, 2U);
    EXPECT_EQ(second.delay, 0U);
}

// ---- USB devices ----

TEST(PlantKeys, usb_devices_are_plugged_in)
{
    kvosim::Plant plant = parsePlant(kMinimal + R"toml(
usb_lock = "1:0"
[[station.usb_device]]
[[station.usb_device]]
ident2 = "Portal mill"
text4 = ""
no_text5 = 1
number2 = 0xFFFFFFFF
bytes = "0A"
report = 1
[[station]]
address = "10.0.0.6"
name = "B"
[[station.usb_device]]
ident3 = "3-1"
)toml",
                                     "p");
    const auto &devices = plant.findPanel(0x0A000005)->usbDevices;
    ASSERT_EQ(devices.size(), 2U) << "a lock applies only to new devices";
    EXPECT_EQ(ident2Of(devices[0]), "usb1");
    EXPECT_EQ(ident3Of(devices[0]), "1-1.1");
    EXPECT_EQ(ident2Of(devices[1]), "Portal mill");
    EXPECT_EQ(ident3Of(devices[1]), "1-1.2");
    EXPECT_EQ(devices[1].source.text4[0], '\0');
    EXPECT_EQ(devices[1].source.noText5, 1);
    EXPECT_EQ(devices[1].source.number2, 0xFFFFFFFFU);
    EXPECT_EQ(devices[1].source.bytes[0], 0x0A);
    EXPECT_EQ(devices[1].context.flags, 1);
    ASSERT_EQ(plant.findPanel(0x0A000006)->usbDevices.size(), 1U);
    EXPECT_EQ(ident3Of(plant.findPanel(0x0A000006)->usbDevices[0]), "3-1");
}

struct Mistake : kvosim_test::NamedRow {
    std::string text;
    std::string message;
};

class PlantKeyMistake : public testing::TestWithParam<Mistake> {};

TEST_P(PlantKeyMistake, is_reported)
{
    EXPECT_THAT([&] { parsePlant(GetParam().text, "plant.toml"); },
                ThrowsMessage<PlantFileError>(testing::StartsWith(GetParam().message)));
}

const std::vector<Mistake> kMistakes = {
    {"range", kMinimal + "dpi = -1\n", "plant.toml:4: station.dpi: -1 is out of range; write 0 to 2147483647, or \"none\""},
    {"bits", kMinimal + "hardware_caps = 0xFFFFFFFF\n",
     "plant.toml:4: station.hardware_caps: 4294967295 is out of range; write 0 to 0xFFFFFFFE, or \"none\""},
    {"odd", kMinimal + "softkey_type = 3\n",
     "plant.toml:4: station.softkey_type: 3 is odd; write an even number from 0 to 0xFFFFFFFE, or \"none\""},
    {"none_for_a_required_number", kMinimal + "mcp_address = \"none\"\n",
     "plant.toml:4: station.mcp_address: is not a whole number; write 0 to 255"},
    {"form", kMinimal + "viewer = \"nc1\"\n", "plant.toml:4: station.viewer: has the wrong form; write \"SERVER:DISPLAY\""},
    {"text", kMinimal + "t2m2n = 5\n", "plant.toml:4: station.t2m2n: is not a text; write it in quotes"},
    {"focus_hold", "[service]\nfocus_hold_ms = 3600001\n",
     "plant.toml:2: service.focus_hold_ms: 3600001 is out of range; write 0 to 3600000"},
    {"remote_sessions", "[service]\nremote_sessions = \"3,10\"\n",
     "plant.toml:2: service.remote_sessions: \"3,10\" is not a list of sessions; write session numbers from 0 to 9"},
    {"remote_address", "[service]\nremote_address = \"::1\"\n",
     "plant.toml:2: service.remote_address: \"::1\" is not an IPv4 address; write one such as \"127.0.0.1\""},
    {"usb_lock_address", "[service]\nusb_lock_address = \"localhost\"\n",
     "plant.toml:2: service.usb_lock_address: \"localhost\" is not an address; write ADDRESS or ADDRESS:PORT"},
    {"client_key", "[[client]]\nname = \"A\"\nflags = 1\n", "plant.toml:3: client.flags: unknown key; known keys: name, value"},
    {"client_name", "[[client]]\nvalue = 1\n", "plant.toml:1: client.name: is missing"},
    {"client_name_lines", "[[client]]\nname = \"a\\nb\"\n", "plant.toml:2: client.name: contains a control character"},
    {"client_value", "[[client]]\nname = \"A\"\nvalue = -1\n", "plant.toml:3: client.value: -1 is out of range"},
    {"fault_key", "[[faults]]\nkind = \"close\"\ncount = 1\n",
     "plant.toml:3: faults.count: unknown key; known keys: command, kind, after, times, delay_ms"},
    {"fault_kind_missing", "[[faults]]\ntimes = 1\n", "plant.toml:1: faults.kind: is missing"},
    {"fault_kind", "[[faults]]\nkind = \"late\"\n",
     "plant.toml:2: faults.kind: \"late\" is not a fault; write delay, close, garbage, failed, split or silent"},
    {"fault_command", "[[faults]]\nkind = \"close\"\ncommand = \"getVersions\"\n",
     "plant.toml:3: faults.command: \"getVersions\" is not a command; write a keyword such as getVersion, or \"*\""},
    {"fault_times", "[[faults]]\nkind = \"close\"\ntimes = -1\n", "plant.toml:3: faults.times: -1 is out of range"},
    {"fault_delay", "[[faults]]\nkind = \"delay\"\ndelay_ms = 60001\n",
     "plant.toml:3: faults.delay_ms: 60001 is out of range; write 0 to 60000"},
    {"fault_delay_unwanted", "[[faults]]\nkind = \"close\"\ndelay_ms = 1\n",
     "plant.toml:3: faults.delay_ms: applies only to the faults delay and split; remove it"},
    {"fault_delay_text", "[[faults]]\nkind = \"delay\"\ndelay_ms = \"1\"\n",
     "plant.toml:3: faults.delay_ms: is not a whole number"},
    {"usb_device_is_not_a_list", kMinimal + "usb_device = 1\n",
     "plant.toml:4: station.usb_device: is not a list of tables; write [[station.usb_device]] before the keys of each table"},
    {"usb_device_key", kMinimal + "[[station.usb_device]]\nident = \"x\"\n",
     "plant.toml:5: station.usb_device.ident: unknown key; known keys: ident2, ident3, text4, text5, no_text5,"},
    {"usb_device_text", kMinimal + "[[station.usb_device]]\ntext5 = \"12345678901\"\n",
     "plant.toml:5: station.usb_device.text5: has 11 bytes; write at most 10"},
    {"usb_device_number", kMinimal + "[[station.usb_device]]\nid1 = -1\n",
     "plant.toml:5: station.usb_device.id1: -1 is out of range; write 0 to 65535"},
    {"usb_device_switch", kMinimal + "[[station.usb_device]]\nreport = true\n",
     "plant.toml:5: station.usb_device.report: is not a whole number; write 0 to 1"},
    {"usb_device_twice", kMinimal + "[[station.usb_device]]\n[[station.usb_device]]\nident2 = \"usb1\"\nident3 = \"1-1.1\"\n",
     "plant.toml:6: station.usb_device.ident2: \"usb1\" with ident3 \"1-1.1\" is already used by another device of the "
     "station"}};

INSTANTIATE_TEST_SUITE_P(Table, PlantKeyMistake, testing::ValuesIn(kMistakes), kvosim_test::kNameOfRow);

// ---- The example ----

TEST(ExamplePlant, has_stations_of_every_kind)
{
    kvosim::Plant plant = kvosim::loadPlant(EXAMPLE_PLANT);
    const auto panels = plant.panels();
    const auto count = [&](auto condition) { return std::count_if(panels.begin(), panels.end(), condition); };
    EXPECT_GE(count([](const auto &panel) { return panel.handheld == 1; }), 1);
    EXPECT_GE(count([](const auto &panel) { return !panel.hasTouchScreen(); }), 1);
    EXPECT_GE(count([](const auto &panel) { return panel.marovanti == 0; }), 1);
    EXPECT_GE(count([](const auto &panel) { return !panel.viewer.empty(); }), 1);
    EXPECT_GE(count([](const auto &panel) { return !panel.usbConnectors.empty(); }), 1);
    EXPECT_GE(count([](const auto &panel) { return panel.rebootTime > 0; }), 1);
    EXPECT_FALSE(plant.clients.empty());
    EXPECT_TRUE(plant.faults.list().empty()) << "the example has no faults";
    std::multiset<int64_t> addresses;
    for (const kvosim::Panel &panel : panels) {
        addresses.insert(panel.mcpAddress);
    }
    EXPECT_TRUE(std::any_of(addresses.begin(), addresses.end(),
                            [&](int64_t address) { return address != 0 && addresses.count(address) == 2; }));
    EXPECT_TRUE(std::any_of(addresses.begin(), addresses.end(),
                            [&](int64_t address) { return address != 0 && addresses.count(address) == 1; }));
}

}  // namespace
