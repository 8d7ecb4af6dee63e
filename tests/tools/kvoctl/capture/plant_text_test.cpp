// What a capture writes for each reply, without a service. Whatever the service replies, kvosim loads the file.
#include "kvoctl/capture/plant_text.h"
#include "kvosim/plant/station_keys.h"
#include "kvosim/plant_file/plant_file.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <set>

namespace {

using kvoctl::Answer;
using kvoctl::PlantText;
using kvoctl::Setting;
using kvoctl::StationRequest;
using testing::HasSubstr;

// ---- One reply ----

struct Row {
    const char *name;
    std::string command;               ///< the first one of a request
    std::vector<std::string> replies;  ///< one for each command
    std::string lines;
};

void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }

const std::string kRefused = "not read: the service refused it (failed)\n";

const Row kRows[] = {
    {"number", "getMCPAddress=", {"mcpaddr=255"}, "mcp_address = 255\n"},
    {"number_below_zero", "getStationType=", {"stationtype -1"}, "station_type = -1\n"},
    {"number_with_leading_zeros", "getMCPAddress=", {"mcpaddr=007"}, "mcp_address = 7\n"},
    {"number_that_is_too_large",
     "getMCPAddress=",
     {"mcpaddr=256"},
     "# mcp_address: not written: 256 is not a number from 0 to 255\n"},
    {"number_that_is_odd",
     "getSoftkeyType=",
     {"softkey-type=00000003"},
     "# softkey_type: not written: 3 is not an even number from 0 to 4294967294\n"},
    {"highest_number_of_32_bits", "getKVOCksIndex=", {"cksindex=4294967295"}, "cks_index = 4294967295\n"},
    {"number_of_more_than_64_bits",
     "getKVOCksIndex=",
     {"cksindex=99999999999999999999"},
     "# cks_index: not read: unknown reply \"cksindex=99999999999999999999\"\n"},
    {"text_after_a_number", "getMCPAddress=", {"mcpaddr=5a"}, "# mcp_address: not read: unknown reply \"mcpaddr=5a\"\n"},
    {"nothing_after_the_keyword", "getMCPAddress=", {"mcpaddr="}, "# mcp_address: not read: unknown reply \"mcpaddr=\"\n"},
    {"empty_reply", "getMCPAddress=", {""}, "# mcp_address: not read: unknown reply \"\"\n"},
    {"refusal", "getMCPAddress=", {"failed"}, "# mcp_address: " + kRefused},
    {"station_that_is_not_found",
     "isMarovantiPanel ",
     {"not found"},
     "# marovanti: not read: the service does not find the station (not found)\n"},
    {"long_unknown_reply",
     "getMCPAddress=",
     {std::string(100, 'x')},
     "# mcp_address: not read: unknown reply \"" + std::string(60, 'x') + "\"...\n"},
    {"unknown_reply_that_does_not_show",
     "getMCPAddress=",
     {"a\tb\xFF\xE2\x80\xAE\""},
     "# mcp_address: not read: unknown reply \"a\\tb\\xFF\\xE2\\x80\\xAE\\\"\"\n"},
    {"hexadecimal_number", "getKeyBoardCaps=", {"keyboard-caps=0000003f"}, "keyboard_caps = 0x0000003F\n"},
    {"hexadecimal_number_that_is_too_long",
     "getKeyBoardCaps=",
     {"keyboard-caps=00000003F"},
     "# keyboard_caps: not read: unknown reply \"keyboard-caps=00000003F\"\n"},
    {"no_hexadecimal_number", "getKeyBoardCaps=", {"none"}, "keyboard_caps = \"none\"\n"},
    {"no_resolution", "showDPI=", {"none"}, "dpi = \"none\"\n"},
    {"no_layout", "getPaneOemLayout=", {"none"}, "oem_layout = \"\"\n"},
    {"layout_of_seven_bytes", "getPaneOemLayout=", {"panel-oem-layout=1234567"}, "oem_layout = \"1234567\"\n"},
    {"layout_of_eight_bytes",
     "getPaneOemLayout=",
     {"panel-oem-layout=12345678"},
     "# oem_layout: not written: a plant file cannot contain \"12345678\" (8 bytes)\n"},
    {"viewer", "getCurServer=", {"vncserver=nc:1:2"}, "viewer = \"nc:1:2\"\n"},
    {"no_viewer", "getCurServer=", {"none"}, "viewer = \"\"\n"},
    {"viewer_without_a_server",
     "getCurServer=",
     {"vncserver=:1"},
     "# viewer: not written: a plant file cannot contain \":1\" (2 bytes)\n"},
    {"priority_in_each_form", "getKVOPriority=", {"Priority=:"}, "priority = \":\"\n"},
    {"priority_that_is_empty", "getKVOPriority=", {"Priority="}, "priority = \"\"\n"},
    {"priority_that_is_too_high",
     "getKVOPriority=",
     {"Priority=1:11"},
     "# priority: not written: a plant file cannot contain \"1:11\" (4 bytes)\n"},
    {"text_with_quotes_and_backslashes",
     "getChannelInfo=",
     {R"(channel-info="C:\mill" = "1")"},
     "channel_info = \"\\\"C:\\\\mill\\\" = \\\"1\\\"\"\n"},
    {"text_that_is_not_utf8",
     "getKVOScreenOnFocus=",
     {"screen-on-focus=Fr\xE4se"},
     "# screen_on_focus: not written: \"Fr\\xE4se\" is not valid UTF-8\n"},
    {"text_that_is_too_long",
     "getChannelInfo=",
     {"channel-info=" + std::string(231, 'i')},
     "# channel_info: not written: a plant file cannot contain \"" + std::string(60, 'i') + "\"... (231 bytes)\n"},
    {"text_without_a_keyword", "getKVOt2m2n=", {"T1 M1"}, "t2m2n = \"T1 M1\"\n"},
    {"empty_text_without_a_keyword", "getKVOt2m2n=", {""}, "t2m2n = \"\"\n"},
    {"refused_text_without_a_keyword", "getKVOt2m2n=", {"failed"}, "# t2m2n: " + kRefused},
    {"two_backlight_modes",
     "getBacklightBrightnessV2=0 ",
     {"backlight-brightness-v2=10", "backlight-brightness-v2=20"},
     "backlight_modes = 2\nbacklight_brightness = 10\nbacklight_brightness_mode1 = 20\n"},
    {"one_backlight_mode",
     "getBacklightBrightnessV2=0 ",
     {"backlight-brightness-v2=10", "bad request"},
     "backlight_modes = 1\nbacklight_brightness = 10\n"
     "# backlight_brightness_mode1: not read: the station has no such mode (bad request)\n"},
    {"no_backlight_mode",
     "getBacklightBrightnessV2=0 ",
     {"bad request", "bad request"},
     "backlight_modes = 0\n# backlight_brightness: not read: the station has no such mode (bad request)\n"
     "# backlight_brightness_mode1: not read: the station has no such mode (bad request)\n"},
    {"backlight_mode_that_is_refused",
     "getBacklightBrightnessV2=0 ",
     {"failed", "bad request"},
     "# backlight_modes: " + kRefused + "# backlight_brightness: " + kRefused +
         "# backlight_brightness_mode1: not read: the station has no such mode (bad request)\n"},
    {"second_backlight_mode_that_is_refused",
     "getBacklightBrightnessV2=0 ",
     {"backlight-brightness-v2=10", "failed"},
     "# backlight_modes: " + kRefused + "backlight_brightness = 10\n# backlight_brightness_mode1: " + kRefused},
    {"handheld_terminal", "getRV4Mode=", {"rv4mode=1"}, "handheld = 1\nrv4_mode = 1\n"},
    {"no_handheld_terminal",
     "getRV4Mode=",
     {"not_a_rv4"},
     "handheld = 0\n# rv4_mode: not read: the station has no handheld terminal (not_a_rv4)\n"},
    {"refused_handheld_terminal", "getRV4Mode=", {"failed"}, "# handheld: " + kRefused + "# rv4_mode: " + kRefused},
    {"input_devices",
     "showInputDevice=",
     {"kbd=1 mouse=2 touch=3 multitouch=4 maxcontacts=10 vkbd=99 pen=1"},
     "kbd = 1\nmouse = 2\ntouch = 3\nmultitouch = 4\nmaxcontacts = 10\nvkbd = 99\n"},
    {"no_input_device",
     "showInputDevice=",
     {""},
     "kbd = \"none\"\nmouse = \"none\"\ntouch = \"none\"\nmultitouch = \"none\"\nmaxcontacts = \"none\"\nvkbd = \"none\"\n"},
    {"input_devices_with_a_mistake",
     "showInputDevice=",
     {"kbd=100 mouse=x"},
     "# kbd: not written: 100 is not a number from 0 to 99\n# mouse: not read: unknown reply \"mouse=x\"\n"
     "touch = \"none\"\nmultitouch = \"none\"\nmaxcontacts = \"none\"\nvkbd = \"none\"\n"},
    {"calibration", "getCalibParam=", {"press_thresh=-1 nonlinear=1"}, "press_thresh = -1\nnonlinear = 1\n"},
    {"no_touch_screen",
     "getCalibParam=",
     {"no_touchscreen"},
     "# press_thresh: not read: the station has no touch screen (no_touchscreen)\n"
     "# nonlinear: not read: the station has no touch screen (no_touchscreen)\n"},
    {"half_a_calibration",
     "getCalibParam=",
     {"press_thresh=1"},
     "# press_thresh: not read: unknown reply \"press_thresh=1\"\n# nonlinear: not read: unknown reply \"press_thresh=1\"\n"},
    {"usb_lock", "getUsbLock=", {"usb-lock=007:4294967295"}, "usb_lock = \"007:4294967295\"\n"},
    {"usb_connectors",
     "getUsbConnectorListOne=",
     {"usb-connector-list-one=X60:keyboard X61:free"},
     "usb_connectors = \"X60:keyboard X61:free\"\nusb_scanning = 0\n"},
    {"no_usb_connector", "getUsbConnectorListOne=", {"usb-connector-list-one="}, "usb_connectors = \"\"\nusb_scanning = 0\n"},
    {"search_for_connectors",
     "getUsbConnectorListOne=",
     {"busy"},
     "# usb_connectors: not read: the service was searching for connectors (busy)\nusb_scanning = 1\n"},
    {"usb_connectors_in_another_form",
     "getUsbConnectorListOne=",
     {"usb-connector-list-one=X60 keyboard"},
     "# usb_connectors: not written: a plant file cannot contain \"X60 keyboard\" (12 bytes)\nusb_scanning = 0\n"},
};

