// Replies that are lists of "key=number" items, in any order, separated by blanks.
#pragma once

#include <cstdint>

namespace kvo_hws {

/// The result of searching for a key.
enum KeyValueResult : int { kFound = 1, kAbsent = 0, kMalformed = -1 };

/// Finds @p key (including the "=") at the start of an item and reads the number after it. If the key is absent, the value is
/// 0. The value is stored even if the characters after it make it malformed.
int FindReplyValue(const char *text, const char *key, int32_t *value) noexcept;

/// Reads the six input device keys; any output may be null. The mask has a bit for each key that was found, in the order of
/// the parameters. Returns kFound if at least one key was found. Stops with kMalformed at the first malformed number; the
/// outputs of earlier keys stay stored.
int ParseInputDeviceReply(const char *text, uint32_t *mask, uint32_t *kbd, uint32_t *mouse, uint32_t *touch,
                          uint32_t *multitouch, uint32_t *maxcontacts, uint32_t *vkbd) noexcept;

}  // namespace kvo_hws
