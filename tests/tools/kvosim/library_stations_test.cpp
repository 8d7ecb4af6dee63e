// Stations as programs see them through the library: values that were set can be read back, and every result that the service
// can cause.
#include "support/eventually.h"
#include "tools/kvosim/commands/simulation.h"
#include "tools/kvosim/support/running_service.h"

#include <kvo_hws/kvo_hws.h>

#include <gmock/gmock.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <vector>

namespace {

using kvosim_test::plantWith;
using kvosim_test::RunningService;

constexpr uint32_t kA = 0x0A000005;
constexpr uint32_t kB = 0x0A000006;
constexpr uint32_t kUnknownStation = 0x0A0000FF;

TEST(LibraryStations, start_and_stop_the_viewer_and_report_its_server)
{
    const RunningService service(plantWith(""));
    char server[32] = {};
    char display[32] = {};
    uint32_t serverSize = sizeof server;
    uint32_t displaySize = sizeof display;
    EXPECT_EQ(KVO_HWS_isViewerActive(kA), 0);
    EXPECT_EQ(KVO_HWS_getCurrentServer(kA, server, &serverSize, display, &displaySize), 0);
    EXPECT_EQ(KVO_HWS_setStartViewer(kA, "nc1", "3", "shared"), 1);
    EXPECT_EQ(KVO_HWS_setStartViewer(kA, "nc1", "3", "shared"), 0) << "it is already running";
    EXPECT_EQ(KVO_HWS_isViewerActive(kA), 1);
    ASSERT_EQ(KVO_HWS_getCurrentServer(kA, server, &serverSize, display, &displaySize), 1);
    EXPECT_STREQ(server, "nc1");
    EXPECT_STREQ(display, "3");
    serverSize = 2;
    EXPECT_EQ(KVO_HWS_getCurrentServer(kA, server, &serverSize, display, &displaySize), -3);
    EXPECT_EQ(KVO_HWS_setStopViewer(kA), 1);
    EXPECT_EQ(KVO_HWS_setStopViewer(kA), 0);
    EXPECT_EQ(KVO_HWS_startConfiguredViewer(kA, "nc2", 1), 1);
    EXPECT_EQ(KVO_HWS_startConfiguredViewer(kA, "nc2", 1), 0);
    EXPECT_EQ(KVO_HWS_setStopViewerPreempt(kA), 1);
    EXPECT_EQ(KVO_HWS_setStopViewerNoClean(kA), 0);
    EXPECT_EQ(KVO_HWS_setStartViewer(kUnknownStation, "a", "b", "c"), -1);
}

TEST(LibraryStations, take_the_focus_show_a_status_line_and_reboot)
{
    RunningService service("[service]\nfocus_hold_ms = 60000\n" + plantWith("reboot_time_ms = 2000\nviewer = \"nc1:3\""));
    EXPECT_EQ(KVO_HWS_setActivateMe(kA), 1);
    EXPECT_EQ(KVO_HWS_setActivateMe(kB), 0);
    EXPECT_EQ(KVO_HWS_setStatusline(kA, 1, 4294967295, "Hello, \"you\""), 1);
    EXPECT_EQ(KVO_HWS_rebootKVO(kA), 1);
    KvoDescriptionEx record{};
    EXPECT_EQ(KVO_HWS_isViewerActive(kA), -1);
    EXPECT_EQ(KVO_HWS_getDescriptionEx(kA, nullptr, &record), 0);
    EXPECT_EQ(KVO_HWS_isMarovantiPanel(kA), -4);
    EXPECT_EQ(KVO_HWS_setActivateMe(kB), 1) << "the station lost the focus";
    EXPECT_TRUE(support::eventually([] { return KVO_HWS_isViewerActive(kA) == 0; }));
    EXPECT_EQ(KVO_HWS_getDescriptionEx(kA, nullptr, &record), 1);
    EXPECT_EQ(KVO_HWS_setStatusline(kA, 1, 4294967295, "Hello, \"you\""), 1);
    EXPECT_EQ(service.stop().findPanel(kA)->statusLine, "Hello, \"you\"");
}

TEST(LibraryStations, switch_the_backlight_in_both_modes)
{
    const RunningService service(plantWith("") + "backlight = 0\nbacklight_modes = 1\n");
    uint32_t level = 0;
    EXPECT_EQ(KVO_HWS_setBacklightBrightness(kA, 40), 1);
    EXPECT_EQ(KVO_HWS_setBacklightBrightnessV2(kA, 50, 1), 1);
    EXPECT_EQ(KVO_HWS_getBacklightBrightnessV2(kA, &level, 0), 1);
    EXPECT_EQ(level, 40U);
    EXPECT_EQ(KVO_HWS_getBacklightBrightnessV2(kA, &level, 1), 1);
    EXPECT_EQ(level, 50U);
    EXPECT_EQ(KVO_HWS_setBacklightBrightnessV2(kB, 50, 1), -5);
    EXPECT_EQ(KVO_HWS_setBacklightBrightnessV2(kB, 50, 0), -6);
    EXPECT_EQ(KVO_HWS_getBacklightBrightnessV2(kB, &level, 1), 0);
    EXPECT_EQ(KVO_HWS_getBacklightBrightnessV2(kUnknownStation, &level, 1), -1);
}

TEST(LibraryStations, report_keyboard_locks_and_type)
{
    const RunningService service(plantWith("station_type = -1"));
    uint32_t disabled = 7;
    int32_t state = 7;
    for (const uint32_t value : {1U, 0U}) {
        EXPECT_EQ(KVO_HWS_setDisableNumLock(kA, value), 1);
        EXPECT_EQ(KVO_HWS_getDisableNumLock(kA, &disabled), 1);
        EXPECT_EQ(disabled, value);
        EXPECT_EQ(KVO_HWS_setDisableCapsLock(kA, value), 1);
        EXPECT_EQ(KVO_HWS_getDisableCapsLock(kA, &disabled), 1);
        EXPECT_EQ(disabled, value);
    }
    for (const int32_t value : {1, -1, 0}) {
        EXPECT_EQ(KVO_HWS_setSwCapsLock(kA, value), 1);
        EXPECT_EQ(KVO_HWS_getSwCapsLock(kA, &state), 1);
        EXPECT_EQ(state, value);
    }
    EXPECT_EQ(KVO_HWS_getStationType(kA, &state), 1);
    EXPECT_EQ(state, -1);
}

TEST(LibraryStations, may_be_a_handheld_terminal)
{
    const RunningService service(plantWith("handheld = 1"));
    uint32_t mode = 7;
    EXPECT_EQ(KVO_HWS_setRV4Mode(kA, 1), 1);
    EXPECT_EQ(KVO_HWS_getRV4Mode(kA, &mode), 1);
    EXPECT_EQ(mode, 1U);
    EXPECT_EQ(KVO_HWS_setRV4Mode(kB, 1), 0);
    EXPECT_EQ(KVO_HWS_getRV4Mode(kB, &mode), 0);
}

TEST(LibraryStations, are_found_by_their_other_addresses)
{
    RunningService service(plantWith("dck_address = 9") + "cks_fixed = 1\n");
    uint32_t value = 0;
    EXPECT_EQ(KVO_HWS_setMCPAddress(kA, 255), 1);
    EXPECT_EQ(KVO_HWS_getMCPAddress(kA, &value), 1);
    EXPECT_EQ(value, 255U);
    EXPECT_EQ(KVO_HWS_setMCPAddress(kA, 1000), -1);
    EXPECT_EQ(KVO_HWS_setKVOIndex(kA, 3), 1);
    EXPECT_EQ(KVO_HWS_getKVOIndex(kA, &value), 1);
    EXPECT_EQ(value, 3U);
    EXPECT_EQ(KVO_HWS_setDCKEnable(kA, 1), 1);
    EXPECT_EQ(KVO_HWS_getDCKEnable(kA, &value), 1);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(KVO_HWS_setKVOCksIndex(kA, 255), 1);
    EXPECT_EQ(KVO_HWS_setKVOCksIndex(kB, 255), -1);
    EXPECT_EQ(KVO_HWS_getKVOCksIndex(kA, &value), 1);
    EXPECT_EQ(value, 255U);
    EXPECT_EQ(KVO_HWS_getDCKAddress(kA, &value), 1);
    EXPECT_EQ(value, 9U);

    uint32_t ip = 0;
    EXPECT_EQ(KVO_HWS_getIPbyMCPAddress(255, &ip), 1);
    EXPECT_EQ(ip, kA);
    EXPECT_EQ(KVO_HWS_getIPbyMCPAddress(254, &ip), 0);
    EXPECT_EQ(KVO_HWS_setMCPAddress(kB, 255), 1);
    EXPECT_EQ(KVO_HWS_getIPbyMCPAddress(255, &ip), -3);
    EXPECT_EQ(KVO_HWS_getIPbyDCKAddress(9, &ip), 1);
    EXPECT_EQ(KVO_HWS_getIPbyDCKAddress(8, &ip), 0);
    EXPECT_EQ(KVO_HWS_getIPbyKVOIndex(3, &ip), 1);
    EXPECT_EQ(KVO_HWS_setKVOIndex(kB, 3), 1);
    EXPECT_EQ(KVO_HWS_getIPbyKVOIndex(3, &ip), -3);

    EXPECT_EQ(KVO_HWS_simulateMCPKey(kA, 12, 1), 1);
    EXPECT_EQ(KVO_HWS_enableMCPKey(kA, 13, 0), 1);
    EXPECT_EQ(service.stop().findPanel(kA)->simulatedMcpKey, "12:1");
}

TEST(LibraryStations, report_focus_and_startup_settings)
{
    const RunningService service(plantWith("priority = \"1:10\"\nstartup_active = 2\nstartup_prio = 70\nchannel_on_focus = 8\n"
                                           "screen_on_focus = \"Main\"\nt2m2n = \"T1 M2 N3\""));
    uint32_t lock = 7;
    uint32_t value = 7;
    char text[64] = {};
    EXPECT_EQ(KVO_HWS_getKVOPriority(kA, &lock, &value), 1);
    EXPECT_EQ(lock, 1U);
    EXPECT_EQ(value, 10U);
    EXPECT_EQ(KVO_HWS_getKVOPriority(kB, &lock, &value), 1);
    EXPECT_EQ(lock, 0U);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(KVO_HWS_getKVOStartupActive(kA, &value), 1);
    EXPECT_EQ(value, 2U);
    EXPECT_EQ(KVO_HWS_getKVOStartupPrio(kA, &value), 1);
    EXPECT_EQ(value, 70U);
    EXPECT_EQ(KVO_HWS_getKVOChannelOnFocus(kA, &value), 1);
    EXPECT_EQ(value, 8U);
    EXPECT_EQ(KVO_HWS_getKVOScreenOnFocus(kA, text), 1);
    EXPECT_STREQ(text, "Main");
    EXPECT_EQ(KVO_HWS_getKVOT2M2N(kA, text), 1);
    EXPECT_STREQ(text, "T1 M2 N3");
    EXPECT_EQ(KVO_HWS_getKVOT2M2N(kUnknownStation, text), -1);
}

TEST(LibraryStations, store_channel_information)
{
    const RunningService service(plantWith(""));
    const std::string longest(230, 'x');
    char info[256] = {};
    uint32_t size = sizeof info;
    EXPECT_EQ(KVO_HWS_getChannelInfo(kA, info, &size), 0);
    EXPECT_EQ(KVO_HWS_setChannelInfo(kA, longest.c_str()), 1);
    EXPECT_EQ(KVO_HWS_getChannelInfo(kA, info, &size), 1);
    EXPECT_EQ(info, longest);
    size = 5;
    EXPECT_EQ(KVO_HWS_getChannelInfo(kA, info, &size), -3);
    EXPECT_EQ(size, 231U);
    EXPECT_EQ(KVO_HWS_deleteChannelInfo(kA), 1);
    EXPECT_EQ(KVO_HWS_getChannelInfo(kA, info, &size), 0);
}

TEST(LibraryStations, report_touch_screen_and_input_devices)
{
    const RunningService service(plantWith("multitouch = 1\nmaxcontacts = 10") + "touch = 0\nvkbd = \"none\"\n");
    int32_t threshold = 7;
    int32_t nonlinear = 7;
    EXPECT_EQ(KVO_HWS_setTouchScreenCalibParam(kA, 30, 1), 1);
    EXPECT_EQ(KVO_HWS_getTouchScreenCalibParam(kA, &threshold, &nonlinear), 1);
    EXPECT_EQ(threshold, 30);
    EXPECT_EQ(nonlinear, 1);
    EXPECT_EQ(KVO_HWS_invalidateTouchScreen(kA), 1);
    EXPECT_EQ(KVO_HWS_getTouchScreenCalibParam(kA, &threshold, &nonlinear), 1);
    EXPECT_EQ(threshold, -1);
    EXPECT_EQ(KVO_HWS_setTouchScreenCalibParam(kB, 0, 0), 0);
    EXPECT_EQ(KVO_HWS_getTouchScreenCalibParam(kB, &threshold, &nonlinear), 0);
    EXPECT_EQ(KVO_HWS_invalidateTouchScreen(kB), 0);

    uint32_t kbd = 7;
    uint32_t mouse = 7;
    uint32_t touch = 7;
    uint32_t multitouch = 7;
    uint32_t contacts = 7;
    uint32_t vkbd = 7;
    uint32_t mask = 0;
    EXPECT_EQ(KVO_HWS_showInputDevice(kA, &kbd, &mouse, &touch), 1);
    EXPECT_EQ(touch, 2U);
    EXPECT_EQ(KVO_HWS_showInputDeviceV3(kA, &mask, &kbd, &mouse, &touch, &multitouch, &contacts, &vkbd), 1);
    EXPECT_EQ(mask, 0x3FU);
    EXPECT_EQ(touch, 1U);
    EXPECT_EQ(multitouch, 1U);
    EXPECT_EQ(contacts, 10U);
    EXPECT_EQ(KVO_HWS_showInputDeviceV3(kB, &mask, &kbd, &mouse, &touch, &multitouch, &contacts, &vkbd), 1);
    EXPECT_EQ(mask, 0x0FU);
}

TEST(LibraryStations, report_usb_connectors)
{
    const RunningService service(plantWith("usb_connectors = \"X60:keyboard X61:free\"") +
                                 "[[faults]]\ncommand = \"getUsbConnectorList\"\nkind = \"failed\"\nafter = 1\n");
    char list[128] = {};
    uint32_t size = sizeof list;
    EXPECT_EQ(KVO_HWS_getUsbConnectorList(list, &size), 1);
    EXPECT_STREQ(list, "10.0.0.5 X60:keyboard X61:free");
    EXPECT_EQ(KVO_HWS_getUsbConnectorList(list, &size), -4);
    std::memset(list, 0, sizeof list);
    size = sizeof list;
    EXPECT_EQ(KVO_HWS_getUsbConnectorListOne(kA, list, &size), 1);
    EXPECT_STREQ(list, "X60:keyboard X61:free");
    EXPECT_EQ(KVO_HWS_getUsbConnectorListOne(kB, list, &size), 0);
    EXPECT_EQ(KVO_HWS_getUsbConnectorListOne(kUnknownStation, list, &size), -4);
}

TEST(LibraryStations, do_not_report_usb_connectors_during_a_scan)
{
    const RunningService service(plantWith("usb_scanning = 1"));
    uint32_t size = 0;
    EXPECT_EQ(KVO_HWS_getUsbConnectorList(nullptr, &size), -9);
    EXPECT_EQ(KVO_HWS_getUsbConnectorListOne(kA, nullptr, &size), -9);
}

TEST(LibraryStations, report_metrics_and_manufacturer)
{
    const RunningService service(plantWith("oem_layout = \"OP15BLK\"\nsoftkey_type = 2\nkeyboard_caps = 0x80000001\ndpi = 120\n"
                                           "hardware_caps = 0xFF\npanel_rotation = 3\nmarovanti = 0"));
    const uint32_t expected[] = {2, 0x80000001, 120, 0xFF, 3};
    char layout[8] = {};
    EXPECT_EQ(KVO_HWS_getStationMetrics(kA, 1, layout), 1);
    EXPECT_STREQ(layout, "OP15BLK");
    for (uint32_t metric = 2; metric <= 6; ++metric) {
        uint32_t value[2] = {};
        EXPECT_EQ(KVO_HWS_getStationMetrics(kA, metric, value), 1) << metric;
        EXPECT_EQ(value[0], expected[metric - 2]) << metric;
    }
    for (uint32_t metric = 1; metric <= 6; ++metric) {
        uint32_t value[2] = {};
        EXPECT_EQ(KVO_HWS_getStationMetrics(kB, metric, value), -4) << metric;
        EXPECT_EQ(KVO_HWS_getStationMetrics(kUnknownStation, metric, value), -1) << metric;
    }
    int32_t dpi = 0;
    EXPECT_EQ(KVO_HWS_showDPI(kA, &dpi), 1);
    EXPECT_EQ(dpi, 120);
    EXPECT_EQ(KVO_HWS_isMarovantiPanel(kA), 0);
    EXPECT_EQ(KVO_HWS_isMarovantiPanel(kB), 1);
    EXPECT_EQ(KVO_HWS_isMarovantiPanel(kUnknownStation), -4);
}

TEST(LibraryClients, are_listed)
{
    const RunningService service("[[client]]\nname = \"HMI 1\"\nvalue = 31\n\n[[client]]\nname = \"Logger\"\n");
    std::vector<KvoClientEntry> clients(2);
    uint32_t count = 1;
    EXPECT_EQ(KVO_HWS_getClientList(clients.data(), &count, ULONG_MAX), -3);
    EXPECT_EQ(count, 2U);
    ASSERT_EQ(KVO_HWS_getClientList(clients.data(), &count, 0), 1);
    EXPECT_STREQ(clients[0].name, "HMI 1");
    EXPECT_EQ(clients[0].value, 31U);
    EXPECT_STREQ(clients[1].name, "Logger");
}

}  // namespace
