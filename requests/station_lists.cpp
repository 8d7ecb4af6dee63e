// The lists of known stations that the daemon sends, and the look-up of a single station.
#include <kvo_hws/codecs.h>
#include <kvo_hws/requests.h>

#include "requests/list_replies.h"
#include "runtime/numbers.h"
#include "service/request.h"

#include <algorithm>
#include <cstdint>

namespace {

using kvo_hws::Answer;
using kvo_hws::clearList;
using kvo_hws::readList;
using kvo_hws::Request;

constexpr const char *kCountExchange = " (count)";

/// Reads the reply to a count request: a decimal number, which must not exceed the capacity of the caller's array. Without an
/// array the result is always "too small": this way callers read the number.
int32_t readCount(Request &request, uint32_t *capacity, bool haveArray) noexcept
{
    return request.onNoText(KVO_HWS_FAILED, kvo_hws::kNoText)
        .onFailed()
        .anyReply([=](const char *reply) -> Answer {
            const auto [count, end] = kvo_hws::readNumber(reply, 10);
            if (*end != '\0') {
                return {KVO_HWS_FAILED, "wrong count reply"};
            }
            if (!haveArray || count > *capacity) {
                *capacity = static_cast<uint32_t>(std::min<unsigned long>(count, UINT32_MAX));
                return {KVO_HWS_TOO_SMALL, "not enough memory (1)"};
            }
            return {KVO_HWS_OK};
        })
        .result();
}

}  // namespace

int32_t KVO_HWS_getDescriptionList(KvoDescription *list, uint32_t *count) noexcept
{
    constexpr const char *kLabel = "get KVO description list";
    Request counting(kLabel, kCountExchange);
    counting.needs(list, count)
        .prepare([=] { clearList(list, *count); })  // NOLINT(*.NullDereference): needs() has rejected null
        .send("getCountElemDL");
    if (const int32_t counted = readCount(counting, count, true); counted != KVO_HWS_OK) {
        return counted;
    }
    // Requests as many stations as fit, not the number just received: stations that were added meanwhile are included.
    Request listing(kLabel);
    listing.send("getDLV2 %u", *count);
    return readList(listing, count,
                    [=](uint32_t *found, const char *text) { return ConvertText2KVODescriptionArray(found, list, text); });
}

// Differs from the basic list on purpose: with a null list only the number is read, and the array is cleared only when a list
// fits.
int32_t KVO_HWS_getDescriptionListEx(KvoDescriptionEx *list, uint32_t *count) noexcept
{
    constexpr const char *kLabel = "get KVO description list extended";
    Request counting(kLabel, kCountExchange);
    counting.needs(count).send("getCountElemDL_Ex");
    if (const int32_t counted = readCount(counting, count, list != nullptr); counted != KVO_HWS_OK) {
        return counted;
    }
    Request listing(kLabel);
    listing.send("getDL_ExV2 %u", *count);
    return readList(listing, count, [=](uint32_t *found, const char *text) {
        clearList(list, *count);
        return ConvertText2KVODescArrayEx(found, list, text);
    });
}

int32_t KVO_HWS_getDescriptionEx(uint32_t address, const char *name, KvoDescriptionEx *record) noexcept
{
    if (address == 0 && name == nullptr) {
        return KVO_HWS_FAILED;
    }
    // The messages contain "(count)" although nothing is counted: log readers search for it.
    Request request("get KVO description extended", kCountExchange);
    request.needs(record);
    if (address != 0) {
        request.send("getExDescByIP %08X", address);
    } else {
        request.send("getExDescByName %s", name);
    }
    return request.onFailed()
        .on("not found", KVO_HWS_NO)
        .anyReply([=](const char *reply) -> Answer {
            clearList(record, 1);
            return {ConvertText2KVODescEx(record, reply) == -1 ? KVO_HWS_FAILED : KVO_HWS_OK};
        })
        .result();
}
