// The values of the requests: enumerations, flags and stations.
#include <kvo_hws/kvo_hws.hpp>

#include "support/catalogue_service.h"

#include <gmock/gmock.h>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using kvo::Address;
using kvo::Service;
using kvo::Station;
using support::replies;
using support::ScriptedService;
using testing::ElementsAre;

const Station kStation("10.0.0.5");

TEST(Stations, are_addresses)
{
    static_assert(std::is_trivially_copyable_v<Station> && sizeof(Station) == sizeof(uint32_t));
    static_assert(!std::is_convertible_v<const char *, Station>, "a text may be malformed");
    EXPECT_EQ(kStation, Station(Address(0x0A000005)));
    EXPECT_NE(kStation, Station(Address(6)));
    EXPECT_EQ(kStation.address().to_string(), "10.0.0.5");
    EXPECT_THROW(Station("10.0.0"), kvo::Exception);
}

TEST(Stations, send_nothing_until_they_are_asked)
{
    const ScriptedService service({replies("mcpaddr=7")});
    const Station station("10.0.0.6");
    EXPECT_THAT(service.requests(), testing::IsEmpty());
    EXPECT_EQ(station.mcp_address().value(), 7U);
    EXPECT_THAT(support::commandsOf(service), ElementsAre("getMCPAddress=0A000006"));
}

TEST(Enumerations, are_sent_as_their_numbers)
{
    const ScriptedService service({replies("ok")});
    kStation.set_brightness(kvo::Brightness::dark).value();
    kStation.set_brightness(kvo::Brightness::bright).value();
    Service::set_backlight(kvo::Backlight::off).value();
    Service::set_backlight(kvo::Backlight::on).value();
    EXPECT_TRUE(kStation.set_rv4_mode(kvo::Rv4Mode::automatic).value());
    EXPECT_TRUE(kStation.set_rv4_mode(kvo::Rv4Mode::individual).value());
    Service::set_debug_level(kvo::DebugLevel::none).value();
    Service::set_debug_level(kvo::DebugLevel::level_1).value();
    Service::set_debug_level(kvo::DebugLevel::level_2).value();
    EXPECT_THAT(support::commandsOf(service),
                ElementsAre("setBrightness=0 0A000005", "setBrightness=1 0A000005", "setBacklight=0", "setBacklight=1",
                            "setRV4Mode=\"0\" 0A000005", "setRV4Mode=\"1\" 0A000005", "setDebugLevel=DEBUG_LEVEL_NONE",
                            "setDebugLevel=DEBUG_LEVEL_I", "setDebugLevel=DEBUG_LEVEL_II"));
}

TEST(Enumerations, are_read_from_their_numbers)
{
    const ScriptedService service({replies("DEBUG_LEVEL_NONE"), replies("DEBUG_LEVEL_I"), replies("DEBUG_LEVEL_II"),
                                   replies("rv4mode=1"), replies("rv4mode=7"), replies("not_a_rv4")});
    EXPECT_EQ(Service::debug_level().value(), kvo::DebugLevel::none);
    EXPECT_EQ(Service::debug_level().value(), kvo::DebugLevel::level_1);
    EXPECT_EQ(Service::debug_level().value(), kvo::DebugLevel::level_2);
    EXPECT_EQ(kStation.rv4_mode().value(), kvo::Rv4Mode::individual);
    EXPECT_EQ(kStation.rv4_mode().value(), kvo::Rv4Mode{7}) << "a number without a name";
    EXPECT_FALSE(kStation.rv4_mode().value().has_value());
}

struct NamedMetric {
    kvo::Metric metric;
    std::string command;
    std::string reply;
    uint32_t value;
};

TEST(Metrics, have_names)
{
    const std::vector<NamedMetric> metrics = {
        {kvo::Metric::soft_key_type, "getSoftkeyType=0A000005", "softkey-type=10", 0x10},
        {kvo::Metric::keyboard_capabilities, "getKeyBoardCaps=0A000005", "keyboard-caps=11", 0x11},
        {kvo::Metric::dpi, "showDPI=0A000005", "dpi=96", 96},
        {kvo::Metric::hardware_capabilities, "getHardwareCaps=0A000005", "hardware-caps=12", 0x12},
        {kvo::Metric::panel_rotation, "getPanelRotation=0A000005", "panel-rotation=3", 3},
    };
    for (const NamedMetric &row : metrics) {
        const ScriptedService service({replies(row.reply)});
        EXPECT_EQ(kStation.metric(row.metric).value(), row.value);
        EXPECT_THAT(support::commandsOf(service), ElementsAre(row.command));
    }
}

