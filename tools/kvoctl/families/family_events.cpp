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
    EmbeddedEventOptions options{.format = lineFormat(commandLine), .messagePrefix = commandLine.prefix()};
    if (program) {
        options.program.emplace(*program, kEventVariablePrefix, signals.previousMask(), commandLine.prefix());
    }
    watchEmbeddedEvents(options, signals);
    return {};
}

CommandSetup setUpWatch(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        const auto program = addProgram(command, "Run PROGRAM for each event; its environment variables contain the event");
        return [=, &commandLine] { return watch(program.valueIfGiven(), commandLine); };
    };
}

}  // namespace

void addEventCommands(CommandLine &commandLine)
{
    Family events(commandLine, kEmbeddedHeading, "events", "The events of embedded stations");
    events.add("watch", "Show the events that the service sends to embedded stations, until Ctrl-C",
               {"", "--json", "--exec ./on-event.sh"}, {setUpWatch(commandLine)});
}

}  // namespace kvoctl
