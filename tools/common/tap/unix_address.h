// The address of a Unix socket.
#pragma once

#include "common/refused.h"

#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>

namespace tools::tap {

/// Throws Refused if the path is too long for a socket.
inline sockaddr_un unixAddress(const std::filesystem::path &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        throw Refused(path.string() + ": the path is too long for a socket");
    }
    path.native().copy(address.sun_path, path.native().size());
    return address;
}

}  // namespace tools::tap
