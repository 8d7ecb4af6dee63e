// Names of the remote side, for messages and display.
#include <kvo_hws/agent.h>

#include <arpa/inet.h>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

using Dotted = char[INET_ADDRSTRLEN];

void write(uint32_t address, Dotted &dotted) noexcept { inet_ntop(AF_INET, &address, dotted, sizeof dotted); }

}  // namespace

const char *sesstoa(const HmiSession *session) noexcept
{
    static char text[32];
    Dotted address;
    write(session->server->address, address);
    std::snprintf(text, sizeof text, "%s:%d", address, static_cast<int>(session->display));
    return text;
}

int format_servername(char *dst, size_t size, const HmiServer *server, int width) noexcept
{
    constexpr std::size_t kAround = 3;     // of " ()"
    constexpr std::size_t kAroundCut = 6;  // of "... ()"
    Dotted address;
    write(server->address, address);
    const auto room = static_cast<std::size_t>(width > 0 ? width : 0);
    const char *const name = server->name;
    if (name != nullptr && std::strlen(name) + kAround + std::strlen(address) < room) {
        return std::snprintf(dst, size, "%s (%s)", name, address);
    }
    const char *const point = name != nullptr ? std::strchr(name, '.') : nullptr;
    if (point != nullptr && room > static_cast<std::size_t>(point - name) + kAroundCut + std::strlen(address)) {
        const auto host = static_cast<int>(point - name);
        return std::snprintf(dst, size, "%*.*s... (%s)", host, host, name, address);
    }
    return std::snprintf(dst, size, "%s", address);
}

void register_hws_servername() noexcept {}
