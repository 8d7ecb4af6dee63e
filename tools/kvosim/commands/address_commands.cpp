// Commands for the numbers that identify stations: machine control panel, direct control keys, KVO index and cks index.
#include "kvosim/commands/command_table.h"

#include <array>
#include <cstdio>

namespace kvosim {

namespace {

constexpr uint32_t kHighestCksIndex = 255;

std::string setCksIndex(const StationCall &call)
{
    const auto text = unquoted(call.values);
    const auto index = text ? number(*text) : std::nullopt;
    if (!index) {
        return kFailed;
    }
    if (call.panel().cksFixed != 0 || *index > kHighestCksIndex) {
        return kBadRequest;
    }
    call.panel().cksIndex = *index;
    return kOk;
}

/// Returns the station that has the number. 0 means "no number", so no station is found for it.
Handler findsStation(int64_t Panel::*member, const char *none, const char *several)
{
    return [=](ServiceContext &context, std::string_view argument) -> std::string {
        const auto wanted = eightDigits(argument);
        if (!wanted) {
            return kFailed;
        }
        const auto panels = context.plant.panels();
        const ConnectionEntry *found = nullptr;
        for (std::size_t i = 0; *wanted != 0 && i < panels.size(); ++i) {
            if (panels[i].*member != int64_t{*wanted} || panels[i].rebooting(context.plant.clock)) {
                continue;
            }
            if (found != nullptr) {
                return several;
            }
            found = &context.plant.stations()[i];
        }
        if (found == nullptr) {
            return none;
        }
        std::array<char, sizeof "ipaddr=0A000005"> reply{};
        std::snprintf(reply.data(), reply.size(), "ipaddr=%08X", found->address);
        return reply.data();
    };
}

}  // namespace

std::span<const Command> addressCommands()
{
    static const Command rows[] = {
        {"setMCPAddress=", setsKey("mcp_address", Quotes::around)},
        {"getMCPAddress=", returnsKey("mcpaddr=", "mcp_address")},
        {"setKVOIndex=", setsKey("kvo_index", Quotes::around)},
        {"getKVOIndex=", returnsKey("kvoindex=", "kvo_index")},
        {"setDCKEnable=", setsKey("dck_enable", Quotes::around)},
        {"getDCKEnable=", returnsKey("dckenable=", "dck_enable")},
        {"getDCKAddress=", returnsKey("dckaddr=", "dck_address")},
        {"setKVOCksIndex=", onStation(setCksIndex)},
        {"getKVOCksIndex=", returnsKey("cksindex=", "cks_index")},
        {"simulateMCPKey=", setsKey("simulated_mcp_key", Quotes::around)},
        {"enableMCPKey=", setsKey("enabled_mcp_key", Quotes::around)},
        {"getIPbyMCPAddress=", findsStation(&Panel::mcpAddress, "no_mcp_address", "more_than_one_mcp")},
        {"getIPbyDCKAddress=", findsStation(&Panel::dckAddress, "no_dck_address", "more_than_one_dck")},
        {"getIPbyKVOIndex=", findsStation(&Panel::kvoIndex, "no_kvo_index", "more_than_one_kvo_index")},
    };
    return rows;
}

}  // namespace kvosim
