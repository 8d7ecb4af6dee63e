// Names of the remote side, for messages and display.
#include <kvo_hws/agent.h>

#include "agent/dotted.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

using kvo_hws::agent::Dotted;

const char *sesstoa(const HmiSession *session) noexcept
{
    static char text[32];
    std::snprintf(text, sizeof text, "%s:%d", Dotted(session->server->address).text(), static_cast<int>(session->display));
    return text;
}

int format_servername(char *dst, size_t size, const HmiServer *server, int width) noexcept
{
    constexpr std::size_t kAround = 3;     // length of " ()"
    constexpr std::size_t kAroundCut = 6;  // length of "... ()"
    const Dotted dotted(server->address);
    const char *const address = dotted.text();
    const auto space = static_cast<std::size_t>(width > 0 ? width : 0);
    const char *const name = server->name;
    if (name != nullptr && std::strlen(name) + kAround + std::strlen(address) < space) {
        return std::snprintf(dst, size, "%s (%s)", name, address);
    }
    const char *const point = name != nullptr ? std::strchr(name, '.') : nullptr;
    if (point != nullptr && space > static_cast<std::size_t>(point - name) + kAroundCut + std::strlen(address)) {
        const auto host = static_cast<int>(point - name);
        return std::snprintf(dst, size, "%*.*s... (%s)", host, host, name, address);
    }
    return std::snprintf(dst, size, "%s", address);
}

void register_hws_servername() noexcept {}
