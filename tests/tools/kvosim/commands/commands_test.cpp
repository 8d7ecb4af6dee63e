// Every command and its reply, without sockets.
#include "kvosim/commands/commands.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"

#include <gmock/gmock.h>
#include <vector>

namespace {

using kvosim_test::kSmallPlant;
using testing::Eq;

const std::string kLathe = "0A000005 00000001 00000002 00000003 00000007 Lathe 1 ";
const std::string kLatheExt = "0000000B 0000000C 0000000D 0000000E 0000000F 00000010 00000011 ";
const std::string kMill = "0A000006 FFFFFFFF 00000000 00000000 00000006 Fräse ";
const std::string kPlain = "C0A80007 00000000 00000000 00000000 0000000D No attributes ";
const std::string kNoExt = "00000000 00000000 00000000 00000000 00000000 00000000 00000000 ";

class Commands : public testing::Test {
protected:
    std::string ask(std::string_view request) { return kvosim::answer(context, request); }

    kvosim::Plant plant = kvosim::parsePlant(kSmallPlant, "plant");
    kvosim::Registry registry{std::nullopt};
    kvosim::ServiceContext context{.plant = plant, .registry = registry};
};

struct Row : kvosim_test::NamedRow {
    std::string request;
    std::string reply;
};

class OneCommand : public Commands, public testing::WithParamInterface<Row> {};

TEST_P(OneCommand, is_answered) { EXPECT_THAT(ask(GetParam().request), Eq(GetParam().reply)); }

const std::vector<Row> kCommands = {
    {"version", "getVersion", "V09.08"},
    {"debug_level", "getDebugLevel", "DEBUG_LEVEL_NONE"},
    {"set_debug_level_none", "setDebugLevel=DEBUG_LEVEL_NONE", "ok"},
    {"set_debug_level_i", "setDebugLevel=DEBUG_LEVEL_I", "ok"},
    {"set_debug_level_ii", "setDebugLevel=DEBUG_LEVEL_II", "ok"},
    {"set_debug_level_iii", "setDebugLevel=DEBUG_LEVEL_III", "failed"},
    {"set_debug_level_number", "setDebugLevel=1", "failed"},
    {"set_debug_level_empty", "setDebugLevel=", "failed"},
    {"set_debug_level_bare", "setDebugLevel", "failed"},
    {"init_complete", "isInitComplete", "yes"},
    {"lock", "lockKVORegData", "ok"},
    {"unlock_without_lock", "unlockKVORegData", "failed"},
    {"kill", "killDaemon", "ok"},
    {"backlight_off", "setBacklight=0", "ok"},
    {"backlight_on", "setBacklight=1", "ok"},
    {"backlight_two", "setBacklight=2", "failed"},
    {"backlight_padded", "setBacklight=01", "failed"},
    {"backlight_empty", "setBacklight=", "failed"},
    {"backlight_blank", "setBacklight 1", "failed"},
    {"dark", "setBrightness=0 0A000005", "ok"},
    {"bright", "setBrightness=1 0A000006", "ok"},
    {"brightness_two", "setBrightness=2 0A000005", "failed"},
    {"brightness_unknown_station", "setBrightness=1 0A0000FF", "failed"},
    {"brightness_without_station", "setBrightness=1", "failed"},
    {"brightness_without_value", "setBrightness=0A000005", "failed"},
    {"brightness_lower_case_station", "setBrightness=1 0a000005", "failed"},
    {"brightness_short_station", "setBrightness=1 A000005", "failed"},
    {"brightness_long_station", "setBrightness=1 00A000005", "failed"},
    {"brightness_without_blank", "setBrightness=10A000005", "failed"},
    {"brightness_two_blanks", "setBrightness=1  0A000005", "failed"},
    {"count", "getCountElemDL", "3"},
    {"count_ext", "getCountElemDL_Ex", "3"},
    {"list", "getDLV2 3", "00000003 " + kLathe + kMill + kPlain},
    {"list_beyond_capacity", "getDLV2 0", "00000003 " + kLathe + kMill + kPlain},
    {"list_largest_capacity", "getDLV2 4294967295", "00000003 " + kLathe + kMill + kPlain},
    {"list_too_large_capacity", "getDLV2 4294967296", "failed"},
    {"list_without_capacity", "getDLV2 ", "failed"},
    {"list_bare", "getDLV2", "failed"},
    {"list_hexadecimal", "getDLV2 0x3", "failed"},
    {"list_negative", "getDLV2 -1", "failed"},
    {"list_trailing", "getDLV2 3 ", "failed"},
    {"list_ext", "getDL_ExV2 3", "00000003 " + kLathe + kLatheExt + kMill + kNoExt + kPlain + kNoExt},
    {"list_ext_bad_capacity", "getDL_ExV2 x", "failed"},
    {"by_address", "getExDescByIP 0A000005", kLathe + kLatheExt},
    {"by_unknown_address", "getExDescByIP 0A000004", "not found"},
    {"by_short_address", "getExDescByIP A000005", "failed"},
    {"by_dotted", "getExDescByIP 10.0.0.5", "failed"},
    {"by_address_without_address", "getExDescByIP ", "failed"},
    {"by_name", "getExDescByName Lathe 1", kLathe + kLatheExt},
    {"by_utf8_name", "getExDescByName Fräse", kMill + kNoExt},
    {"by_unknown_name", "getExDescByName Lathe 2", "not found"},
    {"by_beginning_of_name", "getExDescByName Lathe", "not found"},
    {"by_name_in_other_case", "getExDescByName lathe 1", "not found"},
    {"by_name_with_more_blanks", "getExDescByName  Lathe 1", "not found"},
    {"by_name_without_name", "getExDescByName ", "failed"},
    {"by_bare_name", "getExDescByName", "failed"},
    {"empty", "", "failed"},
    {"unknown", "getVersions", "failed"},
    {"cut", "getVersio", "failed"},
    {"other_case", "getversion", "failed"},
    {"leading_blank", " getVersion", "failed"},
    {"trailing_blank", "getVersion ", "failed"},
    {"with_value", "getVersion=1", "failed"},
    {"only_separator", "=", "failed"},
    {"nul", std::string("getVersion\0", 11), "failed"}};

INSTANTIATE_TEST_SUITE_P(Table, OneCommand, testing::ValuesIn(kCommands), kvosim_test::kNameOfRow);

TEST_F(Commands, debug_level_can_be_read_back)
{
    for (const std::string level : {"DEBUG_LEVEL_II", "DEBUG_LEVEL_I", "DEBUG_LEVEL_NONE"}) {
        ask("setDebugLevel=" + level);
        EXPECT_EQ(ask("getDebugLevel"), level);
    }
}

TEST_F(Commands, refused_value_changes_nothing)
{
    ask("setDebugLevel=DEBUG_LEVEL_I");
    ask("setDebugLevel=DEBUG_LEVEL_III");
    ask("setBacklight=2");
    ask("setBrightness=7 0A000005");
    EXPECT_EQ(ask("getDebugLevel"), "DEBUG_LEVEL_I");
    EXPECT_EQ(plant.service.backlight, 1U);
    EXPECT_EQ(plant.findPanel(0x0A000005)->brightness, 1U);
}

TEST_F(Commands, backlight_belongs_to_the_panel)
{
    ask("setBacklight=0");
    EXPECT_EQ(plant.service.backlight, 0U);
    ask("setBacklight=1");
    EXPECT_EQ(plant.service.backlight, 1U);
}

TEST_F(Commands, brightness_belongs_to_one_station)
{
    ask("setBrightness=0 0A000005");
    ask("setBrightness=1 0A000006");
    EXPECT_EQ(plant.findPanel(0x0A000005)->brightness, 0U);
    EXPECT_EQ(plant.findPanel(0x0A000006)->brightness, 1U);
    EXPECT_EQ(plant.findPanel(0xC0A80007)->brightness, 1U);
}

TEST_F(Commands, lock_is_busy_until_it_is_released)
{
    EXPECT_EQ(ask("lockKVORegData"), "ok");
    EXPECT_EQ(ask("lockKVORegData"), "busy");
    EXPECT_EQ(ask("lockKVORegData"), "busy");
    EXPECT_EQ(ask("unlockKVORegData"), "ok");
    EXPECT_EQ(ask("unlockKVORegData"), "failed");
    EXPECT_EQ(ask("lockKVORegData"), "ok");
}

TEST_F(Commands, registry_path_ends_with_a_slash)
{
    EXPECT_EQ(ask("getregistrypath"), registry.path());
    EXPECT_TRUE(ask("getregistrypath").ends_with('/'));
}

TEST_F(Commands, init_is_complete_after_the_configured_time)
{
    plant.service.initTime = std::chrono::milliseconds(60'000);
    EXPECT_EQ(ask("isInitComplete"), "no");
    context.started -= std::chrono::milliseconds(59'000);
    EXPECT_EQ(ask("isInitComplete"), "no");
    context.started -= std::chrono::milliseconds(1'000);
    EXPECT_EQ(ask("isInitComplete"), "yes");
}

TEST_F(Commands, only_kill_daemon_ends_the_service)
{
    ask("getVersion");
    EXPECT_FALSE(context.ending);
    ask("killDaemon");
    EXPECT_TRUE(context.ending);
}

TEST_F(Commands, empty_plant_has_empty_lists)
{
    plant = kvosim::parsePlant("", "plant");
    EXPECT_EQ(ask("getCountElemDL"), "0");
    EXPECT_EQ(ask("getDLV2 0"), "00000000 ");
    EXPECT_EQ(ask("getDL_ExV2 0"), "00000000 ");
    EXPECT_EQ(ask("getExDescByIP 0A000005"), "not found");
}

}  // namespace
