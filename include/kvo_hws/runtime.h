/** @file
 *  Runtime support: the system log with its two channels, the thread and lock wrappers, the handshake that stops worker
 *  threads, time, and traced allocation.
 *
 *  The library logs only to syslog. (The traced allocators write their own file, but the library itself does not use them.)
 *  Messages go through two independent channels:
 *  - the debug messages of the request functions (SendDLLDebugMessage). This channel is off until KVO_HWS_activateDebugDLL
 *    enables it.
 *  - the log of the socket layer (LOG and DEBUG). Priority and debug level filter it; at level 0 only priorities 0 to 3 pass.
 *
 *  The library does not open syslog when it is loaded. Until InitLogMessages or KVO_HWS_activateDebugDLL is called, messages
 *  have the program's own identity.
 *
 *  If a program defines a macro LOG or DEBUG (-DDEBUG is common), it keeps its macro and cannot call the function of that name.
 *
 *  The rules in kvo_hws.h apply to these functions too. In particular, pthread_cancel cannot cancel their waits and sleeps.
 */
#ifndef KVO_HWS_RUNTIME_H
#define KVO_HWS_RUNTIME_H

#include <kvo_hws/export.h>

#include <pthread.h>
#include <semaphore.h>
#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/** @defgroup kvo_hws_log The system log
 *  @{
 */

/** The library's debug level: 0 or less "DEBUG_LEVEL_NONE", 1 "DEBUG_LEVEL_I", 2 or more "DEBUG_LEVEL_II"; initially 0. */
extern KVO_HWS_API int32_t iDebugLevel;

/** 1 while the debug message channel is on, else 0; initially 0. */
extern KVO_HWS_API uint32_t uiDebugMessageSysLogActive;

/** Writes a text to syslog at LOG_INFO if the debug message channel is on; otherwise does nothing.
 *  @param text  the message; not a format, so a "%" has no special meaning
 *  @return 1 always
 *
 *  Safe from any thread.
 */
KVO_HWS_API int SendDLLDebugMessage(const char *text) KVO_HWS_NOEXCEPT;

#pragma push_macro("LOG")
#pragma push_macro("DEBUG")
#undef LOG
#undef DEBUG

/** Writes a message to syslog if its priority passes. Priorities 0 (LOG_EMERG) to 3 (LOG_ERR) always pass; 4 (LOG_WARNING) to 7
 *  (LOG_DEBUG) pass from debug level 1 on.
 *  @param priority  a syslog priority
 *  @param format    as for printf; the text has no length limit
 *
 *  Safe from any thread.
 */
KVO_HWS_API void LOG(int priority, const char *format, ...) KVO_HWS_NOEXCEPT __attribute__((format(printf, 2, 3)));

/** As LOG, but priorities 4 to 7 pass only from debug level 2 on. */
KVO_HWS_API void DEBUG(int priority, const char *format, ...) KVO_HWS_NOEXCEPT __attribute__((format(printf, 2, 3)));

#pragma pop_macro("DEBUG")
#pragma pop_macro("LOG")

/** Sets iDebugLevel.
 *  @param level  any value; it is not checked. Values below 0 act as 0, and values above 2 act as 2
 *
 *  Does not change the debug message channel. The service has its own debug level; KVO_HWS_setDebugLevel sets it.
 */
KVO_HWS_API void SetDebugLevel(int level) KVO_HWS_NOEXCEPT;

/** Reads iDebugLevel.
 *  @param level  receives exactly the value that was set; must not be null
 */
KVO_HWS_API void GetDebugLevel(int *level) KVO_HWS_NOEXCEPT;

/** Opens syslog with the identity "kvo_hws", without options, and with the system's default facility. */
KVO_HWS_API void InitLogMessages(void) KVO_HWS_NOEXCEPT;

/** Closes syslog. */
KVO_HWS_API void CloseLogMessages(void) KVO_HWS_NOEXCEPT;

/** Enables the most verbose logging: sets debug level 2, switches the debug message channel on, and opens syslog with the
 *  identity "kvo_hws_dll". Logs "activate debug mode".
 *  @return 1 always
 *
 *  Safe from any thread. A message that another thread logs at the same moment may or may not be written.
 */
KVO_HWS_API int32_t KVO_HWS_activateDebugDLL(void) KVO_HWS_NOEXCEPT;

/** Logs "deactivate debug mode", closes syslog, switches the debug message channel off and sets debug level 0.
 *  @return 1 always
 *
 *  Safe from any thread. A message that another thread logs at the same moment may or may not be written.
 */
KVO_HWS_API int32_t KVO_HWS_deactivateDebugDLL(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_threads Threads and critical sections
 *  @{
 */

/** Starts a thread with default attributes. The thread's id is not stored, so no thread can join the new one.
 *  @param start     the thread function. It should call kvo_hws_detach_thread first, as the library's own thread functions do
 *  @param argument  passed to @p start unchanged
 *  @return 1; -1 the thread could not be started, @p start has not run
 */
KVO_HWS_API int kvo_hws_CreateThread(void *(*start)(void *), void *argument) KVO_HWS_NOEXCEPT;

/** As kvo_hws_CreateThread.
 *  @param id  receives the new thread's id before @p start runs; unchanged if the result is -1; may be null. If the thread
 *             detaches itself, the id may become invalid at any time
 */
KVO_HWS_API int kvo_hws_CreateThreadIdent(void *(*start)(void *), void *argument, pthread_t *id) KVO_HWS_NOEXCEPT;

/** Detaches the calling thread: it can no longer be joined.
 *  @return 1; -1 it was already detached
 */
KVO_HWS_API int kvo_hws_detach_thread(void) KVO_HWS_NOEXCEPT;

/** Sleeps for 20 ms; signals do not shorten the sleep.
 *  @return 0, else the error number of clock_nanosleep
 */
KVO_HWS_API int kvo_hws_GiveUpThreadExecution(void) KVO_HWS_NOEXCEPT;

/** Does nothing: critical sections are initialised statically (PTHREAD_MUTEX_INITIALIZER). A locked section stays locked. */
KVO_HWS_API void kvo_hws_InitializeCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** Does nothing: critical sections exist until the process ends. A locked section stays locked. */
KVO_HWS_API void kvo_hws_DeleteCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** Locks a critical section. It is a normal, non-recursive mutex: a thread that has locked it must not lock it again.
 *  @return 0, else the error number of pthread_mutex_lock
 */
KVO_HWS_API int kvo_hws_EnterCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** Unlocks a critical section.
 *  @return 0, else the error number of pthread_mutex_unlock
 */
KVO_HWS_API int kvo_hws_LeaveCriticalSection(pthread_mutex_t *cs) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_notify Stopping worker threads
 *  A worker thread and the thread that stops it share a record (Notify). The worker checks at least once a second whether the
 *  state in this record is still NOTIFY_RUNNING. To stop the worker, the other thread requests the stop in the record, wakes
 *  the worker with SIGUSR1 and waits.
 *
 *  When a worker starts, it sets uiState to NOTIFY_RUNNING, adds one to uiUsers, and calls ActivateNotify and
 *  kvo_hws_detach_thread. When it ends, it subtracts one from uiUsers. The last worker of the record then sets the state. If a
 *  stop was requested, it calls WaitNotify for 20 ms, sets NOTIFY_STOP_DONE and wakes threadRequester with NotifyThread.
 *  Otherwise it sets NOTIFY_STOPPED.
 *  @{
 */

/** The state of the worker in a notification record; ServerPipeThreadSyncState has the same values. */
enum NotifyState {
    NOTIFY_STOPPED = 0,        /**< not running, or ended without a stop request */
    NOTIFY_STOP_REQUESTED = 1, /**< the worker must end */
    NOTIFY_STOP_DONE = 2,      /**< ended after a stop request */
    NOTIFY_RUNNING = 3         /**< running */
};

/** A notification record: a worker, and the thread that waits for the worker's end. The library reads and writes the members
 *  atomically. A program that accesses them while the threads run must do the same.
 */
typedef struct Notify {
    pthread_t threadWorker;    /**< woken when a stop is requested; 0: no thread is woken */
    pthread_t threadRequester; /**< woken when the worker has ended: first the creator of the record, then the thread that
                                  requested the stop */
    uint32_t uiState;          /**< NotifyState */
    uint32_t uiUsers;          /**< number of worker threads that use this record */
} Notify;

/** Replaces the process's handler of SIGUSR1 by one that does nothing. The signal then interrupts a select, poll or sleep in
 *  the thread that receives it (EINTR; no automatic restart). A program that uses SIGUSR1 itself loses its handler.
 *  @return 0; -1 with errno
 */
KVO_HWS_API int ActivateNotify(void) KVO_HWS_NOEXCEPT;

/** Allocates a notification record and calls ActivateNotify. The new record has no worker thread, the state NOTIFY_STOPPED, no
 *  users, and the calling thread as the requester.
 *  @param record  receives the record; null if memory ran out. ShutdownThread or DeleteNotify frees the record
 *  @return 0; -1 no memory
 */
KVO_HWS_API int CreateNotify(Notify **record) KVO_HWS_NOEXCEPT;

/** Frees a notification record that no worker uses and sets the pointer to null.
 *  @return 0
 */
KVO_HWS_API int DeleteNotify(Notify **record) KVO_HWS_NOEXCEPT;

/** Sends SIGUSR1 to a thread of this process; does nothing for 0. The thread must not have ended, and the handler must be
 *  installed first.
 */
KVO_HWS_API void NotifyThread(pthread_t thread) KVO_HWS_NOEXCEPT;

/** Sleeps until the time has passed or a signal arrives. The worker calls this function. It must check the state first, because
 *  a stop that was requested before the call does not end the sleep.
 *  @return 0 the time has passed; 1 a signal came and a stop is requested; -3 a signal came but no stop is requested, or the
 *  sleep failed
 */
KVO_HWS_API int WaitNotify(Notify *record, unsigned milliseconds) KVO_HWS_NOEXCEPT;

/** Waits for the end of a worker. The requester calls this function.
 *  @param ms  longest total wait in milliseconds; interruptions by signals do not extend it
 *  @return 1 the worker has ended, or was not running; -2 it is still running; -1 the sleep failed. The result is also -1 if
 *  the time has passed, the record has no more users, and errno happens not to be EINTR
 */
KVO_HWS_API int WaitShutdown(Notify *record, unsigned ms) KVO_HWS_NOEXCEPT;

/** Requests the stop of a worker, wakes it, waits for its end, and frees the record even if the worker has not ended.
 *  @param record        null is rejected; do not use the record after the call
 *  @param milliseconds  longest wait. A worker that runs longer must not access the record again
 *  @return as WaitShutdown; -2 also for a null @p record
 */
KVO_HWS_API int ShutdownThread(Notify *record, unsigned milliseconds) KVO_HWS_NOEXCEPT;

/** Does nothing; kept for programs that call it.
 *  @return 0
 */
KVO_HWS_API int CreateReceivedNotify(void) KVO_HWS_NOEXCEPT;

/** Initialises a semaphore, private to the process, with count 0.
 *  @return 0; -1 with errno
 */
KVO_HWS_API int InitReceivedNotify(sem_t *semaphore) KVO_HWS_NOEXCEPT;

/** Destroys a semaphore. No thread may be waiting for it.
 *  @return 0; -1 with errno
 */
KVO_HWS_API int DeleteReceivedNotify(sem_t *semaphore) KVO_HWS_NOEXCEPT;

/** Posts a semaphore; does nothing for null. May be called from a signal handler. */
KVO_HWS_API void NotifyReceived(sem_t *semaphore) KVO_HWS_NOEXCEPT;

/** Waits for a semaphore with a deadline on the real-time clock.
 *  @param milliseconds  whole seconds count as seconds, but the remaining milliseconds count as microseconds: 1500 waits for
 *                       1.0005 s
 *  @return 1 posted; 0 not in time; -1 another failure: a signal came, or the remainder passed the end of the current second.
 *  The latter happens in at most one of a thousand calls
 */
KVO_HWS_API int WaitReceivedNotify(sem_t *semaphore, unsigned milliseconds) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_time Time
 *  @{
 */

/** A time of the monotonic clock; only differences between two times are meaningful. Both members have 32 bits on every
 *  system.
 */
typedef struct KvoTimeval {
    int32_t tv_sec;  /**< seconds */
    int32_t tv_usec; /**< microseconds, 0 to 999999 */
} KvoTimeval;

/** The time that timeval_diff used as the current time, in its last call with a null pointer. */
extern KVO_HWS_API KvoTimeval __timeval_now;

/** Reads the monotonic clock. */
KVO_HWS_API void timeval_get(KvoTimeval *now) KVO_HWS_NOEXCEPT;

/** Milliseconds from @p b to @p a. A null pointer means the current time, which the function then also stores in __timeval_now.
 *  @return the difference in seconds * 1000 + (the difference in microseconds + 500) / 1000, where the division truncates
 *  toward zero. The result is rounded if the microseconds of @p a are not less than those of @p b; otherwise it is up to one
 *  millisecond too high. Differences of more than 24 days wrap around
 */
KVO_HWS_API int32_t timeval_diff(const KvoTimeval *a, const KvoTimeval *b) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_memory Memory and allocation tracing
 *  @{
 */

/** Allocates zeroed memory. Logs nothing on failure.
 *  @param size  bytes
 *  @return the memory, which the caller frees with free(); null if memory ran out. For 0 bytes, the result is that of
 *  calloc(0, 1)
 */
KVO_HWS_API void *xmalloc(unsigned size) KVO_HWS_NOEXCEPT;

/** Appends a line to "/user/traceIt.log": a time stamp, the text and a line feed. If the file cannot be opened or created, the
 *  function does nothing. Tracing has no other switch.
 *  @param format  as for printf; the text has no length limit
 *
 *  The time stamp is "<day>.<month>.<year>/<hour>:<minute>:<second>" and three blanks, in local time. Months count from 0 and
 *  years from 1900: 15 November 2026 is "15.10.0126". Safe from any thread; each line is one write.
 */
KVO_HWS_API void traceIt(const char *format, ...) KVO_HWS_NOEXCEPT __attribute__((format(printf, 1, 2)));

/** calloc(size, 1), traced as "<file>#<line> malloc(<size>) returns <address>".
 *  @param file  the caller's source file, right-aligned to 15 characters in the trace
 *  @param line  the caller's line
 *  @return the memory, which the caller frees with free() or traceFree; null if memory ran out
 */
KVO_HWS_API void *traceXmalloc(unsigned size, const char *file, unsigned long line) KVO_HWS_NOEXCEPT;

/** realloc(old, size), traced as "<file>#<line> realloc(<old address>, <size>) returns <address>"; as traceXmalloc.
 *  @return as realloc: null if memory ran out; @p old is unchanged then
 */
KVO_HWS_API void *traceRealloc(void *old, unsigned size, const char *file, unsigned long line) KVO_HWS_NOEXCEPT;

/** free(block), traced before the call as "<file>#<line> free(<address>)"; as traceXmalloc. */
KVO_HWS_API void traceFree(void *block, const char *file, unsigned long line) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
