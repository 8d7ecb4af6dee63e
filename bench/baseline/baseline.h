// What the library is measured against: the same duties, each written by hand for its one purpose and nothing else.
#pragma once

#include <kvo_hws/agent.h>
#include <kvo_hws/codecs.h>
#include <kvo_hws/usbevents.h>

#include <cstdint>

namespace baseline {

/// Station lists, read under the terms of ConvertText2KVODescriptionArray and ConvertText2KVODescArrayEx, for texts in the
/// daemon's usual hand: whatever strtoul would read besides is refused.
int readBasic(uint32_t *count, KvoDescription *array, const char *text);
int readExtended(uint32_t *count, KvoDescriptionEx *array, const char *text);

/// Station lists, written under the terms of ConvertConArray2Text and ConvertConArray2TextEx.
int writeBasic(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size);
int writeExtended(uint32_t count, const ConnectionEntry *entries, char *buffer, uint32_t size);

inline constexpr unsigned kRound = 1024;  // the longest reply of an exchange, with its line feed

/// One exchange with the command socket under a process-wide lock: the system calls that the library makes and nothing around
/// them. The command brings its line feed; the reply must come in one piece. False when anything went wrong.
bool exchange(const char *commandLine, char (&reply)[kRound]);

/// KVO_HWS_getDescriptionList: count request, and a list request whose reply is read as it comes, up to 64 KiB at a time, without
/// a look before or a pause. False when anything went wrong.
bool getList(KvoDescription *list, uint32_t *count);

/// A server of USB events that knows new devices alone and has nobody to stop it: listens at @p path, tells the callback
/// USB_EVENT_ACTIVATED, then each device on a thread of its own. Returns when a system call fails.
void serveUsbEvents(const char *path, SendUsbEventV2 callback);

/// How much an agent takes out of its socket at a time: a line, or all that has come.
enum class Taking { oneLine, ahead };

/// An agent that connects to @p port of this machine and answers "ping", and by its host the commands that have an argument. It
/// knows no pauses and nobody to stop it. Returns when the connection ends.
void serveRemote(uint16_t port, EmbCmdCallback host, Taking taking);

/// Pushes an event to the remote service of serveRemote. Safe from any thread.
void pushEvent(const char *text);

}  // namespace baseline
