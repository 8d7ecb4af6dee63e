// The arguments, requests and output of "status", "station" and "fault".
#include "kvosim/program/control_commands.h"

#include "common/completions/completion.h"
#include "kvosim/program/completion_candidates.h"

#include <cstdio>
#include <iostream>
#include <vector>

namespace kvosim {

namespace {

constexpr const char *kStatusExamples = R"(Examples:
  kvosim status
  kvosim status --json
)";

constexpr const char *kStationExamples =
    R"(KEY is a key of plant files; kvo-plant(5) lists the keys and their ranges. If one value is invalid, no value is set.

Examples:
  kvosim station 10.0.0.5
  kvosim station "Lathe 1" --set backlight=0 mcp_address=12
  kvosim station 10.0.0.5 --set dpi=none --json
)";

constexpr const char *kFaultExamples =
    R"(A fault affects the requests of one command, or of all commands. If several faults match a request, only the one that
was added first takes effect.

  delay    the reply is delayed by --delay-ms (default 1000)
  close    the connection is closed without a reply
  garbage  the reply is malformed: "#?" is inserted before its value
  failed   the request is not carried out, and the reply is "failed"
  split    the reply comes byte by byte, with pauses of --delay-ms (default 5)
  silent   no reply comes; the connection stays open

With every fault except "failed", the service still carries out the request.

Examples:
  kvosim fault add silent --command getVersion --times 1
  kvosim fault add delay --delay-ms 3000 --after 10
  kvosim fault list --json
  kvosim fault clear
)";

void printRows(const tools::Json &reply)
{
    for (const auto &[key, value] : reply.items()) {
        std::cout << key << std::string(key.size() < 28 ? 28 - key.size() : 1, ' ')
                  << (value.is_string() ? value.get<std::string>() : value.dump()) << '\n';
    }
}

std::string timesText(const tools::Json &times) { return times == 0 ? "unlimited" : times.dump() + " times"; }

void printFaults(const tools::Json &reply)
{
    if (reply["faults"].empty()) {
        std::cout << "no faults\n";
    }
    for (const tools::Json &fault : reply["faults"]) {
        std::cout << fault["kind"].get<std::string>() << ' ' << fault["command"].get<std::string>();
        if (fault.contains("delay_ms")) {
            std::cout << ", " << fault["delay_ms"] << " ms";
        }
        std::cout << ", after " << fault["after"] << ", " << timesText(fault["times"]) << ", affected " << fault["struck"]
                  << '\n';
    }
}

void printStatus(const tools::Json &reply)
{
    tools::Json rows = reply;
    const auto up = rows["uptime_ms"].get<int64_t>();
    rows.erase("uptime_ms");
    std::printf("%-28s%lld.%03lld s\n", "uptime", static_cast<long long>(up / 1000), static_cast<long long>(up % 1000));
    std::fflush(stdout);
    for (const char *key : {"registry_locked", "usb_events_activated"}) {
        rows[key] = rows[key].get<bool>() ? "yes" : "no";
    }
    printRows(rows);
}

/// Converts "key=value" texts to an object.
tools::Json settings(const std::vector<std::string> &assignments)
{
    tools::Json values = tools::Json::object();
    for (const std::string &assignment : assignments) {
        const std::size_t equals = assignment.find('=');
        if (equals == std::string::npos) {
            throw tools::Refused('"' + assignment + "\" is not a setting; write KEY=VALUE");
        }
        values[assignment.substr(0, equals)] = assignment.substr(equals + 1);
    }
    return values;
}

}  // namespace

struct ControlCommands::Options {
    bool json = false;
    std::string station;
    std::vector<std::string> settings;
    std::string kind;
    std::string command;
    uint32_t after = 0;
    uint32_t times = 0;
    std::optional<uint32_t> delay;
    std::vector<std::pair<CLI::App *, std::function<void()>>> actions;
};

ControlCommands::ControlCommands(CLI::App &app) : options_(std::make_unique<Options>())
{
    Options &options = *options_;
    add(app, "status", "Show the running simulator's status", [this] {
        ask({{"do", "status"}}, printStatus);
    })->footer(kStatusExamples);

    CLI::App *station = add(app, "station", "Show a station of the running simulator, or change it", [this, &options] {
        tools::Json request{{"do", "station"}, {"station", options.station}};
        if (!options.settings.empty()) {
            request["set"] = settings(options.settings);
        }
        ask(request, printRows);
    });
    completeStations(station->add_option("STATION", options.station, "Address or name of the station")->required());
    completeStationKeys(station->add_option("--set", options.settings, "KEY=VALUE, one or more"));
    station->footer(kStationExamples);

    CLI::App *fault = app.add_subcommand("fault", "Make requests to the running simulator fail");
    fault->require_subcommand(1);
    fault->footer(kFaultExamples);
    addFaultCommands(*fault);
    addUsbCommands(*this, app);
    addRemoteCommands(*this, app);
    addEventCommand(*this, app);
}

ControlCommands::~ControlCommands() = default;

void ControlCommands::addFaultCommands(CLI::App &fault)
{
    Options &options = *options_;
    add(fault, "list", "List the faults", [this] { ask({{"do", "fault.list"}}, printFaults); });
    add(fault, "clear", "Remove all faults", [this] { ask({{"do", "fault.clear"}}, printFaults); });
    CLI::App *adding = add(fault, "add", "Add a fault", [this, &options] {
        tools::Json request{{"do", "fault.add"},
                            {"kind", options.kind},
                            {"command", options.command.empty() ? "*" : options.command},
                            {"after", options.after},
                            {"times", options.times}};
        if (options.delay) {
            request["delay_ms"] = *options.delay;
        }
        ask(request, printFaults);
    });
    tools::completions::completeWords(
        adding->add_option("KIND", options.kind, "delay, close, garbage, failed, split or silent")->required(),
        {"delay", "close", "garbage", "failed", "split", "silent"});
    completeKeywords(
        adding->add_option("--command", options.command, "Keyword of the command to affect (default: all commands)"));
    adding->add_option("--after", options.after, "Number of requests to serve normally first (default: 0)");
    adding->add_option("--times", options.times, "Number of requests to affect after that (default: 0, unlimited)");
    adding->add_option("--delay-ms", options.delay, "Milliseconds for delay and split, at most 60000");
    adding->footer(kFaultExamples);
}

CLI::App *ControlCommands::add(CLI::App &parent, const char *name, const char *description, std::function<void()> action)
{
    CLI::App *command = parent.add_subcommand(name, description);
    command->add_flag("--json", options_->json, "Print the simulator's reply as one line of JSON");
    options_->actions.emplace_back(command, std::move(action));
    return command;
}

void ControlCommands::ask(const tools::Json &request, void (*print)(const tools::Json &reply), tools::Timeout timeout) const
{
    const tools::Json reply = tools::askSimulator(request, tools::kControlSocket, timeout);
    if (json()) {
        std::cout << reply.dump() << '\n';
    } else {
        print(reply);
    }
}

bool ControlCommands::json() const { return options_->json; }

bool ControlCommands::carryOut() const
{
    for (const auto &[command, action] : options_->actions) {
        if (command->parsed()) {
            action();
            return true;
        }
    }
    return false;
}

}  // namespace kvosim
