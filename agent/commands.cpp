// The commands of the remote service, in the order in which they are matched.
#include "agent/commands.h"

#include "agent/handler.h"

#define KVO_COMMANDS(ROW)                                                                                                      \
    ROW("show-panel-size", handle_show_panel_size)                                                                             \
    ROW("show-hwid", handle_show_hwid)                                                                                         \
    ROW("show-input-devices", handle_show_input_devices)                                                                       \
    ROW("set-backlight=", handle_set_backlight)                                                                                \
    ROW("set-backlight-brightness=", handle_set_backlight_brightness)                                                          \
    ROW("set-backlight-brightness-v2=", handle_set_backlight_brightness_v2)                                                    \
    ROW("get-backlight-brightness-v2=", handle_get_backlight_brightness_v2)                                                    \
    ROW("set-darken=", handle_set_darken)                                                                                      \
    ROW("set-disable-numlock=", handle_set_disable_numlock)                                                                    \
    ROW("set-disable-capslock=", handle_set_disable_capslock)                                                                  \
    ROW("get-disable-numlock", handle_get_disable_numlock)                                                                     \
    ROW("get-disable-capslock", handle_get_disable_capslock)                                                                   \
    ROW("get-station-type", handle_get_station_type)                                                                           \
    ROW("get-sw-capslock", handle_get_sw_capslock)                                                                             \
    ROW("set-sw-capslock=", handle_set_sw_capslock)                                                                            \
    ROW("get-kvo-name", handle_get_kvo_name)                                                                                   \
    ROW("get-kvo-priority", handle_get_kvo_priority)                                                                           \
    ROW("get-kvo-startup-active", handle_get_kvo_startup_active)                                                               \
    ROW("get-kvo-startup-prio", handle_get_kvo_startup_prio)                                                                   \
    ROW("set-channel-info=", handle_set_channel_info)                                                                          \
    ROW("get-channel-info", handle_get_channel_info)                                                                           \
    ROW("get-screen-on-focus", handle_get_screen_on_focus)                                                                     \
    ROW("get-channel-on-focus", handle_get_channel_on_focus)                                                                   \
    ROW("get-t2m2n", handle_get_t2m2n)                                                                                         \
    ROW("get-mcpaddr", handle_get_mcpaddr)                                                                                     \
    ROW("set-mcpaddr=", handle_set_mcpaddr)                                                                                    \
    ROW("get-kvoindex", handle_get_kvoindex)                                                                                   \
    ROW("set-kvoindex=", handle_set_kvoindex)                                                                                  \
    ROW("get-dckaddr", handle_get_dckaddr)                                                                                     \
    ROW("get-dckenable", handle_get_dckenable)                                                                                 \
    ROW("set-dckenable=", handle_set_dckenable)                                                                                \
    ROW("get-cksindex", handle_get_cksindex)                                                                                   \
    ROW("set-cksindex=", handle_set_cksindex)                                                                                  \
    ROW("invalidate-calibration", handle_invalidate_calibration)                                                               \
    ROW("get-rv4mode", handle_get_rv4mode)                                                                                     \
    ROW("set-rv4mode=", handle_set_rv4mode)                                                                                    \
    ROW("get-calibparam", handle_get_calibparam)                                                                               \
    ROW("set-calibparam=", handle_set_calibparam)                                                                              \
    ROW("simulate-mcp=", handle_simulate_mcp)                                                                                  \
    ROW("enable-mcp=", handle_enable_mcp)                                                                                      \
    ROW("reboot", handle_reboot)                                                                                               \
    ROW("show-viewer-active", handle_show_viewer_active)                                                                       \
    ROW("show-current-server", handle_show_current_server)                                                                     \
    ROW("start-viewer=", handle_start_viewer)                                                                                  \
    ROW("start-configured-viewer=", handle_start_configured_viewer)                                                            \
    ROW("stop-viewer-preempt", handle_stop_viewer_preempt)                                                                     \
    ROW("stop-viewer-noclean", handle_stop_viewer_noclean)                                                                     \
    ROW("stop-viewer", handle_stop_viewer)                                                                                     \
    ROW("activate-me", handle_activate_me)                                                                                     \
    ROW("servername=", handle_servername)                                                                                      \
    ROW("set-statusline=", handle_set_statusline)                                                                              \
    ROW("ping", handle_ping)                                                                                                   \
    ROW("get-softkey-type", handle_get_softkey_type)                                                                           \
    ROW("get-keyboard-caps", handle_get_keyboard_caps)                                                                         \
    ROW("get-hardware-caps", handle_get_hardware_caps)                                                                         \
    ROW("get-panel-oem-layout", handle_get_panel_oem_layout)                                                                   \
    ROW("get-panel-rotation", handle_get_panel_rotation)                                                                       \
    ROW("set-usb-lock=", handle_set_usb_lock)                                                                                  \
    ROW("get-usb-lock", handle_get_usb_lock)                                                                                   \
    ROW("sync-times=", handle_sync_times)

#define KVO_DECLARE_ROW(keyword, handler) KVO_DECLARE_OWN(handler);
#define KVO_EXPORTED_ROW(keyword, handler) {keyword, handler},
#define KVO_OWN_ROW(keyword, handler) {keyword, KVO_OWN(handler)},

KVO_COMMANDS(KVO_DECLARE_ROW)

// The table for hosts. Its handlers are the exported functions (library/dynamic.list).
const HwsCommand cmds[60] = {KVO_COMMANDS(KVO_EXPORTED_ROW)};

const HwsCommand kvo_hws::agent::commands[std::size(cmds)] = {KVO_COMMANDS(KVO_OWN_ROW)};
