// Reads plant files. An unknown key is an error: it is probably misspelt.
#include "kvosim/plant_file/plant_file.h"

#include "common/dotted_address.h"
#include "common/plant_values.h"
#include "kvosim/base/arguments.h"
#include "kvosim/commands/commands.h"
#include "kvosim/net/udp_socket.h"
#include "kvosim/plant/station_keys.h"
#include "kvosim/plant_file/station_splitter.h"
#include "kvosim/plant_file/table_reader.h"
#include "kvosim/remote/remote_side.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <unordered_map>

namespace kvosim {

const std::string_view kBuiltInPlant = R"toml(
[[station]]
address = "10.0.0.5"
name = "Panel 1"
attr1 = 1
mcp_address = 5
kvo_index = 1
dpi = 96

[[station]]
address = "10.0.0.6"
name = "Panel 2"
attr1 = 1

[[station]]
address = "10.0.0.7"
name = "Panel 3"
attr1 = 1
)toml";

namespace {

constexpr uint32_t kLongestInitTime = 3'600'000;  // ms
constexpr uint32_t kLongestHold = 3'600'000;      // ms
constexpr std::string_view kStation = "station";

uint32_t readAddress(const TableReader &table)
{
    const std::string text = table.text("address");
    const auto address = tools::parseDotted(text);
    if (!address) {
        table.fail("address", '"' + text + "\" is not an IPv4 address; write four numbers from 0 to 255, such as \"10.0.0.5\"");
    }
    if (*address == 0) {
        table.fail("address", "0.0.0.0 means no station; use another address");
    }
    return *address;
}

std::string readName(const TableReader &table)
{
    std::string name = table.text("name");
    if (const std::string mistake = tools::mistakeInName(name); !mistake.empty()) {
        table.fail("name", mistake);
    }
    return name;
}

/// Reads the keys that stations and registry entries share.
template <class Record>
Record readDescription(const TableReader &table)
{
    Record record{};
    record.address = readAddress(table);
    readName(table).copy(record.name, kLongestName);
    return record;
}

/// Reports an address or a name that occurs a second time.
class Uniqueness {
public:
    void check(const TableReader &table, uint32_t address, const std::string &name)
    {
        const auto [sameAddress, newAddress] = addresses_.emplace(address, table.line());
        if (!newAddress) {
            refuse(table, "address", tools::dotted(address), sameAddress->second);
        }
        const auto [sameName, newName] = names_.emplace(name, table.line());
        if (!newName) {
            refuse(table, "name", '"' + name + '"', sameName->second);
        }
    }

private:
    [[noreturn]] static void refuse(const TableReader &table, std::string_view key, const std::string &value, unsigned line)
    {
        table.fail(key,
                   value + " is already used by the station in line " + std::to_string(line) + "; each station needs its own");
    }

