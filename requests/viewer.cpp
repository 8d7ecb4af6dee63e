// The remote-display viewer of a station, its status line, focus and reboot.
#include <kvo_hws/requests.h>

#include "service/request.h"

#include <cstring>
#include <string_view>

namespace {

using kvo_hws::Answer;
using kvo_hws::Request;

constexpr std::size_t kLongestPart = 1024;

/// Copies a text with its terminator. @p size is the buffer's size on entry, and the used or required size on return.
bool copyWithin(std::string_view text, char *buffer, uint32_t *size) noexcept
{
    const bool fits = *size > text.size();
    if (fits) {
        std::memcpy(buffer, text.data(), text.size());
        buffer[text.size()] = '\0';
    }
    *size = static_cast<uint32_t>(text.size() + 1);
    return fits;
}

int32_t stopViewer(const char *label, const char *command, uint32_t station) noexcept
{
    return Request(label).send("%s=%08X", command, station).on("ok", KVO_HWS_OK).on("not running", KVO_HWS_NO).result();
}

}  // namespace

int32_t KVO_HWS_setStatusline(uint32_t station, uint32_t value1, uint32_t value2, const char *text) noexcept
{
    // Unlike in other requests with several values, the station comes first, and commas separate the values.
    return Request("set status line")
        .needs(text)
        .send("setStatusline=%08X,%u,%u,%s", station, value1, value2, text)
        .on("ok", KVO_HWS_OK)
        .result();
}

int32_t KVO_HWS_rebootKVO(uint32_t station) noexcept
{
    return Request("set reboot").send("reboot=%08X", station).on("ok", KVO_HWS_OK).result();
}

int32_t KVO_HWS_isViewerActive(uint32_t station) noexcept
{
    return Request("is viewer active")
        .send("isViewerActive=%08X", station)
        .on("active", KVO_HWS_OK)
        .on("not active", KVO_HWS_NO)
        .result();
}

int32_t KVO_HWS_getCurrentServer(uint32_t station, char *server, uint32_t *serverSize, char *display,
                                 uint32_t *displaySize) noexcept
{
    return Request("get current server")
        .needs(server, serverSize, display, displaySize)
        .send("getCurServer=%08X", station)
        .on("none", KVO_HWS_NO)
        .value("vncserver",
               [=](std::string_view rest) -> Answer {
                   const std::size_t colon = rest.find(':');
                   if (!rest.starts_with('=') || colon == std::string_view::npos) {
                       return {KVO_HWS_FAILED};
                   }
                   const std::string_view serverPart = rest.substr(1, colon - 1);
                   const std::string_view displayPart = rest.substr(colon + 1);
                   if (serverPart.size() > kLongestPart) {
                       return {KVO_HWS_FAILED};
                   }
                   if (!copyWithin(serverPart, server, serverSize)) {
                       return {KVO_HWS_TOO_SMALL};
                   }
                   // After a later failure the copied server stays stored: callers may use it without the display.
                   if (displayPart.size() > kLongestPart) {
                       return {KVO_HWS_FAILED};
                   }
                   return {copyWithin(displayPart, display, displaySize) ? KVO_HWS_OK : KVO_HWS_SECOND_TOO_SMALL};
               })
        .result();
}

int32_t KVO_HWS_setActivateMe(uint32_t station) noexcept
{
    return Request("activate me").send("activateMe=%08X", station).on("ok", KVO_HWS_OK).on("busy", KVO_HWS_NO).result();
}

int32_t KVO_HWS_setStartViewer(uint32_t station, const char *part1, const char *part2, const char *part3) noexcept
{
    // Only the message of the null check has the label with "set".
    return Request("set start viewer")
        .needs(part1, part2, part3)
        .label("start viewer")
        .send("startViewer=\"%s:%s:%s\" %08X", part1, part2, part3, station)
        .on("ok", KVO_HWS_OK)
        .on("busy", KVO_HWS_NO)
        .result();
}

int32_t KVO_HWS_startConfiguredViewer(uint32_t station, const char *text, uint32_t number) noexcept
{
    return Request("start configured viewer")
        .needs(text)
        .send("startConfiguredViewer=\"%s:%u\" %08X", text, number, station)
        .on("ok", KVO_HWS_OK)
        .on("busy", KVO_HWS_NO)
        .result();
}

int32_t KVO_HWS_setStopViewer(uint32_t station) noexcept { return stopViewer("stop viewer", "stopViewer", station); }

int32_t KVO_HWS_setStopViewerPreempt(uint32_t station) noexcept
{
    return stopViewer("stop viewer preempt", "stopViewerPreempt", station);
}

int32_t KVO_HWS_setStopViewerNoClean(uint32_t station) noexcept
{
    return stopViewer("stop viewer no clean", "stopViewerNoClean", station);
}
