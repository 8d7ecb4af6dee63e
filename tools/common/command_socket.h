// The path at which the library looks for the service. The library's interface does not export it.
#pragma once

namespace tools {

inline constexpr const char *kSocketDirectory = "/tmp/kvo_hws";
inline constexpr const char *kCommandSocket = "/tmp/kvo_hws/cmd_sock";

}  // namespace tools
