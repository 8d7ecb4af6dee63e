// The request after which the service may send USB events.
#pragma once

#include <string_view>

namespace tools::tap {

/// Whether a request, or its beginning, asks for the USB events. The receiver's socket must be tapped before the service has it.
inline bool activatesUsbEvents(std::string_view request) { return request.starts_with("activateUSBEvents"); }

}  // namespace tools::tap
