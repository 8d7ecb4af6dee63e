// Generated plants: the same seed gives the same plant, and every plant can be loaded.
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

TEST(PlantGenerator, generates_a_plant_that_can_be_loaded)
{
    for (const uint32_t count : {0U, 1U, 254U, 255U, 10'000U}) {
        EXPECT_EQ(kvosim::parsePlant(generated(count), "generated").stations().size(), count);
    }
}

TEST(PlantGenerator, generates_the_same_plant_for_the_same_seed)
{
    EXPECT_EQ(generated(500, 7), generated(500, 7));
    EXPECT_NE(generated(500, 7), generated(500, 8));
}

// The plant is the same on every machine and with every compiler. A change here changes the plants of all users.
TEST(PlantGenerator, generates_a_fixed_first_station)
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

TEST(PlantGenerator, skips_network_and_broadcast_addresses)
{
    const std::string text = generated(255);
    const kvosim::Plant plant = kvosim::parsePlant(text, "generated");
    EXPECT_EQ(plant.stations().front().address, 0x0A000001U);
    EXPECT_EQ(plant.stations()[253].address, 0x0A0000FEU);
    EXPECT_EQ(plant.stations()[254].address, 0x0A000101U);
}

TEST(PlantGenerator, uses_the_full_range_of_attributes)
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
