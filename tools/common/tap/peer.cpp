// The kernel keeps the credentials that the other side had when it connected or began to listen.
#include "common/tap/peer.h"

#include "common/descriptor.h"

#include <array>
#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>

namespace tools::tap {

namespace {

std::string nameOf(pid_t pid)
{
    std::array<char, 32> path{};
    std::snprintf(path.data(), path.size(), "/proc/%d/comm", pid);
    const Descriptor file(open(path.data(), O_RDONLY | O_CLOEXEC));
    std::array<char, 64> name{};
    const ssize_t size = file.valid() ? read(file.get(), name.data(), name.size()) : 0;
    return size > 1 ? std::string(name.data(), static_cast<std::size_t>(size) - 1) : std::string();  // without the line feed
}

}  // namespace

Peer peerOf(int connection)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 || credentials.pid <= 0) {
        return {};
    }
    return {.pid = credentials.pid, .name = nameOf(credentials.pid)};
}

}  // namespace tools::tap
