/** @file
 *  The service channel: the exchange with the hardware service, the functions that send to a USB event server, the line
 *  readers, and the basic requests.
 *
 *  A message is one line: its text and a line feed, sometimes with a carriage return before the line feed. One connection
 *  carries one message and its reply. The request functions use SendCommand2ServiceDyn. Most programs need only the basic
 *  requests from this header. All functions may be called from any thread. Their waits cannot be cancelled (kvo_hws.h).
 *
 *  The library's writes do not raise SIGPIPE. Every descriptor that the library opens is close-on-exec. Descriptors of any
 *  number work, also above FD_SETSIZE.
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

/** One reply line. The receiver of the record owns the text and frees it with free(). */
typedef struct DynBuffer {
    char *pcData;      /**< the line without its line end, null-terminated; null after a failure */
    uint32_t uiLength; /**< bytes received for the line, including the line end */
} DynBuffer;

/** Bytes that a connection has received after the last returned line. Use one record per connection, and set it to zero before
 *  the first use.
 */
typedef struct SocketCache {
    char acData[1028]; /**< the cached bytes, null-terminated */
    uint32_t uiFill;   /**< number of cached bytes, at most 1024 */
} SocketCache;

/** Locked during a whole exchange with the hardware service. While a program has locked it, every request of the process waits.
 */
extern KVO_HWS_API pthread_mutex_t sGCriticalSectionCmdPipe;

/** Locked during a whole exchange with a USB event server. No thread of the library locks both this mutex and
 *  sGCriticalSectionCmdPipe.
 */
extern KVO_HWS_API pthread_mutex_t sGCriticalSectionCmdPipe2DLL;

/** State of this process's USB event server: 0 not running, 3 running, 1 stop requested, 2 stopped after a request. */
extern KVO_HWS_API uint32_t ServerPipeThreadSyncState;

/** 1 after this process's USB event server has served "suicide"; 0 while it starts and after its end. */
extern KVO_HWS_API uint32_t uiSuicide;

/** Sends one command line to the hardware service and reads its reply line.
 *  @param command  the request without its line feed, not empty; no length limit
 *  @param reply    receives the reply; the caller frees its text. If the read fails, @p reply becomes {null, 0}. If an earlier
 *                  step fails, it is unchanged
 *  @return 1; -1 null or empty command (nothing is logged), no socket, write or read failure; -2 no connection
 *
 *  Blocks while another thread of the process exchanges a request. If the service's connection queue stays full for 4 s, the
 *  result is "no connection". If no byte of the reply arrives for 4 s, the result is a read failure. Logged as debug messages:
 *  "command socket - error creating socket", "... - can not connect to socket", "... - can not write to socket" (also if memory
 *  for a very long command runs out) or "... - can not read from socket".
 */
KVO_HWS_API int SendCommand2ServiceDyn(const char *command, DynBuffer *reply) KVO_HWS_NOEXCEPT;

/** Sends a control command ("suicide") to the USB event server that is listening now, in any process. Detaches the calling
 *  thread, which cannot be joined afterwards.
 *  @param command  text of at most 1022 characters, allocated with malloc(). This function always frees it
 *  @return 1 written (even if the reply is lost); 2 no socket; 3 no connection after 5 attempts 10 ms apart, or after one
 *  attempt during which the server's queue stayed full for 4 s; 4 not written; 5 longer than 1022 characters, nothing was sent
 *
 *  Logged with LOG at LOG_INFO: "sending request to DLL "<command>" [thread 0x<id>]" and "reply from DLL "<reply>" [thread
 *  0x<id>]"; with DEBUG at LOG_INFO: "FuncSendCommand2DLL: closesocket <fd>". Failures are logged with LOG at LOG_ERR:
 *  "FuncSendCommand2DLL: <reason> [thread 0x<id>] thRet=<result> errno=<number> (<text>)". For "suicide" without a listening
 *  server, which is the usual case, the priority is LOG_INFO.
 */
KVO_HWS_API int FuncSendCommand2DLL(char *command) KVO_HWS_NOEXCEPT;

/** Sends a control command to the USB event server that is listening now.
 *  @param command      text allocated with malloc(). This function always frees it
 *  @param synchronous  0: sends on a new thread and only logs the result; otherwise sends on the calling thread, and detaches
 *                      that thread
 *  @return synchronous: as FuncSendCommand2DLL; else 1, even if the thread could not be started
 */
KVO_HWS_API int SendCommand2DLL(char *command, int synchronous) KVO_HWS_NOEXCEPT;

/** Thread function of the asynchronous SendCommand2DLL.
 *  @param command  as for FuncSendCommand2DLL
 *  @return null
 */
KVO_HWS_API void *ThreadSendCommand2DLL(void *command) KVO_HWS_NOEXCEPT;

