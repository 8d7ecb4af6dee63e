// Subcommands about what a station does when it gets the focus and at start, and about its channel information.
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"
#include "kvoctl/output/readers.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

constexpr std::size_t kLongestChannelInfo = 230;

/// The two halves of one setting, which the library asks for one by one.
Reading startup(uint32_t station)
{
    Reading active = numbers(KVO_HWS_getKVOStartupActive)(station);
    if (active.result != KVO_HWS_OK) {
        return active;
    }
    Reading priority = numbers(KVO_HWS_getKVOStartupPrio)(station);
    if (priority.result != KVO_HWS_OK) {
        return priority;
    }
    return {KVO_HWS_OK, {active.values.front(), priority.values.front()}};
}

}  // namespace

void addFocusCommands(CommandLine &commandLine)
{
    Family focus(commandLine, kOneStation, "focus", "What a station does when it gets the focus and at start");
    focus.add("priority", "Show the station's suspend lock and priority", {"10.0.0.5"},
              showing({{"suspend_lock", "suspend_priority"}, numbers(KVO_HWS_getKVOPriority)}));
    focus.add("startup", "Show whether, and with which priority, the station becomes active at start", {"10.0.0.5"},
              showing({{"startup_active", "startup_priority"}, startup}));
    focus.add("channel", "Show the channel that the station shows when it gets the focus", {"10.0.0.5"},
              showing({{"channel"}, numbers(KVO_HWS_getKVOChannelOnFocus)}));
    focus.add("screen", "Show the screen that the station shows when it gets the focus", {"10.0.0.5"},
              showing({{"screen"}, unsizedText(KVO_HWS_getKVOScreenOnFocus)}));
    focus.add("m2n", "Show the station's M:N assignment", {"10.0.0.5"}, showing({{"m2n"}, unsizedText(KVO_HWS_getKVOT2M2N)}));

    Family channelInfo(commandLine, kOneStation, "channel-info", "A station's channel information");
    channelInfo.add(
        "get", "Show the channel information", {"10.0.0.5"},
        showing({{"info"}, sizedText(KVO_HWS_getChannelInfo), {{KVO_HWS_NO, "the station has no channel information"}}}));
    channelInfo.add("set", "Store the channel information", {"10.0.0.5 \"Spindle 1, left\""},
                    order(KVO_HWS_setChannelInfo, {}, Text{"INFO", "At most 230 bytes", kLongestChannelInfo}));
    channelInfo.add("delete", "Delete the channel information", {"10.0.0.5"}, order(KVO_HWS_deleteChannelInfo, {}));
}

}  // namespace kvoctl
