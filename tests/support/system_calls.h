// Lets a test observe and replace the system calls that the library makes. A call that no test replaces goes to the system.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <poll.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

namespace support {

/// A test's replacements for system calls; an empty function lets the call through. Any thread may make a call, so a
/// replacement may run several times at once, and may still run after its removal.
struct SystemCalls {
    std::function<int(int domain)> socket{};
    std::function<int(int fd, const sockaddr *address, socklen_t length)> bind{};
    std::function<int(int fd, int backlog)> listen{};
    std::function<int(int fd)> accept4{};
    std::function<int(pollfd *descriptors, nfds_t count, int milliseconds)> poll{};
    std::function<int(timeval *time)> select{};
    std::function<int(const char *path, int flags, mode_t mode)> open{};
    std::function<int(int fd, const sockaddr *address, socklen_t length)> connect{};
    std::function<ssize_t(int fd, void *bytes, std::size_t length, int flags)> recv{};
    std::function<ssize_t(int fd, const void *bytes, std::size_t length, int flags)> send{};
    std::function<ssize_t(int fd, const void *bytes, std::size_t length, const sockaddr *address)> sendto{};
    std::function<int(int fd, int level, int option)> setsockopt{};
    std::function<int()> pthreadCreate{};
    std::function<int(pthread_t thread)> pthreadKill{};
    std::function<int(int fd, int level, int option)> getsockopt{};
    std::function<int(const char *path)> unlink{};
    std::function<int(int fd)> close{};
    std::function<int(int fd)> fstat{};
    std::function<ssize_t(int fd, void *bytes, std::size_t length)> read{};
    std::function<ssize_t(int fd, const void *bytes, std::size_t length)> write{};
    std::function<int(int fd, unsigned long request, void *argument)> ioctl{};
    std::function<int(int signal)> sigaction{};
    std::function<int(const timespec *time)> clockNanosleep{};
    std::function<int()> semInit{};
    std::function<int()> semTimedwait{};
    std::function<int()> gethostname{};

    // These calls return a pointer: a replacement returns true to make the call return null, and then sets errno itself.
    std::function<bool(const char *path)> fopenFails{};
    std::function<bool()> fgetsFails{};
    std::function<bool(const char *path)> opendirFails{};
    std::function<bool()> readdirFails{};

    /// Returns what a thread that the library creates does instead of @p work. Called on the creating thread.
    std::function<std::function<void *()>(std::function<void *()> work)> threadWork{};

    /// Called on the creating thread when the new thread runs, before pthread_create returns.
    std::function<void()> threadCreated{};
};

/// For replacements: whether the library itself makes the current call, and not a test or another library.
[[nodiscard]] bool calledByLibrary();

/// A replacement returns this to let the current call through to the system.
inline constexpr int kPassThrough = -1000;

/// Replaces system calls for a scope.
class WithSystemCalls {
public:
    explicit WithSystemCalls(SystemCalls calls);
    WithSystemCalls(const WithSystemCalls &) = delete;
    WithSystemCalls &operator=(const WithSystemCalls &) = delete;
    ~WithSystemCalls();
};

}  // namespace support
