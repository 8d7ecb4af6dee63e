// A connection of the USB event server, served on a separate thread.
#pragma once

#include <kvo_hws/runtime.h>
#include <kvo_hws/usbevents.h>

#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace usbevents_test {

inline const std::string kNew =
    "newUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*Media*Cruzer*00000001*00000002*80000000*0001*0002*" +
    std::string("00 01 02 ") + "*";
inline const std::string kRefused = "ignoreUSBdevice*10.0.0.5*usb1*1-1.4*SanDisk*8.02*not here*00000001*00000002*0003*";
inline const std::string kState = "changeStateUSBdevice*10.0.0.5*usb1*1-1.4*00000007*";
inline const std::string kRemoved = "removeUSBdevice*10.0.0.5*usb1*1-1.4*";

/// A connection that ConInstThread serves on a separate thread; the test acts as the daemon.
class Connection {
public:
    Connection()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        daemon_ = ends[0];
        EXPECT_EQ(kvo_hws_CreateThread(ConInstThread, reinterpret_cast<void *>(intptr_t{ends[1]})), 1);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    ~Connection() { close(daemon_); }

    void send(const std::string &bytes) const
    {
        EXPECT_EQ(write(daemon_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    /// Everything until the library closes the connection.
    [[nodiscard]] std::string answer() const
    {
        std::string answer;
        char piece[64];
        for (ssize_t count = 0; (count = read(daemon_, piece, sizeof piece)) > 0;) {
            answer.append(piece, static_cast<std::size_t>(count));
        }
        return answer;
    }

    [[nodiscard]] bool readable(std::chrono::milliseconds within) const
    {
        pollfd waiting{.fd = daemon_, .events = POLLIN, .revents = 0};
        return poll(&waiting, 1, static_cast<int>(within.count())) == 1;
    }

private:
    int daemon_ = -1;
};

inline std::string answerTo(const std::string &text)
{
    const Connection connection;
    connection.send(text + "\n");
    return connection.answer();
}

}  // namespace usbevents_test
