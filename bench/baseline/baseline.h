// The baseline: the same work as the library's, each part written for one purpose only.
#pragma once

#include <kvo_hws/agent.h>
#include <kvo_hws/codecs.h>
#include <kvo_hws/usbevents.h>

#include <cstdint>

namespace baseline {

/// Parse station lists with the contracts of ConvertText2KVODescriptionArray and ConvertText2KVODescArrayEx. They accept only
/// the canonical form that the daemon writes and refuse other texts that strtoul would accept.
int readBasic(uint32_t *count, KvoDescription *array, const char *text);
int readExtended(uint32_t *count, KvoDescriptionEx *array, const char *text);

/// Format station lists with the contracts of ConvertConArray2Text and ConvertConArray2TextEx.
int writeBasic(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size);
int writeExtended(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size);

inline constexpr unsigned kLineSize = 1024;  // the longest reply of an exchange and the longest event, with the line feed

/// Exchanges one command and reply with the command socket under a process-wide lock, with the library's system calls and
/// nothing else. The command includes its line feed; the reply must arrive in one piece. @p path  the socket, if it is another
/// one. Returns false on any error.
bool exchange(const char *commandLine, char (&reply)[kLineSize], const char *path = "/tmp/kvo_hws/cmd_sock");

/// Forwards the connections of the socket @p path, which it creates, to the socket @p service: bytes, half-closes and ends. Reads
/// the name of each program that connects, and keeps nothing. It cannot be stopped; it returns when a system call fails.
void forward(const char *path, const char *service);

/// The work of KVO_HWS_getDescriptionList: a count request and a list request. Receives the list in blocks of up to 64 KiB,
/// without peeking and without pauses. Returns false on any error.
bool getList(KvoDescription *list, uint32_t *count);

/// Serves USB events of new devices only. Listens at @p path, reports USB_EVENT_ACTIVATED to the callback, then each device on
/// a separate thread. It cannot be stopped; it returns when a system call fails.
void serveUsbEvents(const char *path, SendUsbEventV2 callback);

/// How much an agent reads from its socket at a time: one line, or everything that has arrived.
enum class Reading { oneLine, ahead };

/// Runs an agent that connects to @p port of this machine. It answers "ping" itself and passes commands with an argument to the
/// host. It never pauses and cannot be stopped; it returns when the connection ends.
void serveRemote(uint16_t port, EmbCmdCallback host, Reading reading);

/// Pushes an event to the remote service of serveRemote. Safe from any thread.
void pushEvent(const char *text);

}  // namespace baseline
