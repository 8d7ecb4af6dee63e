// Commands that are refused: an embedded station has no backlight of its own, and other stations do not control it.
#include <kvo_hws/agent.h>

#include "agent/call.h"
#include "agent/handler.h"

using kvo_hws::agent::Call;

KVO_HANDLER(handle_set_backlight) { Call(session, tag).failed("EMB-KVO backlight not supported"); }

KVO_HANDLER(handle_set_backlight_brightness_v2) { Call(session, tag).failed("EMB-KVO backlight brightness V2 not supported"); }

/// The text has no "V2" because this is the same function as handle_set_backlight_brightness; programs compare the two
/// addresses.
KVO_HANDLER(handle_get_backlight_brightness_v2) { Call(session, tag).failed("EMB-KVO backlight brightness not supported"); }

KVO_HANDLER(handle_sync_times) { Call(session, tag).bad(); }

// Other names of the same functions, with the same addresses.
KVO_HANDLER_ALIAS(handle_set_backlight_brightness, handle_get_backlight_brightness_v2);
KVO_HANDLER_ALIAS(handle_start_viewer, handle_sync_times);
KVO_HANDLER_ALIAS(handle_start_configured_viewer, handle_sync_times);
KVO_HANDLER_ALIAS(handle_reboot, handle_sync_times);
KVO_HANDLER_ALIAS(handle_enable_mcp, handle_sync_times);
KVO_HANDLER_ALIAS(handle_simulate_mcp, handle_sync_times);
KVO_HANDLER_ALIAS(handle_set_calibparam, handle_sync_times);
KVO_HANDLER_ALIAS(handle_get_calibparam, handle_sync_times);
