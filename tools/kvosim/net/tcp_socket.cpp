// IPv4 TCP sockets.
#include "kvosim/net/tcp_socket.h"

#include "common/dotted_address.h"

#include <cerrno>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>

namespace kvosim {

namespace {

constexpr int kBacklog = 16;

std::string reasonOf(int error)
{
    switch (error) {
    case EADDRINUSE: return "the port is in use, perhaps by another simulator or a real hardware service";
    case EADDRNOTAVAIL: return "this machine does not have this address";
    default: return std::generic_category().message(error);
    }
}

}  // namespace

tools::Descriptor listenAt(const std::string &purpose, uint32_t address, uint16_t port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_addr.s_addr = htonl(address);
    place.sin_port = htons(port);
    tools::Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    // Otherwise, connections of a simulator that has ended would block the port for the next one.
    const int on = 1;
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener.get(), reinterpret_cast<const sockaddr *>(&place), sizeof place) != 0 ||
        listen(listener.get(), kBacklog) != 0) {
        throw std::runtime_error(purpose + " at " + tools::dotted(address) + ':' + std::to_string(port) + ": " +
                                 reasonOf(errno));
    }
    return listener;
}

std::string peerOf(const tools::Descriptor &connection)
{
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    if (getpeername(connection.get(), reinterpret_cast<sockaddr *>(&peer), &size) != 0) {
        return "?";
    }
    return tools::dotted(ntohl(peer.sin_addr.s_addr)) + ':' + std::to_string(ntohs(peer.sin_port));
}

}  // namespace kvosim
