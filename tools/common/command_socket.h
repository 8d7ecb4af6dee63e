// The path of the service's socket. It is repeated here because the library's public headers do not contain it.
#pragma once

namespace tools {

inline constexpr const char *kSocketDirectory = "/tmp/kvo_hws";
inline constexpr const char *kCommandSocket = "/tmp/kvo_hws/cmd_sock";

}  // namespace tools
