/** @file
 *  The requests to the hardware service, grouped by family. Each request sends one line to the daemon, reads one line back, and
 *  returns a small result code. The basic requests (versions, backlight, readiness, debug level) are in service.h, which this
 *  header includes.
 *
 *  Common to all requests, and not repeated below:
 *  - result.h explains the results. -2 means that no service answers at "/tmp/kvo_hws/cmd_sock". -1 also means a broken
 *    exchange: for example, the service closed the connection, or no byte of the reply arrived for 4 s.
 *  - Each comment shows the line that the function sends. There, "<station>" is the station's address in 8 hexadecimal
 *    digits.
 *  - Messages go to the debug message channel (runtime.h) as "<label> - <reason>". The channel is off until
 *    KVO_HWS_activateDebugDLL is called. docs/troubleshooting.md lists the reasons.
 *  - A station is identified by its IPv4 address as a number: 0x0A000005 is 10.0.0.5.
 *  - The caller provides all buffers and arrays. The functions never return memory that the library allocated.
 *  - Any thread may call them. Only one request of a process runs at a time; a waiting request cannot be cancelled (kvo_hws.h).
 */
#ifndef KVO_HWS_REQUESTS_H
#define KVO_HWS_REQUESTS_H

#include <kvo_hws/codecs.h>
#include <kvo_hws/export.h>
#include <kvo_hws/service.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_stations The list of known stations
 *  @{
 */

/** Reads the list of all stations that the daemon knows.
 *  @param list   receives the stations; the function clears the whole array before it sends the request
 *  @param count  in: elements in @p list; out: elements filled, or the number required when the result is -3 (0xFFFFFFFF if
 *                that number does not fit in 32 bits); otherwise unchanged
 *  @return 1; -1 refused, malformed reply (elements before the error may be filled) or broken exchange; -2 no service; -3
 *  the array is too small; -7 a null pointer
 *
 *  Sends "getCountElemDL", then "getDLV2 <capacity>". Logged as "get KVO description list - " and "null pointer received",
 *  "can not send request (count)", "can not allocate memory", "error sending request (count)", "wrong count reply", "not
 *  enough memory (1)", "can not send request", "error sending request", "can not get count from reply", "not enough memory
 *  (2)" (the list grew between the two requests) or "can not get KVO list from reply".
 */
KVO_HWS_API int32_t KVO_HWS_getDescriptionList(KvoDescription *list, uint32_t *count) KVO_HWS_NOEXCEPT;

/** Reads the list of all stations with their extended attributes.
 *  @param list   receives the stations; the function clears the array only after a list that fits has arrived. With null, it
 *                reads only the number of stations
 *  @param count  in: elements in @p list; out: elements filled, or the number required when the result is -3. With a null
 *                @p list, -3 is the result of a successful call
 *  @return as KVO_HWS_getDescriptionList; -7 only for a null @p count
 *
 *  Sends "getCountElemDL_Ex", then "getDL_ExV2 <capacity>". Logged as "get KVO description list extended - " and the reasons
 *  of KVO_HWS_getDescriptionList.
 */
KVO_HWS_API int32_t KVO_HWS_getDescriptionListEx(KvoDescriptionEx *list, uint32_t *count) KVO_HWS_NOEXCEPT;

/** Looks up one station.
 *  @param address  the station's address; with 0, the function looks the station up by its name
 *  @param name     the station's name, used when @p address is 0. The function sends it unchanged, so a line feed would end the
 *                  request
 *  @param record   receives the station; unchanged if no station was found. With a malformed reply, the function clears the
 *                  record and may fill its first members
 *  @return 1 found; 0 not found; -1 neither address nor name given (not logged), refused, malformed reply or broken exchange;
 *  -2 no service; -7 @p record is null
 *
 *  Sends "getExDescByIP <address>" or "getExDescByName <name>". Logged as "get KVO description extended - " and "null
 *  pointer received", "can not send request (count)" or "error sending request (count)". "(count)" has no meaning here: the
 *  function does not request a count.
 */
KVO_HWS_API int32_t KVO_HWS_getDescriptionEx(uint32_t address, const char *name, KvoDescriptionEx *record) KVO_HWS_NOEXCEPT;

/** Reads the station list that the daemon saved to disk at its last start, under the daemon's registry lock.
 *  @param list     receives the stations; clear the array before the call, or the count may be too large. The addresses are
 *                  in network byte order, as inet_addr stores them; ntohl() converts such an address to a station's number. A
 *                  station with a malformed address is kept, with the address 0xFFFFFFFF. Names are cut at 259 bytes. A
 *                  station whose attr1 is 0 is not counted, and the next station overwrites its element
 *  @param count    in: elements in @p list; out: elements filled, or the number of lines in the file when the result is -3
 *  @param timeout  longest wait for the lock in seconds; the function tries the lock at least once, even with 0
 *  @return 1; 0 the daemon is still starting; -1 refused, the daemon's path is longer than 1004 characters, or the file is
 *  missing or unreadable; -2 no service; -3 the array is too small; -4 the lock was not obtained in time; -7 a null
 *  pointer
 *
 *  Sends "isInitComplete", "getregistrypath", "lockKVORegData" (every 10 ms while the lock is busy) and "unlockKVORegData", and
 *  reads "kvo_hws/prevkvos.reg" below the daemon's registry path. Logs no messages of its own. A process reads one registry
 *  list at a time: other threads that want to read one wait.
 */
KVO_HWS_API int32_t KVO_HWS_getKVOPreviousListFromRegistry(KvoDescription *list, uint32_t *count,
                                                           uint32_t timeout) KVO_HWS_NOEXCEPT;

/** Reads the station list that the daemon has on disk now. Works as KVO_HWS_getKVOPreviousListFromRegistry, but reads
 *  "kvo_hws/currkvos.reg".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOCurrentListFromRegistry(KvoDescription *list, uint32_t *count,
                                                          uint32_t timeout) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_viewer Viewer, status line, focus and reboot of a station
 *  @{
 */

/** Writes a station's status line.
 *  @param value1, value2  two numbers that the daemon defines; sent without a check
 *  @param text            the line. The function sends it unchanged, so a line feed would end the request
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -7 @p text is null
 *
 *  Sends "setStatusline=<station>,<value1>,<value2>,<text>". Logged as "set status line - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setStatusline(uint32_t station, uint32_t value1, uint32_t value2,
                                          const char *text) KVO_HWS_NOEXCEPT;

/** Reboots a station.
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "reboot=<station>". Logged as "set reboot - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_rebootKVO(uint32_t station) KVO_HWS_NOEXCEPT;

/** Asks whether a station's viewer runs.
 *  @return 1 it is running; 0 it is not; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "isViewerActive=<station>". Logged as "is viewer active - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_isViewerActive(uint32_t station) KVO_HWS_NOEXCEPT;

/** Reads which server a station's viewer shows.
 *  @param server       receives the server's name or address with its terminator; at most 1024 characters
 *  @param serverSize   in: bytes in @p server; out: bytes used, or required when the result is -3
 *  @param display      receives the display with its terminator, as the daemon sends it; at most 1024 characters
 *  @param displaySize  in: bytes in @p display; out: bytes used, or required when the result is -4
 *  @return 1; 0 no server is shown, nothing is stored; -1 refused, unknown or malformed reply (a malformed one is not logged)
 *  or broken exchange; -2 no service; -3 @p server is too small; -4 @p display is too small; -7 a null pointer
 *
 *  The display may not fit (result -4) or may be longer than 1024 characters (result -1). Even then, the server and its size
 *  are stored.
 *  Sends "getCurServer=<station>". Logged as "get current server - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getCurrentServer(uint32_t station, char *server, uint32_t *serverSize, char *display,
                                             uint32_t *displaySize) KVO_HWS_NOEXCEPT;

/** Requests the focus for a station.
 *  @return 1; 0 busy; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "activateMe=<station>". Logged as "activate me - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setActivateMe(uint32_t station) KVO_HWS_NOEXCEPT;

/** Starts a station's viewer with the given connection data.
 *  @param part1, part2, part3  the connection data, sent as "part1:part2:part3"; must not contain quotes or line feeds
 *  @return 1; 0 busy; -1 refused, unknown reply or broken exchange; -2 no service; -7 a null pointer
 *
 *  Sends "startViewer="<part1>:<part2>:<part3>" <station>". Logged as "start viewer - <reason>". A null pointer is logged as
 *  "set start viewer - null pointer received".
 */
KVO_HWS_API int32_t KVO_HWS_setStartViewer(uint32_t station, const char *part1, const char *part2,
                                           const char *part3) KVO_HWS_NOEXCEPT;

/** Starts a station's viewer for a configured connection.
 *  @param text, number  the connection, sent as "text:number"
 *  @return 1; 0 busy; -1 refused, unknown reply or broken exchange; -2 no service; -7 @p text is null
 *
 *  Sends "startConfiguredViewer="<text>:<number>" <station>". Logged as "start configured viewer - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_startConfiguredViewer(uint32_t station, const char *text, uint32_t number) KVO_HWS_NOEXCEPT;

/** Stops a station's viewer.
 *  @return 1; 0 it is not running; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "stopViewer=<station>". Logged as "stop viewer - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setStopViewer(uint32_t station) KVO_HWS_NOEXCEPT;

/** Stops a station's viewer ahead of other waiting requests. Works as KVO_HWS_setStopViewer. Sends
 *  "stopViewerPreempt=<station>". Logged as "stop viewer preempt - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setStopViewerPreempt(uint32_t station) KVO_HWS_NOEXCEPT;

/** Stops a station's viewer without cleaning up after it. Works as KVO_HWS_setStopViewer. Sends
 *  "stopViewerNoClean=<station>". Logged as "stop viewer no clean - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setStopViewerNoClean(uint32_t station) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_panel Settings of a station's panel
 *  @{
 */

/** Sets the brightness of a station's backlight.
 *  @param level  0 to 100 percent
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -3 level out of range, nothing is sent
 *
 *  Sends "setBacklightBrightness=<level> <station>". Logged as "set backlight brightness - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setBacklightBrightness(uint32_t station, uint32_t level) KVO_HWS_NOEXCEPT;

/** Sets the brightness of a station's backlight in one of its modes.
 *  @param level  0 to 100 percent
 *  @param mode   0 or 1
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -3 level out of range; -4 mode out of range
 *  (both: nothing is sent); -5 the station does not know the mode; -6 its backlight is not active
 *
 *  Sends "setBacklightBrightnessV2=<level> <mode> <station>". Logged as "set backlight brightness V2 - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setBacklightBrightnessV2(uint32_t station, uint32_t level, uint32_t mode) KVO_HWS_NOEXCEPT;

/** Reads the brightness of a station's backlight in one of its modes.
 *  @param level  receives the level; written only on success, without a range check
 *  @param mode   0 or 1
 *  @return 1; 0 the station does not know the mode; -1 refused, unknown reply or broken exchange; -2 no service; -3 @p level is
 *  null (other functions return -7 for a null pointer); -4 mode out of range
 *
 *  Sends "getBacklightBrightnessV2=<mode> <station>". Logged as "get backlight brightness V2 - <reason>". A null pointer is
 *  logged as "set backlight brightness V2 - invalid pointer".
 */
KVO_HWS_API int32_t KVO_HWS_getBacklightBrightnessV2(uint32_t station, uint32_t *level, uint32_t mode) KVO_HWS_NOEXCEPT;

/** Disables or enables a station's NumLock key.
 *  @param disable  1 disables, 0 enables
 *  @return 1; -1 invalid argument (nothing is sent), refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "setDisableNumLock=<disable> <station>". Logged as "set disable NumLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setDisableNumLock(uint32_t station, uint32_t disable) KVO_HWS_NOEXCEPT;

/** Disables or enables a station's CapsLock key. Works as KVO_HWS_setDisableNumLock. Sends "setDisableCapsLock=<disable>
 *  <station>". Logged as "set disable CapsLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setDisableCapsLock(uint32_t station, uint32_t disable) KVO_HWS_NOEXCEPT;

/** Reads whether a station's NumLock key is disabled.
 *  @param disable  receives 1 disabled or 0 enabled; written only on success
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -7 @p disable is null
 *
 *  Sends "getDisableNumLock=<station>". Logged as "get disable NumLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getDisableNumLock(uint32_t station, uint32_t *disable) KVO_HWS_NOEXCEPT;

/** Reads whether a station's CapsLock key is disabled. Works as KVO_HWS_getDisableNumLock. Sends
 *  "getDisableCapsLock=<station>". Logged as "get disable CapsLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getDisableCapsLock(uint32_t station, uint32_t *disable) KVO_HWS_NOEXCEPT;

/** Reads a station's type.
 *  @param type  receives 0, 1 or -1; written only on success
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -7 @p type is null (the function then also prints
 *  "pimode == NULL" on standard error)
 *
 *  Sends "getStationType=<station>". Logged as "get Station Type - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getStationType(uint32_t station, int32_t *type) KVO_HWS_NOEXCEPT;

/** Reads a station's software CapsLock state.
 *  @param state  receives 0, 1 or -1; written only on success
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -7 @p state is null
 *
 *  Sends "getSwCapsLock=<station>". Logged as "get Sw CapsLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getSwCapsLock(uint32_t station, int32_t *state) KVO_HWS_NOEXCEPT;

/** Sets a station's software CapsLock state.
 *  @param state  0, 1 or -1
 *  @return 1; -1 invalid argument (nothing is sent), refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "setSwCapsLock=<state> <station>". Logged as "set Sw CapsLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setSwCapsLock(uint32_t station, int32_t state) KVO_HWS_NOEXCEPT;

/** Reads the mode of a station's handheld terminal (type RV4).
 *  @param mode  receives 0 "auto" or 1 "individual", without a range check. If other characters follow the number, it is stored
 *               too, but the result is -1
 *  @return 1; 0 the station has no such terminal; -1 refused, unknown or malformed reply or broken exchange; -2 no service;
 *  -7 @p mode is null
 *
 *  Sends "getRV4Mode=<station>". Logged as "get RV4 mode - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getRV4Mode(uint32_t station, uint32_t *mode) KVO_HWS_NOEXCEPT;

/** Sets the mode of a station's handheld terminal (type RV4).
 *  @param mode  0 "auto" or 1 "individual"
 *  @return 1; 0 the station has no such terminal; -1 refused, unknown reply or broken exchange; -2 no service; -3 mode out
 *  of range, nothing is sent
 *
 *  Sends "setRV4Mode="<mode>" <station>". Logged as "set RV4 mode - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setRV4Mode(uint32_t station, uint32_t mode) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_addresses Addresses: machine control panel (MCP), direct control keys (DCK), KVO index, cks index
 *  A station has the address of the machine control panel (MCP) that it serves, the address of its direct control keys (DCK),
 *  and its KVO index. The service stores a fourth number with them, the cks index.
 *  @{
 */

/** Sets the address of the MCP that a station serves.
 *  @param mcpAddress  0 to 255; sent without a check, because the daemon validates it
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "setMCPAddress="<mcpAddress>" <station>". Logged as "set MCP address - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setMCPAddress(uint32_t station, uint32_t mcpAddress) KVO_HWS_NOEXCEPT;

/** Sets a station's KVO index.
 *  @param index  0 to 255; sent without a check
 *  @return as KVO_HWS_setMCPAddress
 *
 *  Sends "setKVOIndex="<index>" <station>". Logged as "set KVO index - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setKVOIndex(uint32_t station, uint32_t index) KVO_HWS_NOEXCEPT;

/** Switches a station's direct control keys on or off.
 *  @param enable  0 off, 1 on; sent without a check
 *  @return as KVO_HWS_setMCPAddress
 *
 *  Sends "setDCKEnable="<enable>" <station>". Logged as "set DCK mode - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setDCKEnable(uint32_t station, uint32_t enable) KVO_HWS_NOEXCEPT;

/** Sets a station's cks index.
 *  @param index  0 to 255
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -3 index out of range, nothing is sent
 *
 *  Sends "setKVOCksIndex="<index>" <station>". Logged as "set cks index - <reason>". For an index out of range, the reason is
 *  "invalid parameter (0 "auto" or 1 "individual")", although this is another function's range.
 */
KVO_HWS_API int32_t KVO_HWS_setKVOCksIndex(uint32_t station, uint32_t index) KVO_HWS_NOEXCEPT;

/** Simulates a key of a station's MCP.
 *  @param value1, value2  the key; sent without a check
 *  @return as KVO_HWS_setMCPAddress
 *
 *  Sends "simulateMCPKey="<value1>:<value2>" <station>". Logged as "simulate MCP key - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_simulateMCPKey(uint32_t station, uint32_t value1, uint32_t value2) KVO_HWS_NOEXCEPT;

/** Enables a key of a station's MCP.
 *  @param value1, value2  the key; sent without a check
 *  @return as KVO_HWS_setMCPAddress
 *
 *  Sends "enableMCPKey="<value1>:<value2>" <station>". Logged as "enable MCP key - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_enableMCPKey(uint32_t station, uint32_t value1, uint32_t value2) KVO_HWS_NOEXCEPT;

/** Reads the address of the MCP that a station serves.
 *  @param mcpAddress  receives 0 to 255; written only on success
 *  @return 1; -1 refused, unknown reply, value malformed or out of range (both not logged) or broken exchange; -2 no service;
 *  -7 @p mcpAddress is null
 *
 *  Sends "getMCPAddress=<station>". Logged as "get MCP address - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getMCPAddress(uint32_t station, uint32_t *mcpAddress) KVO_HWS_NOEXCEPT;

/** Reads a station's KVO index, 0 to 255. Works as KVO_HWS_getMCPAddress. Sends "getKVOIndex=<station>". Logged as "get KVO
 *  index - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOIndex(uint32_t station, uint32_t *index) KVO_HWS_NOEXCEPT;

/** Reads whether a station's direct control keys are on, 0 or 1. Works as KVO_HWS_getMCPAddress. Sends
 *  "getDCKEnable=<station>". Logged as "get DCK mode - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getDCKEnable(uint32_t station, uint32_t *enable) KVO_HWS_NOEXCEPT;

/** Reads the address of a station's direct control keys, 0 to 255. Works as KVO_HWS_getMCPAddress. Sends
 *  "getDCKAddress=<station>". Logged as "get DCK address - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getDCKAddress(uint32_t station, uint32_t *dckAddress) KVO_HWS_NOEXCEPT;

/** Reads a station's cks index, any number. Works as KVO_HWS_getMCPAddress. Sends "getKVOCksIndex=<station>". Logged as "get
 *  KVO cks index - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOCksIndex(uint32_t station, uint32_t *index) KVO_HWS_NOEXCEPT;

/** Finds the station that serves the MCP with an address.
 *  @param ip  receives the station's IPv4 address as a number; written only on success
 *  @return 1; 0 no station was found; -1 refused, unknown reply, malformed address (not logged) or broken exchange; -2 no
 *  service; -3 several stations were found; -7 @p ip is null
 *
 *  Sends "getIPbyMCPAddress=<mcpAddress>"; the address has 8 hexadecimal digits. Logged as "get IP by MCP address - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getIPbyMCPAddress(uint32_t mcpAddress, uint32_t *ip) KVO_HWS_NOEXCEPT;

/** Finds the station that has a DCK address. Works as KVO_HWS_getIPbyMCPAddress. Sends "getIPbyDCKAddress=<dckAddress>".
 *  Logged as "get IP by DCK address - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getIPbyDCKAddress(uint32_t dckAddress, uint32_t *ip) KVO_HWS_NOEXCEPT;

/** Finds the station that has a KVO index. Works as KVO_HWS_getIPbyMCPAddress. Sends "getIPbyKVOIndex=<index>". Logged as
 *  "get IP by KVO index - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getIPbyKVOIndex(uint32_t index, uint32_t *ip) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_focus Focus, start and channel information
 *  @{
 */

/** Reads a station's suspend options.
 *  @param suspendLock  receives 0 or 1; must not be null. 0 if the daemon omits it
 *  @param suspendPrio  receives 1 to 10; must not be null. 1 if the daemon omits it
 *  @return 1; -1 refused, unknown or malformed reply or broken exchange, nothing is stored; -2 no service
 *
 *  Sends "getKVOPriority=<station>". Logged as "get KVO priority - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOPriority(uint32_t station, uint32_t *suspendLock, uint32_t *suspendPrio) KVO_HWS_NOEXCEPT;

/** Reads whether a station becomes active at start.
 *  @param value  receives 0 to 2; written only on success
 *  @return 1; -1 refused, unknown reply, value malformed or out of range (both not logged) or broken exchange; -2 no service;
 *  -7 @p value is null
 *
 *  Sends "getKVOStartupActive=<station>". Logged as "get KVO startup active - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOStartupActive(uint32_t station, uint32_t *value) KVO_HWS_NOEXCEPT;

/** Reads the priority with which a station becomes active at start, any number. Works as KVO_HWS_getKVOStartupActive. Sends
 *  "getKVOStartupPrio=<station>". Logged as "get KVO startup prio - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOStartupPrio(uint32_t station, uint32_t *value) KVO_HWS_NOEXCEPT;

/** Reads the channel that a station shows when it gets the focus, 1 to 8. Works as KVO_HWS_getKVOStartupActive. Sends
 *  "getKVOChannelOnFocus=<station>". Logged as "get KVO channel on focus - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOChannelOnFocus(uint32_t station, uint32_t *channel) KVO_HWS_NOEXCEPT;

/** Reads the screen that a station shows when it gets the focus.
 *  @param screen  receives the text with its terminator. The function does not know the buffer's size. It copies the WHOLE text
 *                 of the daemon's reply, so provide a buffer for the longest text that your daemon sends
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -7 @p screen is null
 *
 *  Sends "getKVOScreenOnFocus=<station>". Logged as "get KVO screen on focus - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOScreenOnFocus(uint32_t station, char *screen) KVO_HWS_NOEXCEPT;

/** Reads a station's M:N assignment, a text that the daemon defines.
 *  @param text  receives the reply with its terminator; the reply is not checked. The function does not know the buffer's size.
 *               It copies the WHOLE reply of the daemon, so provide a buffer for the longest reply that your daemon sends
 *  @return 1; -1 refused or broken exchange; -2 no service; -7 @p text is null
 *
 *  Sends "getKVOt2m2n=<station>". Logged as "get KVO M:N - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOT2M2N(uint32_t station, char *text) KVO_HWS_NOEXCEPT;

/** Stores a station's channel information.
 *  @param info  at most 230 bytes; must not contain quotes or line feeds, because it is sent between quotes without escaping
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -3 @p info is too long, nothing is sent; -7 @p info
 *  is null
 *
 *  Sends "setChannelInfo="<info>" <station>". Logged as "set channel info - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setChannelInfo(uint32_t station, const char *info) KVO_HWS_NOEXCEPT;

/** Reads a station's channel information.
 *  @param info  receives the text with its terminator
 *  @param size  in: bytes in @p info; out: bytes required when the result is -3, otherwise unchanged
 *  @return 1; 0 the station has no channel information (@p info becomes empty if its size is not 0); -1 refused, unknown reply
 *  or broken exchange; -2 no service; -3 @p info is too small; -7 a null pointer
 *
 *  Sends "getChannelInfo=<station>". Logged as "get channel info - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getChannelInfo(uint32_t station, char *info, uint32_t *size) KVO_HWS_NOEXCEPT;

/** Deletes a station's channel information.
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "deleteChannelInfo=<station>". Logged as "delete channel info - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_deleteChannelInfo(uint32_t station) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_input Touch screen, input devices and display
 *  @{
 */

/** Discards a station's touch calibration.
 *  @return 1; 0 the station has no touch screen; -1 refused, unknown reply or broken exchange; -2 no service
 *
 *  Sends "invalidateTouch=<station>". Logged as "invalidate touch screen - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_invalidateTouchScreen(uint32_t station) KVO_HWS_NOEXCEPT;

/** Reads a station's touch calibration.
 *  @param pressThresh  receives the press threshold, -1 or more; 0 if the reply does not contain it
 *  @param nonlinear    receives -1, 0 or 1; 0 if the reply does not contain it
 *  @return 1 for any reply without malformed numbers, including "failed"; 0 the station has no touch screen; -1 malformed
 *  number or broken exchange; -2 no service; -7 a null pointer
 *
 *  The function stores both outputs if the result is 1, or if a number is malformed. Otherwise, for example after a broken
 *  exchange, both are unchanged.
 *  Sends "getCalibParam=<station>". Logged as "get touch screen calibration parameter - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getTouchScreenCalibParam(uint32_t station, int32_t *pressThresh,
                                                     int32_t *nonlinear) KVO_HWS_NOEXCEPT;

/** Sets a station's touch calibration.
 *  @param pressThresh  -1 or more
 *  @param nonlinear    -1, 0 or 1
 *  @return 1; 0 the station has no touch screen; -1 refused, unknown reply or broken exchange; -2 no service; -3 a value
 *  out of range, nothing is sent
 *
 *  Sends "setCalibParam="<pressThresh>:<nonlinear>" <station>". Logged as "set touch screen calibration parameter -
 *  <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setTouchScreenCalibParam(uint32_t station, int32_t pressThresh, int32_t nonlinear) KVO_HWS_NOEXCEPT;

/** Counts a station's input devices.
 *  @param kbd, mouse  receive the numbers of keyboards and mice; unchanged if the reply does not contain them
 *  @param touch       receives the number of touch devices, including multi-touch devices
 *  @return 1 for any reply without malformed numbers, including "failed"; -1 malformed number (the numbers before it are
 *  stored) or broken exchange; -2 no service; -7 a null pointer
 *
 *  Sends "showInputDevice=<station>". Logged as "show input device - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_showInputDevice(uint32_t station, uint32_t *kbd, uint32_t *mouse, uint32_t *touch) KVO_HWS_NOEXCEPT;

/** Counts a station's input devices. Works as KVO_HWS_showInputDevice. Logged as "show input device V2 - <reason>".
 *  @param vkbd  receives the number of virtual keyboards; unchanged if the reply does not contain it
 */
KVO_HWS_API int32_t KVO_HWS_showInputDeviceV2(uint32_t station, uint32_t *kbd, uint32_t *mouse, uint32_t *touch,
                                              uint32_t *vkbd) KVO_HWS_NOEXCEPT;

/** Counts a station's input devices, with separate numbers for the two kinds of touch devices.
 *  @param mask  receives a bit for each number in the reply: bit 0 kbd, 1 mouse, 2 touch, 3 multitouch, 4 maxcontacts, 5 vkbd;
 *               written only on success
 *  @param kbd, mouse, touch, multitouch, maxcontacts, vkbd  receive the numbers; unchanged if the reply does not contain
 *                                                           them. Every pointer may be null
 *  @return as KVO_HWS_showInputDevice, but never -7
 *
 *  Sends "showInputDevice=<station>". Logged as "show input device V3 - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_showInputDeviceV3(uint32_t station, uint32_t *mask, uint32_t *kbd, uint32_t *mouse, uint32_t *touch,
                                              uint32_t *multitouch, uint32_t *maxcontacts, uint32_t *vkbd) KVO_HWS_NOEXCEPT;

/** Reads the resolution of a station's display.
 *  @param dpi  receives dots per inch; written only on success
 *  @return 1; -1 refused, unknown reply, malformed number (not logged) or broken exchange; -2 no service; -7 @p dpi is null
 *
 *  Sends "showDPI=<station>". Logged as "show DPI - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_showDPI(uint32_t station, int32_t *dpi) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_usb USB lock and connectors
 *  @{
 */

/** Reads a station's USB lock.
 *  @param first, second  receive the two numbers of the lock; written only on success. Characters after the second number are
 *                        ignored
 *  @return 1; -1 refused, unknown reply, malformed numbers (not logged) or broken exchange; -2 no service; -7 a null
 *  pointer
 *
 *  Sends "getUsbLock=<station>". Logged as "get KVO usb lock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getUsbLock(uint32_t station, uint32_t *first, uint32_t *second) KVO_HWS_NOEXCEPT;

/** Sets the USB lock of stations with datagrams on the panel's internal network. Sends nothing to the service and waits for no
 *  reply.
 *  @param count          number of hosts; 0 addresses every station
 *  @param hosts          their addresses, dotted; ignored when @p count is 0
 *  @param first, second  the two numbers of the lock
 *  @return 1 at least one datagram was sent; -1 no datagram was sent; -7 @p hosts or a host is null although @p count is not 0;
 *  -10 a host is 127.0.0.1, nothing is sent
 *
 *  For each host, from the last to the first, sends a datagram to UDP port 5851 of the network's broadcast address. The
 *  datagram is "setUsbLock="<first>:<second>" <host>" and a line feed, cut at 1023 bytes. With @p count 0, it sends one
 *  datagram with the host 0.0.0.0. If the platform knows no such network, the datagrams go only to this host. Logged as
 *  "KVO_HWS_setUsbLock - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_setUsbLock(uint32_t count, const char **hosts, int first, int second) KVO_HWS_NOEXCEPT;

/** Reads the list of the USB connectors of all stations.
 *  @param buffer  receives the list WITHOUT a terminator: clear the buffer first, or use @p size. It must have at least one
 *                 byte, even if @p size is 0. With null, the function reads only the length
 *  @param size    in: bytes in @p buffer, which must be more than the list's length; out: the list's length
 *  @return 1; 0 the list is empty (@p buffer becomes empty); -1 broken exchange; -2 no service; -3 @p buffer is too small;
 *  -4 refused; -5 unknown reply; -7 @p size is null; -9 busy
 *
 *  Sends "getUsbConnectorList". Logged as "get usb connector list - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getUsbConnectorList(char *buffer, uint32_t *size) KVO_HWS_NOEXCEPT;

/** Reads the list of the USB connectors of one station. Works as KVO_HWS_getUsbConnectorList. Sends
 *  "getUsbConnectorListOne=<station>".
 */
KVO_HWS_API int32_t KVO_HWS_getUsbConnectorListOne(uint32_t station, char *buffer, uint32_t *size) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_metrics Metrics, clients and the kind of panel
 *  @{
 */

/** Reads one of a station's metrics.
 *  @param metric  1 panel layout, a text of 1 to 7 characters; 2 soft key type, an even number; 3 keyboard capabilities; 4
 *                 dots per inch; 5 hardware capabilities; 6 panel rotation, 1 to 4
 *  @param result  receives 8 bytes: for metric 1 the text with its terminator, for the others an unsigned 32-bit number in
 *                 the first four
 *  @return 1; -1 refused, unknown reply or broken exchange; -2 no service; -4 the station does not report this metric; -5
 *  malformed value (not logged); -7 @p result is null; -9 no such metric, nothing is sent
 *
 *  Sends "getPaneOemLayout", "getSoftkeyType", "getKeyBoardCaps", "showDPI", "getHardwareCaps" or "getPanelRotation", each
 *  with "=<station>". Logged as "KVO_HWS_getStationMetrics - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getStationMetrics(uint32_t id, uint32_t metric, void *result) KVO_HWS_NOEXCEPT;

/** Reads the list of connected clients.
 *  @param array  receives the clients; the function clears the whole array before it sends the request. May be null if @p count
 *                is 0
 *  @param count  in: elements in @p array; out: elements filled, or the number required when the result is -3; otherwise
 *                unchanged
 *  @param flags  flags that the daemon defines; sent without a check
 *  @return 1; -1 refused, malformed reply (clients before the error may be filled) or broken exchange; -2 no service; -3
 *  the array is too small; -7 a null pointer
 *
 *  Sends "getClientList 0 <flags>"; the flags are hexadecimal. Logged as "get client list - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_getClientList(KvoClientEntry *array, uint32_t *count, unsigned long flags) KVO_HWS_NOEXCEPT;

/** Asks whether a station's panel is a Marovanti panel.
 *  @return 1 yes; 0 no; -1 the reply contains no mode, or broken exchange; -2 no service; -3 the reply contains an unknown
 *  mode; -4 the panel was not found or the daemon failed; -5 unknown reply
 *
 *  Sends "isMarovantiPanel <station>". Logged as "is MAROVANTI panel - <reason>".
 */
KVO_HWS_API int32_t KVO_HWS_isMarovantiPanel(uint32_t id) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
