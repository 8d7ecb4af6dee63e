#include "reliability/scenarios.h"

namespace reliability {

const std::vector<ScenarioKind> &scenarios()
{
    static const std::vector<ScenarioKind> all = {
        {"request", "`KVO_HWS_getBacklightBrightnessV2`; every request behaves the same way", {"caller"}, makeOneRequest},
        {"long_command", "`SendCommand2ServiceDyn` with a command of 5000 characters", {"caller"}, makeLongCommand},
        {"description_list", "`KVO_HWS_getDescriptionList`, two exchanges", {"caller"}, makeDescriptionList},
        {"registry_list", "`KVO_HWS_getKVOCurrentListFromRegistry`, four exchanges and a file", {"caller"}, makeRegistryList},
        {"usb_lock", "`KVO_HWS_setUsbLock` for two stations", {"caller"}, makeUsbLock},
        {"usb_message", "`SendUsbMsg2DLL` to a USB event server", {"caller"}, makeUsbMessage},
        {"loop_request", "`kvo::Requests`: `kvo::Station::rv4_mode` on the worker", {"program"}, makeLoopRequest},
        {"usb_events",
         "`KVO_HWS_activateUSBEventsV2`, an event, `KVO_HWS_closeUSBEvents`",
         {"caller", "server", "activation", "connection", "close"},
         makeUsbEvents},
        {"agent",
         "`KVO_HWS_startupEmbHwsClient`, three requests, a pushed event, `KVO_HWS_cleanupEmbHwsClient`",
         {"caller", "agent"},
         makeAgent},
        {"embedded_events",
         "`KVO_HWS_activateEmbKvoEvents`, an event, `KVO_HWS_deactivateEmbKvoEvents`",
         {"caller", "listener"},
         makeEmbeddedEvents},
        {"configuration", "`ReadConfFile` and the accessors", {"caller"}, makeConfiguration},
        {"notifications", "`ActivateNotify`, `WaitNotify` and `WaitReceivedNotify`", {"caller"}, makeNotifications},
        {"first_line", "`sysfsfile` through a \"*\"", {"caller"}, makeFirstLine, true},
        {"traces", "`traceXmalloc` and `traceFree`", {"caller"}, makeTraces},
        {"console", "`enable_vt_control` and `get_shiftstate` on a console", {"caller"}, makeConsole},
    };
    return all;
}

}  // namespace reliability
