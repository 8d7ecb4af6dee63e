// Subcommands about the USB lock of stations, their USB connectors, and the events of their USB devices.
#include "common/dotted_address.h"
#include "common/station/readers.h"
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"
#include "kvoctl/live/usb_event_commands.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

// ---- kvoctl usb connectors ----

/// The request has no station. Its reply is shown like the reply for one station.
Report showAllConnectors(const Property &ofOneStation)
{
    const auto read = [](uint32_t) { return tools::readText(KVO_REQUEST(KVO_HWS_getUsbConnectorList)); };
    return show({ofOneStation.keys, read}, 0);
}

Action setUpConnectors(CLI::App &command)
{
    const auto stations = addStations(command, std::string("One station (default: all): ") + kStationForms);
    return [stations, &property = tools::stationProperty("usb connectors")] {
        if (stations->empty()) {
            return showAllConnectors(property);
        }
        if (stations->size() > 1) {
            throw UsageError("give at most one station");
        }
        return show(property, stationAddress(stations->front()));
    };
}

// ---- kvoctl usb lock set ----

/// Resolves all names before the library sends the first datagram: an unknown name must not leave half of the stations locked.
Report setLock(const std::vector<std::string> &stations, int first, int second)
{
    std::vector<std::string> addresses;
    addresses.reserve(stations.size());
    for (const std::string &station : stations) {
        addresses.push_back(tools::dotted(stationAddress(station)));
    }
    std::vector<const char *> hosts;
    hosts.reserve(addresses.size());
    for (const std::string &address : addresses) {
        hosts.push_back(address.c_str());
    }
    return reportDone(KVO_REQUEST(KVO_HWS_setUsbLock)(static_cast<uint32_t>(hosts.size()), hosts.data(), first, second));
}

Action setUpUsbLock(CLI::App &command)
{
    const auto first = Number<int>{"FIRST", "The lock's first number"}.addTo(command);
    const auto second = Number<int>{"SECOND", "The lock's second number"}.addTo(command);
    first.option->required();
    second.option->required();
    const auto stations = addStations(command, std::string("The stations: ") + kStationForms);
    auto *all = addFlag(command, "--all", "Set the lock of every station; no station is looked up");
    return [=] {
        // A forgotten argument must not lock every station of a plant.
        if (stations->empty() == (all->count() == 0)) {
            throw UsageError(stations->empty() ? "name the stations, or give --all for every station"
                                               : "--all means every station; do not name any");
        }
        return setLock(*stations, *first.value, *second.value);
    };
}

}  // namespace

void addUsbCommands(CommandLine &commandLine)
{
    Family usb(commandLine, kOneStationHeading, "usb", "The USB lock, connectors and devices of stations");
    Family lock(usb, "lock", "The USB lock of stations");
    lock.add("get", "Show the two numbers of a station's USB lock", {"10.0.0.5"}, showCommand("usb lock get"));
    lock.add("set", "Set the USB lock of stations over the network, without waiting for a reply",
             {"1 0 10.0.0.5", "0 0 10.0.0.5 \"Portal mill\"", "0 0 --all"}, setUpUsbLock);
    usb.add("connectors", "Show the list of USB connectors of all stations or of one", {"", "10.0.0.5"}, setUpConnectors);
    addUsbEventCommands(usb, commandLine);
}

}  // namespace kvoctl
