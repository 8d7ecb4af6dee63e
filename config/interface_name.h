// The configured interface, for messages.
#pragma once

#include <kvo_hws/config.h>

namespace kvo_hws {

/// Never null: the interface is, before the file was read and where there was no memory for it.
inline const char *interfaceName() noexcept { return sConfData.interface != nullptr ? sConfData.interface : "(null)"; }

}  // namespace kvo_hws
