/** @file
 *  Runtime support: the system log with its two channels, the thread and lock wrappers, the handshake that stops worker
 *  threads, time, and traced allocation.
 *
 *  Everything the library reports goes to syslog, nowhere else (the traced allocators, which the library itself does not
 *  use, write a file of their own). There are two independent channels: the debug messages of the request functions
 *  (SendDLLDebugMessage, off until KVO_HWS_activateDebugDLL switches it on), and the log of the socket layer (LOG and
 *  DEBUG, gated by priority and debug level; at level 0 only priorities 0 to 3 pass). The library opens no log at load:
 *  until InitLogMessages or KVO_HWS_activateDebugDLL runs, the program's own identity is used.
 *
 *  A program that defines a macro LOG or DEBUG (-DDEBUG is usual) keeps its macro, and cannot call the function of that name.
 *  The waits and sleeps here cannot be cancelled with pthread_cancel; what else stands in kvo_hws.h on that holds too.
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

/** The library's debug level: 0 or less "DEBUG_LEVEL_NONE", 1 "DEBUG_LEVEL_I", 2 or more "DEBUG_LEVEL_II"; 0 at load. */
extern KVO_HWS_API int32_t iDebugLevel;

/** 1 while the debug message channel is switched on, else 0; 0 at load. */
extern KVO_HWS_API uint32_t uiDebugMessageSysLogActive;

/** Writes a finished text to syslog at LOG_INFO while the debug message channel is on; does nothing while it is off.
 *  @param text  the message; written as it stands, a "%" in it means nothing
 *  @return 1 always
 *
 *  Safe from any thread.
 */
KVO_HWS_API int SendDLLDebugMessage(const char *text) KVO_HWS_NOEXCEPT;

#pragma push_macro("LOG")
#pragma push_macro("DEBUG")
#undef LOG
#undef DEBUG

/** Writes a message to syslog if its priority passes: priorities 0 (LOG_EMERG) to 3 (LOG_ERR) always, 4 (LOG_WARNING) to 7
 *  (LOG_DEBUG) from debug level 1 on.
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
 *  @param level  any value, unchecked: below 0 acts as 0, above 2 as 2
 *
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
 *
 *  Safe from any thread; a message that races with the switch may or may not be written.
 */
KVO_HWS_API int32_t KVO_HWS_activateDebugDLL(void) KVO_HWS_NOEXCEPT;

/** Logs "deactivate debug mode", closes syslog, switches the debug message channel off and sets debug level 0.
 *  @return 1 always
 *
 *  Safe from any thread; a message that races with the switch may or may not be written.
 */
