// Commands that the agent answers from its own state.
#include <kvo_hws/agent.h>

#include "agent/call.h"
#include "agent/focus_station.h"
#include "agent/handler.h"
#include "runtime/owners.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <utility>

char *hws_channel_info = nullptr;

namespace {

using kvo_hws::shared;
using kvo_hws::agent::Call;
using kvo_hws::agent::flagOf;

constexpr uint32_t kNumLockDisabled = 2;
constexpr uint32_t kCapsLockDisabled = 4;

void setKeyFlag(HmiSession &session, const Call &call, std::optional<uint32_t> isSet, uint32_t flag) noexcept
{
    if (call.accepts(isSet.has_value())) {
        session.keyFlags = *isSet != 0 ? session.keyFlags | flag : session.keyFlags & ~flag;
        call.ok();
    }
}

int keyFlag(const HmiSession &session, uint32_t flag) noexcept { return (session.keyFlags & flag) != 0 ? 1 : 0; }

/// Replaces a text by an allocated copy of the argument, or by null if the argument is empty. If memory runs out, returns
/// false and keeps the old text.
bool replaceText(char *&text, const char *argument) noexcept
{
    kvo_hws::HeapText copy(*argument != '\0' ? strdup(argument) : nullptr);
    if (*argument != '\0' && copy == nullptr) {
        return false;
    }
    std::free(std::exchange(text, copy.release()));
    return true;
}

}  // namespace

// ---- The station in focus at the start of the agent ----

KVO_HANDLER(handle_show_panel_size)
{
    const Call call(session, tag);
    if (const KvoDescriptionEx *const panel = kvo_hws::agent::focusStation::description()) {
        call.value("width=%d height=%d depth=%d\r\n", static_cast<int>(panel->attr1), static_cast<int>(panel->attr2),
                   static_cast<int>(panel->attr3));
    } else {
        call.failed("panel size not readable");
    }
}

KVO_HANDLER(handle_show_hwid)
{
    const Call call(session, tag);
    if (const KvoDescriptionEx *const panel = kvo_hws::agent::focusStation::description()) {
        call.value("hwid=%u.%u.%u.%u:%08x\r\n", panel->extAttr3, panel->extAttr4, panel->extAttr5, panel->extAttr6,
                   panel->extAttr7);
    } else {
        call.failed("hwid not readable");
    }
}

// ---- Key flags of the session ----

KVO_HANDLER(handle_set_disable_numlock) { setKeyFlag(*session, Call(session, tag), flagOf(argument), kNumLockDisabled); }

KVO_HANDLER(handle_set_disable_capslock) { setKeyFlag(*session, Call(session, tag), flagOf(argument), kCapsLockDisabled); }

KVO_HANDLER(handle_get_disable_numlock)
{
    Call(session, tag).value("disable-numlock=%d\r\n", keyFlag(*session, kNumLockDisabled));
}

KVO_HANDLER(handle_get_disable_capslock)
{
    Call(session, tag).value("disable-capslock=%d\r\n", keyFlag(*session, kCapsLockDisabled));
}

// ---- Values of the host ----

KVO_HANDLER(handle_ping) { Call(session, tag).text("pong\r\n"); }

KVO_HANDLER(handle_get_kvo_name) { Call(session, tag).texts(gHostname, "\r\n"); }

KVO_HANDLER(handle_get_kvo_priority)
{
    Call(session, tag).value("Priority=%u:%d\r\n", shared(gSuspendLock).load(), static_cast<int>(shared(gSuspendPrio).load()));
}

KVO_HANDLER(handle_get_kvo_startup_active) { Call(session, tag).value("startup-active=%u\r\n", shared(gStartupActive).load()); }

KVO_HANDLER(handle_get_kvo_startup_prio) { Call(session, tag).value("startup-prio=%u\r\n", shared(gStartupPrio).load()); }

KVO_HANDLER(handle_get_screen_on_focus) { Call(session, tag).texts("screen-on-focus=", gScreenOnFocus, "\r\n"); }

KVO_HANDLER(handle_get_channel_on_focus)
{
    Call(session, tag).value("channel-on-focus=%u\r\n", shared(gChannelOnFocus).load());
}

KVO_HANDLER(handle_get_kvoindex) { Call(session, tag).value("kvoindex=%u\r\n", shared(gKvoIndex).load()); }

KVO_HANDLER(handle_get_t2m2n) { Call(session, tag).texts(kvo_hws::agent::focusStation::t2m2n(), "\r\n"); }

// ---- Values set by the remote side ----

KVO_HANDLER(handle_get_channel_info)
{
    Call(session, tag).texts("channel-info=", hws_channel_info != nullptr ? hws_channel_info : "", "\r\n");
}

KVO_HANDLER(handle_set_channel_info)
{
    const Call call(session, tag);
    if (replaceText(hws_channel_info, argument)) {
        call.ok();
    } else {
        call.failed("out of memory");
    }
}

KVO_HANDLER(handle_servername)
{
    // If memory runs out, the remote side has no name; the name is only for display.
    if (!replaceText(session->server->name, argument)) {
        std::free(std::exchange(session->server->name, nullptr));
    }
    Call(session, tag).ok();
}