/** Delivers a USB event text to the USB event server that is listening now. This function is for the process that produces USB
 *  events. It detaches the calling thread, which cannot be joined afterwards.
 *  @param message  at most 1022 characters; the caller keeps ownership
 *  @return as FuncSendCommand2DLL
 *
 *  Logs the same steps as FuncSendCommand2DLL. Each text begins with "SendUsbMsg2DLL: ", and the first one contains the first
 *  12 characters of the message.
 */
KVO_HWS_API int SendUsbMsg2DLL(const char *message) KVO_HWS_NOEXCEPT;

/** Stops the USB event server of this process, if one is running, and then sends "suicide" to the server that is listening
 *  now, in any process. Detaches the calling thread, which cannot be joined afterwards.
 *  @return 1 the message was delivered, and this process's server stopped or was not running; -1 the message was delivered, but
 *  this process's server did not stop within 2 s; -2 the message could not be delivered, or memory ran out (debug message "kill
 *  servernot enough memory")
 *
 *  The usual result is -2, because usually no server is listening. This result does not show whether this process's server has
 *  stopped. Also logs the messages of FuncSendCommand2DLL. Sets ServerPipeThreadSyncState to 0 whenever it waited for a server
 *  of this process. Takes up to a second for a server of this process, 50 ms if no other server is listening, and 4 s if one is
 *  listening but does not reply.
 */
KVO_HWS_API int KillUsbServer(void) KVO_HWS_NOEXCEPT;

/** Calls send() once with the caller's flags. Pass MSG_NOSIGNAL, because otherwise a closed connection raises SIGPIPE.
 *  @param length  bytes to send
 *  @return @p length; -2 the connection is lost (ECONNABORTED, ENOTCONN, EPIPE); -1 another failure or a short send
 *
 *  Nothing is logged.
 */
KVO_HWS_API int kvo_hws_send_socket(int fd, const void *buffer, unsigned length, int flags) KVO_HWS_NOEXCEPT;

/** Only sets @p status, because sockets need no set-up; kept for programs that call it.
 *  @param status  receives 0; may be null
 *  @return 0
 */
KVO_HWS_API int kvo_hws_StartUpSockets(int *status) KVO_HWS_NOEXCEPT;

/** Does nothing; kept for programs that call it.
 *  @return 0
 */
