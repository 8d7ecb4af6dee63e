// The lists of known stations as the daemon tells them, and the look-up of a single one.
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
using kvo_hws::Request;
using kvo_hws::takeList;

constexpr const char *kCountExchange = " (count)";

/// Takes the reply to a count request: a plain decimal number that the caller's array must hold. Without an array every number
/// is too large, which is how callers ask for it.
int32_t takeCount(Request &request, uint32_t *capacity, bool haveArray) noexcept
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
        .prepare([=] { clearList(list, *count); })  // NOLINT(*.NullDereference): needs() has refused a null one
        .send("getCountElemDL");
    if (const int32_t counted = takeCount(counting, count, true); counted != KVO_HWS_OK) {
        return counted;
    }
    // Asks for the capacity, not for the number just heard: stations that have come in between are welcome while they fit.
    Request listing(kLabel);
    listing.send("getDLV2 %u", *count);
    return takeList(listing, count,
                    [=](uint32_t *found, const char *text) { return ConvertText2KVODescriptionArray(found, list, text); });
}

// Departs from the basic list on purpose: a null list asks for the number, and the array stays untouched until a list fits.
int32_t KVO_HWS_getDescriptionListEx(KvoDescriptionEx *list, uint32_t *count) noexcept
{
    constexpr const char *kLabel = "get KVO description list extended";
    Request counting(kLabel, kCountExchange);
    counting.needs(count).send("getCountElemDL_Ex");
    if (const int32_t counted = takeCount(counting, count, list != nullptr); counted != KVO_HWS_OK) {
        return counted;
    }
    Request listing(kLabel);
    listing.send("getDL_ExV2 %u", *count);
    return takeList(listing, count, [=](uint32_t *found, const char *text) {
        clearList(list, *count);
        return ConvertText2KVODescArrayEx(found, list, text);
    });
}

int32_t KVO_HWS_getDescriptionEx(uint32_t address, const char *name, KvoDescriptionEx *record) noexcept
{
    if (address == 0 && name == nullptr) {
        return KVO_HWS_FAILED;
    }
    // Says "(count)" although nothing is counted; log readers search for it.
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
