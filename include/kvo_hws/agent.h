/** @file
 *  The remote agent's view of its station: the station in focus, the names of the remote side, the console and sysfs-style
 *  files.
 */
#ifndef KVO_HWS_AGENT_H
#define KVO_HWS_AGENT_H

#include <kvo_hws/export.h>
#include <kvo_hws/runtime.h>

#include <stddef.h>
#include <stdint.h>

KVO_HWS_BEGIN_DECLS

/* ---- Records ---- */

typedef struct HmiServer HmiServer;

/** A connection to a remote hardware service. */
typedef struct HmiSession {
    uint32_t reserved0;
    HmiServer *server;
    uint32_t reserved1;
    uint32_t display; /**< session number, 0 to 9 */
    uint32_t reserved2[2];
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
    uint32_t reserved[2];
    uint32_t address; /**< as inet_aton stores it */
    char *name;       /**< heap text set by "servername=", else null */
    uint32_t reserved2;
    HmiSession *session;
};

/* ---- What is told of the station in focus. A program that reads or writes the address while other threads do does so
 * atomically. ---- */

/** The station in focus as inet_aton stores it; 0 where none is. Where it is 0, the station is looked up by gFocusName. */
extern KVO_HWS_API uint32_t gFocusKvoIp;
extern KVO_HWS_API char gFocusName[260]; /**< the program's to set: the station in focus, where gFocusKvoIp is 0 */

/* ---- The station in focus, and the console ---- */

/** Reads the station in focus: its description and its T2M2N text.
 *  @return 0; -1 not readable: debug message "init_fb - getDescriptionEx(<IP or name>) fails with <result>" or "init_fb -
 *  getKVOT2M2N(IP <address>) fails with <result>"
 */
KVO_HWS_API int init_fb(void) KVO_HWS_NOEXCEPT;

/** Names the other end of a session, "<address>:<session number>".
 *  @return a text that the next call overwrites; for one thread at a time
 */
KVO_HWS_API const char *sesstoa(const HmiSession *session) KVO_HWS_NOEXCEPT;

/** Writes a display name: "<name> (<address>)" where that is shorter than @p width, else "<name up to its first point>...
 *  (<address>)" where that fits, else the address.
 *  @param dst   receives the text, cut to @p size with its terminator
 *  @param size  bytes in @p dst
 *  @return the length of the whole text
 */
KVO_HWS_API int format_servername(char *dst, size_t size, const HmiServer *server, int width) KVO_HWS_NOEXCEPT;

/** Reads the first line of "<dir>/<sub>/<file>", at most 127 characters. A component that is "*" stands for the first entry
 *  of its folder.
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

/** The text of a viewer's error code; the system's text for a code that is none, valid until the thread's next such call. */
KVO_HWS_API const char *vnc_strerror(int code) KVO_HWS_NOEXCEPT;

/** Not used by the library. */
extern KVO_HWS_API int32_t VNCERRNO;

/** Does nothing; kept for programs that call it. */
KVO_HWS_API void register_hws_servername(void) KVO_HWS_NOEXCEPT;

KVO_HWS_END_DECLS

#endif
