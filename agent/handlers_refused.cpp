// Commands that are known and refused: an embedded station has no backlight of its own, and is not driven by others.
#include <kvo_hws/agent.h>

#include "agent/call.h"

using kvo_hws::agent::Call;

void handle_set_backlight(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    Call(session, tag).failed("EMB-KVO backlight not supported");
}

void handle_set_backlight_brightness_v2(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    Call(session, tag).failed("EMB-KVO backlight brightness V2 not supported");
}

/// Without the "V2": it is the same function as the setter of the first generation, and programs compare the two addresses.
void handle_get_backlight_brightness_v2(HmiSession *session, const char *tag, char * /*argument*/) noexcept
{
    Call(session, tag).failed("EMB-KVO backlight brightness not supported");
}

void handle_sync_times(HmiSession *session, const char *tag, char * /*argument*/) noexcept { Call(session, tag).bad(); }

// The same functions under further names, with the same addresses.
void handle_set_backlight_brightness(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_get_backlight_brightness_v2")));
void handle_start_viewer(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_sync_times")));
void handle_start_configured_viewer(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_sync_times")));
void handle_reboot(HmiSession *session, const char *tag, char *argument) noexcept __attribute__((alias("handle_sync_times")));
void handle_enable_mcp(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_sync_times")));
void handle_simulate_mcp(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_sync_times")));
void handle_set_calibparam(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_sync_times")));
void handle_get_calibparam(HmiSession *session, const char *tag, char *argument) noexcept
    __attribute__((alias("handle_sync_times")));