// The text would be read as a number.
TEST(Metrics, that_are_texts_are_not_numbers)
{
    const ScriptedService service({replies("panel-oem-layout=A")});
    const auto layout = kStation.metric(kvo::Metric{1});
    ASSERT_FALSE(layout);
    EXPECT_EQ(layout.error().meaning(), kvo::Errc::out_of_range);
    EXPECT_THAT(service.requests(), testing::IsEmpty());
    EXPECT_EQ(kStation.panel_layout().value(), "A");
}

TEST(InputDevices, that_the_station_does_not_report_are_empty)
{
    const ScriptedService service({replies("mouse=2 multitouch=3")});
    const auto first = kStation.show_input_device().value();
    EXPECT_FALSE(first.keyboards);
    EXPECT_EQ(first.mice, 2U);
    EXPECT_EQ(first.touch, 3U) << "including multi-touch devices";
    EXPECT_FALSE(first.multitouch || first.max_contacts || first.virtual_keyboards);
    EXPECT_FALSE(kStation.show_input_device_v2().value().virtual_keyboards);
    const auto third = kStation.show_input_device_v3().value();
    EXPECT_FALSE(third.keyboards || third.touch || third.max_contacts || third.virtual_keyboards);
    EXPECT_EQ(third.mice, 2U);
    EXPECT_EQ(third.multitouch, 3U);
}

TEST(InputDevices, all_have_a_member)
{
    const ScriptedService service({replies("kbd=1 mouse=2 touch=3 multitouch=4 maxcontacts=5 vkbd=6")});
    const auto devices = kStation.show_input_device_v3().value();
    EXPECT_EQ(devices.keyboards, 1U);
    EXPECT_EQ(devices.mice, 2U);
    EXPECT_EQ(devices.touch, 3U);
    EXPECT_EQ(devices.multitouch, 4U);
    EXPECT_EQ(devices.max_contacts, 5U);
    EXPECT_EQ(devices.virtual_keyboards, 6U);
    EXPECT_EQ(kStation.show_input_device_v2().value().virtual_keyboards, 6U);
    EXPECT_EQ(kStation.show_input_device_v2().value().touch, 7U);
}

TEST(SuspendOptions, are_named)
{
    const ScriptedService service({replies("Priority=1:7"), replies("Priority=")});
    const auto options = kStation.priority().value();
    EXPECT_TRUE(options.suspend_lock);
    EXPECT_EQ(options.suspend_prio, 7U);
    const auto defaults = kStation.priority().value();
    EXPECT_FALSE(defaults.suspend_lock);
    EXPECT_EQ(defaults.suspend_prio, 1U);
}

// Some functions of C answer "no" with 0, which is a value.
TEST(Answers, of_no_are_values)
{
    const ScriptedService service({replies("no"), replies("busy"), replies("not running"), replies("no_mcp_address"),
                                   replies("none"), replies("channel-info="), replies("usb-connector-list=")});
    EXPECT_FALSE(Service::is_init_complete().value());
    EXPECT_FALSE(kStation.activate_me().value());
    EXPECT_FALSE(kStation.stop_viewer().value());
    EXPECT_FALSE(Service::ip_by_mcp_address(3).value().has_value());
    EXPECT_FALSE(kStation.current_server().value().has_value());
    EXPECT_FALSE(kStation.channel_info().value().has_value());
    EXPECT_EQ(Service::usb_connector_list().value(), "");
}

TEST(LookUps, return_addresses)
{
    const ScriptedService service({replies("ipaddr=0A000007")});
    EXPECT_EQ(Service::ip_by_mcp_address(3).value(), Address("10.0.0.7"));
    EXPECT_EQ(Service::ip_by_dck_address(3).value(), Address("10.0.0.7"));
    EXPECT_EQ(Service::ip_by_index(3).value(), Address("10.0.0.7"));
}

}  // namespace
