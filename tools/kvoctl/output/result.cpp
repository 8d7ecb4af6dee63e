// Maps a result to an exit status and a hint.
#include "kvoctl/output/result.h"

#include "common/command_socket.h"

#include <kvo_hws/result.h>

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace kvoctl {

Exit exitOf(const Failure &failure) noexcept
{
    switch (failure.result()) {
    case KVO_HWS_NO: return Exit::no;
    case KVO_HWS_NO_SERVICE: return Exit::noService;
    default: return Exit::failed;
    }
}

std::string hintOf(const Failure &failure)
{
    if (failure.result() != KVO_HWS_NO_SERVICE) {
        return {};
    }
    if (access(tools::kCommandSocket, W_OK) != 0) {
        return std::string("The socket: ") + std::strerror(errno) + ". Is the hardware service running? " +
               "For a simulated one: kvosim run -- kvoctl ...";
    }
    return "The socket exists, but does not accept connections: the service ended without removing it, or is too busy. "
           "\"kvoctl doctor\" finds out which.";
}

}  // namespace kvoctl
