// Command lines of kvosim for tests.
#pragma once

#include "tools/kvosim/support/client.h"

#include <string>
#include <utility>
#include <vector>

namespace kvosim_test {

inline const std::string kSocket = kCommandSocket;
inline const std::string kReady = "kvosim: serving 30 stations at /tmp/kvo_hws/cmd_sock\n";

inline std::vector<std::string> kvosim(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), KVOSIM_PROGRAM);
    return arguments;
}

inline std::vector<std::string> serve(std::vector<std::string> more = {})
{
    // Other tests may use the default port of the USB lock on the same network.
    more.insert(more.begin(), {"serve", "--plant", EXAMPLE_PLANT, "--usb-lock-address", "none"});
    return kvosim(std::move(more));
}

}  // namespace kvosim_test
