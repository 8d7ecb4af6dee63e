// Subcommands about a station's viewer, and the station around it.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

// A command has 1024 bytes, and longer ones are cut. Three of these fit.
constexpr std::size_t kLongestPart = 300;

SetUp stopping()
{
    return [](CLI::App &command) -> Action {
        const auto station = addStation(command);
        auto *preempt = addFlag(command, "--preempt", "Ahead of others that wait");
        auto *noClean = addFlag(command, "--no-clean", "Without cleaning up after the viewer");
        preempt->excludes(noClean);
        return [=] {
            const auto request = preempt->count() > 0   ? KVO_REQUEST(KVO_HWS_setStopViewerPreempt)
                                 : noClean->count() > 0 ? KVO_REQUEST(KVO_HWS_setStopViewerNoClean)
                                                        : KVO_REQUEST(KVO_HWS_setStopViewer);
            return done(request(stationAddress(*station)));
        };
    };
}

}  // namespace

void addViewerCommands(CommandLine &commandLine)
{
    Family viewer(commandLine, kOneStation, "viewer", "A station's viewer, and the station around it");
    viewer.add("start", "Start the viewer for connection data of three parts, which only the service understands",
               {"10.0.0.5 nc-hall1 0 full"},
               order(KVO_REQUEST(KVO_HWS_setStartViewer), Text{"PART1", "First part", kLongestPart},
                     Text{"PART2", "Second part", kLongestPart}, Text{"PART3", "Third part", kLongestPart}));
    viewer.add("start-configured", "Start the viewer for a configured connection", {"10.0.0.5 nc-hall1 1"},
               order(KVO_REQUEST(KVO_HWS_startConfiguredViewer), Text{"TEXT", "The connection", kLongestPart},
                     Number<>{"NUMBER", "Its number"}));
    viewer.add("stop", "Stop the viewer", {"10.0.0.5", "10.0.0.5 --preempt", "\"Portal mill\" --no-clean"}, stopping());
    viewer.add("active", "Tell whether the viewer runs", {"10.0.0.5"}, showing("viewer active"));
    viewer.add("server", "Show which server and display the viewer shows", {"10.0.0.5"}, showing("viewer server"));
    viewer.add("status-line", "Write the station's status line", {"10.0.0.5 1 2 \"Tool 7 is worn\""},
               order(KVO_REQUEST(KVO_HWS_setStatusline), Number<>{"VALUE1", "A number for the service"},
                     Number<>{"VALUE2", "Another one"}, Text{"TEXT", "The line", kLongestPart}));
    viewer.add("activate-me", "Ask for the focus on behalf of the station", {"10.0.0.5"},
               order(KVO_REQUEST(KVO_HWS_setActivateMe)));
    viewer.add("reboot", "Reboot the station", {"10.0.0.5"}, order(KVO_REQUEST(KVO_HWS_rebootKVO)));
}

}  // namespace kvoctl
