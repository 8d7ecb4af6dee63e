// Plant files are parsed station by station: where they are split, and that the result is the same as for the whole file.
#include "kvosim/plant_file/station_splitter.h"

#include "kvosim/plant_file/plant_file.h"
#include "tools/kvosim/support/named_row.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

using kvosim::splitAtStations;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;
using Calls = std::vector<std::pair<std::size_t, std::size_t>>;

// ---- Splitting ----

TEST(Pieces, begin_at_each_station_header)
{
    EXPECT_THAT(splitAtStations("# head\n[[station]]\na = 1\n[[station.usb_device]]\n \t[[station]] # indented\nb = 2"),
                ElementsAre("# head\n", "[[station]]\na = 1\n[[station.usb_device]]\n", " \t[[station]] # indented\nb = 2"));
}

TEST(Pieces, include_a_head_that_may_be_empty)
{
    EXPECT_THAT(splitAtStations(""), ElementsAre(""));
    EXPECT_THAT(splitAtStations("[service]\n"), ElementsAre("[service]\n"));
    EXPECT_THAT(splitAtStations("[[station]]\r\n[[station]]"), ElementsAre("", "[[station]]\r\n", "[[station]]"));
    EXPECT_THAT(splitAtStations("\n[[station]]"), ElementsAre("\n", "[[station]]"));
    EXPECT_THAT(splitAtStations("  [[station]]"), ElementsAre("", "  [[station]]"));
}

TEST(Pieces, begin_only_at_the_start_of_a_line)
{
    for (const char *text : {"a = \"[[station]]\"\n", "# [[station]]\n", "\xEF\xBB\xBF[[station]]\n", "[[ station ]]\n"}) {
        EXPECT_THAT(splitAtStations(text), ElementsAre(text));
    }
}

// ---- The parsed result ----

/// The parts of a plant that the files below set.
std::string contentsOf(kvosim::Plant plant)
{
    std::string text = plant.service.version + '|';
    for (const ConnectionEntry &station : plant.stations()) {
        text += ' ' + std::string(station.name);
        for (const kvosim::UsbDevice &device : plant.findPanel(station.address)->usbDevices) {
            text += '+' + ident2Of(device);
        }
    }
    text += " |";
    for (const KvoDescription &previous : plant.previousList) {
        text += ' ' + std::string(previous.name);
    }
    text += " |";
    for (const ConnectionClientEntry &client : plant.clients) {
        text += ' ' + std::string(client.name);
    }
    return text + " |";
}

std::string parsed(const std::string &text)
{
    try {
        return contentsOf(kvosim::parsePlant(text, "p"));
    } catch (const kvosim::PlantFileError &error) {
        return error.what();
    }
}

struct ParsedRow : kvosim_test::NamedRow {
    std::string text;
    std::string contents;
};

class ParsedPlant : public testing::TestWithParam<ParsedRow> {};

TEST_P(ParsedPlant, equals_that_of_the_whole_file) { EXPECT_THAT(parsed(GetParam().text), StartsWith(GetParam().contents)); }

const std::string kA = "[[station]]\naddress = \"10.0.0.1\"\nname = \"A\"\n";
const std::string kB = "[[station]]\naddress = \"10.0.0.2\"\nname = \"B\"\n";
const std::string kDevice = "[[station.usb_device]]\nident2 = \"stick\"\n";

const std::vector<ParsedRow> kMeanings = {
    {"stations_in_their_order", kB + kA, "V01.00.00.00| B A | | |"},
    {"devices_at_their_station", kA + kDevice + kB, "V01.00.00.00| A+stick B | | |"},
    {"another_spelling", kA + "[[ station ]]" + kB.substr(11) + kA.substr(0, 11) + "\naddress = \"10.0.0.3\"\nname = \"C\"\n",
     "V01.00.00.00| A B C | | |"},
    {"tables_between_stations",
     kA + "[service]\nversion = \"V2\"\n" + kB + "[[client]]\nname = \"x\"\n[[client]]\nname = \"y\"\n", "V2| A B | | x y |"},
    {"tables_that_continue_after_a_station",
     "[[client]]\nname = \"x\"\n[registry]\n" + kA + "[[client]]\nname = \"y\"\n" + kB +
         "[[registry.previous]]\naddress = \"10.0.0.3\"\nname = \"C\"\n",
     "V01.00.00.00| A B | C | x y |"},
    {"byte_order_mark", "\xEF\xBB\xBF" + kA + kB, "V01.00.00.00| A B | | |"},
    {"header_in_a_text", "[service]\nversion = '''\n[[station]]'''\n" + kA, "[[station]]| A | | |"},
    {"station_in_a_text", "[service]\nversion = '''\\\n" + kA + "'''\n" + kB,
     "p:2: service.version: is not a valid version; write 1 to 255 bytes without control characters"},
    {"header_in_a_list", kA + "ext = [1, 2, 3,\n[[station]],\n5, 6, 7]\n", "p:5: not TOML: "},
    {"table_twice", "[service]\n" + kA + "[service]\n", "p:5: not TOML: "},
    {"stations_as_a_list", "station = []\n" + kA, "p:2: not TOML: "},
    {"one_station_then_a_list_of_them", "[station]\n" + kA, "p:2: not TOML: "},
    {"line_of_a_later_mistake", kA + kB + "brightness = 7\n", "p:7: station.brightness: 7 is out of range; write 0 to 1"},
    {"unknown_key_before_a_wrong_value", kA + "brightness = 7\n" + kB + "brihgtness = 1\n",
     "p:8: station.brihgtness: unknown key; known keys: address, name"},
    {"first_of_two_mistakes", kA + "touch = -1\nbrightness = 7\nattr1 = -1\n",
     "p:6: station.attr1: -1 is out of range; write 0 to 0xFFFFFFFF"},
    {"name_twice", kA + "[[station]]\naddress = \"10.0.0.2\"\nname = \"A\"\n",
     "p:6: station.name: \"A\" is already used by the station in line 1; each station needs its own"},
    {"tail", kA + kB + "[serivce]\n", "p:7: serivce: unknown key; known keys: service, registry, station, client, faults"}};

INSTANTIATE_TEST_SUITE_P(Table, ParsedPlant, testing::ValuesIn(kMeanings), kvosim_test::kNameOfRow);

// ---- Progress ----

Calls progressOf(const std::string &text)
{
    Calls calls;
    kvosim::parsePlant(text, "p", [&calls](std::size_t done, std::size_t all) { calls.emplace_back(done, all); });
    return calls;
}

TEST(PlantProgress, counts_stations)
{
    EXPECT_THAT(progressOf(kA + kB), ElementsAre(Pair(1, 2), Pair(2, 2)));
    EXPECT_THAT(progressOf("[service]\n"), ElementsAre());
}

TEST(PlantProgress, restarts_if_the_whole_file_must_be_parsed)
{
    EXPECT_THAT(progressOf("[registry]\n" + kA + "[[registry.previous]]\naddress = \"10.0.0.3\"\nname = \"C\"\n" + kB),
                ElementsAre(Pair(0, 0), Pair(1, 2), Pair(2, 2)));
}

}  // namespace
