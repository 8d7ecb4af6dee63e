// The requests about the service itself and the panel it runs on.
#include "catalogue/catalogue.h"

#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>

namespace catalogue {

namespace {

// The label is empty: for these requests only the command channel logs messages.
std::vector<Request> levelsAndLocks()
{
    return {
        CATALOGUE_REQUEST(KVO_HWS_setDebugLevel, "")
            .asks("setDebugLevel=DEBUG_LEVEL_II", {2})
            .on("ok", 1)
            .sends("setDebugLevel=DEBUG_LEVEL_NONE", {0})
            .sends("setDebugLevel=DEBUG_LEVEL_I", {1})
            .refuses({3}, -1, "")
            .refuses({-1}, -1, "")
            .soak({1, -1, -2})
            .kvoctl("debug-level", {"II"})
            .wire("`setDebugLevel=DEBUG_LEVEL_NONE` `setDebugLevel=DEBUG_LEVEL_I` `setDebugLevel=DEBUG_LEVEL_II`",
                  "`ok`, `failed`", "sets the service's debug level")
            .cpp("Service::set_debug_level")
            .python("Service.set_debug_level"),

        CATALOGUE_REQUEST(KVO_HWS_getDebugLevel, "")
            .asks("getDebugLevel", {})
            .on("DEBUG_LEVEL_NONE", 0)
            .on("DEBUG_LEVEL_I", 1)
            .on("DEBUG_LEVEL_II", 2)
            .unknown("DEBUG_LEVEL_III")
            .kvoctl("debug-level", {})
            .shows("DEBUG_LEVEL_NONE", "none\n", R"({"debug_level": 0})")
            .shows("DEBUG_LEVEL_I", "I\n", R"({"debug_level": 1})")
            .shows("DEBUG_LEVEL_II", "II\n", R"({"debug_level": 2})")
            .wire("`getDebugLevel`", "`DEBUG_LEVEL_NONE`, `DEBUG_LEVEL_I`, `DEBUG_LEVEL_II`",
                  "returns the level that was set last")
            .cpp("Service::debug_level")
            .python("Service.get_debug_level"),

        // A missing service has the same result as other failures here.
        CATALOGUE_REQUEST(KVO_HWS_lockKVORegData, "")
            .asks("lockKVORegData", {})
            .on("ok", 1)
            .on("busy", 0)
            .unknown("busy ")
            .withoutServiceIs(-1)
            .kvoctl("registry lock", {})
            .wire("`lockKVORegData`", "`ok`, `busy`, `failed`",
                  "acquires the lock; `busy` while any client holds it, including the same one")
            .cpp("Service::lock_registry")
            .python("Service.lock_registry"),
        CATALOGUE_REQUEST(KVO_HWS_unlockKVORegData, "")
            .asks("unlockKVORegData", {})
            .on("ok", 1)
            .unknown("busy")
            .withoutServiceIs(-1)
            .kvoctl("registry unlock", {})
            .wire("`unlockKVORegData`", "`ok`, `failed`", "releases the lock; `failed` if no client holds it")
            .cpp("Service::unlock_registry")
            .python("Service.unlock_registry"),
    };
}

std::vector<Request> lights()
{
    return {
        // The additional message names another function. It is logged with every reply.
        CATALOGUE_REQUEST(KVO_HWS_setBacklight, "set backlight")
            .alsoLogs("get KVO HWS version - can not allocate memory")
            .asks("setBacklight=1", {1})
            .on("ok", 1)
            .sends("setBacklight=0", {0})
            .on("ok\r", 1)
            .refuses({2}, -1, "unknown mode")
            .thenLogs("can not send request")
            .soak({1, -1, -2})
            .kvoctl("backlight", {"on"})
            .wire("`setBacklight=0` `setBacklight=1`", "`ok`, `failed`",
                  "switches the backlight of the service's own panel off or on; the request names no station")
            .cpp("Service::set_backlight")
            .python("Service.set_backlight"),

        CATALOGUE_REQUEST(KVO_HWS_setBrightness, "set brightness")
            .asks("setBrightness=1 0A000005", {station, 1})
            .on("ok", 1)
            .sends("setBrightness=0 0A000005", {station, 0})
            .sends("setBrightness=0 FEDCBA98", {0xFEDCBA98, 0})
            .refuses({station, 2}, -1, "unknown mode")
            .thenLogs("can not send request")
            .unknown("failed ")
            .unknown("OK")
            .soak({1, -1, -2})
            .kvoctl("brightness", {kHere, "on"})
            .wire("`setBrightness=0 `*station*, `setBrightness=1 `*station*", "`ok`, `failed`",
                  "switches the station's panel to dark (0) or bright (1)")
            .cpp("Station::set_brightness")
            .python("Panel.set_brightness"),
    };
}

std::vector<Request> state()
{
    return {
        // An unknown reply has the same message as "failed".
        CATALOGUE_REQUEST(KVO_HWS_isInitComplete, "is init complete")
            .asks("isInitComplete", {})
            .on("yes", 1)
            .on("no", 0)
            .unknownIs(-1, "error sending request")
            .soak({1, 0, -1, -2})
            .kvoctl("ready", {})
            .shows("yes", "ready\n", R"({"ready": true})")
            .shows("no", "not ready\n", R"({"ready": false})", 1)
            .wire("`isInitComplete`", "`yes`, `no`", "reports whether the service has finished starting")
            .cpp("Service::is_init_complete")
            .python("Service.is_ready"),

        CATALOGUE_REQUEST(KVO_HWS_killDaemon, "kill daemon")
            .asks("killDaemon", {})
            .takesAnyReply()
            .on("ok", 1)
            .on("failed", 1)
            .on("", 1)
            .kvoctl("kill-daemon", {})
            .wire("`killDaemon`", "`ok`", "ends the service, which accepts no new connection after this reply")
            .cpp("Service::kill_daemon")
            .python("Service.kill"),

        // Any text is a version.
        CATALOGUE_REQUEST(KVO_HWS_getKVOHWSVersion, "get KVO HWS version")
            .asks("getVersion", sizedText(64, 64))
            .takesAnyReply()
            .on("V4.7.1-123", 1, {"V4.7.1-123", 64})
            .on("failed", 1, {"failed", 64})
            .on("V4.7.1-123", 1, {"V4.7.1-123", 11})
            .given(sizedText(64, 11))
            .on("V4.7.1-123", -1, {nothing, 10}, "not enough memory")
            .given(sizedText(64, 10))
            .on("V4.7.1-123", -1, {nothing, 10}, "not enough memory")
            .given(sizedText(64, 3))
            .on("", 1, {"", 1})
            .given(sizedText(64, 1))
            .on("", -1, {nothing, 0}, "not enough memory")
            .given(sizedText(64, 0))
            .nullPointer({nullptr, inOut(64)})
            .nullPointer({buffer(64), nullptr})
            .soak({1, -1, -2})
            .kvoctl("version", {})
            .wire("`getVersion`", "any text", "returns the service's version")
            .cpp("Service::version")
            .python("Service.get_version"),

        // A missing service has the same result as other failures here, and the request logs nothing itself.
        CATALOGUE_REQUEST(KVO_HWS_isUSBEventsActivated, "")
            .asks("isUSBEventsActivated", {})
            .on("yes", 1)
            .on("no", 0)
            .unknown("yes ")
            .withoutServiceIs(-1)
            .soak({1, 0, -1})
            .kvoctl("usb is-active", {})
            .shows("yes", "yes\n", R"({"active": true})")
            .shows("no", "no\n", R"({"active": false})", 1)
            .wire("`isUSBEventsActivated`", "`yes`, `no`, `failed`", "reports whether any program has activated USB events")
            .cpp("Service::is_usb_events_activated")
            .python("Service.is_usb_events_activated"),
    };
}

}  // namespace

Family serviceRequests() { return {"service", joined({levelsAndLocks(), lights(), state()})}; }

}  // namespace catalogue
