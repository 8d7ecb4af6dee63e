// Commands for what a station does at startup and when it gets the focus, and for its channel information.
#include "kvosim/commands/command_table.h"

namespace kvosim {

std::span<const Command> focusCommands()
{
    static const Command rows[] = {
        {"getKVOPriority=", returns("Priority=", "priority")},
        {"getKVOStartupActive=", returns("startup-active=", "startup_active")},
        {"getKVOStartupPrio=", returns("startup-prio=", "startup_prio")},
        {"getKVOChannelOnFocus=", returns("channel-on-focus=", "channel_on_focus")},
        {"getKVOScreenOnFocus=", returns("screen-on-focus=", "screen_on_focus")},
        {"getKVOt2m2n=", returns("", "t2m2n")},  // the whole reply is the text
        {"setChannelInfo=", sets("channel_info", Quotes::around)},
        {"getChannelInfo=", returns("channel-info=", "channel_info")},
        {"deleteChannelInfo=", onStationOnly([](const StationCall &call) {
             call.panel().channelInfo.clear();
             return kOk;
         })},
    };
    return rows;
}

}  // namespace kvosim
