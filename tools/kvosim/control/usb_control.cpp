// Requests for USB devices. If the request sends an event, the reply follows when the delivery has succeeded or failed.
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

/// A device with the fields of the request and defaults for the others.
UsbDevice deviceOf(const UsbCall &call, const Panel &panel)
{
    UsbDevice device = newUsbDeviceFor(panel);
    const tools::Json fields = call.request.value("device", tools::Json::object());
    if (!fields.is_object()) {
        throw tools::Refused("device: is not an object; write {\"ident2\": \"usb1\", ...}");
    }
    for (const auto &[name, json] : fields.items()) {
        const UsbKey *key = findUsbKey(name);
        if (key == nullptr) {
            throw tools::Refused(name + ": is not a field of a USB device; docs/plant-file.md lists the fields");
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

/// Sends the event to the program that receives USB events, then reports the result of the delivery to the caller.
Reply announce(const UsbCall &call, const Station &station, const UsbNotification &notification)
{
    tools::Json reply{{"event", nameOf(notification.event)},
                      {"station", tools::dotted(notification.station)},
                      {"name", station.entry.name},
                      {"ident2", ident2Of(notification.device)},
                      {"ident3", ident3Of(notification.device)},
                      {"state", notification.device.source.state}};
    if (notification.event == UsbEvent::refused && usbLocked(station.panel)) {
        reply["usb_lock"] = station.panel.usbLock;
    }
    const bool sent = call.events.send(notification, [reply, caller = call.caller](Delivery delivery) mutable {
        reply["delivery"] = deliveryName(delivery);
        caller.reply(lineOf(reply));
    });
    if (sent) {
        return Reply::Mode::later;
    }
    reply["delivery"] = deliveryName(Delivery::notActivated);
    return lineOf(reply);
}

Reply plugDevice(const UsbCall &call)
{
    const Station station = call.station();
    const UsbDevice device = deviceOf(call, station.panel);
    return announce(call, station, plug(station, device));
}

Reply refuseDevice(const UsbCall &call)
{
    const Station station = call.station();
    return announce(call, station, refuse(station, deviceOf(call, station.panel)));
}

Reply unplugDevice(const UsbCall &call)
{
    const Station station = call.station();
    return announce(call, station, unplug(station, call.text("device")));
}

Reply changeDeviceState(const UsbCall &call)
{
    const Station station = call.station();
    UsbDevice checked;
    const Value value = fromJson(call.request.at("state"));
    if (const std::string mistake = assign(*findUsbKey("state"), checked, value); !mistake.empty()) {
        throw tools::Refused("state: " + mistake);
    }
    return announce(call, station, changeState(station, call.text("device"), checked.source.state));
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
    StormParameters parameters{.count = countOf(call.request, "count"), .rate = countOf(call.request, "rate")};
    if (parameters.count == 0) {
        throw tools::Refused("count: 0 is out of range; write 1 to 0xFFFFFFFF");
    }
    if (parameters.rate > kHighestRate) {
        throw tools::Refused("rate: " + std::to_string(parameters.rate) + " is out of range; write 1 to " +
                             std::to_string(kHighestRate) +
                             " events per second, or 0 for as fast as the receiver accepts them");
    }
    if (call.request.contains("station")) {
        parameters.station = call.station().entry.address;
    }
    beginUsbStorm(call.events, parameters, call.caller);
    return Reply::Mode::later;
}

struct UsbAction {
    std::string_view name;
    Reply (*carryOut)(const UsbCall &call);
    bool sendsEvent;  ///< then the event queue is checked before the action changes anything
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
            if (action.sendsEvent) {
                events.checkCapacity();
            }
            return action.carryOut({events, request, caller});
        }
    }
    return std::nullopt;
}

}  // namespace kvosim
