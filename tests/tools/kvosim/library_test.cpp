// The service as programs see it through the library.
#include "kvosim/plant_file/plant_generator.h"
#include "support/counted_pauses.h"
#include "support/eventually.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/running_service.h"

#include <kvo_hws/kvo_hws.h>

#include <gmock/gmock.h>

#include <chrono>
#include <sstream>
#include <vector>

namespace {

using kvosim_test::exchange;
using kvosim_test::RunningService;
using testing::ElementsAre;

std::string generated(uint32_t count)
{
    std::ostringstream text;
    kvosim::generatePlant(text, count, 1);
    return text.str();
}

TEST(Library, reads_the_version)
{
    const RunningService service;
    char version[32] = {};
    unsigned size = sizeof version;
    EXPECT_EQ(KVO_HWS_getKVOHWSVersion(version, &size), 1);
    EXPECT_STREQ(version, "V09.08");
}

TEST(Library, sets_and_reads_the_debug_level)
{
    const RunningService service;
    for (const int level : {2, 1, 0}) {
        EXPECT_EQ(KVO_HWS_setDebugLevel(level), 1);
        EXPECT_EQ(KVO_HWS_getDebugLevel(), level);
    }
}

TEST(Library, switches_backlight_and_brightness)
{
    RunningService service;
    EXPECT_EQ(KVO_HWS_setBacklight(0), 1);
    EXPECT_EQ(KVO_HWS_setBrightness(0x0A000005, 0), 1);
    EXPECT_EQ(KVO_HWS_setBrightness(0x0A000006, 1), 1);
    EXPECT_EQ(KVO_HWS_setBrightness(0x0A000004, 1), -1);

    kvosim::Plant &plant = service.stop();
    EXPECT_EQ(plant.service.backlight, 0U);
    EXPECT_EQ(plant.findPanel(0x0A000005)->brightness, 0U);
    EXPECT_EQ(plant.findPanel(0x0A000006)->brightness, 1U);
}

TEST(Library, acquires_and_releases_the_registry_lock)
{
    const RunningService service;
    EXPECT_EQ(KVO_HWS_unlockKVORegData(), -1);
    EXPECT_EQ(KVO_HWS_lockKVORegData(), 1);
    EXPECT_EQ(KVO_HWS_lockKVORegData(), 0);
    EXPECT_EQ(KVO_HWS_unlockKVORegData(), 1);
    EXPECT_EQ(KVO_HWS_lockKVORegData(), 1);
}

TEST(Library, waits_for_the_service_to_be_ready)
{
    const auto started = std::chrono::steady_clock::now();
    const RunningService service("[service]\ninit_time_ms = 2000\n");
    EXPECT_EQ(KVO_HWS_isInitComplete(), 0);
    ASSERT_TRUE(support::eventually([] { return KVO_HWS_isInitComplete() != 0; }));
    EXPECT_EQ(KVO_HWS_isInitComplete(), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::seconds(2));
}

TEST(Library, reads_the_list)
{
    const RunningService service;
    std::vector<KvoDescription> list(5);
    uint32_t count = 5;
    ASSERT_EQ(KVO_HWS_getDescriptionList(list.data(), &count), 1);
    ASSERT_EQ(count, 3U);
    EXPECT_EQ(list[0].address, 0x0A000005U);
    EXPECT_STREQ(list[0].name, "Lathe 1");
    EXPECT_THAT((std::vector{list[0].attr1, list[0].attr2, list[0].attr3}), ElementsAre(1U, 2U, 3U));
    EXPECT_STREQ(list[1].name, "Fräse");
    EXPECT_EQ(list[1].attr1, 0xFFFFFFFFU);
    EXPECT_EQ(list[2].address, 0xC0A80007U);
}

TEST(Library, reads_the_required_size_of_the_lists)
{
    const RunningService service;
    KvoDescription one{};
    uint32_t count = 1;
    EXPECT_EQ(KVO_HWS_getDescriptionList(&one, &count), -3);
    EXPECT_EQ(count, 3U);
    count = 0;
    EXPECT_EQ(KVO_HWS_getDescriptionListEx(nullptr, &count), -3);
    EXPECT_EQ(count, 3U);
}

TEST(Library, reads_the_extended_list)
{
    const RunningService service;
    std::vector<KvoDescriptionEx> list(3);
    uint32_t count = 3;
    ASSERT_EQ(KVO_HWS_getDescriptionListEx(list.data(), &count), 1);
    ASSERT_EQ(count, 3U);
    EXPECT_THAT((std::vector{list[0].extAttr1, list[0].extAttr2, list[0].extAttr3, list[0].extAttr4, list[0].extAttr5,
                             list[0].extAttr6, list[0].extAttr7}),
                ElementsAre(11U, 12U, 13U, 14U, 15U, 16U, 17U));
    EXPECT_STREQ(list[2].name, "No attributes");
    EXPECT_EQ(list[2].extAttr7, 0U);
}

TEST(Library, finds_single_stations)
{
    const RunningService service;
    KvoDescriptionEx record{};
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0xC0A80007, nullptr, &record), 1);
    EXPECT_STREQ(record.name, "No attributes");
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0, "Lathe 1", &record), 1);
    EXPECT_EQ(record.address, 0x0A000005U);
    EXPECT_EQ(record.extAttr7, 17U);
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0x01020304, nullptr, &record), 0);
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0, "Lathe 2", &record), 0);
    EXPECT_EQ(KVO_HWS_getDescriptionEx(0, "", &record), -1);
}

