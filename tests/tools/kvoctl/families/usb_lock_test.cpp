// "kvoctl usb lock set": datagrams to the stations, received on this host's loopback interface.
#include "tools/kvoctl/support/kvoctl.h"

#include "support/scripted_service.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace kvoctl_test {

namespace {

using support::ScriptedService;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint16_t kLockPort = 5851;

/// The receiver of the datagrams.
class Network {
public:
    Network() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(kLockPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    }
    Network(const Network &) = delete;
    Network &operator=(const Network &) = delete;
    ~Network() { close(socket_); }

    /// The datagrams so far. The sender has ended, so no more can arrive.
    [[nodiscard]] std::vector<std::string> datagrams() const
    {
        std::vector<std::string> all;
        std::array<char, 2048> datagram{};
        for (;;) {
            const ssize_t count = recv(socket_, datagram.data(), datagram.size(), MSG_DONTWAIT);
            if (count < 0) {
                return all;
            }
            all.emplace_back(datagram.data(), static_cast<std::size_t>(count));
        }
    }

private:
    int socket_;
};

Ended lock(const Arguments &arguments,
           const RunConditions &conditions = {.environment = {"LC_ALL=C.UTF-8", "KVO_PLATFORM_INTERFACE=lo"}})
{
    Arguments all{"usb", "lock", "set"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return kvoctl(all, conditions);
}

TEST(UsbLock, is_sent_to_all_stations_with_the_option_all)
{
    const Network network;
    const Ended ended = lock({"1", "-2", "--all", "--json"});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.document(), Json::parse(R"({"done": true})"));
    EXPECT_THAT(network.datagrams(), ElementsAre("setUsbLock=\"1:-2\" 0.0.0.0\n"));
}

TEST(UsbLock, is_not_sent_without_stations_or_the_option_all)
{
    const Network network;
    const Ended ended = lock({"1", "-2"});
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.err, testing::HasSubstr("name the stations, or give --all for every station\n"));
    EXPECT_THAT(network.datagrams(), IsEmpty());
}

TEST(UsbLock, is_sent_to_each_station_in_any_form)
{
    const Network network;
    const ScriptedService service({support::replies("C0A80007 00000001 00000002 00000003 00000004 Mill 00000000 00000000 "
                                                    "00000000 00000000 00000000 00000000 00000000 ")});
    EXPECT_EQ(lock({"0", "1", "10.0.0.5", "0A000006", "Mill"}).status, 0);
    EXPECT_THAT(network.datagrams(), ElementsAre("setUsbLock=\"0:1\" 192.168.0.7\n", "setUsbLock=\"0:1\" 10.0.0.6\n",
                                                 "setUsbLock=\"0:1\" 10.0.0.5\n"));
    EXPECT_THAT(service.requests(), ElementsAre("getExDescByName Mill\n"));
}

TEST(UsbLock, is_not_sent_at_all_if_one_station_is_unknown)
{
    const Network network;
    const ScriptedService service({support::replies("not found")});
    const Ended ended = lock({"0", "1", "10.0.0.5", "Mill"});
    EXPECT_EQ(ended.status, 1);
    EXPECT_EQ(ended.err, "kvoctl: usb lock set: no station is named \"Mill\" (result 0)\n");
    EXPECT_THAT(network.datagrams(), IsEmpty());
}

TEST(UsbLock, is_not_sent_at_all_if_one_station_is_this_host)
{
    const Network network;
    const Ended ended = lock({"0", "1", "10.0.0.5", "127.0.0.1"});
    EXPECT_EQ(ended.status, 4);
    EXPECT_EQ(ended.err, "kvoctl: usb lock set: 127.0.0.1 is not a station's address; nothing was sent (result -10)\n");
    EXPECT_THAT(network.datagrams(), IsEmpty());
}

TEST(UsbLock, needs_the_service_only_for_names)
{
    const Network network;
    EXPECT_EQ(lock({"0", "1", "10.0.0.5"}).status, 0);
    const Ended ended = lock({"0", "1", "Mill"});
    EXPECT_EQ(ended.status, 3);
    EXPECT_THAT(network.datagrams(), ElementsAre("setUsbLock=\"0:1\" 10.0.0.5\n"));
}

}  // namespace

}  // namespace kvoctl_test
