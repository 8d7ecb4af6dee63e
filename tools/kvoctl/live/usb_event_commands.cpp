// Watching USB events, asking whether a program has them, and taking them away from whoever has.
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
    const Result result = tools::withMissingService(KVO_REQUEST(KVO_HWS_isUSBEventsActivated)());
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

/// The library waits for a service that starts, and would wait for one that is not there too.
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
    UsbEventPlan plan{.olderCallback = arguments.olderCallback, .format = lineFormat(commandLine)};
    if (arguments.program) {
        plan.program.emplace(*arguments.program, kUsbEnvironment, signals.before(), commandLine.prefix());
    }
    if (runUsbEvents(plan, signals) == UsbEventEnd::takenOver) {
        std::fprintf(stderr, "%s: another program has taken the events over\n", commandLine.prefix().c_str());
    }
    return {};
}

SetUp watchingUsb(const CommandLine &commandLine)
{
    return [&commandLine](CLI::App &command) -> Action {
        auto *older =
            addFlag(command, "--v1", "By the library's older callback, which is told of new and removed devices only");
        const auto program = addProgram(command, "Run PROGRAM for each event of a device, with the event in its environment");
        return [=, &commandLine] { return watch({older->count() > 0, program.given()}, commandLine); };
    };
}

// ---- kvoctl usb close ----

/// Only who has the events can give them back, so they are taken over first. That also clears at the service what a program has
/// left behind that ended without closing.
Report takeOverAndClose()
{
    require(KVO_REQUEST(KVO_HWS_isInitComplete)());
    const bool wereActive = areActive();
    const StopSignals signals;
    if (runUsbEvents({.closeWhenActivated = true}, signals) == UsbEventEnd::takenOver) {
        throw Failure(KVO_HWS_NO, "another program has activated the events meanwhile");
    }
    return {.document = {{"done", true}, {"were_active", wereActive}},
            .line = wereActive ? "USB events are closed" : "USB events are closed; no program had them active"};
}

Action setUpClose(CLI::App & /*command*/) { return takeOverAndClose; }

}  // namespace

void addUsbEventCommands(Family &usb, const CommandLine &commandLine)
{
    usb.add("watch",
            "Show what happens to the USB devices of all stations, until Ctrl-C or until another program wants to know",
            {"", "--json", "--exec ./on-usb-event.sh", "--v1"}, {watchingUsb(commandLine)});
    usb.add("is-active", "Tell whether a program has USB events activated", {""}, setUpIsActive);
    usb.add("close", "End USB events, whichever program has them", {""}, setUpClose);
}

}  // namespace kvoctl
