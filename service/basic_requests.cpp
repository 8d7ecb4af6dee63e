// The basic requests: the service's debug level, registry lock, versions, end and readiness, and the panel's light.
#include <kvo_hws/service.h>

#include "service/request.h"

#include <cstring>
#include <string_view>

namespace {

using kvo_hws::Answer;
using kvo_hws::kSilent;
using kvo_hws::Request;

/// The text as it has always been delivered: a template that no build ever filled in. Programs compare it whole.
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

// The two lock requests have never told a missing service from another failure; their callers retry on 0 alone.
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
            if (*size <= kLibraryVersion.size()) {  // NOLINT(*.NullDereference): needs() has refused a null one
                // Callers size their buffer by this 12; the text needs 13.
                *size = kLibraryVersion.size();
                return {KVO_HWS_FAILED, "not enough memory"};
            }
            std::memcpy(buffer, kLibraryVersion.data(), kLibraryVersion.size() + 1);  // NOLINT(*.NonNull*): the same
            return {KVO_HWS_OK};
        })
        .result();
}

int32_t KVO_HWS_getKVOHWSVersion(char *buffer, unsigned *size) noexcept
{
    return Request("get KVO HWS version")
        .needs(buffer, size)
        .send("getVersion")
        .whole([=](const char *version) -> Answer {
            const std::size_t length = std::strlen(version);
            if (length < *size) {
                std::memcpy(buffer, version, length + 1);
                return {KVO_HWS_OK};
            }
            // One less than what is needed; callers add the one.
            *size = static_cast<unsigned>(length);
            return {KVO_HWS_FAILED, "not enough memory"};
        })
        .result();
}

int32_t KVO_HWS_setBacklight(unsigned mode) noexcept
{
    // An unknown mode is told twice, here and below, though nothing is sent: log filters count "can not send request".
    return Request("set backlight")
        .refuse(mode > 1, KVO_HWS_FAILED, {"unknown mode", "can not send request"})
        .send("setBacklight=%u", mode)
        .stray("get KVO HWS version - can not allocate memory")  // means nothing; log readers know it as this request's mark
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
        .otherwise(KVO_HWS_FAILED, "error sending request")  // never "unknown": the two have always been one here
        .result();
}

int32_t KVO_HWS_killDaemon() noexcept
{
    // Any answer counts: a daemon that is ending may no longer know what it says.
    return Request("kill daemon").send("killDaemon").otherwise(KVO_HWS_OK).result();
}
