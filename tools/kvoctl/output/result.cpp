// Which exit status a result comes to, and what to do about it.
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
    return "The socket is there, but nobody listens: the service has ended without tidying up, or is too busy to accept. "
           "\"kvoctl doctor\" finds out which.";
}

}  // namespace kvoctl
