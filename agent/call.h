// The replies to a command: every handler sends exactly one of them.
#pragma once

#include <kvo_hws/agent.h>
#include <kvo_hws/result.h>

#include "agent/instance.h"

#include <cstdint>
#include <optional>

namespace kvo_hws::agent {

/// The address of the station in focus, for requests to the service.
inline uint32_t focus() noexcept { return shared(gFocusKvoIp).load(); }

/// True if the station in focus has its own machine control panel. Without one, no request is sent to the service.
inline bool hasControlPanel() noexcept { return shared(gMcpLikeFocusKvo).load() != 0; }

/// Reads only the first character of an argument: "1xyz" is 1, because remote services have always been able to send this. No
/// value if this character is neither 0 nor 1.
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

    /// Returns true if a request to the service succeeded; otherwise replies with the failure.
    [[nodiscard]] bool succeeded(int32_t result, const char *reason) const noexcept
    {
        if (result != KVO_HWS_OK) {
            failed(reason);
        }
        return result == KVO_HWS_OK;
    }

    /// Returns @p isValid; if the argument is not valid, replies "bad request".
    [[nodiscard]] bool accepts(bool isValid) const noexcept
    {
        if (!isValid) {
            bad();
        }
        return isValid;
    }

    /// Replies with one text, or with several texts as one line.
    void text(const char *text) const noexcept { texts(text); }

    template <class... Texts>
    void texts(const char *first, Texts... others) const noexcept
    {
        hmiconn_reply(socketOf(session_), tag_, first, others..., static_cast<const char *>(nullptr));
    }

    /// Replies with formatted values.
    void value(const char *format, ...) const noexcept __attribute__((format(printf, 2, 3)));

private:
    HmiSession &session_;
    const char *tag_;
};

}  // namespace kvo_hws::agent
