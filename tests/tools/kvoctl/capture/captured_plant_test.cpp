// A plant that is captured, simulated and captured again is the same file, and gives the same replies.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/running_service.h"
#include "tools/kvosim/support/temporary_directory.h"

#include "common/toml_text.h"
#include "kvoctl/capture/station_requests.h"
#include "kvosim/plant/station_keys.h"
#include "kvosim/plant_file/plant_generator.h"

#include <array>
#include <cstdio>
#include <random>
#include <sstream>

namespace kvoctl_test {

namespace {

using kvosim_test::contentsOf;
using kvosim_test::exchange;
using kvosim_test::RunningService;
using testing::HasSubstr;
using testing::Not;

std::string captured(std::string_view plant)
{
    const RunningService service(plant);
    const Ended ended = kvoctl({"capture", "--rate", "max"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    return ended.out;
}

/// The replies to all requests that read something of a plant, and the registry's previous list.
std::string repliesOf(std::string_view plant)
{
    const kvosim::Plant parsed = kvosim::parsePlant(plant, "plant");
    const RunningService service(plant);
    std::string replies;
    const auto ask = [&replies](const std::string &request) { replies += request + " < " + exchange(request + '\n'); };
    for (const char *request : {"getVersion", "getDebugLevel", "getClientList 0 0", "getCountElemDL", "getDLV2 9",
                                "getDL_ExV2 9", "getUsbConnectorList"}) {
        ask(request);
    }
    for (const ConnectionEntry &station : parsed.stations()) {
        std::array<char, 9> digits{};
        std::snprintf(digits.data(), digits.size(), "%08X", station.address);
        for (const kvoctl::StationRequest &request : kvoctl::stationRequests()) {
            for (const std::string &command : request.commands) {
                ask(command + digits.data());
            }
        }
        ask(std::string("isViewerActive=") + digits.data());
    }
    std::string registry = exchange("getregistrypath\n");
    registry.pop_back();
    return replies + contentsOf(registry + "kvo_hws/prevkvos.reg");
}

std::string generated(uint32_t count, uint64_t seed)
{
    std::ostringstream text;
    kvosim::generatePlant(text, count, seed);
    return text.str();
}

/// Stations with random values for all keys.
class RandomPlant {
public:
    explicit RandomPlant(uint64_t seed) : random_(seed) {}

    std::string text(unsigned stations)
    {
        std::string text;
        for (unsigned i = 1; i <= stations; ++i) {
            text +=
                "\n[[station]]\naddress = \"10.0.0." + std::to_string(i) + "\"\nname = 'Station " + std::to_string(i) + "'\n";
            for (const kvosim::StationKey &key : kvosim::stationKeys()) {
                const auto *number = std::get_if<kvosim::NumberKey>(&key.kind);
                text += std::string(key.name) + " = " + (number != nullptr ? numberFor(*number) : textFor(key)) + '\n';
            }
        }
        return text;
    }

private:
    uint64_t below(uint64_t limit) { return random_() % limit; }

    std::string numberFor(const kvosim::NumberKey &key)
    {
        if (std::holds_alternative<kvosim::OptionalNumber kvosim::Panel::*>(key.member) && below(4) == 0) {
            return "\"none\"";
        }
        switch (below(4)) {
        case 0: return std::to_string(key.lowest);
        case 1: return std::to_string(key.highest);
        default:
            return std::to_string(key.lowest +
                                  static_cast<int64_t>(below(static_cast<uint64_t>(key.highest - key.lowest) / key.step + 1)) *
                                      key.step);
        }
    }

    /// One of several texts that is valid for the key.
    std::string textFor(const kvosim::StationKey &key)
    {
        const std::string kTexts[] = {"",
                                      "a",
                                      "1:2",
                                      "4294967295:0",
                                      ":",
                                      "1:",
                                      ":10",
                                      "0:7",
                                      "X60:free",
                                      "X60:a 1-1.2:b_c.d-e",
                                      "nc-hall1:3",
                                      "10.0.0.9:x y",
                                      R"("q" \ 'p' #)",
                                      "Fräse 旋盤 🔧",
                                      "a\u202Eb",
                                      std::string(230, '\\'),
                                      std::string(255, '"'),
                                      "none",
                                      "not found",
                                      "1234567",
                                      " leading",
                                      "trailing "};
        const auto &isValid = std::get<kvosim::TextKey>(key.kind).isValid;
        for (;;) {
            const std::string &text = kTexts[below(std::size(kTexts))];
            if (isValid(text)) {
                return tools::tomlQuoted(text);
            }
        }
    }

    std::mt19937_64 random_;
};

/// Everything that is special.
constexpr const char *kOddPlant = R"toml(
[service]
version = 'V1 "\ # ä'
debug_level = 1

[[client]]
name = 'A \ '
value = 0xFFFFFFFF

[[client]]
name = "twice"

[[client]]
name = "twice"

[[registry.previous]]
address = "10.0.0.5"
name = 'Old \ mill  '
attr1 = 0
attr2 = 0xFFFFFFFF
attr3 = 0x80000000

[[station]]
address = "10.0.0.5"
name = 'Fräse \ 旋盤, #1 '
ext = [0xFFFFFFFF, 1, 2, 3, 4, 5, 6]
priority = ":"
usb_connectors = "X60:keyboard"

[[station.usb_device]]
ident2 = "a b"

[[station]]
address = "5.0.0.10"
name = "NAME"
touch = 0
multitouch = "none"
backlight_modes = 0
handheld = 1
rv4_mode = 1
usb_scanning = 1

[[station]]
address = "255.255.255.255"
name = "10.0.0.5"
backlight_modes = 1
kbd = "none"
mouse = "none"
touch = "none"
vkbd = "none"
multitouch = 99
)toml";

/// @p plant with a name of 259 bytes instead of NAME
std::string withLongName(std::string plant) { return plant.replace(plant.find("NAME"), 4, std::string(259, 'n')); }

/// A plant is made when the test runs, because the simulator's tables exist only then.
struct Row {
    const char *name;
    std::string (*plant)();
};

void PrintTo(const Row &row, std::ostream *out) { *out << row.name; }

const Row kRows[] = {
    {"built_in_plant", [] { return std::string(kvosim::kBuiltInPlant); }},
    {"example", [] { return contentsOf(EXAMPLE_PLANT); }},
    {"generated_plant", [] { return generated(50, 4711); }},
    {"random_values_1", [] { return RandomPlant(1).text(30); }},
    {"random_values_2", [] { return RandomPlant(2).text(30); }},
    {"odd_plant", [] { return withLongName(kOddPlant); }},
    {"plant_without_stations", [] { return std::string("[service]\nversion = \"V0\"\n"); }},
};

class CapturedPlant : public testing::TestWithParam<Row> {};

TEST_P(CapturedPlant, is_the_same_file_when_it_is_captured_again)
{
    const std::string first = captured(GetParam().plant());
    EXPECT_EQ(captured(first), first);
    EXPECT_THAT(first, Not(HasSubstr("not written"))) << "everything in a plant file can be written to one";
}

TEST_P(CapturedPlant, gives_the_same_replies)
{
    EXPECT_EQ(repliesOf(captured(GetParam().plant())), repliesOf(GetParam().plant()));
}

INSTANTIATE_TEST_SUITE_P(Plants, CapturedPlant, testing::ValuesIn(kRows), [](const auto &row) { return row.param.name; });

TEST(Captured, plant_looks_like_this)
{
    const std::string text = captured(R"(
[[client]]
name = "HMI"
[[registry.previous]]
address = "10.0.0.4"
name = "Gone"
[[station]]
address = "10.0.0.5"
name = "Lathe 1"
keyboard_caps = 0x3F
touch = 0
status_line = "cannot be read"
)");
    EXPECT_EQ(text, R"(# A plant that "kvoctl capture" has read from a service. "kvosim serve --plant FILE" simulates it.

[service]
version = "V01.00.00.00"
debug_level = 0

[[client]]
name = "HMI"
value = 0

[[registry.previous]]
address = "10.0.0.4"
name = "Gone"
attr1 = 0
attr2 = 0
attr3 = 0

[[station]]
address = "10.0.0.5"
name = "Lathe 1"
attr1 = 0
attr2 = 0
attr3 = 0
ext = [0, 0, 0, 0, 0, 0, 0]
backlight_modes = 2
backlight_brightness = 100
backlight_brightness_mode1 = 100
disable_num_lock = 0
disable_caps_lock = 0
sw_caps_lock = 0
station_type = 0
handheld = 0
# rv4_mode: not read: the station has no handheld terminal (not_a_rv4)
marovanti = 1
oem_layout = ""
softkey_type = "none"
keyboard_caps = 0x0000003F
hardware_caps = "none"
dpi = "none"
panel_rotation = "none"
mcp_address = 0
dck_address = 0
kvo_index = 0
dck_enable = 0
cks_index = 0
viewer = ""
priority = ""
startup_active = 0
startup_prio = 0
channel_on_focus = 1
screen_on_focus = ""
t2m2n = ""
channel_info = ""
kbd = 1
mouse = 1
touch = 0
multitouch = 0
maxcontacts = "none"
vkbd = 0
# press_thresh: not read: the station has no touch screen (no_touchscreen)
# nonlinear: not read: the station has no touch screen (no_touchscreen)
usb_lock = "0:0"
usb_connectors = ""
usb_scanning = 0
)");
}

}  // namespace

}  // namespace kvoctl_test
