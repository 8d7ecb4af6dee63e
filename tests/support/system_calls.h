// The system calls that the library makes, seen and answered by a test: each passes to the system unless a test puts itself in
// between.
#pragma once

#include <cstddef>
#include <functional>
#include <pthread.h>
#include <sys/socket.h>

namespace support {

/// What a test puts in a call's place; an empty one lets the call through. Set before the library is called, for one test.
struct SystemCalls {
    std::function<int(int fd, const sockaddr *address, socklen_t length)> connect{};
    std::function<ssize_t(int fd, void *bytes, std::size_t length, int flags)> recv{};
    std::function<ssize_t(int fd, const void *bytes, std::size_t length, int flags)> send{};
    std::function<ssize_t(int fd, const void *bytes, std::size_t length, const sockaddr *address)> sendto{};
    std::function<int(int fd, int level, int option)> setsockopt{};
    std::function<int()> pthreadCreate{};
};

/// Answer of a stand-in that lets this one call through after all.
inline constexpr int kPass = -1000;

/// Puts stand-ins in place for a scope.
class WithSystemCalls {
public:
    explicit WithSystemCalls(SystemCalls calls);
    WithSystemCalls(const WithSystemCalls &) = delete;
    WithSystemCalls &operator=(const WithSystemCalls &) = delete;
    ~WithSystemCalls();
};

}  // namespace support
