/** @file
 *  The remote agent, and the listener for the events of embedded stations.
 *
 *  Through the agent, the hardware service of another station (the remote service) queries and controls the station in focus as
 *  if it were one of its own panels. The program that starts the agent is the host program, or host. The agent connects to the
 *  remote service over TCP and answers its requests, which are 60 commands. If only the host can execute a command, the agent
 *  passes the command to the host's callback. The agent also sends the host's events to the remote service, as numbered
 *  indications.
 *
 *  A process has one agent. The agent connects again one second after a failed connect, and five seconds after a lost
 *  connection. docs/remote-protocol.md describes the protocol.
 *
 *  pthread_cancel cannot cancel a wait in these functions, nor a callback (kvo_hws.h).
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
    HmiServer *server;       /**< the remote service */
    uint32_t reserved1;      /**< not used */
    uint32_t display;        /**< session number, 0 to 9 */
    uint32_t reserved2[2];   /**< not used */
    uint32_t keyFlags;       /**< 2: NumLock is disabled, 4: CapsLock is disabled */
    int32_t socket;          /**< -1 while closed */
    uint32_t connected;      /**< 1 after the first connection */
    uint32_t chunk;          /**< set to 0 whenever data is received */
    KvoTimeval lastActivity; /**< time of the connect or of the last received data */
    char *lineBuffer;        /**< the request line being received; 256 bytes and one more */
    uint32_t lineFill;       /**< number of bytes of that line received so far */
} HmiSession;

/** A remote hardware service. */
struct HmiServer {
    uint32_t reserved[2]; /**< not used */
    uint32_t address;     /**< as inet_aton stores it */
    char *name;           /**< allocated text set by "servername=", else null */
    uint32_t reserved2;   /**< not used */
    HmiSession *session;  /**< the connection to it */
};

/** The agent. A process has one; gEmbKvoInst points to it. */
typedef struct EmbKvoInst {
    uint32_t running;        /**< 1 while the connection thread runs */
    uint32_t stop;           /**< not 0: the agent's thread must end */
    uint32_t focusKvoIp;     /**< as inet_aton stores it */
    char focusKvoName[128];  /**< name of the station in focus */
    uint32_t remoteKvoHwsIp; /**< as inet_aton stores it */
    uint32_t remoteSession;  /**< session number, 0 to 9: the given number modulo 10 */
    uint32_t reserved[3];    /**< not used */
    uint32_t kvoIndex;       /**< the reported KVO index */
    uint32_t mcpFlag;        /**< not 0: the station in focus has a machine control panel */
    uint32_t channelOnFocus; /**< the reported channel */
    char screenOnFocus[128]; /**< the reported screen */
    uint32_t suspendLock;    /**< the reported suspend lock */
    uint32_t suspendPrio;    /**< the reported suspend priority */
    uint32_t startupActive;  /**< whether the station becomes active at start */
    uint32_t startupPrio;    /**< the station's priority at start */
    HmiSession session;      /**< the connection */
    HmiServer server;        /**< the remote service */
} EmbKvoInst;

/** The host's function for commands that only the host can execute. The agent calls it on the connection thread, one command
 *  at a time.
 *  @param instance  the agent's handle
 *  @param command   "stop-viewer", "stop-viewer-preempt", "stop-viewer-noclean", "activate-me", "show-viewer-active",
 *                   "set-darken=<argument>" or "set-statusline=<argument>", at most 255 characters; valid until the function
 *                   returns
 *  @return 1 done, or yes; 0 nothing to do, or no; any other result, and an exception, mean that the command failed
 *
 *  The function may send requests to the service, push events, and clean up the agent. It must not end its thread. It must not
 *  wait for the remote side, because the remote side is waiting for the function. docs/programming.md lists all rules for it.
 */
typedef int (*EmbCmdCallback)(void *instance, const char *command);

