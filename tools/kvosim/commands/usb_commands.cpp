// Commands for the USB connectors of stations, the USB lock and USB events, and the datagrams that set the lock.
#include "kvosim/commands/command_table.h"

#include "common/dotted_address.h"
#include "common/join.h"
#include "kvosim/plant/usb_ports.h"

#include <algorithm>

namespace kvosim {

namespace {

std::string getConnectorsOfOne(const StationCall &call)
{
    return call.panel().usbScanning != 0 ? kBusy : "usb-connector-list-one=" + connectorsOf(call.panel());
}

/// "address connector connector;address connector". Stations without connectors are omitted.
std::string getConnectors(ServiceContext &context, std::string_view)
{
    std::string list;
    const auto panels = context.plant.panels();
    for (std::size_t i = 0; i < panels.size(); ++i) {
        if (panels[i].usbScanning != 0) {
            return kBusy;
        }
        const std::string connectors = connectorsOf(panels[i]);
        if (!connectors.empty() && !panels[i].rebooting(context.plant.clock)) {
            tools::appendTo(list, ";", tools::dotted(context.plant.stations()[i].address));
            list.append(" ").append(connectors);
        }
    }
    return "usb-connector-list=" + list;
}

std::string activateEvents(ServiceContext &context, std::string_view)
{
    context.usbEventsActivated = true;
    return kOk;
}

std::string deactivateEvents(ServiceContext &context, std::string_view)
{
    context.usbEventsActivated = false;
    return kOk;
}

std::string areEventsActivated(ServiceContext &context, std::string_view) { return context.usbEventsActivated ? "yes" : "no"; }

/// Clients send signed numbers and read unsigned ones: the bits are the same.
std::optional<uint32_t> lockNumber(std::string_view text)
{
    const auto value = number<int64_t>(text);
    if (!value || *value < INT32_MIN || *value > int64_t{UINT32_MAX}) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*value);
}

}  // namespace

bool applyUsbLock(Plant &plant, std::string_view datagram)
{
    constexpr std::string_view kBeginning = "setUsbLock=";
    if (!datagram.starts_with(kBeginning) || !datagram.ends_with('\n')) {
        return false;
    }
    const auto [quoted, host] = split(datagram.substr(kBeginning.size(), datagram.size() - kBeginning.size() - 1), ' ');
    const auto [first, second] = split(unquoted(quoted).value_or(""), ':');
    const auto firstNumber = lockNumber(first);
    const auto secondNumber = lockNumber(second);
    const auto address = tools::parseDotted(std::string(host));
    if (!firstNumber || !secondNumber || !address) {
        return false;
    }
    const std::string lock = std::to_string(*firstNumber) + ':' + std::to_string(*secondNumber);
    if (*address != 0) {
        const auto station = findReachable(plant, *address);
        return station && assign(stationKey("usb_lock"), *station, lock).empty();
    }
    for (Panel &panel : plant.panels()) {
        panel.usbLock = panel.rebooting(plant.clock) ? panel.usbLock : lock;
    }
    return true;
}

std::span<const Command> usbCommands()
{
    static const Command rows[] = {
        {"getUsbLock=", returnsKey("usb-lock=", "usb_lock")},
        {"getUsbConnectorList", getConnectors},
        {"getUsbConnectorListOne=", onStationWithoutValues(getConnectorsOfOne)},
        {"activateUSBEvents", activateEvents},
        {"deactivateUSBEvents", deactivateEvents},
        {"isUSBEventsActivated", areEventsActivated},
    };
    return rows;
}

}  // namespace kvosim
