// The baseline of exchanges with the command socket: only the system calls, under a mutex.
#include "baseline.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <poll.h>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

namespace baseline {

namespace {

pthread_mutex_t gExchange = PTHREAD_MUTEX_INITIALIZER;

constexpr char kCommandSocket[] = "/tmp/kvo_hws/cmd_sock";
constexpr int kTimeoutSeconds = 4;

int openSocket()
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval bound{.tv_sec = kTimeoutSeconds, .tv_usec = 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
    return fd;
}

bool ask(int fd, const char *commandLine, const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t pathLength = std::min(std::strlen(path), sizeof address.sun_path - 1);
    std::memcpy(address.sun_path, path, pathLength);
    const auto addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + pathLength);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), addressLength) != 0) {
        return false;
    }
    const std::size_t length = std::strlen(commandLine);
    return write(fd, commandLine, length) == static_cast<ssize_t>(length);
}

/// Waits, peeks, and reads up to the first line feed. Returns the number of bytes read, 0 on failure.
std::size_t readAvailable(int fd, char *to, bool &complete)
{
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, kTimeoutSeconds * 1000) != 1) {
        return 0;
    }
    const ssize_t seen = recv(fd, to, kLineSize, MSG_PEEK);
    if (seen <= 0) {
        return 0;
    }
    const auto *const lineFeed = static_cast<const char *>(std::memchr(to, '\n', static_cast<std::size_t>(seen)));
    const auto wanted = lineFeed != nullptr ? static_cast<std::size_t>(lineFeed - to) + 1 : static_cast<std::size_t>(seen);
    complete = lineFeed != nullptr;
    return recv(fd, to, wanted, 0) == static_cast<ssize_t>(wanted) ? wanted : 0;
}

bool readReply(int fd, char (&reply)[kLineSize])
{
    bool complete = false;
    const std::size_t taken = readAvailable(fd, reply, complete);
    if (taken == 0 || !complete) {
        return false;
    }
    reply[taken - 1] = '\0';
    return true;
}

struct FreeHeap {
    void operator()(char *block) const { std::free(block); }
};
using HeapText = std::unique_ptr<char, FreeHeap>;

constexpr std::size_t kLargeRead = 64 * 1024;

/// Reads everything that is available: the connection carries only this reply, so no later bytes have to stay in the socket.
HeapText readLongReply(int fd)
{
    const timeval bound{.tv_sec = kTimeoutSeconds, .tv_usec = 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
    HeapText text;
    std::size_t capacity = 0;
    std::size_t length = 0;
    do {
        if (capacity < length + kLargeRead) {
            capacity = std::max(2 * capacity, 2 * kLargeRead);
            auto *const grown = static_cast<char *>(std::realloc(text.get(), capacity));
            if (grown == nullptr) {
                return nullptr;
            }
            static_cast<void>(text.release());
            text.reset(grown);
        }
        const ssize_t taken = recv(fd, text.get() + length, kLargeRead, 0);
        if (taken <= 0) {
            return nullptr;
        }
        length += static_cast<std::size_t>(taken);
    } while (text.get()[length - 1] != '\n');
    text.get()[length - 1] = '\0';
    return text;
}

HeapText exchangeLong(const char *commandLine)
{
    const int fd = openSocket();
    pthread_mutex_lock(&gExchange);
    HeapText reply = ask(fd, commandLine, kCommandSocket) ? readLongReply(fd) : nullptr;
    pthread_mutex_unlock(&gExchange);
    close(fd);
    return reply;
}

}  // namespace

bool exchange(const char *commandLine, char (&reply)[kLineSize], const char *path)
{
    const int fd = openSocket();
    pthread_mutex_lock(&gExchange);
    const bool done = ask(fd, commandLine, path) && readReply(fd, reply);
    pthread_mutex_unlock(&gExchange);
    close(fd);
    return done;
}

bool getList(KvoDescription *list, uint32_t *count)
{
    // The library clears the caller's array, so the baseline has to do the same.
    std::memset(list, 0, std::size_t{*count} * sizeof *list);
    char counted[kLineSize];
    if (!exchange("getCountElemDL\n", counted) || std::strtoul(counted, nullptr, 10) > *count) {
        return false;
    }
    char command[64];
    std::snprintf(command, sizeof command, "getDLV2 %u\n", *count);
    const HeapText text = exchangeLong(command);
    return text != nullptr && readBasic(count, list, text.get()) == 1;
}

}  // namespace baseline
