// Subcommands about the numbers that identify a station: machine control panel (MCP), direct control keys (DCK), KVO index and
// cks index.
#include "common/dotted_address.h"
#include "kvoctl/command_line/station_commands.h"
#include "kvoctl/families/families.h"

#include <kvo_hws/requests.h>

namespace kvoctl {

namespace {

constexpr uint32_t kHighestCksIndex = 255;

const Word kKeysState{"STATE", "on or off; omit it to show the state", {{"on", 1}, {"off", 0}}};

// ---- kvoctl address find ----

struct Lookup {
    const char *option;
    const char *what;
    Request<uint32_t, uint32_t *> request;
};

constexpr std::array kLookups{Lookup{"--mcp", "MCP address", KVO_REQUEST(KVO_HWS_getIPbyMCPAddress)},
                              Lookup{"--dck", "DCK address", KVO_REQUEST(KVO_HWS_getIPbyDCKAddress)},
                              Lookup{"--kvo-index", "KVO index", KVO_REQUEST(KVO_HWS_getIPbyKVOIndex)}};

Report find(const Lookup &lookup, uint32_t number)
{
    const std::string key = std::string(lookup.what) + " " + std::to_string(number);
    uint32_t address = 0;
    const Result result = lookup.request(number, &address);
    switch (result.code) {
    case KVO_HWS_NO: throw Failure(result.code, "no station has the " + key);
    case KVO_HWS_AMBIGUOUS: throw Failure(result.code, "several stations have the " + key);
    default: require(result);
    }
    return {.document = {{"address", tools::dotted(address)}}, .line = tools::dotted(address)};
}

Action setUpFind(CLI::App &command)
{
    std::vector<Argument<uint32_t>> numbers;
    for (const Lookup &lookup : kLookups) {
        numbers.push_back(Number<>{lookup.option, std::string("The station with this ") + lookup.what}.addTo(command));
        numbers.back().option->type_name("N");
    }
    return [=] {
        const auto isGiven = [](const auto &number) { return number.option->count() > 0; };
        if (std::count_if(numbers.begin(), numbers.end(), isGiven) != 1) {
            throw UsageError("give exactly one of --mcp, --dck and --kvo-index");
        }
        const auto given = static_cast<std::size_t>(std::find_if(numbers.begin(), numbers.end(), isGiven) - numbers.begin());
        return find(kLookups.at(given), *numbers[given].value);
    };
}

}  // namespace

void addAddressCommands(CommandLine &commandLine)
{
    Family address(commandLine, kOneStationHeading, "address", "The numbers that identify a station");
    const std::vector<std::string> examples{"10.0.0.5", "10.0.0.5 12"};
    // The service, not kvoctl, decides whether an MCP address or KVO index is valid.
    address.add("mcp", "Show or set the address of the machine control panel (MCP) that the station serves", examples,
                settingCommand("address mcp", KVO_REQUEST(KVO_HWS_setMCPAddress),
                               Number<>{"ADDRESS", "The address to set; omit it to show the address"}));
    address.add("kvo-index", "Show or set the station's KVO index", examples,
                settingCommand("address kvo-index", KVO_REQUEST(KVO_HWS_setKVOIndex),
                               Number<>{"INDEX", "The index to set; omit it to show the index"}));
    address.add("dck", "Show the address of the station's direct control keys", {"10.0.0.5"}, showCommand("address dck"));
    address.add("dck-enable", "Show whether the station's direct control keys are on, or switch them on or off",
                {"10.0.0.5", "10.0.0.5 off"},
                settingCommand("address dck-enable", KVO_REQUEST(KVO_HWS_setDCKEnable), kKeysState));
    address.add("cks-index", "Show or set the station's cks index", examples,
                settingCommand("address cks-index", KVO_REQUEST(KVO_HWS_setKVOCksIndex),
                               Number<>{"INDEX", "0 to 255; omit it to show the index", 0, kHighestCksIndex}));
    const Number<> value1{"VALUE1", "The key's first number"};
    const Number<> value2{"VALUE2", "The key's second number"};
    address.add("simulate-key", "Simulate a key of the station's machine control panel (MCP)", {"10.0.0.5 12 1"},
                requestCommand(KVO_REQUEST(KVO_HWS_simulateMCPKey), value1, value2));
    address.add("enable-key", "Enable a key of the station's machine control panel (MCP)", {"10.0.0.5 12 1"},
                requestCommand(KVO_REQUEST(KVO_HWS_enableMCPKey), value1, value2));
    address.add("find", "Find the station with a given number", {"--mcp 12", "--dck 3", "--kvo-index 7"}, setUpFind);
}

}  // namespace kvoctl
