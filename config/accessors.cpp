// Accessors of the configuration values. All fail until the file has been read.
#include <kvo_hws/config.h>
#include <kvo_hws/runtime.h>

#include "config/interface_name.h"
#include "runtime/owners.h"
#include "runtime/shared_word.h"

#include <cstring>
#include <syslog.h>

namespace {

constexpr uint32_t kFirstPort = 5850;

bool wasRead() noexcept { return kvo_hws::shared(sConfData.dataSet).load() != 0; }

/// Runs @p copyOut and returns 0; if the file was not read, logs the message and returns -1.
template <class CopyOut>
int copyIfRead(const char *message, CopyOut copyOut) noexcept
{
    if (!wasRead()) {
        LOG(LOG_ERR, "%s", message);
        return -1;
    }
    copyOut();
    return 0;
}

template <class Value, class Out>
int value(const Value &member, Out *out, const char *message) noexcept
{
    return copyIfRead(message, [&] { *out = member; });
}

int text(const char *const &member, char *out, const char *message) noexcept
{
    return copyIfRead(message, [&] {
        const char *const known = member != nullptr ? member : "";  // null if memory ran out
        std::strcpy(out, known);                                    // NOLINT(*.strcpy): the interface gives no size
    });
}

}  // namespace

int GetInterfaceIP(char *ipString_out, uint32_t *ipValue_out) noexcept
{
    if (!wasRead()) {
        LOG(LOG_ERR, "config dat not set ==> no IP address for interface '%s' available", kvo_hws::interfaceName());
        return -2;
    }
    const kvo_hws::NoCancellation wholeQuery;
    const int result = GetIpByInterface(sConfData.interface, ipString_out, ipValue_out);
    if (result != 0) {
        LOG(LOG_ERR, "GetIpByInterface fails with %d ==> no IP address for interface '%s' available", result,
            kvo_hws::interfaceName());
        return -1;
    }
    return 0;
}

int GetPortNumber(uint16_t *port_out) noexcept { return value(sConfData.port, port_out, "no port number available"); }

int GetSessionNumber(uint32_t *session_out) noexcept
{
    return copyIfRead("no port number available", [session_out] { *session_out = sConfData.port - kFirstPort; });
}

int GetRHZName(char *out) noexcept { return text(sConfData.name, out, "no RHZ/JDL name available"); }

int GetBacklightMode(uint32_t *mode_out) noexcept
{
    return value(sConfData.backlight, mode_out, "no backlight mode available");
}

int GetBrightnessMode(uint32_t *mode_out) noexcept
{
    return value(sConfData.brightness, mode_out, "no brightness mode available");
}

int GetBacklightBrightnessMode(uint32_t *mode_out) noexcept
{
    return value(sConfData.backlightBrightness, mode_out, "no backlight brightness mode available");
}

int GetRegistryPath(char *out) noexcept { return text(sConfData.registryPath, out, "no registry path available"); }
