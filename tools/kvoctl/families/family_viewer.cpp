// Subcommands about a station's viewer, its status line, focus and reboot.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

// A request longer than 1024 bytes is cut. Three texts of this length fit.
constexpr std::size_t kLongestPart = 300;

CommandSetup setUpStop()
{
    return [](CLI::App &command) -> Action {
        const auto station = addStation(command);
        auto *preempt = addFlag(command, "--preempt", "Stop the viewer ahead of other waiting requests");
        auto *noClean = addFlag(command, "--no-clean", "Do not clean up after the viewer");
        preempt->excludes(noClean);
        return [=] {
            const auto request = preempt->count() > 0   ? KVO_REQUEST(KVO_HWS_setStopViewerPreempt)
                                 : noClean->count() > 0 ? KVO_REQUEST(KVO_HWS_setStopViewerNoClean)
                                                        : KVO_REQUEST(KVO_HWS_setStopViewer);
            return reportDone(request(stationAddress(*station)));
        };
    };
}

}  // namespace

void addViewerCommands(CommandLine &commandLine)
{
    Family viewer(commandLine, kOneStationHeading, "viewer", "A station's viewer, status line, focus and reboot");
    viewer.add("start", "Start the viewer; the service interprets the connection data, PART1 to PART3",
               {"10.0.0.5 nc-hall1 0 full"},
               requestCommand(KVO_REQUEST(KVO_HWS_setStartViewer), Text{"PART1", "First part", kLongestPart},
                              Text{"PART2", "Second part", kLongestPart}, Text{"PART3", "Third part", kLongestPart}));
    viewer.add("start-configured", "Start the viewer for a configured connection", {"10.0.0.5 nc-hall1 1"},
               requestCommand(KVO_REQUEST(KVO_HWS_startConfiguredViewer), Text{"TEXT", "The connection", kLongestPart},
                              Number<>{"NUMBER", "The number of the connection"}));
    viewer.add("stop", "Stop the viewer", {"10.0.0.5", "10.0.0.5 --preempt", "\"Portal mill\" --no-clean"}, setUpStop());
    viewer.add("active", "Show whether the viewer is running", {"10.0.0.5"}, showCommand("viewer active"));
    viewer.add("server", "Show which server and display the viewer shows", {"10.0.0.5"}, showCommand("viewer server"));
    viewer.add("status-line", "Write the station's status line", {"10.0.0.5 1 2 \"Tool 7 is worn\""},
               requestCommand(KVO_REQUEST(KVO_HWS_setStatusline),
                              Number<>{"VALUE1", "The first number; the service defines its meaning"},
                              Number<>{"VALUE2", "The second number; the service defines its meaning"},
                              Text{"TEXT", "The text of the line", kLongestPart}));
    viewer.add("activate-me", "Request the focus for the station", {"10.0.0.5"},
               requestCommand(KVO_REQUEST(KVO_HWS_setActivateMe)));
    viewer.add("reboot", "Reboot the station", {"10.0.0.5"}, requestCommand(KVO_REQUEST(KVO_HWS_rebootKVO)));
}

}  // namespace kvoctl
