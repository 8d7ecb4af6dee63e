// Subcommands about the events of embedded stations.
#include "kvoctl/command_line/arguments.h"
#include "kvoctl/families/families.h"
#include "kvoctl/live/embedded_event_session.h"

namespace kvoctl {

namespace {

// ---- kvoctl events watch ----

Report watch(const std::optional<std::string> &program, const CommandLine &commandLine)
{
    const StopSignals signals;
    EmbeddedEventPlan plan{.format = lineFormat(commandLine), .complaint = commandLine.prefix()};
    if (program) {
        plan.program.emplace(*program, kEmbeddedEnvironment, signals.before(), commandLine.prefix());
    }
    watchEmbeddedEvents(plan, signals);
    return {};
}

SetUp setUpWatch(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        const auto program = addProgram(command, "Run PROGRAM for each event; its environment variables contain the event");
        return [=, &commandLine] { return watch(program.given(), commandLine); };
    };
}

}  // namespace

void addEventCommands(CommandLine &commandLine)
{
    Family events(commandLine, kEmbedded, "events", "The events of embedded stations");
    events.add("watch", "Show the events that the service sends to embedded stations, until Ctrl-C",
               {"", "--json", "--exec ./on-event.sh"}, {setUpWatch(commandLine)});
}

}  // namespace kvoctl