/** Answers one command.
 *  @param session   the connection; the handler writes the reply to its socket
 *  @param tag       the tag of the request, four characters such as "042:", or null. The reply begins with the same tag
 *  @param argument  the text after the keyword
 */
typedef void (*CmdHandler)(HmiSession *session, const char *tag, char *argument);

/** A command. If the keyword ends in "=", an argument follows it. */
typedef struct HwsCommand {
    const char *keyword; /**< the keyword; requests may spell it in upper or lower case */
    CmdHandler handler;  /**< answers the command */
} HwsCommand;

/** The agent, which is also its handle. */
extern KVO_HWS_API EmbKvoInst *gEmbKvoInst;

/** Starts the agent.
 *  @param params       lines of the form "<key>=<value>", null-terminated; the keys are listed below
 *  @param instanceOut  receives the handle
 *  @param callback     the host's callback for commands (EmbCmdCallback)
 *  @return 1 the agent's thread has started; -8 an agent is running, or has ended but was not cleaned up; -7 a null pointer;
 *  -9 no station in focus or no remote service; -1 the thread could not be started (clean up before the next start)
 *
 *  The keys of @p params, with their defaults:
 *  - focusKvoIp: the dotted address of the station in focus. Or focusKvoName: its name; the agent finds the station by name
 *    only if the program has also copied the name to gFocusName
 *  - remoteKvoHwsIp: the dotted address of the remote service; required
 *  - remoteSession (0): the session number, 0 to 9. The TCP port is 5850 plus this number. Larger numbers are taken modulo 10
 *  - mcpFlag (0): not 0 if the station has a machine control panel
 *  - kvoIndex (1), channelOnFocus (1), screenOnFocus (empty), suspendLock (0), suspendPrio (1), startupActive (1),
 *    startupPrio (2): values that the agent reports
 *
 *  Texts are cut to 127 characters. Lines with an unknown key are ignored. An invalid address counts as missing.
 *
 *  Debug messages: "KVO_HWS DLL - KVO_HWS_startupEmbHwsClient - " and "one instance of embedded kvo is already running!",
 *  "null pointer received!" or "pthread_create fails <errno>"; "KVO_HWS DLL - parseParameter - obligatory parameter
 *  missed". Safe from any thread; only one start or clean-up runs at a time.
 */
KVO_HWS_API int KVO_HWS_startupEmbHwsClient(const char *params, void **instanceOut, EmbCmdCallback callback) KVO_HWS_NOEXCEPT;

/** Stops the agent and waits for its end.
 *  @param instance  the agent's handle
 *  @return 1 the agent has ended; -1 it is still running after 6 s, or the caller is the agent's own thread, which ends when
 *  the callback returns; -7 no agent was started, or a null handle; -10 not the agent's handle
 *
 *  Returns one second after the agent has ended. After the result 1, the callback is not called again and no call of
 *  KVO_HWS_sendEmbHwsEvent is blocked. After the result -1, some call still blocks the agent: the host's callback, or a request
 *  that waits for another request or for a local service that answers byte by byte. The agent ends when that call returns.
 *  Until then, a start returns -8 and another clean-up returns -7.
 *
 *  Debug messages: "KVO_HWS DLL - KVO_HWS_cleanupEmbHwsClient - " and "no previous startup", "instance data is NULL" or
 *  "instance data is invalid". Safe from any thread.
 */
KVO_HWS_API int KVO_HWS_cleanupEmbHwsClient(void *instance) KVO_HWS_NOEXCEPT;

/** Sends an event to the remote service as an indication.
 *  @param instance  the agent's handle
 *  @param text      the event, null-terminated; must not contain a line end
 *  @return 1 written, or lost because the connection is closed or cannot be written to (the indication uses a number even
 *  then); -1 the remote side has not sent a valid request since the start, or the reply to its first request is still being
 *  sent; -7 a null handle or text; -10 not the agent's handle
 *
 *  Blocks while the remote side does not read. After 4 s without progress, the function shuts the connection down.
 *  Debug messages: "KVO_HWS DLL - KVO_HWS_sendEmbHwsEvent - " and "instance data is NULL", "instance data is invalid" or
 *  "null pointer received!". Safe from any thread. Lines of several threads are never mixed, and their numbers follow the order
 *  on the wire.
 */
