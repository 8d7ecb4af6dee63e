// Subcommands about the metrics of a station, and about the clients of the service.
#include "kvoctl/command_line/fetch_list.h"
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/requests.h>

#include <cstdio>
#include <cstring>

namespace kvoctl {

namespace {

// ---- kvoctl metrics ----

/// Their names on the command line.
constexpr std::array kMetrics{"oem-layout", "softkey-type", "keyboard-caps", "dpi", "hardware-caps", "rotation"};

const Property &metric(std::size_t index) { return tools::stationProperty(std::string("metrics ") + kMetrics.at(index)); }

/// A metric that the station does not have is null.
Reading readAllMetrics(uint32_t station)
{
    Reading all{{KVO_HWS_OK}};
    for (std::size_t i = 0; i < kMetrics.size(); ++i) {
        const Reading one = metric(i).read(station);
        if (one.result.code != KVO_HWS_OK && one.result.code != KVO_HWS_NOT_AVAILABLE) {
            return {one.result};
        }
        all.values.push_back(one.result.code == KVO_HWS_OK ? one.values.front() : Value{nullptr});
    }
    return all;
}

Property allMetrics()
{
    Property all{{}, readAllMetrics};
    for (std::size_t i = 0; i < kMetrics.size(); ++i) {
        all.keys.push_back(metric(i).keys.front());
    }
    return all;
}

Action setUpMetrics(CLI::App &command)
{
    Words names;
    for (std::size_t i = 0; i < kMetrics.size(); ++i) {
        names.emplace_back(kMetrics.at(i), static_cast<unsigned>(i));
    }
    const auto station = addStation(command);
    const auto which =
        Word{"NAME", "oem-layout, softkey-type, keyboard-caps, dpi, hardware-caps or rotation (default: all six)", names}.addTo(
            command);
    return [=] {
        const Property asked = which.option->count() > 0 ? metric(*which.value) : allMetrics();
        return show(asked, stationAddress(*station));
    };
}

// ---- kvoctl clients ----

std::string checkFlags(const std::string &text)
{
    const bool hex = !text.empty() && text.size() <= 2 * sizeof(unsigned long) &&
                     text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return hex ? "" : "\"" + text + "\" is not a hexadecimal number";
}

Report clientReport(const std::vector<KvoClientEntry> &clients)
{
    Document documents = Document::array();
    Table table({Table::Column::number, Table::Column::elastic}, {"VALUE", "NAME"});
    for (const KvoClientEntry &client : clients) {
        const std::string name(client.name, strnlen(client.name, sizeof client.name));
        documents.push_back({{"value", client.value}, {"name", name}});
        table.add({std::to_string(client.value), name});
    }
    return {.document = {{"clients", std::move(documents)}},
            .table = std::move(table),
            .line = std::to_string(clients.size()) + (clients.size() == 1 ? " client" : " clients")};
}

Action setUpClients(CLI::App &command)
{
    auto flags = std::make_shared<std::string>("0");
    command.add_option("--flags", *flags, "Flags for the service, hexadecimal (default: 0)")
        ->check({checkFlags, ""})
        ->type_name("HEX");
    return [=] {
        const unsigned long given = std::stoul(*flags, nullptr, 16);
        const auto ask = [given](KvoClientEntry *list, uint32_t *count) {
            return KVO_REQUEST(KVO_HWS_getClientList)(list, count, given);
        };
        return clientReport(fetchList<KvoClientEntry>(ask, "clients"));
    };
}

}  // namespace

void addMetricCommands(CommandLine &commandLine)
{
    Family station(commandLine, kOneStationHeading);
    station.add("metrics", "Show all metrics of a station, or one of them",
                {"10.0.0.5", "10.0.0.5 rotation", "\"Portal mill\" --json"}, setUpMetrics);
    Family service(commandLine, "Service");
    service.add("clients", "List the clients that are connected to the service", {"", "--flags 1F"}, setUpClients);
}

}  // namespace kvoctl
