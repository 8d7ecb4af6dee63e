// Devices at the USB ports of a station, and their effects on the lists, the lock and the commands.
#include "kvosim/plant/usb_ports.h"

#include "kvosim/commands/commands.h"
#include "kvosim/plant_file/plant_file.h"

#include <gmock/gmock.h>

namespace {

using kvosim::UsbDevice;
using kvosim::UsbEvent;
using kvosim::UsbNotification;
using testing::HasSubstr;
using testing::ThrowsMessage;
using tools::Refused;

constexpr const char *kPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "A"
usb_connectors = "X60:keyboard X61:free"

[[station]]
address = "10.0.0.6"
name = "B"
)toml";

class UsbPorts : public testing::Test {
protected:
    std::string ask(std::string_view request) { return kvosim::answer(context, request); }
    kvosim::Station station(uint32_t address) { return *plant.findStation(address); }
    UsbNotification plugNew(const kvosim::Station &at) { return plug(at, newUsbDeviceFor(at.panel)); }

    kvosim::Plant plant = kvosim::parsePlant(kPlant, "plant");
    kvosim::Registry registry{std::nullopt};
    kvosim::ServiceContext context{.plant = plant, .registry = registry};
    kvosim::Station a = station(0x0A000005);
    kvosim::Station b = station(0x0A000006);
};

TEST_F(UsbPorts, contain_the_plugged_in_devices)
{
    EXPECT_THAT(plugNew(a).text(), HasSubstr("newUSBdevice*10.0.0.5*usb1*1-1.1*"));
    EXPECT_THAT(plugNew(a).text(), HasSubstr("newUSBdevice*10.0.0.5*usb2*1-1.2*"));
    EXPECT_THAT(plugNew(b).text(), HasSubstr("newUSBdevice*10.0.0.6*usb1*1-1.1*"));
    EXPECT_EQ(changeState(a, "usb2", 5).text(), "changeStateUSBdevice*10.0.0.5*usb2*1-1.2*00000005*");
    EXPECT_EQ(a.panel.usbDevices[1].source.state, 5U);
    EXPECT_EQ(unplug(a, "usb1").text(), "removeUSBdevice*10.0.0.5*usb1*1-1.1*");
    ASSERT_EQ(a.panel.usbDevices.size(), 1U);
    EXPECT_EQ(ident2Of(a.panel.usbDevices[0]), "usb2");
    EXPECT_EQ(b.panel.usbDevices.size(), 1U);
}

TEST_F(UsbPorts, do_not_contain_a_refused_device)
{
    const UsbNotification news = refuse(a, newUsbDeviceFor(a.panel));
    EXPECT_EQ(news.text(), "ignoreUSBdevice*10.0.0.5*usb1*1-1.1*Simulated device*1.00*refused*00000000*00000000*0000*");
    EXPECT_TRUE(a.panel.usbDevices.empty());
}

TEST_F(UsbPorts, find_a_device_by_either_ident)
{
    plugNew(a);
    plugNew(a);
    EXPECT_EQ(ident2Of(unplug(a, "1-1.2").device), "usb2");
    EXPECT_EQ(ident2Of(unplug(a, "usb1*1-1.1").device), "usb1");
}

UsbDevice called(const std::string &ident2, const std::string &ident3)
{
    UsbDevice device = kvosim::newUsbDevice({});
    EXPECT_EQ(assign(*kvosim::findUsbKey("ident2"), device, ident2), "");
    EXPECT_EQ(assign(*kvosim::findUsbKey("ident3"), device, ident3), "");
    return device;
}

TEST_F(UsbPorts, refuse_an_ambiguous_ident)
{
    plug(a, called("x", "1"));
    plug(a, called("x", "2"));
    plug(a, called("y", "1"));
    EXPECT_THAT(
        [&] { unplug(a, "x"); },
        ThrowsMessage<tools::Refused>("several devices match \"x\" at 10.0.0.5; write one of \"x*1\", \"x*2\", \"y*1\""));
    EXPECT_EQ(a.panel.usbDevices.size(), 3U);
    EXPECT_EQ(ident3Of(unplug(a, "x*1").device), "1");
    EXPECT_EQ(ident2Of(unplug(a, "1").device), "y");
}

TEST_F(UsbPorts, refuse_an_unknown_device)
{
    EXPECT_THAT([&] { unplug(a, "usb1"); },
                ThrowsMessage<tools::Refused>("no device \"usb1\" at 10.0.0.5; plugged in there: nothing"));
    plugNew(b);
    EXPECT_THAT([&] { changeState(b, "usb9", 1); },
                ThrowsMessage<tools::Refused>("no device \"usb9\" at 10.0.0.6; plugged in there: \"usb1*1-1.1\""));
    EXPECT_THROW(unplug(a, "usb1"), tools::Refused) << "it is plugged in at another station";
}

TEST_F(UsbPorts, contain_each_device_once)
{
    const UsbDevice device = plugNew(a).device;
    EXPECT_THAT([&] { plug(a, device); },
                ThrowsMessage<tools::Refused>(HasSubstr("\"usb1*1-1.1\" is already plugged in at 10.0.0.5")));
    EXPECT_EQ(a.panel.usbDevices.size(), 1U);
    EXPECT_EQ(plug(b, device).event, UsbEvent::plugged);
}

