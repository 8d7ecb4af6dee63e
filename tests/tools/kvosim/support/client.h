// A client with direct access to a socket, for tests of slow, incomplete or invalid requests.
#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>

namespace kvosim_test {

inline constexpr const char *kCommandSocket = "/tmp/kvo_hws/cmd_sock";

class Client {
public:
    explicit Client(const std::string &path = kCommandSocket) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            throw std::runtime_error("cannot connect to " + path + ": " + std::strerror(errno));
        }
    }

    [[nodiscard]] int get() const { return socket_.get(); }

    /// Returns false if the service has closed the connection.
    bool send(std::string_view bytes) const
    {
        return ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    /// Receives @p size bytes, or fewer if the service closes the connection.
    [[nodiscard]] std::string receive(std::size_t size) const
    {
        std::string received(size, '\0');
        std::size_t filled = 0;
        while (filled < size) {
            const ssize_t count = recv(socket_.get(), received.data() + filled, size - filled, 0);
            if (count <= 0) {
                break;
            }
            filled += static_cast<std::size_t>(count);
        }
        received.resize(filled);
        return received;
    }

    /// Receives everything until the service closes the connection. Adds a note if nothing arrives for @p timeout.
    [[nodiscard]] std::string receiveAll(std::chrono::milliseconds timeout = std::chrono::seconds(5)) const
    {
        std::string received;
        for (;;) {
            pollfd waiting{.fd = socket_.get(), .events = POLLIN, .revents = 0};
            if (poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) {
                return received + "(nothing more came)";
            }
            char piece[65536];
            const ssize_t count = recv(socket_.get(), piece, sizeof piece, 0);
            if (count < 0) {
                return received + "(" + std::strerror(errno) + ")";
            }
            if (count == 0) {
                return received;
            }
            received.append(piece, static_cast<std::size_t>(count));
        }
    }

private:
    tools::Descriptor socket_;
};

/// Makes one exchange and returns the received bytes unchanged.
inline std::string exchange(std::string_view request, const std::string &path = kCommandSocket)
{
    const Client client(path);
    client.send(request);
    return client.receiveAll();
}

}  // namespace kvosim_test
