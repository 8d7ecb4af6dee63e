// Receives datagrams; decides when several simulators may share a port.
#include "kvosim/net/udp_socket.h"

#include "common/dotted_address.h"
#include "kvosim/base/arguments.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <system_error>

namespace kvosim {

namespace {

constexpr uint16_t kUsbLockPort = 5851;
constexpr int kMaxReceivedAtOnce = 64;  // then other descriptors are served

bool isLoopback(const sockaddr_in &endpoint) { return ntohl(endpoint.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET; }

}  // namespace

std::optional<sockaddr_in> parseEndpoint(std::string_view text)
{
    const auto [host, portText] = split(text, ':');
    const auto address = tools::parseDotted(std::string(host));
    const bool hasPort = text.find(':') != std::string_view::npos;
    const auto port = hasPort ? decimal(portText, 0, UINT16_MAX) : kUsbLockPort;
    if (!address || !port) {
        return std::nullopt;
    }
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = htonl(*address);
    endpoint.sin_port = htons(static_cast<uint16_t>(*port));
    return endpoint;
}

bool isEndpointOrNone(std::string_view text) { return text == kNoEndpoint || parseEndpoint(text); }

UdpSocket::UdpSocket(tools::EventLoop &loop, const std::string &endpoint,
                     std::function<void(std::string_view datagram)> onDatagram)
    : loop_(loop), onDatagram_(std::move(onDatagram)), socket_(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    const auto address = parseEndpoint(endpoint);
    if (!address) {
        throw std::runtime_error('"' + endpoint + "\" is not an address; write " + std::string(kEndpointForm));
    }
    // A broadcast reaches all sockets that share a port, so simulators on a network may share it. A datagram to the loopback
    // address would reach only one of them, and it is unknown which. There the port is not shared, and the second simulator
    // gets an error.
    const int on = isLoopback(*address) ? 0 : 1;
    setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(socket_.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof *address) != 0) {
        const std::string reason =
            errno == EADDRINUSE ? "the port is in use, perhaps by another simulator" : std::generic_category().message(errno);
        throw std::runtime_error("cannot receive the USB lock's datagrams at " + endpoint + ": " + reason);
    }
    loop_.watch(socket_.get(), EPOLLIN, [this](uint32_t) { receive(); });
}

UdpSocket::~UdpSocket() { loop_.unwatch(socket_.get()); }

std::string UdpSocket::address() const
{
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    getsockname(socket_.get(), reinterpret_cast<sockaddr *>(&bound), &size);
    return tools::dotted(ntohl(bound.sin_addr.s_addr)) + ':' + std::to_string(ntohs(bound.sin_port));
}

void UdpSocket::receive()
{
    std::array<char, 2048> buffer{};
    for (int taken = 0; taken < kMaxReceivedAtOnce; ++taken) {
        const ssize_t size = recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (size < 0) {
            return;
        }
        onDatagram_({buffer.data(), static_cast<std::size_t>(size)});
    }
}

}  // namespace kvosim
