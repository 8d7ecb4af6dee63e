// The basic requests: the service's debug level, registry lock, versions, readiness and termination, and the panel's backlight
// and brightness.
#include <kvo_hws/service.h>

#include "service/request.h"

#include <cstring>
#include <string_view>

namespace {

using kvo_hws::Answer;
using kvo_hws::kSilent;
using kvo_hws::Request;

/// An unexpanded template: no build has ever filled in the numbers. Programs compare the whole text.
constexpr std::string_view kLibraryVersion = "V%#.%#.#%.#%";
static_assert(kLibraryVersion.size() == 12);

}  // namespace

int32_t KVO_HWS_setDebugLevel(int level) noexcept
{
    static constexpr const char *kLevels[] = {"DEBUG_LEVEL_NONE", "DEBUG_LEVEL_I", "DEBUG_LEVEL_II"};
    if (level < 0 || level > 2) {
        return KVO_HWS_FAILED;
    }
    return Request(kSilent).send("setDebugLevel=%s", kLevels[level]).on("ok", KVO_HWS_OK).result();
}

int32_t KVO_HWS_getDebugLevel() noexcept
{
    return Request(kSilent)
        .send("getDebugLevel")
        .on("DEBUG_LEVEL_NONE", 0)
        .on("DEBUG_LEVEL_I", 1)
        .on("DEBUG_LEVEL_II", 2)
        .result();
}

// The two lock requests have never distinguished a missing service from other failures; their callers retry only on 0.
int32_t KVO_HWS_lockKVORegData() noexcept
{
    return Request(kSilent)
        .sendFailureIs(KVO_HWS_FAILED)
        .send("lockKVORegData")
        .on("ok", KVO_HWS_OK)
        .on("busy", KVO_HWS_NO)
        .result();
}

int32_t KVO_HWS_unlockKVORegData() noexcept
{
    return Request(kSilent).sendFailureIs(KVO_HWS_FAILED).send("unlockKVORegData").on("ok", KVO_HWS_OK).result();
}

int32_t KVO_HWS_getDLLVersion(char *buffer, unsigned *size) noexcept
{
    return Request("get KVO HWS DLL version")
        .needs(buffer, size)
        .answer([=]() -> Answer {
            if (*size <= kLibraryVersion.size()) {  // NOLINT(*.NullDereference): needs() has rejected null
                // The text needs 13 bytes, but callers rely on this 12.
                *size = kLibraryVersion.size();
                return {KVO_HWS_FAILED, "not enough memory"};
            }
            std::memcpy(buffer, kLibraryVersion.data(), kLibraryVersion.size() + 1);  // NOLINT(*.NonNull*): see above
            return {KVO_HWS_OK};
        })
        .result();
}

int32_t KVO_HWS_getKVOHWSVersion(char *buffer, unsigned *size) noexcept
{
    return Request("get KVO HWS version")
        .needs(buffer, size)
        .send("getVersion")
        .anyReply([=](const char *version) -> Answer {
            const std::size_t length = std::strlen(version);
            if (length < *size) {
                std::memcpy(buffer, version, length + 1);
                return {KVO_HWS_OK};
            }
            // One byte less than required; callers add one.
            *size = static_cast<unsigned>(length);
            return {KVO_HWS_FAILED, "not enough memory"};
        })
        .result();
}

int32_t KVO_HWS_setBacklight(unsigned mode) noexcept
{
    // This request and the next log two messages for an unknown mode, although nothing is sent: log filters count
    // "can not send request".
    return Request("set backlight")
        .refuse(mode > 1, KVO_HWS_FAILED, {"unknown mode", "can not send request"})
        .send("setBacklight=%u", mode)
        .logOnReply("get KVO HWS version - can not allocate memory")  // a wrong text, but log readers search for it
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_setBrightness(uint32_t station, unsigned mode) noexcept
{
    return Request("set brightness")
        .refuse(mode > 1, KVO_HWS_FAILED, {"unknown mode", "can not send request"})
        .send("setBrightness=%u %08X", mode, station)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_isInitComplete() noexcept
{
    return Request("is init complete")
        .send("isInitComplete")
        .on("yes", KVO_HWS_OK)
        .on("no", KVO_HWS_NO)
        .otherwise(KVO_HWS_FAILED, "error sending request")  // the same message as for "failed", never "unknown error"
        .result();
}

int32_t KVO_HWS_killDaemon() noexcept
{
    // Any reply is a success: a daemon that is terminating may send anything.
    return Request("kill daemon").send("killDaemon").otherwise(KVO_HWS_OK).result();
}
