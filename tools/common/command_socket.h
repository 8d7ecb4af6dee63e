// The paths of the sockets. They are repeated here because the library's public headers do not contain it.
#pragma once

namespace tools {

inline constexpr const char *kSocketDirectory = "/tmp/kvo_hws";
inline constexpr const char *kCommandSocket = "/tmp/kvo_hws/cmd_sock";
inline constexpr const char *kUsbEventSocket = "/tmp/kvo_hws/usb_sock";
inline constexpr const char *kEventSocket = "/tmp/kvo_hws/event_sock";

}  // namespace tools
