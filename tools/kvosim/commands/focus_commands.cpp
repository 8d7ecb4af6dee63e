// Commands for what a station does at startup and when it gets the focus, and for its channel information.
#include "kvosim/commands/command_table.h"

namespace kvosim {

std::span<const Command> focusCommands()
{
    static const Command rows[] = {
        {"getKVOPriority=", returnsKey("Priority=", "priority")},
        {"getKVOStartupActive=", returnsKey("startup-active=", "startup_active")},
        {"getKVOStartupPrio=", returnsKey("startup-prio=", "startup_prio")},
        {"getKVOChannelOnFocus=", returnsKey("channel-on-focus=", "channel_on_focus")},
        {"getKVOScreenOnFocus=", returnsKey("screen-on-focus=", "screen_on_focus")},
        {"getKVOt2m2n=", returnsKey("", "t2m2n")},  // the whole reply is the text
        {"setChannelInfo=", setsKey("channel_info", Quotes::around)},
        {"getChannelInfo=", returnsKey("channel-info=", "channel_info")},
        {"deleteChannelInfo=", onStationWithoutValues([](const StationCall &call) {
             call.panel().channelInfo.clear();
             return kOk;
         })},
    };
    return rows;
}

}  // namespace kvosim
