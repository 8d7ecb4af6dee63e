// The USB lock, which is set by datagrams.
#include <kvo_hws/kvo_hws.hpp>

#include <arpa/inet.h>
#include <cstdlib>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using kvo::Address;
using kvo::Errc;
using kvo::Service;
using testing::ElementsAre;

/// Receives the datagrams for the stations' services: everything sent to UDP port 5851 of this host.
class UsbLock : public testing::Test {
protected:
    UsbLock() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        // The loopback interface cannot broadcast, so the platform returns the interface's own address.
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(5851);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    ~UsbLock() override
    {
        unsetenv("KVO_PLATFORM_INTERFACE");
        close(socket_);
    }

    [[nodiscard]] std::vector<std::string> received() const
    {
        std::vector<std::string> datagrams;
        pollfd waiting{.fd = socket_, .events = POLLIN, .revents = 0};
        while (poll(&waiting, 1, 100) > 0) {
            char bytes[2048];
            const ssize_t count = recv(socket_, bytes, sizeof bytes, 0);
            datagrams.emplace_back(bytes, static_cast<std::size_t>(count));
        }
        return datagrams;
    }

private:
    int socket_;
};

TEST_F(UsbLock, is_sent_to_each_station_from_the_last_to_the_first)
{
    ASSERT_TRUE(Service::set_usb_lock({Address("10.0.0.5"), Address("10.0.0.6")}, {1, 4294967295}));
    EXPECT_THAT(received(), ElementsAre("setUsbLock=\"1:-1\" 10.0.0.6\n", "setUsbLock=\"1:-1\" 10.0.0.5\n"));
}

TEST_F(UsbLock, is_sent_to_every_station)
{
    ASSERT_TRUE(Service::set_usb_lock_everywhere({0, 2}));
    EXPECT_THAT(received(), ElementsAre("setUsbLock=\"0:2\" 0.0.0.0\n"));
}

// The function of C would take an empty list for every station.
TEST_F(UsbLock, of_no_station_is_refused)
{
    const auto set = Service::set_usb_lock({}, {1, 0});
    ASSERT_FALSE(set);
    EXPECT_EQ(set.error().meaning(), Errc::out_of_range);
    EXPECT_THAT(set.error().reason(), testing::HasSubstr("set_usb_lock_everywhere"));
    EXPECT_THAT(received(), testing::IsEmpty());
}

TEST_F(UsbLock, of_this_host_is_refused)
{
    const auto set = Service::set_usb_lock({Address("10.0.0.5"), Address("127.0.0.1")}, {1, 0});
    ASSERT_FALSE(set);
    EXPECT_EQ(set.error().meaning(), Errc::invalid_address);
    EXPECT_EQ(set.error().code(), -10);
    EXPECT_THAT(received(), testing::IsEmpty());
}

}  // namespace
