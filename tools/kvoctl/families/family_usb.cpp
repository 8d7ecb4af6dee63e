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

/// Asked of no station in particular, but shown the same way.
Report showAllConnectors(const Property &ofOneStation)
{
    const auto read = [](uint32_t) { return tools::readText(KVO_REQUEST(KVO_HWS_getUsbConnectorList)); };
    return show({ofOneStation.keys, read}, 0);
}

Action setUpConnectors(CLI::App &command)
{
    const auto stations = addStations(command, std::string("One station, else all of them: ") + kStationForms);
    return [stations, &property = tools::stationProperty("usb connectors")] {
        if (stations->empty()) {
            return showAllConnectors(property);
        }
        if (stations->size() > 1) {
            throw UsageError("one station at most");
        }
        return show(property, stationAddress(stations->front()));
    };
}

// ---- kvoctl usb lock set ----

/// All addresses before the first datagram: an unknown name must not leave half of the stations locked.
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
    return done(KVO_REQUEST(KVO_HWS_setUsbLock)(static_cast<uint32_t>(hosts.size()), hosts.data(), first, second));
}

Action setUpUsbLock(CLI::App &command)
{
    const auto first = Number<int>{"FIRST", "The lock's first number"}.addTo(command);
    const auto second = Number<int>{"SECOND", "The lock's second number"}.addTo(command);
    first.option->required();
    second.option->required();
    const auto stations = addStations(command, std::string("The stations: ") + kStationForms);
    auto *all = addFlag(command, "--all", "Every station, without looking any up");
    return [=] {
        // Every station of a plant is too much to lock by a word that was left out.
        if (stations->empty() == (all->count() == 0)) {
            throw UsageError(stations->empty() ? "name the stations, or give --all for every station"
                                               : "--all is for every station; name none");
        }
        return setLock(*stations, *first.value, *second.value);
    };
}

}  // namespace

void addUsbCommands(CommandLine &commandLine)
{
    Family usb(commandLine, kOneStation, "usb", "The USB lock, connectors and devices of stations");
    Family lock(usb, "lock", "The USB lock of stations");
    lock.add("get", "Show the two numbers of a station's USB lock", {"10.0.0.5"}, showing("usb lock get"));
    lock.add("set", "Set the USB lock of stations over the network, without waiting for an answer",
             {"1 0 10.0.0.5", "0 0 10.0.0.5 \"Portal mill\"", "0 0 --all"}, setUpUsbLock);
    usb.add("connectors", "Show the list of the USB connectors of all stations or of one", {"", "10.0.0.5"}, setUpConnectors);
    addUsbEventCommands(usb, commandLine);
}

}  // namespace kvoctl
