// Commands that only the host program can execute: they are passed to its callback.
#include <kvo_hws/agent.h>

#include "agent/call.h"
#include "agent/handler.h"
#include "runtime/numbers.h"
#include "runtime/owners.h"

#include <cstdio>
#include <cstring>
#include <optional>

namespace {

using kvo_hws::agent::Call;

using Command = char[256];

constexpr const char *kFailed = "failed\r\n";

/// The callback's result; no value without a callback.
std::optional<int> askHost(const char *command) noexcept
{
    const EmbCmdCallback callback = kvo_hws::shared(gCmdCallback).load();
    if (callback == nullptr) {
        return std::nullopt;
    }
    const kvo_hws::NoCancellation wholeCall;
    try {
        return callback(gEmbKvoInst, command);
    } catch (...) {
        return -1;
    }
}

/// The replies for the callback's results 1, 0 and any other.
struct Replies {
    const char *yes;
    const char *no;
    const char *other = kFailed;
};

void answerByHost(const Call &call, const char *command, Replies replies) noexcept
{
    const std::optional<int> result = askHost(command);
    if (!result.has_value()) {
        call.bad();
        return;
    }
    switch (*result) {
    case 1: call.text(replies.yes); break;
    case 0: call.text(replies.no); break;
    default: call.text(replies.other); break;
    }
}

constexpr Replies kStopped = {"ok\r\n", "not running\r\n"};

/// The text after two integers with a comma directly after each; null if the argument does not begin with them.
char *textAfterNumbers(char *argument) noexcept
{
    char *rest = argument;
    for (int number = 0; number < 2; ++number) {
        const char *const end = kvo_hws::readSigned(rest).end;
        if (end == rest || *end != ',') {
            return nullptr;
        }
        rest += end - rest + 1;
    }
    return rest;
}

}  // namespace

KVO_HANDLER(handle_stop_viewer) { answerByHost(Call(session, tag), "stop-viewer", kStopped); }

KVO_HANDLER(handle_stop_viewer_preempt) { answerByHost(Call(session, tag), "stop-viewer-preempt", kStopped); }

KVO_HANDLER(handle_stop_viewer_noclean) { answerByHost(Call(session, tag), "stop-viewer-noclean", kStopped); }

KVO_HANDLER(handle_activate_me) { answerByHost(Call(session, tag), "activate-me", {"ok\r\n", "busy\r\n"}); }

KVO_HANDLER(handle_set_darken)
{
    Command command;
    std::snprintf(command, sizeof command, "set-darken=%s", argument);
    answerByHost(Call(session, tag), command, {"ok\r\n", kFailed});
}

KVO_HANDLER(handle_show_viewer_active)
{
    answerByHost(Call(session, tag), "show-viewer-active", {"active=1\r\n", "active=0\r\n"});
}

/// Sends the host the command of handle_show_viewer_active, because hosts know no other command for this.
KVO_HANDLER(handle_show_current_server)
{
    Command server;
    std::snprintf(server, sizeof server, "vncserver=%s\r\n", sesstoa(session));
    answerByHost(Call(session, tag), "show-viewer-active", {server, "none\r\n", "none\r\n"});
}

KVO_HANDLER(handle_set_statusline)
{
    const Call call(session, tag);
    char *const text = textAfterNumbers(argument);
    if (!call.accepts(text != nullptr)) {
        return;
    }
    text[std::strcspn(text, "\r\n")] = '\0';
    Command command;
    std::snprintf(command, sizeof command, "set-statusline=%s", argument);
    answerByHost(call, command, {"ok\r\n", kFailed});
}