KVO_HWS_API int KVO_HWS_sendEmbHwsEvent(void *instance, const char *text) KVO_HWS_NOEXCEPT;

/** Thread function: the agent's connection.
 *  @param instance  gEmbKvoInst, with its parameters set
 *  @return null
 *
 *  Reads the configuration file, makes the agent's name from the interface's hardware address, and reads the data of the
 *  station in focus. If the station cannot be read, the thread ends. Otherwise it connects and serves requests until the agent
 *  is stopped. Its steps are logged as debug messages, "KVO_HWS DLL - embHwsClientThread - ..." and "KVO_HWS DLL -
 *  try_hws_connect - ...".
 */
KVO_HWS_API void *embHwsClientThread(void *instance) KVO_HWS_NOEXCEPT;

/** Closes a session's socket if it is open. Only the thread that serves the session may call this function. Debug message:
 *  "KVO_HWS DLL - hmi_close_x - socket <number>".
 */
KVO_HWS_API void hmi_close_x(HmiSession *session) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_agent_values Values that the agent reports
 *  The agent sets these variables from its parameters when it starts. While the agent runs, a program must read and write the
 *  numbers atomically, and may access the texts only in its callback.
 *  @{
 */

/** Address of the station in focus as inet_aton stores it; 0 if there is none. If it is 0 at start, the agent looks up the
 *  station by gFocusName.
 */
extern KVO_HWS_API uint32_t gFocusKvoIp;
extern KVO_HWS_API uint32_t gKvoIndex;          /**< also set by "set-kvoindex=" */
extern KVO_HWS_API uint32_t gMcpLikeFocusKvo;   /**< not 0: the station in focus has a machine control panel */
extern KVO_HWS_API char gScreenOnFocus[261];    /**< the screen on focus */
extern KVO_HWS_API uint32_t gChannelOnFocus;    /**< the channel on focus */
extern KVO_HWS_API uint32_t gStartupActive;     /**< whether the station becomes active at start */
extern KVO_HWS_API uint32_t gStartupPrio;       /**< the station's priority at start */
extern KVO_HWS_API uint32_t gSuspendLock;       /**< the station's suspend lock */
extern KVO_HWS_API uint32_t gSuspendPrio;       /**< the station's suspend priority */
extern KVO_HWS_API char gHostname[260];         /**< the agent's name, "EmbKVO_" and the hardware address */
extern KVO_HWS_API char gFocusName[260];        /**< name of the station in focus, for gFocusKvoIp 0; the program sets it */
extern KVO_HWS_API EmbCmdCallback gCmdCallback; /**< the host's callback, null if no agent is started */
extern KVO_HWS_API uint32_t protocolNegotiated; /**< 1 after the remote side has sent a valid request */
extern KVO_HWS_API char *hws_channel_info;      /**< allocated text set by "set-channel-info=", else null */

/** Locked while a line is written to the remote service. */
extern KVO_HWS_API pthread_mutex_t sGCriticalSectionEventSocket;

/** @} */

/** @defgroup kvo_hws_agent_lines The line protocol of the agent
 *  @{
 */

/** The commands. The agent uses the first command that matches a request. Each row contains the address of the exported
 *  handler. If a program defines a function with a handler's name, this table contains the program's function. The agent still
 *  calls the library's function.
 */
extern KVO_HWS_API const HwsCommand cmds[60];

/** Reads at most one request line from a readable session and answers it. A keyword that ends in "=" must match the beginning
 *  of the line after the tag; any other keyword must match the whole line after the tag. Upper and lower case are equal.
 *  The function closes the session if a line does not end within 256 bytes. It also closes the session if the remote side has
 *  closed the connection or a read fails; only in these two cases does it write to the system log, at LOG_INFO: "In
 *  hmiconn_process_one_request: HWS connection to <address>:<session>: <reason>".
 */
KVO_HWS_API void hmiconn_process_one_request(HmiSession *session) KVO_HWS_NOEXCEPT;

/** Writes a reply as one TCP segment. Sets TCP_NODELAY before the first line on a socket. Waits at most 4 s if the remote side
 *  does not read. If the line cannot be written completely, the function shuts the connection down, and the next read reports a
 *  closed connection.
 *  @param tag   the first part of the line, or null
 *  @param text  the other parts, null-terminated texts; (char *)0 after the last one
 */
KVO_HWS_API void hmiconn_reply(int socket, const char *tag, const char *text, ...) KVO_HWS_NOEXCEPT;

/** Writes an indication in the same way as hmiconn_reply writes a reply. The line is "I", a number from 01 to 99 (01 follows
 *  99), ":" and the parts.
 *  @return 1; -1 while protocolNegotiated is 0: nothing is written and no number is used
 */
KVO_HWS_API int hmiconn_indication(int socket, const char *text, ...) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_agent_handlers The handlers of the agent's commands
 *  Each handler writes exactly one reply. docs/remote-protocol.md lists the replies.
 *  @{
 */

/** "show-panel-size": width, height and colour depth of the station in focus. */
KVO_HWS_API void handle_show_panel_size(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "show-hwid": its hardware identifier. */
KVO_HWS_API void handle_show_hwid(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "show-input-devices": calls KVO_HWS_showInputDeviceV2. */
KVO_HWS_API void handle_show_input_devices(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-backlight=": refused. */
KVO_HWS_API void handle_set_backlight(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-backlight-brightness=": refused; the same function as handle_get_backlight_brightness_v2. */
KVO_HWS_API void handle_set_backlight_brightness(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-backlight-brightness-v2=": refused. */
KVO_HWS_API void handle_set_backlight_brightness_v2(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-backlight-brightness-v2=": refused. Also the handler of "set-backlight-brightness=". */
KVO_HWS_API void handle_get_backlight_brightness_v2(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-darken=": passed to the host. */
KVO_HWS_API void handle_set_darken(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-disable-numlock=": stored in the session's key flags. */
KVO_HWS_API void handle_set_disable_numlock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-disable-capslock=": stored in the session's key flags. */
KVO_HWS_API void handle_set_disable_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-disable-numlock": read from the session's key flags. */
KVO_HWS_API void handle_get_disable_numlock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-disable-capslock": read from the session's key flags. */
KVO_HWS_API void handle_get_disable_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-station-type": calls KVO_HWS_getStationType. */
KVO_HWS_API void handle_get_station_type(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-sw-capslock": calls KVO_HWS_getSwCapsLock. */
KVO_HWS_API void handle_get_sw_capslock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-sw-capslock=": calls KVO_HWS_setSwCapsLock. An argument of digits and minus signs is parsed up to the first character
 *  that does not belong to a number: an empty argument, "-" and "--1" are 0, and "1-" is 1. Any other character, and a number
 *  other than -1, 0 and 1, is a bad request.
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
/** "set-channel-info=": stored in hws_channel_info. */
KVO_HWS_API void handle_set_channel_info(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-channel-info": hws_channel_info. */
KVO_HWS_API void handle_get_channel_info(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-screen-on-focus": gScreenOnFocus. */
KVO_HWS_API void handle_get_screen_on_focus(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-channel-on-focus": gChannelOnFocus. */
KVO_HWS_API void handle_get_channel_on_focus(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-t2m2n": the text that KVO_HWS_getKVOT2M2N returned when the agent started. */
KVO_HWS_API void handle_get_t2m2n(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-mcpaddr": calls KVO_HWS_getMCPAddress if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_mcpaddr(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-mcpaddr=": calls KVO_HWS_setMCPAddress if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_set_mcpaddr(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-kvoindex": gKvoIndex. */
KVO_HWS_API void handle_get_kvoindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-kvoindex=": stored in gKvoIndex. */
KVO_HWS_API void handle_set_kvoindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-dckaddr": calls KVO_HWS_getDCKAddress if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_dckaddr(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-dckenable": calls KVO_HWS_getDCKEnable if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_dckenable(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-dckenable=": calls KVO_HWS_setDCKEnable if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_set_dckenable(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-cksindex": calls KVO_HWS_getKVOCksIndex if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_get_cksindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-cksindex=": calls KVO_HWS_setKVOCksIndex if gMcpLikeFocusKvo is set. */
KVO_HWS_API void handle_set_cksindex(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "invalidate-calibration": calls KVO_HWS_invalidateTouchScreen. */
KVO_HWS_API void handle_invalidate_calibration(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-rv4mode": calls KVO_HWS_getRV4Mode. */
KVO_HWS_API void handle_get_rv4mode(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-rv4mode=": calls KVO_HWS_setRV4Mode. */
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
/** "servername=": stored as the remote side's name. */
KVO_HWS_API void handle_servername(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-statusline=": passed to the host. */
KVO_HWS_API void handle_set_statusline(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "ping": the reply is "pong". */
KVO_HWS_API void handle_ping(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-softkey-type": calls KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_softkey_type(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-keyboard-caps": calls KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_keyboard_caps(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-hardware-caps": calls KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_hardware_caps(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-panel-oem-layout": calls KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_panel_oem_layout(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-panel-rotation": calls KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_panel_rotation(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "set-usb-lock=": calls KVO_HWS_setUsbLock. */
KVO_HWS_API void handle_set_usb_lock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "get-usb-lock": calls KVO_HWS_getUsbLock. */
KVO_HWS_API void handle_get_usb_lock(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** "sync-times=": refused. Also the handler of other commands that are refused. */
KVO_HWS_API void handle_sync_times(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;
/** Not in the table of commands. Calls KVO_HWS_getStationMetrics. */
KVO_HWS_API void handle_get_display_dpi(HmiSession *session, const char *tag, char *argument) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_focus_station The station in focus, texts, system files and the console
 *  @{
 */

/** Reads the description and the T2M2N text of the station in focus.
 *  Sets gFocusKvoIp to the address in the description. Only one thread may call it at a time; the agent's thread calls it too.
 *  @return 0; -1 while an agent is ending, or if the station cannot be read: debug message "init_fb - getDescriptionEx(<IP or
 *  name>) fails with <result>" or "init_fb - getKVOT2M2N(IP <address>) fails with <result>"
 */
KVO_HWS_API int init_fb(void) KVO_HWS_NOEXCEPT;

/** Writes the remote end of a session as "<address>:<session number>".
 *  @return a static text that the next call overwrites. Only one thread may call the function at a time; the agent's thread
 *  calls it too
 */
KVO_HWS_API const char *sesstoa(const HmiSession *session) KVO_HWS_NOEXCEPT;

/** Writes a display name of a server. The first of these forms that is shorter than @p width is written: "<name> (<address>)",
 *  or, for a name with a dot, "<name up to its first dot>... (<address>)". Otherwise only the address is written.
 *  @param dst   receives the text, cut to @p size including the terminator
 *  @param size  bytes in @p dst
 *  @return the length of the uncut text
 */
KVO_HWS_API int format_servername(char *dst, size_t size, const HmiServer *server, int width) KVO_HWS_NOEXCEPT;

/** Reads the first line of "<dir>/<sub>/<file>", at most 127 characters. If the first "*" in the path is a whole path component
 *  and not the beginning of the path, the first entry of the directory before it replaces it. Any other "*" is taken literally.
 *  @return an allocated text that the caller frees; null if the file cannot be read. If memory runs out, the process ends with
 *  exit status 1, after "out of memory" in the system log
 */
KVO_HWS_API char *sysfsfile(const char *dir, const char *sub, const char *file) KVO_HWS_NOEXCEPT;

/** Replaces the "*" at the end of a path with the first entry of the directory before it. If the directory has no entry, the
 *  "*" stays.
 *  @param path  the path; its buffer must have at least 260 bytes more than the text
 */
KVO_HWS_API void sysfssubst(char *path) KVO_HWS_NOEXCEPT;

/** Selects how the console on standard input switches: automatically, or under control of the process. Under process control,
 *  the kernel sends SIGUSR1 to request the release of the console, and SIGUSR2 after the console has been acquired again.
 *  Failures are logged in the system log ("VT_GETMODE: ...", "VT_SETMODE: ..." at LOG_ERR).
 *  @param on  0: automatic switching; otherwise process control
 */
KVO_HWS_API void enable_vt_control(int on) KVO_HWS_NOEXCEPT;

/** Reads the shift state of the console on standard input.
 *  @return the state; 6 on failure ("TIOCLINUX(6): ..." at LOG_WARNING), although 6 is also a valid state
 */
KVO_HWS_API int get_shiftstate(void) KVO_HWS_NOEXCEPT;

/** The text of a viewer's error code; the system's text (strerror) for any other code. */
KVO_HWS_API const char *vnc_strerror(int code) KVO_HWS_NOEXCEPT;

/** Not used by the library. */
extern KVO_HWS_API int32_t VNCERRNO;

/** Does nothing; kept for programs that call it. */
KVO_HWS_API void register_hws_servername(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_embedded_events Events of embedded stations
 *  @{
 */

/** The host's function for events. The library calls it on the listener's thread. Its arguments are valid until it returns.
 *  @param name  at most 19 characters
 *  @param data  the text that follows the comma and one more character
 *
 *  Exceptions of the function are ignored. The function may stop the listener.
 */
typedef void (*EmbKvoEventCallback)(const char *name, const char *data);

/** Starts a listener that connects to "/tmp/kvo_hws/event_sock" and reads events.
 *  @return 1 started; -8 already listening; -7 @p callback is null; -1 no thread or no memory
 *
 *  Replaces the process's handler of SIGUSR1 (see ActivateNotify). The listener tries to connect every second until a service
 *  is available. After a lost connection it connects again: immediately if that connection delivered an event, otherwise after
 *  1 s. Up to 16 lost connections stay open until the listener is stopped, because the service treats a closed connection as a
 *  station that has left. The listener ignores "Alive?". It drops an event without a comma, or with a name of 20 characters or
 *  more, and logs a debug message. Its steps are logged as debug messages, "embKvoEventsThread: ...". Safe from any thread.
 */
KVO_HWS_API int KVO_HWS_activateEmbKvoEvents(EmbKvoEventCallback callback) KVO_HWS_NOEXCEPT;

/** Stops the listener and waits up to a second for its end.
 *  @return 1 ended or ending; -1 no listener was running, or it is still running
 *
 *  If the listener is waiting for a service, it ends only when a service becomes available. Until then, it cannot be activated
 *  again. The callback may still be running when this function returns, but the library does not call it again. The callback
 *  may call this function. Safe from any thread. Debug messages: "shutdown Emb-KVO events thread - " and "ok", "error",
 *  "timeout" or "unknown error"; "KVO_HWS_deactivateEmbKvoEvents: is still running".
 */
KVO_HWS_API int KVO_HWS_deactivateEmbKvoEvents(void) KVO_HWS_NOEXCEPT;

/** Thread function: the listener, with the callback of the last activation.
 *  @param record  the listener's Notify record, from CreateNotify. Only KVO_HWS_deactivateEmbKvoEvents may stop the listener
 *                 and free the record; do not call ShutdownThread for it
 *  @return null
 */
KVO_HWS_API void *embKvoEventsThread(void *record) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
