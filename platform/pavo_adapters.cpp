// libpavo.so.1: network adapters, read from the host's own interfaces.
#include <kvo_hws/platform.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <memory>
#include <mutex>
#include <net/if.h>
#include <string>
#include <string_view>

namespace {

struct Adapter {
    bool present = false;
    std::array<uint8_t, 6> mac{};
    in_addr address{};
    bool hasAddress = false;
    uint32_t broadcast = 0;
};

void takeFrom(const ifaddrs &entry, Adapter &adapter) noexcept
{
    adapter.present = true;
    if (entry.ifa_addr == nullptr) {
        return;
    }
    if (entry.ifa_addr->sa_family == AF_PACKET) {
        const auto &link = *reinterpret_cast<const sockaddr_ll *>(entry.ifa_addr);
        if (link.sll_halen == adapter.mac.size()) {
            std::copy_n(link.sll_addr, adapter.mac.size(), adapter.mac.begin());
        }
    } else if (entry.ifa_addr->sa_family == AF_INET && !adapter.hasAddress) {
        adapter.address = reinterpret_cast<const sockaddr_in *>(entry.ifa_addr)->sin_addr;
        adapter.hasAddress = true;
        const bool broadcasts = (entry.ifa_flags & IFF_BROADCAST) != 0 && entry.ifa_broadaddr != nullptr;
        adapter.broadcast =
            broadcasts ? reinterpret_cast<const sockaddr_in *>(entry.ifa_broadaddr)->sin_addr.s_addr : adapter.address.s_addr;
    }
}

Adapter readAdapter(std::string_view interface) noexcept
{
    Adapter adapter;
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) {
        return adapter;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, freeifaddrs);
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (interface == entry->ifa_name) {
            takeFrom(*entry, adapter);
        }
    }
    return adapter;
}

// The adapter cache, which all threads share; cacheLock protects it.
std::mutex cacheLock;
std::array<char, IF_NAMESIZE> selected{};
Adapter cached;

}  // namespace

int GetIpByInterface(const char *interface, char *ipString, uint32_t *ipValue) noexcept
{
    if (interface == nullptr) {
        return -1;
    }
    const Adapter adapter = readAdapter(interface);
    if (!adapter.hasAddress || inet_ntop(AF_INET, &adapter.address, ipString, INET_ADDRSTRLEN) == nullptr) {
        return -1;
    }
    *ipValue = adapter.address.s_addr;
    return 0;
}

void setAdapterInterfaceCache(const char *interface) noexcept
{
    const std::lock_guard lock(cacheLock);
    const std::string_view name = interface == nullptr ? "" : interface;
    if (name != selected.data()) {
        selected.fill('\0');
        name.copy(selected.data(), selected.size() - 1);
        cached = {};
    }
}

int getAdapterValuesDirect(int refresh) noexcept
{
    const std::lock_guard lock(cacheLock);
    if (refresh != 0 || !cached.present) {
        cached = readAdapter(selected.data());
    }
    return cached.present ? 0 : -1;
}

void getAdapterMacCache(uint8_t mac[6]) noexcept
{
    const std::lock_guard lock(cacheLock);
    std::copy(cached.mac.begin(), cached.mac.end(), mac);
}

uint32_t getAdapterBroadcastCache() noexcept
{
    const std::lock_guard lock(cacheLock);
    return cached.broadcast;
}
