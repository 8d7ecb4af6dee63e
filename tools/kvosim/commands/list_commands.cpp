// Commands for the lists of stations and clients, and for one station's description.
#include "kvosim/commands/command_table.h"

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

/// The description carries the number that was asked about: the client goes on with it, in its own order of the bytes.
std::string describe(Plant &plant, uint32_t number)
{
    const auto station = reachable(plant, number);
    if (!station) {
        return kNotFound;
    }
    ConnectionEntry described = station->entry;
    described.address = number;
    constexpr std::size_t kRoomBesideName = 117;
    std::string text(std::string_view(described.name).size() + kRoomBesideName, '\0');
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