KVO_HWS_API int kvo_hws_CleanUpSockets(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_readers The line readers
 *  @{
 */

/** Reads one line into a fixed buffer. Bytes after the line feed stay in the socket.
 *  @param fd      a stream socket; not closed by this function
 *  @param buffer  receives the line without its line end; at least 1025 bytes
 *  @return 1; -5 no data for 4 s; -3 the peer closed the connection, @p fd is not a connected socket, or 1024 bytes without a
 *  line feed; -1 another receive error
 *
 *  Logged with LOG: "ReadSocket: select(<fd>) timeout", "... failed with <number> (<text>)" (LOG_INFO), receive errors
 *  (LOG_DEBUG); with DEBUG: "ReadSocket: command/reply complete '<line>' (socket <fd>)" (LOG_DEBUG), "ReadSocket: return
 *  <result> (socket <fd>)" for every other result (LOG_INFO). If the line is still incomplete after all available bytes have
 *  been read, the function waits 10 ms before the next read.
 */
KVO_HWS_API int ReadSocket(int fd, char *buffer) KVO_HWS_NOEXCEPT;

/** Reads one line of any length into allocated memory. Bytes after the line feed stay in the socket.
 *  @param reply  receives the line; {null, 0} on failure. The caller frees the text
 *  @return 1; -1 @p reply is null (not logged) or a receive error; -3 the peer closed the connection or @p fd is not a
 *  connected socket; -5 no data for 4 s; -6 the wait failed, for example because @p fd is closed or negative; -8 out of memory
 *
 *  Logs the same messages as ReadSocket, with two exceptions: a failed wait is logged at LOG_DEBUG, and a timeout has no
 *  message of its own. All line feeds and carriage returns at the end of the line are removed. NUL bytes before the end are
 *  kept and counted in the length.
 */
KVO_HWS_API int ReadSocketDyn(int fd, DynBuffer *reply) KVO_HWS_NOEXCEPT;

/** Reads one line through a connection's cache, which keeps the bytes after the line.
 *  @param line                 receives the line without its line end; at least 1025 bytes
 *  @param cache                the connection's cache
 *  @param timeoutMilliseconds  longest wait for each piece of the line
 *  @return 1 a line; -5 timeout (not logged); -6 the wait failed, for example because @p fd is closed or negative; -3 the peer
 *  closed the connection, @p fd is not a connected socket, or 1024 bytes without a line feed; -1 another receive error
 *
 *  If the cache contains an incomplete line, the function returns an empty line with the result 1, and does so again at each
 *  further call until the caller clears the cache.
 *
 *  Logged with LOG at LOG_DEBUG: "ReadSocketCache: command/reply complete '<line>' (socket <fd>)", except for a tagged "pong";
 *  failed waits, receive errors and "ReadSocketCache: return <result> (socket <fd>)".
 */
KVO_HWS_API int ReadSocketCache(int fd, char *line, SocketCache *cache, unsigned timeoutMilliseconds) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_service Basic requests
 *  Requests about the service itself and the panel that it runs on. The rules for all requests are in requests.h.
 *  @{
 */

/** Sets the daemon's debug level. SetDebugLevel sets the library's own level.
 *  @param level  0 none, 1 level I, 2 level II
 *  @return 1; -1 another level (nothing is sent) or refused; -2 no service
 *
 *  Sends "setDebugLevel=DEBUG_LEVEL_NONE", "...=DEBUG_LEVEL_I" or "...=DEBUG_LEVEL_II". Logs nothing.
 */
KVO_HWS_API int32_t KVO_HWS_setDebugLevel(int level) KVO_HWS_NOEXCEPT;

/** Reads the daemon's debug level.
 *  @return 0 none, 1 level I, 2 level II; -1 refused or unknown reply; -2 no service
 *
 *  Sends "getDebugLevel". Logs nothing.
 */
KVO_HWS_API int32_t KVO_HWS_getDebugLevel(void) KVO_HWS_NOEXCEPT;

/** Acquires the daemon's lock on its registry files.
 *  @return 1 acquired; 0 another client has the lock, try again; -1 refused, or no service
 *
 *  Sends "lockKVORegData". Logs nothing. Release the lock with KVO_HWS_unlockKVORegData.
 */
KVO_HWS_API int32_t KVO_HWS_lockKVORegData(void) KVO_HWS_NOEXCEPT;

/** Releases the daemon's lock on its registry files.
 *  @return 1; -1 refused, or no service
 *
 *  Sends "unlockKVORegData". Logs nothing.
 */
KVO_HWS_API int32_t KVO_HWS_unlockKVORegData(void) KVO_HWS_NOEXCEPT;

/** Reads the library's version text, "V%#.%#.#%.#%" in every build. Sends no request.
 *  @param buffer  receives the text, 12 characters and the terminator
 *  @param size    bytes in @p buffer, 13 or more; if less, it is set to 12, which is one less than required
 *  @return 1; -1 too small ("get KVO HWS DLL version - not enough memory"); -7 a null pointer ("get KVO HWS DLL version -
 *  null pointer received")
 */
KVO_HWS_API int32_t KVO_HWS_getDLLVersion(char *buffer, unsigned *size) KVO_HWS_NOEXCEPT;

/** Reads the daemon's version text.
 *  @param buffer  receives the text with its terminator
 *  @param size    bytes in @p buffer; if the text does not fit, it is set to the text's length, which is one less than required
 *  @return 1; -1 too small ("get KVO HWS version - not enough memory") or broken exchange; -2 no service ("get KVO HWS
 *  version - can not send request"); -7 a null pointer ("get KVO HWS version - null pointer received")
 *
 *  Sends "getVersion". The text is the daemon's whole reply; it is not checked.
 */
KVO_HWS_API int32_t KVO_HWS_getKVOHWSVersion(char *buffer, unsigned *size) KVO_HWS_NOEXCEPT;

/** Switches the panel's backlight.
 *  @param mode  0 off, 1 on
 *  @return 1; -1 another mode (nothing is sent), refused or unknown reply; -2 no service
 *
 *  Sends "setBacklight=<mode>". Logged as "set backlight - " and "unknown mode" (then "can not send request" as well), "can
 *  not send request", "error sending request" or "unknown error sending request". After each reply, even on success, it first
 *  logs "get KVO HWS version - can not allocate memory". Ignore this message; it does not report a failure.
 */
KVO_HWS_API int32_t KVO_HWS_setBacklight(unsigned mode) KVO_HWS_NOEXCEPT;

/** Switches a station's brightness.
 *  @param mode  0 dark, 1 bright
 *  @return 1; -1 another mode (nothing is sent), refused or unknown reply; -2 no service
 *
 *  Sends "setBrightness=<mode> <station>". Logged as "set brightness - " and "unknown mode" (then "can not send request" as
 *  well), "can not send request", "error sending request" or "unknown error sending request".
 */
KVO_HWS_API int32_t KVO_HWS_setBrightness(uint32_t station, unsigned mode) KVO_HWS_NOEXCEPT;

/** Asks whether the daemon has finished starting.
 *  @return 1 yes; 0 no, it is still starting; -1 refused or unknown reply; -2 no service
 *
 *  Sends "isInitComplete". Logged as "is init complete - can not send request" or "... - error sending request".
 */
KVO_HWS_API int32_t KVO_HWS_isInitComplete(void) KVO_HWS_NOEXCEPT;

/** Asks the hardware service to end.
 *  @return 1 any reply, including "failed"; -1 no reply or broken exchange; -2 no service
 *
 *  Sends "killDaemon". Logged: "kill daemon - can not send request".
 */
KVO_HWS_API int32_t KVO_HWS_killDaemon(void) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
