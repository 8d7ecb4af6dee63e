// Carries out the requests of the control socket.
#include "kvosim/control/control.h"

#include "common/dotted_address.h"
#include "kvosim/control/control_request.h"
#include "kvosim/control/event_control.h"
#include "kvosim/control/remote_control.h"
#include "kvosim/control/usb_control.h"
#include "kvosim/net/udp_socket.h"

#include <unistd.h>

namespace kvosim {

std::string lineOf(const tools::Json &reply)
{
    // A text that a client has set may be invalid UTF-8; the invalid bytes are replaced.
    return reply.dump(-1, ' ', false, tools::Json::error_handler_t::replace);
}

Value fromJson(const tools::Json &json)
{
    if (json.is_number_integer()) {
        return json.get<int64_t>();
    }
    return json.is_string() ? Value(json.get<std::string>()) : Value();
}

tools::Json toJson(const Value &value)
{
    const auto *number = std::get_if<int64_t>(&value);
    return number != nullptr ? tools::Json(*number) : tools::Json(std::get<std::string>(value));
}

Station findStation(Plant &plant, const std::string &wanted)
{
    const ConnectionEntry *named = plant.findName(wanted);
    const auto address = tools::parseDotted(wanted);
    const auto station = named != nullptr ? plant.findStation(named->address)
                         : address        ? plant.findStation(*address)
                                          : std::nullopt;
    if (!station) {
        throw tools::Refused("no station has the address or the name \"" + wanted + '"');
    }
    return *station;
}

uint32_t countOf(const tools::Json &request, const char *key)
{
    const tools::Json value = request.value(key, tools::Json(0U));
    if (!value.is_number_unsigned() || value.get<uint64_t>() > UINT32_MAX) {
        throw tools::Refused(std::string(key) + ": is not a whole number; write 0 to 0xFFFFFFFF");
    }
    return value.get<uint32_t>();
}

namespace {

constexpr const char *kReadOnlyKeys = "address, name and ext cannot change while the simulator runs";

/// A text comes as the user typed it: the key decides whether it is a number.
Value valueOf(const StationKey &key, const tools::Json &json)
{
    const Value value = fromJson(json);
    const auto *text = std::get_if<std::string>(&value);
    return text != nullptr ? parseTyped(key, *text) : value;
}

std::string focusOf(const Plant &plant)
{
    const ConnectionEntry *station = plant.findAddress(plant.focus.station);
    return station == nullptr ? std::string(kNoValue) : tools::dotted(station->address) + ' ' + station->name;
}

std::size_t usbDevices(Plant &plant)
{
    std::size_t count = 0;
    for (const Panel &panel : plant.panels()) {
        count += panel.usbDevices.size();
    }
    return count;
}

tools::Json status(const ControlContext &control)
{
    ServiceContext &context = control.service;
    const auto up = std::chrono::duration_cast<std::chrono::milliseconds>(context.plant.clock.now() - context.started);
    return {{"process", getpid()},
            {"uptime_ms", up.count()},
            {"stations", context.plant.stations().size()},
            {"exchanges", context.exchanges},
            {"registry", context.registry.path()},
            {"registry_locked", context.registry.locked()},
            {"focus", focusOf(context.plant)},
            {"usb_lock_address", context.usbLockAddress.empty() ? std::string(kNoEndpoint) : context.usbLockAddress},
            {"faults", context.plant.faults.list().size()},
            {"usb_events_activated", context.usbEventsActivated},
            {"usb_devices", usbDevices(context.plant)},
            {"event_listeners", control.embeddedEvents.listeners()},
            {"remote_sessions", control.remote.sessions().size()}};
}

tools::Json jsonOf(const Station &station)
{
    const ConnectionEntry &entry = station.entry;
    tools::Json keys{
        {"address", tools::dotted(entry.address)},
        {"name", entry.name},
        {"ext",
         {entry.extAttr1, entry.extAttr2, entry.extAttr3, entry.extAttr4, entry.extAttr5, entry.extAttr6, entry.extAttr7}}};
    for (const StationKey &key : stationKeys()) {
        keys[std::string(key.name)] = toJson(read(key, station));
    }
    keys["rebooting"] = station.rebooting();
    return keys;
}

/// Sets all values, or none if one is invalid.
void setAll(const Station &station, const tools::Json &values)
{
    ConnectionEntry entry = station.entry;
    Panel panel = station.panel;
    for (const auto &[name, json] : values.items()) {
        const StationKey *key = findStationKey(name);
        if (key == nullptr) {
            throw tools::Refused(name + ": is not a key that can be set; docs/plant-file.md lists the keys; " + kReadOnlyKeys);
        }
        const std::string mistake = assign(*key, {entry, panel}, valueOf(*key, json));
        if (!mistake.empty()) {
            throw tools::Refused(name + ": " + mistake);
        }
    }
    station.entry = entry;
    station.panel = panel;
}

tools::Json station(ServiceContext &context, const tools::Json &request)
{
    const Station found = findStation(context.plant, request.at("station").get<std::string>());
    if (request.contains("set")) {
        setAll(found, request["set"]);
        context.registry.writeCurrent(context.plant.stations());  // the list contains attributes of stations
    }
    return jsonOf(found);
}

tools::Json listStations(ServiceContext &context, const tools::Json &)
{
    tools::Json list = tools::Json::array();
    for (const ConnectionEntry &entry : context.plant.stations()) {
        list.push_back({{"address", tools::dotted(entry.address)}, {"name", entry.name}});
    }
    return {{"stations", std::move(list)}};
}

tools::Json listFaults(ServiceContext &context, const tools::Json &)
{
    tools::Json list = tools::Json::array();
    for (const Fault &fault : context.plant.faults.list()) {
        const FaultText &text = fault.text();
        tools::Json row{{"command", text.command},
                        {"kind", text.kind},
                        {"after", text.after},
                        {"times", text.times},
                        {"struck", fault.requestsStruck()}};
        if (text.delay) {
            row["delay_ms"] = *text.delay;
        }
        list.push_back(std::move(row));
    }
    return {{"faults", std::move(list)}};
}

tools::Json addFault(ServiceContext &context, const tools::Json &request)
{
    FaultText text{.command = request.value("command", "*"),
                   .kind = request.at("kind").get<std::string>(),
                   .after = countOf(request, "after"),
                   .times = countOf(request, "times")};
    if (request.contains("delay_ms")) {
        text.delay = countOf(request, "delay_ms");
    }
    try {
        context.plant.faults.add(makeFault(text));
    } catch (const FaultError &error) {
        throw tools::Refused(error.key + ": " + error.what());
    }
    return listFaults(context, request);
}

tools::Json clearFaults(ServiceContext &context, const tools::Json &request)
{
    context.plant.faults.clear();
    return listFaults(context, request);
}

struct Action {
    std::string_view name;
    tools::Json (*carryOut)(ServiceContext &context, const tools::Json &request);
};

constexpr Action kActions[] = {
    {"station", station},    {"stations", listStations},   {"fault.list", listFaults},
    {"fault.add", addFault}, {"fault.clear", clearFaults},
};

Reply carryOut(ControlContext control, std::string_view line, const LineServer::Caller &caller)
{
    const tools::Json request = tools::Json::parse(line);
    const std::string wanted = request.at("do").get<std::string>();
    if (wanted == "status") {
        return lineOf(status(control));
    }
    for (const Action &action : kActions) {
        if (action.name == wanted) {
            return lineOf(action.carryOut(control.service, request));
        }
    }
    if (const auto reply = answerUsbControl(control.usbEvents, request, caller)) {
        return *reply;
    }
    if (const auto reply = answerRemoteControl(control.remote, request, caller)) {
        return *reply;
    }
    if (const auto reply = answerEventControl(control.embeddedEvents, request)) {
        return *reply;
    }
    throw tools::Refused("\"do\": \"" + wanted +
                         "\" is not one of status, station, stations, fault.list, fault.add, fault.clear, " +
                         std::string(kUsbActions) + ", " + std::string(kRemoteActions) + ", event");
}

}  // namespace

Reply answerControl(ControlContext control, std::string_view request, const LineServer::Caller &caller)
{
    try {
        return carryOut(control, request, caller);
    } catch (const tools::CouldNot &error) {
        return lineOf({{"could_not", error.what()}});
    } catch (const std::exception &error) {
        return lineOf({{"error", error.what()}});
    }
}

}  // namespace kvosim
