// Commands for a station's viewer, focus, status line and reboot.
#include "kvosim/commands/command_table.h"

#include <algorithm>

namespace kvosim {

namespace {

std::string isViewerActive(const StationCall &call) { return call.panel().viewer.empty() ? "not active" : "active"; }

std::string getCurServer(const StationCall &call)
{
    return call.panel().viewer.empty() ? std::string(kNoValue) : "vncserver=" + call.panel().viewer;
}

/// A station runs one viewer at a time. The client must stop it before it starts another one.
std::string show(const StationCall &call, std::string_view server, std::string_view display)
{
    if (call.panel().viewerBusy != 0 || !call.panel().viewer.empty()) {
        return kBusy;
    }
    const std::string viewer = std::string(server) + ':' + std::string(display);
    return assign(stationKey("viewer"), call.station, viewer).empty() ? kOk : kFailed;
}

/// The connection data are "server:display:options". The simulator ignores the options.
std::string startViewer(const StationCall &call)
{
    const auto data = unquoted(call.values);
    if (!data) {
        return kFailed;
    }
    const auto [server, rest] = split(*data, ':');
    const std::size_t options = rest.find(':');
    return options == std::string_view::npos ? kFailed : show(call, server, rest.substr(0, options));
}

/// Here the connection is "server:display", and the display is a number.
std::string startConfiguredViewer(const StationCall &call)
{
    const auto connection = unquoted(call.values);
    if (!connection) {
        return kFailed;
    }
    const auto [server, display] = split(*connection, ':');
    return number(display) ? show(call, server, display) : kFailed;
}

enum class Cleanup { full, none };

/// The cleanup also clears the status line.
template <Cleanup cleanup>
std::string stopViewer(const StationCall &call)
{
    if (call.panel().viewer.empty()) {
        return "not running";
    }
    call.panel().viewer.clear();
    if (cleanup == Cleanup::full) {
        call.panel().statusLine.clear();
    }
    return kOk;
}

std::string activateMe(const StationCall &call)
{
    Focus &focus = call.context.plant.focus;
    const uint32_t address = call.station.entry.address;
    const auto now = call.context.plant.clock.now();
    const bool held =
        focus.station != 0 && focus.station != address && now - focus.since < call.context.plant.service.focusHold;
    if (held || call.panel().focusBusy != 0) {
        return kBusy;
    }
    if (focus.station != address) {
        focus = {address, now};
    }
    return kOk;
}

/// The station loses its volatile state at once, and is reachable again after its reboot time.
std::string reboot(const StationCall &call)
{
    Panel &panel = call.panel();
    panel.viewer.clear();
    panel.statusLine.clear();
    panel.statusValue1 = 0;
    panel.statusValue2 = 0;
    panel.simulatedMcpKey.clear();
    panel.swCapsLock = std::min(panel.swCapsLock, int64_t{0});  // off if it was on; -1 stays
    panel.rebootsUntil = call.context.plant.clock.now() + std::chrono::milliseconds(panel.rebootTime);
    Focus &focus = call.context.plant.focus;
    if (focus.station == call.station.entry.address) {
        focus = {};
    }
    return kOk;
}

/// Here the station comes first, and commas separate: "station,value1,value2,text". The text may contain commas.
std::string setStatusline(ServiceContext &context, std::string_view arguments)
{
    const auto [address, values] = split(arguments, ',');
    const auto [first, more] = split(values, ',');
    const std::size_t comma = more.find(',');
    const auto value1 = number(first);
    const auto value2 = number(more.substr(0, comma));
    const auto named = eightDigits(address);
    const auto station = named ? findReachable(context.plant, *named) : std::nullopt;
    if (!station || !value1 || !value2 || comma == std::string_view::npos ||
        !assign(stationKey("status_line"), *station, std::string(more.substr(comma + 1))).empty()) {
        return kFailed;
    }
    station->panel.statusValue1 = *value1;
    station->panel.statusValue2 = *value2;
    return kOk;
}

}  // namespace

std::span<const Command> viewerCommands()
{
    static const Command rows[] = {
        {"startViewer=", onStation(startViewer)},
        {"startConfiguredViewer=", onStation(startConfiguredViewer)},
        {"stopViewer=", onStationWithoutValues(stopViewer<Cleanup::full>)},
        {"stopViewerPreempt=", onStationWithoutValues(stopViewer<Cleanup::full>)},
        {"stopViewerNoClean=", onStationWithoutValues(stopViewer<Cleanup::none>)},
        {"isViewerActive=", onStationWithoutValues(isViewerActive)},
        {"getCurServer=", onStationWithoutValues(getCurServer)},
        {"activateMe=", onStationWithoutValues(activateMe)},
        {"reboot=", onStationWithoutValues(reboot)},
        {"setStatusline=", setStatusline},
    };
    return rows;
}

}  // namespace kvosim
