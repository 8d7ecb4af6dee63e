// Commands for the lists of stations and clients, and for the description of one station.
#include "kvosim/commands/command_table.h"

namespace kvosim {

namespace {

/// The text that one of the codecs writes. The codec first returns the size that it needs.
template <class Record, class Convert>
std::string listText(std::span<const Record> records, Convert convert)
{
    const auto count = static_cast<uint32_t>(records.size());
    std::string text(static_cast<std::size_t>(convert(count, records.data(), nullptr, 0)), '\0');
    convert(count, records.data(), text.data(), static_cast<uint32_t>(text.size()));
    text.resize(text.find('\0'));
    return text;
}

std::string countStations(ServiceContext &context, std::string_view) { return std::to_string(context.plant.stations().size()); }

/// Sends the whole list, even if the client's array is smaller: the client reads the required size from the head of the list.
template <int (*convert)(uint32_t, const ConnectionEntry *, char *, uint32_t)>
std::string listStations(ServiceContext &context, std::string_view capacity)
{
    return number(capacity) ? listText(context.plant.stations(), convert) : kFailed;
}

/// The arguments are a fixed 0 and the client's flags. The simulator ignores the flags.
std::string listClients(ServiceContext &context, std::string_view arguments)
{
    const auto [zero, flags] = split(arguments, ' ');
    if (zero != "0" || !number<uint64_t>(flags, 16)) {
        return kFailed;
    }
    return listText(std::span<const ConnectionClientEntry>(context.plant.clients), ConvertConArray2TextClients);
}

/// The description contains the number from the request: the client keeps using it, in its own byte order.
std::string describe(Plant &plant, uint32_t number)
{
    const auto station = findReachable(plant, number);
    if (!station) {
        return kNotFound;
    }
    ConnectionEntry described = station->entry;
    described.address = number;
    constexpr std::size_t kSizeWithoutName = 117;
    std::string text(std::string_view(described.name).size() + kSizeWithoutName, '\0');
    ConvertConElem2TextEx(&described, text.data(), static_cast<uint32_t>(text.size()));
    text.resize(text.find('\0'));
    return text;
}

std::string describeByAddress(ServiceContext &context, std::string_view text)
{
    const auto number = eightDigits(text);
    return number ? describe(context.plant, *number) : kFailed;
}

std::string describeByName(ServiceContext &context, std::string_view name)
{
    if (name.empty()) {
        return kFailed;
    }
    const ConnectionEntry *station = context.plant.findName(name);
    return station == nullptr ? kNotFound : describe(context.plant, station->address);
}

}  // namespace

std::span<const Command> listCommands()
{
    static const Command rows[] = {
        {"getCountElemDL", countStations},     {"getDLV2 ", listStations<ConvertConArray2Text>},
        {"getCountElemDL_Ex", countStations},  {"getDL_ExV2 ", listStations<ConvertConArray2TextEx>},
        {"getExDescByIP ", describeByAddress}, {"getExDescByName ", describeByName},
        {"getClientList ", listClients},
    };
    return rows;
}

}  // namespace kvosim
