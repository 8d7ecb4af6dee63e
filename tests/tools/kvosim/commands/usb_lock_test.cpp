// The datagrams of the USB lock: their syntax, the address and port, and their effect.
#include "kvosim/commands/commands.h"
#include "kvosim/net/udp_socket.h"
#include "tools/kvosim/support/client.h"
#include "tools/kvosim/support/named_row.h"
#include "tools/kvosim/support/running_service.h"

#include <kvo_hws/kvo_hws.h>

#include <gmock/gmock.h>

#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <thread>
#include <vector>

namespace {

using kvosim::UdpSocket;
using kvosim_test::exchange;
using kvosim_test::RunningService;
using testing::HasSubstr;
using tools::EventLoop;

// ---- The syntax ----

struct Row : kvosim_test::NamedRow {
    std::string datagram;
    std::string first;   ///< the lock of 10.0.0.5 afterwards
    std::string second;  ///< and of 10.0.0.6
};

class Datagram : public testing::TestWithParam<Row> {};

TEST_P(Datagram, sets_the_lock)
{
    kvosim::Plant plant = kvosim::parsePlant(kvosim_test::kSmallPlant, "plant");
    const bool changes = GetParam().first != "0:0" || GetParam().second != "0:0";
    EXPECT_EQ(kvosim::applyUsbLock(plant, GetParam().datagram), changes);
    EXPECT_EQ(plant.findPanel(0x0A000005)->usbLock, GetParam().first);
    EXPECT_EQ(plant.findPanel(0x0A000006)->usbLock, GetParam().second);
}

const std::vector<Row> kDatagrams = {{"one", "setUsbLock=\"1:2\" 10.0.0.5\n", "1:2", "0:0"},
                                     {"other", "setUsbLock=\"1:2\" 10.0.0.6\n", "0:0", "1:2"},
                                     {"all", "setUsbLock=\"3:4\" 0.0.0.0\n", "3:4", "3:4"},
                                     {"signed", "setUsbLock=\"-1:2147483647\" 10.0.0.5\n", "4294967295:2147483647", "0:0"},
                                     {"unknown_host", "setUsbLock=\"1:2\" 10.0.0.99\n", "0:0", "0:0"},
                                     {"no_line_end", "setUsbLock=\"1:2\" 10.0.0.55", "0:0", "0:0"},
                                     {"no_host", "setUsbLock=\"1:2\"\n", "0:0", "0:0"},
                                     {"host_by_name", "setUsbLock=\"1:2\" Lathe\n", "0:0", "0:0"},
                                     {"trailing", "setUsbLock=\"1:2\" 10.0.0.5 \n", "0:0", "0:0"},
                                     {"no_quotes", "setUsbLock=1:2 10.0.0.5\n", "0:0", "0:0"},
                                     {"one_number", "setUsbLock=\"1\" 10.0.0.5\n", "0:0", "0:0"},
                                     {"too_large", "setUsbLock=\"4294967296:1\" 10.0.0.5\n", "0:0", "0:0"},
                                     {"other_keyword", "getUsbLock=\"1:2\" 10.0.0.5\n", "0:0", "0:0"},
                                     {"empty", "", "0:0", "0:0"},
                                     {"line_end", "\n", "0:0", "0:0"}};

INSTANTIATE_TEST_SUITE_P(Table, Datagram, testing::ValuesIn(kDatagrams), kvosim_test::kNameOfRow);

TEST(UsbLock, skips_a_station_that_reboots)
{
    kvosim::Plant plant = kvosim::parsePlant(kvosim_test::kSmallPlant, "plant");
    plant.findPanel(0x0A000005)->rebootsUntil = plant.clock.now() + std::chrono::minutes(1);
    EXPECT_FALSE(kvosim::applyUsbLock(plant, "setUsbLock=\"1:2\" 10.0.0.5\n"));
    EXPECT_TRUE(kvosim::applyUsbLock(plant, "setUsbLock=\"1:2\" 0.0.0.0\n"));
    EXPECT_EQ(plant.findPanel(0x0A000005)->usbLock, "0:0");
    EXPECT_EQ(plant.findPanel(0x0A000006)->usbLock, "1:2");
}

// ---- The address and port ----

TEST(Endpoint, has_an_address_and_an_optional_port)
{
    EXPECT_EQ(ntohs(kvosim::parseEndpoint("127.0.0.1")->sin_port), 5851);
    EXPECT_EQ(ntohs(kvosim::parseEndpoint("0.0.0.0:65535")->sin_port), 65535);
    EXPECT_EQ(kvosim::parseEndpoint("127.0.0.1:0")->sin_port, 0);
    for (const char *wrong : {"", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:x", "127.0.0:1", ":5851", "::1", "localhost"}) {
        EXPECT_FALSE(kvosim::parseEndpoint(wrong)) << wrong;
    }
    EXPECT_TRUE(kvosim::isEndpointOrNone("none"));
}

void sendTo(const std::string &endpoint, std::string_view datagram)
{
    const tools::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto address = *kvosim::parseEndpoint(endpoint);
    ASSERT_EQ(
        sendto(socket.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&address), sizeof address),
        static_cast<ssize_t>(datagram.size()));
}

/// Repeats the request until it returns the wanted reply: a datagram has no reply.
std::string waitForLock(const std::string &station, const std::string &wanted)
{
    std::string reply;
    for (int i = 0; i < 200 && reply != wanted; ++i) {
        reply = exchange("getUsbLock=" + station + '\n');
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return reply;
}

TEST(UsbLock, is_set_by_a_datagram)
{
    RunningService service(kvosim_test::kSmallPlant, {.usbLockAddress = "127.0.0.1:0"});
    const std::string endpoint = service.usbLockAddress();
    sendTo(endpoint, "nonsense");
    sendTo(endpoint, "");
    sendTo(endpoint, "setUsbLock=\"7:8\" 10.0.0.6\n");
    EXPECT_EQ(waitForLock("0A000006", "usb-lock=7:8\n"), "usb-lock=7:8\n");
    EXPECT_EQ(exchange("getUsbLock=0A000005\n"), "usb-lock=0:0\n");
}

TEST(UsbLock, a_flood_of_datagrams_does_not_delay_clients)
{
    RunningService service(kvosim_test::kSmallPlant, {.usbLockAddress = "127.0.0.1:0"});
    const sockaddr_in address = *kvosim::parseEndpoint(service.usbLockAddress());
    std::atomic<bool> done = false;
    std::vector<std::thread> flood;
    for (int sender = 0; sender < 3; ++sender) {
        flood.emplace_back([&] {
            const tools::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
            const std::string datagram(1400, 'x');
            while (!done) {
                sendto(socket.get(), datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr *>(&address),
                       sizeof address);
            }
        });
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(exchange("isInitComplete\n"), "yes\n");
    }
    done = true;
    for (std::thread &sender : flood) {
        sender.join();
    }
}

TEST(UsbLock, address_is_that_of_the_plant_unless_an_option_sets_it)
{
    const std::string plant = "[service]\nusb_lock_address = \"127.0.0.2:0\"\n";
    {
        const RunningService service(plant);
        EXPECT_THAT(service.usbLockAddress(), HasSubstr("127.0.0.2:"));
    }
    {
        const RunningService service(plant, {.usbLockAddress = "127.0.0.3:0"});
        EXPECT_THAT(service.usbLockAddress(), HasSubstr("127.0.0.3:"));
    }
    {
        const RunningService service(plant, {.usbLockAddress = "none"});
        EXPECT_EQ(service.usbLockAddress(), "");
    }
    EXPECT_EQ(RunningService("").usbLockAddress(), "");
}

TEST(UsbLock, port_in_use_is_an_error_unless_it_is_the_default)
{
    tools::EventLoop loop;
    const UdpSocket first(loop, "127.0.0.1:0", [](std::string_view) {});
    const std::string taken = first.address();
    EXPECT_THAT([&] { const RunningService service("", {.usbLockAddress = taken}); },
                testing::ThrowsMessage<std::runtime_error>(
                    HasSubstr("cannot receive the USB lock's datagrams at " + taken + ": the port is in use")));
    const RunningService service("", {.usbLockDefault = taken});
    EXPECT_EQ(service.usbLockAddress(), "");
    EXPECT_EQ(exchange("isInitComplete\n"), "yes\n");
}

TEST(UsbLock, port_of_the_network_is_shared)
{
    tools::EventLoop loop;
    const UdpSocket first(loop, "0.0.0.0:0", [](std::string_view) {});
    const UdpSocket second(loop, first.address(), [](std::string_view) {});
    EXPECT_EQ(second.address(), first.address());
}

/// Moves this process into a private network namespace, in which the lock's fixed port is free. Returns false if the kernel
/// refuses.
bool enterNetworkNamespace()
{
    if (unshare(CLONE_NEWNET) != 0) {
        return false;
    }
    const tools::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    return ioctl(socket.get(), SIOCSIFFLAGS, &request) == 0;
}

TEST(UsbLock, is_set_and_read_through_the_library)
{
    if (!enterNetworkNamespace()) {
        GTEST_SKIP() << "the kernel refuses a network namespace, and another process may use port 5851 here";
    }
    setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
    const RunningService service(kvosim_test::kSmallPlant, {.usbLockAddress = kvosim::kDefaultUsbLockAddress});
    const char *hosts[] = {"10.0.0.5", "10.0.0.6"};
    ASSERT_EQ(KVO_HWS_setUsbLock(2, hosts, 5, -6), 1);
    EXPECT_EQ(waitForLock("0A000005", "usb-lock=5:4294967290\n"), "usb-lock=5:4294967290\n");
    uint32_t first = 0;
    uint32_t second = 0;
    ASSERT_EQ(KVO_HWS_getUsbLock(0x0A000006, &first, &second), 1);
    EXPECT_EQ(first, 5U);
    EXPECT_EQ(static_cast<int>(second), -6);
    ASSERT_EQ(KVO_HWS_setUsbLock(0, nullptr, 1, 1), 1);
    EXPECT_EQ(waitForLock("C0A80007", "usb-lock=1:1\n"), "usb-lock=1:1\n");
}

}  // namespace
