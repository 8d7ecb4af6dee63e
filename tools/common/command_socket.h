// Where the library looks for the service; it gives programs no other name for it.
#pragma once

namespace tools {

inline constexpr const char *kSocketDirectory = "/tmp/kvo_hws";
inline constexpr const char *kCommandSocket = "/tmp/kvo_hws/cmd_sock";

}  // namespace tools
