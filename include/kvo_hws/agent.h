/** @file
 *  The remote agent, which lets the hardware service of another station ask about the station in focus and drive it as if
 *  it were a panel of its own; and the listener for the events of embedded stations.
 *
 *  The agent connects to the remote service over TCP, answers its requests from a table of 60 commands, passes those that
 *  only the host can carry out to the host's callback, and pushes the host's events as numbered indications. One agent runs
 *  in a process. It connects anew one second after a connect has failed and five seconds after a connection was lost. The
 *  protocol: docs/remote-protocol.md.
 *
 *  Neither a wait in here nor a callback can be cancelled with pthread_cancel (kvo_hws.h).
 */
#ifndef KVO_HWS_AGENT_H
#define KVO_HWS_AGENT_H

#include <kvo_hws/export.h>
#include <kvo_hws/runtime.h>

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_agent The agent
 *  @{
 */

typedef struct HmiServer HmiServer;

/** A connection to a remote hardware service. */
typedef struct HmiSession {
    uint32_t reserved0;      /**< not used */
    HmiServer *server;       /**< the service at its other end */
    uint32_t reserved1;      /**< not used */
    uint32_t display;        /**< session number, 0 to 9 */
    uint32_t reserved2[2];   /**< not used */
    uint32_t keyFlags;       /**< 2: NumLock is disabled, 4: CapsLock is disabled */
    int32_t socket;          /**< -1 while closed */
    uint32_t connected;      /**< 1 after the first connection */
    uint32_t chunk;          /**< 0 after each piece received */
    KvoTimeval lastActivity; /**< when it was connected or last heard of */
    char *lineBuffer;        /**< a request line that is coming in; 256 bytes and one behind them */
    uint32_t lineFill;       /**< how much of it is there */
} HmiSession;

/** A remote hardware service. */
struct HmiServer {
    uint32_t reserved[2]; /**< not used */
    uint32_t address;     /**< as inet_aton stores it */
    char *name;           /**< heap text set by "servername=", else null */
    uint32_t reserved2;   /**< not used */
    HmiSession *session;  /**< its connection */
};

/** The agent. There is one; gEmbKvoInst points to it. */
typedef struct EmbKvoInst {
    uint32_t running;        /**< 1 while the connection thread runs */
    uint32_t stop;           /**< not 0: it is to end */
    uint32_t focusKvoIp;     /**< as inet_aton stores it */
    char focusKvoName[128];  /**< the station in focus by its name */
    uint32_t remoteKvoHwsIp; /**< as inet_aton stores it */
    uint32_t remoteSession;  /**< session number, 0 to 9: the given one modulo 10 */
    uint32_t reserved[3];    /**< not used */
    uint32_t kvoIndex;       /**< the KVO index that is told */
    uint32_t mcpFlag;        /**< not 0: the station in focus has a machine control panel */
    uint32_t channelOnFocus; /**< the channel that is told */
    char screenOnFocus[128]; /**< the screen that is told */
    uint32_t suspendLock;    /**< the suspend lock that is told */
    uint32_t suspendPrio;    /**< the suspend priority that is told */
    uint32_t startupActive;  /**< whether it becomes active at start */
    uint32_t startupPrio;    /**< its priority then */
    HmiSession session;      /**< the connection */
    HmiServer server;        /**< its other end */
} EmbKvoInst;

/** The host's function for commands that only the host can carry out. Called on the connection thread, one command at a
 *  time.
 *  @param instance  the agent's handle
 *  @param command   "stop-viewer", "stop-viewer-preempt", "stop-viewer-noclean", "activate-me", "show-viewer-active",
 *                   "set-darken=<argument>" or "set-statusline=<argument>", at most 255 characters; valid until it returns
 *  @return 1 done, or yes; 0 nothing to do, or no; anything else failed, an exception too
 *
 *  It may ask the service, push events, and clean up the agent; it must not wait for the remote side, which waits for it, nor
 *  end its thread. docs/programming.md tells the whole contract.
 */
typedef int (*EmbCmdCallback)(void *instance, const char *command);

/** Answers one command.
 *  @param session   the connection; the reply goes to its socket
 *  @param tag       four characters, such as "042:", or null
 *  @param argument  what follows the keyword
 */
typedef void (*CmdHandler)(HmiSession *session, const char *tag, char *argument);

/** A command: a keyword that ends in "=" is followed by an argument. */
typedef struct HwsCommand {
    const char *keyword; /**< as it comes, in any case of letters */
    CmdHandler handler;  /**< answers it */
} HwsCommand;

/** The agent, which is also its handle. */
extern KVO_HWS_API EmbKvoInst *gEmbKvoInst;

/** Starts the agent.
 *  @param params       lines of "<key>=<value>": focusKvoIp or focusKvoName (the station in focus; by name it is found only
 *                      where the program has put the name into gFocusName too), remoteKvoHwsIp (both addresses dotted),
 *                      remoteSession (0 to 9, port 5850 and up; larger ones modulo 10), kvoIndex (1), mcpFlag (0;
 *                      not 0: the station has a machine control panel), channelOnFocus (1), screenOnFocus, suspendLock (0),
 *                      suspendPrio (1), startupActive (1), startupPrio (2); in brackets what holds without a line. Texts
 *                      are cut to 127 characters, unknown lines skipped, an invalid address is none
 *  @param instanceOut  receives the handle
 *  @param callback     see EmbCmdCallback
 *  @return 1 the agent's thread has started; -8 an agent runs, or one that has ended was not cleaned up; -7 a null pointer;
 *  -9 no station in focus or no remote service; -1 no thread (clean up before the next start)
 *
 *  Debug messages: "KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - " and "one instance of embedded kvo is already running!",
 *  "null pointer received!" or "pthread_create fails <errno>"; "KVO_HWS DLL - parseParameter - obligatory parameter
 *  missed". Safe from any thread; starts and clean-ups take turns.
 */
KVO_HWS_API int KVO_HWS_startupEmbHwsClient(const char *params, void **instanceOut, EmbCmdCallback callback) KVO_HWS_NOEXCEPT;

/** Stops the agent and waits for its end.
 *  @param instance  its handle
 *  @return 1 ended; -1 it still runs after 6 s, or this is its own thread, which then ends when the callback returns; -7 no
 *  agent was started, or a null handle; -10 another handle
 *
 *  Takes a second more than the agent's end. After a 1 no callback is called any more and no push is blocked. After a -1 the
 *  agent ends as soon as what holds it returns: the host's callback, or a request that waits for its turn or for a local
 *  service that answers byte by byte; until then starts are -8, and another clean-up is -7. Debug
 *  messages: "KVO_HWS DLL - KVO_HWS_cleanupEmbHwsClient - " and "no previous startup", "instance data is NULL" or
 *  "instance data is invalid". Safe from any thread.
 */
KVO_HWS_API int KVO_HWS_cleanupEmbHwsClient(void *instance) KVO_HWS_NOEXCEPT;

/** Pushes an event to the remote service as an indication.
 *  @param instance  the agent's handle
 *  @param text      the event without a line end, and without one inside; null-terminated
 *  @return 1 written, or lost with a connection that is not there or can not be written to (a number is used all the same);
 *  -1 the remote side has not sent a valid request since the start, or the reply to its first one is just going out; -7 a
 *  null handle or text; -10 another handle
 *
 *  Waits while the remote side does not read, for at most 4 s without progress, after which the connection is given up.
 *  Debug messages: "KVO_HWS DLL - KVO_HWS_sendEmbHwsEvent - " and "instance data is NULL", "instance data is invalid" or
 *  "null pointer received!". Safe from any thread; lines are never mixed, and numbered in their order on the wire.
 */
KVO_HWS_API int KVO_HWS_sendEmbHwsEvent(void *instance, const char *text) KVO_HWS_NOEXCEPT;

/** Thread body: the agent's connection.
 *  @param instance  gEmbKvoInst, with its parameters set
 *  @return null
 *
 *  Reads the configuration file, names the agent by the interface's hardware address, reads what it needs to know of the
 *  station in focus (without which it ends), then connects and serves until it is to stop. Its steps are logged as debug
 *  messages, "KVO_HWS DLL - embHwsClientThread - ..." and "KVO_HWS DLL - try_hws_connect - ...".
 */
KVO_HWS_API void *embHwsClientThread(void *instance) KVO_HWS_NOEXCEPT;

/** Closes a session's socket, if it is open; for the thread that serves the session. Debug message: "KVO_HWS DLL -
 *  hmi_close_x - socket <number>".
 */
KVO_HWS_API void hmi_close_x(HmiSession *session) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_agent_values What the agent tells
 *  Written when it starts, from its parameters. A program that reads or writes a word of it while the agent runs does so
 *  atomically; the texts it leaves alone, but in its callback and while no agent runs.
 *  @{
 */

/** The station in focus as inet_aton stores it; 0 where none is. Where it starts as 0, the station is looked up by
 *  gFocusName.
 */
extern KVO_HWS_API uint32_t gFocusKvoIp;
extern KVO_HWS_API uint32_t gKvoIndex;          /**< also set by "set-kvoindex=" */
extern KVO_HWS_API uint32_t gMcpLikeFocusKvo;   /**< not 0: the station in focus has a machine control panel */
extern KVO_HWS_API char gScreenOnFocus[261];    /**< the screen on focus */
extern KVO_HWS_API uint32_t gChannelOnFocus;    /**< the channel on focus */
extern KVO_HWS_API uint32_t gStartupActive;     /**< whether it becomes active at start */
extern KVO_HWS_API uint32_t gStartupPrio;       /**< its priority then */
extern KVO_HWS_API uint32_t gSuspendLock;       /**< its suspend lock */
extern KVO_HWS_API uint32_t gSuspendPrio;       /**< its suspend priority */
extern KVO_HWS_API char gHostname[260];         /**< the agent's name, "EmbKVO_" and the hardware address */
extern KVO_HWS_API char gFocusName[260];        /**< the program's to set: the station in focus, where gFocusKvoIp is 0 */
extern KVO_HWS_API EmbCmdCallback gCmdCallback; /**< the host's callback, null where no agent is started */
extern KVO_HWS_API uint32_t protocolNegotiated; /**< 1 once the remote side has sent a valid request */
extern KVO_HWS_API char *hws_channel_info;      /**< heap text set by "set-channel-info=", else null */

/** Held while a line is written to the remote service. */
extern KVO_HWS_API pthread_mutex_t sGCriticalSectionEventSocket;

/** @} */

/** @defgroup kvo_hws_agent_lines The line protocol of the agent
 *  @{
 */

/** The commands; the first that fits is taken. A handler's address is that of the function of this name. A program that
 *  defines a function of that name itself finds its own one here; the agent goes on calling the library's.
 */
extern KVO_HWS_API const HwsCommand cmds[60];

/** Reads at most one request line from a readable session and answers it. Keywords that end in "=" match as a prefix, the
 *  others whole, in any case of letters. A line must end within 256 bytes, or the session is closed; so it is when the
 *  remote side closes, which goes to the system log at LOG_INFO: "In hmiconn_process_one_request: HWS connection to
 *  <address>:<session>: <reason>".
 */
KVO_HWS_API void hmiconn_process_one_request(HmiSession *session) KVO_HWS_NOEXCEPT;

/** Writes a reply as one segment. Sets TCP_NODELAY with a socket's first line. Waits at most 4 s for a remote side that does
 *  not read; a line that can not be written whole shuts the connection down, which the next read finds.
 *  @param tag   its first part, or null
 *  @param text  the parts, null-terminated texts; (char *)0 behind the last
 */
KVO_HWS_API void hmiconn_reply(int socket, const char *tag, const char *text, ...) KVO_HWS_NOEXCEPT;

/** Writes an indication as one segment, in the way of a reply: "I", a number from 01 to 99 and round again, ":" and the parts.
 *  @return 1; -1 while protocolNegotiated is 0: nothing is written and no number used
 */
KVO_HWS_API int hmiconn_indication(int socket, const char *text, ...) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_agent_handlers The handlers of the agent's commands
 *  Each writes exactly one reply; the replies stand in docs/remote-protocol.md.
 *  @{
 */

/** "show-panel-size": width, height and colour depth of the station in focus. */
KVO_HWS_API void handle_show_panel_size(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "show-hwid": its hardware identifier. */
KVO_HWS_API void handle_show_hwid(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "show-input-devices": asks KVO_HWS_showInputDeviceV2. */
KVO_HWS_API void handle_show_input_devices(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-backlight=": refused. */
KVO_HWS_API void handle_set_backlight(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-backlight-brightness=": refused; the same function as handle_get_backlight_brightness_v2. */
KVO_HWS_API void handle_set_backlight_brightness(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-backlight-brightness-v2=": refused. */
KVO_HWS_API void handle_set_backlight_brightness_v2(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-backlight-brightness-v2=": refused. */
KVO_HWS_API void handle_get_backlight_brightness_v2(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-darken=": passed to the host. */
KVO_HWS_API void handle_set_darken(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-disable-numlock=": kept in the session's key flags. */
KVO_HWS_API void handle_set_disable_numlock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-disable-capslock=": kept in the session's key flags. */
KVO_HWS_API void handle_set_disable_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-disable-numlock": out of the session's key flags. */
KVO_HWS_API void handle_get_disable_numlock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-disable-capslock": out of the session's key flags. */
KVO_HWS_API void handle_get_disable_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-station-type": asks KVO_HWS_getStationType. */
KVO_HWS_API void handle_get_station_type(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-sw-capslock": asks KVO_HWS_getSwCapsLock. */
KVO_HWS_API void handle_get_sw_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-sw-capslock=": asks KVO_HWS_setSwCapsLock. Digits and minus signs alone are read as far as they are a number, so that
 *  nothing at all, "-" and "--1" are 0 and "1-" is 1; anything else, and a number other than -1, 0 and 1, is a bad request.
 */
KVO_HWS_API void handle_set_sw_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-kvo-name": gHostname. */
KVO_HWS_API void handle_get_kvo_name(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-kvo-priority": gSuspendLock and gSuspendPrio. */
KVO_HWS_API void handle_get_kvo_priority(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-kvo-startup-active": gStartupActive. */
KVO_HWS_API void handle_get_kvo_startup_active(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-kvo-startup-prio": gStartupPrio. */
KVO_HWS_API void handle_get_kvo_startup_prio(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-channel-info=": kept in hws_channel_info. */
KVO_HWS_API void handle_set_channel_info(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-channel-info": hws_channel_info. */
KVO_HWS_API void handle_get_channel_info(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-screen-on-focus": gScreenOnFocus. */
KVO_HWS_API void handle_get_screen_on_focus(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-channel-on-focus": gChannelOnFocus. */
KVO_HWS_API void handle_get_channel_on_focus(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-t2m2n": what KVO_HWS_getKVOT2M2N said when the agent started. */
KVO_HWS_API void handle_get_t2m2n(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-mcpaddr": asks KVO_HWS_getMCPAddress where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_mcpaddr(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-mcpaddr=": asks KVO_HWS_setMCPAddress where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_set_mcpaddr(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-kvoindex": gKvoIndex. */
KVO_HWS_API void handle_get_kvoindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-kvoindex=": kept in gKvoIndex. */
KVO_HWS_API void handle_set_kvoindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-dckaddr": asks KVO_HWS_getDCKAddress where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_dckaddr(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-dckenable": asks KVO_HWS_getDCKEnable where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_dckenable(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-dckenable=": asks KVO_HWS_setDCKEnable where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_set_dckenable(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-cksindex": asks KVO_HWS_getKVOCksIndex where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_cksindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-cksindex=": asks KVO_HWS_setKVOCksIndex where gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_set_cksindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "invalidate-calibration": asks KVO_HWS_invalidateTouchScreen. */
KVO_HWS_API void handle_invalidate_calibration(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-rv4mode": asks KVO_HWS_getRV4Mode. */
KVO_HWS_API void handle_get_rv4mode(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-rv4mode=": asks KVO_HWS_setRV4Mode. */
KVO_HWS_API void handle_set_rv4mode(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-calibparam": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_get_calibparam(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-calibparam=": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_set_calibparam(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "simulate-mcp=": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_simulate_mcp(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "enable-mcp=": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_enable_mcp(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "reboot": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_reboot(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "show-viewer-active": passed to the host. */
KVO_HWS_API void handle_show_viewer_active(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "show-current-server": passed to the host as "show-viewer-active". */
KVO_HWS_API void handle_show_current_server(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "start-viewer=": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_start_viewer(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "start-configured-viewer=": refused; the same function as handle_sync_times. */
KVO_HWS_API void handle_start_configured_viewer(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "stop-viewer-preempt": passed to the host. */
KVO_HWS_API void handle_stop_viewer_preempt(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "stop-viewer-noclean": passed to the host. */
KVO_HWS_API void handle_stop_viewer_noclean(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "stop-viewer": passed to the host. */
KVO_HWS_API void handle_stop_viewer(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "activate-me": passed to the host. */
KVO_HWS_API void handle_activate_me(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "servername=": kept as the remote side's name. */
KVO_HWS_API void handle_servername(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-statusline=": passed to the host. */
KVO_HWS_API void handle_set_statusline(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "ping". */
KVO_HWS_API void handle_ping(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-softkey-type": asks KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_softkey_type(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-keyboard-caps": asks KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_keyboard_caps(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-hardware-caps": asks KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_hardware_caps(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-panel-oem-layout": asks KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_panel_oem_layout(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-panel-rotation": asks KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_panel_rotation(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-usb-lock=": asks KVO_HWS_setUsbLock. */
KVO_HWS_API void handle_set_usb_lock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-usb-lock": asks KVO_HWS_getUsbLock. */
KVO_HWS_API void handle_get_usb_lock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "sync-times=": refused. */
KVO_HWS_API void handle_sync_times(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** without a command of its own: asks KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_display_dpi(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_focus_station The station in focus, and the console
 *  @{
 */

/** Reads the station in focus: its description and its T2M2N text.
 *  Sets gFocusKvoIp to the address of the description. For one thread at a time, the agent's included.
 *  @return 0; -1 while an agent is ending, or not readable: debug message "init_fb - getDescriptionEx(<IP or name>) fails
 *  with <result>" or "init_fb - getKVOT2M2N(IP <address>) fails with <result>"
 */
KVO_HWS_API int init_fb(void) KVO_HWS_NOEXCEPT;

/** Names the other end of a session, "<address>:<session number>".
 *  @return a text that the next call overwrites; for one thread at a time, the agent's included
 */
KVO_HWS_API const char *sesstoa(const HmiSession *session) KVO_HWS_NOEXCEPT;

/** Writes a display name: "<name> (<address>)" where that is shorter than @p width, else "<name up to its first point>...
 *  (<address>)" where that fits, else the address.
 *  @param dst   receives the text, cut to @p size with its terminator
 *  @param size  bytes in @p dst
 *  @return the length of the whole text
 */
KVO_HWS_API int format_servername(char *dst, size_t size, const HmiServer *server, int width) KVO_HWS_NOEXCEPT;

/** Reads the first line of "<dir>/<sub>/<file>", at most 127 characters. The first "*" in it stands for the first entry of its
 *  folder, where it is a whole component and not the path's beginning; any other is taken as it is.
 *  @return heap text, the caller's; null where the file can not be read. Without memory for it the process ends (exit
 *  status 1, "out of memory" in the system log)
 */
KVO_HWS_API char *sysfsfile(const char *dir, const char *sub, const char *file) KVO_HWS_NOEXCEPT;

/** Replaces the "*" at the end of a path by the first entry of the folder before it; where there is none it stays.
 *  @param path  at least 260 bytes more than the text
 */
KVO_HWS_API void sysfssubst(char *path) KVO_HWS_NOEXCEPT;

/** Switches process control of the console on standard input: SIGUSR1 asks for the release, SIGUSR2 tells of the return.
 *  Failures go to the system log ("VT_GETMODE: ...", "VT_SETMODE: ..." at LOG_ERR).
 *  @param on  0: automatic
 */
KVO_HWS_API void enable_vt_control(int on) KVO_HWS_NOEXCEPT;

/** Reads the shift state of the console on standard input.
 *  @return the state; 6 on failure ("TIOCLINUX(6): ..." at LOG_WARNING), which is also a state
 */
KVO_HWS_API int get_shiftstate(void) KVO_HWS_NOEXCEPT;

/** The text of a viewer's error code; the system's text for a code that is none. */
KVO_HWS_API const char *vnc_strerror(int code) KVO_HWS_NOEXCEPT;

/** Not used by the library. */
extern KVO_HWS_API int32_t VNCERRNO;

/** Does nothing; kept for programs that call it. */
KVO_HWS_API void register_hws_servername(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_embedded_events Events of embedded stations
 *  @{
 */

/** The host's function for events. Called on the listener's thread; its arguments are valid until it returns.
 *  @param name  at most 19 characters
 *  @param data  what follows the comma and one character behind it
 *
 *  What it throws is dropped. It may stop the listener.
 */
typedef void (*EmbKvoEventCallback)(const char *name, const char *data);

/** Starts to listen at "/tmp/kvo_hws/event_sock".
 *  @return 1 started; -8 it listens already; -7 @p callback is null; -1 no thread or no memory
 *
 *  Replaces the process's handler of SIGUSR1 (see ActivateNotify). Connects as soon as a service is there and tries again each
 *  second. Where the connection is lost it connects again: at once if that connection brought an event, else after 1 s. Up to
 *  16 lost connections stay open until it is stopped: the service takes a closed one for a station that has gone. An "Alive?"
 *  is read and dropped; so is, with a debug message, an event without a comma or with a name of 20 characters or more. Its
 *  steps are logged as debug messages, "embKvoEventsThread: ...". Safe from any thread.
 */
KVO_HWS_API int KVO_HWS_activateEmbKvoEvents(EmbKvoEventCallback callback) KVO_HWS_NOEXCEPT;

/** Stops listening and waits a second for the listener's end.
 *  @return 1 ended or ending; -1 it did not listen, or still runs. Debug message: "shutdown Emb-KVO events thread - " and
 *  "ok", "error", "timeout" or "unknown error"; "KVO_HWS_deactivateEmbKvoEvents: is still running".
 *
 *  A listener that finds no service ends as soon as one is there; until then it cannot be activated again. The callback
 *  may still run when this returns, but is not called anew; it may itself call this. Safe from any thread.
 */
KVO_HWS_API int KVO_HWS_deactivateEmbKvoEvents(void) KVO_HWS_NOEXCEPT;

/** Thread body: the listener, with the callback of the last activation.
 *  @param record  its Notify, from CreateNotify; stopped and released by KVO_HWS_deactivateEmbKvoEvents alone, not by
 *                 ShutdownThread
 *  @return null
 */
KVO_HWS_API void *embKvoEventsThread(void *record) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
