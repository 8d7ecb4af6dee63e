// libpavo.so.1: platform texts, clock and thread ids, on any Linux host.
#include <kvo_hws/platform.h>

#include <cstdlib>
#include <ctime>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <string_view>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The interface that replaces a panel's internal one. The name stays valid, because it is stored in a static variable.
const char *defaultInterface() noexcept
{
    static char name[IF_NAMESIZE] = "lo";
    if (if_nametoindex("eth0") != 0) {
        return "eth0";
    }
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) {
        return "lo";
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, freeifaddrs);
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if ((entry->ifa_flags & IFF_UP) != 0 && (entry->ifa_flags & IFF_LOOPBACK) == 0) {
            std::string_view(entry->ifa_name).copy(name, sizeof name - 1);
            return name;
        }
    }
    return "lo";
}

}  // namespace

const char *libpavo_getMetric(unsigned long id) noexcept
{
    switch (id) {
    case PLATFORM_INTERFACE_NAME: {
        const char *chosen = std::getenv("KVO_PLATFORM_INTERFACE");
        if (chosen != nullptr) {
            return chosen;
        }
        // Chosen once, because callers may keep the pointer.
        static const char *const found = defaultInterface();
        return found;
    }
    case PLATFORM_CONFIG_FILE: return std::getenv("KVO_PLATFORM_CONFIG");
    default: return nullptr;
    }
}

uint64_t GetTickCount64() noexcept
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
}

unsigned long GetCurrentThreadId() noexcept { return static_cast<unsigned long>(syscall(SYS_gettid)); }
