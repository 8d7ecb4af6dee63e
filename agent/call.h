// One command being answered: every handler ends with exactly one of the replies here.
#pragma once

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include "agent/instance.h"

#include <cstdint>
#include <optional>

namespace kvo_hws::agent {

/// The station in focus, whom handlers ask the service about.
inline uint32_t focus() noexcept { return shared(gFocusKvoIp).load(); }

/// Whether the station in focus has a machine control panel of its own; the service is not asked about one that has none.
inline bool hasControlPanel() noexcept { return shared(gMcpLikeFocusKvo).load() != 0; }

/// The first character of an argument alone: "1xyz" is 1, as remote services have always got away with. Nothing where it is
/// neither 0 nor 1.
inline std::optional<uint32_t> flagOf(const char *argument) noexcept
{
    switch (*argument) {
    case '0': return 0;
    case '1': return 1;
    default: return std::nullopt;
    }
}

class Call {
public:
    Call(HmiSession *session, const char *tag) noexcept : session_(*session), tag_(tag) {}

    void ok() const noexcept { text("ok\r\n"); }
    void failed() const noexcept { text("failed\r\n"); }
    void bad() const noexcept { text("bad request\r\n"); }
    void failed(const char *reason) const noexcept { texts("failed: ", reason, "\r\n"); }

    /// Whether a request of ours was done; where it was not, that is the reply.
    [[nodiscard]] bool worked(int32_t result, const char *reason) const noexcept
    {
        if (result != KVO_HWS_OK) {
            failed(reason);
        }
        return result == KVO_HWS_OK;
    }

    /// Whether an argument is one; where it is not, that is the reply.
    [[nodiscard]] bool accepts(bool argument) const noexcept
    {
        if (!argument) {
            bad();
        }
        return argument;
    }

    /// A reply of a text, or of several that follow one another.
    void text(const char *text) const noexcept { texts(text); }

    template <class... Texts>
    void texts(const char *first, Texts... others) const noexcept
    {
        hmiconn_reply(socketOf(session_), tag_, first, others..., static_cast<const char *>(nullptr));
    }

    /// A reply with numbers.
    void value(const char *format, ...) const noexcept __attribute__((format(printf, 2, 3)));

private:
    HmiSession &session_;
    const char *tag_;
};

}  // namespace kvo_hws::agent
