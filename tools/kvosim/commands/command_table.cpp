// Handlers that several commands share.
#include "kvosim/commands/command_table.h"

#include <array>
#include <byteswap.h>
#include <cstdio>

namespace kvosim {

namespace {

std::string format(const Value &value, Form form)
{
    if (const auto *text = std::get_if<std::string>(&value)) {
        return *text;
    }
    const int64_t number = std::get<int64_t>(value);
    if (form == Form::decimal) {
        return std::to_string(number);
    }
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08X", static_cast<uint32_t>(number));
    return digits.data();
}

Value valueOf(const StationKey &key, std::string_view text)
{
    if (std::holds_alternative<TextKey>(key.kind)) {
        return std::string(text);
    }
    const auto value = number<int64_t>(text);
    return value ? Value(*value) : Value();
}

}  // namespace

std::optional<Station> findReachable(Plant &plant, uint32_t number)
{
    const auto direct = plant.findStation(number);
    // Agents send an address as inet_aton stores it, lowest byte first: 0500000A for 10.0.0.5.
    const auto station = direct ? direct : plant.findStation(bswap_32(number));
    return station && !station->rebooting() ? station : std::nullopt;
}

Handler onStation(StationHandler handle)
{
    return [handle = std::move(handle)](ServiceContext &context, std::string_view arguments) -> std::string {
        if (arguments.size() < kStationDigits) {
            return kFailed;
        }
        std::string_view values = arguments.substr(0, arguments.size() - kStationDigits);
        const auto address = eightDigits(arguments.substr(values.size()));
        if (!address || (!values.empty() && !values.ends_with(' '))) {
            return kFailed;
        }
        values.remove_suffix(values.empty() ? 0 : 1);
        const auto station = findReachable(context.plant, *address);
        return station ? handle({context, *station, values}) : kFailed;
    };
}

Handler onStationWithoutValues(StationHandler handle)
{
    return onStation(
        [handle = std::move(handle)](const StationCall &call) { return call.values.empty() ? handle(call) : kFailed; });
}

Handler setsKey(std::string_view key, Quotes quotes)
{
    return onStation([&key = stationKey(key), quotes](const StationCall &call) -> std::string {
        const auto value = quotes == Quotes::around ? unquoted(call.values) : call.values;
        return value && assign(key, call.station, valueOf(key, *value)).empty() ? kOk : kFailed;
    });
}

Handler returnsKey(std::string_view prefix, std::string_view key, Form form)
{
    return onStationWithoutValues([prefix, &key = stationKey(key), form](const StationCall &call) {
        const std::string value = format(read(key, call.station), form);
        const bool hasNoValue = std::holds_alternative<NumberKey>(key.kind) && value == kNoValue;
        return hasNoValue ? value : std::string(prefix) + value;
    });
}

}  // namespace kvosim
