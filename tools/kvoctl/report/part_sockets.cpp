// The folder of the sockets, and the processes that listen there.
#include "common/command_socket.h"
#include "common/descriptor.h"
#include "common/socket_folder.h"
#include "common/tap/peer.h"
#include "common/tap/tap.h"
#include "kvoctl/output/display_text.h"
#include "kvoctl/output/table.h"
#include "kvoctl/report/part.h"
#include "kvoctl/report/processes.h"
#include "kvoctl/trace/trace_line.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <pwd.h>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace kvoctl::reporting {

namespace {

using Column = Table::Column;
using tools::Descriptor;

// ---- Who listens ----

/// A connection to the command socket. Invalid with the reason in errno.
Descriptor connectTo(const std::string &path)
{
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const bool isConnected = connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    return isConnected ? std::move(socket) : Descriptor();
}

std::string listenerByConnecting(const std::string &path)
{
    const Descriptor connection = connectTo(path);
    if (!connection.valid()) {
        return errno == ECONNREFUSED ? "no process listens: it was left over"
               : errno == EAGAIN     ? "a process listens; its queue is full"
                                     : std::string("unknown: ") + std::strerror(errno);
    }
    const tools::tap::Peer peer = tools::tap::peerOf(connection.get());
    return peer.pid == 0 ? "a process listens" : peer.name + "[" + std::to_string(peer.pid) + "] listens";
}

/// The inodes of the sockets that listen at a path, from the kernel's list: the programs there must not see a connection.
std::vector<std::string> listeningInodes(const std::string &path)
{
    constexpr unsigned long kListens = 0x10000;
    std::istringstream lines(readFile("/proc/net/unix").value_or(""));
    std::vector<std::string> inodes;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number, references, protocol, flags, type, state, inode, name;
        words >> number >> references >> protocol >> flags >> type >> state >> inode >> name;
        if (name == path && (std::strtoul(flags.c_str(), nullptr, 16) & kListens) != 0) {
            inodes.push_back(inode);
        }
    }
    return inodes;
}

/// Other mount namespaces have sockets with the same path. Processes that may not be examined count as others.
std::set<int> inThisNamespace(const std::set<int> &processes)
{
    std::error_code ignored;
    const std::filesystem::path own = std::filesystem::read_symlink("/proc/self/ns/mnt", ignored);
    std::set<int> all;
    for (const int id : processes) {
        if (std::filesystem::read_symlink("/proc/" + std::to_string(id) + "/ns/mnt", ignored) == own) {
            all.insert(id);
        }
    }
    return all;
}

std::string listenerFromList(const std::string &path, const std::map<std::string, std::set<int>> &owners)
{
    const std::vector<std::string> inodes = listeningInodes(path);
    if (inodes.empty()) {
        return "no process listens: it was left over";
    }
    std::set<int> processes;
    for (const std::string &inode : inodes) {
        if (const auto found = owners.find(inode); found != owners.end()) {
            processes.insert(found->second.begin(), found->second.end());
        }
    }
    const std::set<int> here = inThisNamespace(processes);
    std::string names;
    for (const int id : here.empty() ? processes : here) {
        names += (names.empty() ? "" : ", ") + describeProcess(id);
    }
    return names.empty() ? "a process of another user listens" : names + " listens";
}

bool isOfService(const std::string &path)
{
    return path == tools::kCommandSocket ||
           path == std::string(tools::kSocketDirectory) + '/' + tools::kTapFilePrefix + "cmd_sock";
}

// ---- The table ----

std::string modeText(mode_t mode)
{
    std::string text = S_ISDIR(mode) ? "d" : S_ISSOCK(mode) ? "s" : S_ISLNK(mode) ? "l" : S_ISREG(mode) ? "-" : "?";
    for (int bit = 8; bit >= 0; --bit) {
        text += (mode >> static_cast<unsigned>(bit) & 1U) != 0 ? "xwr"[bit % 3] : '-';
    }
    if ((mode & S_ISVTX) != 0) {
        text.back() = 't';
    }
    return text;
}

std::string ownerText(uid_t user)
{
    const passwd *const entry = getpwuid(user);
    return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::string timeText(const timespec &time)
{
    const auto moment = std::chrono::system_clock::from_time_t(time.tv_sec);
    return fullTime(std::chrono::floor<std::chrono::microseconds>(moment)).substr(0, std::strlen("2026-11-22T14:03:22"));
}

void addRow(Table &table, const std::filesystem::path &path, const std::map<std::string, std::set<int>> &owners)
{
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        table.add({path.filename().string(), std::strerror(errno), "", "", ""});
        return;
    }
    const std::string listener = !S_ISSOCK(status.st_mode) ? ""
                                 : isOfService(path)       ? listenerByConnecting(path)
                                                           : listenerFromList(path, owners);
    table.add(
        {path.filename().string(), modeText(status.st_mode), ownerText(status.st_uid), timeText(status.st_mtim), listener});
}

std::string tapText()
{
    if (tools::tap::needsRepair()) {
        return "A trace was killed, and has left the service's socket aside: kvoctl trace --repair";
    }
    return tools::tap::isAttached() ? "A trace is running; all requests pass through it." : "No trace is running.";
}

}  // namespace

std::vector<std::string> serviceNames()
{
    std::set<std::string> names;
    for (const std::string &path : {std::string(tools::kCommandSocket),
                                    std::string(tools::kSocketDirectory) + '/' + tools::kTapFilePrefix + "cmd_sock"}) {
        const Descriptor connection = connectTo(path);
        const std::string name = connection.valid() ? tools::tap::peerOf(connection.get()).name : "";
        if (!name.empty() && name != "kvoctl") {
            names.insert(name);
        }
    }
    return {names.begin(), names.end()};
}

Content sockets(const Circumstances & /*circumstances*/)
{
    const std::filesystem::path folder = tools::kSocketDirectory;
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) {
        return {.files = {{"sockets.txt", folder.string() + ": " + std::strerror(errno) + '\n'}}};
    }
    Table table({Column::text, Column::text, Column::text, Column::text, Column::text},
                {"name", "mode", "owner", "changed", "who listens"});
    table.add({folder.string(), modeText(status.st_mode), ownerText(status.st_uid), timeText(status.st_mtim), ""});
    std::error_code error;
    std::set<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(folder, error)) {
        paths.insert(entry.path());
    }
    const auto owners = socketOwners();
    for (const auto &path : paths) {
        addRow(table, path, owners);
    }
    std::ostringstream text;
    table.write(text, {kUnlimited});
    text << '\n' << tapText() << '\n';
    Content content{.files = {{"sockets.txt", text.str()}}};
    if (error) {
        content.notes.push_back("the folder's files are not listed: " + error.message());
    }
    return content;
}

}  // namespace kvoctl::reporting
