// Functions that are not a single exchange with the service. Most of them have only their names here, because they have their
// own tests.
#include "catalogue/catalogue.h"

#include <kvo_hws/service.h>

namespace catalogue {

namespace {

/// A function that the catalogue does not call.
Request named(const char *function) { return {Function(function), ""}; }

const std::vector<std::string> kAgent{"--focus", kHere, "--remote", "127.0.0.1", "--session", "3"};

std::vector<Request> severalExchanges()
{
    return {
        named("KVO_HWS_getKVOCurrentListFromRegistry")
            .kvoctl("stations", {"--current"})
            .cpp("Service::current_list_from_registry")
            .python("Service.get_current_stations"),
        named("KVO_HWS_getKVOPreviousListFromRegistry")
            .kvoctl("stations", {"--previous"})
            .cpp("Service::previous_list_from_registry")
            .python("Service.get_previous_stations"),
        named("KVO_HWS_setUsbLock")
            .kvoctl("usb lock set", {"1", "0", "--all"})
            .cpp("Service::set_usb_lock")
            .python("Service.set_usb_lock"),
        named("KVO_HWS_activateUSBEvents").kvoctl("usb watch", {"--v1"}).cpp("UsbEvents::activate"),
        named("KVO_HWS_activateUSBEventsV2").kvoctl("usb watch", {}).cpp("UsbEvents::activate").python("UsbEvents.start"),
        named("KVO_HWS_closeUSBEvents").kvoctl("usb close", {}).cpp("UsbEvents::close").python("UsbEvents.close"),
    };
}

// The text is the same in every version: programs compare the whole text.
Request libraryVersion()
{
    return CATALOGUE_REQUEST(KVO_HWS_getDLLVersion, "get KVO HWS DLL version")
        .alone(sizedText(64, 13), 1, {"V%#.%#.#%.#%", 13})
        .alone(sizedText(64, 64), 1, {"V%#.%#.#%.#%", 64})
        .alone(sizedText(64, 12), -1, {nothing, 12}, "not enough memory")
        .alone(sizedText(64, 0), -1, {nothing, 12}, "not enough memory")
        .nullPointer({nullptr, inOut(64)})
        .nullPointer({buffer(64), nullptr})
        .kvoctl("version", {})
        .cpp("library_version")
        .python("library_version");
}

std::vector<Request> noExchange()
{
    return {
        named("KVO_HWS_activateDebugDLL").kvoctl("ready", {"--debug"}).cpp("activate_debug").python("activate_debug"),
        named("KVO_HWS_deactivateDebugDLL").cpp("deactivate_debug").python("deactivate_debug"),
        named("KVO_HWS_activateEmbKvoEvents")
            .kvoctl("events watch", {})
            .cpp("EmbeddedEvents::activate")
            .python("EmbeddedEvents.start"),
        named("KVO_HWS_deactivateEmbKvoEvents")
            .kvoctl("events watch", {})
            .cpp("EmbeddedEvents::close")
            .python("EmbeddedEvents.close"),
        named("KVO_HWS_startupEmbHwsClient").kvoctl("agent run", kAgent).cpp("Agent::start").python("Agent.start"),
        named("KVO_HWS_sendEmbHwsEvent").kvoctl("agent run", kAgent).cpp("Agent::send_event").python("Agent.push"),
        named("KVO_HWS_cleanupEmbHwsClient").kvoctl("agent run", kAgent).cpp("Agent::close").python("Agent.close"),
    };
}

}  // namespace

Family others() { return {"others", joined({severalExchanges(), {libraryVersion()}, noExchange()})}; }

}  // namespace catalogue
