// Commands about what a station does when it gets the focus and at its start, and about its channel information.
#include "kvosim/commands/command_table.h"

namespace kvosim {

std::span<const Command> focusCommands()
{
    static const Command rows[] = {
        {"getKVOPriority=", tells("Priority=", "priority")},
        {"getKVOStartupActive=", tells("startup-active=", "startup_active")},
        {"getKVOStartupPrio=", tells("startup-prio=", "startup_prio")},
        {"getKVOChannelOnFocus=", tells("channel-on-focus=", "channel_on_focus")},
        {"getKVOScreenOnFocus=", tells("screen-on-focus=", "screen_on_focus")},
        {"getKVOt2m2n=", tells("", "t2m2n")},  // the whole reply is the text
        {"setChannelInfo=", sets("channel_info", Quotes::around)},
        {"getChannelInfo=", tells("channel-info=", "channel_info")},
        {"deleteChannelInfo=", onStationAlone([](const StationCall &call) {
             call.panel().channelInfo.clear();
             return kOk;
         })},
    };
    return rows;
}

}  // namespace kvosim
