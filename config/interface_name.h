// The configured interface, for messages.
#pragma once

#include <kvo_hws/config.h>

namespace kvo_hws {

/// Never null, unlike the configured interface, which is null before the file is read or if memory ran out.
inline const char *interfaceName() noexcept { return sConfData.interface != nullptr ? sConfData.interface : "(null)"; }

}  // namespace kvo_hws