/// By its first command.
const StationRequest &requestOf(const std::string &command)
{
    const auto requests = kvoctl::stationRequests();
    const auto found = std::ranges::find_if(requests, [&](const auto &each) { return each.commands.front() == command; });
    if (found == requests.end()) {
        throw std::runtime_error("no request " + command);
    }
    return *found;
}

std::string linesOf(const std::vector<Setting> &settings)
{
    std::string lines;
    for (const Setting &setting : settings) {
        const std::string key(setting.key);
        lines += setting.reason.empty() ? key + " = " + setting.value + '\n' : "# " + key + ": " + setting.reason + '\n';
    }
    return lines;
}

class Reply : public testing::TestWithParam<Row> {};

TEST_P(Reply, becomes_keys_or_comments)
{
    std::vector<Answer> answers;
    for (const std::string &reply : GetParam().replies) {
        answers.push_back({reply});
    }
    EXPECT_EQ(linesOf(requestOf(GetParam().command).read(answers)), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(Rows, Reply, testing::ValuesIn(kRows), [](const auto &row) { return row.param.name; });

// ---- All keys ----

/// The keys of all requests.
std::set<std::string> keysOfRequests()
{
    std::set<std::string> keys;
    for (const StationRequest &request : kvoctl::stationRequests()) {
        for (const Setting &setting : request.read(std::vector<Answer>(request.commands.size()))) {
            EXPECT_TRUE(keys.insert(std::string(setting.key)).second) << setting.key;
        }
    }
    return keys;
}

TEST(KeysOfAStation, are_read_unless_no_client_can_read_them)
{
    std::set<std::string> keys = keysOfRequests();
    for (const char *attribute : {"attr1", "attr2", "attr3"}) {
        keys.insert(attribute);  // from the list of stations
    }
    for (const char *unreadable :
         {"brightness", "backlight", "cks_fixed", "simulated_mcp_key", "enabled_mcp_key", "viewer_busy", "status_line",
          "status_value1", "status_value2", "reboot_time_ms", "focus_busy"}) {
        EXPECT_TRUE(keys.insert(unreadable).second) << unreadable;
    }
    std::set<std::string> known;
    for (const kvosim::StationKey &key : kvosim::stationKeys()) {
        known.insert(std::string(key.name));
    }
    EXPECT_EQ(keys, known);
}

TEST(NumbersOfAStation, have_the_ranges_of_plant_files)
{
    for (const auto &[name, range] : kvoctl::stationNumbers()) {
        const auto &key = std::get<kvosim::NumberKey>(kvosim::stationKey(name).kind);
        EXPECT_EQ(range.lowest, key.lowest) << name;
        EXPECT_EQ(range.highest, key.highest) << name;
        EXPECT_EQ(range.step, key.step) << name;
        EXPECT_EQ(range.mayBeNone, std::holds_alternative<kvosim::OptionalNumber kvosim::Panel::*>(key.member)) << name;
    }
}

// ---- Whole files ----

KvoDescriptionEx station(uint32_t address, const std::string &name)
{
    KvoDescriptionEx description{};
    description.address = address;
    description.attr1 = 0xFFFFFFFF;
    description.extAttr7 = 7;
    name.copy(description.name, sizeof description.name - 1);
    return description;
}

std::vector<Answer> answers(const Answer &answer)
{
    std::size_t commands = 0;
    for (const StationRequest &request : kvoctl::stationRequests()) {
        commands += request.commands.size();
    }
    return std::vector<Answer>(commands, answer);
}

const Answer kYes{"yes"};
const Answer kVersion{"V1"};
const Answer kLevel{"DEBUG_LEVEL_II"};

class PlantFile : public testing::Test {
protected:
    kvosim::Plant plant()
    {
        text_ = std::move(written_).take();
        return kvosim::parsePlant(text_, "captured");
    }

    PlantText written_{kYes, kVersion, kLevel};
    std::string text_;
};

TEST_F(PlantFile, has_the_service_its_clients_and_the_previous_stations)
{
    KvoClientEntry client{.value = 0xFFFFFFFF, .name = "HMI \\ 1"};
    written_.addClients({&client, 1});
    written_.addPrevious("\"Lathe 1\" 10.0.0.5 1x2:-1\r\n\"A \" 10.0.0.6 0x0:0\n");
    const kvosim::Plant read = plant();
    EXPECT_EQ(read.service.version, "V1");
    EXPECT_EQ(read.service.debugLevel, kvosim::DebugLevel::two);
    ASSERT_EQ(read.clients.size(), 1U);
    EXPECT_STREQ(read.clients[0].name, "HMI \\ 1");
    EXPECT_EQ(read.clients[0].value, 0xFFFFFFFF);
    ASSERT_EQ(read.previousList.size(), 2U);
    EXPECT_EQ(read.previousList[0].address, 0x0A000005U);
    EXPECT_EQ(read.previousList[0].attr3, 0xFFFFFFFF);
    EXPECT_STREQ(read.previousList[1].name, "A ");
    EXPECT_TRUE(written_.notRead().empty());
}

TEST_F(PlantFile, keeps_stations_whose_names_it_cannot_contain)
{
    for (const char *name : {"", " A", "A\"B", "A\nB", "A\xFF", "A", "A"}) {
        static uint32_t address = 0x0A000000;
        written_.addStation(station(++address, name), answers({"failed"}));
    }
    const kvosim::Plant read = plant();
    ASSERT_EQ(read.stations().size(), 7U);
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(read.stations()[i].name, i == 5 ? "A" : "10.0.0." + std::to_string(i + 1));
        EXPECT_EQ(read.stations()[i].attr1, 0xFFFFFFFF);
        EXPECT_EQ(read.stations()[i].extAttr7, 7U);
    }
    EXPECT_THAT(text_, HasSubstr("# name: not written: \"\" is empty; a name has 1 to 259 bytes\nname = \"10.0.0.1\"\n"));
    EXPECT_THAT(text_, HasSubstr("# name: not written: \"A\\xFF\" is not valid UTF-8\nname = \"10.0.0.5\"\n"));
    EXPECT_THAT(text_, HasSubstr("# name: not written: \"A\" is the name of a station before it\nname = \"10.0.0.7\"\n"));
}

TEST_F(PlantFile, leaves_out_stations_that_cannot_be_distinguished)
{
    written_.addStation(station(0x0A000001, "A"), answers({"failed"}));
    written_.addStation(station(0x0A000001, "B"), answers({"failed"}));
    written_.addStation(station(0, "C"), answers({"failed"}));
    written_.addStation(station(0x0A000002, "10.0.0.3"), answers({"failed"}));
    written_.addStation(station(0x0A000003, "A"), answers({"failed"}));
    EXPECT_EQ(plant().stations().size(), 2U);
    EXPECT_THAT(text_, HasSubstr("\n# station: not written: \"B\" has the address 10.0.0.1, like a station before it\n"));
    EXPECT_THAT(text_, HasSubstr("\n# station: not written: \"C\" has the address 0.0.0.0, which means no station\n"));
    EXPECT_THAT(text_,
                HasSubstr("\n# station: not written: \"A\" is the name of a station before it, and 10.0.0.3 is one too\n"));
}

TEST_F(PlantFile, has_one_comment_for_a_station_that_refuses_everything)
{
    std::vector<Answer> refusals = answers({"failed"});
    refusals[8] = {"not found"};
    written_.addStation(station(0x0A000001, "A"), refusals);
    written_.addStation(station(0x0A000002, "B"), answers({{}, "the service had stopped answering"}));
    EXPECT_EQ(plant().stations().size(), 2U);
    EXPECT_THAT(text_, HasSubstr("0, 7]\n# other keys: not read: the service refuses requests about this station, which may be "
                                 "rebooting\n\n[[station]]"));
    EXPECT_THAT(text_, testing::EndsWith("0, 7]\n# other keys: not read: the service had stopped answering\n"));
    ASSERT_EQ(written_.notRead().size(), 2U);
    EXPECT_EQ(written_.notRead()[1].station, "10.0.0.2");
    EXPECT_EQ(written_.notRead()[1].key, "");
}

TEST_F(PlantFile, is_valid_whatever_the_registry_contains)
{
    written_.addPrevious(
        "\"A\" 10.0.0.1 1x2:3\nTom's\n\"B\" 10.0.0 1x2:3\n\"C\" 10.0.0.3 1x2\n\"D\" 10.0.0.4 1x2:3 4\n"
        "\"E\" 10.0.0.5 4294967296x2:3\n\"\" 10.0.0.6 1x2:3\n\"A\" 10.0.0.7 1x2:3\n\"H\" 10.0.0.1 1x2:3\n\"\n\n");
    EXPECT_EQ(plant().previousList.size(), 3U);
    EXPECT_THAT(text_, HasSubstr("\n# registry.previous: not written: \"Tom's\" is not a line of the registry\n"));
    EXPECT_EQ(written_.notRead().size(), 10U);
}

TEST_F(PlantFile, is_valid_whatever_the_clients_are_called)
{
    KvoClientEntry clients[2] = {{.value = 1, .name = "A\"B"}, {.value = 2, .name = "A"}};
    written_.addClients(clients);
    EXPECT_EQ(plant().clients.size(), 1U);
    EXPECT_THAT(text_, HasSubstr("\n# client: not written: \"A\\\"B\" contains a double quote, which"));
}

TEST_F(PlantFile, says_which_lists_are_missing)
{
    written_.addMissing("client", "not read: the service refused");
    written_.addMissing("station", "not read: the service refused");
    EXPECT_EQ(plant().stations().size(), 0U);
    EXPECT_THAT(text_,
                testing::EndsWith("\n\n# client: not read: the service refused\n\n# station: not read: the service refused\n"));
}

TEST(PlantFileOfAService, says_what_the_service_refuses)
{
    PlantText written({"no"}, {"failed"}, {"DEBUG_LEVEL_III"});
    EXPECT_EQ(written.notRead().size(), 3U);
    const std::string text = std::move(written).take();
    EXPECT_THAT(text, HasSubstr("\n# the service had not finished starting; stations and values may be missing\n"));
    EXPECT_THAT(text, HasSubstr("\n# version: not read: the service refused it (failed)\n"
                                "# debug_level: not read: unknown reply \"DEBUG_LEVEL_III\"\n"));
    EXPECT_EQ(kvosim::parsePlant(text, "captured").service.version, "V01.00.00.00") << "the default";
}

}  // namespace
