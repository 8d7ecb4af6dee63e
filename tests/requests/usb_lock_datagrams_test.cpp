// The USB lock, which is set by datagrams.
#include <kvo_hws/platform.h>
#include <kvo_hws/requests.h>

#include "support/no_descriptors.h"
#include "support/syslog_capture.h"
#include "support/system_calls.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using support::MessagesOn;
using support::SyslogCapture;

/// A test's replacement of the platform functions; without a broadcast address the calls go to the platform.
struct Platform {
    std::string selected;
    int refreshed = 0;
    uint32_t broadcast = 0;
};
Platform platform;

/// Receives the datagrams for the stations' services: everything sent to UDP port 5851 of this host.
class Stations {
public:
    Stations() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(5851);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bound_ = bind(socket_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    Stations(const Stations &) = delete;
    Stations &operator=(const Stations &) = delete;
    ~Stations() { close(socket_); }

    [[nodiscard]] bool bound() const { return bound_; }

    /// All datagrams received, in order.
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
    bool bound_ = false;
};

class UsbLockDatagrams : public testing::Test {
protected:
    void SetUp() override
    {
        // The loopback interface cannot broadcast, so the platform returns the interface's own address.
        setenv("KVO_PLATFORM_INTERFACE", "lo", 1);
        ASSERT_TRUE(stations_.bound()) << "another program listens at UDP port 5851";
    }
    void TearDown() override { unsetenv("KVO_PLATFORM_INTERFACE"); }

