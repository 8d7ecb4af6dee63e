// Commands for the lists of stations and clients, and for one station's description.
#include "command_table.h"

namespace kvosim {

namespace {

/// The text of one of the codecs' writers, which tells how much room it needs.
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

/// The list is sent whole, however small the client's array: the client reads from its head how much room it needs.
template <int (*convert)(uint32_t, const ConnectionEntry *, char *, uint32_t)>
std::string listStations(ServiceContext &context, std::string_view capacity)
{
    return number(capacity) ? listText(context.plant.stations(), convert) : kFailed;
}

/// The arguments are a fixed 0 and the client's flags, which choose nothing here.
std::string listClients(ServiceContext &context, std::string_view arguments)
{
    const auto [zero, flags] = split(arguments, ' ');
    if (zero != "0" || !number<uint64_t>(flags, 16)) {
        return kFailed;
    }
    return listText(std::span<const ConnectionClientEntry>(context.plant.clients), ConvertConArray2TextClients);
}

std::string describe(Plant &plant, const ConnectionEntry *station)
{
    if (station == nullptr || !reachable(plant, station->address)) {
        return kNotFound;
    }
    constexpr std::size_t kRoomBesideName = 117;
    std::string text(std::string_view(station->name).size() + kRoomBesideName, '\0');
    ConvertConElem2TextEx(station, text.data(), static_cast<uint32_t>(text.size()));
    text.resize(text.find('\0'));
    return text;
}

std::string describeByAddress(ServiceContext &context, std::string_view text)
{
    const auto address = eightDigits(text);
    return address ? describe(context.plant, context.plant.findAddress(*address)) : kFailed;
}

std::string describeByName(ServiceContext &context, std::string_view name)
{
    return name.empty() ? kFailed : describe(context.plant, context.plant.findName(name));
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
