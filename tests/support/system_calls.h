// The system calls that the library makes, seen and answered by a test: each passes to the system unless a test puts itself in
// between.
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

/// What a test puts in a call's place; an empty one lets the call through. Any thread may be calling meanwhile, so that a
/// stand-in may run several times at once, and still run when it has been taken away.
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

    // These return a pointer, so that their stand-ins say whether it is null instead; errno is theirs to set.
    std::function<bool(const char *path)> fopenFails{};
    std::function<bool()> fgetsFails{};
    std::function<bool(const char *path)> opendirFails{};
    std::function<bool()> readdirFails{};

    /// What a thread that the library creates does instead of its work, which is handed over; asked on the creating thread.
    std::function<std::function<void *()>(std::function<void *()> work)> threadWork{};

    /// Called on the creating thread when the new one runs, before the creation returns.
    std::function<void()> threadCreated{};
};

/// Whether the call that a stand-in is being asked about is made by the library itself, and not by a test or another library.
[[nodiscard]] bool calledByLibrary();

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