KVO_HWS_API int32_t KVO_HWS_deactivateDebugDLL(void) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_threads Threads and critical sections
 *  @{
 */

/** Starts a thread with default attributes; its id is not kept.
 *  @param start     the thread's body; the threads of the library detach themselves first (kvo_hws_detach_thread)
 *  @param argument  handed to @p start as it is
 *  @return 1; -1 the thread could not be started, @p start has not run
 */
KVO_HWS_API int kvo_hws_CreateThread(void *(*start)(void *), void *argument) KVO_HWS_NOEXCEPT;

/** As kvo_hws_CreateThread.
 *  @param id  receives the new thread's id before @p start runs; may be null. As it was with -1. The id of a thread that
 *             detaches itself may be stale at once
 */
KVO_HWS_API int kvo_hws_CreateThreadIdent(void *(*start)(void *), void *argument, pthread_t *id) KVO_HWS_NOEXCEPT;

/** Detaches the calling thread: nobody can join it any more.
 *  @return 1; -1 it was detached already
 */
KVO_HWS_API int kvo_hws_detach_thread(void) KVO_HWS_NOEXCEPT;

/** Sleeps 20 ms, through signals too.
 *  @return 0, else the error number of clock_nanosleep
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

/** @} */

/** @defgroup kvo_hws_notify Stopping worker threads
 *  A worker looks at least once a second whether its record still says "running"; who wants it to end requests that, wakes it
 *  with SIGUSR1 and waits. A worker begins with uiState NOTIFY_RUNNING, uiUsers one more, ActivateNotify and
 *  kvo_hws_detach_thread. It ends with uiUsers one less; the last user, where a stop was requested, calls WaitNotify for
 *  20 ms, sets NOTIFY_STOP_DONE and wakes threadRequester with NotifyThread, else it sets NOTIFY_STOPPED.
 *  @{
 */

/** What a notification record says of its worker; ServerPipeThreadSyncState has the same values. */
enum NotifyState {
    NOTIFY_STOPPED = 0,        /**< it does not run, or ended by itself */
    NOTIFY_STOP_REQUESTED = 1, /**< it is to end */
    NOTIFY_STOP_DONE = 2,      /**< it has ended because it was to */
    NOTIFY_RUNNING = 3         /**< it runs */
};

/** One worker and who waits for its end. The library reads and writes the words atomically; a program that looks at one
 *  while both run does so too.
 */
typedef struct Notify {
    pthread_t threadWorker;    /**< woken when a stop is requested; 0: nobody is */
    pthread_t threadRequester; /**< woken when the worker has ended: the creator, then whoever requested the stop */
    uint32_t uiState;          /**< NotifyState */
    uint32_t uiUsers;          /**< worker threads that run on this record */
} Notify;

/** Replaces the process's handler of SIGUSR1 by one that does nothing, so that the signal ends a select, poll or sleep of
 *  the thread it is sent to (EINTR; no automatic restart). A program that uses SIGUSR1 itself has to know.
 *  @return 0; -1 with errno
 */
KVO_HWS_API int ActivateNotify(void) KVO_HWS_NOEXCEPT;

/** Allocates a notification record: nobody known to wake, state stopped, no users, the calling thread as the requester.
 *  Also ActivateNotify.
 *  @param record  receives the record; null when there was no memory. ShutdownThread or DeleteNotify frees it
 *  @return 0; -1 no memory
 */
KVO_HWS_API int CreateNotify(Notify **record) KVO_HWS_NOEXCEPT;

/** Frees a notification record that no worker uses and sets the pointer to null.
 *  @return 0
 */
KVO_HWS_API int DeleteNotify(Notify **record) KVO_HWS_NOEXCEPT;

/** Sends SIGUSR1 to a thread of this process that has not ended; does nothing for 0. Install the handler first. */
KVO_HWS_API void NotifyThread(pthread_t thread) KVO_HWS_NOEXCEPT;

/** Sleeps, on the worker's side. A stop that was requested before it is not looked at: look at the state first.
 *  @return 0 the time has passed; 1 a signal came and a stop is requested; -3 a signal came and none is, or the sleep failed
 */
KVO_HWS_API int WaitNotify(Notify *record, unsigned milliseconds) KVO_HWS_NOEXCEPT;

/** Waits for the end of a worker, on the requester's side.
 *  @param ms  longest time in all, however often a signal interrupts it
 *  @return 1 it has ended, or did not run; -2 it still runs; -1 the sleep failed, and also when the time has passed, nobody
 *  uses the record any more and errno happens not to be EINTR
 */
KVO_HWS_API int WaitShutdown(Notify *record, unsigned ms) KVO_HWS_NOEXCEPT;

/** Requests the stop of a worker, wakes it, waits for its end and frees the record, whatever the wait came to.
 *  @param record        null is refused; not to be used afterwards
 *  @param milliseconds  longest time to wait. A worker that goes on past it must not look at the record again
 *  @return as WaitShutdown; -2 also for a null @p record
 */
KVO_HWS_API int ShutdownThread(Notify *record, unsigned milliseconds) KVO_HWS_NOEXCEPT;

/** Kept for programs that call it.
 *  @return 0
 */
KVO_HWS_API int CreateReceivedNotify(void) KVO_HWS_NOEXCEPT;

/** Initialises a semaphore, private to the process, with count 0.
 *  @return 0; -1 with errno
 */
KVO_HWS_API int InitReceivedNotify(sem_t *semaphore) KVO_HWS_NOEXCEPT;

/** Destroys a semaphore that nobody waits for.
 *  @return 0; -1 with errno
 */
KVO_HWS_API int DeleteReceivedNotify(sem_t *semaphore) KVO_HWS_NOEXCEPT;

/** Posts a semaphore; does nothing for null. Also from a signal handler. */
KVO_HWS_API void NotifyReceived(sem_t *semaphore) KVO_HWS_NOEXCEPT;

/** Waits for a semaphore, against the real-time clock.
 *  @param milliseconds  whole seconds count as such, the rest as so many microseconds: 1500 waits for 1.0005 s
 *  @return 1 posted; 0 not in time; -1 another failure: a signal came, or the rest reached beyond the running second, which
 *  happens in up to one of a thousand calls
 */
KVO_HWS_API int WaitReceivedNotify(sem_t *semaphore, unsigned milliseconds) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_time Time
 *  @{
 */

/** A time of the monotonic clock; its seconds mean nothing but their differences. 32 bits each, whatever the system's own.
 */
typedef struct KvoTimeval {
    int32_t tv_sec;  /**< seconds */
    int32_t tv_usec; /**< microseconds, 0 to 999999 */
} KvoTimeval;

/** The "now" of the last timeval_diff that was given no time. */
extern KVO_HWS_API KvoTimeval __timeval_now;

/** Reads the monotonic clock. */
KVO_HWS_API void timeval_get(KvoTimeval *now) KVO_HWS_NOEXCEPT;

/** Milliseconds from @p b to @p a; a null one means now, and then __timeval_now is refreshed.
 *  @return seconds * 1000 and (microseconds + 500) / 1000, the division cutting toward zero: rounded where the microseconds
 *  of @p a are not less than those of @p b, else up to one millisecond high. Differences past 24 days wrap round
 */
KVO_HWS_API int32_t timeval_diff(const KvoTimeval *a, const KvoTimeval *b) KVO_HWS_NOEXCEPT;

/** @} */

/** @defgroup kvo_hws_memory Memory, and a trace of it
 *  @{
 */

/** Allocates memory that is all zero, without a message when there is none.
 *  @param size  bytes
 *  @return the memory, freed with free(); null when there is none. For 0 bytes what calloc(0, 1) returns
 */
KVO_HWS_API void *xmalloc(unsigned size) KVO_HWS_NOEXCEPT;

/** Appends a line to "/user/traceIt.log": a time stamp, the text and a line feed. Where the file cannot be opened, nothing
 *  happens; there is no other switch.
 *  @param format  as for printf; the text has no length limit
 *
 *  The stamp is "<day>.<month>.<year>/<hour>:<minute>:<second>" and three blanks, in local time with the month from 0 and
 *  the year from 1900: 15 November 2026 is "15.10.0126". Safe from any thread; each line is one write.
 */
KVO_HWS_API void traceIt(const char *format, ...) KVO_HWS_NOEXCEPT __attribute__((format(printf, 1, 2)));

/** calloc(size, 1), traced as "<file>#<line> malloc(<size>) returns <address>".
 *  @param file  the caller's source file, right-aligned to 15 characters in the trace
 *  @param line  the caller's line
 *  @return the memory, freed with free() or traceFree; null when there is none
 */
KVO_HWS_API void *traceXmalloc(unsigned size, const char *file, unsigned long line) KVO_HWS_NOEXCEPT;

/** realloc(old, size), traced as "<file>#<line> realloc(<old address>, <size>) returns <address>"; as traceXmalloc.
 *  @return as realloc: null with @p old untouched when there is no memory
 */
KVO_HWS_API void *traceRealloc(void *old, unsigned size, const char *file, unsigned long line) KVO_HWS_NOEXCEPT;

/** free(block), traced before it as "<file>#<line> free(<address>)"; as traceXmalloc. */
KVO_HWS_API void traceFree(void *block, const char *file, unsigned long line) KVO_HWS_NOEXCEPT;

/** @} */

KVO_HWS_END_DECLS

#endif