TEST(Library, reads_both_registry_lists)
{
    const RunningService service;
    std::vector<KvoDescription> list(4);
    uint32_t count = 4;
    ASSERT_EQ(KVO_HWS_getKVOCurrentListFromRegistry(list.data(), &count, 1), 1);
    EXPECT_EQ(count, 2U) << "the reader skips the station without attr1";
    EXPECT_STREQ(list[1].name, "Fräse");
    EXPECT_EQ(list[1].attr1, 0xFFFFFFFFU);

    list.assign(4, {});
    count = 4;
    ASSERT_EQ(KVO_HWS_getKVOPreviousListFromRegistry(list.data(), &count, 1), 1);
    EXPECT_EQ(count, 1U);
    EXPECT_STREQ(list[0].name, "Gone");
    EXPECT_EQ(KVO_HWS_lockKVORegData(), 1) << "both readers have released the lock";
}

TEST(Library, does_not_read_the_registry_while_it_is_locked_or_the_service_starts)
{
    KvoDescription one{};
    uint32_t count = 1;
    {
        const RunningService service("[service]\ninit_time_ms = 60000\n");
        EXPECT_EQ(KVO_HWS_getKVOCurrentListFromRegistry(&one, &count, 0), 0);
    }
    const RunningService service;
    ASSERT_EQ(KVO_HWS_lockKVORegData(), 1);
    EXPECT_EQ(KVO_HWS_getKVOCurrentListFromRegistry(&one, &count, 0), -4);
}

TEST(Library, ends_the_service)
{
    RunningService service;
    EXPECT_EQ(KVO_HWS_killDaemon(), 1);
    EXPECT_EQ(KVO_HWS_isInitComplete(), -2) << "no process listens after the reply";
    service.join();
    EXPECT_FALSE(std::filesystem::exists(kvosim_test::kCommandSocket));
}

TEST(Library, reads_a_large_list_without_a_pause)
{
    constexpr uint32_t kStations = 10'000;
    const RunningService service(generated(kStations));
    std::vector<KvoDescriptionEx> list(kStations);
    uint32_t count = kStations;
    const support::CountedPauses pauses;
    ASSERT_EQ(KVO_HWS_getDescriptionListEx(list.data(), &count), 1);
    EXPECT_EQ(count, kStations);
    EXPECT_TRUE(std::string(list.back().name).starts_with("Line 250 ")) << list.back().name;
    // A pause follows a read of less than one KiB. The service sends larger pieces, except for the last one.
    EXPECT_LE(pauses.count(), 5);
}

// Lines that the library never sends.
TEST(Library, service_accepts_lines_of_other_clients)
{
    const RunningService service;
    EXPECT_EQ(exchange("getVersion\n"), "V09.08\n");
    EXPECT_EQ(exchange("getVersion\r\n"), "V09.08\n");
    EXPECT_EQ(exchange("getVersion\nkillDaemon\n"), "V09.08\n") << "one request per connection";
    EXPECT_EQ(exchange("\n"), "failed\n");
    EXPECT_EQ(exchange("\r\n"), "failed\n");
    EXPECT_EQ(exchange(std::string("get\0Version\n", 12)), "failed\n");
}

}  // namespace
