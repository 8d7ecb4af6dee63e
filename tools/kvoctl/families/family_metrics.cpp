// Subcommands about the metrics of a station, and about the clients of the service.
#include "kvoctl/command_line/fetch_list.h"
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"
#include "kvoctl/output/readers.h"

#include <kvo_hws/requests.h>

#include <cstdio>
#include <cstring>

namespace kvoctl {

namespace {

// ---- kvoctl metrics ----

enum class MetricForm { text, number, bits };

struct Metric {
    const char *name;  ///< as on the command line
    const char *key;   ///< as in documents
    uint32_t number;   ///< as the library counts them
    MetricForm form;
};

constexpr std::array kMetrics{Metric{"oem-layout", "oem_layout", 1, MetricForm::text},
                              Metric{"softkey-type", "softkey_type", 2, MetricForm::number},
                              Metric{"keyboard-caps", "keyboard_caps", 3, MetricForm::bits},
                              Metric{"dpi", "dpi", 4, MetricForm::number},
                              Metric{"hardware-caps", "hardware_caps", 5, MetricForm::bits},
                              Metric{"rotation", "rotation", 6, MetricForm::number}};

/// The size of any metric.
using MetricRoom = std::array<char, 8>;

Value metricValue(MetricForm form, const MetricRoom &room)
{
    if (form == MetricForm::text) {
        return Value{std::string(room.data(), strnlen(room.data(), room.size()))};
    }
    uint32_t number = 0;
    std::memcpy(&number, room.data(), sizeof number);
    if (form == MetricForm::number) {
        return Value{number};
    }
    std::array<char, sizeof "0x00000000"> hex{};
    std::snprintf(hex.data(), hex.size(), "0x%08X", number);
    return {number, hex.data()};
}

const std::vector<Meaning> kMetricCodes{{KVO_HWS_NOT_AVAILABLE, "the station does not tell"},
                                        {KVO_HWS_UNKNOWN_REPLY, "the service answered a malformed value"}};

Property property(const Metric &metric)
{
    const auto read = [metric](uint32_t station) -> Reading {
        MetricRoom room{};
        const int32_t result = KVO_HWS_getStationMetrics(station, metric.number, room.data());
        if (result != KVO_HWS_OK) {
            return {result};
        }
        return {result, {metricValue(metric.form, room)}};
    };
    return {{metric.key}, read, kMetricCodes};
}

/// All six; what the station does not tell is null.
Reading allMetrics(uint32_t station)
{
    Reading all{KVO_HWS_OK};
    for (const Metric &metric : kMetrics) {
        const Reading one = property(metric).read(station);
        if (one.result != KVO_HWS_OK && one.result != KVO_HWS_NOT_AVAILABLE) {
            return {one.result};
        }
        all.values.push_back(one.result == KVO_HWS_OK ? one.values.front() : Value{nullptr});
    }
    return all;
}

Property allMetricsProperty()
{
    Property all{{}, allMetrics, kMetricCodes};
    for (const Metric &metric : kMetrics) {
        all.keys.emplace_back(metric.key);
    }
    return all;
}

Subcommand metrics()
{
    Words names;
    std::vector<Property> properties;
    for (const Metric &metric : kMetrics) {
        names.emplace_back(metric.name, static_cast<unsigned>(properties.size()));
        properties.push_back(property(metric));
    }
    const auto setUp = [=](CLI::App &command) -> Action {
        const auto station = addStation(command);
        const auto which =
            Word{"NAME", "oem-layout, softkey-type, keyboard-caps, dpi, hardware-caps or rotation; else all six", names}.addTo(
                command);
        return [=] {
            const Property asked = which.option->count() > 0 ? properties.at(*which.value) : allMetricsProperty();
            return show(asked, stationAddress(*station));
        };
    };
    return {setUp, properties};
}

// ---- kvoctl clients ----

std::string checkFlags(const std::string &text)
{
    const bool hex = !text.empty() && text.size() <= 2 * sizeof(unsigned long) &&
                     text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return hex ? "" : "\"" + text + "\" is no hexadecimal number";
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
        const auto ask = [given](KvoClientEntry *list, uint32_t *count) { return KVO_HWS_getClientList(list, count, given); };
        return clientReport(fetchList<KvoClientEntry>(ask, {}, "clients"));
    };
}

}  // namespace

void addMetricCommands(CommandLine &commandLine)
{
    Family station(commandLine, kOneStation);
    station.add("metrics", "Show a station's metrics, all or one", {"10.0.0.5", "10.0.0.5 rotation", "\"Portal mill\" --json"},
                metrics());
    Family service(commandLine, "Service");
    service.add("clients", "List the clients that are connected to the service", {"", "--flags 1F"}, {setUpClients});
}

}  // namespace kvoctl
