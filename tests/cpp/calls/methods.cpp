#include "cpp/calls/methods.h"

#include <chrono>
#include <cstring>
#include <vector>

namespace calls {

namespace {

using catalogue::nothing;
using catalogue::Stored;
using catalogue::Values;
using kvo::Result;
using kvo::Service;

// ---- Values as the functions of C store them ----

Values stored(uint32_t value) { return {value}; }
Values stored(int32_t value) { return {value}; }
Values stored(bool value) { return {value}; }
Values stored(kvo::Address value) { return {value.number()}; }
Values stored(kvo::Rv4Mode value) { return {static_cast<uint32_t>(value)}; }
Values stored(const std::string &value) { return {value}; }
Values stored(const kvo::CurrentServer &value) { return {value.server, nothing, value.display, nothing}; }
Values stored(const kvo::Priority &value) { return {value.suspend_lock, value.suspend_prio}; }
Values stored(const kvo::Calibration &value) { return {value.press_threshold, value.nonlinear}; }
Values stored(const kvo::UsbLock &value) { return {value.first, value.second}; }

template <class Record>
void setName(Record &record, const std::string &name)
{
    std::memcpy(record.name, name.c_str(), name.size() + 1);
}

KvoDescription recordOf(const kvo::StationDescription &station)
{
    KvoDescription record{};
    record.address = station.address.number();
    setName(record, station.name);
    record.attr1 = station.attr1;
    record.attr2 = station.attr2;
    record.attr3 = station.attr3;
    return record;
}

KvoDescriptionEx recordOf(const kvo::StationDescriptionEx &station)
{
    KvoDescriptionEx record{};
    record.address = station.address.number();
    setName(record, station.name);
    record.attr1 = station.attr1;
    record.attr2 = station.attr2;
    record.attr3 = station.attr3;
    record.extAttr1 = station.ext_attr1;
    record.extAttr2 = station.ext_attr2;
    record.extAttr3 = station.ext_attr3;
    record.extAttr4 = station.ext_attr4;
    record.extAttr5 = station.ext_attr5;
    record.extAttr6 = station.ext_attr6;
    record.extAttr7 = station.ext_attr7;
    return record;
}

KvoClientEntry recordOf(const kvo::Client &client)
{
    KvoClientEntry record{};
    record.value = client.value;
    setName(record, client.name);
    return record;
}

Values stored(const kvo::StationDescriptionEx &station) { return {catalogue::records(std::vector{recordOf(station)})}; }

template <class Value>
Values stored(const std::vector<Value> &list)
{
    std::vector<decltype(recordOf(list.front()))> records;
    for (const Value &value : list) {
        records.push_back(recordOf(value));
    }
    return {catalogue::records(records), static_cast<uint32_t>(list.size())};
}

Stored storedCount(const std::optional<uint32_t> &count) { return count ? Stored(*count) : Stored(nothing); }

// ---- Outcomes ----

Outcome outcomeOf(const Result<void> &result) { return {result ? std::nullopt : std::optional(result.error()), 1}; }

template <class Value>
Outcome outcomeOf(const Result<Value> &result)
{
    return result ? Outcome{{}, 1, stored(*result)} : Outcome{result.error(), 0};
}

template <class Value>
Outcome outcomeOf(const Result<std::optional<Value>> &result)
{
    if (!result) {
        return {result.error(), 0};
    }
    return *result ? Outcome{{}, 1, stored(**result)} : Outcome{{}, 0};
}

/// A "yes" or "no" that is the function's result, not an output.
Outcome answerOf(const Result<bool> &result) { return result ? Outcome{{}, *result ? 1 : 0} : Outcome{result.error(), 0}; }

/// A list that is stored without a terminator; an empty list is a "no" with an empty text.
Outcome connectorsOf(const Result<std::string> &result)
{
    if (!result) {
        return {result.error(), 0};
    }
    return result->empty() ? Outcome{{}, 0, {""}} : Outcome{{}, 1, {catalogue::bytes(*result)}};
}

Outcome devicesOf(const Result<kvo::InputDevices> &result, int version)
{
    if (!result) {
        return {result.error(), 0};
    }
    const kvo::InputDevices &devices = *result;
    Values values{storedCount(devices.keyboards), storedCount(devices.mice), storedCount(devices.touch)};
    if (version == 1) {
        return {{}, 1, values};
    }
    if (version == 2) {
        values.push_back(storedCount(devices.virtual_keyboards));
        return {{}, 1, values};
    }
    const std::optional<uint32_t> counts[] = {devices.keyboards,  devices.mice,         devices.touch,
                                              devices.multitouch, devices.max_contacts, devices.virtual_keyboards};
    uint32_t mask = 0;
    values.clear();
    for (unsigned bit = 0; bit < std::size(counts); ++bit) {
        mask |= (counts[bit] ? 1U : 0U) << bit;
        values.push_back(storedCount(counts[bit]));
    }
    values.insert(values.begin(), mask);
    return {{}, 1, values};
}

Outcome debugLevelOf(const Result<kvo::DebugLevel> &level)
{
    return level ? Outcome{{}, static_cast<int32_t>(*level)} : Outcome{level.error(), 0};
}

Outcome metricOf(const Inputs &in) { return outcomeOf(in.station().metric(kvo::Metric{in.number(1)})); }

/// The catalogue has the metrics without a name with the layout.
Outcome layoutOf(const Inputs &in) { return in.number(1) == 1 ? outcomeOf(in.station().panel_layout()) : metricOf(in); }

// clang-format off
const std::map<std::string, Method> &serviceMethods()
{
    using namespace std::chrono_literals;
    static const std::map<std::string, Method> kMethods = {
        {"Service::is_init_complete", [](const Inputs &) { return answerOf(Service::is_init_complete()); }},
        {"Service::version", [](const Inputs &) { return outcomeOf(Service::version()); }},
        {"Service::debug_level", [](const Inputs &) { return debugLevelOf(Service::debug_level()); }},
        {"Service::set_debug_level", [](const Inputs &in) { return outcomeOf(Service::set_debug_level(kvo::DebugLevel{in.integer(0)})); }},
        {"Service::set_backlight", [](const Inputs &in) { return outcomeOf(Service::set_backlight(kvo::Backlight{in.number(0)})); }},
        {"Service::lock_registry", [](const Inputs &) { return answerOf(Service::lock_registry()); }},
        {"Service::unlock_registry", [](const Inputs &) { return outcomeOf(Service::unlock_registry()); }},
        {"Service::kill_daemon", [](const Inputs &) { return outcomeOf(Service::kill_daemon()); }},
        {"Service::description_list", [](const Inputs &) { return outcomeOf(Service::description_list()); }},
        {"Service::description_list_ex", [](const Inputs &) { return outcomeOf(Service::description_list_ex()); }},
        {"Service::description", [](const Inputs &in) { return outcomeOf(Service::description(in.text(1))); }},
        {"Service::previous_list_from_registry", [](const Inputs &) { return outcomeOf(Service::previous_list_from_registry(0s)); }},
        {"Service::current_list_from_registry", [](const Inputs &) { return outcomeOf(Service::current_list_from_registry(0s)); }},
        {"Service::client_list", [](const Inputs &in) { return outcomeOf(Service::client_list(in.flags(2))); }},
        {"Service::ip_by_mcp_address", [](const Inputs &in) { return outcomeOf(Service::ip_by_mcp_address(in.number(0))); }},
        {"Service::ip_by_dck_address", [](const Inputs &in) { return outcomeOf(Service::ip_by_dck_address(in.number(0))); }},
        {"Service::ip_by_index", [](const Inputs &in) { return outcomeOf(Service::ip_by_index(in.number(0))); }},
        {"Service::set_usb_lock", [](const Inputs &) { return outcomeOf(Service::set_usb_lock({kvo::Address(1)}, {1, 0})); }},
        {"Service::usb_connector_list", [](const Inputs &) { return connectorsOf(Service::usb_connector_list()); }},
        {"Service::is_usb_events_activated", [](const Inputs &) { return answerOf(Service::is_usb_events_activated()); }},
        {"library_version", [](const Inputs &) { return outcomeOf(kvo::library_version()); }},
        {"activate_debug", [](const Inputs &) { kvo::activate_debug(); return Outcome{{}, 1}; }},
        {"deactivate_debug", [](const Inputs &) { kvo::deactivate_debug(); return Outcome{{}, 1}; }},
    };
    return kMethods;
}

const std::map<std::string, Method> &stationMethods()
{
    static const std::map<std::string, Method> kMethods = {
        {"Station::description", [](const Inputs &in) { return outcomeOf(in.station().description()); }},
        {"Station::set_statusline", [](const Inputs &in) { return outcomeOf(in.station().set_statusline(in.text(3), in.number(1), in.number(2))); }},
        {"Station::reboot", [](const Inputs &in) { return outcomeOf(in.station().reboot()); }},
        {"Station::is_viewer_active", [](const Inputs &in) { return answerOf(in.station().is_viewer_active()); }},
        {"Station::current_server", [](const Inputs &in) { return outcomeOf(in.station().current_server()); }},
        {"Station::activate_me", [](const Inputs &in) { return answerOf(in.station().activate_me()); }},
        {"Station::start_viewer", [](const Inputs &in) { return answerOf(in.station().start_viewer(in.text(1), in.text(2), in.text(3))); }},
        {"Station::start_configured_viewer", [](const Inputs &in) { return answerOf(in.station().start_configured_viewer(in.text(1), in.number(2))); }},
        {"Station::stop_viewer", [](const Inputs &in) { return answerOf(in.station().stop_viewer()); }},
        {"Station::stop_viewer_preempt", [](const Inputs &in) { return answerOf(in.station().stop_viewer_preempt()); }},
        {"Station::stop_viewer_no_clean", [](const Inputs &in) { return answerOf(in.station().stop_viewer_no_clean()); }},
        {"Station::set_brightness", [](const Inputs &in) { return outcomeOf(in.station().set_brightness(kvo::Brightness{in.number(1)})); }},
        {"Station::set_backlight_brightness", [](const Inputs &in) { return outcomeOf(in.station().set_backlight_brightness(in.number(1))); }},
        {"Station::set_backlight_brightness_v2", [](const Inputs &in) { return outcomeOf(in.station().set_backlight_brightness_v2(in.number(1), in.number(2))); }},
        {"Station::backlight_brightness_v2", [](const Inputs &in) { return outcomeOf(in.station().backlight_brightness_v2(in.number(2))); }},
        {"Station::set_disable_num_lock", [](const Inputs &in) { return outcomeOf(in.station().set_disable_num_lock(in.flag(1))); }},
        {"Station::set_disable_caps_lock", [](const Inputs &in) { return outcomeOf(in.station().set_disable_caps_lock(in.flag(1))); }},
        {"Station::disable_num_lock", [](const Inputs &in) { return outcomeOf(in.station().disable_num_lock()); }},
        {"Station::disable_caps_lock", [](const Inputs &in) { return outcomeOf(in.station().disable_caps_lock()); }},
        {"Station::station_type", [](const Inputs &in) { return outcomeOf(in.station().station_type()); }},
        {"Station::sw_caps_lock", [](const Inputs &in) { return outcomeOf(in.station().sw_caps_lock()); }},
        {"Station::set_sw_caps_lock", [](const Inputs &in) { return outcomeOf(in.station().set_sw_caps_lock(in.integer(1))); }},
        {"Station::rv4_mode", [](const Inputs &in) { return outcomeOf(in.station().rv4_mode()); }},
        {"Station::set_rv4_mode", [](const Inputs &in) { return answerOf(in.station().set_rv4_mode(kvo::Rv4Mode{in.number(1)})); }},
        {"Station::mcp_address", [](const Inputs &in) { return outcomeOf(in.station().mcp_address()); }},
        {"Station::set_mcp_address", [](const Inputs &in) { return outcomeOf(in.station().set_mcp_address(in.number(1))); }},
        {"Station::index", [](const Inputs &in) { return outcomeOf(in.station().index()); }},
        {"Station::set_index", [](const Inputs &in) { return outcomeOf(in.station().set_index(in.number(1))); }},
        {"Station::dck_enable", [](const Inputs &in) { return outcomeOf(in.station().dck_enable()); }},
        {"Station::set_dck_enable", [](const Inputs &in) { return outcomeOf(in.station().set_dck_enable(in.flag(1))); }},
        {"Station::dck_address", [](const Inputs &in) { return outcomeOf(in.station().dck_address()); }},
        {"Station::cks_index", [](const Inputs &in) { return outcomeOf(in.station().cks_index()); }},
        {"Station::set_cks_index", [](const Inputs &in) { return outcomeOf(in.station().set_cks_index(in.number(1))); }},
        {"Station::simulate_mcp_key", [](const Inputs &in) { return outcomeOf(in.station().simulate_mcp_key(in.number(1), in.number(2))); }},
        {"Station::enable_mcp_key", [](const Inputs &in) { return outcomeOf(in.station().enable_mcp_key(in.number(1), in.number(2))); }},
        {"Station::priority", [](const Inputs &in) { return outcomeOf(in.station().priority()); }},
        {"Station::startup_active", [](const Inputs &in) { return outcomeOf(in.station().startup_active()); }},
        {"Station::startup_prio", [](const Inputs &in) { return outcomeOf(in.station().startup_prio()); }},
        {"Station::channel_on_focus", [](const Inputs &in) { return outcomeOf(in.station().channel_on_focus()); }},
        {"Station::screen_on_focus", [](const Inputs &in) { return outcomeOf(in.station().screen_on_focus()); }},
        {"Station::t2m2n", [](const Inputs &in) { return outcomeOf(in.station().t2m2n()); }},
        {"Station::set_channel_info", [](const Inputs &in) { return outcomeOf(in.station().set_channel_info(in.text(1))); }},
        {"Station::channel_info", [](const Inputs &in) { return outcomeOf(in.station().channel_info()); }},
        {"Station::delete_channel_info", [](const Inputs &in) { return outcomeOf(in.station().delete_channel_info()); }},
        {"Station::invalidate_touch_screen", [](const Inputs &in) { return answerOf(in.station().invalidate_touch_screen()); }},
        {"Station::touch_screen_calib_param", [](const Inputs &in) { return outcomeOf(in.station().touch_screen_calib_param()); }},
        {"Station::set_touch_screen_calib_param", [](const Inputs &in) { return answerOf(in.station().set_touch_screen_calib_param({in.integer(1), in.integer(2)})); }},
        {"Station::show_input_device", [](const Inputs &in) { return devicesOf(in.station().show_input_device(), 1); }},
        {"Station::show_input_device_v2", [](const Inputs &in) { return devicesOf(in.station().show_input_device_v2(), 2); }},
        {"Station::show_input_device_v3", [](const Inputs &in) { return devicesOf(in.station().show_input_device_v3(), 3); }},
        {"Station::show_dpi", [](const Inputs &in) { return outcomeOf(in.station().show_dpi()); }},
        {"Station::usb_lock", [](const Inputs &in) { return outcomeOf(in.station().usb_lock()); }},
        {"Station::usb_connector_list", [](const Inputs &in) { return connectorsOf(in.station().usb_connector_list()); }},
        {"Station::metric", [](const Inputs &in) { return metricOf(in); }},
        {"Station::panel_layout", [](const Inputs &in) { return layoutOf(in); }},
        {"Station::is_marovanti_panel", [](const Inputs &in) { return answerOf(in.station().is_marovanti_panel()); }},
    };
    return kMethods;
}
// clang-format on

}  // namespace

const std::map<std::string, Method> &methods()
{
    static const std::map<std::string, Method> kAll = [] {
        std::map<std::string, Method> all = serviceMethods();
        all.insert(stationMethods().begin(), stationMethods().end());
        return all;
    }();
    return kAll;
}

}  // namespace calls
