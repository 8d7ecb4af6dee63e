// The stand-in for the panel's system library, on this host's own interfaces.
#include <kvo_hws/platform.h>

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <net/if.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

TEST(PlatformTexts, the_environment_names_the_interface_and_the_configuration_file)
{
    setenv("KVO_PLATFORM_INTERFACE", "panel7", 1);
    setenv("KVO_PLATFORM_CONFIG", "/etc/panel.conf", 1);
    EXPECT_STREQ(libpavo_getMetric(0x10000), "panel7");
    EXPECT_STREQ(libpavo_getMetric(0x40000), "/etc/panel.conf");
    unsetenv("KVO_PLATFORM_INTERFACE");
    unsetenv("KVO_PLATFORM_CONFIG");
    EXPECT_EQ(libpavo_getMetric(0x40000), nullptr);
    EXPECT_EQ(libpavo_getMetric(1), nullptr);
}

TEST(PlatformTexts, without_an_environment_variable_the_interface_is_an_existing_one)
{
    unsetenv("KVO_PLATFORM_INTERFACE");
    const char *interface = libpavo_getMetric(0x10000);
    ASSERT_NE(interface, nullptr);
    EXPECT_NE(if_nametoindex(interface), 0U) << interface;
    if (if_nametoindex("eth0") != 0) {
        EXPECT_STREQ(interface, "eth0");
    }
}

TEST(Adapters, report_the_loopback_address)
{
    char text[20];
    std::memset(text, '#', sizeof text);
    uint32_t value = 0;
    EXPECT_EQ(GetIpByInterface("lo", text, &value), 0);
    EXPECT_STREQ(text, "127.0.0.1");
    EXPECT_EQ(value, htonl(INADDR_LOOPBACK));
}

TEST(Adapters, store_nothing_for_a_missing_interface)
{
    char text[20] = "untouched";
    uint32_t value = 7;
    EXPECT_NE(GetIpByInterface("none", text, &value), 0);
    EXPECT_NE(GetIpByInterface(nullptr, text, &value), 0);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(value, 7U);
}

TEST(Adapters, the_loopback_cannot_broadcast_and_returns_its_own_address)
{
    setAdapterInterfaceCache("lo");
    EXPECT_EQ(getAdapterValuesDirect(1), 0);
    EXPECT_EQ(getAdapterBroadcastCache(), htonl(INADDR_LOOPBACK));
    uint8_t mac[6] = {9, 9, 9, 9, 9, 9};
    getAdapterMacCache(mac);
    for (const uint8_t byte : mac) {
        EXPECT_EQ(byte, 0);
    }
}

TEST(Adapters, the_cache_is_empty_for_a_missing_adapter)
{
    setAdapterInterfaceCache("lo");
    EXPECT_EQ(getAdapterValuesDirect(0), 0);
    setAdapterInterfaceCache("none");
    EXPECT_NE(getAdapterValuesDirect(1), 0);
    EXPECT_EQ(getAdapterBroadcastCache(), 0U);
    setAdapterInterfaceCache(nullptr);
    EXPECT_NE(getAdapterValuesDirect(1), 0);
}

TEST(Adapters, report_the_same_as_the_kernel_for_every_interface)
{
    const int query = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int withAddress = 0;
    struct if_nameindex *const all = if_nameindex();
    for (const struct if_nameindex *one = all; one->if_index != 0; ++one) {
        ifreq request{};
        std::strncpy(request.ifr_name, one->if_name, IFNAMSIZ - 1);
        if (ioctl(query, SIOCGIFHWADDR, &request) == 0) {
            setAdapterInterfaceCache(one->if_name);
            EXPECT_EQ(getAdapterValuesDirect(1), 0) << one->if_name;
            uint8_t mac[6];
            getAdapterMacCache(mac);
            EXPECT_EQ(std::memcmp(mac, request.ifr_hwaddr.sa_data, 6), 0) << one->if_name;
        }
        if (ioctl(query, SIOCGIFADDR, &request) == 0) {
            char text[20];
            uint32_t value = 0;
            EXPECT_EQ(GetIpByInterface(one->if_name, text, &value), 0) << one->if_name;
            EXPECT_EQ(value, reinterpret_cast<const sockaddr_in *>(&request.ifr_addr)->sin_addr.s_addr);
            ++withAddress;
        }
    }
    if_freenameindex(all);
    close(query);
    EXPECT_GT(withAddress, 0);
}

TEST(Clock, counts_milliseconds_and_never_goes_back)
{
    const uint64_t before = GetTickCount64();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const uint64_t after = GetTickCount64();
    EXPECT_GE(after - before, 30U);
    EXPECT_LT(after - before, 2000U);
}

TEST(ThreadIds, differ_between_threads_and_stay_the_same_within_one)
{
    const unsigned long own = GetCurrentThreadId();
    EXPECT_EQ(GetCurrentThreadId(), own);
    unsigned long other = own;
    std::thread([&other] { other = GetCurrentThreadId(); }).join();
    EXPECT_NE(other, own);
}

}  // namespace
