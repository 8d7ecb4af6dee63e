// The program against the simulated service, end to end: values that one call sets are shown by the next one.
#include "tools/kvoctl/support/kvoctl.h"
#include "tools/kvosim/support/running_service.h"

#include "kvosim/plant_file/plant_generator.h"

#include <sstream>

namespace kvoctl_test {

namespace {

using kvosim_test::RunningService;

TEST(Simulation, shows_its_stations)
{
    const RunningService service;
    EXPECT_EQ(kvoctl({"stations"}).out, "ADDRESS      NAME                ATTR1  ATTR2  ATTR3\n"
                                        "10.0.0.5     Lathe 1                 1      2      3\n"
                                        "10.0.0.6     Fräse          4294967295      0      0\n"
                                        "192.168.0.7  No attributes           0      0      0\n"
                                        "3 stations\n");
}

TEST(Simulation, shows_its_stations_with_extended_attributes)
{
    const RunningService service;
    const std::string zeros = R"("ext_attr1": 0, "ext_attr2": 0, "ext_attr3": 0, "ext_attr4": 0, "ext_attr5": 0, "ext_attr6": 0,
        "ext_attr7": 0)";
    EXPECT_EQ(kvoctl({"stations", "--extended", "--json"}).document().dump(), Json::parse(R"({"stations": [
        {"address": "10.0.0.5", "name": "Lathe 1", "attr1": 1, "attr2": 2, "attr3": 3, "ext_attr1": 11, "ext_attr2": 12,
         "ext_attr3": 13, "ext_attr4": 14, "ext_attr5": 15, "ext_attr6": 16, "ext_attr7": 17},
        {"address": "10.0.0.6", "name": "Fräse", "attr1": 4294967295, "attr2": 0, "attr3": 0, )" +
                                                                                          zeros + R"(},
        {"address": "192.168.0.7", "name": "No attributes", "attr1": 0, "attr2": 0, "attr3": 0, )" +
                                                                                          zeros + "}]}")
                                                                                  .dump());
}

TEST(Simulation, shows_its_registry_lists)
{
    const RunningService service;
    EXPECT_EQ(kvoctl({"stations", "--previous", "--json"}).document(),
              Json::parse(R"({"stations": [{"address": "10.0.0.4", "name": "Gone", "attr1": 4, "attr2": 0, "attr3": 0}]})"));
    // A registry list leaves out stations without attr1.
    EXPECT_THAT(kvoctl({"stations", "--current"}).out, testing::EndsWith("\n2 stations\n"));
}

TEST(Simulation, finds_a_station_by_a_name_with_multibyte_characters)
{
    const RunningService service;
    EXPECT_EQ(kvoctl({"station", "Fräse", "--json"}).document()["address"], "10.0.0.6");
}

TEST(Simulation, keeps_values_that_were_set)
{
    RunningService service;
    EXPECT_EQ(kvoctl({"brightness", "Fräse", "on"}).status, 0);
    EXPECT_EQ(kvoctl({"brightness", "C0A80007", "off"}).status, 0);
    EXPECT_EQ(kvoctl({"backlight", "off"}).status, 0);
    EXPECT_EQ(kvoctl({"debug-level", "II"}).status, 0);
    EXPECT_EQ(kvoctl({"debug-level"}).out, "II\n");
    EXPECT_THAT(kvoctl({"version"}).out, testing::StartsWith("library  V%#.%#.#%.#%\nservice  V09.08\n"));
    kvosim::Plant &plant = service.stop();
    EXPECT_EQ(plant.findPanel(0x0A000006)->brightness, 1U);
    EXPECT_EQ(plant.findPanel(0xC0A80007)->brightness, 0U);
    EXPECT_EQ(plant.service.backlight, 0U);
}

TEST(Simulation, lists_all_of_ten_thousand_stations)
{
    std::ostringstream plant;
    kvosim::generatePlant(plant, 10000, 1);
    const RunningService service(plant.str());
    const Ended ended = kvoctl({"stations", "--extended", "--json"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.document()["stations"].size(), 10000U);
}

TEST(Simulation, ends_on_kill_daemon)
{
    RunningService service;
    EXPECT_EQ(kvoctl({"kill-daemon"}).status, 0);
    service.join();
    EXPECT_EQ(kvoctl({"ready"}).status, 3);
}

}  // namespace

}  // namespace kvoctl_test
