// Uses all of the C++ interface, so that every template of the headers is compiled. The two units of the program include it, one
// with exceptions and one without.
#pragma once

#include <kvo_hws/kvo_hws.hpp>

#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_set>
#include <utility>
#include <variant>

namespace everything {

/// The number of calls that returned a value. Not in both units: a program may have only one of them.
inline int useStation(const kvo::Station &station)
{
    int done = 0;
    done += station.description() ? 1 : 0;
    done += station.set_statusline("text", 1, 2) ? 1 : 0;
    done += station.reboot() ? 1 : 0;
    done += station.is_viewer_active().value_or(false) ? 1 : 0;
    done += station.current_server() ? 1 : 0;
    done += station.activate_me() ? 1 : 0;
    done += station.start_viewer("a", "b", "c") ? 1 : 0;
    done += station.start_configured_viewer("text", 1) ? 1 : 0;
    done += station.stop_viewer() ? 1 : 0;
    done += station.stop_viewer_preempt() ? 1 : 0;
    done += station.stop_viewer_no_clean() ? 1 : 0;
    done += station.set_brightness(kvo::Brightness::bright) ? 1 : 0;
    done += station.set_backlight_brightness(1) ? 1 : 0;
    done += station.set_backlight_brightness_v2(1, 1) ? 1 : 0;
    done += station.backlight_brightness_v2(1) ? 1 : 0;
    done += station.station_type() ? 1 : 0;
    done += station.set_sw_caps_lock(1) ? 1 : 0;
    done += station.rv4_mode() ? 1 : 0;
    done += station.set_rv4_mode(kvo::Rv4Mode::automatic) ? 1 : 0;
    done += station.mcp_address() ? 1 : 0;
    done += station.set_dck_enable(true) ? 1 : 0;
    done += station.dck_enable() ? 1 : 0;
    done += station.simulate_mcp_key(1, 2) ? 1 : 0;
    done += station.priority() ? 1 : 0;
    done += station.screen_on_focus() ? 1 : 0;
    done += station.t2m2n() ? 1 : 0;
    done += station.set_channel_info("text") ? 1 : 0;
    done += station.channel_info() ? 1 : 0;
    done += station.touch_screen_calib_param() ? 1 : 0;
    done += station.set_touch_screen_calib_param({-1, 0}) ? 1 : 0;
    done += station.show_input_device() ? 1 : 0;
    done += station.show_input_device_v2() ? 1 : 0;
    done += station.show_input_device_v3() ? 1 : 0;
    done += station.usb_lock() ? 1 : 0;
    done += station.usb_connector_list() ? 1 : 0;
    done += station.metric(kvo::Metric::dpi) ? 1 : 0;
    done += station.panel_layout() ? 1 : 0;
    done += station.is_marovanti_panel() ? 1 : 0;
    return done;
}

inline int useService()
{
    using kvo::Service;
    int done = 0;
    done += Service::is_init_complete() ? 1 : 0;
    done += Service::version() ? 1 : 0;
    done += Service::debug_level() ? 1 : 0;
    done += Service::set_debug_level(kvo::DebugLevel::level_1) ? 1 : 0;
    done += Service::set_backlight(kvo::Backlight::on) ? 1 : 0;
    done += Service::lock_registry() ? 1 : 0;
    done += Service::kill_daemon() ? 1 : 0;
    done += Service::description_list() ? 1 : 0;
    done += Service::description_list_ex() ? 1 : 0;
    done += Service::description("name") ? 1 : 0;
    done += Service::previous_list_from_registry(std::chrono::seconds(0)) ? 1 : 0;
    done += Service::current_list_from_registry(std::chrono::seconds(0)) ? 1 : 0;
    done += Service::client_list() ? 1 : 0;
    done += Service::ip_by_mcp_address(1) ? 1 : 0;
    done += Service::set_usb_lock({}, {1, 0}) ? 1 : 0;
    done += Service::usb_connector_list() ? 1 : 0;
    done += Service::is_usb_events_activated() ? 1 : 0;
    const std::unordered_set<kvo::Address> addresses{kvo::Address(1), kvo::Address(2)};
    return done + static_cast<int>(addresses.size());
}

inline int useRequests()
{
    kvo::Result<kvo::Requests> created = kvo::Requests::create(8);
    if (!created) {
        return 0;
    }
    kvo::Requests requests = std::move(*created);
    int answered = 0;
    const kvo::Station station(kvo::Address(1));
    const auto number = requests.submit([station] { return station.mcp_address(); },
                                        [&answered](const kvo::Result<std::uint32_t> &mcp) { answered += mcp ? 0 : 1; });
    const auto nothing = requests.submit([] {}, [&answered](kvo::Result<void> done) { answered += done ? 1 : 0; },
                                         std::chrono::milliseconds(100));
    const auto text = requests.submit([] { return std::string("text"); }, [](kvo::Result<std::string> &&) {});
    if (!number || !nothing || !text) {
        return -1;
    }
    requests.cancel(*text);
    while (requests.pending() > 0) {
        requests.dispatch();
    }
    requests.close();
    return answered;
}

/// What an event is.
struct Kind {
    int operator()(kvo::UsbStatus status) const { return kvo::is_final(status) ? 1 : 2; }
    int operator()(const kvo::UsbNewDevice &device) const { return device.has(kvo::UsbDeviceFlag::id1_bit0) ? 3 : 4; }
    int operator()(const kvo::UsbDeviceRemoved &device) const { return device.late ? 5 : 6; }
    int operator()(const kvo::UsbStateChanged &device) const { return static_cast<int>(device.state); }
    int operator()(const kvo::UsbDeviceRefused &device) const { return device.number3; }
};

inline int useEvents()
{
    int done = 0;
    kvo::AgentOptions options;
    options.session = 99;  // refused
    const auto agent = kvo::Agent::start(options, [](const kvo::AgentCommand &command) {
        return std::holds_alternative<kvo::SetStatusline>(command) ? kvo::AgentAnswer::yes : kvo::AgentAnswer::no;
    });
    done += agent ? 0 : 1;
    const auto listener = kvo::EmbeddedEvents::activate(kvo::EmbeddedEvents::Handler());
    done += listener ? 0 : 1;
    const auto usb = kvo::UsbEvents::activate(kvo::UsbEvents::Handler());
    done += usb ? 0 : 1;
    const kvo::UsbEvents::Handler handler = [](const kvo::UsbEvent &event) { return std::visit(Kind(), event) > 0; };
    done += handler(kvo::UsbEvent(kvo::UsbStatus::activated)) ? 1 : 0;
    return done;
}

inline bool worked()
{
    const kvo::Result<kvo::Address> address = kvo::Address::parse("10.0.0.5");
    const kvo::Result<std::string> version = kvo::library_version();
    return address && version && version->size() == 12 && useStation(*address) == 0 && useService() == 2 &&
           useRequests() == 2 && useEvents() == 4;
}

}  // namespace everything
