/** @file
 *  The service channel: one exchange with the hardware service, the senders to a USB event server, the line readers, and
 *  the basic requests.
 *
 *  A message is one line: its text and a line feed, at times with a carriage return before it. One connection carries one
 *  message and its answer. The request functions are built on SendCommand2ServiceDyn; most programs need nothing of this
 *  page but the basic requests. All functions may be called from any thread; none of their waits can be cancelled
 *  (kvo_hws.h).
 *
 *  What the library writes raises no SIGPIPE; every descriptor is close-on-exec; any descriptor number can be waited for.
 */
#ifndef KVO_HWS_SERVICE_H
#define KVO_HWS_SERVICE_H

#include <kvo_hws/export.h>
#include <kvo_hws/result.h>

#include <pthread.h>
#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_channel The channel to the service
 *  @{
 */

/** One reply line. Whoever receives the record owns the text and frees it with free(). */
typedef struct DynBuffer {
    char *pcData;      /**< the line without its line end, zero-terminated; null when there is none */
    uint32_t uiLength; /**< bytes received for the line, those of the line end included */
} DynBuffer;

/** What a connection has received beyond the last line returned; one per connection, all zero before its first use. */
typedef struct SocketCache {
    char acData[1028]; /**< the bytes held, zero-terminated */
    uint32_t uiFill;   /**< how many, at most 1024 */
} SocketCache;

/** Held during a whole exchange with the hardware service. A program that holds it stops every request of the process. */
extern KVO_HWS_API pthread_mutex_t sGCriticalSectionCmdPipe;

/** Held during a whole exchange with a USB event server. Never held together with sGCriticalSectionCmdPipe. */
extern KVO_HWS_API pthread_mutex_t sGCriticalSectionCmdPipe2DLL;

/** Life state of this process's USB event server: 0 not running, 3 running, 1 stop requested, 2 stopped after a request. */
extern KVO_HWS_API uint32_t ServerPipeThreadSyncState;

/** 1 once this process's USB event server has served "suicide"; 0 while it starts and after its end. */
extern KVO_HWS_API uint32_t uiSuicide;

/** Sends one command line to the hardware service and reads its reply line.
 *  @param command  the request without its line feed, not empty; no length limit
 *  @param reply    receives the reply, whose text the caller frees; {null, 0} when the read failed, untouched before it
 *  @return 1; -1 null or empty command (nothing is logged), no socket, write or read failure; -2 no connection
 *
 *  Blocks while another thread exchanges; a full queue of the service counts as no connection after 4 s, and 4 s without a
 *  byte of the reply as a read failure. Logged as debug messages: "command socket - error creating socket", "... - can not
 *  connect to socket", "... - can not write to socket" (also without memory for a very long command) or "... - can not read
 *  from socket".
 */
KVO_HWS_API int SendCommand2ServiceDyn(const char *command, DynBuffer *reply) KVO_HWS_NOEXCEPT;

/** Sends a control command ("suicide") to the USB event server that listens now, in whichever process. Detaches the calling
 *  thread, which cannot be joined afterwards.
 *  @param command  heap text of at most 1022 characters; freed here in every case
 *  @return 1 written (a lost answer does not matter); 2 no socket; 3 no connection in 5 attempts 10 ms apart, or after one
 *  that met a full queue for 4 s; 4 not written; 5 longer than 1022 characters, nothing was sent
 *
 *  Logged with LOG at LOG_INFO: "sending request to DLL "<command>" [thread 0x<id>]" and "reply from DLL "<reply>" [thread
 *  0x<id>]"; with DEBUG at LOG_INFO: "FuncSendCommand2DLL: closesocket <fd>". Failures with LOG at LOG_ERR, but at LOG_INFO
 *  for "suicide" where no server listens, which is the usual case: "FuncSendCommand2DLL: <reason> [thread 0x<id>]
 *  thRet=<result> errno=<number> (<text>)".
 */
KVO_HWS_API int FuncSendCommand2DLL(char *command) KVO_HWS_NOEXCEPT;

/** Sends a control command to the USB event server that listens now.
 *  @param command      heap text; freed here in every case
 *  @param synchronous  0: on a thread of its own, whose result is only logged; else on the calling thread, which is
 *                      detached by it
 *  @return synchronous: as FuncSendCommand2DLL; else 1, also when the thread could not be started
 */
KVO_HWS_API int SendCommand2DLL(char *command, int synchronous) KVO_HWS_NOEXCEPT;

/** Thread body of the asynchronous SendCommand2DLL.
 *  @param command  as for FuncSendCommand2DLL
 *  @return null
 */
KVO_HWS_API void *ThreadSendCommand2DLL(void *command) KVO_HWS_NOEXCEPT;

/** Delivers a USB event text to the USB event server that listens now; for the process that produces USB events. Detaches
 *  the calling thread, which cannot be joined afterwards.
 *  @param message  at most 1022 characters; stays the caller's
 *  @return as FuncSendCommand2DLL
 *
 *  Logged as by FuncSendCommand2DLL, each text beginning "SendUsbMsg2DLL: ", with the first 12 characters of the message.
 */
KVO_HWS_API int SendUsbMsg2DLL(const char *message) KVO_HWS_NOEXCEPT;

/** Stops the USB event server of this process, if one runs, and tells whichever other one listens to end. Detaches the
 *  calling thread, which cannot be joined afterwards.
 *  @return 1 stopped or none ran, and the message was delivered; -1 this process's server did not stop within 2 s, and the
 *  message was delivered; -2 the message could not be delivered (so it is where no server listens), whatever became of this
 *  process's server, or no memory (debug message "kill servernot enough memory")
 *
 *  Logged besides as FuncSendCommand2DLL. Leaves ServerPipeThreadSyncState at 0 whenever it had to wait. Takes up to a
 *  second for a server of this process, 50 ms where no other one listens, 4 s where one does not answer.
 */
KVO_HWS_API int KillUsbServer(void) KVO_HWS_NOEXCEPT;

/** One send() with the caller's flags. Give MSG_NOSIGNAL, or a peer that has gone raises SIGPIPE.
 *  @param length  bytes to send
 *  @return @p length; -2 the connection is lost (ECONNABORTED, ENOTCONN, EPIPE); -1 another failure or a short send
 *
 *  Nothing is logged.
 */
KVO_HWS_API int kvo_hws_send_socket(int fd, const void *buffer, unsigned length, int flags) KVO_HWS_NOEXCEPT;

/** Kept for programs that call it: sockets need no set-up here.
 *  @param status  receives 0; may be null
 *  @return 0
 */
KVO_HWS_API int kvo_hws_StartUpSockets(int *status) KVO_HWS_NOEXCEPT;

/** Kept for programs that call it.
 *  @return 0
 */
KVO_HWS_API int kvo_hws_CleanUpSockets(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_readers The line readers
 *  @{
 */

/** Reads one line into a fixed buffer; bytes behind its line feed stay in the socket.
 *  @param fd      a stream socket; never closed here
 *  @param buffer  receives the line without its line end; at least 1025 bytes
 *  @return 1; -5 no data for 4 s; -3 the peer closed, @p fd is no connected socket, or 1024 bytes without a line feed; -1
 *  another receive error
 *
 *  Logged with LOG: "ReadSocket: select(<fd>) timeout", "... failed with <number> (<text>)" (LOG_INFO), receive errors
 *  (LOG_DEBUG); with DEBUG: "ReadSocket: command/reply complete '<line>' (socket <fd>)" (LOG_DEBUG), "ReadSocket: return
 *  <result> (socket <fd>)" for every other result (LOG_INFO). While a line is unfinished, waits 10 ms after a read that
 *  took all there was.
 */
KVO_HWS_API int ReadSocket(int fd, char *buffer) KVO_HWS_NOEXCEPT;

/** Reads one line of any length into a heap text; bytes behind its line feed stay in the socket.
 *  @param reply  receives the line; {null, 0} on failure. The caller frees the text
 *  @return 1; -1 @p reply is null (not logged) or a receive error; -3 the peer closed or @p fd is no connected socket; -5
 *  no data for 4 s; -6 the wait failed, as it does for a closed or negative descriptor; -8 out of memory
 *
 *  Logged as ReadSocket, but a failed wait at LOG_DEBUG and no line of its own for a time-out. All line feeds and carriage
 *  returns at the line's end are removed; NUL bytes before it are kept and counted in the length.
 */
KVO_HWS_API int ReadSocketDyn(int fd, DynBuffer *reply) KVO_HWS_NOEXCEPT;

/** Reads one line through a connection's cache, which keeps what came behind it.
 *  @param line                 receives the line without its line end; at least 1025 bytes
 *  @param cache                the connection's cache
 *  @param timeoutMilliseconds  longest wait for each piece
 *  @return 1 a line, empty where the cache holds a beginning without a line feed: so it stays until the caller clears the
 *  cache; -5 time-out (not logged); -6 the wait failed, as it does for a closed or negative descriptor; -3 the peer
 *  closed, @p fd is no connected socket, or 1024 bytes without a line feed; -1 another receive error
 *
 *  Logged with LOG at LOG_DEBUG: "ReadSocketCache: command/reply complete '<line>' (socket <fd>)", but for a tagged "pong";
 *  failed waits, receive errors and "ReadSocketCache: return <result> (socket <fd>)".
 */
KVO_HWS_API int ReadSocketCache(int fd, char *line, SocketCache *cache, unsigned timeoutMilliseconds) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_service Basic requests
 *  The service itself and the panel it runs on; what all requests have in common stands in requests.h.
 *  @{
 */

/** Sets the daemon's debug level; the library's own is SetDebugLevel.
 *  @param level  0 none, 1 level I, 2 level II
 *  @return 1; -1 another level (nothing is sent) or refused; -2 no service
 *
 *  Asks "setDebugLevel=DEBUG_LEVEL_NONE", "...=DEBUG_LEVEL_I" or "...=DEBUG_LEVEL_II". Logs nothing.
 */
KVO_HWS_API int32_t KVO_HWS_setDebugLevel(int level) KVO_HWS_NOEXCEPT;

/** Reads the daemon's debug level.
 *  @return 0 none, 1 level I, 2 level II; -1 refused or unknown reply; -2 no service
 *
 *  Asks "getDebugLevel". Logs nothing.
 */
KVO_HWS_API int32_t KVO_HWS_getDebugLevel(void) KVO_HWS_NOEXCEPT;

/** Takes the daemon's lock on its registry files.
 *  @return 1 held now; 0 held by someone else, try again; -1 refused, and also when there is no service
 *
 *  Asks "lockKVORegData". Logs nothing. Give it back with KVO_HWS_unlockKVORegData.
 */
KVO_HWS_API int32_t KVO_HWS_lockKVORegData(void) KVO_HWS_NOEXCEPT;

/** Gives the daemon's lock on its registry files back.
 *  @return 1; -1 refused, and also when there is no service
 *
 *  Asks "unlockKVORegData". Logs nothing.
 */
KVO_HWS_API int32_t KVO_HWS_unlockKVORegData(void) KVO_HWS_NOEXCEPT;

/** Reads the library's version text, "V%#.%#.#%.#%" in every build. Asks nobody.
 *  @param buffer  receives the text, 12 characters and its terminator
 *  @param size    bytes in @p buffer, 13 or more; set to 12 when it is less, which is one short of what is needed
 *  @return 1; -1 too small ("get KVO HWS DLL version - not enough memory"); -7 a null pointer ("get KVO HWS DLL version -
 *  null pointer received")
 */
KVO_HWS_API int32_t KVO_HWS_getDLLVersion(char *buffer, unsigned *size) KVO_HWS_NOEXCEPT;

/** Reads the daemon's version text.
 *  @param buffer  receives the text with its terminator
 *  @param size    bytes in @p buffer; set to the text's length when it does not fit, which is one short of what is needed
 *  @return 1; -1 too small ("get KVO HWS version - not enough memory") or broken exchange; -2 no service ("get KVO HWS
 *  version - can not send request"); -7 a null pointer ("get KVO HWS version - null pointer received")
 *
 *  Asks "getVersion". Whatever the daemon answers is the text.
 */
KVO_HWS_API int32_t KVO_HWS_getKVOHWSVersion(char *buffer, unsigned *size) KVO_HWS_NOEXCEPT;

/** Switches the panel's backlight.
 *  @param mode  0 off, 1 on
 *  @return 1; -1 another mode (nothing is sent), refused or unknown reply; -2 no service
 *
 *  Asks "setBacklight=<mode>". Logged as "set backlight - " and "unknown mode" (then "can not send request" as well), "can
 *  not send request", "error sending request" or "unknown error sending request"; whenever a reply came, also on success,
 *  "get KVO HWS version - can not allocate memory" is logged first and means nothing.
 */
KVO_HWS_API int32_t KVO_HWS_setBacklight(unsigned mode) KVO_HWS_NOEXCEPT;

/** Switches a station's brightness.
 *  @param mode  0 dark, 1 bright
 *  @return 1; -1 another mode (nothing is sent), refused or unknown reply; -2 no service
 *
 *  Asks "setBrightness=<mode> <station>". Logged as "set brightness - " and "unknown mode" (then "can not send request" as
 *  well), "can not send request", "error sending request" or "unknown error sending request".
 */
KVO_HWS_API int32_t KVO_HWS_setBrightness(uint32_t station, unsigned mode) KVO_HWS_NOEXCEPT;

/** Asks whether the daemon has finished starting.
 *  @return 1 yes; 0 not yet; -1 refused or unknown reply; -2 no service
 *
 *  Asks "isInitComplete". Logged as "is init complete - can not send request" or "... - error sending request".
 */
KVO_HWS_API int32_t KVO_HWS_isInitComplete(void) KVO_HWS_NOEXCEPT;

/** Tells the hardware service to end itself.
 *  @return 1 any answer came, "failed" included; -1 no reply or broken exchange; -2 no service
 *
 *  Asks "killDaemon". Logged: "kill daemon - can not send request".
 */
KVO_HWS_API int32_t KVO_HWS_killDaemon(void) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
