// What the system says: versions, and the state of the machine.
#include "kvoctl/output/display_text.h"
#include "kvoctl/output/result.h"
#include "kvoctl/output/table.h"
#include "kvoctl/report/part.h"
#include "kvoctl/trace/trace_line.h"

#include <kvo_hws/result.h>
#include <kvo_hws/service.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cstring>
#include <fstream>
#include <ifaddrs.h>
#include <map>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sstream>
#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace kvoctl::reporting {

namespace {

using Column = Table::Column;

std::string textOf(const Table &table)
{
    std::ostringstream text;
    table.write(text, {kUnlimited});
    return text.str();
}

// ---- versions.txt ----

/// The value of a line KEY="VALUE" of /etc/os-release.
std::string releaseValue(const std::string &release, const std::string &key)
{
    std::istringstream lines(release);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key + '=')) {
            std::erase(line, '"');
            return line.substr(key.size() + 1);
        }
    }
    return {};
}

std::string distribution()
{
    const std::optional<std::string> release = readFile("/etc/os-release");
    if (!release) {
        return "(unknown: /etc/os-release cannot be read)";
    }
    const std::string name = releaseValue(*release, "PRETTY_NAME");
    return name.empty() ? "(unknown: /etc/os-release has no PRETTY_NAME)" : name;
}

template <class... Parameters>
std::string versionText(Request<Parameters...> request)
{
    std::array<char, 4096> text{};
    unsigned size = text.size();
    require(request(text.data(), &size));
    return text.data();
}

std::string serviceVersion(const Circumstances &circumstances)
{
    if (!circumstances.serviceFault.empty()) {
        return "(not asked: " + circumstances.serviceFault + ")";
    }
    try {
        return versionText(KVO_REQUEST(KVO_HWS_getKVOHWSVersion));
    } catch (const Failure &failure) {
        return std::string("(") + failure.what() + ")";
    }
}

// ---- machine.txt ----

std::string megabytes(uint64_t bytes) { return std::to_string(bytes / (1024UL * 1024)) + " MiB"; }

std::string uptime()
{
    struct sysinfo info {};
    if (sysinfo(&info) != 0) {
        return std::strerror(errno);
    }
    const long minutes = info.uptime / 60;
    return std::to_string(minutes / 60 / 24) + " d " + std::to_string(minutes / 60 % 24) + " h " +
           std::to_string(minutes % 60) + " min";
}

/// The value of a line "KEY:  12 kB" of /proc/meminfo.
std::string memoryValue(const std::string &key)
{
    std::istringstream lines(readFile("/proc/meminfo").value_or(""));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key + ':')) {
            return megabytes(std::strtoull(line.c_str() + key.size() + 1, nullptr, 10) * 1024);
        }
    }
    return "unknown";
}

std::string hostName()
{
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "(unknown)";
}

Table disks()
{
    Table table({Column::text, Column::number, Column::number, Column::number}, {"folder", "size", "free", "free files"});
    for (const char *folder : {"/", "/tmp", "/tmp/kvo_hws", "/var/log", "/run", "/user/common"}) {
        struct statvfs status {};
        if (statvfs(folder, &status) != 0) {
            table.add({folder, std::strerror(errno), "", ""});
            continue;
        }
        table.add({folder, megabytes(static_cast<uint64_t>(status.f_blocks) * status.f_frsize),
                   megabytes(static_cast<uint64_t>(status.f_bavail) * status.f_frsize), std::to_string(status.f_favail)});
    }
    return table;
}

std::string addressOf(const ifaddrs &interface)
{
    if (interface.ifa_addr == nullptr || interface.ifa_addr->sa_family != AF_INET) {
        return {};
    }
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(interface.ifa_addr)->sin_addr, text.data(), text.size());
    const auto *mask = reinterpret_cast<const sockaddr_in *>(interface.ifa_netmask);
    return text.data() + (mask == nullptr ? "" : "/" + std::to_string(std::popcount(mask->sin_addr.s_addr)));
}

Table interfaces()
{
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) {
        throw std::system_error(errno, std::generic_category(), "getifaddrs");
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, &freeifaddrs);
    std::map<std::string, std::pair<bool, std::string>> all;
    for (const ifaddrs *each = list; each != nullptr; each = each->ifa_next) {
        auto &[isUp, addresses] = all[each->ifa_name];
        isUp = (each->ifa_flags & IFF_UP) != 0 && (each->ifa_flags & IFF_RUNNING) != 0;
        const std::string address = addressOf(*each);
        addresses += (addresses.empty() || address.empty() ? "" : ", ") + address;
    }
    Table table({Column::text, Column::text, Column::text}, {"interface", "state", "IPv4 address"});
    for (const auto &[name, state] : all) {
        table.add({name, state.first ? "up" : "down", state.second.empty() ? "none" : state.second});
    }
    return table;
}

}  // namespace

std::optional<std::string> readFile(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    if (!in || (in.peek() != std::ifstream::traits_type::eof() && !(text << in.rdbuf())) || in.bad()) {
        return std::nullopt;
    }
    return text.str();
}

Content versions(const Circumstances &circumstances)
{
    utsname system{};
    uname(&system);
    Table table({Column::text, Column::text});
    table.add({"kvoctl", KVOCTL_VERSION});
    table.add({"library", versionText(KVO_REQUEST(KVO_HWS_getDLLVersion))});
    table.add({"service", serviceVersion(circumstances)});
    table.add({"distribution", distribution()});
    table.add({"kernel", std::string(system.sysname) + ' ' + system.release + ' ' + system.version});
    table.add({"architecture", system.machine});
    return {.files = {{"versions.txt",
                       textOf(table) + "\nThe library reports this text in every version, because programs compare the whole\n"
                                       "text. libraries.txt has the name of its file, and its build id.\n"}}};
}

Content machine(const Circumstances & /*circumstances*/)
{
    Table table({Column::text, Column::text});
    table.add({"host name", hostName()});
    table.add({"time", fullTime(std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now()))});
    table.add({"running for", uptime()});
    std::string load = readFile("/proc/loadavg").value_or("unknown");
    table.add({"load", load.substr(0, load.find('\n'))});
    table.add({"memory", memoryValue("MemTotal") + ", available " + memoryValue("MemAvailable")});
    table.add({"processors", std::to_string(sysconf(_SC_NPROCESSORS_ONLN))});
    return {.files = {{"machine.txt", textOf(table) + '\n' + textOf(disks()) + '\n' + textOf(interfaces())}}};
}

}  // namespace kvoctl::reporting
