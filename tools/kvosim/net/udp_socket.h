// A socket that receives datagrams, and the notation of its address.
#pragma once

#include "common/event_loop.h"

#include <functional>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

/// Where clients on the same machine send the datagrams of the USB lock.
inline constexpr const char *kDefaultUsbLockAddress = "127.0.0.1:5851";
/// The value instead of an address if the service does not receive datagrams.
inline constexpr std::string_view kNoEndpoint = "none";
inline constexpr std::string_view kEndpointForm = "ADDRESS or ADDRESS:PORT, such as \"0.0.0.0:5851\", or \"none\"";

/// "127.0.0.1" or "127.0.0.1:5851". Without a port it is 5851; port 0 means any free port.
std::optional<sockaddr_in> parseEndpoint(std::string_view text);
bool isEndpointOrNone(std::string_view text);

class UdpSocket {
public:
    /// Calls @p onDatagram on the loop's thread with each datagram. Throws std::runtime_error if it cannot bind to @p endpoint.
    UdpSocket(tools::EventLoop &loop, const std::string &endpoint, std::function<void(std::string_view datagram)> onDatagram);
    UdpSocket(const UdpSocket &) = delete;
    UdpSocket &operator=(const UdpSocket &) = delete;
    ~UdpSocket();

    /// The address with the port that the socket is bound to.
    [[nodiscard]] std::string address() const;

private:
    void receive();

    tools::EventLoop &loop_;
    std::function<void(std::string_view datagram)> onDatagram_;
    tools::Descriptor socket_;
};

}  // namespace kvosim
