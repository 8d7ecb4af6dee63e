// The behaviour of a station at start and when it gets the focus, and its channel information.
#include <kvo_hws/requests.h>

#include "requests/focus.h"
#include "requests/values.h"
#include "service/request.h"

#include <cstring>

namespace {

using kvo_hws::Answer;
using kvo_hws::decimal;
using kvo_hws::Request;

constexpr std::size_t kLongestChannelInfo = 230;
constexpr uint32_t kDefaultLock = 0;
constexpr uint32_t kDefaultPriority = 1;

bool startsWithDigit(const char *text) noexcept { return *text >= '0' && *text <= '9'; }

/// Reads "", ":", "<lock>:", ":<priority>" or "<lock>:<priority>". For any other text returns false and stores nothing.
bool readSuspendOptions(const char *text, uint32_t *suspendLock, uint32_t *suspendPrio) noexcept
{
    unsigned long lock = kDefaultLock;
    unsigned long priority = kDefaultPriority;
    const char *at = text;
    if (startsWithDigit(at)) {
        const auto [value, end] = kvo_hws::readNumber(at, 10);
        if (*end != ':' || value > 1) {
            return false;
        }
        lock = value;
        at = end;
    }
    if (*at == ':') {
        ++at;
    } else if (*at != '\0') {
        return false;
    }
    if (startsWithDigit(at)) {
        const auto [value, end] = kvo_hws::readNumber(at, 10);
        if (*end != '\0' || value < 1 || value > 10) {
            return false;
        }
        priority = value;
    } else if (*at != '\0') {
        return false;
    }
    *suspendLock = static_cast<uint32_t>(lock);
    *suspendPrio = static_cast<uint32_t>(priority);
    return true;
}

}  // namespace

int32_t KVO_HWS_getKVOPriority(uint32_t station, uint32_t *suspendLock, uint32_t *suspendPrio) noexcept
{
    // No null check: this request has never had one.
    return Request("get KVO priority")
        .send("getKVOPriority=%08X", station)
        .value("Priority=",
               [=](const char *rest) -> Answer {
                   if (!readSuspendOptions(rest, suspendLock, suspendPrio)) {
                       return {KVO_HWS_FAILED, "error get suspend options"};
                   }
                   return {KVO_HWS_OK};
               })
        .result();
}

int32_t KVO_HWS_getKVOStartupActive(uint32_t station, uint32_t *value) noexcept
{
    return Request("get KVO startup active")
        .needs(value)
        .send("getKVOStartupActive=%08X", station)
        .value("startup-active=", decimal(value, 0, 2))
        .result();
}

int32_t KVO_HWS_getKVOStartupPrio(uint32_t station, uint32_t *value) noexcept
{
    return Request("get KVO startup prio")
        .needs(value)
        .send("getKVOStartupPrio=%08X", station)
        .value("startup-prio=", decimal(value))
        .result();
}

int32_t KVO_HWS_getKVOChannelOnFocus(uint32_t station, uint32_t *channel) noexcept
{
    return Request("get KVO channel on focus")
        .needs(channel)
        .send("getKVOChannelOnFocus=%08X", station)
        .value("channel-on-focus=", decimal(channel, 1, 8))
        .result();
}

int32_t KVO_HWS_getKVOScreenOnFocus(uint32_t station, char *screen) noexcept
{
    return Request("get KVO screen on focus")
        .needs(screen)
        .send("getKVOScreenOnFocus=%08X", station)
        .value("screen-on-focus=", kvo_hws::unboundedText(screen))
        .result();
}

namespace {

template <class Read>
int32_t readT2M2N(uint32_t station, const char *text, Read read) noexcept
{
    // Any reply of the daemon, except "failed", is the text.
    return Request("get KVO M:N").needs(text).send("getKVOt2m2n=%08X", station).onFailed().anyReply(read).result();
}

}  // namespace

int32_t KVO_HWS_getKVOT2M2N(uint32_t station, char *text) noexcept
{
    return readT2M2N(station, text, kvo_hws::unboundedText(text));
}

int32_t kvo_hws::getT2M2N(uint32_t station, char *text, std::size_t size) noexcept
{
    return readT2M2N(station, text, boundedText(text, size));
}

int32_t KVO_HWS_setChannelInfo(uint32_t station, const char *info) noexcept
{
    return Request("set channel info")
        .needs(info)
        .refuse(info != nullptr && std::strlen(info) > kLongestChannelInfo, KVO_HWS_TOO_SMALL,
                {"channel info to long (max. 230)"})  // sic: log readers search for this spelling
        .send("setChannelInfo=\"%s\" %08X", info, station)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_getChannelInfo(uint32_t station, char *info, uint32_t *size) noexcept
{
    return Request("get channel info")
        .needs(info, size)
        .send("getChannelInfo=%08X", station)
        .value("channel-info=",
               [=](const char *rest) -> Answer {
                   // For an empty text the result is 0 and the size is unchanged, even if it is 0.
                   const std::size_t length = std::strlen(rest);
                   if (length >= *size && length != 0) {
                       *size = static_cast<uint32_t>(length + 1);
                       return {KVO_HWS_TOO_SMALL};
                   }
                   if (*size != 0) {
                       std::memcpy(info, rest, length + 1);
                   }
                   return {length == 0 ? KVO_HWS_NO : KVO_HWS_OK};
               })
        .result();
}

int32_t KVO_HWS_deleteChannelInfo(uint32_t station) noexcept
{
    return Request("delete channel info").send("deleteChannelInfo=%08X", station).on("ok", KVO_HWS_OK).result();
}
