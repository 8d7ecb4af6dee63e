// Subcommands about a station's behaviour on focus and at start, and about its channel information.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

constexpr std::size_t kLongestChannelInfo = 230;

}  // namespace

void addFocusCommands(CommandLine &commandLine)
{
    Family focus(commandLine, kOneStationHeading, "focus", "A station's behaviour when it gets the focus, and at start");
    focus.add("priority", "Show the station's suspend lock and priority", {"10.0.0.5"}, showCommand("focus priority"));
    focus.add("startup", "Show whether, and with which priority, the station becomes active at start", {"10.0.0.5"},
              showCommand("focus startup"));
    focus.add("channel", "Show the channel that the station shows when it gets the focus", {"10.0.0.5"},
              showCommand("focus channel"));
    focus.add("screen", "Show the screen that the station shows when it gets the focus", {"10.0.0.5"},
              showCommand("focus screen"));
    focus.add("m2n", "Show the station's M:N assignment", {"10.0.0.5"}, showCommand("focus m2n"));

    Family channelInfo(commandLine, kOneStationHeading, "channel-info", "A station's channel information");
    channelInfo.add("get", "Show the channel information", {"10.0.0.5"}, showCommand("channel-info get"));
    channelInfo.add(
        "set", "Store the channel information", {"10.0.0.5 \"Spindle 1, left\""},
        requestCommand(KVO_REQUEST(KVO_HWS_setChannelInfo), Text{"INFO", "At most 230 bytes", kLongestChannelInfo}));
    channelInfo.add("delete", "Delete the channel information", {"10.0.0.5"},
                    requestCommand(KVO_REQUEST(KVO_HWS_deleteChannelInfo)));
}

}  // namespace kvoctl
