// Commands for the service itself and for its registry.
#include "kvosim/commands/command_table.h"

#include <algorithm>
#include <array>

namespace kvosim {

namespace {

constexpr std::array<std::string_view, 3> kDebugLevels = {"DEBUG_LEVEL_NONE", "DEBUG_LEVEL_I", "DEBUG_LEVEL_II"};

std::string setDebugLevel(ServiceContext &context, std::string_view level)
{
    const auto *const found = std::find(kDebugLevels.begin(), kDebugLevels.end(), level);
    if (found == kDebugLevels.end()) {
        return kFailed;
    }
    context.plant.service.debugLevel = static_cast<DebugLevel>(found - kDebugLevels.begin());
    return kOk;
}

std::string getDebugLevel(ServiceContext &context, std::string_view)
{
    return std::string(kDebugLevels.at(static_cast<std::size_t>(context.plant.service.debugLevel)));
}

std::string getVersion(ServiceContext &context, std::string_view) { return context.plant.service.version; }

std::string isInitComplete(ServiceContext &context, std::string_view)
{
    return context.plant.clock.now() - context.started >= context.plant.service.initTime ? "yes" : "no";
}

std::string killDaemon(ServiceContext &context, std::string_view)
{
    context.ending = true;
    return kOk;
}

std::string lockRegistry(ServiceContext &context, std::string_view) { return context.registry.lock() ? kOk : kBusy; }

std::string unlockRegistry(ServiceContext &context, std::string_view) { return context.registry.unlock() ? kOk : kFailed; }

std::string getRegistryPath(ServiceContext &context, std::string_view) { return context.registry.path(); }

/// Switches the backlight of the panel that the service runs on. The request names no station.
std::string setBacklight(ServiceContext &context, std::string_view mode)
{
    const auto value = onOff(mode);
    if (!value) {
        return kFailed;
    }
    context.plant.service.backlight = *value;
    return kOk;
}

}  // namespace

std::span<const Command> serviceCommands()
{
    static const Command rows[] = {
        {"setDebugLevel=", setDebugLevel},    {"getDebugLevel", getDebugLevel},     {"lockKVORegData", lockRegistry},
        {"unlockKVORegData", unlockRegistry}, {"getVersion", getVersion},           {"setBacklight=", setBacklight},
        {"isInitComplete", isInitComplete},   {"getregistrypath", getRegistryPath}, {"killDaemon", killDaemon},
    };
    return rows;
}

}  // namespace kvosim
