/** @file
 *  Runtime support: the system log with its two channels, and the thread and lock wrappers.
 *
 *  Everything the library reports goes to syslog, nowhere else. There are two independent channels: the debug messages of
 *  the request functions (SendDLLDebugMessage, off until KVO_HWS_activateDebugDLL switches it on), and the log of the
 *  socket layer (LOG and DEBUG, gated by priority and debug level; at level 0 only priorities 0 to 3 pass). The library
 *  opens no log at load: until InitLogMessages or KVO_HWS_activateDebugDLL runs, the program's own identity is used.
 */
#ifndef KVO_HWS_RUNTIME_H
#define KVO_HWS_RUNTIME_H

#include <kvo_hws/export.h>

#include <pthread.h>
#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** The library's debug level: 0 or less "DEBUG_LEVEL_NONE", 1 "DEBUG_LEVEL_I", 2 or more "DEBUG_LEVEL_II"; 0 at load. */
extern KVO_HWS_API int32_t iDebugLevel;

/** 1 while the debug message channel is switched on, else 0; 0 at load. */
extern KVO_HWS_API uint32_t uiDebugMessageSysLogActive;

/** Writes a finished text to syslog at LOG_INFO while the debug message channel is on; does nothing while it is off.
 *  @param text  the message; written as it stands, a "%" in it means nothing
 *  @return 1 always
 *  Safe from any thread.
 */
KVO_HWS_API int SendDLLDebugMessage(const char *text) KVO_HWS_NOEXCEPT;

/** Writes a message to syslog if its priority passes: priorities 0 (LOG_EMERG) to 3 (LOG_ERR) always, 4 (LOG_WARNING) to 7
 *  (LOG_DEBUG) from debug level 1 on.
 *  @param priority  a syslog priority
 *  @param format    as for printf; the text has no length limit
 *  Safe from any thread.
 */
KVO_HWS_API void LOG(int priority, const char *format, ...) KVO_HWS_NOEXCEPT __attribute__((format(printf, 2, 3)));

/** As LOG, but priorities 4 to 7 pass only from debug level 2 on. */
KVO_HWS_API void DEBUG(int priority, const char *format, ...) KVO_HWS_NOEXCEPT __attribute__((format(printf, 2, 3)));

/** Sets iDebugLevel.
 *  @param level  any value, unchecked: below 0 acts as 0, above 2 as 2
 *  Leaves the debug message channel as it is. The service has a debug level of its own: KVO_HWS_setDebugLevel.
 */
KVO_HWS_API void SetDebugLevel(int level) KVO_HWS_NOEXCEPT;

/** Reads iDebugLevel.
 *  @param level  receives the value as it was set; must not be null
 */
KVO_HWS_API void GetDebugLevel(int *level) KVO_HWS_NOEXCEPT;

/** Opens syslog with the identity "kvo_hws", no options, the system's default facility. */
KVO_HWS_API void InitLogMessages(void) KVO_HWS_NOEXCEPT;

/** Closes syslog. */
KVO_HWS_API void CloseLogMessages(void) KVO_HWS_NOEXCEPT;

/** Switches the most talkative logging on: debug level 2, the debug message channel on, syslog open with the identity
 *  "kvo_hws_dll". Logs "activate debug mode".
 *  @return 1 always
 *  Safe from any thread; a message that races with the switch may or may not be written.
 */
KVO_HWS_API int32_t KVO_HWS_activateDebugDLL(void) KVO_HWS_NOEXCEPT;

/** Logs "deactivate debug mode", closes syslog, switches the debug message channel off and sets debug level 0.
 *  @return 1 always
 *  Safe from any thread; a message that races with the switch may or may not be written.
 */
KVO_HWS_API int32_t KVO_HWS_deactivateDebugDLL(void) KVO_HWS_NOEXCEPT;

/** Starts a thread with default attributes; its id is not kept.
 *  @param start     the thread's body; the threads of the library detach themselves first (kvo_hws_detach_thread)
 *  @param argument  handed to @p start as it is
 *  @return 1; -1 the thread could not be started, @p start has not run
 */
KVO_HWS_API int kvo_hws_CreateThread(void *(*start)(void *), void *argument) KVO_HWS_NOEXCEPT;

/** As kvo_hws_CreateThread.
 *  @param id  receives the new thread's id; may be null. The id of a thread that detaches itself may be stale at once
 */
KVO_HWS_API int kvo_hws_CreateThreadIdent(void *(*start)(void *), void *argument, pthread_t *id) KVO_HWS_NOEXCEPT;

/** Detaches the calling thread: nobody can join it any more.
 *  @return 1; -1 it was detached already
 */
KVO_HWS_API int kvo_hws_detach_thread(void) KVO_HWS_NOEXCEPT;

/** Sleeps 20 ms, through signals too.
 *  @return 0
 */
KVO_HWS_API int kvo_hws_GiveUpThreadExecution(void) KVO_HWS_NOEXCEPT;

/** Does nothing: critical sections are initialised statically (PTHREAD_MUTEX_INITIALIZER). A locked one stays locked. */
KVO_HWS_API void kvo_hws_InitializeCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** Does nothing: critical sections live as long as the process. A locked one stays locked. */
KVO_HWS_API void kvo_hws_DeleteCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** Locks a critical section (a plain mutex: a thread that holds it must not enter it again).
 *  @return 0, else the error number of pthread_mutex_lock
 */
KVO_HWS_API int kvo_hws_EnterCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** Unlocks a critical section.
 *  @return 0, else the error number of pthread_mutex_unlock
 */
KVO_HWS_API int kvo_hws_LeaveCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

KVO_HWS_END_DECLS

#endif
