// Requests about USB devices. Where an event goes out, the reply comes when it is known what became of it.
#include "kvosim/control/usb_control.h"

#include "common/dotted_address.h"
#include "kvosim/control/control_request.h"
#include "kvosim/events/usb_storm.h"

#include <utility>

namespace kvosim {

namespace {

constexpr uint32_t kHighestRate = 1'000'000;  // events a second

struct UsbCall {
    UsbEvents &events;
    const tools::Json &request;
    const LineServer::Caller &caller;

    [[nodiscard]] std::string text(const char *key) const { return request.at(key).get<std::string>(); }
    [[nodiscard]] Station station() const { return findStation(events.plant(), text("station")); }
};

std::string_view nameOf(UsbEvent event)
{
    switch (event) {
    case UsbEvent::plugged: return "plugged";
    case UsbEvent::removed: return "removed";
    case UsbEvent::stateChanged: return "state";
    case UsbEvent::refused: break;
    }
    return "refused";
}

/// A device with the fields of the request, the others by default.
UsbDevice deviceOf(const UsbCall &call, const Panel &panel)
{
    UsbDevice device = newUsbDeviceFor(panel);
    const tools::Json fields = call.request.value("device", tools::Json::object());
    if (!fields.is_object()) {
        throw tools::Refused("device: is no object; write {\"ident2\": \"usb1\", ...}");
    }
    for (const auto &[name, json] : fields.items()) {
        const UsbKey *key = findUsbKey(name);
        if (key == nullptr) {
            throw tools::Refused(name + ": is no field of a USB device; docs/plant-file.md lists them");
        }
        if (const std::string mistake = assign(*key, device, fromJson(json)); !mistake.empty()) {
            throw tools::Refused(name + ": " + mistake);
        }
    }
    return device;
}

tools::Json jsonOf(const ConnectionEntry &station, const UsbDevice &device)
{
    tools::Json json{{"station", tools::dotted(station.address)}, {"name", station.name}};
    for (const UsbKey &key : usbKeys()) {
        json[std::string(key.name)] = toJson(read(key, device));
    }
    return json;
}

/// Tells the news to the program that has the events, and then the caller what became of that.
Reply spread(const UsbCall &call, const Station &station, const UsbNews &news)
{
    tools::Json reply{{"event", nameOf(news.event)},     {"station", tools::dotted(news.station)},
                      {"name", station.entry.name},      {"ident2", ident2Of(news.device)},
                      {"ident3", ident3Of(news.device)}, {"state", news.device.source.state}};
    if (news.event == UsbEvent::refused && usbLocked(station.panel)) {
        reply["usb_lock"] = station.panel.usbLock;
    }
    const bool sent = call.events.send(news, [reply, caller = call.caller](Delivery delivery) mutable {
        reply["delivery"] = wordsFor(delivery);
        caller.reply(lineOf(reply));
    });
    if (sent) {
        return Reply::Way::later;
    }
    reply["delivery"] = wordsFor(Delivery::notActivated);
    return lineOf(reply);
}

Reply plugDevice(const UsbCall &call)
{
    const Station station = call.station();
    const UsbDevice device = deviceOf(call, station.panel);
    return spread(call, station, plug(station, device));
}

Reply refuseDevice(const UsbCall &call)
{
    const Station station = call.station();
    return spread(call, station, refuse(station, deviceOf(call, station.panel)));
}

Reply unplugDevice(const UsbCall &call)
{
    const Station station = call.station();
    return spread(call, station, unplug(station, call.text("device")));
}

Reply changeDeviceState(const UsbCall &call)
{
    const Station station = call.station();
    UsbDevice checked;
    const Value value = fromJson(call.request.at("state"));
    if (const std::string mistake = assign(*findUsbKey("state"), checked, value); !mistake.empty()) {
        throw tools::Refused("state: " + mistake);
    }
    return spread(call, station, changeState(station, call.text("device"), checked.source.state));
}

Reply listDevices(const UsbCall &call)
{
    tools::Json list = tools::Json::array();
    const auto add = [&list](const ConnectionEntry &entry, const Panel &panel) {
        for (const UsbDevice &device : panel.usbDevices) {
            list.push_back(jsonOf(entry, device));
        }
    };
    if (call.request.contains("station")) {
        const Station station = call.station();
        add(station.entry, station.panel);
    } else {
        Plant &plant = call.events.plant();
        for (std::size_t i = 0; i < plant.stations().size(); ++i) {
            add(plant.stations()[i], plant.panels()[i]);
        }
    }
    return lineOf({{"devices", std::move(list)}});
}

Reply storm(const UsbCall &call)
{
    StormOrder order{.count = countOf(call.request, "count"), .rate = countOf(call.request, "rate")};
    if (order.count == 0) {
        throw tools::Refused("count: 0 events make no storm; write 1 to 0xFFFFFFFF");
    }
    if (order.rate > kHighestRate) {
        throw tools::Refused("rate: " + std::to_string(order.rate) + " is out of range; write 1 to " +
                             std::to_string(kHighestRate) + " events a second, or 0 for as fast as they are taken");
    }
    if (call.request.contains("station")) {
        order.station = call.station().entry.address;
    }
    beginUsbStorm(call.events, order, call.caller);
    return Reply::Way::later;
}

struct UsbAction {
    std::string_view name;
    Reply (*carryOut)(const UsbCall &call);
    bool sends;  ///< an event, for which there must be room before anything is changed
};

constexpr UsbAction kUsbActionRows[] = {
    {"usb.plug", plugDevice, true},         {"usb.refuse", refuseDevice, true}, {"usb.unplug", unplugDevice, true},
    {"usb.state", changeDeviceState, true}, {"usb.list", listDevices, false},   {"usb.storm", storm, false},
};

}  // namespace

const std::string_view kUsbActions = "usb.plug, usb.refuse, usb.unplug, usb.state, usb.list, usb.storm";

std::optional<Reply> answerUsbControl(UsbEvents &events, const tools::Json &request, const LineServer::Caller &caller)
{
    const std::string wanted = request.at("do").get<std::string>();
    for (const UsbAction &action : kUsbActionRows) {
        if (action.name == wanted) {
            if (action.sends) {
                events.checkRoom();
            }
            return action.carryOut({events, request, caller});
        }
    }
    return std::nullopt;
}

}  // namespace kvosim
