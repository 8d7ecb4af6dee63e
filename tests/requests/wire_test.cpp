// One request of each family, byte by byte and independent of the catalogue: an error in the catalogue cannot be repeated here.
#include <kvo_hws/requests.h>
#include <kvo_hws/service.h>

#include "support/scripted_service.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using support::ScriptedService;
using Lines = std::vector<std::string>;

TEST(Wire, has_the_expected_bytes_for_the_service)
{
    const ScriptedService service({support::replies("yes")});
    EXPECT_EQ(KVO_HWS_isInitComplete(), 1);
    EXPECT_EQ(service.requests(), Lines{"isInitComplete\n"});
}

TEST(Wire, has_the_expected_bytes_for_station_lists)
{
    const ScriptedService service(
        {support::replies("1"), support::replies("00000001 C0A80102 00000400 00000300 00000010 00000007 Lathe 1 ")});
    KvoDescription list[2] = {};
    uint32_t count = 2;
    EXPECT_EQ(KVO_HWS_getDescriptionList(list, &count), 1);
    EXPECT_EQ(service.requests(), (Lines{"getCountElemDL\n", "getDLV2 2\n"}));
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(list[0].address, 0xC0A80102U);
    EXPECT_STREQ(list[0].name, "Lathe 1");
    EXPECT_EQ(list[0].attr1, 1024U);
    EXPECT_EQ(list[0].attr2, 768U);
    EXPECT_EQ(list[0].attr3, 16U);
    EXPECT_EQ(list[1].address, 0U);
}

TEST(Wire, has_the_expected_bytes_for_the_viewer)
{
    const ScriptedService service({support::replies("vncserver=192.168.1.7:2")});
    char server[16] = {};
    char display[4] = {};
    uint32_t serverSize = sizeof server;
    uint32_t displaySize = sizeof display;
    EXPECT_EQ(KVO_HWS_getCurrentServer(0xC0A80102, server, &serverSize, display, &displaySize), 1);
    EXPECT_EQ(service.requests(), Lines{"getCurServer=C0A80102\n"});
    EXPECT_STREQ(server, "192.168.1.7");
    EXPECT_STREQ(display, "2");
    EXPECT_EQ(serverSize, 12U);
    EXPECT_EQ(displaySize, 2U);
}

TEST(Wire, has_the_expected_bytes_for_panel_settings)
{
    const ScriptedService service({support::replies("diable capslock 1")});  // the daemon's spelling
    uint32_t disabled = 7;
    EXPECT_EQ(KVO_HWS_getDisableCapsLock(0xC0A80102, &disabled), 1);
    EXPECT_EQ(service.requests(), Lines{"getDisableCapsLock=C0A80102\n"});
    EXPECT_EQ(disabled, 1U);
}

TEST(Wire, has_the_expected_bytes_for_addressing)
{
    const ScriptedService service({support::replies("more_than_one_dck")});
    uint32_t station = 7;
    EXPECT_EQ(KVO_HWS_getIPbyDCKAddress(0xAB, &station), -3);
    EXPECT_EQ(service.requests(), Lines{"getIPbyDCKAddress=000000AB\n"});
    EXPECT_EQ(station, 7U);
}

TEST(Wire, has_the_expected_bytes_for_the_focus)
{
    const ScriptedService service({support::replies("Priority=1:9")});
    uint32_t lock = 7;
    uint32_t priority = 7;
    EXPECT_EQ(KVO_HWS_getKVOPriority(0xC0A80102, &lock, &priority), 1);
    EXPECT_EQ(service.requests(), Lines{"getKVOPriority=C0A80102\n"});
    EXPECT_EQ(lock, 1U);
    EXPECT_EQ(priority, 9U);
}

TEST(Wire, has_the_expected_bytes_for_input_devices)
{
    const ScriptedService service({support::replies("ok")});
    EXPECT_EQ(KVO_HWS_setTouchScreenCalibParam(0xC0A80102, 35, -1), 1);
    EXPECT_EQ(service.requests(), Lines{"setCalibParam=\"35:-1\" C0A80102\n"});
}

TEST(Wire, has_the_expected_bytes_for_metrics)
{
    const ScriptedService service({support::replies("panel-oem-layout=QWERTZ")});
    char layout[8] = {};
    EXPECT_EQ(KVO_HWS_getStationMetrics(0xC0A80102, 1, layout), 1);
    EXPECT_EQ(service.requests(), Lines{"getPaneOemLayout=C0A80102\n"});  // the daemon's spelling
    EXPECT_STREQ(layout, "QWERTZ");
}

TEST(Wire, has_the_expected_bytes_for_the_usb_lock)
{
    const ScriptedService service({support::replies("usb-lock=3:4")});
    uint32_t first = 7;
    uint32_t second = 7;
    EXPECT_EQ(KVO_HWS_getUsbLock(0xC0A80102, &first, &second), 1);
    EXPECT_EQ(service.requests(), Lines{"getUsbLock=C0A80102\n"});
    EXPECT_EQ(first, 3U);
    EXPECT_EQ(second, 4U);
}

}  // namespace
