// Subcommands about the stations that the service knows.
#include "common/dotted_address.h"
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/command_line/fetch_list.h"
#include "kvoctl/command_line/station_argument.h"
#include "kvoctl/families/families.h"
#include "kvoctl/output/station_record.h"

#include <array>
#include <cstring>
#include <utility>

namespace kvoctl {

namespace {

using Column = Table::Column;

constexpr uint32_t kLockTimeoutSeconds = 5;

// ---- A list of stations as a table ----

template <class Record>
Table emptyTable()
{
    std::vector<Column> columns{Column::text, Column::elastic, Column::number, Column::number, Column::number};
    std::vector<std::string> header{"ADDRESS", "NAME", "ATTR1", "ATTR2", "ATTR3"};
    if constexpr (kIsExtended<Record>) {
        for (const Attribute &attribute : kExtendedAttributes) {
            columns.push_back(Column::number);
            header.emplace_back(attribute.heading);
        }
    }
    return Table(std::move(columns), std::move(header));
}

template <class Record>
std::vector<Cell> row(const Record &station, const DottedAddress &address)
{
    std::vector<Cell> cells{address.value_or("-"), nameOf(station), std::to_string(station.attr1),
                            std::to_string(station.attr2), std::to_string(station.attr3)};
    if constexpr (kIsExtended<Record>) {
        for (const Attribute &attribute : kExtendedAttributes) {
            cells.emplace_back(std::to_string(station.*attribute.member));
        }
    }
    return cells;
}

/// @p addressText converts an address of this list to text.
template <class Record, class AddressText>
Report listReport(const std::vector<Record> &stations, AddressText addressText)
{
    Document documents = Document::array();
    Table table = emptyTable<Record>();
    for (const Record &station : stations) {
        const DottedAddress address = addressText(station.address);
        documents.push_back(document(station, address));
        table.add(row(station, address));
    }
    return {.document = {{"stations", std::move(documents)}},
            .table = std::move(table),
            .line = std::to_string(stations.size()) + (stations.size() == 1 ? " station" : " stations")};
}

// ---- kvoctl stations ----

using RegistryRequest = Request<KvoDescription *, uint32_t *, uint32_t>;

Report registryList(RegistryRequest request, uint32_t lockTimeout)
{
    const auto ask = [=](KvoDescription *list, uint32_t *count) {
        const Result result = request(list, count, lockTimeout);
        if (result.code == KVO_HWS_TIMEOUT) {
            throw Failure(result.code, "the registry stayed locked for " + std::to_string(lockTimeout) + " s");
        }
        return result;
    };
    return listReport(fetchList<KvoDescription>(ask), dottedFromNetworkOrder);
}

Action setUpStations(CLI::App &command)
{
    auto *extended = addFlag(command, "--extended", "Also show the seven extended attributes");
    auto *previous = addFlag(command, "--previous", "Show the list of the service's previous start, from its registry");
    auto *current = addFlag(command, "--current", "Show the current list of the service's registry");
    extended->excludes(previous)->excludes(current);
    previous->excludes(current);
    const auto timeout = addSeconds(command, "--lock-timeout",
                                    "Wait at most SECONDS for the registry's lock, with --previous or --current (default: " +
                                        std::to_string(kLockTimeoutSeconds) + ")",
                                    kLockTimeoutSeconds);
    return [=] {
        if (previous->count() > 0) {
            return registryList(KVO_REQUEST(KVO_HWS_getKVOPreviousListFromRegistry), *timeout.value);
        }
        if (current->count() > 0) {
            return registryList(KVO_REQUEST(KVO_HWS_getKVOCurrentListFromRegistry), *timeout.value);
        }
        if (timeout.option->count() > 0) {
            throw UsageError("--lock-timeout needs --previous or --current");
        }
        return extended->count() > 0
                   ? listReport(fetchList<KvoDescriptionEx>(KVO_REQUEST(KVO_HWS_getDescriptionListEx)), tools::dotted)
                   : listReport(fetchList<KvoDescription>(KVO_REQUEST(KVO_HWS_getDescriptionList)), tools::dotted);
    };
}

// ---- kvoctl station ----

Report stationReport(const KvoDescriptionEx &station)
{
    // No column is cut: the command shows all of one station.
    Table table({Column::text, Column::text});
    const std::string address = tools::dotted(station.address);
    Document fields = document(station, address);
    for (const auto &[key, value] : fields.items()) {
        table.add({key, value.is_string() ? value.template get<std::string>() : value.dump()});
    }
    return {.document = std::move(fields), .table = std::move(table)};
}

Action setUpStation(CLI::App &command)
{
    const auto station = addStation(command);
    return [=] { return stationReport(lookUp(*station)); };
}

}  // namespace

void addStationCommands(CommandLine &commandLine)
{
    Family stations(commandLine, "Stations");
    stations.add("stations", "List the stations that the service knows",
                 {"", "--extended --json", "--previous --lock-timeout 10"}, setUpStations);
    stations.add("station", "Show one station with all its attributes", {"10.0.0.5", "\"Portal mill\"", "-- -odd-name"},
                 setUpStation);
}

}  // namespace kvoctl
