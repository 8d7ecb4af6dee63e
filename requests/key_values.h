// Replies that are lists of "key=number" items, in any order, between blanks.
#pragma once

#include <cstdint>

namespace kvo_hws {

/// What a look for a key came to.
enum KeyValueResult : int { kFound = 1, kAbsent = 0, kMalformed = -1 };

/// Finds @p key (with its "=") at the start of an item and reads the number behind it. The value is 0 where the key is absent,
/// and stored before what follows it is judged.
int FindReplyValue(const char *text, const char *key, int32_t *value) noexcept;

/// Reads the six input device keys; any output may be null. A bit of the mask stands for each key found, in the order of the
/// parameters. Found when at least one was, malformed at the first that is; outputs of earlier keys stay stored then.
int ParseInputDeviceReply(const char *text, uint32_t *mask, uint32_t *kbd, uint32_t *mouse, uint32_t *touch,
                          uint32_t *multitouch, uint32_t *maxcontacts, uint32_t *vkbd) noexcept;

}  // namespace kvo_hws
