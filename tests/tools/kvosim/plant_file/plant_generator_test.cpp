// Generated plants: always the same, always loadable.
#include "kvosim/plant_file/plant_file.h"
#include "kvosim/plant_file/plant_generator.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace {

std::string generated(uint32_t count, uint64_t seed = 1)
{
    std::ostringstream text;
    kvosim::generatePlant(text, count, seed);
    return text.str();
}

TEST(PlantGenerator, plant_loads_again)
{
    for (const uint32_t count : {0U, 1U, 254U, 255U, 10'000U}) {
        EXPECT_EQ(kvosim::parsePlant(generated(count), "generated").stations().size(), count);
    }
}

TEST(PlantGenerator, same_seed_gives_the_same_plant)
{
    EXPECT_EQ(generated(500, 7), generated(500, 7));
    EXPECT_NE(generated(500, 7), generated(500, 8));
}

// The same on every machine and with every compiler: a change here changes everybody's plants.
TEST(PlantGenerator, first_station_is_known)
{
    EXPECT_EQ(generated(1), R"(# 1 generated stations, seed 1

[service]
version = "V01.00.00.00"

[[station]]
address = "10.0.0.1"
name = "Line 1 Lathe 1"
attr1 = 930
attr2 = 384
attr3 = 628
ext = [848, 0, 277, 180, 169, 523, 783]
)");
}

TEST(PlantGenerator, addresses_skip_the_nets_own)
{
    const std::string text = generated(255);
    const kvosim::Plant plant = kvosim::parsePlant(text, "generated");
    EXPECT_EQ(plant.stations().front().address, 0x0A000001U);
    EXPECT_EQ(plant.stations()[253].address, 0x0A0000FEU);
    EXPECT_EQ(plant.stations()[254].address, 0x0A000101U);
}

TEST(PlantGenerator, attributes_reach_the_ends_of_their_range)
{
    const std::string text = generated(1000);
    const kvosim::Plant plant = kvosim::parsePlant(text, "generated");
    std::set<uint32_t> values;
    for (const ConnectionEntry &station : plant.stations()) {
        values.insert({station.attr1, station.attr2, station.attr3});
    }
    EXPECT_TRUE(values.contains(0));
    EXPECT_TRUE(values.contains(0xFFFFFFFF));
    EXPECT_GT(values.size(), 500U);
}

}  // namespace
