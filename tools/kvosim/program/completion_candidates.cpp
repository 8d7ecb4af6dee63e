// Gets candidates from tables or from the running simulator. If no simulator runs, it gives no candidates.
#include "kvosim/program/completion_candidates.h"

#include "common/completions/completion.h"
#include "common/control_client.h"
#include "kvosim/commands/commands.h"
#include "kvosim/plant/station_keys.h"

#include <chrono>

namespace kvosim {

namespace {

using tools::completions::Candidates;

constexpr tools::Timeout kCompletionTimeout = std::chrono::seconds(1);

/// Returns the list @p list of the simulator's reply.
tools::Json ask(const char *what, const char *list)
{
    return tools::askSimulator({{"do", what}}, tools::kControlSocket, kCompletionTimeout).at(list);
}

Candidates stations()
{
    Candidates candidates;
    for (const tools::Json &station : ask("stations", "stations")) {
        const auto address = station.at("address").get<std::string>();
        const auto name = station.at("name").get<std::string>();
        candidates.push_back({address, name});
        candidates.push_back({name, address});
    }
    return candidates;
}

Candidates devices()
{
    Candidates candidates;
    for (const tools::Json &device : ask("usb.list", "devices")) {
        const std::string description = device.at("station").get<std::string>() + ", " + device.at("text7").get<std::string>();
        candidates.push_back({device.at("ident2").get<std::string>(), description});
        candidates.push_back({device.at("ident3").get<std::string>(), description});
    }
    return candidates;
}

Candidates sessions()
{
    Candidates candidates;
    for (const tools::Json &session : ask("remote.list", "sessions")) {
        const tools::Json &agent = session.at("agent");
        candidates.push_back(
            {session.at("session").dump(), agent.is_null() ? "no agent" : "agent at " + agent.get<std::string>()});
    }
    return candidates;
}

Candidates keys()
{
    Candidates candidates;
    for (const StationKey &key : stationKeys()) {
        candidates.push_back({std::string(key.name) + '='});
    }
    return candidates;
}

Candidates keywords()
{
    Candidates candidates;
    for (const std::string_view keyword : commandKeywords()) {
        candidates.push_back({std::string(keyword)});
    }
    return candidates;
}

}  // namespace

void completeStations(const CLI::Option *argument) { tools::completions::completeFrom(argument, stations); }

void completeDevices(const CLI::Option *argument) { tools::completions::completeFrom(argument, devices); }

void completeSessions(const CLI::Option *argument) { tools::completions::completeFrom(argument, sessions); }

void completeStationKeys(const CLI::Option *argument) { tools::completions::completeFrom(argument, keys); }

void completeKeywords(const CLI::Option *argument) { tools::completions::completeFrom(argument, keywords); }

}  // namespace kvosim
