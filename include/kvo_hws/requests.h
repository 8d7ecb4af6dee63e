/** @file
 *  The requests to the hardware service, by family. Each is one line to the daemon, one line back, and a small result code.
 *  The basic ones (versions, backlight, readiness, debug level) are in service.h, which this header includes.
 *
 *  Common to all, and not repeated below:
 *  - Results: result.h. -2 means that no service answers at "/tmp/kvo_hws/cmd_sock"; -1 also covers a broken exchange.
 *  - Messages go to the debug message channel (runtime.h), silent until KVO_HWS_activateDebugDLL, as "<label> - <reason>".
 *  - A station is named by its IPv4 address as a number: 0x0A000005 is 10.0.0.5.
 *  - Buffers and arrays are the caller's; nothing that the library allocated is ever handed out.
 *  - Any thread may call them; they wait for one another (kvo_hws.h).
 */
#ifndef KVO_HWS_REQUESTS_H
#define KVO_HWS_REQUESTS_H

#include <kvo_hws/codecs.h>
#include <kvo_hws/export.h>
#include <kvo_hws/service.h>

#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/* ---- The list of known stations ---- */

/** Reads the list of all stations that the daemon knows.
 *  @param list   receives the stations; the whole capacity is cleared before anything is sent
 *  @param count  in: elements in @p list; out: elements filled, or the number needed when the result is -3
 *  @return 1; -1 refused, malformed reply or broken exchange; -2 no service; -3 the array is too small; -7 a null pointer
 *  Asks "getCountElemDL", then "getDLV2 <capacity>". Logged as "get KVO description list - " and "null pointer received",
 *  "can not send request (count)", "can not allocate memory", "error sending request (count)", "wrong count reply",
 *  "not enough memory (1)", "can not send request", "error sending request", "can not get count from reply",
 *  "not enough memory (2)" (the list grew in between) or "can not get KVO list from reply".
 */
KVO_HWS_API int32_t KVO_HWS_getDescriptionList(KvoDescription *list, uint32_t *count) KVO_HWS_NOEXCEPT;

/** Reads the list of all stations with their extended attributes.
 *  @param list   receives the stations, cleared only when a list has come that fits; null asks for the number alone
 *  @param count  in: elements in @p list; out: elements filled, or the number needed when the result is -3, which it always
 *                is for a null @p list
 *  @return as KVO_HWS_getDescriptionList; -7 for a null @p count only
 *  Asks "getCountElemDL_Ex", then "getDL_ExV2 <capacity>". Logged as "get KVO description list extended - " and the reasons of
 *  KVO_HWS_getDescriptionList.
 */
KVO_HWS_API int32_t KVO_HWS_getDescriptionListEx(KvoDescriptionEx *list, uint32_t *count) KVO_HWS_NOEXCEPT;

/** Looks one station up.
 *  @param address  the station's address; 0 looks up by name
 *  @param name     the station's name, used when @p address is 0; sent as it stands: a line feed would end the request
 *  @param record   receives the station; untouched unless one was found
 *  @return 1 found; 0 not found; -1 no key given (not logged), refused, malformed reply or broken exchange; -2 no service;
 *  -7 @p record is null
 *  Asks "getExDescByIP <address>" or "getExDescByName <name>". Logged as "get KVO description extended - " and
 *  "null pointer received", "can not send request (count)" or "error sending request (count)", though no count is asked for.
 */
KVO_HWS_API int32_t KVO_HWS_getDescriptionEx(uint32_t address, const char *name, KvoDescriptionEx *record) KVO_HWS_NOEXCEPT;

/** Reads the station list that the daemon kept on disk at its last start, under the daemon's registry lock.
 *  @param list     receives the stations; hand it over zeroed: a station whose attr1 is 0 leaves its element and is not counted
 *  @param count    in: elements in @p list; out: elements filled, or the lines of the file when the result is -3
 *  @param timeout  longest wait for the lock in seconds; it is tried once at least
 *  @return 1; 0 the daemon is still starting; -1 refused, or the file is missing or unreadable; -2 no service; -3 the array is
 *  too small; -4 the lock was not obtained in time; -7 a null pointer
 *  Asks "isInitComplete", "getregistrypath", "lockKVORegData" every 10 ms while it is busy, "unlockKVORegData", and reads
 *  "kvo_hws/prevkvos.reg" below the daemon's registry path. Logs nothing of its own. One registry list at a time in a process:
 *  two threads must not read registry lists at once.
 */
KVO_HWS_API int32_t KVO_HWS_getKVOPreviousListFromRegistry(KvoDescription *list, uint32_t *count,
                                                           uint32_t timeout) KVO_HWS_NOEXCEPT;

/** Reads the station list that the daemon keeps on disk now; as KVO_HWS_getKVOPreviousListFromRegistry, from
 *  "kvo_hws/currkvos.reg".
 */
KVO_HWS_API int32_t KVO_HWS_getKVOCurrentListFromRegistry(KvoDescription *list, uint32_t *count,
                                                          uint32_t timeout) KVO_HWS_NOEXCEPT;

KVO_HWS_END_DECLS

#endif
