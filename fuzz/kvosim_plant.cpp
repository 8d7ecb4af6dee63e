// Fuzzes the parser of kvosim's plant files. It must return a plant that can be served or throw PlantFileError with a position,
// and the outcome must be the same whether it parses station by station or a single document.
#include "support.h"

#include "kvosim/plant_file/plant_file.h"
#include "kvosim/plant_file/station_splitter.h"

#include <kvo_hws/codecs.h>

#include <cstdlib>
#include <set>
#include <string>

namespace {

constexpr std::size_t kLongestMessage = 8192;  // without the parts of the file that it repeats

/// Expects "plant:<line>: <what>".
void expectUseful(std::string_view message, std::size_t fileSize)
{
    constexpr std::string_view kFile = "plant:";
    const std::size_t colon = message.find(": ");
    const bool placed = message.starts_with(kFile) && colon > kFile.size() && colon != message.npos &&
                        message.substr(kFile.size(), colon - kFile.size()).find_first_not_of("0123456789") == message.npos;
    if (!placed || colon + 2 == message.size()) {
        fuzz::fault("the message has no position or no text: %s", std::string(message).c_str());
    }
    if (message.size() > kLongestMessage + 4 * fileSize) {
        fuzz::fault("the message has %zu bytes for a file of %zu", message.size(), fileSize);
    }
}

void expectServable(kvosim::Plant &plant)
{
    std::set<uint32_t> addresses;
    std::set<std::string> names;
    if (plant.panels().size() != plant.stations().size()) {
        fuzz::fault("%zu panels for %zu stations", plant.panels().size(), plant.stations().size());
    }
    for (const ConnectionEntry &station : plant.stations()) {
        const std::size_t length = strnlen(station.name, sizeof station.name);
        if (length == 0 || length > kvosim::kLongestName || station.address == 0) {
            fuzz::fault("a station has no address or a name of %zu bytes", length);
        }
        if (!addresses.insert(station.address).second || !names.insert(station.name).second) {
            fuzz::fault("two stations have the address %08X or the name \"%s\"", station.address, station.name);
        }
        if (plant.findAddress(station.address) != &station || plant.findName(station.name) != &station) {
            fuzz::fault("cannot find the station \"%s\"", station.name);
        }
    }
    // Clients must be able to parse the list of stations.
    const auto count = static_cast<uint32_t>(plant.stations().size());
    const auto size = static_cast<uint32_t>(ConvertConArray2TextEx(count, plant.stations().data(), nullptr, 0));
    std::string text(size, '\0');
    std::vector<KvoDescriptionEx> read(count);
    uint32_t found = 0;
    if (ConvertConArray2TextEx(count, plant.stations().data(), text.data(), size) != 0 ||
        ConvertText2KVODescArrayEx(&found, read.data(), text.c_str()) != 1 || found != count) {
        fuzz::fault("cannot parse the list of the %u stations", count);
    }
}

/// @p text with its headers changed so that the parser does not split it at them.
std::string inOnePiece(std::string_view text)
{
    constexpr std::string_view kHeader = "[[station]]";
    std::string whole;
    for (std::string_view piece : kvosim::splitAtStations(text)) {
        const std::size_t header = piece.find_first_not_of(" \t");
        if (header != piece.npos && piece.substr(header).starts_with(kHeader)) {
            piece.remove_prefix(header + kHeader.size());
            whole += "[[ station ]]";
        }
        whole += piece;
    }
    return whole;
}

/// The outcome of parsing @p text as text.
std::string outcomeOf(std::string_view text)
{
    try {
        const kvosim::Plant plant = kvosim::parsePlant(text, "plant");
        std::string outcome = plant.service.version;
        for (const ConnectionEntry &station : plant.stations()) {
            outcome += '\n' + std::to_string(station.address) + ' ' + station.name;
        }
        for (const auto count : {plant.previousList.size(), plant.clients.size(), plant.faults.list().size()}) {
            outcome += '\n' + std::to_string(count);
        }
        return outcome;
    } catch (const kvosim::PlantFileError &error) {
        // Which of several mistakes the TOML parser finds first depends on how it divides the file into blocks.
        const std::string_view message = error.what();
        return std::string(message.find(": not TOML: ") == message.npos ? message : "not TOML");
    }
}

void expectSameInOnePiece(std::string_view text)
{
    if (text.find("\"\"\"") != text.npos || text.find("'''") != text.npos) {
        return;  // a multi-line string may contain what looks like a header
    }
    const std::string outcome = outcomeOf(text);
    const std::string whole = outcomeOf(inOnePiece(text));
    if (outcome != whole) {
        fuzz::fault("\"%s\", but as a single document \"%s\"", outcome.c_str(), whole.c_str());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size)
{
    const fuzz::ExactBytes file({reinterpret_cast<const char *>(data), size});
    expectSameInOnePiece(file.view());
    try {
        kvosim::Plant plant = kvosim::parsePlant(file.view(), "plant");
        expectServable(plant);
    } catch (const kvosim::PlantFileError &error) {
        expectUseful(error.what(), size);
    }
    return 0;
}
