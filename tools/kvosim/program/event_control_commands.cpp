// "kvosim event": its arguments and its output.
#include "kvosim/program/control_commands.h"

#include <iostream>

namespace kvosim {

namespace {

constexpr const char *kEventExamples =
    R"(An event is one line: "name, data". It is sent to every program that listens at /tmp/kvo_hws/event_sock, such as
"kvoctl events watch". Listeners ignore "Alive?". Exit status 1 means that no program listens.

Examples:
  kvosim event "key, F1"
  kvosim event "Alive?"
  kvosim event "no comma" --as-is
)";

struct EventOptions {
    std::string text;
    bool asIs = false;
};

}  // namespace

void addEventCommand(ControlCommands &commands, CLI::App &app)
{
    const auto options = std::make_shared<EventOptions>();
    CLI::App *event = commands.add(app, "event", "Publish an event of embedded stations", [&commands, options] {
        const tools::Json reply = tools::askSimulator({{"do", "event"}, {"text", options->text}, {"as_is", options->asIs}});
        const auto listeners = reply.at("listeners").get<std::size_t>();
        if (commands.json()) {
            std::cout << reply.dump() << '\n';
        } else if (listeners > 0) {
            std::cout << "sent to " << listeners << (listeners == 1 ? " listener\n" : " listeners\n");
        }
        if (listeners == 0) {
            throw tools::CouldNot("no program listens for events; the event was sent to 0 listeners");
        }
    });
    event->add_option("TEXT", options->text, "The event, \"name, data\"")->required();
    event->add_flag("--as-is", options->asIs,
                    "Send the text unchanged, even if receivers drop it because it has no comma or a name of 20 bytes or more");
    event->footer(kEventExamples);
}

}  // namespace kvosim
