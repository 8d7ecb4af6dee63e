// Plant files: the effect of each key, and one row for each mistake with its message.
#include "kvosim/plant_file/plant_file.h"

#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/temporary_directory.h"

#include <gmock/gmock.h>

#include <cstring>
#include <vector>

namespace {

using kvosim::parsePlant;
using kvosim::PlantFileError;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

std::string station(const std::string &keys) { return "[[station]]\n" + keys; }
const std::string kMinimal = "address = \"10.0.0.5\"\nname = \"A\"\n";

TEST(PlantFile, empty_file_is_a_plant_without_stations)
{
    const kvosim::Plant plant = parsePlant("", "p");
    EXPECT_TRUE(plant.stations().empty());
    EXPECT_EQ(plant.service.version, "V01.00.00.00");
    EXPECT_EQ(plant.service.initTime.count(), 0);
    EXPECT_EQ(plant.service.debugLevel, kvosim::DebugLevel::none);
    EXPECT_EQ(plant.service.backlight, 1U);
    EXPECT_TRUE(plant.previousList.empty());
}

TEST(PlantFile, service_keys_are_read)
{
    const kvosim::Plant plant =
        parsePlant("[service]\nversion = \"V2\"\ninit_time_ms = 250\ndebug_level = 2\nbacklight = 0\n", "p");
    EXPECT_EQ(plant.service.version, "V2");
    EXPECT_EQ(plant.service.initTime.count(), 250);
    EXPECT_EQ(plant.service.debugLevel, kvosim::DebugLevel::two);
    EXPECT_EQ(plant.service.backlight, 0U);
}

TEST(PlantFile, station_keys_are_read)
{
    kvosim::Plant plant = parsePlant(station("address = \"10.0.0.5\"\nname = \"Fräse 1\"\nattr1 = 0xFFFFFFFF\nattr2 = 2\n"
                                             "attr3 = 3\next = [1, 2, 3, 4, 5, 6, 0xFFFFFFFF]\nbrightness = 0\n"),
                                     "p");
    const ConnectionEntry *found = plant.findAddress(0x0A000005);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(plant.findName("Fräse 1"), found);
    EXPECT_EQ(found->attr1, 0xFFFFFFFFU);
    EXPECT_EQ(found->attr2, 2U);
    EXPECT_EQ(found->attr3, 3U);
    EXPECT_EQ(found->extAttr1, 1U);
    EXPECT_EQ(found->extAttr2, 2U);
    EXPECT_EQ(found->extAttr3, 3U);
    EXPECT_EQ(found->extAttr4, 4U);
    EXPECT_EQ(found->extAttr5, 5U);
    EXPECT_EQ(found->extAttr6, 6U);
    EXPECT_EQ(found->extAttr7, 0xFFFFFFFFU);
    EXPECT_EQ(plant.findPanel(0x0A000005)->brightness, 0U);
}

TEST(PlantFile, absent_station_keys_have_defaults)
{
    kvosim::Plant plant = parsePlant(station(kMinimal), "p");
    const ConnectionEntry &only = plant.stations().front();
    EXPECT_EQ(only.attr1 + only.attr2 + only.attr3 + only.extAttr1 + only.extAttr6 + only.extAttr7, 0U);
    EXPECT_EQ(plant.findPanel(only.address)->brightness, 1U);
}

TEST(PlantFile, longest_name_is_accepted)
{
    const std::string name(259, 'n');
    const kvosim::Plant plant = parsePlant(station("address = \"10.0.0.5\"\nname = \"" + name + "\"\n"), "p");
    EXPECT_EQ(plant.stations().front().name, name);
}

TEST(PlantFile, previous_entries_are_read)
{
    const kvosim::Plant plant = parsePlant("[[registry.previous]]\naddress = \"10.0.0.1\"\nname = \"P\"\nattr3 = 7\n", "p");
    ASSERT_EQ(plant.previousList.size(), 1U);
    EXPECT_EQ(plant.previousList[0].address, 0x0A000001U);
    EXPECT_STREQ(plant.previousList[0].name, "P");
    EXPECT_EQ(plant.previousList[0].attr3, 7U);
}

TEST(PlantFile, built_in_plant_has_three_stations)
{
    EXPECT_EQ(parsePlant(kvosim::kBuiltInPlant, "built-in").stations().size(), 3U);
}

TEST(PlantFile, example_contains_varied_stations)
{
    const kvosim::Plant plant = kvosim::loadPlant(EXAMPLE_PLANT);
    const auto stations = plant.stations();
    EXPECT_GE(stations.size(), 24U);
    const auto any = [&](auto condition) { return std::any_of(stations.begin(), stations.end(), condition); };
    EXPECT_TRUE(any([](const auto &entry) { return std::strlen(entry.name) == 259; }));
    EXPECT_TRUE(any([](const auto &entry) { return std::strlen(entry.name) == 1; }));
    EXPECT_TRUE(any([](const auto &entry) { return std::strchr(entry.name, '\xC3') != nullptr; })) << "UTF-8";
    EXPECT_TRUE(any([](const auto &entry) { return entry.attr1 == 0xFFFFFFFF && entry.extAttr7 == 0xFFFFFFFF; }));
    EXPECT_TRUE(any([](const auto &entry) { return entry.attr1 == 0; }));
    EXPECT_FALSE(plant.previousList.empty());
}

TEST(PlantFile, missing_file_is_named)
{
    const kvosim_test::TemporaryDirectory directory;
    for (const auto &path : {directory / "none.toml", directory.path()}) {
        EXPECT_THAT([&] { kvosim::loadPlant(path); },
                    ThrowsMessage<PlantFileError>(StartsWith(path.string() + ": cannot be read")));
    }
}

TEST(PlantFile, loads_from_a_file_even_if_it_is_empty)
{
    const kvosim_test::TemporaryDirectory directory;
    const auto path = directory / "plant.toml";
    std::ofstream(path).flush();
    EXPECT_TRUE(kvosim::loadPlant(path).stations().empty());
    std::ofstream(path) << station(kMinimal);
    EXPECT_EQ(kvosim::loadPlant(path).stations().size(), 1U);
    std::ofstream(path) << station("nmae = 1\n");
    EXPECT_THAT([&] { kvosim::loadPlant(path); },
                ThrowsMessage<PlantFileError>(StartsWith(path.string() + ":2: station.nmae")));
}

struct Mistake : kvosim_test::NamedRow {
    std::string text;
    std::string message;
};

class PlantFileMistake : public testing::TestWithParam<Mistake> {};

TEST_P(PlantFileMistake, is_reported)
{
    EXPECT_THAT([&] { parsePlant(GetParam().text, "plant.toml"); },
                ThrowsMessage<PlantFileError>(HasSubstr(GetParam().message)));
}

const std::string kNumberRange = "; write 0 to 0xFFFFFFFF";

const std::vector<Mistake> kMistakes = {
    {"syntax", "[service]\nversion =\n", "plant.toml:2: not TOML: "},
    {"three_brackets", "[[[station]]\n", "plant.toml:1: not TOML: "},
    {"not_utf8", "[service]\nversion = \"\xFF\"\n", "plant.toml:2: not TOML: "},
    {"key_twice", station(kMinimal + "attr1 = 1\nattr1 = 2\n"), "plant.toml:5: not TOML: "},
    {"unknown_table", "[serivce]\n",
     "plant.toml:1: serivce: unknown key; known keys: service, registry, station, client, faults"},
    {"unknown_service_key", "[service]\n\nverison = \"V1\"\n",
     "plant.toml:3: service.verison: unknown key; known keys: version, init_time_ms, debug_level, backlight, "
     "focus_hold_ms, usb_lock_address, remote_sessions, remote_address"},
    {"unknown_station_key", station(kMinimal + "attr4 = 1\n"),
     "plant.toml:4: station.attr4: unknown key; known keys: address, name, ext, attr1, attr2, attr3, brightness"},
    {"unknown_registry_key", "[registry]\nprevios = []\n", "plant.toml:2: registry.previos: unknown key; known keys: previous"},
    {"unknown_previous_key", "[[registry.previous]]\n" + kMinimal + "ext = [0, 0, 0, 0, 0, 0, 0]\n",
     "plant.toml:4: registry.previous.ext: unknown key; known keys: address, name, attr1, attr2, attr3"},
    {"service_is_not_a_table", "service = 1\n", "plant.toml:1: service: is not a table; write [service] and its keys below it"},
    {"station_single", "[station]\n" + kMinimal, "station: is not a list of tables; write [[station]] before the keys"},
    {"station_numbers", "station = [1, 2]\n", "plant.toml:1: station: is not a list of tables; write [[station]]"},
    {"version_number", "[service]\nversion = 1\n", "plant.toml:2: service.version: is not a text; write it in quotes"},
    {"version_empty", "[service]\nversion = \"\"\n", "plant.toml:2: service.version: is not a valid version; write 1 to 255"},
    {"version_two_lines", "[service]\nversion = \"a\\nb\"\n", "plant.toml:2: service.version: is not a valid version"},
    {"version_long", "[service]\nversion = \"" + std::string(256, 'v') + "\"\n", "service.version: is not a valid version"},
    {"init_time_negative", "[service]\ninit_time_ms = -1\n",
     "plant.toml:2: service.init_time_ms: -1 is out of range; write 0 to 3600000"},
    {"init_time_long", "[service]\ninit_time_ms = 3600001\n", "3600001 is out of range; write 0 to 3600000"},
    {"debug_level", "[service]\ndebug_level = 3\n", "plant.toml:2: service.debug_level: 3 is out of range; write 0 to 2"},
    {"backlight_bool", "[service]\nbacklight = true\n", "plant.toml:2: service.backlight: is not a whole number; write 0 to 1"},
    {"address_missing", "\n" + station("name = \"A\"\n"), "plant.toml:2: station.address: is missing; write address = \"...\""},
    {"address_number", station("address = 5\nname = \"A\"\n"), "plant.toml:2: station.address: is not a text"},
    {"address_three_parts", station("address = \"10.0.0\"\nname = \"A\"\n"),
     "plant.toml:2: station.address: \"10.0.0\" is not an IPv4 address; write four numbers from 0 to 255, such as "
     "\"10.0.0.5\""},
    {"address_256", station("address = \"10.0.0.256\"\nname = \"A\"\n"), "\"10.0.0.256\" is not an IPv4 address"},
    {"address_blank", station("address = \"10.0.0.5 \"\nname = \"A\"\n"), "\"10.0.0.5 \" is not an IPv4 address"},
    {"address_v6", station("address = \"::1\"\nname = \"A\"\n"), "\"::1\" is not an IPv4 address"},
    {"address_host", station("address = \"localhost\"\nname = \"A\"\n"), "\"localhost\" is not an IPv4 address"},
    {"address_zero", station("address = \"0.0.0.0\"\nname = \"A\"\n"),
     "plant.toml:2: station.address: 0.0.0.0 means no station; use another address"},
    {"address_twice", station(kMinimal) + station("address = \"10.0.0.5\"\nname = \"B\"\n"),
     "plant.toml:5: station.address: 10.0.0.5 is already used by the station in line 1; each station needs its own"},
    {"name_missing", station("address = \"10.0.0.5\"\n"), "plant.toml:1: station.name: is missing"},
    {"name_empty", station("address = \"10.0.0.5\"\nname = \"\"\n"),
     "plant.toml:3: station.name: is empty; a name has 1 to 259 bytes"},
    {"name_long", station("address = \"10.0.0.5\"\nname = \"" + std::string(260, 'n') + "\"\n"),
     "plant.toml:3: station.name: has 260 bytes; a name has 1 to 259"},
    {"name_long_in_bytes", station("address = \"10.0.0.5\"\nname = \"" + std::string(258, 'n') + "ä\"\n"),
     "station.name: has 260 bytes"},
    {"name_line_end", station("address = \"10.0.0.5\"\nname = \"a\\nb\"\n"),
     "plant.toml:3: station.name: contains a control character; "},
    {"name_nul", station("address = \"10.0.0.5\"\nname = \"a\\u0000b\"\n"), "contains a control character"},
    {"name_delete", station("address = \"10.0.0.5\"\nname = \"a\\u007Fb\"\n"), "contains a control character"},
    {"name_quote", station("address = \"10.0.0.5\"\nname = 'a \"b\"'\n"),
     "plant.toml:3: station.name: contains a double quote, which ends a name in the registry files"},
    {"name_leading_space", station("address = \"10.0.0.5\"\nname = \" a\"\n"),
     "plant.toml:3: station.name: begins with a space, which is lost in the registry files"},
    {"name_twice", station(kMinimal) + station("address = \"10.0.0.6\"\nname = \"A\"\n"),
     "plant.toml:6: station.name: \"A\" is already used by the station in line 1; each station needs its own"},
    {"attr_negative", station(kMinimal + "attr1 = -1\n"), "plant.toml:4: station.attr1: -1 is out of range" + kNumberRange},
    {"attr_large", station(kMinimal + "attr2 = 0x100000000\n"),
     "plant.toml:4: station.attr2: 4294967296 is out of range" + kNumberRange},
    {"attr_float", station(kMinimal + "attr3 = 1.0\n"), "station.attr3: is not a whole number" + kNumberRange},
    {"attr_text", station(kMinimal + "attr3 = \"1\"\n"), "station.attr3: is not a whole number" + kNumberRange},
    {"ext_six", station(kMinimal + "ext = [1, 2, 3, 4, 5, 6]\n"),
     "plant.toml:4: station.ext: is not a list of 7 numbers; write ext = [0, ...] with 7 numbers"},
    {"ext_eight", station(kMinimal + "ext = [1, 2, 3, 4, 5, 6, 7, 8]\n"), "station.ext: is not a list of 7 numbers"},
    {"ext_number", station(kMinimal + "ext = 7\n"), "station.ext: is not a list of 7 numbers"},
    {"ext_element", station(kMinimal + "ext = [1, 2, 3,\n4, 5, 6, -7]\n"),
     "plant.toml:5: station.ext: -7 is out of range" + kNumberRange},
    {"brightness", station(kMinimal + "brightness = 2\n"), "plant.toml:4: station.brightness: 2 is out of range; write 0 to 1"},
    {"previous_name", "[[registry.previous]]\naddress = \"10.0.0.1\"\n", "plant.toml:1: registry.previous.name: is missing"},
    {"previous_twice", "[[registry.previous]]\n" + kMinimal + "[[registry.previous]]\n" + kMinimal,
     "plant.toml:5: registry.previous.address: 10.0.0.5 is already used by the station in line 1"}};

INSTANTIATE_TEST_SUITE_P(Table, PlantFileMistake, testing::ValuesIn(kMistakes), kvosim_test::kNameOfRow);

}  // namespace
