// Replies that are description lists, read into the caller's array.
#pragma once

#include <kvo_hws/codecs.h>

#include "service/request.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kvo_hws {

inline constexpr uint32_t kNoCount = 0xFFFFFFFF;
inline constexpr const char *kNoText = "can not allocate memory";

template <class Record>
void clearList(Record *list, uint32_t capacity) noexcept
{
    if (capacity != 0) {
        std::memset(list, 0, std::size_t{capacity} * sizeof(Record));  // NOLINT(*.NonNull*): null has been rejected
    }
}

/// Reads a description list into the caller's array. A list that does not fit is refused: it may have grown since it was
/// counted.
template <class Read>
int32_t readList(Request &request, uint32_t *capacity, Read read) noexcept
{
    return request.onNoText(KVO_HWS_FAILED, kNoText)
        .onFailed()
        .anyReply([=](const char *reply) -> Answer {
            uint32_t count = GetCountKVODescriptionsFromTextEx(reply);
            if (count == kNoCount) {
                return {KVO_HWS_FAILED, "can not get count from reply"};
            }
            if (count > *capacity) {
                *capacity = count;
                return {KVO_HWS_TOO_SMALL, "not enough memory (2)"};
            }
            if (read(&count, reply) != 1) {
                return {KVO_HWS_FAILED, "can not get KVO list from reply"};
            }
            *capacity = count;
            return {KVO_HWS_OK};
        })
        .result();
}

}  // namespace kvo_hws
