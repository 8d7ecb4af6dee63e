// A socket that takes datagrams, and how its place is written.
#pragma once

#include "kvosim/base/event_loop.h"

#include <functional>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <string_view>

namespace kvosim {

/// Where clients of one machine send the datagrams of the USB lock.
inline constexpr const char *kDefaultUsbLockAddress = "127.0.0.1:5851";
/// In the place of an address: datagrams are not taken.
inline constexpr std::string_view kNoEndpoint = "none";
inline constexpr std::string_view kEndpointForm = "ADDRESS or ADDRESS:PORT, such as \"0.0.0.0:5851\", or \"none\"";

/// "127.0.0.1" or "127.0.0.1:5851", of which the port is 5851 where it is left out and any free one where it is 0.
std::optional<sockaddr_in> parseEndpoint(std::string_view text);
bool isEndpointOrNone(std::string_view text);

class UdpSocket {
public:
    /// Calls @p take, on the loop, with each datagram. Throws std::runtime_error where @p endpoint can not be had.
    UdpSocket(EventLoop &loop, const std::string &endpoint, std::function<void(std::string_view datagram)> take);
    UdpSocket(const UdpSocket &) = delete;
    UdpSocket &operator=(const UdpSocket &) = delete;
    ~UdpSocket();

    /// With the port that it has got.
    [[nodiscard]] std::string address() const;

private:
    void receive();

    EventLoop &loop_;
    std::function<void(std::string_view datagram)> take_;
    tools::Descriptor socket_;
};

}  // namespace kvosim
