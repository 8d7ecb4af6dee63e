// Distinguishes addresses from names. Only the service resolves names.
#include "kvoctl/command_line/station_argument.h"

#include "common/command_line/suggestion.h"
#include "common/completions/completion.h"
#include "common/dotted_address.h"
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/command_line/fetch_list.h"
#include "kvoctl/output/result.h"
#include "kvoctl/output/station_record.h"

#include <kvo_hws/requests.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstring>

namespace kvoctl {

namespace {

/// The longest name of a station, in bytes. A request with a longer name would find a station by the beginning of the name.
constexpr std::size_t kLongestStationName = sizeof(KvoDescriptionEx::name) - 1;
constexpr std::size_t kHexDigits = 8;

std::optional<uint32_t> parseHex(const std::string &text)
{
    uint32_t address = 0;
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, address, 16);
    if (text.size() != kHexDigits || parsed.ec != std::errc{} || parsed.ptr != end) {
        return std::nullopt;
    }
    return address;
}

std::optional<uint32_t> parseAddress(const std::string &text)
{
    const std::optional<uint32_t> address = tools::parseDotted(text);
    return address ? address : parseHex(text);
}

/// Whether the user meant an address: the text is four numbers with dots between them.
bool looksDotted(const std::string &text)
{
    std::size_t numbers = 0;
    std::size_t digits = 0;
    for (const char character : text + '.') {
        if (character == '.' && digits > 0) {
            ++numbers;
            digits = 0;
        } else if (character >= '0' && character <= '9') {
            ++digits;
        } else {
            return false;
        }
    }
    return numbers == 4;
}

std::string checkForm(const std::string &text)
{
    if (looksDotted(text) && !tools::parseDotted(text)) {
        return "\"" + text + "\" is not an IPv4 address; its four numbers go from 0 to 255, without leading zeros";
    }
    if (text.empty()) {
        return "a station's name or address cannot be empty";
    }
    return text.size() > kLongestStationName ? "a station's name has at most " + std::to_string(kLongestStationName) + " bytes"
                                             : "";
}

/// Suggests names that the service knows in place of an unknown name.
std::string meantNames(const std::string &name)
{
    try {
        std::vector<std::string> names;
        for (const KvoDescription &station : fetchList<KvoDescription>(KVO_REQUEST(KVO_HWS_getDescriptionList))) {
            names.push_back(nameOf(station));
        }
        return tools::command_line::didYouMean(tools::command_line::nearest(name, names));
    } catch (const Failure &) {
        return {};  // the message about the unknown station does not depend on the suggestion
    }
}

}  // namespace

std::shared_ptr<std::string> addStation(CLI::App &command)
{
    auto station = std::make_shared<std::string>();
    auto *option = command.add_option("STATION", *station, std::string("The station: ") + kStationForms);
    option->required()->check(oneLine())->check({checkForm, ""})->type_name("");
    completeStations(option);
    return station;
}

std::shared_ptr<std::vector<std::string>> addStations(CLI::App &command, const std::string &help)
{
    auto stations = std::make_shared<std::vector<std::string>>();
    auto *option = command.add_option("STATION", *stations, help);
    option->check(oneLine())->check({checkForm, ""})->type_name("");
    completeStations(option);
    return stations;
}

std::shared_ptr<std::vector<std::string>> addStationOption(CLI::App &command, const std::string &name, const std::string &help)
{
    auto stations = std::make_shared<std::vector<std::string>>();
    auto *option = command.add_option(name, *stations, help);
    option->check(oneLine())->check({checkForm, ""})->type_name("STATION")->allow_extra_args(false);
    completeStations(option);
    return stations;
}

void completeStations(const CLI::Option *argument, StationForms forms)
{
    tools::completions::completeFrom(argument, [forms] {
        tools::completions::Candidates candidates;
        for (const KvoDescription &station : fetchList<KvoDescription>(KVO_REQUEST(KVO_HWS_getDescriptionList))) {
            const std::string address = tools::dotted(station.address);
            const std::string name = nameOf(station);
            if (forms != StationForms::name) {
                candidates.push_back({address, name});
            }
            if (forms != StationForms::address) {
                candidates.push_back({name, address});
            }
        }
        return candidates;
    });
}

KvoDescriptionEx lookUp(const std::string &station)
{
    const std::optional<uint32_t> address = parseAddress(station);
    if (address == 0U) {
        // For the library, address 0 means "look it up by name".
        throw UsageError("no station has the address 0.0.0.0");
    }
    KvoDescriptionEx record{};
    const Result result = KVO_REQUEST(KVO_HWS_getDescriptionEx)(address.value_or(0), station.c_str(), &record);
    if (result.code == KVO_HWS_NO) {
        throw Failure(result.code, address ? "no station has the address " + tools::dotted(*address)
                                           : "no station is named \"" + station + "\"" + meantNames(station));
    }
    require(result);
    return record;
}

bool isStationName(const std::string &station) { return !parseAddress(station); }

uint32_t stationAddress(const std::string &station)
{
    const std::optional<uint32_t> address = parseAddress(station);
    return address ? *address : lookUp(station).address;
}

std::optional<std::string> dottedFromNetworkOrder(uint32_t address)
{
    if (address == INADDR_NONE) {
        return std::nullopt;
    }
    return tools::dotted(ntohl(address));
}

}  // namespace kvoctl
