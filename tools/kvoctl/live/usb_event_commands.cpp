// Watches USB events, shows whether a program has activated them, and closes them for any program.
#include "kvoctl/live/usb_event_commands.h"

#include "kvoctl/command_line/arguments.h"
#include "kvoctl/live/usb_event_session.h"
#include "kvoctl/output/property.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

#include <cstdio>

namespace kvoctl {

namespace {

bool areActive()
{
    const Result result = tools::distinguishMissingService(KVO_REQUEST(KVO_HWS_isUSBEventsActivated)());
    if (result.code != KVO_HWS_NO) {
        require(result);
    }
    return result.code == KVO_HWS_OK;
}

// ---- kvoctl usb is-active ----

Action setUpIsActive(CLI::App & /*command*/)
{
    const Property property{{"active"}, [](uint32_t) -> Reading { return {{KVO_HWS_OK}, {Value{areActive()}}}; }, {}, true};
    return [property] { return show(property, 0); };
}

// ---- kvoctl usb watch ----

/// The library waits for a service that is starting, and would also wait for one that does not run.
void requireService()
{
    const Result ready = KVO_REQUEST(KVO_HWS_isInitComplete)();
    if (ready.code != KVO_HWS_NO) {
        require(ready);
    }
}

struct WatchArguments {
    bool olderCallback;
    std::optional<std::string> program;
};

Report watch(const WatchArguments &arguments, const CommandLine &commandLine)
{
    requireService();
    const StopSignals signals;
    UsbEventOptions options{.olderCallback = arguments.olderCallback, .format = lineFormat(commandLine)};
    if (arguments.program) {
        options.program.emplace(*arguments.program, kUsbVariablePrefix, signals.previousMask(), commandLine.prefix());
    }
    if (runUsbEvents(options, signals) == UsbEventEnd::takenOver) {
        std::fprintf(stderr, "%s: another program has taken over the events\n", commandLine.prefix().c_str());
    }
    return {};
}

CommandSetup setUpUsbWatch(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        auto *older = addFlag(command, "--v1", "Use the library's older callback, which reports only new and removed devices");
        const auto program =
            addProgram(command, "Run PROGRAM for each device event; its environment variables contain the event");
        return [=, &commandLine] { return watch({older->count() > 0, program.valueIfGiven()}, commandLine); };
    };
}

// ---- kvoctl usb close ----

/// Only the program that has activated the events can close them, so kvoctl takes them over first. That also clears the
/// activation of a program that ended without closing.
Report takeOverAndClose()
{
    require(KVO_REQUEST(KVO_HWS_isInitComplete)());
    const bool wereActive = areActive();
    const StopSignals signals;
    if (runUsbEvents({.closeWhenActivated = true}, signals) == UsbEventEnd::takenOver) {
        throw Failure(KVO_HWS_NO, "another program activated the events in the meantime");
    }
    return {.document = {{"done", true}, {"were_active", wereActive}},
            .line = wereActive ? "USB events are closed" : "USB events are closed; no program had activated them"};
}

Action setUpClose(CLI::App & /*command*/) { return takeOverAndClose; }

}  // namespace

void addUsbEventCommands(Family &usb, const CommandLine &commandLine)
{
    usb.add("watch", "Show the events of the USB devices of all stations, until Ctrl-C or until another program activates them",
            {"", "--json", "--exec ./on-usb-event.sh", "--v1"}, {setUpUsbWatch(commandLine)});
    usb.add("is-active", "Show whether a program has activated USB events", {""}, setUpIsActive);
    usb.add("close", "Close USB events, even if another program has activated them", {""}, setUpClose);
}

}  // namespace kvoctl
