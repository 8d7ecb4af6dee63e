// Requests of the control socket, as the service answers them.
#include "kvosim/control/control.h"

#include "common/dotted_address.h"
#include "kvosim/control/control_request.h"
#include "kvosim/control/event_control.h"
#include "kvosim/control/remote_control.h"
#include "kvosim/control/usb_control.h"
#include "kvosim/net/udp_socket.h"

#include <unistd.h>

namespace kvosim {

std::string lineOf(const Json &reply)
{
    // Names are bytes and may be no UTF-8 where a client has set them; what can not be told is replaced.
    return reply.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Value fromJson(const Json &json)
{
    if (json.is_number_integer()) {
        return json.get<int64_t>();
    }
    return json.is_string() ? Value(json.get<std::string>()) : Value();
}

Json toJson(const Value &value)
{
    const auto *number = std::get_if<int64_t>(&value);
    return number != nullptr ? Json(*number) : Json(std::get<std::string>(value));
}

Station findStation(Plant &plant, const std::string &wanted)
{
    const ConnectionEntry *named = plant.findName(wanted);
    const auto address = parseDotted(wanted);
    const auto station = named != nullptr ? plant.findStation(named->address)
                         : address        ? plant.findStation(*address)
                                          : std::nullopt;
    if (!station) {
        throw Refused("no station has the address or the name \"" + wanted + '"');
    }
    return *station;
}

uint32_t countOf(const Json &request, const char *key)
{
    const Json value = request.value(key, Json(0U));
    if (!value.is_number_unsigned() || value.get<uint64_t>() > UINT32_MAX) {
        throw Refused(std::string(key) + ": is no whole number; write 0 to 0xFFFFFFFF");
    }
    return value.get<uint32_t>();
}

namespace {

constexpr const char *kReadOnlyKeys = "address, name and ext are fixed while the simulator runs";

/// Texts are as typed: numbers are recognised by the key.
Value valueOf(const StationKey &key, const Json &json)
{
    const Value value = fromJson(json);
    const auto *text = std::get_if<std::string>(&value);
    return text != nullptr ? typed(key, *text) : value;
}

std::string focusOf(const Plant &plant)
{
    const ConnectionEntry *station = plant.findAddress(plant.focus.station);
    return station == nullptr ? std::string(kUntold) : dotted(station->address) + ' ' + station->name;
}

std::size_t usbDevices(Plant &plant)
{
    std::size_t count = 0;
    for (const Panel &panel : plant.panels()) {
        count += panel.usbDevices.size();
    }
    return count;
}

Json status(const ControlContext &control)
{
    ServiceContext &context = control.service;
    const auto up = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - context.started);
    return {{"process", getpid()},
            {"uptime_ms", up.count()},
            {"stations", context.plant.stations().size()},
            {"exchanges", context.exchanges},
            {"registry_locked", context.registry.locked()},
            {"focus", focusOf(context.plant)},
            {"usb_lock_address", context.usbLockAddress.empty() ? std::string(kNoEndpoint) : context.usbLockAddress},
            {"faults", context.plant.faults.list().size()},
            {"usb_events_activated", context.usbEventsActivated},
            {"usb_devices", usbDevices(context.plant)},
            {"event_listeners", control.embeddedEvents.listeners()},
            {"remote_sessions", control.remote.sessions().size()}};
}

Json jsonOf(const Station &station)
{
    const ConnectionEntry &entry = station.entry;
    Json keys{
        {"address", dotted(entry.address)},
        {"name", entry.name},
        {"ext",
         {entry.extAttr1, entry.extAttr2, entry.extAttr3, entry.extAttr4, entry.extAttr5, entry.extAttr6, entry.extAttr7}}};
    for (const StationKey &key : stationKeys()) {
        keys[std::string(key.name)] = toJson(read(key, station));
    }
    keys["rebooting"] = station.panel.rebooting();
    return keys;
}

/// All values or none.
void setAll(const Station &station, const Json &values)
{
    ConnectionEntry entry = station.entry;
    Panel panel = station.panel;
    for (const auto &[name, json] : values.items()) {
        const StationKey *key = findStationKey(name);
        if (key == nullptr) {
            throw Refused(name + ": is no key that can be set; docs/plant-file.md lists them; " + kReadOnlyKeys);
        }
        const std::string mistake = assign(*key, {entry, panel}, valueOf(*key, json));
        if (!mistake.empty()) {
            throw Refused(name + ": " + mistake);
        }
    }
    station.entry = entry;
    station.panel = panel;
}

Json station(ServiceContext &context, const Json &request)
{
    const Station found = findStation(context.plant, request.at("station").get<std::string>());
    if (request.contains("set")) {
        setAll(found, request["set"]);
        context.registry.writeCurrent(context.plant.stations());  // it holds attributes
    }
    return jsonOf(found);
}

Json listStations(ServiceContext &context, const Json &)
{
    Json list = Json::array();
    for (const ConnectionEntry &entry : context.plant.stations()) {
        list.push_back({{"address", dotted(entry.address)}, {"name", entry.name}});
    }
    return {{"stations", std::move(list)}};
}

Json listFaults(ServiceContext &context, const Json &)
{
    Json list = Json::array();
    for (const Fault &fault : context.plant.faults.list()) {
        const FaultText &text = fault.text();
        Json row{{"command", text.command},
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

Json addFault(ServiceContext &context, const Json &request)
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
        throw Refused(error.key + ": " + error.what());
    }
    return listFaults(context, request);
}

Json clearFaults(ServiceContext &context, const Json &request)
{
    context.plant.faults.clear();
    return listFaults(context, request);
}

struct Action {
    std::string_view name;
    Json (*carryOut)(ServiceContext &context, const Json &request);
};

constexpr Action kActions[] = {
    {"station", station},    {"stations", listStations},   {"fault.list", listFaults},
    {"fault.add", addFault}, {"fault.clear", clearFaults},
};

Reply carryOut(ControlContext control, std::string_view line, const LineServer::Caller &caller)
{
    const Json request = Json::parse(line);
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
    throw Refused("\"do\": \"" + wanted + "\" is none of status, station, stations, fault.list, fault.add, fault.clear, " +
                  std::string(kUsbActions) + ", " + std::string(kRemoteActions) + ", event");
}

}  // namespace

Reply answerControl(ControlContext control, std::string_view request, const LineServer::Caller &caller)
{
    try {
        return carryOut(control, request, caller);
    } catch (const CouldNot &error) {
        return lineOf({{"could_not", error.what()}});
    } catch (const std::exception &error) {
        return lineOf({{"error", error.what()}});
    }
}

}  // namespace kvosim
