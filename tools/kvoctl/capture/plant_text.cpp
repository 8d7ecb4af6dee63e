// Each station is a table. Values that were read are written even if they are the default, so that the file keeps its meaning.
#include "kvoctl/capture/plant_text.h"

#include "common/dotted_address.h"
#include "common/plant_values.h"
#include "common/toml_text.h"
#include "common/utf8.h"
#include "kvoctl/output/station_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

namespace kvoctl {

namespace {

constexpr std::string_view kHeader =
    "# A plant that \"kvoctl capture\" has read from a service. \"kvosim serve --plant FILE\" simulates it.\n";

constexpr std::array<std::string_view, 3> kDebugLevels{"DEBUG_LEVEL_NONE", "DEBUG_LEVEL_I", "DEBUG_LEVEL_II"};

Setting versionSetting(const Answer &answer)
{
    constexpr std::string_view kKey = "version";
    const bool isVersion = answer.reply && *answer.reply != "failed";
    return isVersion ? textSetting(kKey, *answer.reply, tools::isVersion) : notRead(kKey, answer);
}

Setting debugLevelSetting(const Answer &answer)
{
    constexpr std::string_view kKey = "debug_level";
    const auto *const level = std::ranges::find(kDebugLevels, answer.reply.value_or(""));
    return level == kDebugLevels.end() ? notRead(kKey, answer) : Setting{kKey, std::to_string(level - kDebugLevels.begin())};
}

/// Why a plant file cannot contain the name; empty if it can.
std::string mistakeIn(const std::string &name)
{
    const std::string mistake = tools::isUtf8(name) ? tools::mistakeInName(name) : "is not valid UTF-8";
    return mistake.empty() ? "" : "not written: " + shown(name) + ' ' + mistake;
}

bool isRefused(const Answer &answer) { return answer.reply == "failed" || answer.reply == "not found"; }

// ---- The registry ----

struct RegistryLine {
    std::string name;
    std::string address;
    std::array<uint32_t, 3> attributes;
};

/// Removes a number and the text that follows it from the front of @p rest.
std::optional<uint32_t> takeNumber(std::string_view &rest, std::string_view after)
{
    int64_t number = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    if (error != std::errc() || !rest.starts_with(after) || number < std::numeric_limits<int32_t>::min() ||
        number > std::numeric_limits<uint32_t>::max()) {
        return std::nullopt;
    }
    rest.remove_prefix(after.size());
    return static_cast<uint32_t>(number);
}

/// "NAME" ADDRESS ATTR1xATTR2:ATTR3
std::optional<RegistryLine> parseRegistryLine(std::string_view line)
{
    const std::size_t end = line.rfind("\" ");
    if (!line.starts_with('"') || end == 0 || end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view rest = line.substr(end + 2);
    const std::string address(rest.substr(0, rest.find(' ')));
    rest.remove_prefix(std::min(address.size() + 1, rest.size()));
    const auto attr1 = takeNumber(rest, "x");
    const auto attr2 = attr1 ? takeNumber(rest, ":") : std::nullopt;
    const auto attr3 = attr2 ? takeNumber(rest, "") : std::nullopt;
    if (!attr3 || !rest.empty() || !tools::parseDotted(address)) {
        return std::nullopt;
    }
    return RegistryLine{std::string(line.substr(1, end - 1)), address, {*attr1, *attr2, *attr3}};
}

}  // namespace

PlantText::PlantText(const Answer &ready, const Answer &version, const Answer &debugLevel) : text_(kHeader)
{
    if (ready.reply != "yes") {
        addFailure("", "",
                   ready.reply == "no" ? "the service had not finished starting; stations and values may be missing"
                                       : "whether the service has finished starting was " + kvoctl::notRead("", ready).reason);
    }
    text_ += "\n[service]\n";
    add("", versionSetting(version));
    add("", debugLevelSetting(debugLevel));
}

void PlantText::add(const std::string &station, const Setting &setting)
{
    if (setting.reason.empty()) {
        text_.append(setting.key).append(" = ").append(setting.value).append("\n");
    } else if (setting.isProperty) {
        addComment(setting.key, setting.reason);
    } else {
        addFailure(station, setting.key, setting.reason);
    }
}

void PlantText::addFailure(const std::string &station, std::string_view key, const std::string &reason)
{
    addComment(key, reason);
    notRead_.push_back({station, std::string(key), reason});
}

void PlantText::addComment(std::string_view key, std::string_view reason)
{
    text_.append("# ").append(key).append(key.empty() ? "" : ": ").append(reason).append("\n");
}

void PlantText::addMissing(std::string_view key, const std::string &reason)
{
    text_ += '\n';
    addFailure("", key, reason);
}

void PlantText::addClients(std::span<const KvoClientEntry> clients)
{
    for (const KvoClientEntry &client : clients) {
        const std::string name = nameOf(client);
        text_ += '\n';
        if (const std::string mistake = mistakeIn(name); !mistake.empty()) {
            addFailure("", "client", mistake);
            continue;
        }
        text_ += "[[client]]\nname = " + tools::tomlQuoted(name) + "\nvalue = " + std::to_string(client.value) + '\n';
    }
}

/// Begins a table. A name that a plant file cannot contain is replaced by the address, so that the other values are kept. Returns
/// false if the file cannot contain the station.
bool PlantText::addIdentity(std::string_view table, Used &used, const Identity &identity)
{
    text_ += '\n';
    if (identity.address == "0.0.0.0" || !used.addresses.insert(identity.address).second) {
        addFailure(identity.address, table,
                   "not written: " + shown(identity.name) + " has the address " + identity.address +
                       (identity.address == "0.0.0.0" ? ", which means no station" : ", like a station before it"));
        return false;
    }
    std::string mistake = mistakeIn(identity.name);
    if (mistake.empty() && !used.names.insert(identity.name).second) {
        mistake = "not written: " + shown(identity.name) + " is the name of a station before it";
    }
    if (!mistake.empty() && !used.names.insert(identity.address).second) {
        addFailure(identity.address, table, mistake + ", and " + identity.address + " is one too");
        return false;
    }
    text_.append("[[").append(table).append("]]\naddress = ").append(tools::tomlQuoted(identity.address)).append("\n");
    if (!mistake.empty()) {
        addFailure(identity.address, "name", mistake);
    }
    text_ += "name = " + tools::tomlQuoted(mistake.empty() ? identity.name : identity.address) + '\n';
    return true;
}

void PlantText::addPrevious(std::string_view registry)
{
    Used used;
    while (!registry.empty()) {
        const std::size_t length = std::min(registry.find('\n'), registry.size());
        std::string_view line = registry.substr(0, length);
        registry.remove_prefix(std::min(length + 1, registry.size()));
        line.remove_suffix(line.ends_with('\r') ? 1 : 0);
        addPreviousLine(used, line);
    }
}

void PlantText::addPreviousLine(Used &used, std::string_view line)
{
    constexpr std::string_view kTable = "registry.previous";
    const std::optional<RegistryLine> station = parseRegistryLine(line);
    if (!station) {
        addMissing(kTable, "not written: " + shown(line) + " is not a line of the registry");
        return;
    }
    if (addIdentity(kTable, used, {station->address, station->name})) {
        for (std::size_t i = 0; i < station->attributes.size(); ++i) {
            text_ += "attr" + std::to_string(i + 1) + " = " + std::to_string(station->attributes.at(i)) + '\n';
        }
    }
}

void PlantText::addStation(const KvoDescriptionEx &station, std::span<const Answer> answers)
{
    const std::string address = tools::dotted(station.address);
    if (!addIdentity("station", stations_, {address, nameOf(station)})) {
        return;
    }
    text_ += "attr1 = " + std::to_string(station.attr1) + "\nattr2 = " + std::to_string(station.attr2) +
             "\nattr3 = " + std::to_string(station.attr3) + "\next = [";
    const std::array ext{station.extAttr1, station.extAttr2, station.extAttr3, station.extAttr4,
                         station.extAttr5, station.extAttr6, station.extAttr7};
    for (std::size_t i = 0; i < ext.size(); ++i) {
        text_.append(i == 0 ? "" : ", ").append(std::to_string(ext.at(i)));
    }
    text_ += "]\n";
    if (std::ranges::all_of(answers, isRefused)) {
        addFailure(address, "",
                   "other keys: not read: the service refuses requests about this station, which may be rebooting");
        return;
    }
    const bool isUnread = std::ranges::none_of(answers, [](const Answer &answer) { return answer.reply.has_value(); });
    const bool isAlike =
        std::ranges::all_of(answers, [&](const Answer &each) { return each.reason == answers.front().reason; });
    if (isUnread && isAlike) {
        addFailure(address, "", "other keys: not read: " + answers.front().reason);
        return;
    }
    for (const StationRequest &request : stationRequests()) {
        for (const Setting &setting : request.read(answers.first(request.commands.size()))) {
            add(address, setting);
        }
        answers = answers.subspan(request.commands.size());
    }
}

}  // namespace kvoctl
