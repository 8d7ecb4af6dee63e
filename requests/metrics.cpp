// Metrics of a station, the list of connected clients, and the check whether a panel is a Marovanti panel.
#include <kvo_hws/codecs.h>
#include <kvo_hws/requests.h>

#include "requests/list_replies.h"
#include "runtime/numbers.h"
#include "service/request.h"

#include <cstring>
#include <iterator>
#include <string_view>

namespace {

using kvo_hws::Answer;
using kvo_hws::Request;

// ---- Metrics ----

constexpr const char *kMetricLabel = "KVO_HWS_getStationMetrics";
constexpr std::size_t kLongestLayout = 7;

/// One of the six metrics: the command, the key of the reply, and the check of its value.
struct Metric {
    const char *command;
    const char *key;
    int base;  ///< the base of the number; 0 for the metric that is a text
    bool (*valid)(unsigned long value);
};

// A number that does not fit in 32 bits is invalid. If long has 32 bits, strtoul returns kUnknown for it.
constexpr unsigned long kUnknown = 0xFFFFFFFF;

bool isKnown(unsigned long value) noexcept { return value < kUnknown; }
bool isEven(unsigned long value) noexcept { return value < kUnknown && value % 2 == 0; }
bool isRotation(unsigned long value) noexcept { return value >= 1 && value <= 4; }

constexpr Metric kMetrics[] = {
    {"getPaneOemLayout", "panel-oem-layout=", 0, nullptr},  // sic: the daemon's spelling, without the l of "panel"
    {"getSoftkeyType", "softkey-type=", 16, isEven},
    {"getKeyBoardCaps", "keyboard-caps=", 16, isKnown},
    {"showDPI", "dpi=", 10, isKnown},
    {"getHardwareCaps", "hardware-caps=", 16, isKnown},
    {"getPanelRotation", "panel-rotation=", 10, isRotation},
};
constexpr uint32_t kMetricCount = std::size(kMetrics);

bool storeMetric(const Metric &metric, const char *rest, void *result) noexcept
{
    if (metric.base == 0) {
        const std::size_t length = std::strlen(rest);
        if (length < 1 || length > kLongestLayout) {
            return false;
        }
        std::memcpy(result, rest, length + 1);
        return true;
    }
    const auto [value, end] = kvo_hws::readNumber(rest, metric.base);
    if (end == rest || *end != '\0' || !metric.valid(value)) {
        return false;
    }
    const auto stored = static_cast<uint32_t>(value);
    std::memcpy(result, &stored, sizeof stored);
    return true;
}

}  // namespace

int32_t KVO_HWS_getStationMetrics(uint32_t id, uint32_t metric, void *result) noexcept
{
    Request request(kMetricLabel);
    request.needs(result).refuse(metric < 1 || metric > kMetricCount, KVO_HWS_INVALID_METRIC,
                                 {"invalid station metric ID received"});
    if (request.settled()) {
        return request.result();
    }
    const Metric &wanted = kMetrics[metric - 1];
    return request.send("%s=%08X", wanted.command, id)
        .value(wanted.key,
               [&](const char *rest) -> Answer {
                   return {storeMetric(wanted, rest, result) ? KVO_HWS_OK : KVO_HWS_UNKNOWN_REPLY};
               })
        .on("none", KVO_HWS_NOT_AVAILABLE, "information not available")
        .otherwise(KVO_HWS_FAILED, "unknown error sending request")
        .result();
}

int32_t KVO_HWS_getClientList(KvoClientEntry *array, uint32_t *count, unsigned long flags) noexcept
{
    const bool noArray = count == nullptr || (*count != 0 && array == nullptr);
    Request request("get client list");
    request.refuse(noArray, KVO_HWS_NULL_POINTER, {"null pointer received"})
        .prepare([=] { kvo_hws::clearList(array, *count); })  // NOLINT(*.NullDereference): null has been rejected
        .send("getClientList 0 %lX", flags);
    return kvo_hws::readList(request, count,
                             [=](uint32_t *found, const char *text) { return ConvertText2KVOClientArray(found, array, text); });
}

int32_t KVO_HWS_isMarovantiPanel(uint32_t id) noexcept
{
    // Four failures with four codes, which callers distinguish.
    constexpr const char *kInvalidMode = "invalid mode [0|1]";
    return Request("is MAROVANTI panel")
        .send("isMarovantiPanel %08X", id)
        .value("is-Marovanti-Panel=",
               [=](std::string_view mode) -> Answer {
                   if (mode == "1") {
                       return {KVO_HWS_OK};
                   }
                   if (mode == "0") {
                       return {KVO_HWS_NO};
                   }
                   return {mode.empty() ? KVO_HWS_FAILED : KVO_HWS_OUT_OF_RANGE, kInvalidMode};
               })
        .on("not found", KVO_HWS_NOT_AVAILABLE, "panel not found")
        .on("failed", KVO_HWS_NOT_AVAILABLE, "failed")
        .otherwise(KVO_HWS_UNKNOWN_REPLY, "unknown error sending request")
        .result();
}