    Stations stations_;
};

using Texts = std::vector<std::string>;

TEST_F(UsbLockDatagrams, are_sent_one_per_host_from_the_last_to_the_first)
{
    const char *hosts[] = {"10.0.0.5", "10.0.0.6", "10.0.0.7"};
    EXPECT_EQ(KVO_HWS_setUsbLock(3, hosts, 1, -2), 1);
    EXPECT_EQ(stations_.received(),
              (Texts{"setUsbLock=\"1:-2\" 10.0.0.7\n", "setUsbLock=\"1:-2\" 10.0.0.6\n", "setUsbLock=\"1:-2\" 10.0.0.5\n"}));
}

TEST_F(UsbLockDatagrams, without_hosts_a_single_one_names_every_station)
{
    EXPECT_EQ(KVO_HWS_setUsbLock(0, nullptr, 0, 1), 1);
    const char **never = reinterpret_cast<const char **>(1);  // never read
    EXPECT_EQ(KVO_HWS_setUsbLock(0, never, 0, 1), 1);
    EXPECT_EQ(stations_.received(), (Texts{"setUsbLock=\"0:1\" 0.0.0.0\n", "setUsbLock=\"0:1\" 0.0.0.0\n"}));
}

TEST_F(UsbLockDatagrams, are_sent_to_this_host_if_the_network_is_unknown)
{
    setenv("KVO_PLATFORM_INTERFACE", "none", 1);
    EXPECT_EQ(KVO_HWS_setUsbLock(0, nullptr, 3, 4), 1);
    EXPECT_EQ(stations_.received(), (Texts{"setUsbLock=\"3:4\" 0.0.0.0\n"}));
}

TEST_F(UsbLockDatagrams, a_host_that_only_begins_like_the_loopback_address_is_accepted)
{
    const char *hosts[] = {"127.0.0.10"};
    EXPECT_EQ(KVO_HWS_setUsbLock(1, hosts, 0, 1), 1);
    EXPECT_EQ(stations_.received(), (Texts{"setUsbLock=\"0:1\" 127.0.0.10\n"}));
}

TEST_F(UsbLockDatagrams, leave_no_descriptor_open)
{
    const auto open = [] {
        const std::filesystem::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    const auto before = open();
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(KVO_HWS_setUsbLock(0, nullptr, 0, 1), 1);
    }
    EXPECT_EQ(open(), before);
}

TEST_F(UsbLockDatagrams, use_the_broadcast_address_of_the_interface_named_by_the_platform)
{
    // The platform's functions are replaced here: not every machine has an interface with a broadcast address.
    platform = {.selected = {}, .refreshed = 0, .broadcast = inet_addr("10.20.30.255")};
    setenv("KVO_PLATFORM_INTERFACE", "panel7", 1);
    std::vector<std::string> destinations;
    const support::WithSystemCalls calls({.sendto = [&](int, const void *, std::size_t length, const sockaddr *address) {
        const auto &to = *reinterpret_cast<const sockaddr_in *>(address);
        destinations.push_back(std::string(inet_ntoa(to.sin_addr)) + ":" + std::to_string(ntohs(to.sin_port)));
        return static_cast<ssize_t>(length);
    }});
    EXPECT_EQ(KVO_HWS_setUsbLock(0, nullptr, 0, 1), 1);
    EXPECT_EQ(destinations, Texts{"10.20.30.255:5851"});
    EXPECT_EQ(platform.selected, "panel7");
    EXPECT_EQ(platform.refreshed, 1);
    platform = {};
}

TEST_F(UsbLockDatagrams, a_long_host_is_truncated)
{
    const std::string host(3000, 'h');
    const char *hosts[] = {host.c_str()};
    EXPECT_EQ(KVO_HWS_setUsbLock(1, hosts, 0, 1), 1);
    EXPECT_EQ(stations_.received(), (Texts{("setUsbLock=\"0:1\" " + host).substr(0, 1023)}));
}

struct Refusal {
    const char *name;
    std::vector<const char *> hosts;
    int32_t result;
    const char *message;
};

TEST_F(UsbLockDatagrams, an_invalid_host_is_refused_before_anything_is_sent)
{
    const MessagesOn messages;
    const Refusal refusals[] = {
        {"loopback_first", {"127.0.0.1", "10.0.0.5"}, -10, "KVO_HWS_setUsbLock - invalid host address 127.0.0.1"},
        {"loopback_beside_a_null_host", {"127.0.0.1", nullptr}, -10, "KVO_HWS_setUsbLock - invalid host address 127.0.0.1"},
        {"loopback_last", {"10.0.0.5", "127.0.0.1"}, -10, "KVO_HWS_setUsbLock - invalid host address 127.0.0.1"},
        {"null_host", {"10.0.0.5", nullptr}, -7, "KVO_HWS_setUsbLock - null pointer received"}};
    for (Refusal refusal : refusals) {
        const SyslogCapture capture;
        EXPECT_EQ(KVO_HWS_setUsbLock(2, refusal.hosts.data(), 0, 1), refusal.result) << refusal.name;
        EXPECT_EQ(capture.texts(), Texts{refusal.message}) << refusal.name;
    }
    const SyslogCapture capture;
    EXPECT_EQ(KVO_HWS_setUsbLock(1, nullptr, 0, 1), -7);
    EXPECT_EQ(capture.texts(), Texts{"KVO_HWS_setUsbLock - null pointer received"});
    EXPECT_EQ(stations_.received(), Texts{});
}

TEST_F(UsbLockDatagrams, a_socket_that_cannot_be_opened_is_a_failure)
{
    const MessagesOn messages;
    const SyslogCapture capture;
    int32_t result = 0;
    {
        const support::NoDescriptors none;
        result = KVO_HWS_setUsbLock(0, nullptr, 0, 1);
    }
    EXPECT_EQ(result, -1);
    EXPECT_EQ(capture.texts(), Texts{"KVO_HWS_setUsbLock - socket() fails"});
}

TEST_F(UsbLockDatagrams, socket_options_that_fail_stop_the_call)
{
    const MessagesOn messages;
    for (const auto &[option, message] :
         {std::pair{SO_REUSEADDR, "KVO_HWS_setUsbLock - setsockopt(REUSEADDR) causes error"},
          std::pair{SO_BROADCAST, "KVO_HWS_setUsbLock - setsockopt(SO_BROADCAST) causes error"}}) {
        const support::WithSystemCalls calls({.setsockopt = [refused = option](int, int, int set) {
            errno = ENOPROTOOPT;
            return set == refused ? -1 : support::kPassThrough;
        }});
        const SyslogCapture capture;
        EXPECT_EQ(KVO_HWS_setUsbLock(0, nullptr, 0, 1), -1);
        EXPECT_EQ(capture.texts(), Texts{message});
    }
    EXPECT_EQ(stations_.received(), Texts{});
}

TEST_F(UsbLockDatagrams, a_send_that_fails_stops_the_call_and_what_was_sent_stays_sent)
{
    const char *hosts[] = {"10.0.0.5", "10.0.0.6", "10.0.0.7"};
    const MessagesOn messages;
    for (const auto &[sent, result] : {std::pair{0, -1}, std::pair{1, 1}}) {
        const support::WithSystemCalls calls({.sendto = [left = sent](auto...) mutable -> ssize_t {
            errno = ENETUNREACH;
            return left-- == 0 ? -1 : support::kPassThrough;
        }});
        const SyslogCapture capture;
        EXPECT_EQ(KVO_HWS_setUsbLock(3, hosts, 0, 1), result);
        EXPECT_EQ(capture.texts(), Texts{"KVO_HWS_setUsbLock - can not send broadcast request"});
    }
    EXPECT_EQ(stations_.received(), Texts{"setUsbLock=\"0:1\" 10.0.0.7\n"});
}

}  // namespace

// Replaces the platform library's functions; calls go to that library unless a test replaces them.
extern "C" {

__attribute__((visibility("default"))) void setAdapterInterfaceCache(const char *interface) noexcept
{
    platform.selected = interface == nullptr ? "" : interface;
    static auto *const original = reinterpret_cast<void (*)(const char *)>(dlsym(RTLD_NEXT, "setAdapterInterfaceCache"));
    original(interface);
}

__attribute__((visibility("default"))) int getAdapterValuesDirect(int refresh) noexcept
{
    platform.refreshed = refresh;
    static auto *const original = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "getAdapterValuesDirect"));
    return platform.broadcast != 0 ? 0 : original(refresh);
}

__attribute__((visibility("default"))) uint32_t getAdapterBroadcastCache() noexcept
{
    static auto *const original = reinterpret_cast<uint32_t (*)()>(dlsym(RTLD_NEXT, "getAdapterBroadcastCache"));
    return platform.broadcast != 0 ? platform.broadcast : original();
}
}