    std::unordered_map<uint32_t, unsigned> addresses_;
    std::unordered_map<std::string, unsigned> names_;
};

std::vector<unsigned> readSessions(const TableReader &table)
{
    const std::string text = table.text("remote_sessions", "");
    try {
        return text.empty() ? std::vector<unsigned>() : parseSessions(text);
    } catch (const std::invalid_argument &error) {
        table.fail("remote_sessions", error.what());
    }
}

ServiceState readService(const TableReader &table)
{
    ServiceState service;
    service.version = table.text("version", service.version);
    if (!tools::isVersion(service.version)) {
        table.fail("version", "is not a valid version; write 1 to " + std::to_string(tools::kLongestVersion) +
                                  " bytes without control characters");
    }
    service.initTime = std::chrono::milliseconds(table.number("init_time_ms", 0, kLongestInitTime));
    service.debugLevel = static_cast<DebugLevel>(table.number("debug_level", 0, 2));
    service.backlight = table.number("backlight", service.backlight, 1);
    service.focusHold = std::chrono::milliseconds(table.number("focus_hold_ms", 0, kLongestHold));
    if (const std::string address = table.text("usb_lock_address", ""); !address.empty()) {
        if (!isEndpointOrNone(address)) {
            table.fail("usb_lock_address", '"' + address + "\" is not an address; write " + std::string(kEndpointForm));
        }
        service.usbLockAddress = address;
    }
    service.remoteSessions = readSessions(table);
    service.remoteAddress = table.text("remote_address", service.remoteAddress);
    if (!tools::parseDotted(service.remoteAddress)) {
        table.fail("remote_address",
                   '"' + service.remoteAddress + "\" is not an IPv4 address; write one such as \"127.0.0.1\"");
    }
    return service;
}

std::vector<KvoDescription> readPrevious(const TableReader &registry)
{
    std::vector<KvoDescription> previous;
    Uniqueness unique;
    for (const TableReader &table : registry.tables("previous", {"address", "name", "attr1", "attr2", "attr3"})) {
        previous.push_back(readDescription<KvoDescription>(table));
        previous.back().attr1 = table.number("attr1", 0);
        previous.back().attr2 = table.number("attr2", 0);
        previous.back().attr3 = table.number("attr3", 0);
        unique.check(table, previous.back().address, previous.back().name);
    }
    return previous;
}

ConnectionEntry readStation(const TableReader &table)
{
    auto station = readDescription<ConnectionEntry>(table);
    const auto ext = table.numbers<7>("ext");
    station.extAttr1 = ext[0];
    station.extAttr2 = ext[1];
    station.extAttr3 = ext[2];
    station.extAttr4 = ext[3];
    station.extAttr5 = ext[4];
    station.extAttr6 = ext[5];
    station.extAttr7 = ext[6];
    return station;
}

/// Reads the station keys in @p table, in the order of stationKeys(). This order decides which mistake is reported.
std::vector<const StationKey *> keysIn(const TableReader &table)
{
    std::vector<const StationKey *> keys;
    for (const std::string_view name : table.names()) {
        if (const StationKey *key = findStationKey(name)) {
            keys.push_back(key);
        }
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

/// Reads the keys that can be checked one by one.
void readKeys(const TableReader &table, const Station &station)
{
    for (const StationKey *key : keysIn(table)) {
        const std::string mistake = assign(*key, station, *table.value(key->name));
        if (!mistake.empty()) {
            table.fail(key->name, mistake);
        }
    }
}

TableReader::Keys keysOfAStation()
{
    TableReader::Keys keys{"address", "name", "ext"};
    for (const StationKey &key : stationKeys()) {
        keys.push_back(key.name);
    }
    keys.push_back("usb_device");
    return keys;
}

TableReader::Keys keysOfADevice()
{
    TableReader::Keys keys;
    for (const UsbKey &key : usbKeys()) {
        keys.push_back(key.name);
    }
    return keys;
}

UsbDevice readDevice(const TableReader &table, std::span<const UsbDevice> others)
{
    UsbDevice device = newUsbDevice(others);
    for (const UsbKey &key : usbKeys()) {
        const auto value = table.value(key.name);
        const std::string mistake = value ? assign(key, device, *value) : std::string();
        if (!mistake.empty()) {
            table.fail(key.name, mistake);
        }
    }
    if (std::any_of(others.begin(), others.end(), [&](const UsbDevice &other) { return sameIdents(device, other); })) {
        table.fail("ident2", '"' + ident2Of(device) + "\" with ident3 \"" + ident3Of(device) +
                                 "\" is already used by another device of the station; use another ident2 or ident3");
    }
    return device;
}

/// The devices that are plugged in when the service starts. The USB lock does not apply to them.
std::vector<UsbDevice> readDevices(const TableReader &station)
{
    static const TableReader::Keys keys = keysOfADevice();
    std::vector<UsbDevice> devices;
    for (const TableReader &table : station.tables("usb_device", keys)) {
        devices.push_back(readDevice(table, devices));
    }
    return devices;
}

std::vector<ConnectionClientEntry> readClients(const TableReader &top)
{
    std::vector<ConnectionClientEntry> clients;
    for (const TableReader &table : top.tables("client", {"name", "value"})) {
        ConnectionClientEntry client{};
        readName(table).copy(client.name, kLongestName);
        client.value = table.number("value", 0);
        clients.push_back(client);
    }
    return clients;
}

Faults readFaults(const TableReader &top)
{
    Faults faults;
    for (const TableReader &table : top.tables("faults", {"command", "kind", "after", "times", "delay_ms"})) {
        FaultText text{.command = table.text("command", "*"),
                       .kind = table.text("kind"),
                       .after = table.number("after", 0),
                       .times = table.number("times", 0)};
        if (table.value("delay_ms")) {
            text.delay = table.number("delay_ms", 0);
        }
        try {
            faults.add(makeFault(text));
        } catch (const FaultError &error) {
            table.fail(error.key, error.what());
        }
    }
    return faults;
}

/// Reads the remaining keys of @p table and adds the station. @p entry contains the keys that readStation has already read.
void addStation(Plant &plant, ConnectionEntry entry, const TableReader &table)
{
    Panel panel;
    readKeys(table, {entry, panel});
    panel.usbDevices = readDevices(table);
    plant.add(entry, std::move(panel));
}

TableReader topOf(const Document &document) { return document.top({"service", "registry", kStation, "client", "faults"}); }

void readAllButStations(const TableReader &top, Plant &plant)
{
    if (const auto service = top.table("service", {"version", "init_time_ms", "debug_level", "backlight", "focus_hold_ms",
                                                   "usb_lock_address", "remote_sessions", "remote_address"})) {
        plant.service = readService(*service);
    }
    if (const auto registry = top.table("registry", {"previous"})) {
        plant.previousList = readPrevious(*registry);
    }
    plant.clients = readClients(top);
    plant.faults = readFaults(top);
}

Plant parseWhole(std::string_view text, std::string_view fileName, const Progress &progress)
{
    progress(0, 0);
    const Document document(text, fileName);
    const TableReader top = topOf(document);
    Plant plant;
    readAllButStations(top, plant);
    const std::vector<TableReader> stations = top.tables(kStation, keysOfAStation());
    plant.reserve(stations.size());
    Uniqueness unique;
    for (const TableReader &table : stations) {
        const ConnectionEntry entry = readStation(table);
        unique.check(table, entry.address, entry.name);
        addStation(plant, entry, table);
        progress(plant.stations().size(), stations.size());
    }
    return plant;
}

/// Parses each station as a separate document: for a large plant, this takes half the time of a single document and a fraction
/// of its memory. Returns nothing if the pieces might have another meaning than the whole file.
std::optional<Plant> parsePieces(std::string_view text, std::string_view fileName, const Progress &progress)
{
    const std::vector<std::string_view> pieces = splitAtStations(text);
    const TableReader::Keys keys = keysOfAStation();
    Document rest(pieces.front(), fileName);
    if (rest.has(kStation)) {
        return std::nullopt;  // the following text might be part of that key
    }
    Plant plant;
    plant.reserve(pieces.size() - 1);
    for (std::size_t i = 1; i < pieces.size(); ++i) {
        Document piece(pieces[i], fileName);
        for (const TableReader &table : topOf(piece).tables(kStation, keys)) {
            addStation(plant, readStation(table), table);
        }
        if (!rest.mergeExcept(kStation, piece)) {
            return std::nullopt;
        }
        progress(i, pieces.size() - 1);
    }
    readAllButStations(topOf(rest), plant);
    return plant;
}

}  // namespace

Plant parsePlant(std::string_view text, std::string_view fileName, const Progress &progress)
{
    try {
        if (auto plant = parsePieces(text, fileName, progress)) {
            return *std::move(plant);
        }
    } catch (const PlantFileError &) {
        // Parse the whole document to get the line number of the mistake.
    } catch (const std::invalid_argument &) {
        // A duplicate address or name: the whole document gives the line number, too.
    }
    return parseWhole(text, fileName, progress);
}

Plant loadPlant(const std::filesystem::path &file, const Progress &progress)
{
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (std::filesystem::is_directory(file) || !in || (in.peek() != EOF && !(text << in.rdbuf()))) {
        throw PlantFileError(file.string() + ": cannot be read; give the path of a plant file (docs/plant-file.md)");
    }
    return parsePlant(text.view(), file.string(), progress);
}

}  // namespace kvosim