TEST_F(UsbPorts, do_not_change_while_the_station_reboots)
{
    plugNew(a);
    a.panel.rebootsUntil = plant.clock.now() + std::chrono::minutes(1);
    const auto refused = ThrowsMessage<tools::Refused>(HasSubstr("10.0.0.5 is rebooting"));
    EXPECT_THAT([&] { plugNew(a); }, refused);
    EXPECT_THAT([&] { unplug(a, "usb1"); }, refused);
    EXPECT_THAT([&] { changeState(a, "usb1", 1); }, refused);
    EXPECT_THAT([&] { refuse(a, newUsbDeviceFor(a.panel)); }, refused);
    EXPECT_EQ(a.panel.usbDevices.size(), 1U);
}

// ---- The lock ----

TEST_F(UsbPorts, are_locked_by_the_first_number_of_the_lock)
{
    for (const char *open : {"0:0", "0:1", "00:4294967295"}) {
        a.panel.usbLock = open;
        EXPECT_FALSE(usbLocked(a.panel)) << open;
    }
    for (const char *locked : {"1:0", "4294967295:0", "01:1"}) {
        a.panel.usbLock = locked;
        EXPECT_TRUE(usbLocked(a.panel)) << locked;
    }
}

TEST_F(UsbPorts, refuse_new_devices_and_keep_the_others_while_locked)
{
    plugNew(a);
    ASSERT_TRUE(kvosim::applyUsbLock(plant, "setUsbLock=\"2:0\" 10.0.0.5\n"));
    EXPECT_EQ(plugNew(a).text(), "ignoreUSBdevice*10.0.0.5*usb2*1-1.2*Simulated device*1.00*USB lock*00000000*00000000*0000*");
    EXPECT_EQ(a.panel.usbDevices.size(), 1U);
    EXPECT_EQ(plugNew(b).event, UsbEvent::plugged);
    EXPECT_EQ(unplug(a, "usb1").event, UsbEvent::removed);
    ASSERT_TRUE(kvosim::applyUsbLock(plant, "setUsbLock=\"0:1\" 10.0.0.5\n"));
    EXPECT_EQ(plugNew(a).event, UsbEvent::plugged);
}

// ---- The commands ----

TEST_F(UsbPorts, appear_in_the_connector_lists)
{
    EXPECT_EQ(ask("getUsbConnectorList"), "usb-connector-list=10.0.0.5 X60:keyboard X61:free");
    EXPECT_EQ(ask("getUsbConnectorListOne=0A000006"), "usb-connector-list-one=");
    plugNew(a);
    plugNew(b);
    plugNew(b);
    EXPECT_EQ(ask("getUsbConnectorListOne=0A000005"), "usb-connector-list-one=X60:keyboard X61:free 1-1.1:usb1");
    EXPECT_EQ(ask("getUsbConnectorListOne=0A000006"), "usb-connector-list-one=1-1.1:usb1 1-1.2:usb2");
    EXPECT_EQ(ask("getUsbConnectorList"),
              "usb-connector-list=10.0.0.5 X60:keyboard X61:free 1-1.1:usb1;10.0.0.6 1-1.1:usb1 1-1.2:usb2");
    unplug(b, "usb1");
    unplug(b, "usb2");
    EXPECT_EQ(ask("getUsbConnectorList"), "usb-connector-list=10.0.0.5 X60:keyboard X61:free 1-1.1:usb1");
}

TEST_F(UsbPorts, are_not_reported_while_the_station_scans_or_reboots)
{
    plugNew(b);
    b.panel.usbScanning = 1;
    EXPECT_EQ(ask("getUsbConnectorListOne=0A000006"), "busy");
    EXPECT_EQ(ask("getUsbConnectorList"), "busy");
    b.panel.usbScanning = 0;
    b.panel.rebootsUntil = plant.clock.now() + std::chrono::minutes(1);
    EXPECT_EQ(ask("getUsbConnectorListOne=0A000006"), "failed");
    EXPECT_EQ(ask("getUsbConnectorList"), "usb-connector-list=10.0.0.5 X60:keyboard X61:free");
}

TEST_F(UsbPorts, events_are_activated_by_commands)
{
    EXPECT_EQ(ask("isUSBEventsActivated"), "no");
    EXPECT_EQ(ask("deactivateUSBEvents"), "ok") << "even if they are not activated";
    EXPECT_EQ(ask("activateUSBEvents"), "ok");
    EXPECT_EQ(ask("activateUSBEvents"), "ok") << "each activation takes the events over";
    EXPECT_EQ(ask("isUSBEventsActivated"), "yes");
    EXPECT_EQ(ask("deactivateUSBEvents"), "ok");
    EXPECT_EQ(ask("isUSBEventsActivated"), "no");
    for (const char *wrong :
         {"activateUSBEvents=", "activateUSBEvents 1", "activateUsbEvents", "isUSBEventsActivated=0A000005"}) {
        EXPECT_EQ(ask(wrong), "failed") << wrong;
    }
    EXPECT_EQ(ask("isUSBEventsActivated"), "no");
}

}  // namespace
