// The command table and its handlers. A keyword stands with the character that ends it, so that it reads as it goes over the
// wire; what follows it is the handler's.
#include "commands.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

namespace kvosim {

namespace {

constexpr const char *kOk = "ok";
constexpr std::size_t kStationDigits = 8;

// ---- Arguments ----

/// Digits and nothing else, in 32 bits.
std::optional<uint32_t> number(std::string_view text, int base = 10)
{
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

/// A station as clients send it: eight upper-case hexadecimal digits.
std::optional<uint32_t> stationAddress(std::string_view text)
{
    if (text.size() != kStationDigits || text.find_first_not_of("0123456789ABCDEF") != std::string_view::npos) {
        return std::nullopt;
    }
    return number(text, 16);
}

/// A switch is sent as 0 or 1.
std::optional<uint32_t> onOff(std::string_view text) { return text == "0" || text == "1" ? number(text) : std::nullopt; }

// ---- The service itself ----

using Names = std::array<std::string_view, 3>;
constexpr Names kDebugLevels = {"DEBUG_LEVEL_NONE", "DEBUG_LEVEL_I", "DEBUG_LEVEL_II"};

std::string setDebugLevel(ServiceContext &context, std::string_view level)
{
    const auto found = std::find(kDebugLevels.begin(), kDebugLevels.end(), level);
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
    return Clock::now() - context.started >= context.plant.service.initTime ? "yes" : "no";
}

std::string killDaemon(ServiceContext &context, std::string_view)
{
    context.ending = true;
    return kOk;
}

// ---- The registry ----

std::string lockRegistry(ServiceContext &context, std::string_view) { return context.registry.lock() ? kOk : "busy"; }

std::string unlockRegistry(ServiceContext &context, std::string_view) { return context.registry.unlock() ? kOk : kFailed; }

std::string getRegistryPath(ServiceContext &context, std::string_view) { return context.registry.path(); }

// ---- The panels ----

std::string setBacklight(ServiceContext &context, std::string_view mode)
{
    const auto value = onOff(mode);
    if (!value) {
        return kFailed;
    }
    context.plant.service.backlight = *value;
    return kOk;
}

/// A command about one station, which stands at the end, behind a space where values stand before it. The handler gets the
/// station's panel and the values.
template <std::string (*handle)(Panel &, std::string_view values)>
std::string onStation(ServiceContext &context, std::string_view arguments)
{
    if (arguments.size() < kStationDigits) {
        return kFailed;
    }
    std::string_view values = arguments.substr(0, arguments.size() - kStationDigits);
    const auto address = stationAddress(arguments.substr(values.size()));
    if (!address || (!values.empty() && !values.ends_with(' '))) {
        return kFailed;
    }
    values.remove_suffix(values.empty() ? 0 : 1);
    Panel *panel = context.plant.findPanel(*address);
    return panel == nullptr ? kFailed : handle(*panel, values);
}

std::string setBrightness(Panel &panel, std::string_view mode)
{
    const auto value = onOff(mode);
    if (!value) {
        return kFailed;
    }
    panel.brightness = *value;
    return kOk;
}

// ---- The stations ----

std::string countStations(ServiceContext &context, std::string_view) { return std::to_string(context.plant.stations().size()); }

/// The list is sent whole, however small the client's array: the client reads from its head how much room it needs.
template <int (*convert)(uint32_t, const ConnectionEntry *, char *, uint32_t)>
std::string listStations(ServiceContext &context, std::string_view capacity)
{
    if (!number(capacity)) {
        return kFailed;
    }
    const auto stations = context.plant.stations();
    const auto count = static_cast<uint32_t>(stations.size());
    std::string text(static_cast<std::size_t>(convert(count, stations.data(), nullptr, 0)), '\0');
    convert(count, stations.data(), text.data(), static_cast<uint32_t>(text.size()));
    text.resize(text.find('\0'));
    return text;
}

std::string describe(const ConnectionEntry *station)
{
    if (station == nullptr) {
        return "not found";
    }
    constexpr std::size_t kRoomBesideName = 117;
    std::string text(std::string_view(station->name).size() + kRoomBesideName, '\0');
    ConvertConElem2TextEx(station, text.data(), static_cast<uint32_t>(text.size()));
    text.resize(text.find('\0'));
    return text;
}

std::string describeByAddress(ServiceContext &context, std::string_view text)
{
    const auto address = stationAddress(text);
    return address ? describe(context.plant.findAddress(*address)) : kFailed;
}

std::string describeByName(ServiceContext &context, std::string_view name)
{
    return name.empty() ? kFailed : describe(context.plant.findName(name));
}

struct Command {
    std::string_view keyword;
    std::string (*handle)(ServiceContext &context, std::string_view arguments);
};

constexpr Command kCommands[] = {
    {"setDebugLevel=", setDebugLevel},
    {"getDebugLevel", getDebugLevel},
    {"lockKVORegData", lockRegistry},
    {"unlockKVORegData", unlockRegistry},
    {"getVersion", getVersion},
    {"setBacklight=", setBacklight},
    {"setBrightness=", onStation<setBrightness>},
    {"isInitComplete", isInitComplete},
    {"getregistrypath", getRegistryPath},
    {"killDaemon", killDaemon},
    {"getCountElemDL", countStations},
    {"getDLV2 ", listStations<ConvertConArray2Text>},
    {"getCountElemDL_Ex", countStations},
    {"getDL_ExV2 ", listStations<ConvertConArray2TextEx>},
    {"getExDescByIP ", describeByAddress},
    {"getExDescByName ", describeByName},
};

}  // namespace

std::string answer(ServiceContext &context, std::string_view request)
{
    const std::size_t end = request.find_first_of("= ");
    const std::string_view keyword = request.substr(0, end == std::string_view::npos ? end : end + 1);
    const auto command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                      [keyword](const Command &row) { return row.keyword == keyword; });
    return command == std::end(kCommands) ? kFailed : command->handle(context, request.substr(keyword.size()));
}

}  // namespace kvosim
